"""Signals, forks, threads, asyncio: what else there is in a process of Python."""
import asyncio
import os
import signal
import threading
import time

import pytest

import zor
from conftest import PATIENCE, until


@pytest.mark.parametrize("wait", [
    "bus.run()",
    "bus.call('other', 0x6601, timeout=None)",
    "next(bus.events('network'))",
    "bus.serve(0x6600, lambda r: bus.call('other', 0x6601, timeout=None)); bus.send('other', 0x6602); bus.run()",
    "asyncio.run(bus.acall('other', 0x6601, timeout=None))",
    "asyncio.run(bus.arun())",
])
def test_interrupt_ends_every_wait(bench, wait):
    bench.daemon("""
        bus = zor.Bus("other")
        kept = []
        bus.serve(0x6601, lambda request: kept.append(request.defer()))
        bus.serve(0x6602, lambda request: bus.send(request.source, 0x6600), oneway=True)
        print("ready")
        bus.run()
    """)
    waiting = bench.daemon(f"""
        bus = zor.Bus("waiting")
        bus.after(0.05, lambda: None)
        print("ready", flush=True)
        {wait}
    """)
    time.sleep(0.2)
    waiting.process.send_signal(signal.SIGINT)
    assert waiting.wait() == -signal.SIGINT
    assert "KeyboardInterrupt" in waiting.said


def test_exit_in_a_handler_ends_the_daemon(bench, bus):
    daemon = bench.daemon("""
        bus = zor.Bus("leaver")
        bus.serve(0x6600, lambda request: sys.exit(7))
        print("ready")
        bus.run()
    """)
    with pytest.raises(zor.Error):
        bus.call("leaver", 0x6600, timeout=PATIENCE)
    assert daemon.wait() == 7


def test_signal_handler_runs_and_the_loop_goes_on(bus):
    seen = []
    former = signal.signal(signal.SIGUSR1, lambda *unused: seen.append("signal"))
    try:
        bus.after(0.01, lambda: os.kill(os.getpid(), signal.SIGUSR1))
        bus.every(0.01, lambda: seen and bus.stop())
        bus.run()
    finally:
        signal.signal(signal.SIGUSR1, former)
    assert seen == ["signal"] and signal.set_wakeup_fd(-1) == -1


@pytest.mark.parametrize("inside", [False, True])
def test_forked_child_has_to_open_a_bus_of_its_own(bus, inside):
    reader, writer = os.pipe()

    def child():
        said = []
        for call in lambda: bus.send("nobody", 1), bus.run, lambda: bus.call_soon_threadsafe(print):
            try:
                call()
            except zor.NotConnected as error:
                said.append("parent" in str(error))
        with zor.Bus("child") as own:
            own.after(0.01, own.stop)
            own.run()
        os.write(writer, repr(said).encode())
        os._exit(0)

    def fork():
        pid = os.fork()
        if pid == 0:
            child()
        os.waitpid(pid, 0)
        if inside:
            bus.stop()

    if inside:
        bus.after(0, fork)
        bus.run()
    else:
        fork()
    os.close(writer)
    with os.fdopen(reader) as file:
        assert file.read() == "[True, True, True]"
    with bus.events("network") as events:
        bus.publish("network", "still here", {})
        assert events.get(PATIENCE).name == "still here"


def test_other_threads_have_one_way_in(bus):
    seen = []

    def work():
        try:
            bus.send("nobody", 1)
        except zor.Error as error:
            seen.append(str(error))
        for i in range(100):
            bus.call_soon_threadsafe(lambda i=i: seen.append((i, threading.get_ident())))
        bus.call_soon_threadsafe(bus.stop)

    thread = threading.Thread(target=work)
    bus.after(0, thread.start)
    bus.run()
    thread.join()
    assert "thread" in seen[0]
    assert seen[1:] == [(i, threading.get_ident()) for i in range(100)]


