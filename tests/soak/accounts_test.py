#!/usr/bin/python3
# SPDX-License-Identifier: MIT
"""The checks find what is wrong, and nothing else."""
import unittest

import accounts
import message_accounts
from accounts import Event
from excuses import Span, unexplained
from faulty_mail_server import NONE, Fault, Record

NUMBER = "15550000001"
TEXT = "on"
RECEIVED = "received, place {}: from +49 at 2026-01-31T12:00:00+01:00: {}"
KINDS = ("unplugged", "muted", "output held", "restarted", "garbage", "unsolicited line",
         "CMGS refused", "CMGL refused", "CMGD refused", "no network", "another network delay")


def history(*lines):
    """One line per second, or lines with their times."""
    return [Event(*line) if isinstance(line, tuple) else Event(second, line)
            for second, line in enumerate(lines)]


def incessant(seconds, kinds=KINDS):
    """A fault every 1.5 s, each kind in turn."""
    return [Span(kinds[i % len(kinds)], 1.5 * i, 1.5 * i + 0.5)
            for i in range(int(seconds / 1.5) + 1)]


def sent(modem, program, faults=(), parts=1):
    return message_accounts.check_sent(history(*modem), history(*program), faults,
                                       lambda _: parts, lambda _: TEXT)[0]


def received(modem, program, faults=(), wanted=None, last=None):
    texts = [line[1] if isinstance(line, tuple) else line for line in modem]
    texts = [match[2] for line in texts if (match := message_accounts.ARRIVAL.match(line))]
    return message_accounts.check_received(
        history(*modem), history(*program), faults,
        wanted or {text: "+49 " + text for text in texts}, last)[0]


def mails(program, records, faults=()):
    return accounts.check_mails(history(*program), faults, records, lambda _: set(),
                                lambda number: number % 10 == 0)[0]


def commands(program, faults=(), started=(1, 2, 3), starts=3, signals=None):
    return accounts.check_commands(history(*program), faults, started, starts, signals or {})[0]


class Excuses(unittest.TestCase):
    def left(self, claims, times):
        return unexplained(claims, ["A", "B"], lambda _: times, lambda claim, name: name in claim)

    def test_each_claim_gets_the_excuse_that_others_can_spare(self):
        self.assertEqual(self.left(["AB", "A"], 1), [])
        self.assertEqual(self.left(["AB", "A", "B"], 1), ["B"])
        self.assertEqual(self.left(["A", "A", "B"], 2), [])


