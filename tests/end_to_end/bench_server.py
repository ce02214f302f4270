#!/usr/bin/python3
# SPDX-License-Identifier: MIT
"""bench_server.py CORVANE: what `corvane run --web` and the Unix socket of a program serve, and whom they refuse."""
import json
import os
import re
import socket
import stat
import subprocess
import sys
import tempfile

from bench_client import Closed, Program, WebSocket, connect, raw_request, request, wait_for
from simulated_modem import SimulatedModem

corvane = sys.argv[1]
PAGE = os.path.join(os.path.dirname(__file__), "../../docs/bench.md")
PLAIN = "function cycle() end"
TOKEN = "0123456789abcdef/+="


def run(*arguments, environment=None):
    """What a program that ends at once says: its status, and standard error."""
    with tempfile.TemporaryDirectory() as folder:
        path = folder + "/program.lua"
        with open(path, "w", encoding="utf-8") as file:
            file.write("function cycle() plc.stop() end")
        variables = {"PATH": os.environ["PATH"], "HOME": folder, **(environment or {})}
        result = subprocess.run([corvane, "run", path, "--cycle", "1ms", *arguments], env=variables,
                                capture_output=True, text=True, timeout=60, check=False)
        return result.returncode, result.stderr


def refused_with(words, *arguments):
    status, err = run(*arguments)
    assert status == 2, (status, err)
    assert words in err and err.count("\n") <= 2, err


def the_greeting_tells_program_and_protocol():
    with Program(corvane, PLAIN) as program:
        for where in (program.port, program.socket):
            with WebSocket(where) as client:
                hello = client.receive()
                assert client.status == 101
                assert (hello["type"], hello["protocol"], hello["name"]) == ("hello", 1, "program"), hello
                assert (hello["pid"], hello["cycle"], hello["write"]) == (program.process.pid, 0.01, False), hello
        assert program.end() == 0


def the_log_is_complete_first_and_then_continues():
    with Program(corvane, "function cycle() if plc.cycle % 20 == 0 then plc.log('line ' .. plc.cycle) end end") as program:
        with WebSocket(program.port) as client:
            client.send(type="subscribe", topics=["log"])
            first = client.expect("log")
            assert any("bench: http://" in line["text"] for line in first["lines"]), first
            numbers = [line["text"] for line in first["lines"]]
            while len(numbers) < 10:
                numbers += [line["text"] for line in client.expect("log")["lines"]]
            numbers = [int(text.split()[1]) for text in numbers if text.startswith("line ")]
            assert numbers == list(range(numbers[0], numbers[-1] + 1, 20)), numbers


def writing_needs_leave_or_the_unix_socket():
    with Program(corvane, PLAIN) as program:
        with WebSocket(program.port) as client:
            result = client.ask(1, type="log-level", level="debug")
            assert not result["ok"] and "--web-write" in result["error"], result
        with WebSocket(program.socket) as client:
            assert client.ask(2, type="log-level", level="debug")["ok"]
            assert client.ask(3, type="log-level", level="loud") == {
                "type": "result", "request": 3, "ok": False,
                "error": "'loud' is not one of trace, debug, info, warning, error, off"}
        who = f"bench: user {os.getuid()}, process {os.getpid()} sets the log level to debug"
        wait_for(lambda: who in program.log(), who)
    with Program(corvane, PLAIN, "--web-write") as program:
        with WebSocket(program.port) as client, WebSocket(program.port) as other:
            assert client.receive()["write"] is True
            assert client.ask(1, type="log-level", level="error")["ok"]
            other.expect("hello", lambda hello: hello["level"] == "error")


TREE = """
level = 1.5
big = ("x"):rep(40000)
local timer = TON.new { PT = 2 }
local settings = { Password = "s3cret-word", limits = { low = 1 } }
function cycle()
  timer()
  level = level + 1
  if settings.limits.low == 9 then plc.log("the limit is nine") settings.limits.low = 1 end
end
"""


