#!/usr/bin/python3
# SPDX-License-Identifier: MIT
"""pump_station_story.py CORVANE [--web]: the story of a pump station, with a simulated modem and a local mailbox.

It shows who says what, and ends with the books of the store, compared with what has really arrived; with --web the
station then goes on until Ctrl-C. Exit status 1: something was lost or doubled, or the story broke off.
pump_station.sh starts it."""
import os
import pathlib
import signal
import socket
import sys
import tempfile
import time

sys.dont_write_bytecode = True
import books
from actor import Actor, StoryEnds, show

HERE = pathlib.Path(__file__).resolve().parent
ANNA, BORIS, STRANGER = "+15550101234", "+15550105678", "+15559998877"
OUR_PORT = 8080
MAIL_SERVER_AWAY = 60  # seconds
STARTS = "the station starts"  # what its program prints first


def free_port(wanted):
    """Always the same one, if it is free: a page that was left open shows the next run."""
    for port in wanted, 0:
        try:
            # As the runtime does: connections of the last run that are just ending do not matter.
            with socket.create_server(("127.0.0.1", port)) as server:
                return server.getsockname()[1]
        except OSError:
            pass
    raise StoryEnds("no TCP port is free")


def say(text):
    show(f"{'story':<10} | {text}\n")


class Story:
    def __init__(self, corvane, folder, stays):
        self.corvane, self.folder, self.stays = corvane, pathlib.Path(folder), stays
        self.store = self.folder / "state/messages.db"
        self.mailbox, self.phone, self.controller = Actor("mailbox"), Actor("phone"), Actor("controller")
        self.page = 0

    def start(self):
        show("A pump station with a modem and a mailbox. The water rises; the limit is 400 cm.\n")
        self.mailbox.start(sys.executable, HERE / "mail_sink.py", self.folder / "mails", "--away", MAIL_SERVER_AWAY)
        self.phone.start(self.corvane, "modem", "--link", self.folder / "modem", "--network-delay", "500ms")
        self.mailbox.await_saying("READY ")
        self.phone.await_saying("ready ")
        self.start_controller()

    def start_controller(self, *more):
        """Another program may take the page's port at the same moment; then there is another one."""
        starts = self.controller.said.count(STARTS)
        while self.controller.said.count(STARTS) == starts:
            self.show_page(free_port(self.page or OUR_PORT))
            self.controller.start(
                self.corvane, "run", HERE / "pump_station.lua", "--modem", f"1={self.folder}/modem",
                "--log-level", "warning", "--web", self.page, "--", "127.0.0.1", self.mailbox.said.split()[1],
                "plc", "s3cret", "pump3@plant.example", "operator@plant.example", *more, cwd=self.folder,
                env={**os.environ, "STATE_DIRECTORY": str(self.store.parent)})
            if not self.controller.says(STARTS, starts + 1) and "Address already in use" not in self.controller.said:
                raise StoryEnds("the controller does not start")

    def show_page(self, port):
        if port != self.page:
            hint = "Ctrl-C ends the program" if self.stays else "./run --web keeps it running"
            show(f"The program's page: http://127.0.0.1:{port}/ ({hint})\n")
        self.page = port

    def await_state(self, receiver, *states):
        """Until the store says this of an SMS."""
        while not any(row.get("receiver") == receiver and row["state"] in states
                      for row in books.ask(self.corvane, self.store, "list")):
            if not self.controller.is_running():
                raise StoryEnds(f"the message to {receiver} is not {states}")
            time.sleep(0.5)

    def tell(self):
        self.phone.do(f"receive {ANNA} STATUS")
        self.phone.await_saying(f"sent to {ANNA}: Level ")
        self.phone.do("delay 10s")
        say("from now on the network takes 10 s for each message")
        self.phone.do(f"receive {STRANGER} OPEN THE GATE")
        self.controller.await_saying("refused: ")
        self.phone.do("unplug 2s")
        self.await_state(BORIS, "sending")  # Anna has hers
        time.sleep(1)  # early in the ten seconds: the modem still has most of them before it
        self.kill_controller()
        self.start_controller()
        self.await_state(BORIS, "sent", "failed")
        self.phone.do("delay 500ms")
        say("the network is fast again")
        self.phone.do(f"receive {ANNA} ACK")
        if self.controller.ended() != 0:
            raise StoryEnds("the controller has failed")

    def kill_controller(self):
        say("kill -9 of the controller, while the network has the alarm for Boris; it is started again")
        self.controller.process.kill()
        self.controller.ended()

    def books(self):
        return books.compare(self.corvane, self.store, self.phone.said, self.folder / "mails")

    def end(self):
        for actor in self.controller, self.phone, self.mailbox:
            actor.end()


def run(corvane, stays):
    """The exit status."""
    with tempfile.TemporaryDirectory() as folder:
        story = Story(corvane, folder, stays)
        try:
            story.start()
            story.tell()
            result = story.books()
            show(f"\nThe store's books, compared with what phone and mailbox have received:\n{result}\n")
            status = 1 if result.lost or result.doubled else 0
            if stays:
                story.start_controller("stay")
                status = story.controller.ended() or status
            return status
        except StoryEnds as end:
            print(f"pump_station: {end}", file=sys.stderr)
            return 1
        except KeyboardInterrupt:
            return 0 if stays else 130
        finally:
            signal.signal(signal.SIGINT, signal.SIG_IGN)
            signal.signal(signal.SIGTERM, signal.SIG_IGN)
            story.end()


def main():
    options = sys.argv[2:]
    if options not in ([], ["--web"]):
        print(f"pump_station: unknown arguments: {' '.join(options)}; the only option is --web", file=sys.stderr)
        return 2
    for number in signal.SIGTERM, signal.SIGHUP:
        signal.signal(number, lambda received, _frame: sys.exit(128 + received))
    return run(sys.argv[1], bool(options))


if __name__ == "__main__":
    sys.exit(main())
