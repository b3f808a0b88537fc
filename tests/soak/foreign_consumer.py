#!/usr/bin/python3
"""A consumer of the soak that speaks the protocol by itself: foreign_consumer.py NAME LOG

It understands and logs what soak_consumer does, and has nothing of the library's in it: the bus is
GDBus's, the records are written and read here.
"""
import os
import struct
import sys
import threading
import time

import gi
gi.require_version("Gio", "2.0")
from gi.repository import Gio, GLib  # noqa: E402

import expressions  # noqa: E402

SWITCH = "com.quor.Event.Switch"
SWITCH_PATH = "/com/quor/Event/Switch"
SWITCH_CONSUMER = "com.quor.Event.Switch.Consumer"
PATH = "/com/quor/Event/Consumer/foreign"
INTERFACE = "com.quor.Event.Consumer"

EVENT, INSPECTABLE, AND_LIST, BUCKET, PAIR, EXPRESSION = 0xF1, 0xF2, 0xF3, 0xF4, 0xF5, 0xF6
EXPRESSION_CONTAINER, STRING = 2, 4


def text(value):
    data = value.encode()
    return struct.pack("<H", len(data)) + data


def pair(test):
    key, value, negated = test
    return (bytes([PAIR]) + text(key or "") + bytes([key is None]) + text("") + text("") +
            text(value or "") + bytes([value is None]) + text("") + text("") + text("") +
            bytes([negated, STRING]) + struct.pack("<H", 0))


def bucket(tests):
    return bytes([BUCKET]) + struct.pack("<H", len(tests)) + b"".join(pair(one) for one in tests)


def table(tests, name):
    """One bucket for all tests of the same name."""
    grouped = {}
    for test in tests:
        grouped.setdefault(name(test), []).append(test)
    return struct.pack("<H", len(grouped)) + b"".join(bucket(group) for group in grouped.values())


def expression_record(and_lists):
    record = (bytes([EXPRESSION]) + struct.pack("<I", 0) + text("") + text("") +
              struct.pack("<I", 0) + bytes([0]) +
              struct.pack("<BHBB", INSPECTABLE, len(and_lists), EXPRESSION_CONTAINER, 0))
    for tests in and_lists:
        record += (bytes([AND_LIST]) + table([one for one in tests if one[0] is not None],
                                             lambda test: test[0]) +
                   table([one for one in tests if one[0] is None], lambda test: test[1]))
    return record + struct.pack("<H", 0)


class Reader:
    def __init__(self, data):
        self.data, self.at = data, 0

    def number(self, form):
        value, = struct.unpack_from("<" + form, self.data, self.at)
        self.at += struct.calcsize("<" + form)
        return value

    def text(self):
        size = self.number("H")
        self.at += size
        return self.data[self.at - size:self.at].decode()

    def expect(self, value):
        found = self.number("B")
        if found != value:
            raise ValueError(f"{found:#x} stands where {value:#x} is expected")


def read_pair(reader):
    reader.expect(PAIR)
    key = reader.text()
    reader.number("B")
    reader.text(), reader.text()
    value = reader.text()
    reader.number("B")
    reader.text(), reader.text(), reader.text()
    reader.number("B"), reader.number("B")
    for _ in range(reader.number("H")):
        reader.text()
    return key, value


def read_event(data):
    """The keys with their values."""
    reader = Reader(data)
    reader.expect(EVENT)
    reader.expect(INSPECTABLE)
    lists = reader.number("H")
    reader.number("B"), reader.number("B")
    found = {}
    for _ in range(lists):
        reader.expect(AND_LIST)
        for _ in range(2):
            for _ in range(reader.number("H")):
                reader.expect(BUCKET)
                for _ in range(reader.number("H")):
                    key, value = read_pair(reader)
                    found[key] = value
    for _ in range(reader.number("H")):
        reader.text()
    size = reader.number("H")                       # of the user data
    reader.at += size
    if reader.number("i") != 0x7FFFFFFF:            # microseconds, and the seconds with them
        reader.number("q")
    for _ in range(3):
        reader.number("I")
    reader.number("B")
    if reader.at != len(data):
        raise ValueError(f"{len(data) - reader.at} bytes follow the event")
    return found