def variables_are_shown_and_written():
    with Program(corvane, TREE) as program:
        with WebSocket(program.port) as client, WebSocket(program.socket) as local:
            client.send(type="subscribe", topics=["variables", "cycle"])
            nodes = {}
            values = {}

            def complete(message):
                nodes.update({node["name"]: node for node in message["add"]})
                values.update(dict(message["set"]))
                return {"level", "big", "timer", "PT", "low", "Password"} <= set(nodes)

            client.expect("variables", complete)
            assert (nodes["timer"]["kind"], nodes["timer"]["type"], nodes["PT"]["direction"]) == ("block", "TON", "input")
            assert nodes["PT"]["parent"] == nodes["timer"]["id"] and values[nodes["PT"]["id"]] == 2, values
            assert nodes["Password"]["secret"] and values.get(nodes["Password"]["id"]) is None, values
            assert values[nodes["big"]["id"]] == {"text": "x" * 4096, "length": 40000}
            level = nodes["level"]["id"]
            before = dict(client.expect("variables", lambda m: level in dict(m["set"]))["set"])[level]
            client.expect("variables", lambda m: dict(m["set"]).get(level, 0) > before)
            client.expect("cycle", lambda m: m["count"] > 0 and sum(n for _, n in m["histogram"]) == m["count"])
            client.send(type="get", request=1, id=nodes["big"]["id"])
            client.expect("variables", lambda m: dict(m["set"]).get(nodes["big"]["id"]) == "x" * 40000)
            low = nodes["low"]["id"]
            assert "--web-write" in client.ask(2, type="write", id=low, value=9)["error"]
            assert not local.ask(3, type="write", id=low, value="text")["ok"]
            assert not local.ask(4, type="write", id=nodes["Password"]["id"], value="other")["ok"]
            assert local.ask(5, type="write", id=low, value=9)["ok"]
            wait_for(lambda: "the limit is nine" in program.log(), "the written value")
            wait_for(lambda: "sets settings.limits.low to 9" in program.log(), "the write in the log")
            assert "s3cret" not in program.log() and "other" not in program.log(), program.log()


OUTBOX = """
local alarm = SMS_OUTBOX.new { Port = 1, Receiver = "+15550101234", Text = "Pump 3: Насос 🚰" }
function cycle() alarm.Execute = true alarm() end
"""


def messages_of_the_store_are_shown_and_cancelled():
    with Program(corvane, OUTBOX, "--modem", "1=/dev/ttyNONE") as program:
        with WebSocket(program.port) as client, WebSocket(program.socket) as local:
            client.send(type="subscribe", topics=["messages"])
            shown = client.expect("messages", lambda message: message["total"] == 1)
            row = shown["rows"][0]
            assert shown["store"].endswith("/program/messages.db"), shown
            assert (row["kind"], row["to"], row["state"]) == ("sms", "+15550101234", "waiting"), row
            assert row["text"] == "Pump 3: Насос 🚰" and row["next"] > 1e9, row
            assert "--web-write" in client.ask(1, type="cancel", message=row["id"])["error"]
            assert local.ask(1, type="cancel", message=row["id"] + 1)["error"] == f"there is no message {row['id'] + 1}"
            assert local.ask(2, type="cancel", message=row["id"])["ok"]
            client.expect("messages", lambda message: message["rows"][0]["state"] == "cancelled")
            again = local.ask(3, type="cancel", message=row["id"])
            assert not again["ok"] and "no longer waiting" in again["error"], again
        assert f"process {os.getpid()} asks to cancel message {row['id']}" in program.log()


def the_dialogue_with_the_modem_is_shown_without_secrets():
    with SimulatedModem(corvane, "--pin", "4711") as modem:
        with Program(corvane, OUTBOX, "--modem", f"1={modem.device},init=AT+CPIN=4711") as program:
            with WebSocket(program.port) as client:
                client.send(type="subscribe", topics=["modem"])
                lines = []

                def known(message):
                    lines.extend(message["lines"])
                    assert message["port"] == "1", message
                    has_sent = any(line["sent"] and line["text"].startswith("text of ") for line in lines)
                    return (has_sent and message["signal"] is not None and message["operator"]
                            and message["registration"] == "home")

                shown = client.expect("modem", known)
                assert -113 <= shown["signal"] <= -51, shown
                sent = [line["text"] for line in lines if line["sent"]]
                assert any(text.startswith("AT+CMGS=") for text in sent), sent
                assert any("(secret)" in text for text in sent), sent
                assert any(line["text"].startswith("+CSQ: ") for line in lines if not line["sent"]), lines
                assert "4711" not in str(lines), lines
                # Whoever comes later sees the same.
                with WebSocket(program.port) as later:
                    later.send(type="subscribe", topics=["modem"])
                    first = later.expect("modem")
                    assert first["lines"][:len(lines)] == lines, first


