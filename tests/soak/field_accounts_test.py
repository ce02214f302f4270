#!/usr/bin/python3
# SPDX-License-Identifier: MIT
"""Losses and doubles that are put into the books of field_accounts.py must be noticed, and nothing else."""
import sys
import unittest

sys.dont_write_bytecode = True
import field_accounts as books
import field_peers
from accounts import Event
from excuses import Span

NONE = float("inf")


def lines(*texts):
    """One line a second."""
    return [Event(second, text) for second, text in enumerate(texts)]


def sent(receiver):
    return f"sent to +{receiver}: {books.text_of(receiver)}"


def sms(program, rows, modem, faults=(), kills=()):
    orders = books.orders_of(lines(*program))
    found = {receiver: [books.Row(*row)] if isinstance(row, tuple) else row for receiver, row in rows.items()}
    return books.check_sms(orders, found, lines(*modem), list(faults), list(kills))[0]


ONE = "15551000001"  # without a key
TWO = "15551000002"  # with one
ORDERED, STORED = "order sms1 1", "stored sms1 1"


class Messages(unittest.TestCase):
    def test_what_was_sent_once_is_fine(self):
        self.assertEqual(sms([ORDERED, STORED], {ONE: (books.SENT, 0)}, [sent(ONE)]), [])

    def test_a_loss_is_noticed(self):
        self.assertRegex(sms([ORDERED, STORED], {ONE: (books.SENT, 0)}, [])[0], "arrived 0 times")

    def test_a_double_is_noticed(self):
        self.assertRegex(sms([ORDERED, STORED], {ONE: (books.SENT, 0)}, [sent(ONE)] * 2)[0], "arrived 2 times")

    def test_an_unknown_end_explains_one_more(self):
        kills = [0.5]
        self.assertEqual(sms([ORDERED, STORED], {ONE: (books.SENT, 1)}, [sent(ONE)] * 2, kills=kills), [])
        self.assertRegex(sms([ORDERED, STORED], {ONE: (books.SENT, 1)}, [sent(ONE)] * 3, kills=kills)[0], "3 times, not 1 to 2")

    def test_an_unknown_end_needs_a_cause(self):
        self.assertRegex(sms([ORDERED, STORED], {ONE: (books.SENT, 1)}, [sent(ONE)])[0], "1 unknown ends of messages")
        self.assertEqual(sms([ORDERED, STORED], {ONE: (books.SENT, 1)}, [sent(ONE)], [Span("muted", 0, 1)]), [])

    def test_what_was_stored_stays_in_the_store(self):
        self.assertRegex(sms([ORDERED, STORED], {}, [sent(ONE)])[0], "was stored, and is not")

    def test_what_has_not_been_seen_in_the_store_may_be_lost_unless_it_has_a_key(self):
        self.assertEqual(sms([ORDERED], {}, []), [])
        self.assertRegex(sms(["order sms1 2"], {}, [])[0], "ordered until it is stored")

    def test_what_is_not_in_the_store_does_not_arrive(self):
        self.assertRegex(sms([ORDERED], {}, [sent(ONE)])[0], "arrived, but is not in the store")

    def test_a_key_makes_one_message_of_two_orders(self):
        program = ["order sms1 2", "order sms1 2", "stored sms1 2"]
        self.assertEqual(sms(program, {TWO: (books.SENT, 0)}, [sent(TWO)]), [])
        self.assertRegex(sms(program, {TWO: [books.Row(books.SENT, 0)] * 2}, [sent(TWO)] * 2)[0], "in the store 2 times")

    def test_each_receiver_gets_it(self):
        program = ["order sms1 7", "stored sms1 7"]
        rows = {"15551000007": (books.SENT, 0), "16661000007": (books.SENT, 0)}
        self.assertRegex(sms(program, rows, [sent("15551000007")])[0], r"\+16661000007 arrived 0 times")

    def test_a_part_that_goes_out_twice_is_noticed(self):
        three = "15551000003"
        once = [f"part 1 of 2 to +{three}", f"part 2 of 2 to +{three}",
                f"sent to +{three} in 2 parts: {books.text_of(three)}"]
        program = ["order sms1 3", "stored sms1 3"]
        self.assertEqual(sms(program, {three: (books.SENT, 0)}, once), [])
        twice = once[:1] + once
        self.assertRegex(sms(program, {three: (books.SENT, 0)}, twice)[0], "part 1 .* went out 2 times")
        late = once + [""] * 9 + once[:1]
        self.assertRegex(sms(program, {three: (books.SENT, 0)}, late)[0], "part 1 .* went out 2 times")
        self.assertEqual(sms(program, {three: (books.SENT, 0)}, late, [Span(books.FULL_AND_KILLED, 11, 13)]), [])

    def test_what_waits_or_fails_without_a_cause_is_noticed(self):
        for row in (books.WAITING, 0), (books.EXPIRED, 0, 20), (books.FAILED, 0, 21), (books.FAILED, 1, 23):
            self.assertRegex(sms([ORDERED, STORED], {ONE: row}, [], kills=[1.0])[0], f"state {row[0]}")

    def test_two_unknown_ends_end_it(self):
        self.assertEqual(sms([ORDERED, STORED], {ONE: (books.FAILED, 2, 23)}, [sent(ONE)], kills=[0.1, 0.2]), [])

    def test_another_text_and_what_nobody_ordered_are_noticed(self):
        self.assertRegex(sms([ORDERED], {ONE: (books.SENT, 0)}, [f"sent to +{ONE}: Pump 000001"])[0], "another text")
        self.assertRegex(sms([], {}, [sent(ONE)])[0], "nobody ordered")

    def test_a_kill_on_a_full_disk_explains_one_double_or_loss(self):
        spans = [Span(books.FULL_AND_KILLED, 0, 5)]
        self.assertEqual(sms([ORDERED], {ONE: (books.SENT, 0)}, [sent(ONE)] * 2, spans), [])
        self.assertEqual(sms(["order sms1 2"], {}, [], spans), [])
        self.assertNotEqual(sms([ORDERED], {ONE: (books.SENT, 0)}, [sent(ONE)] * 3, spans), [])
        self.assertNotEqual(sms([ORDERED], {ONE: (books.SENT, 0)}, [sent(ONE)] * 2, [Span(books.FULL, 0, 5)]), [])