class Sent(unittest.TestCase):
    take = f"sent to +{NUMBER}: {TEXT}"
    mute, unplug = "muted for 500ms", "unplugged for 1s"
    reported, dropped, silent = (f"sms {what}" for what in (
        f"sent {NUMBER} 0", f"dropped {NUMBER} 500", f"dropped {NUMBER} 6"))
    refused, busy, nowhere = (
        f"refused: message to +{NUMBER}: +CMS ERROR: {error}" for error in (500, 38, 331))
    ordered = [Span("CMGS refused", 0, 0, 4)]

    def test_a_message_is_taken_and_reported(self):
        self.assertFalse(sent([self.take], [self.reported]))

    def test_a_confirmed_message_goes_out_again(self):
        self.assertTrue(sent([self.take, self.take], [self.reported]))

    def test_its_confirmation_was_lost(self):
        self.assertFalse(sent([self.mute, self.take, self.take], [self.reported]))
        self.assertFalse(sent([self.take, self.unplug, self.take], [self.reported]))

    def test_a_confirmation_is_lost_while_the_modem_is_unplugged(self):
        back = "plugged in again link=/tmp/modem device=/dev/pts/4"
        self.assertFalse(sent([self.unplug, self.take, back, self.take], [self.reported]))
        self.assertTrue(sent([self.unplug, back, self.take, self.take], [self.reported]))

    def test_one_fault_loses_one_confirmation(self):
        self.assertTrue(sent([self.mute, *[self.take] * 3], [self.reported]))
        self.assertTrue(sent([*[self.take] * 2, self.unplug, self.take], [self.reported]))

    def test_a_fault_long_before_or_after_loses_no_confirmation(self):
        self.assertTrue(sent([(0, self.mute), (9, self.take), (19, self.take)], [self.reported]))
        self.assertTrue(sent([(0, self.take), (9, self.unplug), (19, self.take)], [self.reported]))

    def test_a_later_fault_does_not_undo_the_excuse_of_a_mute(self):
        self.assertFalse(sent([(0, self.mute), (0, self.take), (9, self.unplug), (12, self.take)],
                              [self.reported]))

    def test_the_controller_went_on_before_the_modem_was_unplugged(self):
        for line in ("deleted place 1", self.refused.replace(NUMBER, "15550000002")):
            self.assertTrue(sent([self.take, line, self.unplug, self.take], [self.reported],
                                 self.ordered))

    def test_a_message_is_not_reported(self):
        self.assertTrue(sent([self.take], []))

    def test_a_message_is_reported_and_was_not_taken(self):
        self.assertTrue(sent([], [self.reported]))

    def test_a_message_is_reported_twice(self):
        self.assertTrue(sent([self.take], [self.reported] * 2))

    def test_a_dropped_message_was_confirmed(self):
        self.assertFalse(sent([self.refused] * 4, [self.dropped], self.ordered))
        self.assertTrue(sent([*[self.refused] * 3, self.take], [self.dropped], self.ordered))

    def test_a_message_is_dropped_after_fewer_than_four_failures(self):
        self.assertTrue(sent([self.refused], [self.dropped], self.ordered))
        self.assertTrue(sent([self.refused] * 3, [self.dropped], self.ordered))
        self.assertTrue(sent([], [self.silent], [Span("muted", 0, 1)]))
        self.assertTrue(sent([], [self.silent], [Span("unplugged", 0, 3)]))

    def test_faults_explain_the_failures_of_a_dropped_message(self):
        self.assertFalse(sent([self.refused] * 3, [self.dropped],
                              [*self.ordered, Span("muted", 0, 1)]))
        self.assertFalse(sent([], ["nothing", (3, self.silent)],
                              [Span("muted", 0, 2), Span("unplugged", 2, 3)]))

    def test_each_failure_needs_a_fault_of_its_own(self):
        both = [self.silent, self.silent.replace("1555", "1777")]
        faults = [Span("muted", 0, 1), Span("unplugged", 0, 1)]
        self.assertFalse(sent([], both[:1], faults))
        self.assertFalse(sent([], both, faults * 2))
        self.assertTrue(sent([], both, faults))

    def test_other_faults_do_not_silence_the_modem(self):
        for kind in ("garbage", "unsolicited line", "no network", "CMGL refused", "CMGS refused"):
            self.assertTrue(sent([], [self.silent], [Span(kind, 0, 1, 9)] * 9), kind)

    def test_a_fault_before_the_message_does_not_count(self):
        program = ["sms sent 15550000000 0", *["nothing"] * 9, "sms sent 15550000009 0",
                   self.silent]
        modem = [f"sent to +{number}: {TEXT}" for number in ("15550000000", "15550000009")]
        self.assertFalse(sent(modem, program, [Span("muted", 11, 12)] * 2))
        self.assertTrue(sent(modem, program, [Span("muted", 1, 2)] * 2))

    def test_a_dead_mail_server_delays_the_effect_of_a_fault(self):
        modem = [f"sent to +15550000000: {TEXT}"]
        program = [(0, "nothing"), (8, "sms sent 15550000000 0"), (11, self.silent)]
        mutes = [Span("muted", 0, 1)] * 2
        self.assertTrue(sent(modem, program, mutes))
        held = [*program[:2], (10, "mail 1 402"), program[2]]
        self.assertFalse(sent(modem, held, mutes))
        self.assertTrue(sent(modem, held, mutes[1:]))

    def test_an_unplugged_modem_is_not_found_without_a_descriptor(self):
        unplugged, starved = Span("unplugged", 0, 1), Span("no descriptors", 1, 6)
        self.assertTrue(sent([], [self.silent], [unplugged]))
        self.assertTrue(sent([], [self.silent], [starved]))
        self.assertFalse(sent([], [self.silent], [unplugged, starved]))

    def test_all_messages_are_dropped_under_incessant_faults(self):
        program = [f"sms dropped 1555{i:07} 6" for i in range(60)]
        self.assertTrue(sent([], program, incessant(60)))

    def test_the_error_of_a_dropped_message_is_the_modems_last(self):
        self.assertTrue(sent([self.busy] * 4, [self.dropped], self.ordered))
        self.assertFalse(sent([self.busy] * 4, [f"sms dropped {NUMBER} 38"], self.ordered))
        # The last refusal may have been lost on the way, but not without a fault.
        self.assertFalse(sent([self.refused] * 4, [self.silent],
                              [*self.ordered, Span("muted", 0, 1)]))
        self.assertTrue(sent([self.refused] * 4, [self.silent], self.ordered))

    def test_the_modem_refuses_a_message_without_being_told_to(self):
        self.assertTrue(sent([self.refused] * 5, [self.dropped], self.ordered))
        self.assertTrue(sent([self.refused] * 4, [self.dropped], [Span("CMGL refused", 0, 0, 4)]))
        away = [Span("no network", 0, 2)]
        self.assertFalse(sent([self.nowhere] * 4, [f"sms dropped {NUMBER} 331"], away))
        self.assertTrue(sent([self.refused] * 4, [self.dropped], away))

    def test_another_text_goes_out(self):
        self.assertTrue(sent([self.take + "x"], [self.reported]))

    def test_each_part_counts(self):
        parts = [f"part {i} of 2 to +{NUMBER}" for i in (1, 2)]
        whole = f"sent to +{NUMBER} in 2 parts: {TEXT}"
        self.assertFalse(sent([*parts, whole], [self.reported], parts=2))
        self.assertTrue(sent(parts[:1], [self.reported], parts=2))
        self.assertTrue(sent([parts[0], *parts, whole], [self.reported], parts=2))
        # The count starts again with the second part.
        refused = [self.refused] * 3
        self.assertTrue(sent([*refused, parts[0], self.refused], [self.dropped], self.ordered,
                             parts=2))
        self.assertFalse(sent([parts[0], self.refused, *refused], [self.dropped], self.ordered,
                              parts=2))


