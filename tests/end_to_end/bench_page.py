#!/usr/bin/python3
# SPDX-License-Identifier: MIT
"""bench_page.py CORVANE [TEST...]: the bench's page in a browser: its frame, and the tabs Variables and Cycle."""
import os
import sys
import time

from bench_browser import DESK, PHONE, run_in_browser
from bench_client import Program
from selenium.webdriver.common.keys import Keys

corvane = sys.argv[1]
TABS = ("variables", "cycle", "modem", "messages", "log")

STATION = """
level = 1.5
running = false
site = "Насосная станция 3 🌊"
limits = { low = 20, high = 400, names = { "Anna", "Борис" } }
local calls = 0
delay = TON.new { PT = 2 }
alarm = SEND_SMS.new { Port = 7, Receiver = "+15550101234", Message = "Alarm" }
mail = SEND_EMAIL.new { Username = "plc", Password = "s3cret-of-the-mailbox" }
function cycle()
  level = plc.cycle / 10
  running = plc.cycle % 100 >= 50
  calls = calls + 1
  delay.IN = running
  delay()
end
"""


def filter_by(browser, text):
    field = browser.one("#filter")
    field.send_keys(Keys.CONTROL, "a")
    field.send_keys(text or Keys.DELETE)


def rows(browser):
    """What the rows of the variables say: path to the texts of the cells."""
    return dict(browser.run("""return [...document.querySelectorAll(".rows [role=row]")].map(
        (row) => [row.path, [...row.querySelectorAll("[role=gridcell]")].map((cell) => cell.textContent)])"""))


def value(browser, path):
    return rows(browser).get(path, [None, None])[1]


def row(browser, path):
    """The row's element, which a filter brings into view."""
    filter_by(browser, path)
    return browser.wait(lambda: browser.run("""return [...document.querySelectorAll(".rows [role=row]")].find(
        (row) => row.path === arguments[0])""", path), f"the row of {path}")


def click(browser, path, part):
    """Rows come and go until all variables are there."""
    browser.wait(lambda: row(browser, path).find_element("css selector", part).click() or True, f"{part} of {path}")


def select(browser, path):
    click(browser, path, ".value")
    browser.wait(lambda: browser.text("#detail h2") == path, f"the details of {path}")


def plot(browser, path):
    click(browser, path, ".plot-button")


def drawing(browser, place):
    """What a plot shows, as the octets of a PNG."""
    return browser.one(f"{place} canvas").screenshot_as_png


def a_change_is_seen_within_a_second(browser):
    with Program(corvane, STATION) as program, browser.page(program):
        row(browser, "level")
        before = value(browser, "level")
        browser.wait(lambda: value(browser, "level") != before, "a change", seconds=1)
        assert "now" in rows(browser)["level"][3]


def the_tree_has_blocks_tables_globals_and_upvalues(browser):
    with Program(corvane, STATION) as program, browser.page(program):
        def cells(path):
            row(browser, path)
            return rows(browser)[path]

        assert cells("calls")[2] == "number" and cells("delay")[2] == "TON" and cells("delay.PT")[1] == "2"
        assert cells("limits")[2] == "table" and cells("limits.high")[1] == "400"
        assert cells("limits.names.[2]")[1] == '"Борис"' and cells("site")[1] == '"Насосная станция 3 🌊"'
        assert cells("alarm.Receiver")[1] == '"+15550101234"' and cells("mail.Password")[1] == "hidden"
        filter_by(browser, "")
        browser.wait(lambda: len(rows(browser)) > 10, "all rows")
        roots = [path for path in rows(browser) if "." not in path]
        assert roots == sorted(roots), "globals are in the order of their names"
        assert "s3cret-of-the-mailbox" not in browser.run("return document.documentElement.outerHTML")


def a_filter_leaves_what_matches(browser):
    with Program(corvane, STATION) as program, browser.page(program):
        browser.wait(lambda: "delay" in rows(browser), "the variables")
        filter_by(browser, "ton")
        browser.wait(lambda: set(path.split(".")[0] for path in rows(browser)) == {"delay"}, "the blocks of TON")
        filter_by(browser, "HIGH")
        browser.wait(lambda: list(rows(browser)) == ["limits", "limits.high"], "the limit and its table")
        filter_by(browser, "nothing has this name")
        browser.wait(lambda: browser.text("#tree .empty") == "Nothing matches the filter.", "a word about that")
        filter_by(browser, "")
        browser.wait(lambda: "delay" in rows(browser), "the variables")