def test_watched_descriptor_stays_the_callers(bus):
    reader, writer = os.pipe()
    seen = []
    end = bus.watch(reader, lambda: seen.append(os.read(reader, 10)) or bus.stop())
    os.write(writer, b"a")
    bus.run()
    end()
    os.write(writer, b"b")
    bus.after(0.05, bus.stop)
    bus.run()
    assert seen == [b"a"] and os.read(reader, 10) == b"b"
    os.close(reader)
    os.close(writer)


def test_async_handlers_run_side_by_side(bench, bus):
    bench.daemon("""
        bus = zor.Bus("sleeper")
        @bus.serve(0x6600)
        async def sleep(request):
            await asyncio.sleep(request.word / 1000)
            if request.word == 1: raise zor.Failed("short")
            return request.word
        print("ready")
        sys.exit(bus.run())
    """)

    async def ask():
        order = []

        async def one(word):
            order.append((await bus.acall("sleeper", 0x6600, word=word, timeout=PATIENCE)).word)

        await asyncio.gather(one(600), one(300), one(2))
        with pytest.raises(zor.Failed, match="short"):
            await bus.acall("sleeper", 0x6600, word=1, timeout=PATIENCE)
        with pytest.raises(zor.PeerGone):
            await bus.acall("nobody", 0x6600, timeout=PATIENCE)
        with pytest.raises(zor.Timeout):
            await bus.acall("sleeper", 0x6600, word=60000, timeout=0.05)
        return order

    assert asyncio.run(ask()) == [2, 300, 600]
    assert bus.call("sleeper", 0x6600, word=5, timeout=PATIENCE).word == 5


def test_everything_works_inside_asyncio(bench):
    async def main():
        seen = []
        async with zor.Bus("keeper") as bus:
            bus.serve(0x6600, lambda request: request.word + 1)
            assert (await bus.acall("keeper", 0x6600, word=1, timeout=PATIENCE)).word == 2
            subscribed = bus.events("network")
            timer = bus.every(0.01, lambda: bus.publish("network", "tick", {}))

            @bus.after(0.01)
            async def later():
                await asyncio.sleep(0.01)
                seen.append("later")

            async for event in subscribed:
                seen.append(event.name)
                if seen.count("tick") == 3:
                    break
            timer.cancel()
            bus.after(0.01, lambda: bus.stop(4))
            assert await bus.arun() == 4
            # The loop's descriptor also tells of what was set aside.
            bus.serve(0x6601, lambda request: seen.append("aside") or bus.stop(), oneway=True)
            bus.send("keeper", 0x6601)
            with pytest.raises(zor.PeerGone):
                bus.call("nobody", 0x6600, timeout=PATIENCE)
            await asyncio.wait_for(bus.arun(), PATIENCE)
        return seen

    seen = asyncio.run(main())
    assert sorted(seen) == ["aside", "later", "tick", "tick", "tick"]


def test_lost_server_fails_what_waits_and_is_joined_again(empty_bench):
    server = empty_bench.server()

    async def main():
        seen = []
        async with zor.Bus("keeper") as bus:
            bus.on_lost(lambda: seen.append("lost"))
            bus.on_rejoined(bus.stop)
            kept = []
            bus.serve(0x6600, lambda request: kept.append(request.defer()))
            waiting = asyncio.ensure_future(bus.acall("keeper", 0x6600, timeout=PATIENCE))
            events = bus.events("network")
            await asyncio.sleep(0.05)
            server.end()
            with pytest.raises(zor.PeerGone):
                await waiting
            until("lost", lambda: seen == ["lost"])
            with pytest.raises(zor.PeerGone):
                bus.publish("network", "note", {})
            empty_bench.server()
            await asyncio.wait_for(bus.arun(), PATIENCE)
            bus.publish("network", "note", {})
            return (await asyncio.wait_for(events.__anext__(), PATIENCE)).name

    assert asyncio.run(main()) == "note"
