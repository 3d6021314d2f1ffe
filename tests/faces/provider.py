"""Holds the conversations as a provider: provider.py NAME"""
import os
import sys

import zor

bus = zor.Bus(sys.argv[1])
silent = []


@bus.serve(0x6101)
def state(request):
    return {"actual": 21.5, "label": "hall"}


@bus.serve(0x6102)
def word(request):
    return request.word + 1


@bus.serve(0x6103)
def later(request):
    reply = request.defer()
    bus.after(request.word / 1000, lambda: reply.reply(42))


@bus.serve(0x6104)
def error(request):
    raise zor.Failed("no such room")


@bus.serve(0x6105)
def never(request):
    silent.append(request.defer())


@bus.serve(0x6106)
def echo(request):
    return request.body


@bus.serve(0x6107, oneway=True)
def note(request):
    bus.publish("network", "note", {"n": request.word})


@bus.serve(0x6108, oneway=True)
def descriptor(request):
    with os.fdopen(request.receive_fd(), "w") as file:
        file.write("hello from provider")


@bus.serve(0x6109, oneway=True)
def burst(request):
    for i in range(request.word):
        bus.publish("network", "burst", {"i": i, "fill": "x" * 500})


bus.on_lost(lambda: print("lost", flush=True))
bus.on_rejoined(lambda: print("rejoined", flush=True))
print("ready", flush=True)
sys.exit(bus.run())
