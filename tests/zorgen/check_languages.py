"""The generated code of three languages against each other, and of an old type file against a newer one.

Usage: check_languages.py FOLDER-OF-MODULES C-PROGRAM C++-PROGRAM
"""
import dataclasses
import random
import struct
import subprocess
import sys
import unittest

FOLDER, *PROGRAMS = sys.argv[1:4]
sys.path.insert(0, FOLDER)
import thermo
import thermo_old

CLASSES = {f"{module.__name__}_{name}_{part}": getattr(getattr(module, name), part.capitalize())
           for module, name, part in [
               (thermo, "GetState", "request"), (thermo, "GetState", "reply"),
               (thermo, "GetStateJson", "request"), (thermo, "GetStateJson", "reply"),
               (thermo, "SetTarget", "request"), (thermo, "SetTarget", "reply"), (thermo, "Reached", "message"),
               (thermo, "Every", "message"), (thermo, "EveryJson", "message"), (thermo, "Any", "message"),
               (thermo, "Items", "message"), (thermo_old, "GetState", "reply"),
               (thermo_old, "GetStateJson", "reply"), (thermo_old, "Reached", "message")]}
NAMES = {each: name for name, each in CLASSES.items()}

STATE = {"actual": 21.5, "target": -0.1, "humidity": 55, "battery": 3700, "uptime": 4000000000, "serial": 2**64 - 2,
         "offset": -250, "heating": True, "room": "hall", "label": "north \"wall\"\n\u20ac \U0001f600"}
NEWER = {**STATE, "floor": -7, "note": "new"}
EVERY = {"u8": 1, "u16": 2, "u32": 3, "u64": 4, "i8": -5, "i16": -6, "i32": -7, "i64": -8, "class_": 9e-300,
         "lambda_": False, "daemon": "eleven char", "text": "\u00e4 text", "text8": "seven c", "bytes4": b"\0\xff\1\2",
         "rest_of_it": bytes(range(256))}
MESSAGES = [
    thermo.GetStateReply(**NEWER), thermo.GetStateReply(), thermo.GetStateJsonReply(**NEWER),
    thermo.GetStateJsonReply(), thermo.GetStateRequest(), thermo.GetStateJsonRequest(unknown=b'"x":[1]'),
    thermo.EveryMessage(), thermo.EveryMessage(**EVERY), thermo.EveryJsonMessage(),
    thermo.EveryJsonMessage(**EVERY, any=[None, {"a": "\u00e4"}, 1e100]), thermo.SetTargetRequest(target=-32768),
    thermo.SetTargetReply(reached=True), thermo.AnyMessage(code=-128, any={"": True}),
    thermo.ItemsMessage(small=255, items=b"items"), thermo.ReachedMessage(actual=1 / 3, since=2**32 - 1),
    *(thermo.ReachedMessage(actual=each) for each in (0.1, -0.0, 1e22, 1e23, 5e-324, 1.7976931348623157e308, 123456789.125,
                                                      2.0**53, 0.1 + 0.2, 1e-7)),
]

