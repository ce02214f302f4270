#!/usr/bin/python3
# SPDX-License-Identifier: MIT
"""report.py BUILD: runs the benchmarks and prints one table, ours beside the peer of the same run."""
import json
import os
import re
import resource
import subprocess
import sys
import tempfile

build = sys.argv[1]
REPETITIONS = 7
rows = []


def run(program, *options):
    """The benchmark's results: name to list of (real time in ns, counters)."""
    command = [f"{build}/benchmarks/{program}", "--benchmark_format=json", *options]
    output = subprocess.run(command, check=True, capture_output=True, text=True).stdout
    results = {}
    for entry in json.loads(output)["benchmarks"]:
        if entry.get("run_type") != "aggregate":
            results.setdefault(entry["run_name"], []).append(entry)
    return results


def median(values):
    return sorted(values)[len(values) // 2]


def compare(results, what, ours, peer, goal):
    """A row with the ratio of two benchmarks, repetition by repetition, and its spread."""
    ratios = [a["real_time"] / b["real_time"] for a, b in zip(results[ours], results[peer])]
    per_second = median([entry["items_per_second"] for entry in results[ours]])
    rows.append((what, f"{1e9 / per_second:.0f} ns",
                 f"{median(ratios):.2f} times the peer ({min(ratios):.2f} to {max(ratios):.2f})",
                 f"at most {goal} times", median(ratios) <= goal))


def blocks():
    results = run("block_benchmark", f"--benchmark_repetitions={REPETITIONS}",
                  "--benchmark_enable_random_interleaving=true", "--benchmark_filter=Operation")
    for operation in ("read", "write", "call"):
        compare(results, f"field {operation}" if operation != "call" else "block call",
                f"Operation/{operation}_ours", f"Operation/{operation}_peer", 1.5)
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


def e_mail():
    results = run("smtp_benchmark", f"--benchmark_repetitions={REPETITIONS}",
                  "--benchmark_enable_random_interleaving=true", "--benchmark_filter=Base64|Mail")
    for what, name, size in (("Base64 of 54 bytes, beside EVP_EncodeBlock", "Base64", "/54"),
                             ("Base64 of 1 MB, beside EVP_EncodeBlock", "Base64", "/1048576"),
                             ("small e-mail, beside libcurl", "Mail", "/0/real_time"),
                             ("e-mail with 5 MB, beside libcurl", "Mail", "/5242880/real_time")):
        compare(results, what, f"{name}/ours{size}", f"{name}/peer{size}", 1.0)
    growth = run("smtp_benchmark", "--benchmark_filter=Memory")["Memory/iterations:1"][0]["bytes_of_growth"]
    rows.append(("resident memory while 5 MB are sent", f"{growth:.0f} bytes", "", "below 256 KiB", growth < 262144))


def empty_cycle():
    """CPU time and lateness of an empty cycle every millisecond, over ten seconds."""
    with tempfile.TemporaryDirectory() as folder:
        path = os.path.join(folder, "empty.lua")
        with open(path, "w", encoding="utf-8") as file:
            file.write("function cycle() end\n")
        before = resource.getrusage(resource.RUSAGE_CHILDREN)
        result = subprocess.run([f"{build}/bin/corvane", "run", path, "--cycle", "1ms", "--cycles", "10000"],
                                check=True, capture_output=True, text=True)
        after = resource.getrusage(resource.RUSAGE_CHILDREN)
    used = after.ru_utime + after.ru_stime - before.ru_utime - before.ru_stime
    share = used / 10
    late = re.search(r"started late p99 (\S+) max (\S+)", result.stderr)
    rows.append(("empty cycle every 1 ms", f"{share:.1%} of a core", f"started late: p99 {late[1]}, at most {late[2]}",
                 "below 3 %", share < 0.03))


blocks()
e_mail()
empty_cycle()
print("| What | Ours | Beside | Goal | |")
print("|---|---|---|---|---|")
for what, ours, beside, goal, met in rows:
    print(f"| {what} | {ours} | {beside} | {goal} | {'' if met is None else 'met' if met else 'MISSED'} |")
