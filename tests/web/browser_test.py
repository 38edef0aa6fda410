#!/usr/bin/python3
"""The web interface in headless Chromium: a user's first session.

Opens the page with the token, changes settings (one refused beside its field), loads
orbits, runs a short observation run to 100 %, sees the sky plot drawn, hides it with its
opacity slider, stops a DIF run, and finds no error in the browser console. Screenshots
go to the output folder. Exits 77 (skipped) without chromium, chromedriver or selenium.
"""
import argparse
import os
import shutil
import signal
import subprocess
import sys
import tempfile
import time

SKIP = 77


def find_browser():
    chromium = shutil.which("chromium") or shutil.which("chromium-browser")
    driver = shutil.which("chromedriver")
    try:
        import selenium  # noqa: F401
    except ImportError:
        return None, None
    return chromium, driver


def start_server(vorel, data_dir):
    server = subprocess.Popen([vorel, "serve", "--port", "0", "--data-dir", data_dir],
                              stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True)
    for line in server.stdout:
        if "open http" in line:
            return server, line.split("open ", 1)[1].strip()
    raise RuntimeError("vorel serve printed no address: " + server.stderr.read())


class Page:
    def __init__(self, driver, shots):
        from selenium.webdriver.support.ui import WebDriverWait
        self.driver = driver
        self.shots = shots
        self.wait = WebDriverWait(driver, 60, poll_frequency=0.1)

    def by_id(self, name):
        from selenium.webdriver.common.by import By
        return self.driver.find_element(By.ID, name)

    def text_of(self, name):
        return self.by_id(name).text

    def until(self, what, condition):
        try:
            self.wait.until(lambda d: condition())
        except Exception:
            self.shot("failure")
            raise AssertionError("timed out waiting for " + what)

    def shot(self, name):
        self.driver.save_screenshot(os.path.join(self.shots, name + ".png"))

    def set_field(self, name, value):
        field = self.by_id("setting-" + name)
        self.driver.execute_script(
            "document.querySelector('#panel-tabs button[data-panel=\"' + "
            "arguments[0].closest('.panel').dataset.panel + '\"]').click()", field)
        from selenium.webdriver.common.keys import Keys
        field.send_keys(Keys.CONTROL, "a")  # clear() would send a change of its own
        field.send_keys(value)
        self.driver.execute_script(
            "arguments[0].dispatchEvent(new Event('change'))", field)

    def set_and_wait(self, name, value):
        self.set_field(name, value)
        field = self.by_id("setting-" + name)
        self.until(name + " saved", lambda: field.get_attribute("data-saved") == value)

    def click_run(self, command):
        from selenium.webdriver.common.by import By
        self.driver.find_element(By.CSS_SELECTOR, '[data-run="%s"]' % command).click()