SURROGATE = b'{"label":"\\ud83d\\u0041"}'
# The body, and whether it is valid: each in all languages.
JSON_BODIES = [
    (b"", True), (b"{}", True), (b" { } \n\0\0", True), (b'{"actual":null,"room":null}', True), (b"[]", False), (b"{", False),
    (b"\0{}", False), (b"{}x", False), (b"{},{}", False), (b'{"a":1,}', False), (b'{,"a":1}', False), (b'{"a" 1}', False),
    (b"{'a':1}", False), (b'{"a":01}', False), (b'{"a":1.}', False), (b'{"a":.5}', False), (b'{"a":+1}', False),
    (b'{"a":NaN}', False), (b'{"a":-Infinity}', False), (b'{"a":tru}', False), (b'{"a":1e}', False), (b'{"a":-}', False),
    (b'{"actual":1e400}', False), (b'{"actual":-1e-400}', True), (b'{"actual":"1"}', False), (b'{"actual":true}', False),
    (b'{"actual":' + b"9" * 308 + b"." + b"9" * 900 + b"}", True), (b'{"actual":' + b"9" * 309 + b"}", False),
    (b'{"actual":0.' + b"0" * 400 + b'1}', True), (b'{"actual":0.5e-' + b"9" * 30 + b"}", True),
    (b'{"a":' + b"9" * 5000 + b"}", True), (b'{"actual":-' + b"9" * 5000 + b"}", False),
    (b'{"humidity":255}', True), (b'{"humidity":256}', False), (b'{"humidity":-1}', False), (b'{"humidity":-0}', True),
    (b'{"humidity":21.0}', True), (b'{"humidity":2.1e1}', True), (b'{"humidity":2.5}', False), (b'{"humidity":[1]}', False),
    (b'{"serial":18446744073709551615}', True), (b'{"serial":18446744073709551616}', False),
    (b'{"serial":9007199254740993.0}', True), (b'{"serial":1e17}', False), (b'{"offset":-32768}', True),
    (b'{"offset":-32769}', False), (b'{"offset":32768}', False), (b'{"heating":1}', False), (b'{"heating":"true"}', False),
    (b'{"room":"fifteen letters"}', True), (b'{"room":"sixteen letters!"}', False), (b'{"room":"\\u00e4234567890123456"}', False),
    (b'{"room":7}', False), (b'{"label":"\\u0000\\u00e4\\ud83d\\ude00\\/\\b"}', True), (SURROGATE, False),
    (b'{"label":"\\ude00"}', False), (b'{"label":"\\u12g4"}', False), (b'{"label":"\\x41"}', False), (b'{"label":"a\nb"}', False),
    (b'{"label":"\x7f"}', True), (b'{"label":"\xed\xa0\x80"}', False), (b'{"label":"\xc0\xaf"}', False),
    (b'{"label":"\xf4\x90\x80\x80"}', False), (b'{"label":"\xe2\x82"}', False), (b'{"label":"a', False), (b'{"label":"\\', False),
    (b'{"\\u006cabel":"escaped name","label":"last"}', True), (b'{"new":{"label":"no"},"label":"x" , "y":[ ] }', True),
    (b'{"new":"\xff"}', False), (b'{"new":"\\ud800"}', False), (b'{"\xff":1}', False),
    (b'{"a":' + b"[" * 63 + b"]" * 63 + b"}", True), (b'{"a":' + b"[" * 64 + b"]" * 64 + b"}", False),
    (b'{"a":' + b'{"b":' * 5000 + b"1" + b"}" * 5001, False), (b'{"a":[}', False), (b'{"a":[1,]}', False), (b'{"a":{"b"}}', False),
]
OTHER_BODIES = [
    (thermo.EveryJsonMessage, 0, b'{"bytes4":"00fF"}', True), (thermo.EveryJsonMessage, 0, b'{"bytes4":"0"}', False),
    (thermo.EveryJsonMessage, 0, b'{"bytes4":"0011223344"}', False), (thermo.EveryJsonMessage, 0, b'{"bytes4":"0g"}', False),
    (thermo.EveryJsonMessage, 0, b'{"any":null}', True), (thermo.SetTargetRequest, 0x7fff, b"", True),
    (thermo.SetTargetRequest, 0x8000, b"", False), (thermo.SetTargetRequest, 0xffff8000, b"", True),
    (thermo.SetTargetRequest, 0xffff7fff, b"more", False), (thermo.SetTargetReply, 7, b"more", True),
    (thermo.ItemsMessage, 256, b"", False), (thermo.AnyMessage, 128, b"", False), (thermo.AnyMessage, 0, b"[1]\0\0", True),
    (thermo.AnyMessage, 0, b"[1]\0 ", False), (thermo.AnyMessage, 0, b"[1", False), (thermo.AnyMessage, 0, b" ", False),
    (thermo.AnyMessage, 0, b"\0", True), (thermo.AnyMessage, 0, b"[" * 63 + b"]" * 63, True),
]


def encoded_values(message):
    """The values as the programs print them."""
    values = [getattr(message, each.attribute) for each in message._fields][:15]
    texts = [each.encode("utf-8", "surrogateescape") if isinstance(each, str) else each for each in values[10:]]
    numbers = [f"{each:.17g}" if isinstance(each, float) else str(int(each)) for each in values[:10]]
    return numbers + ["-" + each.hex() for each in texts]


