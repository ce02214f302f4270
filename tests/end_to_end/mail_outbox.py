#!/usr/bin/python3
# SPDX-License-Identifier: MIT
"""mail_outbox.py CORVANE ADDIN: MAIL_OUTBOX with a server that takes, refuses and wants a login."""
import email
import email.policy
import json
import os
import re
import sys
import tempfile

sys.dont_write_bytecode = True
from mail_outbox_program import NO_BLOCK, NO_EDGE, Programs, account, one_mail, wait_until
from smtp_peer import SmtpPeer

[corvane, addin] = sys.argv[1:]
PASSWORD = "s3cret-Pässword"


def a_mail_arrives_as_it_was_written(programs):
    attachment = programs.folder + "/größe.csv"
    octets = os.urandom(100_000)
    with open(attachment, "wb") as file:
        file.write(octets)
    with SmtpPeer() as peer:
        output, _ = programs.run(one_mail(peer, 'Cc = "b@plant.example", Bcc = "c@plant.example", '
                                          f'Html = "<p>is full</p>", Attachments = "{attachment}"'))
    assert output[-3:] == ["false true false 0 true 0", "text: ", "refused: "], output
    [(_, recipients, mail)] = peer.mails
    assert recipients == ["a@plant.example", "b@plant.example", "c@plant.example"], recipients
    message = email.message_from_bytes(mail, policy=email.policy.default)
    assert message["Subject"] == "Tank 2" and message["From"] == "Pump 3 <pump3@plant.example>", mail
    assert message["Bcc"] is None and not re.search(rb"\bc@plant", mail), mail  # a Message-ID may end so
    [part] = message.iter_attachments()
    assert part.get_payload(decode=True) == octets and part.get_filename() == "größe.csv", part.get_filename()
    assert programs.rows("channel, state, attempts, unknown_ends, in_transfer") == [("mail", 1, 1, 0, 0)]
    shown = programs.messages("show", "1").stdout
    for wanted in "Tank 2", "a@plant.example", "b@plant.example", "c@plant.example":
        assert wanted in shown, shown


def ten_mails_need_one_connection_and_one_login(programs):
    many = """
local mail = MAIL_OUTBOX.new { ACCOUNT User = "plc", Password = "PASSWORD", From = "pump3@plant.example",
                               To = "a@plant.example", Text = "is full" }
local count = 0
function cycle()
  mail.Execute = count < 10 and not mail.Execute
  mail()
  if mail.Execute then count = count + 1 end
  if count == 10 and mail.Waiting == 0 then plc.stop() end
end
""".replace("ACCOUNT", "").replace("PASSWORD", PASSWORD)
    with SmtpPeer(login=("plc", PASSWORD)) as peer:
        programs.run(many.replace("new {", "new { " + account(peer)))
        assert (len(peer.mails), peer.connections, len(peer.logins)) == (10, 1, 1), (peer.connections, peer.logins)


def one_refused_recipient_does_not_stop_the_others(programs):
    with SmtpPeer() as peer:
        peer.replies["RCPT TO:<b@"] = "550 5.1.1 no such user"
        output, _ = programs.run(one_mail(peer, to="a@plant.example; b@plant.example"))
        assert output[-3].startswith("false false true 30"), output
        assert output[-1] == "refused: b@plant.example: 550 5.1.1 no such user", output
        assert [mail[1] for mail in peer.mails] == [["a@plant.example"]], peer.mails


def a_recipient_refused_for_now_is_tried_again_alone(programs):
    with SmtpPeer() as peer:
        peer.replies["RCPT TO:<b@"] = "450 4.2.0 come back later"
        process = programs.start(one_mail(peer, to="a@plant.example; b@plant.example"))
        wait_until(lambda: programs.rows("attempts, state") == [(1, 0)] and peer.mails, "the first attempt")
        peer.replies.clear()
        wait_until(lambda: "tried again" in programs.messages("retry", "1").stdout, "the retry")
        output, _ = programs.finish(process)
        assert output[-3].startswith("false true false 0"), output
        assert [mail[1] for mail in peer.mails] == [["a@plant.example"], ["b@plant.example"]], peer.mails
        [first, second] = [email.message_from_bytes(mail[2]) for mail in peer.mails]
        assert first["Message-ID"] == second["Message-ID"]


def a_mail_refused_for_good_has_the_servers_words(programs):
    with SmtpPeer() as peer:
        peer.final = "554 5.6.0 looks like spam"
        output, _ = programs.run(one_mail(peer))
        assert output[-3].startswith("false false true 34"), output
        assert "554 5.6.0 looks like spam" in output[-2], output