def a_pause_keeps_what_is_shown(browser):
    with Program(corvane, STATION) as program, browser.page(program):
        row(browser, "level")
        browser.one("#pause").click()
        browser.wait(lambda: "paused at" in browser.text("#variable-count"), "a word about the pause")
        kept = value(browser, "level")
        browser.run("window.frames_drawn = 0; setInterval(() => ++window.frames_drawn, 100)")
        browser.wait(lambda: browser.run("return window.frames_drawn >= 10"), "a second")
        assert value(browser, "level") == kept
        browser.one("#pause").click()
        browser.wait(lambda: value(browser, "level") != kept, "the values of now")


def numbers_and_bools_share_a_trend(browser):
    with Program(corvane, STATION) as program, browser.page(program):
        for path in ("level", "running"):
            plot(browser, path)
        legend = browser.wait(lambda: [item.text for item in browser.all("#trend .legend li")], "the trend")
        assert len(legend) == 2 and legend[0].startswith("level") and legend[1].startswith("running"), legend
        browser.one("#trend-span").send_keys("minute")
        start = drawing(browser, "#trend .plot")
        browser.wait(lambda: drawing(browser, "#trend .plot") != start, "a line that grows")
        seen = set()
        browser.wait(lambda: seen.add(browser.text("#trend .legend li:nth-child(2) b")) or {"TRUE", "FALSE"} <= seen,
                     "both values of the BOOL")
        assert browser.one("#trend .plot").get_attribute("aria-label").startswith("Trend of level: ")
        browser.one("#trend-scales").click()
        assert browser.one("#trend .plot").is_displayed(), "a plot with a scale for each"
        browser.one("#trend .legend button").click()
        browser.wait(lambda: len(browser.all("#trend .legend li")) == 1, "one line less")
        browser.one("#trend-clear").click()
        browser.wait(lambda: not browser.one("#trend").is_displayed(), "no trend")


def the_tree_is_used_with_the_keyboard(browser):
    with Program(corvane, STATION) as program, browser.page(program):
        tree = browser.wait(lambda: "delay" in rows(browser) and browser.one("#tree"), "the variables")
        filter_by(browser, "limits")
        browser.wait(lambda: "delay" not in rows(browser), "the filter")
        tree.send_keys(Keys.HOME)
        browser.wait(lambda: browser.text("#detail h2") == "limits", "the first row")
        if "limits.high" not in rows(browser):
            tree.send_keys(Keys.ARROW_RIGHT)
        tree.send_keys(Keys.ARROW_DOWN)
        browser.wait(lambda: browser.text("#detail h2").startswith("limits."), "the next row")
        active = tree.get_attribute("aria-activedescendant")
        assert browser.one(f"#{active}").get_attribute("aria-selected") == "true"
        tree.send_keys(Keys.ARROW_LEFT)
        browser.wait(lambda: browser.text("#detail h2") == "limits", "the table")
        tree.send_keys(Keys.ARROW_LEFT)
        browser.wait(lambda: list(rows(browser)) == ["limits"], "a closed table")
        tree.send_keys(Keys.ENTER)
        browser.wait(lambda: browser.run("return document.activeElement.closest('#detail') !== null"), "the focus")
        browser.run("return document.activeElement").send_keys(Keys.ESCAPE)
        browser.wait(lambda: not browser.one("#detail").is_displayed(), "the details to close")
        browser.one("#tab-variables").send_keys(Keys.ARROW_RIGHT)
        browser.wait(browser.one("#cycle").is_displayed, "the next tab")


def write(browser, path, text):
    """Writes with the form of the details; what is said then."""
    select(browser, path)
    field = browser.one(".write [data-type]")
    if field.tag_name != "select":
        field.send_keys(Keys.CONTROL, "a")
    field.send_keys(text)
    browser.one(".write .primary").click()
    return browser.wait(lambda: (said := browser.text(".write [role=status]")) not in ("", "Writing…") and said, "an answer")