def arrivals(texts, first_place=1):
    return [RECEIVED.format(place, text) for place, text in enumerate(texts, first_place)]


class Received(unittest.TestCase):
    unplug = "unplugged for 1s"
    gone = [RECEIVED.format(1, "a"), "deleted place 1"]
    left = [RECEIVED.format(1, "a")]
    got = ["got +49 a"]

    def test_a_message_is_delivered_and_deleted(self):
        self.assertFalse(received(self.gone, self.got))

    def test_a_message_is_delivered_twice(self):
        self.assertTrue(received(self.gone, self.got * 2))

    def test_a_message_is_deleted_and_never_delivered(self):
        self.assertTrue(received([*self.gone, self.unplug], [], [Span("unplugged", 0, 9)]))

    def test_a_message_comes_from_nowhere(self):
        self.assertTrue(received([], self.got))

    def test_a_message_is_lost_before_it_enters_the_store(self):
        self.assertTrue(received(self.gone, self.got, wanted={"a": "+49 a", "b": "+49 b"}))

    def test_the_list_that_named_a_message_was_cut(self):
        self.assertTrue(received(self.left, []))
        self.assertFalse(received([*self.left, self.unplug], []))
        self.assertTrue(received([self.unplug, *self.left], []))

    def test_other_faults_cut_no_list(self):
        for kind in KINDS:
            faults = [Span(kind, second, second + 1) for second in range(3)]
            self.assertTrue(received(self.left, [], faults), kind)

    def test_a_later_list_was_complete_before_the_fault(self):
        later = ["b", "c"]
        modem = [*self.left, *arrivals(later, 2), "deleted place 2", "deleted place 3"]
        program = [f"got +49 {text}" for text in later]
        self.assertTrue(received([*modem, self.unplug], program))
        self.assertFalse(received([*self.left, self.unplug, *modem[1:]], program))

    def test_a_fault_cuts_one_list(self):
        texts = [str(number) for number in range(message_accounts.MOST_LISTED + 1)]
        self.assertFalse(received([*arrivals(texts[1:]), self.unplug], []))
        self.assertTrue(received([*arrivals(texts), self.unplug], []))

    def test_the_deletion_of_a_message_failed(self):
        self.assertTrue(received(self.left, self.got))
        for kind in ("CMGD refused", "muted", "output held", "unplugged"):
            self.assertFalse(received(self.left, self.got, [Span(kind, 0, 1)]), kind)
        for kind in ("CMGS refused", "CMGL refused", "garbage", "no network"):
            self.assertTrue(received(self.left, self.got, [Span(kind, 0, 1)]), kind)

    def test_a_cut_list_does_not_keep_a_delivered_message(self):
        self.assertTrue(received([*self.left, self.unplug], self.got))

    def test_a_refusal_keeps_one_message_from_its_deletion(self):
        two, got = arrivals("ab"), ["got +49 a", "got +49 b"]
        refusal = Span("CMGD refused", 1, 1)
        self.assertTrue(received(two, got, [refusal]))
        self.assertFalse(received(two, got, [refusal] * 2))

    def test_a_silence_keeps_few_messages_from_their_deletion(self):
        texts, mute = "abcdef", [Span("muted", 0, 3)]
        got = [f"got +49 {text}" for text in texts]
        self.assertFalse(received(arrivals(texts[:3]), got[:3], mute))
        self.assertTrue(received(arrivals(texts), got, mute))

    def test_a_fault_explains_no_deletion_long_before_it(self):
        modem = self.left
        for place, text in enumerate("bcde", 2):
            modem = [*modem, RECEIVED.format(place, text), f"deleted place {place}"]
        program = [f"got +49 {text}" for text in "abcde"]
        self.assertTrue(received(modem, program, [Span("muted", 100, 101)]))
        self.assertFalse(received(modem, program, [Span("muted", 1, 2)]))

    def test_a_refusal_is_over_when_a_later_deletion_succeeds(self):
        modem = [(0, RECEIVED.format(1, "a")), (5, "deleted place 1"),
                 (20, RECEIVED.format(2, "b"))]
        program = ["got +49 a", "got +49 b"]
        self.assertFalse(received(modem, program, [Span("CMGD refused", 19, 19)]))
        self.assertTrue(received(modem, program, [Span("CMGD refused", 0, 0)]))

    def test_one_part_is_lost_and_the_other_cannot_be_deleted(self):
        wanted = {"a": "+49 ab", "b": "+49 ab"}
        modem = [*arrivals("a"), self.unplug, *arrivals("b", 2)]
        self.assertTrue(received(modem, [], wanted=wanted))
        self.assertFalse(received(modem, [], [Span("CMGD refused", 2, 2)], wanted))

    def test_the_last_message_may_still_be_there(self):
        self.assertFalse(received(self.left, self.got, last="+49 a"))

    def strewn(self, is_stranded):
        """A message every 0.2 s for a minute, under incessant faults."""
        faults = incessant(60)
        modem = [(fault.start, self.unplug) for fault in faults if fault.kind == "unplugged"]
        program = []
        for i in range(300):
            modem.append((i / 5, RECEIVED.format(i, f"m{i}")))
            if not is_stranded(i):
                modem.append((i / 5 + 0.1, f"deleted place {i}"))
                program.append((i / 5 + 0.1, f"got +49 m{i}"))
        return received(sorted(modem), program, faults)

    def test_messages_are_left_behind_under_incessant_faults(self):
        self.assertTrue(self.strewn(lambda i: i % 2 == 0))
        self.assertTrue(self.strewn(lambda i: i % 10 == 0))
        self.assertTrue(self.strewn(lambda i: True))
        self.assertFalse(self.strewn(lambda i: False))