def session(page, example_orbits):
    from selenium.webdriver.support.ui import Select

    # A refused value is shown beside its field, naming the setting.
    page.set_field("RecordType", "9")
    page.until("the refusal of RecordType",
               lambda: "RecordType" in page.text_of("setting-RecordType-error"))
    page.shot("refused-setting")
    page.set_and_wait("RecordType", "2")
    assert page.text_of("setting-RecordType-error") == ""

    for name, value in [("ScenarioHour", "5"), ("ReceiverLatitude", "-30.25"),
                        ("ReceiverLongitude", "149.75"), ("ObservationInterval", "100"),
                        ("ScenarioDuration", "2")]:
        page.set_and_wait(name, value)

    Select(page.by_id("orbit-file")).select_by_value(example_orbits)
    Select(page.by_id("orbit-type")).select_by_value("rinex")
    page.by_id("orbit-load").click()
    page.until("the orbits", lambda: "satellites loaded" in page.text_of("orbit-pill"))

    page.click_run("obs")
    page.until("the observation run's end", lambda: page.text_of("run-pill") == "obs finished")
    assert page.text_of("progress-text") == "100%", page.text_of("progress-text")
    page.until("the sky plot", lambda: page.driver.execute_script(
        "const img = document.querySelector('[data-layer=\"skyPlotLayer\"] img');"
        "const canvas = document.querySelector('[data-layer-canvas=\"skyPlotLayer\"]');"
        "return (img && !img.hidden && img.naturalWidth > 0) ||"
        "       (canvas && !canvas.hidden && Number(canvas.dataset.satellites) > 0);"))
    page.until("the record in the file list",
               lambda: ".10O" in page.text_of("file-list") or ".10o" in page.text_of("file-list"))
    page.shot("observation-run")

    # Opacity 0 hides the sky plot and keeps what it holds.
    slider = page.by_id("opacity-skyPlotLayer")
    page.driver.execute_script(
        "arguments[0].value = 0; arguments[0].dispatchEvent(new Event('input'));"
        "arguments[0].dispatchEvent(new Event('change'))", slider)
    # The slider is the skyPlotOpacity setting.
    page.until("skyPlotOpacity 0", lambda: page.by_id("setting-skyPlotOpacity")
               .get_attribute("data-saved") == "0")
    opacity = page.driver.execute_script(
        "return getComputedStyle(document.querySelector('[data-layer=\"skyPlotLayer\"]')).opacity")
    assert opacity == "0", opacity
    kept = page.driver.execute_script(
        "const c = document.querySelector('[data-layer-canvas=\"skyPlotLayer\"]');"
        "const img = document.querySelector('[data-layer=\"skyPlotLayer\"] img');"
        "return c.hidden ? !img.hidden && img.naturalWidth > 0 : Number(c.dataset.satellites) > 0")
    assert kept
    page.shot("sky-plot-hidden")
    page.driver.execute_script(
        "arguments[0].value = 255; arguments[0].dispatchEvent(new Event('input'));"
        "arguments[0].dispatchEvent(new Event('change'))", slider)

    # A DIF run of the test signal, stopped as with the first Ctrl-C.
    page.set_and_wait("ScenarioDriven", "0")
    page.set_and_wait("Duration", "0.5")
    page.click_run("dif")
    page.until("the DIF run's progress",
               lambda: page.text_of("run-pill") == "dif running" and
               page.text_of("progress-text") not in ("0%", "100%"))
    page.by_id("stop").click()
    page.until("the DIF run's stop", lambda: page.text_of("run-pill") == "dif stopped")
    page.until("the stop in the messages",
               lambda: "files closed whole" in page.text_of("messages"))
    page.shot("dif-stopped")


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--vorel", required=True)
    parser.add_argument("--examples", required=True)
    parser.add_argument("--out", required=True, help="folder for the screenshots")
    args = parser.parse_args()

    chromium, chromedriver = find_browser()
    if not chromium or not chromedriver:
        print("skipped: chromium, chromedriver or python3-selenium is not installed")
        return SKIP
    from selenium import webdriver
    from selenium.webdriver.chrome.service import Service

    os.makedirs(args.out, exist_ok=True)
    work = tempfile.mkdtemp(prefix="vorel-browser-")
    data_dir = os.path.join(work, "VLD")
    os.makedirs(data_dir)
    shutil.copy(os.path.join(args.examples, "brdc1820.10n"), data_dir)
    server, url = start_server(args.vorel, data_dir)
    options = webdriver.ChromeOptions()
    options.binary_location = chromium
    for flag in ("--headless=new", "--no-sandbox", "--disable-gpu", "--disable-dev-shm-usage",
                 "--window-size=1440,1160", "--user-data-dir=" + os.path.join(work, "profile")):
        options.add_argument(flag)
    options.set_capability("goog:loggingPrefs", {"browser": "ALL"})
    driver = webdriver.Chrome(service=Service(chromedriver), options=options)
    try:
        started = time.monotonic()
        driver.get(url)
        page = Page(driver, args.out)
        page.until("the page", lambda: driver.execute_script(
            "return document.body.dataset.ready === 'true'"))
        print("page ready in %.2f s" % (time.monotonic() - started))
        assert "token=" not in driver.current_url, driver.current_url
        page.shot("opened")
        session(page, "brdc1820.10n")
        errors = [e for e in driver.get_log("browser") if e["level"] == "SEVERE"]
        assert not errors, errors
    finally:
        driver.quit()
        server.send_signal(signal.SIGINT)
        status = server.wait(timeout=60)
        shutil.rmtree(work, ignore_errors=True)
    assert status == 0, "vorel serve ended with %d" % status
    print("browser session passed; screenshots in " + args.out)
    return 0


if __name__ == "__main__":
    sys.exit(main())