def attempt(mail, fault=field_peers.NONE, end=2.0, recipients=("op-",), refused=(), start=1.0):
    return field_peers.Attempt(mail, [kind + mail for kind in recipients], fault, start, end, taken=bool(recipients),
                               refused={kind + mail for kind in refused})


def mails(program, rows, attempts, kills=()):
    found = {mail: [books.Row(*row)] for mail, row in rows.items()}
    return books.check_mails(books.orders_of(lines(*program)), found, attempts, [], list(kills))[0]


MAIL = ["order tls 1", "stored tls 1"]
LOST = ("close", "text")


class Mails(unittest.TestCase):
    def test_once_is_fine_and_a_loss_or_a_double_is_noticed(self):
        rows = {"tls-1": (books.SENT, 0)}
        self.assertEqual(mails(MAIL, rows, [attempt("tls-1")]), [])
        self.assertRegex(mails(MAIL, rows, [])[0], "arrived 0 times")
        self.assertRegex(mails(MAIL, rows, [attempt("tls-1")] * 2)[0], "arrived 2 times")

    def test_a_lost_reply_is_the_only_cause_of_an_unknown_end(self):
        rows = {"tls-1": (books.SENT, 1)}
        self.assertEqual(mails(MAIL, rows, [attempt("tls-1", LOST, NONE), attempt("tls-1")]), [])
        self.assertEqual(mails(MAIL, rows, [attempt("tls-1", end=NONE), attempt("tls-1")], kills=[1.5]), [])
        self.assertRegex(mails(MAIL, rows, [attempt("tls-1")])[0], "1 unknown ends, but 0 lost replies")

    def test_who_was_refused_does_not_get_it_and_the_other_does(self):
        program = ["order tls 6", "stored tls 6"]
        refused = attempt("tls-6", ("never", "RCPT"), refused=("chief-",))
        rows = {"tls-6": (books.FAILED, 0, 30)}
        self.assertEqual(mails(program, rows, [refused]), [])
        nobody = attempt("tls-6", ("never", "RCPT"), refused=("chief-",), recipients=())
        self.assertRegex(mails(program, rows, [nobody])[0], "op-tls-6 arrived 0 times")
        self.assertRegex(mails(MAIL, {"tls-1": (books.FAILED, 0, 34)}, [])[0], "state 2")

    def test_a_mail_that_is_refused_for_the_second_recipient_has_reached_the_first(self):
        program, rows = ["order tls 6", "stored tls 6"], {"tls-6": (books.FAILED, 0, 34)}
        refused = attempt("tls-6", ("never", "text"), refused=("chief-",), recipients=(), start=3.0)
        self.assertEqual(mails(program, rows, [attempt("tls-6"), refused]), [])
        self.assertRegex(mails(program, rows, [refused])[0], "op-tls-6 arrived 0 times")

    def test_an_attachment_may_be_lost_only_if_the_block_said_so(self):
        rows = {"tls-1": (books.FAILED, 0, 15)}
        self.assertEqual(mails(["order tls 1", "unstored tls 1 the disk is full"], rows, []), [])
        self.assertRegex(mails(MAIL, rows, [])[0], "error 15")

    def test_what_the_server_found_wrong_is_noticed(self):
        wrong = attempt("tls-1")
        wrong.problem = "another text"
        self.assertRegex(mails(MAIL, {"tls-1": (books.SENT, 0)}, [wrong])[0], "another text")