class Mails(unittest.TestCase):
    starved, down = [Span("no descriptors", 0, 1)], [Span("mail server down", 0, 1)]

    def test_a_mail_is_taken_and_reported(self):
        self.assertFalse(mails(["mail 1 0"], [Record(NONE, 1, True)]))

    def test_a_mail_arrives_twice(self):
        self.assertTrue(mails(["mail 1 0"], [Record(NONE, 1, True)] * 2))

    def test_a_mail_is_reported_and_was_not_taken(self):
        self.assertTrue(mails(["mail 1 0"], [Record(NONE, 1, False)]))

    def test_a_mail_is_not_reported(self):
        self.assertTrue(mails([], [Record(NONE, 1, True)]))

    def test_a_code_that_its_fault_does_not_cause(self):
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
        self.assertFalse(mails(["mail 1 106"], [], self.starved))
        self.assertTrue(mails(["mail 1 106"], [], self.down))
        self.assertFalse(mails(["mail 1 103"], [], self.down))
        self.assertTrue(mails(["mail 1 103"], [], self.starved))
        self.assertTrue(mails(["mail 1 300"], [], self.down))

    def test_a_fault_explains_no_failure_before_it_or_long_after_it(self):
        for code, faults in ((106, self.starved), (103, self.down)):
            self.assertTrue(mails([(9, f"mail 1 {code}")], [], faults))
            self.assertTrue(mails([(-1, f"mail 1 {code}")], [], faults))

    def test_a_fault_explains_as_many_failures_as_it_has_time_for(self):
        def failed(count):
            return mails([(i / 100, f"mail {i} 106") for i in range(count)], [], self.starved)
        self.assertFalse(failed(10))
        self.assertTrue(failed(30))

    def test_a_file_finds_no_descriptor(self):
        records = {number: [Record(NONE, number, False)] for number in (1, 10)}
        self.assertFalse(mails(["mail 10 404"], records[10], self.starved))
        self.assertTrue(mails(["mail 10 404"], records[10]))
        self.assertTrue(mails([(9, "mail 10 404")], records[10], self.starved))
        self.assertTrue(mails(["mail 1 404"], records[1], self.starved))

    def test_all_mails_fail_under_incessant_faults(self):
        faults = [Span("no descriptors", 5 * i, 5 * i + 1) for i in range(12)]
        for code in (106, 404):
            program = [(i / 5, f"mail {i} {code}") for i in range(1, 300)]
            records = [Record(NONE, i, False) for i in range(1, 300) if code == 404]
            self.assertTrue(mails(program, records, faults), code)


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

    def test_a_block_is_refused_long_after_the_fault(self):
        refused = (0, "refused at 2: why")
        self.assertFalse(commands([refused, (14, "accepted at 3")], self.starved))
        self.assertTrue(commands([refused, (20, "accepted at 3")], self.starved))

    def test_nothing_is_refused_without_a_fault(self):
        for line in ("refused at 2: why", "not queued: mail 1 why"):
            self.assertFalse(commands([line], self.starved))
            self.assertTrue(commands([line]))
            self.assertTrue(commands([(9, line)], self.starved))

    def test_the_signal_is_reported(self):
        self.assertFalse(commands(["victim 7 9"], signals={7: 9}))
        self.assertTrue(commands(["victim 7 15"], signals={7: 9}))
        self.assertTrue(commands(["victim 7 0"]))
        self.assertFalse(commands(["victim 7 0"], self.starved))

    def test_nothing_excuses_a_wrong_result(self):
        self.assertTrue(commands(["wrong: echo"]))
        self.assertTrue(commands(["wrong: echo"], self.starved))


