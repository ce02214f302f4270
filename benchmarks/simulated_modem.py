# SPDX-License-Identifier: MIT
"""`corvane modem` without network delay."""
import subprocess


class SimulatedModem:
    def __init__(self, corvane, folder):
        """corvane: the command, a list."""
        self.device = folder + "/modem"
        self.process = subprocess.Popen([*corvane, "modem", "--link", self.device, "--store-size", "1000"],
                                        stdin=subprocess.PIPE, stdout=subprocess.PIPE, text=True)
        assert self.process.stdout.readline().startswith("ready")

    def receive(self, messages):
        for number in range(messages):
            self.process.stdin.write(f"receive +4915112345678 Pump {number} has stopped\n")
        self.process.stdin.flush()
        while not self.process.stdout.readline().startswith(f"received, place {messages}:"):
            pass

    def end(self):
        self.process.terminate()
        return self.process.communicate()[0]
