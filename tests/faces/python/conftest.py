"""A message server of its own for each test, and daemons that are written in the test."""
import os
import signal
import subprocess
import sys
import textwrap
import threading
import time

import pytest

import zor

PATIENCE = 60  # seconds; under load everything takes long
PREAMBLE = "import asyncio, os, sys, time, zor\n"


def until(what, condition):
    end = time.monotonic() + PATIENCE
    while not (value := condition()):
        assert time.monotonic() < end, f"not in time: {what}"
        time.sleep(0.01)
    return value


class Program:
    """What it has printed is in said."""

    def __init__(self, command, **options):
        self.said = ""
        self.process = subprocess.Popen(command, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True, **options)
        self.reader = threading.Thread(target=self.read, daemon=True)
        self.reader.start()

    def read(self):
        for line in self.process.stdout:
            self.said += line

    def until(self, text):
        until(f"{text!r} in {self.said!r}", lambda: text in self.said or self.process.poll() is not None)
        self.process.poll() is None or self.reader.join()
        assert text in self.said, self.said

    def end(self, number=signal.SIGKILL):
        self.process.send_signal(number)
        return self.wait()

    def wait(self):
        status = self.process.wait(PATIENCE)
        self.reader.join()
        self.process.stdout.close()
        return status


class Bench:
    """Where a test's programs run."""

    def __init__(self):
        self.running = []

    def start(self, command):
        self.running.append(Program(command))
        return self.running[-1]

    def server(self):
        program = self.start([os.environ["ZOR_MSGSVR"]])
        program.until("listening")
        return program

    def daemon(self, source):
        """Python that is on the bus when it prints a line with "ready"."""
        program = self.start([sys.executable, "-B", "-u", "-c", PREAMBLE + textwrap.dedent(source)])
        program.until("ready")
        return program

    def close(self):
        for program in self.running:
            if program.process.returncode is None:
                program.end()


@pytest.fixture
def empty_bench(tmp_path, monkeypatch):
    monkeypatch.setenv("ZOR_ROOT", str(tmp_path))
    bench = Bench()
    yield bench
    bench.close()


@pytest.fixture
def bench(empty_bench):
    empty_bench.server()
    return empty_bench


@pytest.fixture
def bus(bench):
    with zor.Bus("keeper") as bus:
        yield bus
