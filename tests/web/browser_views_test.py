#!/usr/bin/python3
"""The views of the web interface in headless Chromium.

The 3D view draws the Earth and the ionosphere shell (its canvas is more than background)
and turns with a mouse drag; the orbit chart shows the loaded constellation; the colour
map editor recolours a cell after an edit and a swatch after a colour is picked; the
scintillation panel plots a generated series. No error may reach the browser console.
Screenshots of each view go to the output folder. Exits 77 (skipped) without chromium,
chromedriver or selenium.
"""
import os
import shutil
import sys

from browser_test import run_in_browser

# Canvas pixels that differ from the 3D view's background, 0x0b1420, sampled on a grid.
DRAWN_PIXELS = """
const c = document.getElementById('view3d');
const probe = document.createElement('canvas');
probe.width = 80; probe.height = 60;
const g = probe.getContext('2d');
g.drawImage(c, 0, 0, 80, 60);
const d = g.getImageData(0, 0, 80, 60).data;
const drawn = (i) => Math.abs(d[i] - 11) + Math.abs(d[i + 1] - 20) + Math.abs(d[i + 2] - 32) > 30;
let count = 0;
for (let i = 0; i < d.length; i += 4) count += drawn(i);
return [count, drawn(4 * (30 * 80 + 40)), drawn(0)];
"""


def view3d(page):
    page.until("the 3D view", lambda: page.by_id("view3d").get_attribute("data-drawn") == "true")
    page.shot("view-3d-page")
    count, centre, corner = page.driver.execute_script(DRAWN_PIXELS)
    # The Earth in its shell at the centre, space in the corner, and the whole no more than
    # a small part of the view that takes in the satellites' orbits.
    assert centre and not corner and 50 < count < 1200, (count, centre, corner)
    assert int(page.by_id("view3d").get_attribute("data-satellites")) > 20
    before = page.driver.execute_script("return document.getElementById('view3d').toDataURL()")
    from selenium.webdriver.common.action_chains import ActionChains
    canvas = page.by_id("view3d")
    page.driver.execute_script("arguments[0].scrollIntoView({block: 'center'})", canvas)
    ActionChains(page.driver).move_to_element(canvas).click_and_hold() \
        .move_by_offset(120, 30).release().perform()
    after = page.driver.execute_script("return document.getElementById('view3d').toDataURL()")
    assert after != before, "a drag did not turn the camera"
    section = page.driver.find_element("css selector", ".view3d-card")
    section.screenshot(os.path.join(page.shots, "view-3d.png"))
    chart = page.driver.find_element("css selector", ".orbit-card")
    page.until("the orbit chart",
               lambda: page.driver.execute_script(
                   "return document.getElementById('orbit-chart').naturalWidth") == 640)
    chart.screenshot(os.path.join(page.shots, "view-orbit-chart.png"))


def colour_of(page, selector):
    return page.driver.execute_script(
        "return document.querySelector(arguments[0]).dataset.colour", selector)


def colour_editor(page):
    from selenium.webdriver.common.by import By
    page.driver.find_element(By.CSS_SELECTOR, '[data-pattern="2"]').click()
    cell = '#colour-table input[data-row="3"][data-column="5"]'
    # Pattern 2: row 3 (r = 2) holds 0.86, s = 0.32: 0.54 of the way from entry 12 (161, 0,
    # 93) to entry 13 (174, 0, 80).
    page.until("pattern 2", lambda: colour_of(page, cell) == "#a80055")
    neighbour = colour_of(page, '#colour-table input[data-row="3"][data-column="6"]')
    field = page.driver.find_element(By.CSS_SELECTOR, cell)
    page.driver.execute_script(
        "arguments[0].value = '0.1'; arguments[0].dispatchEvent(new Event('change'))", field)
    # Below 0.2 a cell takes the first entry's colour, pure blue.
    page.until("the edited cell's colour", lambda: colour_of(page, cell) == "#0000ff")
    assert colour_of(page, '#colour-table input[data-row="3"][data-column="6"]') == neighbour
    # A click on a header opens nothing; a click on a swatch opens the picker at its colour.
    page.driver.find_element(By.CSS_SELECTOR, "#colour-table thead th:nth-child(3)").click()
    assert not page.by_id("colour-picker").is_displayed()
    page.driver.find_element(By.CSS_SELECTOR, '#colour-swatches [data-entry="1"]').click()
    picker = page.by_id("colour-picker")
    assert picker.get_attribute("value") == "#0000ff", picker.get_attribute("value")
    page.driver.execute_script(
        "arguments[0].value = '#00c000'; arguments[0].dispatchEvent(new Event('change'))", picker)
    page.until("the picked swatch",
               lambda: colour_of(page, '#colour-swatches [data-entry="1"]') == "#00c000")
    assert not picker.is_displayed()
    card = page.driver.find_element(By.CSS_SELECTOR, ".colours-card")
    page.driver.execute_script("arguments[0].scrollIntoView()", card)
    card.screenshot(os.path.join(page.shots, "view-colour-map.png"))


def scintillation(page):
    from selenium.webdriver.common.by import By
    page.click_run("scint-generate")
    page.until("the strip chart", lambda: page.driver.execute_script(
        "const img = document.getElementById('scint-strip');"
        "return !img.hidden && img.naturalWidth === 640"))
    page.until("the generation's end", lambda: page.text_of("run-pill") == "scint-generate finished")
    # The target file of the default ScintTargetFile: 5 rows and 3 poles, so the load sets
    # FilterPoles 3 and FilterZeros 5 - 3 - 1 = 1 on the forms.
    page.click_run("scint-load")
    page.until("the loaded target's filter orders",
               lambda: page.by_id("setting-FilterPoles").get_attribute("data-saved") == "3" and
               page.by_id("setting-FilterZeros").get_attribute("data-saved") == "1")
    loaded = page.by_id("scint-fit").get_attribute("data-url")
    page.click_run("scint-fit")
    page.until("the fit on its graph", lambda: page.text_of("run-pill") == "scint-fit finished" and
               page.by_id("scint-fit").get_attribute("data-url") != loaded)
    card = page.driver.find_element(By.CSS_SELECTOR, ".scint-card")
    page.driver.execute_script("arguments[0].scrollIntoView()", card)
    card.screenshot(os.path.join(page.shots, "view-scintillation.png"))


def prepare(data_dir, examples):
    shutil.copy(os.path.join(examples, "brdc1820.10n"), data_dir)
    with open(os.path.join(data_dir, "scintTarget.txt"), "w") as target:
        target.write("5,3\n0.1,1.0\n0.5,2.0\n1,1.5\n2,0.8\n5,0.3\n")


def views(page):
    from selenium.webdriver.support.ui import Select
    Select(page.by_id("orbit-file")).select_by_value("brdc1820.10n")
    page.by_id("orbit-load").click()
    page.until("the satellites in the 3D view", lambda: int(
        page.by_id("view3d").get_attribute("data-satellites") or 0) > 0)
    view3d(page)
    colour_editor(page)
    scintillation(page)


if __name__ == "__main__":
    # WebGL without a GPU: Chromium's software renderer.
    sys.exit(run_in_browser("views", prepare, views,
                            ("--use-angle=swiftshader", "--enable-unsafe-swiftshader")))
