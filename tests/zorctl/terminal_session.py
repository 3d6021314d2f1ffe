#!/usr/bin/env python3
"""Runs a program on a terminal of its own, by the commands on standard input; prints each that came true.

Usage: terminal_session.py PROGRAM [ARGUMENT...] < COMMANDS
  see TEXT          waits until TEXT has been drawn since the latest key, change of size or `run`
  size ROWS COLUMNS changes the size and waits until something is drawn
  key TEXT          types TEXT, with escapes as in Python
  run COMMAND       runs a command of the shell
  end               waits until the program ends, and prints its exit status
  close             closes the terminal, and waits until the program has ended
"""
import codecs
import fcntl
import os
import pty
import select
import signal
import struct
import subprocess
import sys
import termios
import time

LIMIT = 120


class Session:
    def __init__(self, program):
        pid, self.fd = pty.fork()
        if pid == 0:
            os.execvp(program[0], program)
        self.pid = pid
        self.drawn = b""
        self.dimensions = (24, 80)
        self.set_size(*self.dimensions)

    def set_size(self, rows, columns):
        fcntl.ioctl(self.fd, termios.TIOCSWINSZ, struct.pack("HHHH", rows, columns, 0, 0))

    def read(self):
        """False when the program has closed its terminal."""
        if not select.select([self.fd], [], [], 0.1)[0]:
            return True
        try:
            data = os.read(self.fd, 65536)
        except OSError:
            return False
        self.drawn += data
        return data != b""

    def wait_for(self, condition, what, redraw=lambda: None):
        start = time.monotonic()
        redrawn = start
        while not condition():
            now = time.monotonic()
            if not self.read() or now > start + LIMIT:
                sys.exit(f"never came true: {what}; drawn: {self.drawn[-2000:]!r}")
            if now > redrawn + 1:
                redraw()
                redrawn = now

    def redraw(self):
        """A program draws only what has changed, but everything after a change of size."""
        rows, columns = self.dimensions
        self.set_size(rows, columns + 1)
        time.sleep(0.1)
        self.set_size(rows, columns)

    def see(self, text):
        self.wait_for(lambda: text.encode() in self.drawn, f"see {text}", self.redraw)

    def size(self, text):
        self.drawn = b""
        self.dimensions = tuple(map(int, text.split()))
        self.set_size(*self.dimensions)
        self.wait_for(lambda: self.drawn != b"", f"size {text}")

    def key(self, text):
        self.drawn = b""
        os.write(self.fd, codecs.decode(text, "unicode_escape").encode())

    def run(self, command):
        self.drawn = b""
        subprocess.run(command, shell=True, check=True)

    def end(self, _):
        while self.read():
            pass
        status = os.waitstatus_to_exitcode(os.waitpid(self.pid, 0)[1])
        print(f"status {status}")

    def close(self, _):
        os.close(self.fd)
        end = time.monotonic() + LIMIT
        while os.waitpid(self.pid, os.WNOHANG)[0] == 0:
            if time.monotonic() > end:
                os.kill(self.pid, signal.SIGKILL)
                sys.exit("still running without its terminal")
            time.sleep(0.02)


def main():
    session = Session(sys.argv[1:])
    for line in sys.stdin:
        command, _, argument = line.strip().partition(" ")
        getattr(session, command)(argument)
        print(line.strip(), flush=True)


main()
