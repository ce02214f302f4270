#!/usr/bin/python3
# SPDX-License-Identifier: MIT
"""mail_outbox_faults.py CORVANE ADDIN SMS_ADDIN: MAIL_OUTBOX on bad days: killed, without a server, a disk or files."""
import email
import os
import sys
import tempfile
import threading
import time

sys.dont_write_bytecode = True
from mail_outbox_program import NO_BLOCK, Programs, account, one_mail, wait_until
from smtp_peer import SmtpPeer
from tiny_disk import TinyDisk, can_mount

[corvane, addin, sms_addin] = sys.argv[1:]


def killed_after_the_final_dot_it_is_sent_once_more_with_the_same_message_id(programs):
    with SmtpPeer() as peer:
        peer.hold = threading.Event()
        process = programs.start(one_mail(peer))
        assert peer.waiting.wait(60)
        assert programs.rows("in_transfer") == [(1,)], "the mark is on the disk before the final dot"
        process.kill()
        process.communicate()
        peer.hold.set()
        wait_until(lambda: len(peer.mails) == 1, "the mail of the first run")
        peer.hold = None
        end = programs.folder + "/end"
        process = programs.start(NO_BLOCK, "--", end)
        wait_until(lambda: programs.rows("state, unknown_ends") == [(1, 1)], "its end")
        open(end, "w").close()
        programs.finish(process)
        ids = {email.message_from_bytes(mail[2])["Message-ID"] for mail in peer.mails}
        assert len(peer.mails) == 2 and len(ids) == 1, ids


def killed_before_the_final_dot_nothing_is_unknown(programs):
    with SmtpPeer(silent=True) as peer:
        process = programs.start(one_mail(peer))
        wait_until(lambda: peer.connections and programs.rows("state"), "the connection")
        process.kill()
        process.communicate()
        port = peer.port
    with SmtpPeer(port) as peer:
        end = programs.folder + "/end"
        process = programs.start(NO_BLOCK, "--", end)
        wait_until(lambda: programs.rows("state, unknown_ends") == [(1, 0)], "its end")
        open(end, "w").close()
        programs.finish(process)
        assert len(peer.mails) == 1


def a_lost_reply_is_an_unknown_end_and_is_reported(programs):
    with SmtpPeer() as peer:
        peer.final = ""  # the connection goes instead
        process = programs.start(one_mail(peer))
        wait_until(lambda: programs.rows("unknown_ends") == [(1,)], "the unknown end")
        peer.final = "250 queued"
        wait_until(lambda: "tried again" in programs.messages("retry", "1").stdout, "the retry")
        output, _ = programs.finish(process)
        assert output[-3].startswith("false true false 0"), output
        assert "may arrive twice" in output[-2], output


def shows_22_before_the_end(programs, peer, process):
    """The output of a program after that line. Until then the server holds back its last reply: the mail would
    often be done within the same cycle."""
    held = peer.hold = threading.Event()
    wait_until(lambda: process.stdout.readline().startswith("true false false 22 false"), "error 22")
    held.set()
    return programs.finish(process)[0]


def a_second_program_sends_from_memory(programs):
    with SmtpPeer() as peer:
        end = programs.folder + "/end"
        first = programs.start(NO_BLOCK + "local mail = MAIL_OUTBOX.new {}\nmail()\n", "--", end)
        wait_until(lambda: os.path.exists(programs.store), "the store")
        output = shows_22_before_the_end(programs, peer, programs.start(one_mail(peer), name="second"))
        assert output[-3].startswith("false true false 0 false"), output
        assert len(peer.mails) == 1
        open(end, "w").close()
        programs.finish(first)


def fifty_mails_to_a_black_hole_end_within_a_second(programs):
    with SmtpPeer(silent=True) as peer:
        output, log = programs.run(FIFTY.replace("INPUTS", account(peer)))
        assert output == ["50"], output
        assert "50 mails wait; kept in" in log, log
        assert programs.rows("count(*), sum(unknown_ends)") == [(50, 0)]
        seconds = programs.seconds_of_end(FIFTY.replace("INPUTS", account(peer)))
        assert seconds < 1.5, seconds  # a second, and what the process itself takes


FIFTY = """
io.stdout:setvbuf("no")
local mail = MAIL_OUTBOX.new { INPUTS From = "pump3@plant.example", To = "a@plant.example", Text = "is full" }
local count, cycles = 0, 0
function cycle()
  mail.Execute = count < 50 and not mail.Execute
  mail()
  if mail.Execute then count = count + 1 end
  cycles = cycles + 1
  if count == 50 and mail.Stored and cycles > 150 then
    print(count)
    plc.stop()
  end
end
"""


