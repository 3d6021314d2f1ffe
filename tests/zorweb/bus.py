"""A bus of its own in a temporary ZOR_ROOT, with the page's server, for the tests of zorweb."""
import http.client
import json
import os
import shutil
import signal
import subprocess
import tempfile
import time

PATIENCE = 60  # seconds; under load everything takes long


def until(what, condition, patience=PATIENCE):
    end = time.monotonic() + patience
    while time.monotonic() < end:
        value = condition()
        if value:
            return value
        time.sleep(0.05)
    raise AssertionError(f"not in time: {what}")


class Bus:
    """Programs are given by their paths: msgsvr, zorweb, peer."""

    def __init__(self, programs, settings=""):
        self.tls = None  # the clients' context where the settings have a certificate
        self.programs = programs
        self.root = tempfile.mkdtemp(prefix="zorweb.")
        self.environment = {**os.environ, "ZOR_ROOT": self.root}
        self.running = {}
        self.server()
        self.web(settings)

    def start(self, name, arguments, ready):
        out = open(f"{self.root}/{name}.out", "wb")
        self.running[name] = subprocess.Popen(arguments, env=self.environment, stdout=out, stderr=subprocess.STDOUT)
        until(f"{name} says {ready}", lambda: ready in self.said(name) or self.running[name].poll() is not None)
        return self.running[name]

    def said(self, name):
        with open(f"{self.root}/{name}.out", encoding="utf-8", errors="replace") as file:
            return file.read()

    def server(self):
        self.start("msgsvr", [self.programs["msgsvr"]], "listening")

    def web(self, settings=""):
        path = f"{self.root}/zorweb.conf"
        with open(path, "w", encoding="utf-8", errors="surrogateescape") as file:
            file.write("listen = 127.0.0.1:0\ntoken_file = /token\n" + settings)
        self.start("zorweb", [self.programs["zorweb"], "--settings", path], "on the bus")
        said = self.said("zorweb")
        if "listening on" in said:
            self.port = int(said.split("127.0.0.1:")[1].split("/")[0])
        return said

    def peer(self, name, *arguments):
        return self.start(name, [self.programs["peer"], arguments[0], name, *arguments[1:]], "ready")

    def end(self, name, number=signal.SIGTERM):
        self.running[name].send_signal(number)
        status = self.running[name].wait(PATIENCE)
        del self.running[name]
        return status

    def close(self):
        for name in reversed(list(self.running)):
            self.end(name, signal.SIGKILL)
        # A browser that has ended may still write there for a moment.
        until("its files are gone",
              lambda: shutil.rmtree(self.root, ignore_errors=True) or not os.path.exists(self.root))

    def ask(self, path, method="GET", body=None, source="127.0.0.1", **headers):
        options = {"timeout": PATIENCE, "source_address": (source, 0)}
        connection = (http.client.HTTPSConnection("127.0.0.1", self.port, context=self.tls, **options) if self.tls
                      else http.client.HTTPConnection("127.0.0.1", self.port, **options))
        connection.request(method, path, body, {name.replace("_", "-"): value for name, value in headers.items()})
        reply = connection.getresponse()
        reply.text = reply.read().decode() if reply.getheader("Content-Type") != "text/event-stream" else ""
        return reply

    def events(self, query="", **headers):
        return Events(self.port, query, headers)


class Events:
    """Server-sent events as pairs of a name and what its JSON holds."""

    def __init__(self, port, query, headers):
        self.connection = http.client.HTTPConnection("127.0.0.1", port, timeout=PATIENCE)
        self.connection.request("GET", "/events" + query, headers=headers)
        self.reply = self.connection.getresponse()
        self.troubles = []

    def next(self, name, condition=lambda data: True):
        end = time.monotonic() + PATIENCE
        found = None
        while time.monotonic() < end:
            line = self.reply.readline().decode()
            if not line:
                raise AssertionError(f"the stream ended before {name}")
            if line.startswith("event: "):
                found = line[7:-1]
            if line.startswith("data: ") and found == "state" and json.loads(line[6:])["trouble"]:
                self.troubles.append(line[6:-1])
            if line.startswith("data: ") and found == name and condition(json.loads(line[6:])):
                return json.loads(line[6:])
        raise AssertionError(f"no such event: {name}")

    def close(self):
        self.connection.close()