SECRET = "s3cr3t-w0rd"
PIN = "40719258"
SECRETS = f"""
SmtpPassword = "{SECRET}"
API_TOKEN = "{SECRET}"
plain = "not a secret"
local user_token = "{SECRET}"
settings = {{ Password = "{SECRET}", nested = {{ {{ apiToken = "{SECRET}" }}, deep = {{ SIM_PIN = "{SECRET}" }} }},
             secrets = {{ "{SECRET}", mail = "{SECRET}" }} }}
local kept = plc.retain("kept", {{ password = "{SECRET}", list = {{ {{ token = "{SECRET}" }} }} }})
mail = SEND_EMAIL.new {{ Password = "{SECRET}" }}
local box = MAIL_OUTBOX.new {{ Server = "127.0.0.1", User = "user", Password = "{SECRET}", To = "a@example.com",
                              From = "b@example.com", Subject = "x", Text = "y" }}
function cycle()
  box.Execute = true
  box()
  user_token = user_token .. ""
  kept.count = plc.cycle
end
"""


def no_secret_leaves_the_program():
    with SimulatedModem(corvane, "--pin", PIN) as modem:
        with Program(corvane, SECRETS, "--web-write", "--modem", f"1={modem.device},init=AT+CPIN={PIN}") as program:
            received = []
            with WebSocket(program.port) as client:
                client.send(type="subscribe", topics=["variables", "cycle", "modem", "messages", "log"])
                nodes = {}

                def take(message):
                    received.append(json.dumps(message))
                    nodes.update({node["id"]: node for node in message.get("add", [])})

                def complete():
                    seen = "".join(received)
                    return ({"apiToken", "SIM_PIN", "user_token", "password", "plain"} <= {n["name"] for n in nodes.values()}
                            and all(f'"type": "{kind}"' in seen for kind in ("modem", "log", "messages", "cycle"))
                            and "AT+CPIN=" in seen and "a@example.com" in seen)

                while not complete():
                    take(client.receive())
                for number, node in enumerate(list(nodes), 1):
                    for message in ({"type": "get"}, {"type": "write", "value": "other"}):
                        if message["type"] == "write" and not nodes[node].get("secret"):
                            continue
                        client.send(request=number, id=node, **message)
                        while received[-1:] == [] or not received[-1].startswith(f'{{"type": "result", "request": {number},'):
                            take(client.receive())
                        received.append("")
            received.append(request(program.port, "/metrics").body.decode())
            hidden = {node["name"] for node in nodes.values() if node.get("secret")}
            assert hidden >= {"SmtpPassword", "API_TOKEN", "user_token", "Password", "apiToken", "SIM_PIN", "secrets",
                              "password", "token"}, hidden
            everything = "\n".join(received) + program.log()
            assert "not a secret" in everything and "plain" in everything
            assert SECRET not in everything and not re.search(rf"(?<![\d.]){PIN}(?!\d)", everything), everything


def prometheus_accepts_the_metrics():
    with SimulatedModem(corvane) as modem:
        with Program(corvane, OUTBOX, "--modem", f"1={modem.device}") as program:
            def metrics():
                answer = request(program.port, "/metrics")
                assert answer.headers["content-type"].startswith("text/plain; version=0.0.4"), answer.headers
                return answer.body.decode()

            wanted = ('corvane_modem_signal_dbm{port="1"} -', 'corvane_modem_registered{port="1"} 1',
                      'corvane_messages_ended_total{channel="sms",result="sent"} 1')
            text = wait_for(lambda: next((t for t in [metrics()] if all(line in t for line in wanted)), None), str(wanted))
            cycles = float(re.search(r"^corvane_cycles_total (\d+)$", text, re.M)[1])
            assert cycles > 0
            assert 'corvane_blocks{type="SMS_OUTBOX"} 1' in text, text
            page = open(PAGE, encoding="utf-8").read()
            documented = set(re.findall(r"`(corvane_[a-z_]+)[{`]", page))
            assert set(re.findall(r"^# TYPE (\S+)", text, re.M)) == documented, (documented, text)

            def complaints(metrics_text):
                check = subprocess.run(["promtool", "check", "metrics"], input=metrics_text, capture_output=True,
                                       text=True, check=False)
                return f"{check.returncode or ''}{check.stdout}{check.stderr}"

            assert not complaints(text), (complaints(text), text)
            assert complaints(text.replace("_total", "")) and complaints(text + "corvane_blocks 1 2 3\n")
            assert 'corvane_outbox_waiting{channel="sms"} 0' in text, text