LOGIN = """
io.stdout:setvbuf("no")
local mail = MAIL_OUTBOX.new { INPUTS Password = "wrong", User = "plc", From = "pump3@plant.example",
                               To = "a@plant.example", Text = "is full" }
local failed
function cycle()
  mail.Execute = not failed
  mail()
  if mail.Error then
    print(mail.ErrorId, mail.ErrorText)
    failed = true
    mail.Password = "PASSWORD"
  end
  if failed and mail.Waiting == 0 then plc.stop() end
end
"""


def other_credentials_are_tried_at_once(programs):
    with SmtpPeer(login=("plc", PASSWORD)) as peer:
        output, log = programs.run(LOGIN.replace("INPUTS", account(peer)).replace("PASSWORD", PASSWORD))
        assert output[0].startswith("31\t") and "535 5.7.8" in output[0], output
        assert len(peer.mails) == 1 and peer.logins == [("plc", "wrong"), ("plc", PASSWORD)], peer.logins
        for secret in "wrong", PASSWORD:
            assert secret not in log + str(output), log
            assert secret.encode() not in programs.octets()


def after_a_restart_a_mail_without_a_user_needs_no_block(programs):
    with SmtpPeer() as peer:
        port = peer.port
    gone = type("Gone", (), {"port": port})
    process = programs.start(one_mail(gone))
    wait_until(lambda: programs.rows("attempts") == [(1,)], "an attempt")
    process.kill()
    process.communicate()
    end = programs.folder + "/end"
    with SmtpPeer(port) as peer:
        process = programs.start(NO_BLOCK, "--", end)
        wait_until(lambda: "tried again" in programs.messages("retry", "1").stdout, "the retry")
        wait_until(lambda: peer.mails, "the mail")
        wait_until(lambda: programs.rows("state") == [(1,)], "its end in the store")
        open(end, "w").close()
        programs.finish(process)


def after_a_restart_any_call_brings_the_password(programs):
    with SmtpPeer(login=("plc", PASSWORD)) as peer:
        port = peer.port
    gone = type("Gone", (), {"port": port})
    process = programs.start(one_mail(gone, f'User = "plc", Password = "{PASSWORD}"'))
    wait_until(lambda: programs.rows("attempts") == [(1,)], "an attempt")
    process.kill()
    process.communicate()
    assert PASSWORD.encode() not in programs.octets()
    end = programs.folder + "/end"
    with SmtpPeer(port, login=("plc", PASSWORD)) as peer:
        program = NO_EDGE.replace("INPUTS", account(peer) + f'User = "plc", Password = "{PASSWORD}"')
        process = programs.start(program, "--", end)
        wait_until(lambda: "tried again" in programs.messages("retry", "1").stdout, "the retry")
        wait_until(lambda: peer.mails, "the mail")
        open(end, "w").close()
        programs.finish(process)
        assert peer.logins == [("plc", PASSWORD)]


def a_mail_that_a_silent_server_holds_expires_all_the_same(programs):
    with SmtpPeer(silent=True) as peer:
        output, _ = programs.run(one_mail(peer, "ValidFor = 0.5"))
        assert output[-3] == "false false true 20 true 0", output
        assert "ValidFor" in output[-2], output
        assert programs.rows("state, in_transfer") == [(3, 0)], programs.rows("state, in_transfer")


def an_attachment_that_cannot_be_taken_over_is_an_error(programs):
    fifo = programs.folder + "/fifo"
    os.mkfifo(fifo)
    with SmtpPeer() as peer:
        for path in fifo, "/dev/zero", programs.folder, "/proc/self/status", programs.folder + "/nothing":
            output, _ = programs.run(one_mail(peer, f'Attachments = "{path}"'))
            assert output[-3] == "false false true 15 false 0", output
            assert path in output[-2], output
        assert peer.connections == 0 and programs.rows("id") == []


def a_key_is_sent_once(programs):
    with SmtpPeer() as peer:
        for _ in range(2):
            output, _ = programs.run(one_mail(peer, 'Key = "heartbeat"'))
            assert " true false 0 " in output[-3], output
        assert len(peer.mails) == 1, peer.mails


