#!/usr/bin/python3
# SPDX-License-Identifier: MIT
"""bench_page_tabs.py CORVANE [TEST...]: the bench's page in a browser: modem, messages, log, and the connection."""
import os
import re
import signal
import sys
import tempfile

from bench_browser import DESK, PHONE, run_in_browser
from bench_client import Program, WebSocket, wait_for
from selenium.webdriver.common.keys import Keys
from simulated_modem import SimulatedModem

corvane = sys.argv[1]
TOKEN = "0123456789abcdef0123456789abcdef"
STATION = """
sms = SMS_OUTBOX.new { Port = 1, Receiver = "+15550101234", Text = "Pump 3:\\nНасос 🚰" }
inbox = SMS_INBOX.new { Port = 1, Enable = true }
function cycle()
  sms.Execute = true
  sms()
  inbox()
end
"""
NO_MODEM = "1=/dev/ttyNONE"


def fact(browser, name):
    return browser.run("""return [...document.querySelectorAll("#modem .tiles > div")].find(
        (tile) => tile.firstChild.textContent === arguments[0])?.lastChild.textContent""", name)


def dialogue(browser):
    return [line.text for line in browser.all("#modem .lines bdi")]


def messages(browser):
    """The rows of the messages that are shown: name of the cell to its text."""
    return browser.run("""return [...document.querySelectorAll("#messages .body [role=row]:not([hidden])")].map(
        (row) => Object.fromEntries([...row.children].map((cell) => [cell.className, cell.textContent])))""")


def message(browser, **wanted):
    """The first message whose cells have these texts in them."""
    return browser.wait(lambda: next((row for row in messages(browser) if all(
        text in row[cell] for cell, text in wanted.items())), None), f"a message with {wanted}")


def log(browser):
    return [line.text for line in browser.all("#log .lines bdi")]


def the_dialogue_with_the_modem_is_live(browser):
    with SimulatedModem(corvane, "--pin", "4711") as modem:
        with Program(corvane, STATION, "--modem", f"1={modem.device},init=AT+CPIN=4711") as program:
            with browser.page(program, "modem"):
                browser.wait(lambda: any(text.startswith("AT+CMGS=") for text in dialogue(browser)), "an SMS that is sent")
                browser.wait(lambda: "dBm" in (fact(browser, "Signal") or ""), "the signal")
                browser.wait(lambda: fact(browser, "Network") == "home", "the network")
                assert fact(browser, "Operator") not in ("", "–", "unknown"), fact(browser, "Operator")
                assert fact(browser, "State"), "the state"
                before = len(dialogue(browser))
                modem.do("receive +4915112345678 Насос 3 🚰")
                browser.wait(lambda: any("+CMTI" in text for text in dialogue(browser)[before:]), "the announcement", seconds=10)
                assert "4711" not in browser.run("return document.documentElement.outerHTML")
                browser.picture("modem")


def messages_come_and_go(browser):
    with SimulatedModem(corvane) as modem, Program(corvane, STATION, "--modem", f"1={modem.device}") as program:
        with browser.page(program, "messages"):
            sent = message(browser, state="sent")
            assert sent["to"] == "SMS +15550101234" and sent["text"] == "Pump 3:\nНасос 🚰" and sent["attempts"] == "1", sent
            assert browser.all("#messages .actions button") == [], "nobody may write"
            modem.do("receive +4915112345678 Стоп? 🛑")
            received = message(browser, to="+4915112345678")
            assert received["text"] == "Стоп? 🛑" and received["state"] == "offered", received
            browser.one("#message-kind").send_keys("received")
            browser.wait(lambda: len(messages(browser)) == 1, "the filter")
            assert browser.text("#message-count") == "1 of 2 messages"


def press(browser, text):
    browser.wait(lambda: any(one.click() is None for one in browser.all("#messages .actions button") if one.text == text),
                 f"the button {text}")


def messages_are_cancelled_and_tried_again_with_leave(browser):
    with Program(corvane, STATION, "--web-write", "--modem", NO_MODEM) as program, browser.page(program, "messages"):
        message(browser, state="waiting")
        press(browser, "Cancel")
        browser.wait(browser.one("#confirm").is_displayed, "the question")
        browser.one("#confirm button[value=no]").click()
        message(browser, state="waiting")
        press(browser, "Cancel")
        browser.wait(browser.one("#confirm").is_displayed, "the question")
        browser.one("#confirm button[value=yes]").click()
        message(browser, state="cancelled")
        press(browser, "Retry")
        message(browser, state="waiting")
        assert "asks to retry message" in program.log()
        browser.picture("messages")


def the_log_is_searched_and_its_level_set(browser):
    text = """
        function cycle()
          if plc.cycle % 50 == 1 then plc.log("насос running, cycle " .. plc.cycle) end
          if plc.cycle == 60 then plc.log("valve <b>3</b> stuck") end
          local till = os.clock() + (plc.cycle == 70 and 0.05 or 0)
          while os.clock() < till do end
        end"""
    with Program(corvane, text, "--web-write") as program, browser.page(program, "log"):
        # On a busy machine, a cycle before the 70th may overrun; then the log has no line for that one.
        browser.wait(lambda: any("overrun: cycle " in line for line in log(browser)), "a warning")
        browser.wait(lambda: any("valve <b>3</b> stuck" in line for line in log(browser)), "a line with markup")
        browser.one("#log-search").send_keys("НАСОС")
        browser.wait(lambda: log(browser) and all("насос" in line for line in log(browser)), "the search")
        known = len(log(browser))
        browser.wait(lambda: len(log(browser)) > known, "another line")
        browser.one("#log-search").send_keys(Keys.CONTROL, "a")
        browser.one("#log-search").send_keys(Keys.DELETE)
        browser.one("#log-least").send_keys("warning")
        browser.wait(lambda: "overrun" in str(log(browser)) and "насос" not in str(log(browser)), "warnings only")
        browser.one("#log-level").send_keys("debug")
        wait_for(lambda: "sets the log level to debug" in program.log(), "the level in the log")
        browser.wait(lambda: browser.one("#log-level").get_attribute("data-now") == "debug", "the level on the page")


