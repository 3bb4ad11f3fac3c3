#!/usr/bin/env python3
"""The preview page in headless Chromium: it shows the outputs of examples/basic, places a
typed mistake at its line, shows the new bytes of a changed format within 200 ms, lights the
bytes of a row pointed at (and the row of bytes pointed at, and the bytes of the row the
editor's cursor is in) in a joined telegram, saves, and shows a Chinese name as it is.
Screenshots go to SHOTS.

    browser_test.py RUNNER EXAMPLES WORK_DIR SHOTS
"""
import os
import re
import shutil
import subprocess
import sys

from selenium import webdriver
from selenium.webdriver.chrome.service import Service
from selenium.webdriver.common.action_chains import ActionChains
from selenium.webdriver.common.by import By
from selenium.webdriver.common.keys import Keys
from selenium.webdriver.support.ui import WebDriverWait

RUNNER, EXAMPLES, WORK, SHOTS = sys.argv[1:5]
LIMIT_MS = 200
os.makedirs(SHOTS, exist_ok=True)


def serve(example):
    folder = os.path.join(WORK, example)
    shutil.rmtree(folder, ignore_errors=True)
    shutil.copytree(os.path.join(EXAMPLES, example), folder)
    process = subprocess.Popen([RUNNER, "serve", folder, "--listen", "127.0.0.1:0"],
                               stdout=subprocess.PIPE, text=True)
    process.stdout.readline()
    url = re.search(r"http://\S+", process.stdout.readline()).group(0)
    return process, folder, url


options = webdriver.ChromeOptions()
options.binary_location = "/usr/bin/chromium"
for argument in ["--headless=new", "--no-sandbox", "--disable-gpu", "--window-size=1500,1100",
                 "--lang=en-US"]:
    options.add_argument(argument)
browser = webdriver.Chrome(service=Service("/usr/bin/chromedriver"), options=options)
wait = WebDriverWait(browser, 10)
servers = []


def page_text(selector):
    return " ".join(e.text for e in browser.find_elements(By.CSS_SELECTOR, selector))


def updated_after(change):
    """Makes the change, waits for the preview it causes and gives the time the page measured."""
    before = browser.find_element(By.TAG_NAME, "body").get_attribute("data-update-ms")
    browser.execute_script("document.body.removeAttribute('data-update-ms')")
    change()
    wait.until(lambda b: b.find_element(By.TAG_NAME, "body").get_attribute("data-update-ms"))
    return int(browser.find_element(By.TAG_NAME, "body").get_attribute("data-update-ms")), before


def type_at(line, anchor, old, new):
    """On the configuration's line (from 1), selects old where it stands in anchor, types new."""
    editor = browser.execute_script("return document.querySelector('#config-file .CodeMirror')")
    column = browser.execute_script(
        "const cm = arguments[0].CodeMirror; const at = cm.getLine(arguments[1] - 1).indexOf(arguments[2]);"
        "if (at < 0) return -1; const from = at + arguments[2].indexOf(arguments[3]);"
        "cm.focus(); cm.setSelection({line: arguments[1] - 1, ch: from},"
        " {line: arguments[1] - 1, ch: from + arguments[3].length}); return from;", editor, line, anchor, old)
    assert column >= 0, f"{anchor!r} is not on line {line}"
    ActionChains(browser).send_keys(new).perform()


def line_of(find):
    return browser.execute_script(
        "const cm = document.querySelector('#config-file .CodeMirror').CodeMirror;"
        "for (let i = 0; i < cm.lineCount(); i++) if (cm.getLine(i).includes(arguments[0])) return i + 1;"
        "return 0;", find)


