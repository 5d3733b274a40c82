#!/usr/bin/env python3
# SPDX-License-Identifier: MIT
# Copyright (c) 2026 the xapel2_ext_sc authors
# The report in a real browser: report_page.py PROGRAM FOLDER. Leaves the reports and their screenshots in FOLDER.

import base64
import json
import os
import re
import subprocess
import sys

from browser import Browser

# Texts whose contrast to their background is below 4.5 (WCAG 2 level AA). Labels upon pictures bring their own ground.
FAINT = """(() => {
  const parts = (text) => text.match(/[\\d.]+/g).map(Number);
  const light = (c) => c.slice(0, 3).map((v) => v / 255).map((v) => v <= 0.03928 ? v / 12.92 : ((v + 0.055) / 1.055) ** 2.4)
      .reduce((sum, v, i) => sum + v * [0.2126, 0.7152, 0.0722][i], 0);
  const ground = (e) => {
    const c = parts(getComputedStyle(e).backgroundColor);
    return c.length === 3 || c[3] === 1 ? c : ground(e.parentElement);
  };
  const texts = [...document.querySelectorAll('body *')].filter((e) => !e.closest('.stage, script') &&
      [...e.childNodes].some((n) => n.nodeType === 3 && n.textContent.trim()));
  const contrast = (e) => {
    const style = getComputedStyle(e);
    const [a, b] = [light(parts(e.closest('svg') ? style.fill : style.color)), light(ground(e))];
    return (Math.max(a, b) + 0.05) / (Math.min(a, b) + 0.05);
  };
  return [texts.length, texts.map((e) => [contrast(e), e.textContent]).filter(([c]) => c < 4.5)];
})()"""
NUMBERS = "[...document.querySelectorAll('data')].map((e) => [e.dataset.figure, e.value, e.textContent])"
CUT = "parseFloat(document.querySelector('.stage').style.getPropertyValue('--cut'))"
PLACES = """['.after', '.before'].map((c) => document.querySelector('.stage ' + c).getBoundingClientRect())
    .map((r) => [r.left, r.top, r.right, r.bottom])"""


def check(good, text):
    if not good:
        sys.exit("report_page: " + text)


def make_report(program, folder, name, *options):
    file = os.path.join(folder, name)
    run = subprocess.run([program, "report", "-o", file, "--json", *options], stdout=subprocess.PIPE, check=False)
    check(run.returncode == 0, f"report {options} ended with {run.returncode}")
    check(os.path.getsize(file) < 3000000, f"{name} is too large")
    return file, json.loads(run.stdout)


def figure_at(figures, path):
    for key in path.split("/")[1:]:
        figures = figures[int(key) if isinstance(figures, list) else key]
    return figures


def check_numbers(browser, figures):
    """Whether the page has a share of saturated samples above 0 among its numbers."""
    shown, shares = {}, False
    for path, full, text in browser.value(NUMBERS):
        figure = shown[path] = figure_at(figures, path)
        check(json.loads(full) == figure, f"{path} is {figure}, the page has {full}")
        factor = 100 if path.endswith("Share") else 1
        digits = len(text.partition(".")[2])
        good = text == "\u2013" if figure is None else abs(float(text) - factor * figure) <= 0.5001 * 10**-digits
        check(good, f"{path} is {figure}, the page shows {text}")
        shares = shares or (path.endswith("saturatedShare") and figure > 0)
    for when in ("before", "after"):
        for i, colour in enumerate((figures[when] or {"classes": []})["classes"]):
            wanted = [f"/{when}/classes/{i}/{kind}/{part}" for kind in ("dsnu", "prnuPercent") for part in colour["dsnu"]]
            check(len(wanted) == 8 and set(wanted) <= set(shown), f"the page lacks some of {wanted}")
    return shares


def check_view(browser, file, folder, name, width, dark):
    browser.show(file, width, dark=dark)
    check(browser.value("document.documentElement.scrollWidth") <= width, f"{name}: scrolls sideways")
    count, faint = browser.value(FAINT)
    check(count > 100 and not faint, f"{name}: {count} texts, too faint: {faint}")
    browser.picture(os.path.join(folder, name + ".png"))
    return browser.value("getComputedStyle(document.body).backgroundColor")


