#!/usr/bin/python3
"""Collects the kept records of a fleet in an SQLite database, each exactly once.

Several collectors share the load: the broker gives each record to one collector of a group. A record is acknowledged
only after it has been committed, and a record that comes twice is dropped by its identity (gateway, stream, number). So
neither a killed collector nor a full disk loses or doubles one.

Collectors on one machine may use one database. Each needs a client ID of its own, the same after a restart: the broker
keeps a collector's share under this name while the collector is away.
"""
import argparse
import json
import random
import re
import signal
import sqlite3
import sys
import time
from urllib.parse import urlsplit

import paho.mqtt.client as mqtt
from paho.mqtt.packettypes import PacketTypes
from paho.mqtt.properties import Properties

MOST_PAYLOAD = 1024 * 1024  # bytes; what is longer is rejected
MOST_REJECTED = 10_000  # the latest ones are kept, so that a malicious gateway cannot fill the disk
MOST_SAMPLE = 1024  # bytes of a rejected payload, and characters of its topic, that are kept
LARGEST_NUMBER = 2**63 - 1  # of an SQLite column

SCHEMA = """
CREATE TABLE IF NOT EXISTS record (
  gateway TEXT NOT NULL, stream TEXT NOT NULL, number INTEGER NOT NULL,
  kind TEXT NOT NULL,             -- event, log or gap
  time TEXT NOT NULL,             -- by the gateway's clock
  topic TEXT NOT NULL,            -- below PREFIX/GATEWAY
  lost INTEGER NOT NULL,          -- of a gap: how many records the gateway gave up; otherwise 0
  payload TEXT NOT NULL,          -- JSON, as it came
  PRIMARY KEY (gateway, stream, number)) WITHOUT ROWID;
-- Records of the classes 'latest' and 'drop', which have no identity.
CREATE TABLE IF NOT EXISTS unnumbered (
  gateway TEXT NOT NULL, kind TEXT NOT NULL, time TEXT NOT NULL, topic TEXT NOT NULL, payload TEXT NOT NULL);
CREATE TABLE IF NOT EXISTS rejected (
  id INTEGER PRIMARY KEY, received TEXT NOT NULL DEFAULT CURRENT_TIMESTAMP, topic TEXT NOT NULL, reason TEXT NOT NULL,
  size INTEGER NOT NULL, sample BLOB NOT NULL);
CREATE TABLE IF NOT EXISTS counted (name TEXT PRIMARY KEY, value INTEGER NOT NULL) WITHOUT ROWID;
"""

# Numbers begin with 1 and have no holes in a stream.
HOLES = """
SELECT gateway, stream, previous + 1, number - 1 FROM (
  SELECT gateway, stream, number,
         lag(number, 1, 0) OVER (PARTITION BY gateway, stream ORDER BY number) AS previous FROM record)
WHERE number > previous + 1 ORDER BY gateway, stream, number
"""


class Rejected(Exception):
    """What came is not a record."""


def refuse_constant(_):
    raise Rejected("not JSON")


def text_of(record, name):
    value = record.get(name)
    if not isinstance(value, str) or len(value) > 256:
        raise Rejected(f"{name}: not a short text")
    try:
        value.encode()
    except UnicodeEncodeError:
        raise Rejected(f"{name}: not Unicode") from None
    return value


def number_of(record, name):
    value = record.get(name)
    if type(value) is not int or not 0 < value <= LARGEST_NUMBER:  # bool is a kind of int
        raise Rejected(f"{name}: not a positive number of 63 bits")
    return value


