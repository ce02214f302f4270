#!/usr/bin/python3
# SPDX-License-Identifier: MIT
"""The books find what is wrong, and nothing else."""
import unittest

import accounts
from accounts import Event, Span
from faulty_mail_server import NONE, Fault, Record

NUMBER = "15550000001"
TEXT = "on"
RECEIVED = "received, place {}: from +49 at 2026-01-31T12:00:00+01:00: {}"


def history(*lines):
    return [Event(second, line) for second, line in enumerate(lines)]


def sent(modem, program, faults=(), parts=1):
    return accounts.check_sent(history(*modem), history(*program), faults,
                               lambda _: parts, lambda _: TEXT)[0]


def received(modem, program, faults=()):
    wanted = {text: "+49 " + text for text in "abcdef"}
    return accounts.check_received(history(*modem), history(*program), faults, wanted)[0]


def mails(program, records, faults=()):
    return accounts.check_mails(history(*program), faults, records, lambda _: set())[0]


def commands(program, faults=(), started=(1, 2, 3), starts=3, signals=None):
    return accounts.check_commands(history(*program), faults, started, starts, signals or {})[0]


class Sent(unittest.TestCase):
    take = f"sent to +{NUMBER}: {TEXT}"
    mute, unplug = "muted for 500ms", "unplugged for 1s"
    reported, dropped = f"sms sent {NUMBER} 0", f"sms dropped {NUMBER} 500"

    def test_a_message_is_taken_and_reported(self):
        self.assertFalse(sent([self.take], [self.reported]))

    def test_a_confirmed_message_goes_out_again(self):
        self.assertTrue(sent([self.take, self.take], [self.reported]))

    def test_its_confirmation_was_lost(self):
        self.assertFalse(sent([self.mute, self.take, self.take], [self.reported]))
        self.assertFalse(sent([self.take, self.unplug, self.take], [self.reported]))

    def test_one_fault_loses_one_confirmation(self):
        self.assertTrue(sent([self.mute, *[self.take] * 3], [self.reported]))
        self.assertTrue(sent([*[self.take] * 2, self.unplug, self.take], [self.reported]))

    def test_the_controller_went_on_before_the_modem_was_unplugged(self):
        self.assertTrue(sent([self.take, "deleted place 1", self.unplug, self.take],
                             [self.reported]))

    def test_a_message_is_not_reported(self):
        self.assertTrue(sent([self.take], []))

    def test_a_message_is_reported_and_was_not_taken(self):
        self.assertTrue(sent([], [self.reported]))

    def test_a_message_is_reported_twice(self):
        self.assertTrue(sent([self.take], [self.reported] * 2))

    def test_a_dropped_message_was_confirmed(self):
        refused = f"refused: message to +{NUMBER}: +CMS ERROR: 500"
        self.assertFalse(sent([refused] * 4, [self.dropped]))
        self.assertTrue(sent([*[refused] * 3, self.take], [self.dropped]))

    def test_a_message_is_dropped_for_no_reason(self):
        self.assertTrue(sent([], [self.dropped]))
        silent = f"sms dropped {NUMBER} 6"
        self.assertTrue(sent([], [silent]))
        self.assertFalse(sent([], [silent], [Span("muted", 0, 1)]))

    def test_another_text_goes_out(self):
        self.assertTrue(sent([self.take + "x"], [self.reported]))

    def test_each_part_counts(self):
        parts = [f"part {i} of 2 to +{NUMBER}" for i in (1, 2)]
        whole = f"sent to +{NUMBER} in 2 parts: {TEXT}"
        self.assertFalse(sent([*parts, whole], [self.reported], parts=2))
        self.assertTrue(sent(parts[:1], [self.reported], parts=2))
        self.assertTrue(sent([parts[0], *parts, whole], [self.reported], parts=2))


class Received(unittest.TestCase):
    cut = [Span("unplugged", 0, 1)]

    def test_a_message_is_delivered_and_deleted(self):
        self.assertFalse(received([RECEIVED.format(1, "a"), "deleted place 1"], ["got +49 a"]))

    def test_a_message_is_delivered_twice(self):
        self.assertTrue(received([RECEIVED.format(1, "a"), "deleted place 1"], ["got +49 a"] * 2))

    def test_a_message_is_deleted_and_never_delivered(self):
        self.assertTrue(received([RECEIVED.format(1, "a"), "deleted place 1"], [], self.cut))

    def test_a_message_stays_in_the_store(self):
        self.assertTrue(received([RECEIVED.format(1, "a")], []))
        self.assertFalse(received([RECEIVED.format(1, "a")], [], self.cut))

    def test_a_fault_explains_nothing_when_later_messages_were_deleted_before(self):
        modem = [RECEIVED.format(1, "a")]
        for place, text in enumerate("bcde", 2):
            modem += [RECEIVED.format(place, text), f"deleted place {place}"]
        program = [f"got +49 {text}" for text in "bcde"]
        self.assertTrue(received(modem, program, [Span("unplugged", 100, 101)]))

    def test_a_message_comes_from_nowhere(self):
        self.assertTrue(received([], ["got +49 a"]))