def inbox(given, *program):
    return books.check_inbox(lines(*program), given)[0]


class Inbox(unittest.TestCase):
    def test_each_message_comes_once(self):
        self.assertEqual(inbox(["a", "b"], "kept 0", "got 1 0 +49 a", "got 2 0 +49 b"), [])
        self.assertEqual(inbox(["a", "b"], "kept 0", "got 1 0 +49 a"), ["never offered: b"])
        self.assertRegex(inbox(["a"], "kept 0", "got 1 0 +49 a", "got 2 0 +49 a")[0], "offered again")

    def test_only_the_last_one_of_a_run_may_come_again_and_only_first(self):
        self.assertEqual(inbox(["a", "b"], "kept 0", "got 1 0 +49 a", "kept 1", "got 1 0 +49 a", "got 2 0 +49 b"), [])
        self.assertRegex(inbox(["a", "b"], "kept 0", "got 1 0 +49 a", "got 2 0 +49 b", "kept 1", "got 1 0 +49 a")[0], "offered again")
        self.assertRegex(inbox(["a"], "kept 0", "got 1 0 +49 a", "kept 1", "got 2 0 +49 a")[0], "offered again")

    def test_other_texts_kinds_and_orders_are_noticed(self):
        self.assertRegex(inbox(["a"], "got 1 1 +49 a")[0], "another message")
        self.assertRegex(inbox(["a"], "got 1 0 +49 a", "got 2 0 +49 c")[0], "another message")
        self.assertRegex(inbox(["a", "b"], "got 2 0 +49 a", "got 1 0 +49 b")[0], "not in their order")


class Others(unittest.TestCase):
    def test_a_job_is_done_once_and_a_failed_one_at_most_once(self):
        orders = books.orders_of(lines("order process 1", "end process 1 done 0 ", "order process 2"))["process"]
        self.assertEqual(books.check_once("process", orders, [1])[0], [])
        self.assertEqual(books.check_once("process", orders, [1, 2])[0], [])
        self.assertRegex(books.check_once("process", orders, [2])[0][0], "process 1 came 0 times")
        self.assertRegex(books.check_once("process", orders, [1, 2, 2])[0][0], "process 2 came 2 times")
        self.assertRegex(books.check_once("process", orders, [1, 3])[0][0], "nobody ordered")

    def test_retained_values_may_be_a_little_old_but_never_go_back_further(self):
        run = [Event(0, "kept 0")] + [Event(second, f"count {20 * second}") for second in range(1, 31)]

        def kept(value, kills, faults=()):
            return books.check_retained(run + [Event(31, f"kept {value}")], kills, faults)
        self.assertEqual(kept(500, [30.0]), [])
        self.assertRegex(kept(499, [30.0])[0], "retained 499, not 500")
        self.assertEqual(kept(580, []), [])
        self.assertRegex(kept(579, [])[0], "retained 579, not 580")
        self.assertEqual(kept(600, []), [])
        self.assertRegex(kept(700, [30.0])[0], "retained 700")
        self.assertEqual(kept(300, [30.0], [Span(books.FULL, 20, 26)]), [])

    def test_the_schedule_fires_once_a_minute_unless_a_kill_explains_more(self):
        minute = 1_800_000_000
        once = [Event(1, f"fired {minute}")]
        twice = once + [Event(3, f"fired {minute + 2}")]
        self.assertEqual(books.check_schedule(once, [minute], [])[0], [])
        self.assertRegex(books.check_schedule([], [minute], [])[0][0], "did not fire")
        self.assertRegex(books.check_schedule(twice, [minute], [])[0][0], "fired 2 times")
        self.assertEqual(books.check_schedule(twice, [minute], [2.0])[0], [])

    def test_sanitizers_and_the_programs_own_checks_are_heard(self):
        self.assertEqual(len(books.check_log(lines("ERROR: AddressSanitizer: heap", "warning x", "a.cpp:1: runtime error: y"))), 2)
        self.assertEqual(books.check_wrong(lines("wrong: TON", "got")), ["wrong: TON"])
        orders = books.orders_of(lines("order hung 1", "end hung 1 done 0 ", "order hung 2", "end hung 2 error 41 x"))
        self.assertEqual(len(books.check_hung(orders["hung"])), 1)


if __name__ == "__main__":
    unittest.main()
