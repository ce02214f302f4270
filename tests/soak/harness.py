# SPDX-License-Identifier: MIT
"""What every long run has: threads whose failure ends it, faults that are noted, and the lines of its processes."""
import argparse
import random
import sys
import threading

import excuses


class Harness:
    def __init__(self, options, folder):
        self.corvane, self.folder = options.corvane, folder
        self.seconds, self.seed = options.seconds, options.seed
        self.stopping = threading.Event()
        self.faults, self.violations = [], []

    def note(self, kind, start, end, times=1):
        self.faults.append(excuses.Span(kind, start, end, times))

    def leave(self, name):
        """Creates a file for which the program waits."""
        with open(f"{self.folder}/{name}", "w", encoding="ascii"):
            pass

    def thread(self, work):
        def run():
            try:
                work()
            except Exception as error:  # whatever it is, the whole run has failed
                self.violations.append(f"{type(error).__name__}: {error}")
                self.stopping.set()
        thread = threading.Thread(target=run, daemon=True)
        thread.start()
        return thread

    def save(self, histories):
        """histories: lists of events by name."""
        for name, history in histories.items():
            with open(f"{self.folder}/{name}", "w", encoding="utf-8") as file:
                file.writelines(f"{event.time:.3f} {event.line}\n" for event in history)
        with open(self.folder + "/faults", "w", encoding="utf-8") as file:
            file.writelines(f"{span.start:.3f} {span.end:.3f} {span.kind}\n" for span in self.faults)


def parser(description, seconds, growth):
    """Of the options of every long run, with the defaults of this one."""
    result = argparse.ArgumentParser(description=description)
    result.add_argument("corvane", help="the command")
    result.add_argument("--seconds", type=float, default=seconds, help="(default: %(default)s)")
    result.add_argument("--seed", type=int, default=random.SystemRandom().randrange(1 << 31),
                        help="for the choice of faults (default: a random one)")
    result.add_argument("--growth", type=float, default=growth,
                        help="megabytes by which the memory may grow (default: %(default)s)")
    return result


def report(complaints, seed, folder):
    """Says what is not allowed, and ends the process if there is anything."""
    for complaint in complaints[:20]:
        print("NOT ALLOWED:", complaint)
    if complaints:
        sys.exit(f"{len(complaints)} complaints; seed {seed}; all lines are in {folder}")