def inputs_that_cannot_work_are_errors_at_once(programs):
    bad = {
        'Server = ""': 10, 'Server = "a b"': 10, 'Server = "x\\r\\ny"': 10, "Port = -1": 10, "Port = 70000": 10,
        'Security = "ssl"': 10, 'User = "a\\nb"': 10, 'User = "a\\0b"': 10, 'User = ("x"):rep(1000000)': 10,
        'CaFile = "a\\0b"': 10, "ValidFor = -1": 10, "Timeout = 0/0": 10, "ValidFor = 1/0": 10, 'Key = "a\\nb"': 10,
        'From = ""': 11, 'From = "nobody"': 11, 'From = "a@b.example, c@d.example"': 11, 'To = ""': 11,
        'To = "a@plant.example\\r\\nRCPT TO:<x@y.example>"': 11, 'Cc = "a@"': 11, 'Bcc = ("x"):rep(1000000)': 11,
        'ReplyTo = "\\255@plant.example"': 11, 'Subject = "a\\0b"': 12, 'Subject = "\\255"': 12,
        'Subject = ("x"):rep(1000000)': 12, 'Text = "\\237\\160\\128"': 12, 'Html = "a\\0"': 12,
        'Subject = "", Text = ""': 12, 'Attachments = "a\\0b"': 15,
    }
    checks = "\n".join(f"check(function(m) {'; '.join('m.' + part.strip() for part in split(inputs))} end, {error})"
                       for inputs, error in bad.items())
    with SmtpPeer() as peer:
        output, _ = programs.run(BAD_INPUTS.replace("INPUTS", account(peer)).replace("CHECKS", checks))
        assert output[-1] == f"{len(bad)} checked", output
        assert peer.connections == 0 and programs.rows("id") == []


def split(inputs):
    """Assignments that are separated by a comma and a blank before a name."""
    return inputs.split(", ") if inputs.startswith("Subject = \"\", ") else [inputs]


BAD_INPUTS = """
local count = 0
local function check(change, wanted)
  local m = MAIL_OUTBOX.new { INPUTS From = "pump3@plant.example", To = "a@plant.example", Subject = "s", Text = "t" }
  change(m)
  m.Execute = true
  m()
  assert(m.Error and not m.Busy and m.ErrorId == wanted, wanted .. " expected: " .. m.ErrorId .. " " .. m.ErrorText)
  assert(#m.ErrorText > 10 and #m.ErrorText < 2000 and not m.ErrorText:find("%c"), m.ErrorText)
  count = count + 1
end
function cycle()
  CHECKS
  print(count .. " checked")
  plc.stop()
end
"""


def texts_with_line_breaks_inject_nothing(programs):
    with SmtpPeer() as peer:
        programs.run(one_mail(peer, 'Subject = "a\\r\\nBcc: x@y.example\\r\\n\\r\\nbody", '
                              'Text = ".\\r\\nRCPT TO:<x@y.example>\\n\\r..\\r\\n.\\r\\n"'))
        [(_, recipients, mail)] = peer.mails
        message = email.message_from_bytes(mail, policy=email.policy.default)
        assert recipients == ["a@plant.example"] and message["Bcc"] is None, mail
        assert message["Subject"].startswith("a") and "x@y.example" in message["Subject"], mail


def a_mail_can_be_listed_shown_and_cancelled(programs):
    with SmtpPeer() as peer:
        port = peer.port
    gone = type("Gone", (), {"port": port})
    process = programs.start(one_mail(gone))
    wait_until(lambda: programs.rows("attempts") == [(1,)], "an attempt")
    assert f"127.0.0.1:{port}" in programs.messages().stdout, programs.messages().stdout
    shown = json.loads(programs.messages("show", "1", "--json").stdout)
    assert "s3cret" not in str(shown) and "Tank 2" in str(shown), shown
    wait_until(lambda: programs.messages("cancel", "1").stdout == "cancelled\n", "the answer")
    output, _ = programs.finish(process)
    assert output[-3].startswith("false false true 21") and "cancelled" in output[-2], output


for test in (
        a_mail_arrives_as_it_was_written, ten_mails_need_one_connection_and_one_login,
        one_refused_recipient_does_not_stop_the_others, a_recipient_refused_for_now_is_tried_again_alone,
        a_mail_refused_for_good_has_the_servers_words, other_credentials_are_tried_at_once,
        after_a_restart_a_mail_without_a_user_needs_no_block, after_a_restart_any_call_brings_the_password,
        a_mail_that_a_silent_server_holds_expires_all_the_same, an_attachment_that_cannot_be_taken_over_is_an_error,
        a_key_is_sent_once, inputs_that_cannot_work_are_errors_at_once, texts_with_line_breaks_inject_nothing,
        a_mail_can_be_listed_shown_and_cancelled):
    with tempfile.TemporaryDirectory(prefix="corvane_") as folder:
        print(test.__name__, flush=True)
        test(Programs(corvane, [addin], folder))
