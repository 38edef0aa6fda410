#!/usr/bin/python3
"""The web interface in headless Chromium: a user's first session.

Opens the page with the token, changes settings (one refused beside its field), loads
orbits, runs a short observation run to 100 %, sees the sky plot drawn, hides it with its
opacity slider, stops a DIF run; then loads the bubble scenario, runs it and sees the
bubble with the rays' wall crossings, shows the NeQuick TEC map, draws and clears
profiles, catches a 1 ms run in progress and stops it; and finds no error in the browser
console. Screenshots go to the output folder. Exits 77 (skipped) without chromium, chromedriver or selenium.
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

    def shot_of(self, name, selector):
        from selenium.webdriver.common.by import By
        element = self.driver.find_element(By.CSS_SELECTOR, selector)
        self.driver.execute_script("arguments[0].scrollIntoView()", element)
        element.screenshot(os.path.join(self.shots, name + ".png"))

    def layer_colours(self, layer, colours):
        """How many pixels of a map layer have each of the 0xRRGGBB colours (opaque)."""
        return self.driver.execute_script("""
            const img = document.querySelector('[data-layer="' + arguments[0] + '"] img');
            if (img.hidden || !img.complete || img.naturalWidth === 0) return null;
            const c = document.createElement('canvas');
            c.width = img.naturalWidth; c.height = img.naturalHeight;
            const g = c.getContext('2d');
            g.drawImage(img, 0, 0);
            const d = g.getImageData(0, 0, c.width, c.height).data;
            const counts = arguments[1].map(() => 0);
            for (let i = 0; i < d.length; i += 4) {
              if (d[i + 3] !== 255) continue;
              const rgb = (d[i] << 16) | (d[i + 1] << 8) | d[i + 2];
              const k = arguments[1].indexOf(rgb);
              if (k >= 0) counts[k] += 1;
            }
            return counts;""", layer, colours)

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


def map_session(page):
    """The bubble scenario's map: bubble and crossings after a run, TEC map, profiles."""
    from selenium.webdriver.support.ui import Select
    page.until("the scenario in the list", lambda: page.driver.execute_script(
        "return [...document.querySelectorAll('#scenario-list option')]"
        ".some(o => o.value === 'bubble.toml')"))
    Select(page.by_id("scenario-list")).select_by_value("bubble.toml")
    page.by_id("scenario-load").click()
    page.until("the bubble scenario", lambda: "Loaded" in page.text_of("scenario-note"))
    page.set_and_wait("ScenarioDuration", "2")
    page.set_and_wait("bubbleLength", "3000")
    page.set_and_wait("bubbleWidth", "800")
    Select(page.by_id("orbit-file")).select_by_value("yuma147.txt")
    Select(page.by_id("orbit-type")).select_by_value("yuma")
    page.by_id("orbit-load").click()
    page.until("the almanac", lambda: page.text_of("run-pill") == "load-orbits finished")
    page.click_run("obs")
    page.until("the bubble run's end", lambda: page.text_of("run-pill") == "obs finished")
    # The bubble in white, and entry (yellow) and exit (red) marks of the rays.
    page.until("the bubble and its crossings", lambda: (
        lambda n: n is not None and n[0] > 500 and n[1] > 0 and n[2] > 0)(
            page.layer_colours("bubbleLayer", [0xFFFFFF, 0xFFFF00, 0xFF0000])))

    Select(page.by_id("tec-model")).select_by_value("0")
    page.by_id("show-tec").click()
    page.until("the NeQuick map", lambda: page.by_id("show-tec").get_attribute("data-state")
               == "ready")
    counts = page.layer_colours("nequickLayer", [0x0100FF])
    assert counts is not None, "the NeQuick layer is not shown"
    print("NeQuick TEC map on screen %.2f s after the press (%s)" % (
        int(page.by_id("show-tec").get_attribute("data-shown-ms")) / 1000.0,
        page.text_of("tec-state")))

    # Draw at the receiver (the scenario's place), then over it a profile at midnight.
    page.by_id("profile-draw").click()
    page.until("the first profile", lambda: "peak" in page.text_of("profile-note"))
    assert "1.30°, 103.80°, month 3" in page.text_of("profile-note"), page.text_of("profile-note")
    page.by_id("profile-ut").send_keys("0")
    page.by_id("profile-over").click()
    page.until("the second profile", lambda: "0 h UT" in page.text_of("profile-note"))
    page.until("the plot", lambda: page.by_id("profile-plot").get_attribute("data-version")
               is not None and int(page.by_id("profile-plot").get_attribute("data-version")) >= 3)
    page.shot_of("profiles", ".profile")
    page.by_id("profile-clear").click()
    page.until("the cleared plot", lambda: page.text_of("profile-note") == "")

    # A 1 ms run: the sky plot follows it at its display ticks.
    page.set_and_wait("ObservationInterval", "1")
    page.set_and_wait("ScenarioDuration", "5")
    page.set_and_wait("RecordType", "0")
    page.click_run("obs")
    page.until("the 1 ms run under way", lambda: page.text_of("run-pill") == "obs running" and
               page.text_of("progress-text") not in ("0%", "1%", "100%"))
    page.driver.execute_script("window.scrollTo(0, 0)")
    page.shot("run-in-progress")
    page.by_id("stop").click()
    page.until("the 1 ms run's stop", lambda: page.text_of("run-pill") == "obs stopped")
    # The map as the run left it: its satellites' tracks over the TEC map and the bubble.
    page.until("the sky plot's tracks", lambda: (lambda n: n is not None and n[0] > 0)(
        page.layer_colours("skyPlotLayer", [0x00FF00])))
    page.shot_of("map-bubble-tec", "section.map")


def run_in_browser(name, prepare, visit, flags=("--disable-gpu",)):
    """The command line, `vorel serve` on a fresh data folder that prepare(data_dir,
    examples) fills, and the page in headless Chromium with `flags`; visit(page) does the
    session, after which no error may be in the browser console. The exit status."""
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
    work = tempfile.mkdtemp(prefix="vorel-%s-" % name)
    data_dir = os.path.join(work, "VLD")
    os.makedirs(data_dir)
    prepare(data_dir, args.examples)
    server, url = start_server(args.vorel, data_dir)
    options = webdriver.ChromeOptions()
    options.binary_location = chromium
    for flag in ("--headless=new", "--no-sandbox", "--disable-dev-shm-usage", *flags,
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
        visit(page)
        errors = [e for e in driver.get_log("browser") if e["level"] == "SEVERE"]
        assert not errors, errors
    finally:
        driver.quit()
        server.send_signal(signal.SIGINT)
        status = server.wait(timeout=60)
        shutil.rmtree(work, ignore_errors=True)
    assert status == 0, "vorel serve ended with %d" % status
    print("browser %s passed; screenshots in %s" % (name, args.out))
    return 0


def first_session(page):
    assert "token=" not in page.driver.current_url, page.driver.current_url
    page.shot("opened")
    session(page, "brdc1820.10n")
    map_session(page)


def copy_examples(data_dir, examples):
    for name in ("brdc1820.10n", "yuma147.txt", "bubble.toml"):
        shutil.copy(os.path.join(examples, name), data_dir)


if __name__ == "__main__":
    sys.exit(run_in_browser("session", copy_examples, first_session))