def health_ends_with_the_cycles():
    with Program(corvane, "function cycle() if plc.cycle == 5 then os.execute('sleep 8') end end") as program:
        wait_for(lambda: request(program.port, "/healthz").status == 503, "a cycle that hangs")
        answer = request(program.port, "/healthz")
        assert answer.body.startswith(b"no cycle has ended for "), answer.body
        wait_for(lambda: request(program.port, "/healthz").status == 200, "the next cycle")


def a_program_without_a_store_has_no_messages():
    with Program(corvane, PLAIN) as program:
        with WebSocket(program.socket) as client:
            client.send(type="subscribe", topics=["messages"])
            assert client.expect("messages")["rows"] == []
            assert client.ask(1, type="retry", message=1)["error"] == "the program has no store of messages"


def wrong_messages_get_an_answer_and_do_not_end_the_connection():
    with Program(corvane, PLAIN) as program:
        with WebSocket(program.port) as client:
            client.receive()
            for text in (b"", b"null", b"[]", b"{", b'{"type":1}', b'{"type":"dance"}', b"[" * 60000,
                         b'{"type":"subscribe","topics":["weather"]}', b'{"type":"get","id":-1}'):
                client.send_frame(1, text)
                result = client.expect("result")
                assert not result["ok"] and result["request"] is None and result["error"], (text, result)
            assert client.ask(7, type="subscribe", topics=["log"])["ok"]


def hostile_web_sockets_are_disconnected():
    with Program(corvane, PLAIN) as program:
        def is_closed(send):
            with WebSocket(program.port) as client:
                client.receive()
                try:
                    send(client)
                    while True:
                        client.receive()
                except (Closed, ConnectionError):
                    return True

        assert is_closed(lambda client: client.send_frame(1, b" " * 65537))  # too long
        assert is_closed(lambda client: client.send_frame(1, b"\xff\xfe"))  # not UTF-8
        assert is_closed(lambda client: client.send_frame(3, b""))  # no such opcode
        assert is_closed(lambda client: client.send_frame(0, b"x"))  # continues nothing
        assert is_closed(lambda client: client.connection.sendall(b"\x81\x05hello"))  # not masked
        assert is_closed(lambda client: client.connection.sendall(b"\x81\xff" + b"\xff" * 12))  # huge
        assert request(program.port, "/healthz").status == 200


def other_names_and_other_pages_are_refused():
    with Program(corvane, PLAIN) as program:
        port = program.port
        for host in ("evil.example", f"evil.example:{port}", "127.0.0.1.evil.example", "", "[::1", "localhost:1:2"):
            assert request(port, "/", Host=host).status == 421, host
            assert WebSocket(port, Host=host).status == 421, host
        assert raw_request(port, b"GET / HTTP/1.0\r\n\r\n").status == 421
        for host in (f"localhost:{port}", "127.0.0.1", f"[::1]:{port}", socket.gethostname(), "192.168.1.1"):
            assert request(port, "/healthz", Host=host).status == 200, host
        for origin in ("http://evil.example", f"http://127.0.0.1:{port + 1}", "null", f"https://evil.example:{port}"):
            assert WebSocket(port, Origin=origin).status == 403, origin
            assert request(port, "/metrics", Origin=origin).status == 403, origin
        assert WebSocket(port, Origin=f"http://127.0.0.1:{port}").status == 101


def every_answer_has_the_safeguards():
    with Program(corvane, PLAIN) as program:
        for target, status in (("/healthz", 200), ("/metrics", 200), ("/none", 404)):
            answer = request(program.port, target)
            assert answer.status == status, (target, answer.status)
            policy = answer.headers["content-security-policy"]
            assert "default-src 'none'" in policy and "unsafe" not in policy, policy
            assert answer.headers["x-content-type-options"] == "nosniff"
            assert answer.headers["x-frame-options"] == "DENY"
        assert request(program.port, "/", method="POST").status == 405
        assert request(program.port, "/../../etc/passwd").status == 404
        assert request(program.port, "/healthz", method="HEAD").body == b""