def parse(prefix, topic, payload):
    """The table and the row for a message. Nothing of a message is trusted but its topic, which the broker checks."""
    if not topic.startswith(prefix + "/") or topic[len(prefix) + 1:].count("/") < 1:
        raise Rejected("topic: not below the prefix and a gateway")
    gateway, below = topic[len(prefix) + 1:].split("/", 1)
    kind = below.split("/", 1)[0]
    if len(payload) > MOST_PAYLOAD:
        raise Rejected("too long")
    try:
        text = payload.decode("utf-8")
        record = json.loads(text, parse_constant=refuse_constant)
    except (ValueError, RecursionError):
        raise Rejected("not JSON") from None
    if not isinstance(record, dict):
        raise Rejected("not a JSON object")
    if record.get("schema") != 1:
        raise Rejected("schema: not 1")
    if text_of(record, "gateway") != gateway:
        raise Rejected("gateway: not that of the topic")
    when = text_of(record, "time")
    if "stream" not in record and "number" not in record and kind != "gap":
        return "unnumbered", (gateway, kind, when, below, text)
    stream = text_of(record, "stream")
    if not re.fullmatch("[0-9a-f]{16}", stream):
        raise Rejected("stream: not 16 hexadecimal digits")
    lost = number_of(record, "lost") if kind == "gap" else 0
    return "record", (gateway, stream, number_of(record, "number"), kind, when, below, lost, text)


class Store:
    """The database. What cannot be committed now is left to be tried again."""

    INSERT = {
        "record": "INSERT OR IGNORE INTO record VALUES (?, ?, ?, ?, ?, ?, ?, ?)",
        "unnumbered": "INSERT INTO unnumbered VALUES (?, ?, ?, ?, ?)",
        "rejected": "INSERT INTO rejected (topic, reason, size, sample) VALUES (?, ?, ?, ?)",
    }

    def __init__(self, path):
        # A second collector may be writing.
        self.database = sqlite3.connect(path, timeout=30, isolation_level=None)
        self.database.execute("PRAGMA journal_mode = WAL")
        self.database.execute("PRAGMA synchronous = FULL")  # a power cut takes nothing that is acknowledged
        self.database.executescript("BEGIN IMMEDIATE;" + SCHEMA + "COMMIT;")

    def commit(self, batch):
        """In one transaction. Raises sqlite3.Error, and has changed nothing then."""
        run = self.database.execute
        run("BEGIN IMMEDIATE")
        try:
            doubles = 0
            for table, row in batch:
                doubles += run(self.INSERT[table], row).rowcount == 0
            for name, value in (("messages", len(batch)), ("doubles", doubles)):
                run("INSERT INTO counted VALUES (?, ?) ON CONFLICT (name) DO UPDATE SET value = value + excluded.value",
                    (name, value))
            run("DELETE FROM rejected WHERE id <= (SELECT max(id) FROM rejected) - ?", (MOST_REJECTED,))
            run("COMMIT")
        except sqlite3.Error:
            if self.database.in_transaction:  # SQLite itself rolls back after some errors
                run("ROLLBACK")
            raise


class Client(mqtt.Client):
    """A client that acknowledges when it is told to. paho 1.6 acknowledges as soon as a callback has returned; later
    versions have manual_ack for this."""

    def __init__(self, **options):
        super().__init__(**options)
        self.held = []

    def _send_puback(self, mid):
        self.held.append(mid)
        return mqtt.MQTT_ERR_SUCCESS

    def acknowledge(self):
        for mid in self.held:
            super()._send_puback(mid)
        self.held.clear()


if not hasattr(mqtt.Client, "_send_puback"):
    sys.exit("collector: this paho acknowledges in another way")


