"""Events, described types and gaps in what was read."""
import json
from dataclasses import dataclass

import pytest

import zor
from conftest import PATIENCE

PUBLISHER = """
bus = zor.Bus("publisher")
@bus.serve(0x6400, oneway=True)
def publish(request): bus.publish(*eval(request.text))
print("ready")
bus.run()
"""


@dataclass
class Number:
    """As zorgen writes a message with one number in the data word and the rest of the body."""

    n: int = 0
    unknown: bytes = b""

    def encode(self):
        return self.n, self.unknown

    @classmethod
    def decode(cls, data, body):
        if body.startswith(b"bad"):
            raise ValueError("bad")
        return cls(data, body)


@dataclass
class Level:
    level: int = 0

    def encode(self):
        return 0, json.dumps({"level": self.level}).encode()

    @classmethod
    def decode(cls, data, body):
        return cls(json.loads(body)["level"])


class Double:
    TYPE, NAME, KIND, Request, Reply = 0x6500, "Double", "request", Number, Number


class Reached:
    TYPE, NAME, KIND, Message, MODULE, EVENT = 0x2DA20, "Reached", "event", Level, "tank", "reached"


@pytest.fixture
def publisher(bench):
    return bench.daemon(PUBLISHER)


def ask(bus, *what):
    bus.send("publisher", 0x6400, repr(what))


@pytest.mark.parametrize("target, payload, module, received", [
    ("network", {"a": [1, "ü"], "b": None}, "network", {"a": [1, "ü"], "b": None}),
    (0x2DA07, {}, "network", {}),
    ("lan", {"n": 5, "text": "x", "list": [1]}, "lan", {"n": "5", "text": "x", "list": "[1]"}),
    (0x2DA21, {"n": 5}, "", {"n": 5}),
])
def test_event_arrives_as_it_was_published(publisher, bus, target, payload, module, received):
    with bus.events(target) as events:
        ask(bus, target, "note", payload)
        event = events.get(PATIENCE)
    assert (event.module, event.name, event.payload, event.source) == (module, "note", received, "publisher")
    assert event.type == (target if isinstance(target, int) else {"network": 0x2DA07, "lan": 0x2DA66}[target])
    assert event.timestamp.endswith("Z")


def test_subscriptions_filter_and_end(publisher, bus):
    subscribed = lambda: [row["type"] for row in bus._introspect(None)["events"]]
    heard = []
    every = bus.on("network", lambda event: heard.append(event.name))
    with bus.events("network", "second") as second:
        for name in "first", "second", "third":
            ask(bus, "network", name, {})
        assert second.get(PATIENCE).name == "second"
    assert subscribed() == [0x2DA07]
    every.close()
    assert subscribed() == []


def test_iteration_ends_with_its_subscription(publisher, bus):
    names = []
    bus.after(0.01, lambda: [ask(bus, "network", name, {}) for name in ("a", "b", "end")])
    for event in bus.events("network"):
        names.append(event.name)
        if event.name == "end":
            break
    del event
    assert names == ["a", "b", "end"]
    assert bus._feeds == {}
    bus.after(0.01, bus.stop)
    assert list(bus.events("network")) == []
    assert bus.run() == 0  # it was this that was to stop
    with pytest.raises(zor.Timeout):
        bus.events("network").get(0.01)


def test_modules_come_from_the_library_a_file_or_a_declaration(bus, tmp_path, monkeypatch):
    monkeypatch.setenv("ZOR_TYPES", f"{tmp_path}/own:{tmp_path}/broken")
    tank = '{"schema": 1, "modules": [{"name": "tank", "type": "0x2DA2%d"}]}'
    for name, text in ("usr/share/zor/types.d", tank % 0), ("own", tank % 1), ("broken", "[" * 100000):
        (tmp_path / name).mkdir(parents=True)
        (tmp_path / name / "types.json").write_text(text)
    bus.module("attic", 0x2DA22)
    for module, type in ("network", 0x2DA07), ("tank", 0x2DA20), ("attic", 0x2DA22):
        with bus.events(module) as events:
            bus.publish(module, "note", {"a": 1})
            assert events.get(PATIENCE).type == type
    with pytest.raises(zor.Argument, match="cellar.*broken/types.json"):
        bus.publish("cellar", "note", {})
    for wrong in 0x6101, 0x2DA00:
        with pytest.raises(zor.Argument):
            bus.publish(wrong, "note", {})


def test_described_types_are_served_called_and_published(bench, bus):
    bench.daemon("""
        sys.path.insert(0, %r)
        from test_events import Double, Reached, Level, Number
        bus = zor.Bus("doubler")
        @bus.serve(Double)
        def double(request): return Number(request.message.n * 2, request.message.unknown)
        print("ready")
        bus.run()
    """ % __file__.rpartition("/")[0])
    assert bus.call("doubler", Double, Number(21, b"kept"), timeout=PATIENCE) == Number(42, b"kept")
    with pytest.raises(zor.Failed) as caught:
        bus.call("doubler", Double, Number(1, b"bad"), timeout=PATIENCE)
    assert caught.value.status == 0x10001
    heard = []
    bus.on(Reached, lambda event: heard.append(event.payload) or bus.stop())
    bus.publish(Reached, Level(5))
    bus.run()
    assert heard == [Level(5)]
    assert bus.call("doubler", 0x110, timeout=PATIENCE).json["handles"] == [
        {"type": 0x6500, "kind": "request", "name": "Double"}]


def test_gap_is_told_with_type_and_count(bus):
    """As the server tells it, which takes seconds of blocking to cause."""
    import struct
    told = []
    bus.on_gap(lambda type, count: told.append((type, count)))
    bus._on_message(0xFF011, 0, 0, "", struct.pack("=QIIIIII", 1, 10, 2, 0x2DA07, 4, 0x2DA66, 5), None)
    bus._on_message(0xFF011, 0, 0, "", b"short", None)
    assert told == [(0x2DA07, 4), (0x2DA66, 5), (0x2DA00, 1)]