def broken_http_ends_the_connection_only():
    with Program(corvane, PLAIN) as program:
        for octets in (b"\0\1\2\r\n\r\n", b"GET\r\n\r\n", b"GET / HTTP/9.9\r\n\r\n", b"GET /" + b"x" * 20000,
                       b"GET / HTTP/1.1\r\n" + b"A: b\r\n" * 5000, b"GET / HTTP/1.1\r\nContent-Length: -1\r\n\r\n",
                       b"POST / HTTP/1.1\r\nHost: localhost\r\nContent-Length: 99999999\r\n\r\n" + b"x" * 70000):
            try:
                answer = raw_request(program.port, octets)
                assert answer is None or answer.status >= 400, octets[:40]
            except ConnectionError:
                pass
        assert request(program.port, "/healthz").status == 200


def idle_connections_do_not_keep_others_out():
    with Program(corvane, PLAIN) as program:
        idle = [connect(program.port) for _ in range(80)]
        # Those that ask for nothing are disconnected.
        def answered():
            try:
                return request(program.port, "/healthz").status == 200
            except (ConnectionError, AttributeError):
                return False

        wait_for(answered, "an answer beside idle connections", 30)
        assert request(program.socket, "/healthz").status == 200
        for connection in idle:
            connection.close()


def a_client_that_reads_nothing_is_disconnected_and_holds_up_no_cycle():
    text = "function cycle() for i = 1, 200 do plc.log(('x'):rep(3000)) end end"
    with Program(corvane, text, cycle="100ms") as program:
        with WebSocket(program.port) as stalled, WebSocket(program.socket) as other:
            stalled.send(type="subscribe", topics=["log"])
            other.send(type="subscribe", topics=["cycle"])
            wait_for(lambda: "reads too slowly and was disconnected" in program.log(), "the end of a stalled client", 60)
            counts = [other.expect("cycle")["count"] for _ in range(3)]
            assert counts[0] < counts[-1], counts
            assert request(program.port, "/healthz").status == 200


def sixteen_clients_and_no_more():
    with Program(corvane, PLAIN) as program:
        clients = [WebSocket(program.port) for _ in range(16)]
        assert all(client.status == 101 for client in clients)
        assert WebSocket(program.port).status == 503
        assert b"too many clients" in request(program.port, "/ws").body
        assert WebSocket(program.socket).status == 101  # those on the machine are counted apart
        clients.pop().close()
        wait_for(lambda: WebSocket(program.port).status == 101, "room for a client")
        assert request(program.port, "/ws").status == 426


def the_token_opens_the_page():
    with tempfile.TemporaryDirectory() as folder:
        file = folder + "/token"
        with open(os.open(file, os.O_WRONLY | os.O_CREAT, 0o600), "w", encoding="ascii") as token:
            token.write(TOKEN + "\n")
        with Program(corvane, PLAIN, "--web-token-file", file, web=("--web", "0.0.0.0:0")) as program:
            port = program.port
            assert request(port, "/healthz").status == 401
            assert WebSocket(port).status == 401
            for wrong in ("Bearer x", "Bearer " + TOKEN[:-1], "Bearer " + TOKEN + "=", "Basic " + TOKEN):
                assert request(port, "/healthz", Authorization=wrong).status == 401, wrong
            assert request(port, "/healthz", Authorization="Bearer " + TOKEN).status == 200
            answer = request(port, "/?token=0123456789abcdef%2F%2b%3D")
            assert (answer.status, answer.headers["location"]) == (303, "/")
            cookie = answer.headers["set-cookie"]
            assert "HttpOnly" in cookie and "SameSite=Lax" in cookie, cookie
            assert request(port, "/healthz", Cookie="a=b; " + cookie.split(";")[0]).status == 200
            assert request(port, "//evil.example/?token=" + TOKEN).headers["location"] == "/"
            assert WebSocket(port, path="/ws?token=" + TOKEN).status == 101
            assert WebSocket(program.socket).status == 101
            assert TOKEN not in program.log()


def bad_options_are_errors():
    refused_with("'80x' is not an address", "--web", "80x")
    refused_with("'999999' is not an address", "--web", "999999")
    refused_with("'::1:80' is not an address", "--web", "::1:80")
    refused_with("other machines reach 0.0.0.0:0: --web needs --web-token-file", "--web", "0.0.0.0:0")
    refused_with("are of use with --web PORT only", "--web-write")
    refused_with("it is not an address of this machine", "--web", "203.0.113.7:0", "--web-token-file", own_token(0o600))
    with socket.create_server(("127.0.0.1", 0)) as used:
        port = used.getsockname()[1]
        refused_with(f"cannot listen on 127.0.0.1:{port}: Address already in use; another program uses it",
                     "--web", str(port))