WRITTEN = """
limit, on, name = 400, false, "Pump"
counter = CTU.new { PV = 3 }
function cycle() seen = limit .. " " .. tostring(on) .. " " .. name .. " " .. counter.PV end
"""


def variables_are_written_with_leave_only(browser):
    with Program(corvane, WRITTEN, "--web-write") as program, browser.page(program):
        assert browser.text("#connection") == "Live, writing allowed"
        assert write(browser, "limit", "250.5") == "Written."
        assert write(browser, "on", "TRUE") == "Written."
        assert write(browser, "name", "Насос 🚰") == "Written."
        assert write(browser, "counter.PV", "7") == "Written."
        row(browser, "seen")
        browser.wait(lambda: value(browser, "seen") == '"250.5 true Насос 🚰 7"', "what was written")
        assert write(browser, "limit", "lots") == "'lots' is not a number."
        assert "PV" in write(browser, "counter.PV", "1e300"), "a value out of range"
        assert "sets limit to 250.5" in program.log(), program.log()
    with Program(corvane, WRITTEN) as program, browser.page(program):
        assert browser.text("#connection") == "Live, read only"
        select(browser, "limit")
        assert "without --web-write" in browser.text("#detail"), browser.text("#detail")
        assert browser.all(".write") == []


MANY = """
blocks = {}
for i = 1, 500 do blocks[i] = TON.new { PT = i } end
long = ("Ü🌊"):rep(40000 / 6)
function cycle() for i = 1, 500 do blocks[i].PT = plc.cycle; blocks[i]() end end
"""


def five_hundred_blocks_are_shown_as_one_is(browser):
    with Program(corvane, MANY, cycle="50ms") as program, browser.page(program):
        browser.wait(lambda: "blocks" in rows(browser), "the table")
        filter_by(browser, "ton")
        browser.wait(lambda: browser.text("#variable-count").startswith("501 rows"), "the blocks and their table")
        assert len(rows(browser)) < 100, "only what can be seen is in the document"
        browser.one("#tree").send_keys(Keys.END)
        browser.wait(lambda: "blocks.[500]" in rows(browser), "the last block")
        browser.one("#tree").send_keys(Keys.ARROW_RIGHT)
        browser.wait(lambda: "blocks.[500].PT" in rows(browser), "its variables")
        before = value(browser, "blocks.[500].PT")
        browser.wait(lambda: value(browser, "blocks.[500].PT") != before, "a change")


def a_long_text_is_fetched_when_it_is_wanted(browser):
    with Program(corvane, MANY, cycle="50ms") as program, browser.page(program):
        select(browser, "long")
        assert browser.text("#detail .whole").endswith("…")
        more = browser.one("#detail .actions button")
        assert more.text == "Show all 39,996 octets", more.text
        more.click()
        browser.wait(lambda: len(browser.text("#detail .whole").encode()) == 39996, "the whole text")
        assert browser.text("#detail .whole") == "Ü🌊" * 6666
        assert "not since this page looks" in browser.text("#detail"), "it has not changed"


OVERRUNS = """
function cycle()
  if plc.cycle % 50 == 20 then local till = os.clock() + 0.06 while os.clock() < till do end end
end
"""


def the_tab_cycle_marks_overruns(browser):
    with Program(corvane, OVERRUNS, cycle="20ms") as program, browser.page(program, "cycle"):
        overruns = browser.wait(lambda: browser.one("#cycle .tiles .bad"), "overruns")
        assert "last at" in overruns.text, overruns.text
        browser.wait(lambda: browser.all("#cycle .histogram .over"), "the bar of the overruns")
        start = drawing(browser, "#cycle .plot")
        browser.wait(lambda: drawing(browser, "#cycle .plot") != start, "a plot that goes on")
        legend = [item.text for item in browser.all("#cycle .legend li")]
        assert [text.split()[0] for text in legend] == ["longest", "mean", "latest", "overruns"], legend
        # All at once, since they go on.
        cells = browser.run("return [...document.querySelectorAll('#cycle tbody td:last-child')].map((cell) => cell.textContent)")
        shares = [float(text.split()[0]) for text in cells]
        assert abs(sum(shares) - 100) < 1, shares


