#!/usr/bin/python3
# SPDX-License-Identifier: MIT
"""mutation.py [--sample N] [--seed S] [--folder FOLDER] FILE...: changes one token of a source at a time, builds the
test programs of the folder that mirrors it under tests/, runs them, and lists the changes that no test has noticed.

It works on a copy in build/mutation, so the sources stay as they are, and later runs build little; runs beside each
other need a folder each. Changes that do not compile do not count, nor do those that leave the programs as they were,
octet for octet. Those that nothing can notice are explained in tests/mutation_explained.txt. The exit status is 1 if
there are others, or an explanation that explains nothing any more."""
import argparse
import hashlib
import os
import pathlib
import random
import re
import resource
import shutil
import signal
import subprocess
import sys
import time

from mutants import mutants

PROJECT = pathlib.Path(__file__).resolve().parent.parent
FOLDER = PROJECT / "build/mutation"
COPY = FOLDER / "source"
BUILD = FOLDER / "build"
EXPLAINED = PROJECT / "tests/mutation_explained.txt"
OPTIONS = ["-G", "Ninja", "-DCMAKE_BUILD_TYPE=Debug", "-DCMAKE_CXX_FLAGS_DEBUG=-O0",
           "-DCMAKE_GTEST_DISCOVER_TESTS_DISCOVERY_MODE=PRE_TEST"]
if shutil.which("ld.lld"):
    OPTIONS += [f"-DCMAKE_{kind}_LINKER_FLAGS=-fuse-ld=lld" for kind in ("EXE", "SHARED", "MODULE")]
if shutil.which("ccache"):
    OPTIONS += ["-DCMAKE_CXX_COMPILER_LAUNCHER=ccache"]
PATIENCE = 10  # seconds that a test program gets beside four times what it needs without a change
LARGEST_FILE = 256 << 20  # octets; no test needs more


def copy_sources():
    """Brings the copy up to date; what has not changed keeps its time, so that it is not built again."""
    listed = subprocess.run(["git", "ls-files", "-z", "--cached", "--others", "--exclude-standard"], cwd=PROJECT,
                            check=True, capture_output=True, text=True).stdout.split("\0")
    for name in filter(None, listed):
        source, copy = PROJECT / name, COPY / name
        if not source.is_file():
            continue
        if copy.exists() and copy.read_bytes() == source.read_bytes():
            continue
        copy.parent.mkdir(parents=True, exist_ok=True)
        shutil.copy(source, copy)


def build(targets):
    """@return the output, if it fails; None if it is built"""
    result = subprocess.run(["ninja", "-j2", "-C", BUILD, *targets], capture_output=True, text=True)
    return None if result.returncode == 0 else result.stdout


def test_programs(file):
    """The test programs that have a source in the folder that mirrors that of `file`, or the nearest one above. The one
    with the file's own test comes first."""
    rules = subprocess.run(["ninja", "-C", BUILD, "-t", "targets", "all"], check=True, capture_output=True, text=True).stdout
    programs = re.findall(r"^(tests/\w+): CXX_EXECUTABLE_LINKER", rules, re.MULTILINE)
    inputs = {program: subprocess.run(["ninja", "-C", BUILD, "-t", "inputs", program], check=True, capture_output=True,
                                      text=True).stdout for program in programs}
    folder = COPY / "tests" / file.parent
    while folder != COPY / "tests":
        here = [program for program in programs if f"{folder}/" in inputs[program]]
        if here:
            return sorted(here, key=lambda program: str(own_test(file)) not in inputs[program])
        folder = folder.parent
    sys.exit(f"mutation.py: no test program has a source in tests/{file.parent}")


def own_test(file):
    return COPY / "tests" / file.parent / f"{file.stem}_test.cpp"


def own_suites(file):
    """A filter for the tests that the mirrored test file has; empty, if there are none."""
    own = own_test(file)
    text = own.read_text(encoding="utf-8") if own.exists() else ""
    suites = set(re.findall(r"^TEST(?:_F)?\((\w+),", text, re.MULTILINE))
    return ":".join(f"{suite}.*" for suite in sorted(suites))


def digest(program):
    return hashlib.sha256((BUILD / program).read_bytes()).digest()


def limit_files():
    """A change may make a program write without end."""
    resource.setrlimit(resource.RLIMIT_FSIZE, (LARGEST_FILE, LARGEST_FILE))


def passes(program, seconds, suites="*"):
    """Whether these tests of the program pass; None if they have not ended within this time."""
    command = [BUILD / program, "--gtest_brief=1", "--gtest_fail_fast", f"--gtest_filter={suites}"]
    process = subprocess.Popen(command, cwd=BUILD / "tests",
                               stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL,
                               start_new_session=True, preexec_fn=limit_files)
    try:
        return process.wait(seconds) == 0
    except subprocess.TimeoutExpired:
        return None
    finally:
        # Its group, since a test may have left children.
        try:
            os.killpg(process.pid, signal.SIGKILL)
        except ProcessLookupError:
            pass
        process.wait()