class Consumer:
    def __init__(self, name, log):
        self.name = name
        self.log = os.open(log, os.O_WRONLY | os.O_CREAT | os.O_APPEND, 0o600)
        self.loop = GLib.MainLoop()
        self.subscriptions = {}     # number: (token, record)
        self.numbers = {}           # by token
        self.lock = threading.Lock()    # for the numbers
        self.tokens = 0
        self.open_calls = 0
        self.online = False
        flags = (Gio.DBusConnectionFlags.AUTHENTICATION_CLIENT |
                 Gio.DBusConnectionFlags.MESSAGE_BUS_CONNECTION)
        self.bus = Gio.DBusConnection.new_for_address_sync(
            os.environ["DBUS_SYSTEM_BUS_ADDRESS"], flags, None, None)
        # Not as a registered object: the binding keeps each call that is made to one.
        self.bus.add_filter(self.filter)
        Gio.bus_watch_name_on_connection(self.bus, SWITCH, Gio.BusNameWatcherFlags.NONE,
                                         self.switch_came, self.switch_went)
        self.input = b""
        GLib.unix_fd_add_full(GLib.PRIORITY_DEFAULT, 0, GLib.IOCondition.IN | GLib.IOCondition.HUP,
                              self.readable, None)

    def line(self, *words):
        os.write(self.log, (" ".join(str(word) for word in words) + "\n").encode())

    # ---- The bus ----

    def call_switch(self, member, arguments):
        def done(bus, result):
            self.open_calls -= 1
            try:
                bus.call_finish(result)
            except GLib.Error:
                pass    # the switch went meanwhile: the next one is told
        self.open_calls += 1
        self.bus.call(SWITCH, SWITCH_PATH, SWITCH_CONSUMER, member, arguments, None,
                      Gio.DBusCallFlags.NO_AUTO_START, 60_000, None, done)

    def send(self, token, record):
        self.call_switch("Subscribe", GLib.Variant("(ssuay)", (PATH, self.name, token, record)))

    def switch_came(self, *_):
        self.online = True
        for token, record in self.subscriptions.values():
            self.send(token, record)

    def switch_went(self, *_):
        self.online = False

    def filter(self, bus, message, incoming):
        """Answers the calls to the object. Runs on a thread of the bus's."""
        if (not incoming or message.get_message_type() != Gio.DBusMessageType.METHOD_CALL or
                (message.get_path(), message.get_interface()) != (PATH, INTERFACE)):
            return message
        if message.get_member() == "Event":
            body = message.get_body()
            data = body.get_child_value(0).get_data_as_bytes().get_data()
            token = body.get_child_value(1).get_uint32()
            with self.lock:
                if token in self.numbers:
                    try:
                        self.received(read_event(data), self.numbers[token])
                    except (ValueError, KeyError, struct.error) as error:
                        self.line("bad", error)
        bus.send_message(message.new_method_reply(), Gio.DBusSendMessageFlags.NONE)
        return None

    def received(self, keys, number):
        count, declaration = int(keys["number"]), int(keys["declaration"])
        if keys["text"] != expressions.event_keys("", 0, "", count)["text"]:
            self.line("bad the text of event", count, "is not what was sent")
        self.line("e", number, keys["producer"], declaration, count, time.monotonic_ns())

    # ---- The conductor ----

    def readable(self, *_):
        data = os.read(0, 4096)
        if not data:
            os._exit(3)
        self.input += data
        *whole, self.input = self.input.split(b"\n")
        for line in whole:
            self.obey(line.decode().split())
        return True

    def obey(self, words):
        if words[0] == "subscribe":
            self.tokens += 1
            number, record = int(words[1]), expression_record(expressions.parse(words[2]))
            self.subscriptions[number] = self.tokens, record
            with self.lock:
                self.numbers[self.tokens] = number
            self.line("b", number, self.tokens, time.monotonic_ns())
            if self.online:
                self.send(self.tokens, record)
            print("subscribed", number, self.tokens, flush=True)
        elif words[0] == "unsubscribe":
            number = int(words[1])
            self.line("x", number, time.monotonic_ns())
            token, _ = self.subscriptions.pop(number)
            with self.lock:
                del self.numbers[token]
            self.call_switch("Unsubscribe", GLib.Variant("(su)", (PATH, token)))
            self.line("y", number, time.monotonic_ns())
        elif words[0] == "refresh":
            token, _ = self.subscriptions[int(words[1])]
            self.call_switch("RefreshProperty", GLib.Variant("(su)", (PATH, token)))
        elif words[0] == "state":
            record = expression_record(expressions.parse(words[1]))
            self.call_switch("GetPropertyState", GLib.Variant("(ay)", (record,)))
        elif words[0] == "report":
            GLib.idle_add(lambda: print("report", words[1], self.open_calls, 0, flush=True),
                          priority=GLib.PRIORITY_LOW)
        elif words[0] == "end":
            self.line("x 0", time.monotonic_ns())
            with self.lock:
                self.numbers.clear()
            self.call_switch("Disconnect", GLib.Variant("(s)", (PATH,)))
            GLib.timeout_add(5, lambda: self.open_calls > 0 or self.loop.quit())


def main():
    if len(sys.argv) != 3:
        print("usage: foreign_consumer.py NAME LOG", file=sys.stderr)
        return 2
    consumer = Consumer(sys.argv[1], sys.argv[2])
    print("ready", flush=True)
    consumer.loop.run()
    return 0


if __name__ == "__main__":
    sys.exit(main())
