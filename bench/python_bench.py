"""Round trips of the Python module beside the C library and beside Debian's D-Bus bindings, in one run.

Usage: python_bench.py MSGSVR PYTHON_PEERS     (with the module on PYTHONPATH)
Everything runs on one processor; nine rounds in turn, the ratio taken within each round, the median over the rounds.
"""
import asyncio
import os
import shutil
import statistics
import subprocess
import sys
import tempfile
import time

import zor

ROUNDS = 9
CALLS = 3000
ECHO = 0x4001
NAME = "org.example.Bench"
BUS_SETTINGS = """<busconfig><type>session</type><listen>unix:path={path}</listen><auth>EXTERNAL</auth>
<policy context="default"><allow send_destination="*"/><allow receive_sender="*"/><allow own="*"/></policy></busconfig>"""


def microseconds(call):
    for _ in range(100):
        call()
    start = time.perf_counter()
    for _ in range(CALLS):
        call()
    return (time.perf_counter() - start) / CALLS * 1e6


def provide_in_python():
    bus = zor.Bus("pyprovider")
    bus.serve(ECHO, lambda request: request.word)
    print("ready", flush=True)
    bus.run()


def dbus_fast_service():
    from dbus_fast.aio import MessageBus
    from dbus_fast.service import ServiceInterface, method

    class Bench(ServiceInterface):
        def __init__(self):
            super().__init__(NAME)

        @method()
        def Echo(self, word: "u") -> "u":  # noqa: F821
            return word

    async def main():
        bus = await MessageBus().connect()
        bus.export("/bench", Bench())
        await bus.request_name(NAME)
        print("ready", flush=True)
        await bus.wait_for_disconnect()

    asyncio.run(main())


def dbus_python_service():
    import dbus
    import dbus.mainloop.glib
    import dbus.service
    from gi.repository import GLib

    dbus.mainloop.glib.DBusGMainLoop(set_as_default=True)
    bus = dbus.SessionBus()
    kept = dbus.service.BusName(NAME, bus)

    class Bench(dbus.service.Object):
        @dbus.service.method(NAME, in_signature="u", out_signature="u")
        def Echo(self, word):
            return word

    bench = Bench(bus, "/bench")
    print("ready", kept and bench and "", flush=True)
    GLib.MainLoop().run()


class DBusFast:
    service = "dbus_fast_service"

    def __init__(self):
        from dbus_fast import Message
        from dbus_fast.aio import MessageBus
        self.loop = asyncio.new_event_loop()

        async def connect():
            return await MessageBus().connect()

        self.bus = self.loop.run_until_complete(connect())
        self.message = lambda: Message(destination=NAME, path="/bench", interface=NAME, member="Echo", signature="u",
                                       body=[7])

    def measure(self):
        async def calls(count):
            for _ in range(count):
                reply = await self.bus.call(self.message())
            assert reply.body == [7]

        self.loop.run_until_complete(calls(100))
        start = time.perf_counter()
        self.loop.run_until_complete(calls(CALLS))
        return (time.perf_counter() - start) / CALLS * 1e6


class DBusPython:
    service = "dbus_python_service"

    def __init__(self):
        import dbus
        proxy = dbus.SessionBus().get_object(NAME, "/bench")
        self.echo = proxy.get_dbus_method("Echo", NAME)
        assert self.echo(dbus.UInt32(7)) == 7
        self.word = dbus.UInt32(7)

    def measure(self):
        return microseconds(lambda: self.echo(self.word))


class Started:
    """Programs that say "ready", ended with the run."""

    def __init__(self):
        self.running = []

    def start(self, command, ready):
        program = subprocess.Popen(command, stdout=subprocess.PIPE, text=True)
        self.running.append(program)
        while ready not in (line := program.stdout.readline()):
            assert line, f"{command} ended"
        return program

    def end(self, program):
        self.running.remove(program)
        program.kill()
        program.wait()

    def close(self):
        for program in list(self.running):
            self.end(program)


def python(function):
    return [sys.executable, "-B", __file__, function]


def report(label, ours, theirs=None):
    ratio = "" if theirs is None else f"{statistics.median(a / b for a, b in zip(ours, theirs)):8.2f}"
    print(f"{label:<44} {statistics.median(ours):8.1f} {ratio}")


def compare(programs, started, root):
    msgsvr, peers = programs
    started.start([msgsvr], "listening")
    started.start([peers], "ready")
    started.start(python("provide_in_python"), "ready")
    bus = zor.Bus("asker")
    ask = lambda to: lambda: bus.call(to, ECHO, word=7)
    ask_c = lambda to: float(subprocess.run([peers, to, str(CALLS)], check=True, capture_output=True).stdout)
    c, to_c, to_python = [], [], []
    for _ in range(ROUNDS):
        c.append(ask_c("cprovider"))
        to_c.append(microseconds(ask("cprovider")))
        to_python.append(microseconds(ask("pyprovider")))
    print("a request and its reply, a data word each               us   to C")
    report("C asks C", c)
    report("Python asks C", to_c, c)
    report("Python asks Python", to_python, c)
    settings = f"{root}/dbus.conf"
    with open(settings, "w", encoding="utf-8") as file:
        file.write(BUS_SETTINGS.format(path=f"{root}/dbus"))
    os.environ["DBUS_SESSION_BUS_ADDRESS"] = f"unix:path={root}/dbus"
    started.start(["dbus-daemon", "--config-file", settings, "--nofork", "--print-address=1"], "unix:")
    print("\nPython asks Python over a D-Bus daemon                  us   time to ours")
    for kind in DBusFast, DBusPython:
        service = started.start(python(kind.service), "ready")
        client = kind()
        ours, theirs = [], []
        for _ in range(ROUNDS):
            ours.append(microseconds(ask("pyprovider")))
            theirs.append(client.measure())
        report(kind.__name__, theirs, ours)
        started.end(service)
    bus.close()


def main():
    if len(sys.argv) == 2:
        return globals()[sys.argv[1]]()
    os.sched_setaffinity(0, {min(os.sched_getaffinity(0))})
    root = tempfile.mkdtemp(prefix="python_bench.")
    os.environ["ZOR_ROOT"] = root
    started = Started()
    try:
        compare(sys.argv[1:], started, root)
    finally:
        started.close()
        shutil.rmtree(root)


main()
