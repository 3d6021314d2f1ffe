"""Requests between this process and daemons beside it."""
import json
import os

import pytest

import zor
from conftest import PATIENCE

# Evaluates what it is asked; 0x6201 replies after as many milliseconds as the data word says.
ORACLE = """
bus = zor.Bus("oracle")
def fail(error): raise error
@bus.serve(0x6200)
def answer(request): return eval(request.text, globals(), {"request": request})
@bus.serve(0x6201)
def later(request):
    reply = request.defer()
    bus.after(request.word / 1000, lambda: reply.reply((request.word, request.body)))
@bus.serve(0x6202, oneway=True)
def echo_often(request):
    for i in range(3): bus.send(request.source, 0x6300, word=i)
@bus.serve(0x6203)
def noise_first(request):
    for i in range(3): bus.send(request.source, 0x6300, word=i)
    return 7
"""
READY = "print('ready')\nsys.exit(bus.run())\n"


@pytest.fixture
def oracle(bench):
    return bench.daemon(ORACLE + READY)


@pytest.mark.parametrize("result, word, body", [
    ("None", 0, b""),
    ("7", 7, b""),
    ("0xFFFFFFFF", 0xFFFFFFFF, b""),
    ("True", 1, b""),
    ("'grüß'", 0, "grüß".encode()),
    ("b'a\\0b'", 0, b"a\0b"),
    ("bytearray(b'ab')", 0, b"ab"),
    ("{'a': [1, None, 'ü']}", 0, '{"a":[1,null,"ü"]}'.encode()),
    ("1.5", 0, b"1.5"),
    ("(3, 'x')", 3, b"x"),
    ("(0x10007, {'a': 1})", 0x10007, b'{"a":1}'),  # no member "error": a result like any other
    ("('a', 'b')", 0, b'["a","b"]'),
    ("b'x' * 100000", 0, b"x" * 100000),
    ("request.source", 0, b"keeper"),
])
def test_result_becomes_the_reply(oracle, bus, result, word, body):
    reply = bus.call("oracle", 0x6200, result, timeout=PATIENCE)
    assert (reply.word, reply.body, reply.source) == (word, body, "oracle")


@pytest.mark.parametrize("expression, status, text, traced", [
    ("1 / 0", 0x10007, "division by zero", True),
    ("fail(KeyError())", 0x10007, "KeyError", True),
    ("fail(zor.Failed('no such room', 0x10014))", 0x10014, "no such room", False),
    ("fail(zor.Timeout('late'))", 0x10005, "late", True),
    ("-1", 0x10001, "-1 does not fit a data word", True),
    ("object()", 0x10001, "not JSON serializable", True),
    ("{'a': float('nan')}", 0x10001, "not JSON compliant", True),
    ("fail(type('Mute', (Exception,), {'__str__': lambda self: 1 / 0})())", 0x10007, "Mute", True),
    ("fail(OSError('\\udcff'))", 0x10007, "udcff", True),
    ("request.defer() and None", 0x10007, "dropped without a reply", False),
    ("request.defer().fail('soon', 0x10001)", 0x10001, "soon", False),
])
def test_exception_becomes_an_error_reply(oracle, bus, expression, status, text, traced):
    with pytest.raises(zor.Failed, match=text) as caught:
        bus.call("oracle", 0x6200, expression, timeout=PATIENCE)
    assert caught.value.status == status
    bus.call("oracle", 0x706, timeout=PATIENCE)
    assert oracle.wait() == 0
    assert ("Traceback" in oracle.said) == traced