class Log(unittest.TestCase):
    stamp = "2026-01-31 12:00:00.000 "
    port = stamp + "warning modem port 1: "

    def log(self, lines, faults=(), failed=0, program=()):
        return accounts.check_log(history(*lines), history(*program), faults, failed)

    def test_a_line_that_no_fault_explains(self):
        line = self.port + "no answer to AT"
        self.assertTrue(self.log([line]))
        self.assertFalse(self.log([line], [Span("muted", 0, 1)]))
        self.assertTrue(self.log([line], [Span("garbage", 0, 1)]))
        self.assertTrue(self.log([self.port + "what is this"], [Span("muted", 0, 1)]))

    def test_a_list_is_waited_for_longer(self):
        mute = [Span("muted", 0, 1)]
        for command, is_late in (("AT+CMGL=0", False), ("AT+CMGF=0", True)):
            late = (12, f"{self.port}no answer to {command} within 10s")
            self.assertEqual(bool(self.log([late], mute)), is_late, command)

    def test_a_fault_explains_one_loss(self):
        lost = self.port + "/dev/modem is lost: the other end is gone"
        self.assertFalse(self.log([lost], [Span("unplugged", 0, 1)]))
        self.assertTrue(self.log([lost] * 2, [Span("unplugged", 0, 1)]))

    def test_a_dead_mail_server_delays_what_is_logged(self):
        lost = (8, self.port + "/dev/modem is lost: the other end is gone")
        unplugged = [Span("unplugged", 0, 1)]
        self.assertTrue(self.log([lost], unplugged))
        self.assertFalse(self.log([lost], unplugged, program=[(8, "mail 1 402")]))

    def test_a_dead_mail_server_delays_the_report_of_a_late_answer(self):
        silence = (19, self.port + "no answer to AT+CMGS=41 within 17s")
        mute = [Span("muted", 0, 1)]
        self.assertTrue(self.log([silence], mute))
        self.assertTrue(self.log([silence], mute, program=[(30, "mail 1 402")]))
        self.assertFalse(self.log([silence], mute, program=[(18, "mail 1 402")]))

    def test_each_refusal_needs_an_order_of_its_kind(self):
        refused = {"CMGL refused": "AT+CMGL=0 was refused: +CMS ERROR: 320",
                   "CMGD refused": "AT+CMGD=2 was refused: ERROR",
                   "CMGS refused": "a message was refused: +CMS ERROR: 38",
                   "no network": "a message was refused: +CMS ERROR: 331"}
        for kind, text in refused.items():
            self.assertFalse(self.log([self.port + text], [Span(kind, 0, 0)]), kind)
            self.assertTrue(self.log([self.port + text], [Span("muted", 0, 1)]), kind)
            self.assertTrue(self.log([self.port + text] * 2, [Span(kind, 0, 0)]), kind)

    def test_a_message_that_is_given_up_or_lost_needs_a_fault(self):
        for text in ("a message is given up; the last attempt ended with no answer",
                     "no confirmation of a message within 10s; it may be sent again"):
            self.assertFalse(self.log([self.port + text], [Span("muted", 0, 1)]))
            self.assertTrue(self.log([self.port + text], [Span("garbage", 0, 1)]))

    def test_long_cycles_are_nobody_s_fault_and_no_failed_mails(self):
        for text in ("overrun: cycle 2 ended 3.02s after its start was due; the period is 100ms",
                     "cycle 7 has been running for 1.1s: it is in SEND_EMAIL, called at soak.lua:30"):
            self.assertFalse(self.log([self.stamp + "warning " + text]))

    def test_each_failed_mail_is_logged(self):
        lines = [self.stamp + "warning Lack of memory",
                 self.stamp + 'warning SEND_EMAIL of soak.lua:19, "soak 1" via 127.0.0.1 port 25: code 408',
                 "sh: 1: " + self.stamp + "info    all is well"]
        starved = [Span("no descriptors", 0, 3)]
        self.assertFalse(self.log(lines, starved, 1))
        self.assertTrue(self.log(lines, starved, 2))
        self.assertTrue(self.log(lines[1:], starved, 1))
        self.assertTrue(self.log([lines[0], lines[2]], starved, 1))
        self.assertTrue(self.log(lines, [], 1))


