#!/usr/bin/env python3
"""Shows a standby take over, with processes over a daemon: kills, stops and ends the active member of a group, and prints how long
each take-over took.

Usage: standby_demo.py QUORL   (the command)"""
import json
import os
import queue
import re
import signal
import subprocess
import sys
import threading
import time

HEARTBEAT, PREPARATION, ACTIVATION = 0.2, 0.5, 1.0
LIMIT = 60  # seconds that anything may take
GROUP = "plant.archive"
# What archives: it says when it begins and when it is to end.
PROGRAM = ["sh", "-c", 'echo "archives, token $QUORL_FT_TOKEN"; trap "echo ends; exit 0" TERM; while :; do sleep 0.02; done']


class Process:
    """A command, whose lines of output come with their times into one queue for all."""

    def __init__(self, name, words, lines):
        self.name = name
        self.child = subprocess.Popen(words, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True, start_new_session=True)
        threading.Thread(target=self.read, args=(lines,), daemon=True).start()

    def read(self, lines):
        for line in self.child.stdout:
            lines.put((time.monotonic(), self, line.rstrip("\n")))

    def signal(self, number):
        os.kill(self.child.pid, number)
        return time.monotonic()


class Demo:
    def __init__(self, command):
        self.command = command
        self.lines = queue.Queue()
        self.started = []
        self.began = time.monotonic()

    def start(self, name, *words):
        process = Process(name, [*self.command, *words], self.lines)
        self.started.append(process)
        return process

    def say(self, text):
        print(f"{time.monotonic() - self.began:5.1f} s  {text}", flush=True)

    def until(self, process, wanted):
        """When the process has said what is wanted, and what it matched; tells on the way what the members say."""
        end = time.monotonic() + LIMIT
        while time.monotonic() < end:
            try:
                at, who, line = self.lines.get(timeout=max(0.01, end - time.monotonic()))
            except queue.Empty:
                break
            if who.name not in ("daemon", "watch") and not line.startswith(("quorl: joined", "{")):
                self.say(f"{who.name}: {line}")
            found = re.search(wanted, line)
            if who is process and found:
                return at, found
        raise SystemExit(f"standby_demo: {process.name} has not said {wanted!r} within {LIMIT} s")

    def join(self, name, weight):
        member = self.start(name, "ft", "join", GROUP, "--weight", str(weight), "--heartbeat", str(HEARTBEAT), "--preparation",
                            str(PREPARATION), "--activation", str(ACTIVATION), "--json", "--daemon", self.address, "--exec", *PROGRAM)
        self.until(member, "joined " + GROUP)
        return member

    def run(self):
        daemon = self.start("daemon", "daemon", "--port", "0")
        self.address = self.until(daemon, r"runs at (nats://\S+)")[1].group(1)
        self.say(f"the group {GROUP}: heartbeat {HEARTBEAT} s, preparation {PREPARATION} s, activation {ACTIVATION} s")
        rows = []

        one = self.join("first", 3)
        self.until(one, "^archives")
        two = self.join("second", 2)
        self.await_standby(two)
        self.say("kill -9 of the first")
        rows.append(("killed (kill -9)", *self.take_over(two, one.signal(signal.SIGKILL))))

        three = self.join("third", 1)
        self.await_standby(three)
        self.say("kill -STOP of the second: it hangs")
        rows.append(("stopped (SIGSTOP)", *self.take_over(three, two.signal(signal.SIGSTOP))))
        self.say("kill -CONT of the second: it finds out that it stood still, and ends its program")
        woken = two.signal(signal.SIGCONT)
        stopped = self.until(two, '"action":"deactivate"')[0]
        rows.append(("woken (SIGCONT), until it is told to stop", None, stopped - woken))
        self.until(two, "^archives")
        self.say("the second has the higher weight, and is active again")

        self.await_standby(three)
        self.say("kill of the second: it leaves in good order")
        rows.append(("ended (SIGTERM), its program's end included", *self.take_over(three, two.signal(signal.SIGTERM))))
        self.show(rows)

    def await_standby(self, member):
        """Returns when the member is ranked: who only listens takes over later."""
        watch = self.start("watch", "ft", "watch", GROUP, "--json", "--lost", str(ACTIVATION), "--daemon", self.address)
        self.until(watch, rf'"label":"[^"]*/{member.child.pid}","state":"standby"')
        watch.signal(signal.SIGTERM)

    def take_over(self, member, since):
        """Seconds until the member is told to prepare, if it is, and to act."""
        prepared = None
        while True:
            at, found = self.until(member, r'^(\{"group".*\})$')
            action = json.loads(found.group(1))["action"]
            if action == "prepare":
                prepared = at - since
            elif action == "activate":
                self.until(member, "^archives")
                return prepared, at - since

    def show(self, rows):
        print()
        print(f"{'what happens to the active member':<46}{'next prepares':>14}{'next acts':>11}{'of activation':>15}")
        for what, prepared, acts in rows:
            before = "-" if prepared is None else f"{prepared:.2f} s"
            part = "-" if what.startswith("woken") else f"{acts / ACTIVATION * 100:.0f} %"
            print(f"{what:<46}{before:>14}{f'{acts:.2f} s':>11}{part:>15}")

    def end(self):
        """Members first; the daemon's server ends with its command."""
        for process in reversed(self.started):
            if process.child.poll() is None:
                process.signal(signal.SIGCONT)
                process.signal(signal.SIGTERM)
                try:
                    process.child.wait(timeout=LIMIT)
                except subprocess.TimeoutExpired:
                    process.child.kill()


def main():
    demo = Demo(sys.argv[1:] or ["quorl"])
    try:
        demo.run()
    finally:
        demo.end()


if __name__ == "__main__":
    main()