def test_call_errors_are_told_apart(oracle, bus):
    with pytest.raises(zor.PeerGone):
        bus.call("nobody", 0x6200, timeout=PATIENCE)
    with pytest.raises(zor.Timeout):
        bus.call("oracle", 0x6201, word=600000, timeout=0.1)
    for wrong in [("a name that is long", 1), ("oracle", 0), ("oracle", 0x100000), ("keeper", 1), (1, "oracle")]:
        with pytest.raises(zor.Argument):
            bus.call(*wrong)
    with pytest.raises(zor.NoMemory):
        bus.call("oracle", 0x6200, bytes(9 << 20))
    with pytest.raises(zor.Argument):
        bus.call("oracle", 0x6200, "'{'", timeout=PATIENCE).json


def test_late_reply_is_nobodys(oracle, bus):
    """It has the type and sender of the next request's reply, and of requests that are served here."""
    served = []
    bus.serve(0x6201, served.append)
    with pytest.raises(zor.Timeout):
        bus.call("oracle", 0x6201, "first", word=400, timeout=0.1)
    assert bus.call("oracle", 0x6201, "second", word=800, timeout=PATIENCE).text == "second"
    bus.after(0.05, bus.stop)
    bus.run()
    assert served == []


def test_messages_during_a_call_are_handled_later_in_order(oracle, bus):
    got = []
    bus.serve(0x6300, lambda request: got.append(request.word) or len(got) == 3 and bus.stop(5), oneway=True)
    assert bus.call("oracle", 0x6203, timeout=PATIENCE).word == 7
    assert got == []
    assert bus.run() == 5
    assert got == [0, 1, 2]


def test_descriptor_is_found_behind_other_messages(bench, bus):
    bench.daemon("""
        bus = zor.Bus("lender")
        reader, writer = os.pipe()
        os.write(writer, b"lent")
        for i in range(3): bus.send("keeper", 0x6300, word=i)
        bus.send_fd("keeper", 0x6301, reader)
        bus.send("keeper", 0x6300, word=3)
        print("ready")
        bus.run()
    """)
    got = []

    def lent(request):
        with os.fdopen(request.receive_fd(PATIENCE), "rb") as file:
            got.append(file.read(4))

    bus.serve(0x6300, lambda request: got.append(request.word) or request.word == 3 and bus.stop(), oneway=True)
    bus.serve(0x6301, lent, oneway=True)
    bus.run()
    assert got == [0, 1, 2, b"lent", 3]
    bus.after(0.05, bus.stop)
    bus.serve(0x6302, lambda request: request.receive_fd(0.05))
    bus.run()


def test_oneway_messages_and_timers_report_exceptions(oracle, bus):
    errors = []
    bus.on_error(errors.append)
    bus.serve(0x6300, lambda request: 1 / 0, oneway=True)
    bus.after(0, lambda: {}["missing"])
    bus.send("oracle", 0x6202)
    bus.every(0.01, lambda: len(errors) == 4 and bus.stop())
    bus.run()
    assert sorted(type(error).__name__ for error in errors) == ["KeyError"] + ["ZeroDivisionError"] * 3


def test_introspection_and_safe_exit(oracle, bus):
    known = json.loads(bus.call("oracle", 0x110, timeout=PATIENCE).text)
    assert known == {"name": "oracle", "face": "python", "pid": oracle.process.pid, "events": [], "handles": [
        {"type": 0x6200, "kind": "request"}, {"type": 0x6201, "kind": "request"},
        {"type": 0x6202, "kind": "oneway"}, {"type": 0x6203, "kind": "request"}]}
    reply = bus.call("oracle", 0x706, timeout=PATIENCE)
    assert (reply.word, reply.body, oracle.wait()) == (0, b"", 0)


def test_joining_fails_by_name(empty_bench):
    with pytest.raises(zor.NotConnected):
        zor.Bus("keeper")
    empty_bench.server()
    for wrong in "", "a name that is long", "zero\0":
        with pytest.raises(zor.Argument):
            zor.Bus(wrong)
    with zor.Bus("keeper") as bus:
        with pytest.raises(zor.Error, match="already"):
            zor.Bus("second")
    with pytest.raises(zor.NotConnected):
        bus.send("nobody", 1)
    zor.Bus("second").close()