class Languages(unittest.TestCase):
    def run_all(self, cases):
        """For each (class, data, body) what each program makes of it: None, or the data, the body and the values."""
        lines = "".join(f"{NAMES[each]} {data} -{body.hex()}\n" for each, data, body in cases)
        results = []
        for program in PROGRAMS:
            run = subprocess.run([program], input=lines, capture_output=True, text=True, timeout=250)
            self.assertEqual((run.returncode, run.stderr), (0, ""), cases[run.stdout.count("\n"):][:1])
            rows = [None if line == "invalid" else line.split(" ") for line in run.stdout.splitlines()]
            self.assertEqual(len(rows), len(cases))
            results.append([row and (int(row[0]), bytes.fromhex(row[1][1:]), row[2:]) for row in rows])
        return zip(*results)

    def same(self, message, data, body, what):
        """A body of another language is what Python makes of the message, byte by byte in a record."""
        word, own = message.encode()
        self.assertEqual(data, word, what)
        if message._is_json and own:
            self.assertEqual(repr(type(message).decode(data, body)), repr(type(message).decode(word, own)), what)
        else:
            self.assertEqual(body, own, what)

    def check(self, cases, expected=None):
        """All languages accept the same bodies, and make the same of them."""
        for at, (case, rows) in enumerate(zip(cases, self.run_all(cases))):
            try:
                message = case[0].decode(*case[1:])
                message.encode()
            except ValueError:
                message = None
            self.assertEqual([row is not None for row in rows], [message is not None] * 2, case)
            if expected is not None:
                self.assertEqual(message is not None, expected[at], case)
            for row in rows if message is not None else ():
                if not (isinstance(message, thermo.AnyMessage)):
                    self.same(message, row[0], row[1], case)
                if row[2]:
                    self.assertEqual(row[2], encoded_values(message), case)

    def test_each_language_reads_what_another_wrote(self):
        cases = [(type(each), *each.encode()) for each in MESSAGES]
        self.check(cases, [True] * len(cases))
        for message, rows in zip(MESSAGES, self.run_all(cases)):
            for data, body, _ in rows:
                self.assertEqual(repr(type(message).decode(data, body)), repr(message))

    def test_hostile_bodies_are_refused_by_all_languages(self):
        rows = [(thermo.GetStateJsonReply, 0, *each) for each in JSON_BODIES] + OTHER_BODIES
        self.check([row[:3] for row in rows], [row[3] for row in rows])

    def test_a_record_may_end_after_any_field_but_not_in_a_number(self):
        _, body = thermo.GetStateReply(**NEWER).encode()
        ends = [0, 8, 16, 17, 19, 23, 31, 33, 34, 50, 51 + len(STATE["label"].encode())]
        texts = [*range(35, 50), *range(51, ends[-1]), *range(ends[-1] + 5, len(body))]
        valid = {*ends, *texts, ends[-1] + 4}
        cases = [(thermo.GetStateReply, 0, body[:end]) for end in range(len(body))]
        self.check(cases, [end in valid for end in range(len(body))])
        self.assertEqual(thermo.GetStateReply.decode(0, body[:19]), thermo.GetStateReply(
            **{name: STATE[name] for name in ("actual", "target", "humidity", "battery")}))

    def test_damaged_bodies_mean_the_same_in_all_languages(self):
        dice = random.Random(20)
        pieces = [b"", b"\0", b'"', b"\\", b"{", b"]", b",", b":", b"-", b"1", b"0", b".", b"\xff", b" ", b"null", b"\\u0041"]
        cases = []
        for message in MESSAGES * 100:
            data, body = message.encode()
            damaged = bytearray(body)
            for _ in range(dice.randint(1, 3) if damaged else 0):
                at = dice.randrange(len(damaged))
                # C refuses hexadecimal digits that are escaped.
                usable = pieces[:-1] if isinstance(message, thermo.EveryJsonMessage) else pieces
                damaged[at:at + dice.randint(0, 2)] = dice.choice(usable)
            cases.append((type(message), data, bytes(damaged)))
        self.check(cases)

    def test_old_and_new_speak_to_each_other_and_lose_nothing(self):
        for name in ("GetStateReply", "GetStateJsonReply"):
            new, old = getattr(thermo, name), getattr(thermo_old, name)
            sent = new(**NEWER)
            for data, body, _ in next(self.run_all([(old, *sent.encode())])):  # through an old daemon
                self.assertEqual(new.decode(data, body), sent)
            passed = old.decode(*sent.encode())
            self.assertEqual({each: getattr(passed, each) for each in STATE}, STATE)
            self.assertEqual(new.decode(*passed.encode()), sent)
            self.check([(new, *old(**STATE).encode())], [True])  # C and C++ make the same of what is missing as Python
            self.assertEqual(new.decode(*old(**STATE).encode()), new(**STATE, floor=-1, note="none"))

    def test_unknown_members_are_kept_as_they_are_written(self):
        body = b'{ "zeta" : 1.50 ,"actual":2,"alpha":{"actual":[3]}, "since":4,"zeta":"\\u00e4" }'
        for data, made, _ in next(self.run_all([(thermo.ReachedMessage, 0, body)])):
            for member in (b'"zeta" : 1.50', b'"alpha":{"actual":[3]}', b'"zeta":"\\u00e4"'):
                self.assertEqual(made.count(member), 1, made)
            self.assertEqual(thermo.ReachedMessage.decode(data, made), thermo.ReachedMessage.decode(0, body))

    def test_what_no_body_carries_is_an_error(self):
        for message in (thermo.GetStateReply(room="sixteen letters!"), thermo.GetStateReply(label="a\0b"),
                        thermo.GetStateReply(humidity=256), thermo.GetStateReply(humidity=1.5),
                        thermo.GetStateJsonReply(actual=float("nan")), thermo.GetStateJsonReply(label="\udc80"),
                        thermo.GetStateJsonReply(serial=-1), thermo.EveryMessage(bytes4=b"12345"),
                        thermo.SetTargetRequest(target=40000), thermo.AnyMessage(any=float("inf"))):
            self.assertRaises(ValueError, message.encode)

    def test_types_are_described(self):
        self.assertEqual((thermo.GetState.TYPE, thermo.GetState.KIND, thermo.GetState.TO), (0x6101, "request", "thermo"))
        self.assertEqual((thermo.Reached.MODULE, thermo.Reached.EVENT), ("thermo", "reached"))
        self.assertEqual(thermo.MODULES, {"thermo": 0x2DA20})
        self.assertEqual([each.name for each in dataclasses.fields(thermo.EveryMessage)][8:10], ["class_", "lambda_"])


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1])