class Collector:
    def __init__(self, options):
        self.options = options
        self.store = Store(options.database)
        self.batch = []
        self.write_at = 0.0
        self.stopped = False
        self.status = 0
        self.connected_at = None
        self.resumed = False
        self.complaint = None
        signal.signal(signal.SIGTERM, self.stop)
        signal.signal(signal.SIGINT, self.stop)
        self.client = self.make_client()

    def make_client(self):
        options = self.options
        client = Client(client_id=options.client_id, protocol=mqtt.MQTTv5)
        client.on_connect = self.on_connect
        client.on_disconnect = self.on_disconnect
        client.on_subscribe = self.on_subscribe
        client.on_message = self.on_message
        if options.ca:
            client.tls_set(options.ca, options.cert, options.key)
        if options.user:
            with open(options.password_file, encoding="utf-8") as file:
                client.username_pw_set(options.user, file.readline().rstrip("\n"))
        return client

    def say(self, text):
        """Each problem once, until there is another one or none."""
        if text != self.complaint:
            print(f"collector: {text}", file=sys.stderr, flush=True)
        self.complaint = text

    def stop(self, *_):
        self.stopped = True

    def fail(self, text):
        self.say(text)
        self.status = 1
        self.stopped = True

    # What the broker tells.

    def on_connect(self, client, _, flags, reason, __):
        if reason != 0:
            self.say(f"the broker refuses: {reason}")
            return
        self.connected_at = time.monotonic()
        self.complaint = None
        self.resumed = bool(flags["session present"])
        group = (f"$share/{self.options.group}/" if self.options.group else "") + f"{self.options.prefix}/+"
        client.subscribe([(f"{group}/{each}", mqtt.SubscribeOptions(qos=1)) for each in ("event/#", "log", "gap")])

    def on_subscribe(self, _, __, ___, reasons, ____):
        refused = [str(reason) for reason in reasons if reason.value >= 128]
        if refused:
            self.fail(f"the broker refuses the subscription: {refused[0]}")
        else:
            session = "resumed" if self.resumed else "new: what was published before is not collected"
            print(f"collector: subscribed, session {session}", file=sys.stderr, flush=True)

    def on_disconnect(self, _, __, reason, ___=None):
        self.connected_at = None
        if getattr(reason, "value", reason) == 142:  # session taken over: trying again would go on for ever
            self.fail(f"another client is connected as {self.options.client_id}")
        elif not self.stopped:
            self.say(f"disconnected: {reason}")

    def on_message(self, _, __, message):
        topic = message.topic
        if message.qos == 0 and len(self.batch) >= self.options.batch:
            return  # it has no promise, and nothing else bounds how many wait for a full disk
        try:
            self.batch.append(parse(self.options.prefix, topic, message.payload))
        except Rejected as reason:
            self.batch.append(("rejected", (topic[:MOST_SAMPLE], str(reason), len(message.payload), message.payload[:MOST_SAMPLE])))

    # The loop.

    def commit(self):
        """Acknowledges what has been committed. After a failure both wait; the broker sends at most a batch ahead."""
        try:
            self.store.commit(self.batch)
        except sqlite3.Error as error:
            self.say(f"cannot write: {error}")
            return False
        self.client.acknowledge()
        self.batch.clear()
        self.complaint = None
        return True

    def connect(self):
        options = self.options
        properties = Properties(PacketTypes.CONNECT)
        properties.SessionExpiryInterval = options.session_seconds
        properties.ReceiveMaximum = options.batch
        # The broker repeats all that it has no acknowledgement for.
        self.batch.clear()
        self.client.held.clear()
        try:
            self.client.connect(options.host, options.port, keepalive=60, clean_start=False, properties=properties)
        except (OSError, ValueError) as error:
            self.say(f"cannot connect: {error}")

    def turn(self):
        """Reads what has come, and commits when there is nothing more: a batch is as large as the load makes it."""
        waiting = len(self.batch)
        due = waiting > 0 and time.monotonic() >= self.write_at
        self.client.loop(0.0 if due else 0.2)
        if due and (len(self.batch) == waiting or waiting >= self.options.batch) and self.client.socket():
            self.write_at = 0.0 if self.commit() else time.monotonic() + 2.0

    def run(self):
        pause, connect_at = 1.0, 0.0
        while not self.stopped:
            if self.client.socket():
                self.turn()
                if self.connected_at and time.monotonic() - self.connected_at > 10:
                    pause = 1.0
            elif time.monotonic() < connect_at:
                time.sleep(0.05)
            else:
                # A random part of a growing pause: all collectors have lost the broker in the same moment.
                connect_at = time.monotonic() + random.uniform(0, pause)
                pause = min(pause * 2, 60.0)
                self.connect()
        if self.batch and self.client.socket():
            self.commit()
        self.client.disconnect()
        return self.status


