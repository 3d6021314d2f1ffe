"""Holds all conversations between a provider and a consumer: hold_conversations.py MSGSVR PROVIDER... -- CONSUMER..."""
import os
import queue
import shutil
import signal
import subprocess
import sys
import tempfile
import threading

PATIENCE = 300  # seconds without a word from a program; under load everything takes long
NAMES = "request word deferred error timeout absent large event descriptor gap lost".split()


class Program:
    """A program whose lines are read as they come."""

    def __init__(self, command, root):
        self.command = command
        self.lines = queue.Queue()
        self.process = subprocess.Popen(command, env={**os.environ, "ZOR_ROOT": root}, stdout=subprocess.PIPE,
                                        text=True)
        self.reader = threading.Thread(target=self.read, daemon=True)
        self.reader.start()

    def read(self):
        for line in self.process.stdout:
            self.lines.put(line.strip())
        self.lines.put(None)

    def line(self):
        """The next line; None at the end."""
        try:
            return self.lines.get(timeout=PATIENCE)
        except queue.Empty:
            raise AssertionError(f"{self.command[0]} says nothing") from None

    def until(self, word):
        said = []
        while (line := self.line()) is not None:
            said.append(line)
            if word in line:
                return said
        raise AssertionError(f"{self.command[0]} ended before it said {word!r}; it said {said}")

    def kill(self):
        self.process.send_signal(signal.SIGKILL)
        self.process.wait()


def hold(msgsvr, provider, consumer, root):
    running = []

    def start(command):
        running.append(Program(command, root))
        return running[-1]

    try:
        server = start([msgsvr])
        server.until("listening")
        serving = start([*provider, "provider"])
        serving.until("ready")
        asking = start([*consumer, "consumer", "provider"])
        said = asking.until("kill the server")
        server.kill()
        start([msgsvr]).until("listening")
        said += asking.until("done")
        passed = [line.removeprefix("ok ") for line in said if line.startswith("ok ")]
        assert passed == NAMES, "\n".join(said)
        assert asking.process.wait(PATIENCE) == 0, "\n".join(said)
        heard = serving.until("rejoined")
        assert "lost" in heard, heard
        assert serving.process.wait(PATIENCE) == 0
    finally:
        for program in running:
            program.kill()


def main():
    msgsvr, *commands = sys.argv[1:]
    border = commands.index("--")
    root = tempfile.mkdtemp(prefix="faces.")
    try:
        hold(msgsvr, commands[:border], commands[border + 1:], root)
    finally:
        shutil.rmtree(root)


main()