def attachments_that_are_no_files_are_refused(programs):
    folder = programs.folder
    os.mkfifo(folder + "/fifo")
    with open(folder + "/large", "wb") as file:
        file.truncate((25 << 20) + 1)
    with SmtpPeer() as peer:
        for path in "/fifo", "", "/missing", "/large", "/../../dev/null":
            path = folder + path if not path.endswith("null") else "/dev/null"
            output, _ = programs.run(one_mail(peer, f'Attachments = "{path}"'))
            assert output[-3].startswith("false false true 15 false"), output
            assert path in output[-2], output
        assert peer.connections == 0
        assert programs.rows("id") == []


def copies_that_belong_to_no_mail_are_removed_at_the_start(programs):
    orphan = programs.state + "/attachments/0123456789abcdef"
    os.makedirs(orphan)
    open(orphan + "/1", "w").close()
    with SmtpPeer() as peer:
        process = programs.start(one_mail(peer))
        wait_until(lambda: not os.path.exists(orphan), "the removal")
        process.communicate()


def an_attachment_outlives_its_file_and_a_kill(programs):
    path = programs.folder + "/report"
    with open(path, "w") as file:
        file.write("level 4.2 m")
    with SmtpPeer(silent=True) as peer:
        process = programs.start(one_mail(peer, f'Attachments = "{path}"'))
        wait_until(lambda: peer.connections and programs.rows("state"), "the connection")
        process.kill()
        process.communicate()
        port = peer.port
    os.remove(path)
    with SmtpPeer(port) as peer:
        end = programs.folder + "/end"
        process = programs.start(NO_BLOCK, "--", end)
        wait_until(lambda: peer.mails, "the mail")
        message = email.message_from_bytes(peer.mails[0][2])
        assert message.get_payload()[1].get_payload(decode=True) == b"level 4.2 m"
        wait_until(lambda: os.listdir(programs.state + "/attachments") == [], "the removal of the copy")
        open(end, "w").close()
        programs.finish(process)


def a_full_disk_is_reported_and_the_mail_goes_out(programs):
    if not can_mount():
        print("  skipped: no file system can be mounted here")
        return
    disk = TinyDisk(programs.state)
    full = [*disk.command[:4], disk.command[4].replace(
        "&& exec", f"&& (head -c 2M /dev/zero > {programs.state}/filling 2>/dev/null || true) && exec"), "sh"]
    path = programs.folder + "/report"
    with open(path, "w") as file:
        file.write("level 4.2 m")
    with SmtpPeer() as peer:
        process = programs.start(one_mail(peer, f'Attachments = "{path}"'), wrap=full)
        output = shows_22_before_the_end(programs, peer, process)
        assert output[-3].startswith("false true false 0 false"), output
        assert b"report" in peer.mails[0][2]


def sms_and_mail_share_one_store(programs):
    both = Programs(corvane, [addin, sms_addin], programs.folder)
    with SmtpPeer() as peer:
        output, log = both.run(BOTH.replace("INPUTS", account(peer)), "--modem", "1=/nowhere")
        assert output == ["stored"], (output, log)
        assert both.rows("channel, state") == [("sms", 0), ("mail", 1)], both.rows("channel, state")
        assert log.count("messages are kept in") == 1, log
        listed = both.messages().stdout
        assert "+15550101234" in listed and "a@plant.example" in listed, listed


BOTH = """
local sms = SMS_OUTBOX.new { Port = 1, Receiver = "+15550101234", Text = "Tank 2 is full" }
local mail = MAIL_OUTBOX.new { INPUTS From = "pump3@plant.example", To = "a@plant.example", Text = "is full" }
function cycle()
  sms.Execute = true
  sms()
  mail.Execute = sms.Stored
  mail()
  assert(sms.ErrorId == 0 and mail.ErrorId == 0, sms.ErrorText .. mail.ErrorText)
  if sms.Stored and mail.Done then
    print("stored")
    plc.stop()
  end
end
"""


class TimedPrograms(Programs):
    def seconds_of_end(self, program):
        """From the program's last line to the end of its process."""
        process = self.start(program)
        process.stdout.readline()
        begin = time.monotonic()
        process.communicate()
        return time.monotonic() - begin


for test in (
        killed_after_the_final_dot_it_is_sent_once_more_with_the_same_message_id,
        killed_before_the_final_dot_nothing_is_unknown, a_lost_reply_is_an_unknown_end_and_is_reported,
        a_second_program_sends_from_memory, fifty_mails_to_a_black_hole_end_within_a_second,
        attachments_that_are_no_files_are_refused, copies_that_belong_to_no_mail_are_removed_at_the_start,
        an_attachment_outlives_its_file_and_a_kill, a_full_disk_is_reported_and_the_mail_goes_out,
        sms_and_mail_share_one_store):
    with tempfile.TemporaryDirectory(prefix="corvane_") as folder:
        print(test.__name__, flush=True)
        test(TimedPrograms(corvane, [addin], folder))