def own_token(mode, content=TOKEN):
    path = tempfile.mkstemp(dir=scratch.name)[1]
    with open(path, "w", encoding="ascii") as file:
        file.write(content)
    os.chmod(path, mode)
    return path


def bad_token_files_are_errors():
    def refused(words, path):
        refused_with(words, "--web", "0", "--web-token-file", path)

    refused("can be read or changed by others; chmod 600", own_token(0o604))
    refused("can be read or changed by others; chmod 600", own_token(0o620))
    refused("No such file or directory", "/no/such/file")
    refused("is not a file", scratch.name)
    for content in ("", "short", "x" * 300, "two lines of text\nare too many", "umlaut and space: x"):
        refused("must have one line of 16 to 256", own_token(0o600, content))
    pipe = scratch.name + "/pipe"
    os.mkfifo(pipe, 0o600)
    refused("is not a file", pipe)


def the_unix_socket_is_for_owner_and_group_and_goes_with_the_program():
    with Program(corvane, PLAIN, web=()) as program:
        assert stat.S_IMODE(os.stat(program.socket).st_mode) == 0o660
        assert stat.S_IMODE(os.stat(program.sockets).st_mode) == 0o700
        program.process.kill()
        program.process.wait()
        assert os.path.exists(program.socket)  # it stays, and does not disturb the next start
        with Program(corvane, PLAIN, web=(), sockets=program.sockets) as again:
            wait_for(lambda: request_or_none(program.socket), "the new program")
            again.end()
        assert not os.path.exists(program.socket)


def request_or_none(where):
    try:
        return request(where, "/healthz")
    except ConnectionError:
        return None


def a_second_program_of_the_same_name_has_a_socket_of_its_own():
    with Program(corvane, PLAIN, web=()) as first:
        with Program(corvane, PLAIN, web=(), sockets=first.sockets) as second:
            path = f"{first.sockets}/program-{second.process.pid}.sock"
            wait_for(lambda: os.path.exists(path), "the second socket")
            with WebSocket(path) as client:
                assert client.receive()["pid"] == second.process.pid
        assert request(first.socket, "/healthz").status == 200


def without_a_folder_the_program_runs_on():
    status, err = run()
    assert status == 0 and "corvane watch" not in err, err
    status, err = run("--log-level", "debug")
    assert status == 0, err
    assert err.count("corvane watch cannot show this program: neither RUNTIME_DIRECTORY nor XDG_RUNTIME_DIR") == 1, err
    status, err = run(environment={"RUNTIME_DIRECTORY": "/proc/none"})
    assert status == 0 and err.count("corvane watch cannot show this program") == 1, err
    status, err = run(environment={"RUNTIME_DIRECTORY": scratch.name + "/" + "x" * 120})
    assert status == 0 and err.count("File name too long") == 1, err


scratch = tempfile.TemporaryDirectory()
TESTS = [the_greeting_tells_program_and_protocol, the_log_is_complete_first_and_then_continues,
         writing_needs_leave_or_the_unix_socket, variables_are_shown_and_written, messages_of_the_store_are_shown_and_cancelled,
         the_dialogue_with_the_modem_is_shown_without_secrets, no_secret_leaves_the_program, prometheus_accepts_the_metrics,
         health_ends_with_the_cycles, a_program_without_a_store_has_no_messages, wrong_messages_get_an_answer_and_do_not_end_the_connection,
         hostile_web_sockets_are_disconnected, other_names_and_other_pages_are_refused,
         every_answer_has_the_safeguards, broken_http_ends_the_connection_only,
         idle_connections_do_not_keep_others_out,
         a_client_that_reads_nothing_is_disconnected_and_holds_up_no_cycle, sixteen_clients_and_no_more, the_token_opens_the_page,
         bad_options_are_errors, bad_token_files_are_errors,
         the_unix_socket_is_for_owner_and_group_and_goes_with_the_program,
         a_second_program_of_the_same_name_has_a_socket_of_its_own, without_a_folder_the_program_runs_on]
chosen = sys.argv[2:]
for test in TESTS:
    if not chosen or test.__name__ in chosen:
        test()
        print(test.__name__.replace("_", " "), flush=True)
scratch.cleanup()