def the_page_goes_on_after_a_restart(browser):
    with Program(corvane, "kept = 1\nfunction cycle() kept = plc.cycle end") as program:
        port = program.port
        browser.look()
        browser.driver.get(f"http://127.0.0.1:{port}/")
        browser.wait(lambda: browser.connection() == "live", "a connection")
    browser.wait(lambda: browser.connection() == "lost", "the end of the connection")
    assert browser.text("#connection") == "No connection; trying again…"
    with Program(corvane, "other = 1\nfunction cycle() other = plc.cycle end", web=("--web", str(port))):
        browser.wait(lambda: browser.connection() == "live", "a connection without a reload")
        browser.wait(lambda: browser.text("#tree .rows").startswith("other"), "the variables of now")
        assert "kept" not in browser.text("#tree .rows")
        browser.driver.get("about:blank")
    lines = browser.console()  # the browser itself tells of each connection that fails
    assert all("ERR_CONNECTION" in line or "Connection closed" in line for line in lines), lines


def a_program_that_is_stopped_is_not_live(browser):
    with Program(corvane, STATION, "--modem", NO_MODEM) as program, browser.page(program):
        program.process.send_signal(signal.SIGSTOP)
        browser.wait(lambda: browser.connection() == "lost", "the end of the connection")
        program.process.send_signal(signal.SIGCONT)
        browser.wait(lambda: browser.connection() == "live", "a connection again")


def a_cycle_that_hangs_is_not_live(browser):
    with tempfile.TemporaryDirectory() as folder:
        sleeping = folder + "/sleeping"
        lua = f"function cycle() while io.open('{sleeping}') do os.execute('sleep 0.1') end end"
        with Program(corvane, lua) as program, browser.page(program):
            with open(sleeping, "w", encoding="ascii"):
                pass
            browser.wait(lambda: browser.connection() == "hangs", "the hang on the page")
            text = browser.text("#connection")
            assert re.fullmatch(r"No cycle has ended for \d+ s", text), text
            os.remove(sleeping)
            browser.wait(lambda: browser.connection() == "live", "the next cycle")


def a_page_that_is_one_too_many_says_so(browser):
    with Program(corvane, STATION, "--modem", NO_MODEM) as program:
        others = [WebSocket(program.port) for _ in range(16)]
        browser.driver.get(f"http://127.0.0.1:{program.port}/")
        browser.wait(lambda: browser.text("#connection") == "There are too many clients; close a page.", "the reason")
        others.pop().close()
        browser.wait(lambda: browser.connection() == "live", "a connection when there is room")
        browser.driver.get("about:blank")
    browser.console()  # the browser tells of each refusal


def a_token_opens_the_page_once(browser):
    with tempfile.TemporaryDirectory() as folder:
        file = folder + "/token"
        with open(os.open(file, os.O_WRONLY | os.O_CREAT, 0o600), "w", encoding="ascii") as token:
            token.write(TOKEN + "\n")
        options = ("--web-token-file", file)
        with Program(corvane, STATION, *options, "--modem", NO_MODEM) as program:
            address = f"http://127.0.0.1:{program.port}/"
            browser.driver.get(address)
            assert "token" in browser.text("body"), browser.text("body")
            browser.console()  # the browser tells of the 401
            browser.driver.get(f"{address}?token={TOKEN}")
            browser.wait(lambda: browser.connection() == "live", "a connection with the token")
            assert TOKEN not in browser.driver.current_url and TOKEN not in browser.run("return document.cookie")
            with browser.page(program):
                pass


def the_tabs_are_accessible_on_desk_and_phone(browser):
    with SimulatedModem(corvane) as modem:
        with Program(corvane, STATION, "--web-write", "--modem", f"1={modem.device}") as program:
            modem.do("receive +4915112345678 " + "Насос" * 40)
            for size, dark in ((DESK, False), (DESK, True), (PHONE, False), (PHONE, True)):
                for tab in ("modem", "messages", "log"):
                    with browser.page(program, tab, size, dark):
                        if tab == "modem":
                            browser.wait(lambda: len(dialogue(browser)) > 20, "the dialogue")
                            left = "return (({scrollHeight, scrollTop, clientHeight}) => scrollHeight - scrollTop - clientHeight)"
                            browser.wait(lambda: browser.run(left + "(document.querySelector('#modem .lines'))") < 40, "its end")
                        if tab == "messages":
                            message(browser, state="sent")
                            message(browser, to="+4915112345678")
                        if tab == "log":
                            browser.wait(lambda: log(browser), "the log")
                        assert (faults := browser.faults()) == [], (size, dark, tab, faults)
                        wide = browser.run("return document.documentElement.scrollWidth")
                        assert wide <= size[0], f"{tab} is {wide} pixels wide on a screen of {size[0]}"
                        if size == PHONE and not dark and tab == "messages":
                            browser.picture("messages_phone")


TESTS = [
    the_dialogue_with_the_modem_is_live, messages_come_and_go, messages_are_cancelled_and_tried_again_with_leave,
    the_log_is_searched_and_its_level_set, the_page_goes_on_after_a_restart, a_program_that_is_stopped_is_not_live,
    a_cycle_that_hangs_is_not_live, a_page_that_is_one_too_many_says_so, a_token_opens_the_page_once,
    the_tabs_are_accessible_on_desk_and_phone,
]
run_in_browser(TESTS, sys.argv[2:])
