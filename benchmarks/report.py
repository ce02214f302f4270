#!/usr/bin/python3
# SPDX-License-Identifier: MIT
"""report.py BUILD: runs the benchmarks, prints one table that compares ours with the peer in the same run, and
writes it into docs/performance.md."""
import datetime
import json
import os
import pathlib
import platform
import re
import resource
import subprocess
import sys
import tempfile
import time

build = sys.argv[1]
project = pathlib.Path(__file__).parent.parent
REPETITIONS = 7
rows = []


def run(program, *options, **environment):
    """The benchmark's results: a list of entries for each name."""
    with tempfile.NamedTemporaryFile() as file:
        command = [f"{build}/benchmarks/{program}", f"--benchmark_out={file.name}", "--benchmark_out_format=json"]
        subprocess.run([*command, *options], check=True, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL,
                       env={**os.environ, **environment})
        entries = json.load(file)["benchmarks"]
    results = {}
    for entry in entries:
        if entry.get("run_type") != "aggregate":
            results.setdefault(entry["run_name"], []).append(entry)
    return results


def median(values):
    return sorted(values)[len(values) // 2]


def time_text(seconds):
    for factor, unit in ((1e3, "ms"), (1e6, "us")):
        if seconds * factor >= 1:
            return f"{seconds * factor:.3g} {unit}"
    return f"{seconds * 1e9:.3g} ns"


def compare(results, what, ours, peer, goal):
    """Adds a row with the ratio of two benchmarks, repetition by repetition, and its range."""
    ratios = [a["real_time"] / b["real_time"] for a, b in zip(results[ours], results[peer])]
    per_second = median([entry["items_per_second"] for entry in results[ours]])
    rows.append((what, time_text(1 / per_second),
                 f"{median(ratios):.2f} times the peer ({min(ratios):.2f} to {max(ratios):.2f})",
                 f"at most {goal} times", median(ratios) <= goal))


def blocks():
    results = run("block_benchmark", f"--benchmark_repetitions={REPETITIONS}",
                  "--benchmark_enable_random_interleaving=true", "--benchmark_filter=Operation")
    for operation in ("read", "write", "call"):
        compare(results, f"field {operation}" if operation != "call" else "block call",
                f"Operation/{operation}_ours", f"Operation/{operation}_peer", 1.0)
    results = run("block_benchmark", "--benchmark_filter=MemoryPerBlock|Churn")
    for name, entries in results.items():
        if name.startswith("MemoryPerBlock"):
            block = name.split("/")[1]
            rows.append((f"memory of one {block} among 10,000", f"{entries[0]['bytes_per_block']:.0f} bytes",
                         "", "", None))
        else:
            growth = entries[0]["bytes_of_growth"]
            rows.append(("heap growth over 100,000 blocks made and collected", f"{growth:.0f} bytes", "",
                         "flat: below 64 KiB", abs(growth) < 65536))


def sms_codec():
    results = run("sms_codec_benchmark", f"--benchmark_repetitions={REPETITIONS}",
                  "--benchmark_enable_random_interleaving=true")
    for operation in ("decode", "encode"):
        compare(results, f"SMS {operation}d", f"Codec/{operation}_ours", f"Codec/{operation}_peer", 0.2)
        compare(results, f"SMS {operation}d by the field blocks' codec", f"Codec/{operation}_standard",
                f"Codec/{operation}_peer", 0.2)
    per_message = {entries: median([1e9 / entry["items_per_second"] for entry in results[f"ParseList/{entries}"]])
                   for entries in (255, 2550)}
    ratio = per_message[2550] / per_message[255]
    rows.append(("reading one message of a list of 255", time_text(per_message[255] / 1e9),
                 f"{ratio:.2f} times as much in a list of 2550", "at most 1.5 times", ratio <= 1.5))


def modem_driver():
    results = {name.split("/")[0]: entries[0] for name, entries in run("modem_driver_benchmark").items()}
    for name, what in (("Pass", "a pass over 30 messages"), ("Message", "sending a message")):
        taken = 1000 / results[name]["items_per_second"]
        rows.append((f"modem exchange in {what}, above the wire time", f"{taken:.2f} ms", "", "below 5 ms", taken < 5))
    share = results["Idle"]["percent_of_a_core"]
    rows.append(("idle modem port driver", f"{share:.2f} % of a core", "", "below 0.5 %", share < 0.5))


SENDER = """
local sender = SEND_SMS.new { Port = 1, Receiver = "4915112345678", Message = "Pump 3 has stopped" }
local queued = 0
function cycle()
  sender.Send = queued < MESSAGES and plc.cycle % 2 == 0
  if sender.Send then queued = queued + 1 end
  sender()
  if queued == MESSAGES and not sender.Send and sender.State == 1 and sender.Queue == 0 then plc.stop() end
end
"""


def messages_per_minute(folder, messages, *client):
    """How fast a client sends to a simulated modem without delay, including its start-up time."""
    link = folder + "/modem"
    modem = subprocess.Popen([f"{build}/bin/corvane", "modem", "--link", link], stdout=subprocess.PIPE,
                             stdin=subprocess.DEVNULL, text=True)
    try:
        assert modem.stdout.readline().startswith("ready")
        start = time.monotonic()
        subprocess.run(client, check=True, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
        elapsed = time.monotonic() - start
    finally:
        modem.terminate()
    sent = modem.communicate()[0].count("sent to ")
    assert sent == messages, (client, sent)
    return 60 * messages / elapsed


def sending():
    with tempfile.TemporaryDirectory() as folder:
        with open(folder + "/sender.lua", "w", encoding="utf-8") as file:
            file.write(SENDER.replace("MESSAGES", "100"))
        with open(folder + "/gammu.conf", "w", encoding="utf-8") as file:
            file.write(f"[gammu]\ndevice = {folder}/modem\nconnection = at\nmodel = at\n")
        with open(folder + "/batch", "w", encoding="utf-8") as file:
            file.write('sendsms TEXT +4915112345678 -text "Pump 3 has stopped"\n' * 10)
        ours, ratios = [], []
        for _ in range(3):
            ours.append(messages_per_minute(folder, 100, f"{build}/bin/corvane", "run", folder + "/sender.lua",
                                            "--cycle", "5ms", "--modem", f"1={folder}/modem"))
            peer = messages_per_minute(folder, 10, "gammu", "-c", folder + "/gammu.conf", "batch", folder + "/batch")
            ratios.append(ours[-1] / peer)
    rows.append(("messages sent to a simulated modem in a minute, 100 by us, 10 by gammu", f"{median(ours):.0f}",
                 f"{median(ratios):.0f} times the peer ({min(ratios):.0f} to {max(ratios):.0f})",
                 "at least 3 times", median(ratios) >= 3))


def base64():
    results = run("smtp_benchmark", f"--benchmark_repetitions={REPETITIONS}",
                  "--benchmark_enable_random_interleaving=true", "--benchmark_filter=Base64")
    for what, size in ("54 bytes", "/54"), ("1 MB", "/1048576"):
        compare(results, f"Base64 of {what}, compared with EVP_EncodeBlock", f"Base64/ours{size}", f"Base64/peer{size}",
                1.0)


def e_mail():
    with tempfile.TemporaryDirectory() as folder:
        server = subprocess.Popen(["/usr/bin/python3", project / "examples/mail_sink.py", folder],
                                  stdout=subprocess.PIPE, text=True)
        try:
            port = server.stdout.readline().removeprefix("READY ").strip()
            drain = subprocess.Popen(["cat"], stdin=server.stdout, stdout=subprocess.DEVNULL)
            results = run("smtp_benchmark", f"--benchmark_repetitions={2 * REPETITIONS}",
                          "--benchmark_enable_random_interleaving=true", "--benchmark_filter=Mail",
                          MAIL_SERVER_PORT=port)
        finally:
            server.terminate()
            server.wait()
        drain.wait()
    for what, name, size in (("small e-mail to aiosmtpd, compared with libcurl", "RealMail", 0),
                             ("e-mail with 5 MB to aiosmtpd, compared with libcurl", "RealMail", 5 << 20),
                             ("small e-mail to a server that answers at once", "Mail", 0),
                             ("e-mail with 5 MB to a server that answers at once", "Mail", 5 << 20)):
        compare(results, what, f"{name}/ours/{size}/real_time", f"{name}/peer/{size}/real_time", 1.0)
    growth = run("smtp_benchmark", "--benchmark_filter=Memory")["Memory/iterations:1"][0]["bytes_of_growth"]
    rows.append(("resident memory while 5 MB are sent", f"{growth:.0f} bytes", "", "below 256 KiB", growth < 262144))


def cpu_share(program, *options):
    """The share of a core that `corvane run` uses for a program of ten seconds, and its log."""
    with tempfile.TemporaryDirectory() as folder:
        path = os.path.join(folder, "program.lua")
        with open(path, "w", encoding="utf-8") as file:
            file.write(program)
        before = resource.getrusage(resource.RUSAGE_CHILDREN)
        result = subprocess.run([f"{build}/bin/corvane", "run", path, *options], check=True, capture_output=True,
                                text=True)
        after = resource.getrusage(resource.RUSAGE_CHILDREN)
    return (after.ru_utime + after.ru_stime - before.ru_utime - before.ru_stime) / 10, result.stderr


def empty_cycle():
    share, log = cpu_share("function cycle() end\n", "--cycle", "1ms", "--cycles", "10000")
    late = re.search(r"started late p99 (\S+) max (\S+)", log)
    rows.append(("empty cycle every 1 ms", f"{share:.1%} of a core", f"started late: p99 {late[1]}, at most {late[2]}",
                 "below 3 %", share < 0.03))


def idle_e_mail():
    program = "fb = {} for i = 1, 10 do fb[i] = SEND_EMAIL.new() end function cycle() end\n"
    share, _ = cpu_share(program, "--cycle", "10s", "--cycles", "2")
    rows.append(("ten idle SEND_EMAIL blocks", f"{share:.2%} of a core", "including start and end of the process",
                 "below 0.5 %", share < 0.005))


def write_page(table):
    """Writes the table between the two marks of the page."""
    page = project / "docs/performance.md"
    begin, end = "<!-- measured: -->\n", "<!-- :measured -->\n"
    head, rest = page.read_text(encoding="utf-8").split(begin)
    tail = rest.split(end)[1]
    machine = (f"{datetime.date.today()}, {platform.machine()}, {os.cpu_count()} cores, "
               f"load before the run {load_before:.1f}")
    page.write_text(f"{head}{begin}Measured on {machine}:\n\n{table}{end}{tail}", encoding="utf-8")


load_before = os.getloadavg()[0]
blocks()
sms_codec()
modem_driver()
sending()
base64()
e_mail()
idle_e_mail()
empty_cycle()
table = "| What | Ours | Compared | Goal | |\n|---|---|---|---|---|\n"
for what, ours, beside, goal, met in rows:
    table += f"| {what} | {ours} | {beside} | {goal} | {'' if met is None else 'met' if met else 'MISSED'} |\n"
print(table, end="")
write_page(table)