try:
    # examples/basic: its outputs, a mistake, a changed format, saving.
    process, folder, url = serve("basic")
    servers.append(process)
    browser.get(url)
    wait.until(lambda b: "points" in page_text(".run"))
    first = browser.find_elements(By.CSS_SELECTOR, ".run")[0].text
    assert "OK" in first and "[00012,00000001.500;00040,-00000002.250;00007,00000100.125]" in first, first
    assert "CR" in first and "LF" in first, "the line break's bytes are not shown: " + first
    browser.save_screenshot(os.path.join(SHOTS, "basic.png"))

    line = line_of('"ConvertType": 1')
    ms, _ = updated_after(lambda: type_at(line, '"ConvertType": 1', "1", "7"))
    wait.until(lambda b: b.find_elements(By.CSS_SELECTOR, f'#config-file .diagnostics li[data-line="{line}"]'))
    said = page_text("#config-file .diagnostics li")
    assert "ConvertType" in said, said
    marked = browser.find_elements(By.CSS_SELECTOR, "#config-file .CodeMirror-lint-marker-error")
    assert marked, "no gutter mark"
    browser.save_screenshot(os.path.join(SHOTS, "mistake.png"))
    timings = [ms]
    ms, _ = updated_after(lambda: type_at(line, '"ConvertType": 7', "7", "1"))
    timings.append(ms)
    wait.until(lambda b: not b.find_elements(By.CSS_SELECTOR, "#config-file .diagnostics li"))

    ms, _ = updated_after(lambda: type_at(line_of("%5d"), "%5d", "5", "3"))
    timings.append(ms)
    wait.until(lambda b: "[012,00000001.500;040,-00000002.250;007,00000100.125]" in page_text(".run"))
    browser.save_screenshot(os.path.join(SHOTS, "format.png"))

    browser.find_element(By.CSS_SELECTOR, "#config-file .save").click()
    wait.until(lambda b: b.find_element(By.CSS_SELECTOR, "#config-file .saved").text.startswith("saved"))
    on_disk = open(os.path.join(folder, "algo_private.json")).read()
    assert '"1:blob:x:*:%3d"' in on_disk and on_disk == browser.execute_script(
        "return document.querySelector('#config-file .CodeMirror').CodeMirror.getValue()")
    assert '"1:blob:x:*:%5d"' in open(os.path.join(folder, "algo_private.json~")).read()

    # Chinese texts reach the display texts and the outputs' names as they are, not escaped.
    ms, _ = updated_after(lambda: type_at(line_of('"ParamName": "count"'), '"count"', "count", "数量"))
    timings.append(ms)
    wait.until(lambda b: "数量:3" in page_text(".run"))
    browser.save_screenshot(os.path.join(SHOTS, "chinese.png"))

    # A joined telegram: pointing at a row lights its bytes, pointing at bytes lights the row.
    process, folder, url = serve("plc-telegram")
    servers.append(process)
    browser.get(url)
    wait.until(lambda b: "telegram" in page_text(".run"))
    card = browser.find_elements(By.CSS_SELECTOR, ".run")[0]
    chip = [c for c in card.find_elements(By.CSS_SELECTOR, ".rows [data-row]") if c.text == "width"][0]
    ActionChains(browser).move_to_element(chip).perform()
    lit = [e.text for e in card.find_elements(By.CSS_SELECTOR, ".bytes.lit")]
    assert lit == ["12.35;"], lit
    browser.save_screenshot(os.path.join(SHOTS, "provenance.png"))
    piece = [e for e in card.find_elements(By.CSS_SELECTOR, ".bytes[data-row]") if e.text == "A1234;"][0]
    ActionChains(browser).move_to_element(piece).perform()
    lit = [e.text for e in card.find_elements(By.CSS_SELECTOR, ".rows .lit")]
    assert lit == ["lot"], lit
    browser.execute_script("document.querySelector('#config-file .CodeMirror').CodeMirror"
                           ".setCursor(arguments[0] - 1, 5)", line_of('"ParamName": "height"'))
    lit = [e.text for e in card.find_elements(By.CSS_SELECTOR, ".bytes.lit")]
    assert lit == ["4.50"], lit

    print("preview updates (ms):", timings)
    assert max(timings) < LIMIT_MS, f"an update took {max(timings)} ms (limit {LIMIT_MS})"
    print("browser_test: passed; screenshots in", SHOTS)
finally:
    browser.quit()
    for process in servers:
        process.kill()
