#!/usr/bin/python3
# SPDX-License-Identifier: MIT
"""bench_page.py CORVANE: the bench's page in a browser: its frame, and the tabs Variables and Cycle."""
import sys

from bench_browser import Browser
from bench_client import Program

corvane = sys.argv[1]

STATION = """
level = 1.5
function cycle() level = plc.cycle end
"""


def shown(browser):
    """What the rows of the variables say: path to value."""
    return dict(browser.run("""return [...document.querySelectorAll(".rows [role=row]")].map(
        (row) => [row.path, row.querySelector(".value").textContent])"""))


def a_change_is_seen_within_a_second(browser):
    with Program(corvane, STATION) as program, browser.page(program):
        browser.wait(lambda: "level" in shown(browser), "the variable")
        before = shown(browser)["level"]
        browser.wait(lambda: shown(browser)["level"] != before, "a change", seconds=1)


TESTS = [a_change_is_seen_within_a_second]
chosen = sys.argv[2:]
with Browser() as browser:
    for test in TESTS:
        if not chosen or test.__name__ in chosen:
            test(browser)
            print(test.__name__.replace("_", " "), flush=True)