def report(path):
    database = sqlite3.connect(f"file:{path}?mode=ro", uri=True)

    def one(query):
        return database.execute(query).fetchone()[0]

    holes = database.execute(HOLES).fetchall()
    lines = [(f"{kind}s" if kind != "log" else "log records", f"SELECT count(*) FROM record WHERE kind = '{kind}'")
             for kind in ("event", "log", "gap")]
    lines += [
        ("given up by gateways", "SELECT coalesce(sum(lost), 0) FROM record"),
        ("without a number", "SELECT count(*) FROM unnumbered"),
        ("doubles dropped", "SELECT coalesce(sum(value), 0) FROM counted WHERE name = 'doubles'"),
        ("rejected", "SELECT coalesce(max(id), 0) FROM rejected"),
        ("gateways", "SELECT count(DISTINCT gateway) FROM record"),
        ("streams", "SELECT count(*) FROM (SELECT DISTINCT gateway, stream FROM record)"),
    ]
    for name, query in lines:
        print(f"{name + ':':22}{one(query)}")
    print(f"{'holes:':22}{len(holes)}, {sum(last - first + 1 for _, _, first, last in holes)} records")
    for reason, count in database.execute("SELECT reason, count(*) FROM rejected GROUP BY reason ORDER BY reason"):
        print(f"  rejected, {reason}: {count}")
    return 0


def print_holes(path):
    """One line for each, such as: gw7 0123456789ab0000 12-15. Exit status 1 when there are some."""
    holes = sqlite3.connect(f"file:{path}?mode=ro", uri=True).execute(HOLES).fetchall()
    for gateway, stream, first, last in holes:
        print(f"{gateway} {stream} {first}-{last}")
    return 1 if holes else 0


def parse_options():
    parser = argparse.ArgumentParser(description="Collects the kept records of a fleet in an SQLite database.")
    parser.add_argument("database", help="path of the SQLite database")
    parser.add_argument("--broker", default="mqtt://127.0.0.1", metavar="URL", help="mqtt://HOST[:PORT] or mqtts://...")
    parser.add_argument("--prefix", default="zor", help="setting 'prefix' of the gateways (%(default)s)")
    parser.add_argument("--group", default="collectors", 
                        help="collectors of a group share the load (%(default)s); empty: this one takes all")
    parser.add_argument("--client-id", default="collector", help="one of its own for each collector (%(default)s)")
    parser.add_argument("--session-seconds", type=int, default=7 * 86400, metavar="N",
                        help="how long the broker keeps this collector's share while it is away (%(default)s)")
    parser.add_argument("--batch", type=int, default=500, metavar="N",
                        help="records in a transaction at most (%(default)s)")
    parser.add_argument("--ca", metavar="FILE", help="PEM: who may vouch for the broker; needed for mqtts")
    parser.add_argument("--cert", metavar="FILE", help="PEM: this collector's own certificate")
    parser.add_argument("--key", metavar="FILE", help="PEM: its key")
    parser.add_argument("--user", help="user name at the broker")
    parser.add_argument("--password-file", metavar="FILE", help="its first line is the password")
    parser.add_argument("--report", action="store_true", help="print what is in the database instead")
    parser.add_argument("--holes", action="store_true", help="print which numbers are missing instead")
    options = parser.parse_args()
    url = urlsplit(options.broker)
    if url.scheme not in ("mqtt", "mqtts") or not url.hostname:
        parser.error("--broker: not mqtt://HOST[:PORT] or mqtts://HOST[:PORT]")
    if (url.scheme == "mqtts") != bool(options.ca):
        parser.error("--ca belongs to mqtts, and mqtts needs it")
    if bool(options.user) != bool(options.password_file):
        parser.error("--user and --password-file belong together")
    if not 1 <= options.batch <= 65535:
        parser.error("--batch: from 1 to 65535")
    options.host = url.hostname
    options.port = url.port or (8883 if options.ca else 1883)
    return options


def main():
    options = parse_options()
    try:
        if options.report:
            return report(options.database)
        if options.holes:
            return print_holes(options.database)
        return Collector(options).run()
    except (sqlite3.Error, OSError) as error:
        print(f"collector: {error}", file=sys.stderr)
        return 1


if __name__ == "__main__":
    sys.exit(main())
