"""Holds the conversations as a consumer: consumer.py NAME PROVIDER"""
import asyncio
import os
import sys
import time

import zor

PATIENCE = 30
BURST = 30000
provider = sys.argv[2]


def say(text):
    print(text, flush=True)


def expect(condition, why):
    if not condition:
        raise AssertionError(why)


def raises(kind, call):
    try:
        call()
    except kind as error:
        return error
    raise AssertionError(f"no {kind.__name__}")


class Consumer:
    def __init__(self, bus):
        self.bus = bus
        self.missed = self.asked = 0
        self.link = []
        bus.on_lost(lambda: self.link.append("lost"))
        bus.on_rejoined(lambda: self.link.append("rejoined"))

    def request(self):
        reply = self.bus.call(provider, 0x6101, timeout=PATIENCE)
        expect(reply.word == 0 and reply.json == {"actual": 21.5, "label": "hall"}, reply)

    def word(self):
        expect(self.bus.call(provider, 0x6102, word=6, timeout=PATIENCE).word == 7, "another word")

    def deferred(self):
        asyncio.run(self.both())

    async def both(self):
        order = []

        async def ask(type, word):
            order.append((await self.bus.acall(provider, type, word=word, timeout=PATIENCE)).word)

        await asyncio.gather(ask(0x6103, 500), ask(0x6102, 10))
        expect(order == [11, 42], order)

    def error(self):
        error = raises(zor.Failed, lambda: self.bus.call(provider, 0x6104, timeout=PATIENCE))
        expect(error.status == 0x10007 and str(error) == "no such room", repr(error))

    def timeout(self):
        raises(zor.Timeout, lambda: self.bus.call(provider, 0x6105, timeout=0.3))
        self.word()

    def absent(self):
        raises(zor.PeerGone, lambda: self.bus.call("nobody", 0x6102, timeout=PATIENCE))

    def large(self):
        body = bytes(i * 7 % 251 for i in range(1_500_000))
        expect(self.bus.call(provider, 0x6106, body, timeout=PATIENCE).body == body, "not the same")

    def event(self):
        self.events = self.bus.events("network")
        self.gets_event()

    def gets_event(self):
        self.asked += 1
        self.bus.send(provider, 0x6107, word=self.asked)
        event = self.events.get(PATIENCE)
        while event.name != "note" or event.payload["n"] != self.asked:  # what is left of the gap
            event = self.events.get(PATIENCE)
        expect(event.module == "network", event)

    def descriptor(self):
        reader, writer = os.pipe()
        self.bus.send_fd(provider, 0x6108, writer)
        os.close(writer)
        with os.fdopen(reader) as file:
            expect(file.read() == "hello from provider", "another text")

    def gap(self):
        self.bus.on_gap(self.count_gap)
        notes = []
        for seconds in 1, 2, 4, 8, 16:
            self.missed = bursts = 0
            self.bus.send(provider, 0x6109, word=BURST)
            time.sleep(seconds)
            # A gap is told before the next event, so there have to be some behind the last one.
            timer = self.bus.every(0.2, lambda: notes.append(self.bus.send(provider, 0x6107)))
            while bursts + self.missed < BURST:
                bursts += self.events.get(PATIENCE).name == "burst"
            timer.cancel()
            # A note may be among what was missed, also one of an earlier round.
            expect(bursts + self.missed <= BURST + len(notes), f"{bursts} events and {self.missed} missed")
            if self.missed:
                return
        raise AssertionError("nothing was missed")

    def count_gap(self, type, count):
        self.missed += count

    def lost(self):
        say("kill the server")
        end = time.monotonic() + PATIENCE
        while self.link != ["lost", "rejoined"]:
            expect(time.monotonic() < end, self.link)
            self.turn()
        while True:
            try:
                self.word()
                break
            except zor.Error:
                expect(time.monotonic() < end, "the provider does not come back")
                self.turn()
        self.gets_event()

    def turn(self):
        try:
            self.events.get(0.05)
        except zor.Timeout:
            pass


def main():
    failed = 0
    with zor.Bus(sys.argv[1]) as bus:
        consumer = Consumer(bus)
        names = "request word deferred error timeout absent large event descriptor gap lost".split()
        for name in names:
            try:
                getattr(consumer, name)()
                say(f"ok {name}")
            except Exception as error:
                failed = 1
                say(f"failed {name}: {error!r}")
        bus.call(provider, 0x706, timeout=PATIENCE)
    say("done")
    return failed


sys.exit(main())