class Enough(unittest.TestCase):
    enough = {name: least for name, least in accounts.LEAST.items()}
    records = [Record(Fault(kind)) for kind in ("close", "refuse")]

    def complaints(self, figures, seconds=60, faults=KINDS, records=None):
        return accounts.check_enough(figures, [Span(kind, 0, 1) for kind in faults],
                                     self.records if records is None else records, KINDS, seconds)

    def test_a_minute_reaches_its_figures(self):
        self.assertFalse(self.complaints(self.enough))
        for name, least in accounts.LEAST.items():
            self.assertTrue(self.complaints(self.enough | {name: least - 1}), name)

    def test_two_minutes_have_twice_as_many(self):
        self.assertTrue(self.complaints(self.enough, 120))
        self.assertFalse(self.complaints({n: 2 * least for n, least in self.enough.items()}, 120))

    def test_nothing_has_happened(self):
        self.assertTrue(self.complaints(dict.fromkeys(self.enough, 0)))

    def test_each_kind_of_fault_has_occurred(self):
        self.assertTrue(self.complaints(self.enough, faults=KINDS[1:]))
        self.assertTrue(self.complaints(self.enough, records=self.records[1:]))
        self.assertFalse(self.complaints(self.enough, 59, faults=[], records=[]))


unittest.main()