class Mails(unittest.TestCase):
    def test_a_mail_is_taken_and_reported(self):
        self.assertFalse(mails(["mail 1 0"], [Record(NONE, 1, True)]))

    def test_a_mail_comes_twice(self):
        self.assertTrue(mails(["mail 1 0"], [Record(NONE, 1, True)] * 2))

    def test_a_mail_is_reported_and_was_not_taken(self):
        self.assertTrue(mails(["mail 1 0"], [Record(NONE, 1, False)]))

    def test_a_mail_is_not_reported(self):
        self.assertTrue(mails([], [Record(NONE, 1, True)]))

    def test_a_code_that_its_fault_does_not_give(self):
        fault = Fault("hang", "text", (402,))
        self.assertFalse(mails(["mail 1 402"], [Record(fault, 1, True)]))
        self.assertTrue(mails(["mail 1 408"], [Record(fault, 1, True)]))
        self.assertTrue(mails(["mail 1 402"], [Record(NONE, 1, True)]))

    def test_a_conversation_explains_one_failure(self):
        fault = Fault("close", "greeting", (408,))
        self.assertFalse(mails(["mail 1 408"], [Record(fault)]))
        self.assertTrue(mails(["mail 1 408", "mail 2 408"], [Record(fault)]))
        self.assertTrue(mails([], [Record(fault)]))

    def test_a_conversation_explains_the_failure_that_nothing_else_explains(self):
        fault = Fault("close", "greeting", (408,))
        program = ["mail 1 408"] + ["nothing"] * 98 + ["mail 2 408"]
        self.assertFalse(mails(program, [Record(fault)], [Span("mail server down", 0, 2)]))
        self.assertTrue(mails(program, [], [Span("mail server down", 0, 2)]))

    def test_a_failure_without_a_conversation(self):
        self.assertTrue(mails(["mail 1 106"], []))
        self.assertFalse(mails(["mail 1 106"], [], [Span("no descriptors", 0, 1)]))


class Files(unittest.TestCase):
    cut = Record(Fault("close", "middle", (102,)), 1)

    def left(self, code, record, files):
        return accounts.check_files(history(f"mail 1 {code}"), [record], lambda _: True, files)

    def test_a_mail_that_is_cut_off_keeps_its_file(self):
        self.assertFalse(self.left(102, self.cut, 1))
        self.assertTrue(self.left(102, self.cut, 2))

    def test_another_does_not(self):
        self.assertTrue(self.left(0, self.cut, 1))
        self.assertTrue(self.left(402, Record(Fault("hang", "text", (402,)), 1), 1))


class Commands(unittest.TestCase):
    starved = [Span("no descriptors", 0, 3)]

    def test_each_runs_once(self):
        self.assertFalse(commands([]))
        self.assertTrue(commands([], started=[1, 2, 2, 3]))
        self.assertTrue(commands([], started=[1, 3]))
        self.assertTrue(commands([], started=[1, 2, 3, 4]))

    def test_one_finds_no_descriptor(self):
        refusal = ["refused at 2: why", "accepted at 2"]
        self.assertFalse(commands(refusal, self.starved, started=[1, 3]))
        self.assertTrue(commands(refusal, started=[1, 3]))
        self.assertTrue(commands(refusal, self.starved, started=range(1, 9), starts=9))

    def test_the_signal_is_reported(self):
        self.assertFalse(commands(["victim 7 9"], signals={7: 9}))
        self.assertTrue(commands(["victim 7 15"], signals={7: 9}))
        self.assertTrue(commands(["victim 7 0"]))
        self.assertFalse(commands(["victim 7 0"], self.starved))

    def test_a_wrong_result(self):
        self.assertTrue(commands(["wrong: echo"]))


class Log(unittest.TestCase):
    stamp = "2026-01-31 12:00:00.000 "

    def test_a_line_that_no_fault_explains(self):
        line = self.stamp + "warning modem port 1: no answer to AT"
        self.assertTrue(accounts.check_log(history(line), [], 0))
        self.assertFalse(accounts.check_log(history(line), [Span("muted", 0, 1)], 0))

    def test_each_failed_mail_is_told_of(self):
        lines = [self.stamp + "warning Lack of memory",
                 "sh: 1: " + self.stamp + "info    all is well"]
        starved = [Span("no descriptors", 0, 3)]
        self.assertFalse(accounts.check_log(history(*lines), starved, 1))
        self.assertTrue(accounts.check_log(history(*lines), starved, 2))
        self.assertTrue(accounts.check_log(history(*lines), [], 1))


unittest.main()