def explanations():
    """The changes that nothing can notice: (file, line as it is, change), each with the reason."""
    explained = {}
    if not EXPLAINED.exists():
        return explained
    for number, line in enumerate(EXPLAINED.read_text(encoding="utf-8").splitlines(), 1):
        if not line.strip() or line.startswith("#"):
            continue
        fields = [field.strip() for field in line.split("\t")]
        if len(fields) != 4 or not all(fields):
            sys.exit(f"{EXPLAINED.name}:{number}: it takes four fields, separated by tabs: file, line, old -> new, reason")
        explained[tuple(fields[:3])] = fields[3]
    return explained


def key(file, mutant):
    return str(file), mutant.context, f"{mutant.old.strip()} -> {mutant.new.strip() or 'nothing'}"


class Run:
    """The mutants of one file after the other, and what became of them."""

    def __init__(self, explained):
        self.explained = explained
        self.killed = self.hung = self.survived = self.excused = self.invalid = self.same = 0

    def file(self, file, chosen):
        if not chosen:
            return
        programs = test_programs(file)
        if output := build(programs):
            sys.exit(f"mutation.py: the tests cannot be built\n{output[-2000:]}")
        limits, digests = {}, {program: digest(program) for program in programs}
        for program in programs:
            begin = time.monotonic()
            if not passes(program, 600):
                sys.exit(f"mutation.py: {program} fails without any change")
            limits[program] = PATIENCE + 4 * (time.monotonic() - begin)
        copy = COPY / file
        source = copy.read_text(encoding="utf-8")
        try:
            for mutant in chosen:
                copy.write_text(mutant.apply(source), encoding="utf-8")
                self.one(file, mutant, limits, digests)
        finally:
            copy.write_text(source, encoding="utf-8")

    def one(self, file, mutant, limits, digests):
        if key(file, mutant) in self.explained:
            self.excused += 1
            return
        end = self.end(file, limits, digests)
        setattr(self, end, getattr(self, end) + 1)
        if end == "survived":
            print(f"survived {file}:{mutant}", flush=True)

    def end(self, file, limits, digests):
        """What becomes of the change that the copy has now. Most changes fail a test of the file's own."""
        changed = False
        for program, limit in limits.items():
            if build([program]) is not None:
                return "invalid"
            if digest(program) == digests[program]:
                continue
            changed = True
            suites = own_suites(file)
            passed = (not suites or passes(program, limit, suites)) and passes(program, limit)
            if not passed:
                return "hung" if passed is None else "killed"
        return "survived" if changed else "same"

    def summary(self):
        noticed = self.killed + self.hung
        valid = noticed + self.survived
        share = f", {100 * noticed / valid:.0f} %" if valid else ""
        return (f"{noticed} of {valid} changes noticed{share} ({self.hung} by the time limit); {self.excused} explained, "
                f"{self.invalid} did not compile, {self.same} changed nothing")


def stale(files, explained):
    """Explanations of changes that these files do not allow any more."""
    possible = {key(file, mutant) for file in files for mutant in mutants((PROJECT / file).read_text(encoding="utf-8"))}
    names = {str(file) for file in files}
    return [entry for entry in explained if entry[0] in names and entry not in possible]


def end_by_signals():
    """Lets SIGTERM and SIGINT end a run by an exception, so that the source is restored."""
    signal.signal(signal.SIGTERM, lambda *_: sys.exit(1))
    signal.signal(signal.SIGINT, signal.default_int_handler)  # a shell starts jobs in the background with it ignored


def sample(file, arguments):
    chosen = mutants((PROJECT / file).read_text(encoding="utf-8"))
    if not arguments.sample or len(chosen) <= arguments.sample:
        return chosen
    return sorted(random.Random(f"{arguments.seed} {file}").sample(chosen, arguments.sample),
                  key=lambda mutant: mutant.offset)


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("files", nargs="+", type=pathlib.Path, metavar="FILE")
    parser.add_argument("--sample", type=int, metavar="N", help="at most N changes of each file, chosen by the seed")
    parser.add_argument("--seed", type=int, default=1, metavar="S")
    parser.add_argument("--folder", type=pathlib.Path, default=FOLDER, help="for the copy and its build (%(default)s)")
    arguments = parser.parse_args()
    global COPY, BUILD
    COPY, BUILD = (arguments.folder.resolve() / part for part in ("source", "build"))
    files = [file.resolve().relative_to(PROJECT) for file in arguments.files]
    os.environ["CCACHE_BASEDIR"] = str(BUILD.parent)  # what one folder has compiled is known in the others, too
    end_by_signals()
    copy_sources()
    subprocess.run(["cmake", "-S", COPY, "-B", BUILD, *OPTIONS], check=True, stdout=subprocess.DEVNULL)
    explained = explanations()
    run = Run(explained)
    try:
        for file in files:
            run.file(file, sample(file, arguments))
    finally:
        print(run.summary())  # also of a run that is ended early
    old = stale(files, explained)
    for name, line, change in old:
        print(f"{EXPLAINED.name}: {name} has no such change any more: {line}: {change}")
    return 1 if run.survived or old else 0


if __name__ == "__main__":
    sys.exit(main())