def check_divider(browser, file):
    browser.show(file, 1200)
    check(browser.value(CUT) == 50, "the divider does not begin in the middle")
    (left, top, right, _), before = browser.value(PLACES)
    check(before[:2] == [left, top], "the pictures do not lie upon each other")
    at = {"x": left + 0.25 * (right - left), "y": top + 20}
    browser.call("Input.dispatchMouseEvent", type="mousePressed", button="left", clickCount=1, **at)
    check(abs(browser.value(CUT) - 25) < 1, "the divider does not follow a click")
    at["x"] += 0.5 * (right - left)
    browser.call("Input.dispatchMouseEvent", type="mouseMoved", button="left", buttons=1, **at)
    check(abs(browser.value(CUT) - 75) < 1, "the divider does not follow the mouse")
    browser.call("Input.dispatchMouseEvent", type="mouseReleased", button="left", clickCount=1, **at)
    at["x"] = left + 0.1 * (right - left)
    browser.call("Input.dispatchTouchEvent", type="touchStart", touchPoints=[at])
    check(abs(browser.value(CUT) - 10) < 1, "the divider does not follow a finger")
    browser.call("Input.dispatchTouchEvent", type="touchEnd", touchPoints=[])
    browser.value("document.querySelector('.compare input').focus()")
    browser.call("Input.dispatchKeyEvent", type="keyDown", key="End", code="End", windowsVirtualKeyCode=35)
    check(browser.value(CUT) == 100, "the divider does not follow a key")
    browser.show(file, 390, script=False)
    after, (_, _, _, bottom) = browser.value(PLACES)
    check(after[1] >= bottom and browser.value("document.querySelector('input').hidden"),
          "without script the pictures do not stand one below the other")
    browser.show(file, 1000)
    browser.call("Emulation.setEmulatedMedia", media="print")
    after, (_, _, right, _) = browser.value(PLACES)
    check(after[0] >= right, "in print the pictures do not stand side by side, before left of after")
    browser.call("Emulation.setEmulatedMedia", media="")


def check_paper(browser, file, name):
    browser.show(file, 1200)
    for paper, width, height in (("Letter", 8.5, 11), ("A4", 8.27, 11.69)):
        pdf = base64.b64decode(browser.call("Page.printToPDF", paperWidth=width, paperHeight=height)["data"])
        pages = len(re.findall(rb"/Type /Page\b", pdf))
        check(1 <= pages <= 3, f"{name}: {pages} pages on {paper}")


def main(program, folder):
    os.makedirs(folder, exist_ok=True)
    hostile = os.path.join(folder, "<script>alert('&\"')<")
    reference = [["record", kind, "-d", "sim:5?width=160&height=120", "-o", hostile + kind] for kind in ("dark", "light")]
    for options in reference:
        subprocess.run([program, *options], stdout=subprocess.DEVNULL, check=True)
    reports = {
        "report": make_report(program, folder, "report.html", "-d", "sim"),
        "colour": make_report(program, folder, "colour.html", "-d", "sim:3?width=320&height=240&format=BayerRG12p"),
        "large": make_report(program, folder, "large.html", "-d", "sim:4?width=2448&height=2048&format=Mono16", "-n", "2"),
        # Some samples of the light reference are saturated.
        "saturated": make_report(program, folder, "saturated.html", "-d", "sim:5?width=160&height=120&exposure=16600"),
        "self-test": make_report(program, folder, "self-test.html", "--dark", hostile + "dark", "--light",
                                 hostile + "light"),
    }
    with Browser() as browser:
        for name, (file, figures) in reports.items():
            grounds = {check_view(browser, file, folder, f"{name}-{view}", width, dark)
                       for view, width, dark in (("light", 1200, False), ("dark", 1200, True), ("narrow", 390, False))}
            check(len(grounds) == 2, f"{name}: light and dark look alike")
            check_paper(browser, file, name)
            check(check_numbers(browser, figures) == (name == "saturated"), f"{name}: shares of saturated samples")
        text = browser.value("document.body.textContent")
        check("self-test" in text and hostile + "dark" in text, "the self-test does not name itself and its files")
        check_divider(browser, reports["report"][0])
        check(not browser.errors, f"the browser complains: {browser.errors}")
        foreign = [url for url in browser.requests if not re.match("file:|data:", url)]
        check(not foreign, f"the page asks for {foreign}")


if __name__ == "__main__":
    main(*sys.argv[1:])