PUMP = """
local limit = 260
level, flow, running = 200, 0, false
delay = TON.new { PT = 2 }
starts = CTU.new { PV = 1000 }
limits = { low = 150, high = 260 }
alarm = SEND_SMS.new { Port = 7, Receiver = "+15550101234", Message = "Pump 2: level above 260 cm" }
function cycle()
  level = 200 + 60 * math.sin(plc.cycle / 150)
  running = level > 215
  flow = running and 42 + 3 * math.sin(plc.cycle / 20) or 0
  delay.IN, starts.CU = level > limit, running
  delay() starts()
  if plc.cycle % 300 == 200 then local till = os.clock() + 0.03 while os.clock() < till do end end
end
"""


def a_pump_has_its_picture_taken(browser):
    seconds = 45 if "BENCH_PICTURES" in os.environ else 1
    with Program(corvane, PUMP, cycle="20ms", name="pump") as program:
        with browser.page(program):
            for path in ("level", "flow", "running"):
                plot(browser, path)
            browser.one("#trend-span").send_keys("minute")
            select(browser, "level")
            filter_by(browser, "")
            end = time.monotonic() + seconds
            browser.wait(lambda: time.monotonic() > end, "something to see", seconds + 10)
            browser.picture("variables")
        with browser.page(program, "cycle", dark=True):
            browser.wait(lambda: browser.all("#cycle tbody tr"), "the histogram")
            browser.picture("cycle_dark")
        with browser.page(program, size=PHONE):
            browser.wait(lambda: browser.one("#tree").is_displayed() and rows(browser), "the variables")
            for path in ("level", "running"):
                plot(browser, path)
            filter_by(browser, "")
            browser.wait(lambda: len(rows(browser)) > 10, "all rows")
            browser.picture("variables_phone")


def every_tab_is_accessible_on_desk_and_phone(browser):
    with Program(corvane, STATION) as program:
        for size, dark in ((DESK, False), (DESK, True), (PHONE, False), (PHONE, True)):
            for tab in TABS:
                with browser.page(program, tab, size, dark):
                    browser.wait(browser.one(f"#{tab}").is_displayed, f"the tab {tab}")
                    if tab == "variables":
                        select(browser, "level")
                        if size == DESK:
                            plot(browser, "level")
                    assert (faults := browser.faults()) == [], (size, dark, tab, faults)
                    wide = browser.run("return document.documentElement.scrollWidth")
                    assert wide <= size[0], f"{tab} is {wide} pixels wide on a screen of {size[0]}"


def nothing_comes_from_elsewhere(browser):
    with Program(corvane, STATION) as program, browser.page(program):
        browser.wait(lambda: "delay" in rows(browser), "the variables")
        loaded = browser.run("return performance.getEntriesByType('resource').map((entry) => entry.name)")
        assert len(loaded) > 10 and all(name.startswith(f"http://127.0.0.1:{program.port}/") for name in loaded), loaded


def the_chosen_colours_are_kept(browser):
    with Program(corvane, STATION) as program:
        with browser.page(program):
            light = browser.run("return getComputedStyle(document.body).backgroundColor")
            browser.one("#theme").send_keys("Dark")
            browser.wait(lambda: browser.run("return getComputedStyle(document.body).backgroundColor") != light, "the dark")
        with browser.page(program):
            assert browser.run("return getComputedStyle(document.body).backgroundColor") != light
            browser.one("#theme").send_keys("Auto")


TESTS = [
    a_change_is_seen_within_a_second, the_tree_has_blocks_tables_globals_and_upvalues, a_filter_leaves_what_matches,
    a_pause_keeps_what_is_shown, numbers_and_bools_share_a_trend, the_tree_is_used_with_the_keyboard,
    variables_are_written_with_leave_only, five_hundred_blocks_are_shown_as_one_is,
    a_long_text_is_fetched_when_it_is_wanted, the_tab_cycle_marks_overruns, every_tab_is_accessible_on_desk_and_phone,
    a_pump_has_its_picture_taken, nothing_comes_from_elsewhere, the_chosen_colours_are_kept,
]
run_in_browser(TESTS, sys.argv[2:])
