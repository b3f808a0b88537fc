#!/usr/bin/python3
"""Accounts for every event of a soak run: judge.py FOLDER

What must have arrived, and what may have been lost, is told in docs/soak.md; here it is code. All
times are nanoseconds of one clock.
"""
import bisect
import collections
import json
import pathlib
import sys

import expressions

NEVER = float("inf")


class Stream:
    """The events of one declaration of one producer process."""

    def __init__(self, local_id, kind, is_property):
        self.local_id, self.kind, self.property = local_id, kind, is_property
        self.undeclared = NEVER
        self.offered = {}   # number: time before the hand-over
        self.taken = {}     # number: time when the library had it
        self.refused = set()


class Producer:
    def __init__(self, name):
        self.name = name
        self.streams = {}
        self.settled = []       # times at which everything taken so far had been answered
        self.killed = NEVER

    def read(self, path):
        stream_of = {}
        for line in lines(path):
            word = line.split()
            if word[0] == "d":
                self.streams[int(word[1])] = Stream(int(word[2]), word[3], word[4] == "property")
            elif word[0] == "u":
                self.streams[int(word[1])].undeclared = int(word[2])
            elif word[0] == "o":
                stream = self.streams[int(word[1])]
                stream.offered[int(word[2])] = int(word[3])
                stream_of[int(word[2])] = stream
            elif word[0] == "s":
                stream_of[int(word[1])].taken[int(word[1])] = int(word[2])
            elif word[0] == "r":
                stream_of[int(word[1])].refused.add(int(word[1]))
            elif word[0] == "q":
                self.settled.append(int(word[1]))

    def settled_after(self, time):
        at = bisect.bisect_left(self.settled, time)
        return self.settled[at] if at < len(self.settled) else NEVER


class Subscription:
    def __init__(self, token):
        self.token = token
        self.expression = None
        self.ending = NEVER     # before it is ended, or its process is killed
        self.ended = NEVER      # from here on nothing may come
        self.received = collections.defaultdict(list)   # [(number, time)] by (producer, declaration)


class Consumer:
    def __init__(self, name):
        self.name = name
        self.subscriptions = {}
        self.killed = NEVER
        self.bad = []
        self.last = {}          # by producer: the last number of a plain event

    def read(self, path, faults, is_property):
        for line in lines(path):
            word = line.split()
            if word[0] == "b":
                self.subscriptions[int(word[1])] = Subscription(int(word[2]))
            elif word[0] == "x":
                chosen = (self.subscriptions.values() if word[1] == "0"
                          else [self.subscriptions[int(word[1])]])
                for subscription in chosen:
                    subscription.ending = min(subscription.ending, int(word[2]))
            elif word[0] == "y":
                self.subscriptions[int(word[1])].ended = int(word[2])
            elif word[0] == "e":
                self.read_event(int(word[1]), word[2], int(word[3]), int(word[4]), int(word[5]),
                                faults, is_property)
            elif word[0] == "bad":
                faults.append(f"{self.name}: {line[4:].strip()}")
        for subscription in self.subscriptions.values():
            subscription.ending = min(subscription.ending, self.killed)

    def read_event(self, number, producer, declaration, event, time, faults, is_property):
        subscription = self.subscriptions[number]
        if time > subscription.ended:
            faults.append(f"{self.name}: event {event} of {producer} came for subscription "
                          f"{number} after it had ended")
        subscription.received[producer, declaration].append((event, time))
        # One producer's events come in its order, whatever they are declared as and subscribed by.
        if not is_property(producer, declaration):
            if event < self.last.get(producer, 0):
                faults.append(f"{self.name}: event {event} of {producer} came after "
                              f"{self.last[producer]}")
            self.last[producer] = event


def lines(path):
    """Those that are whole: the last one is not where a process was killed while it wrote."""
    text = path.read_text() if path.exists() else ""
    return text[:text.rfind("\n") + 1].splitlines()


class Witness:
    """Who was introduced to whom: by (producer, local id, consumer, token)."""

    def __init__(self, path, switch_kills):
        self.introduced = collections.defaultdict(list)  # [(call, answer, end by the switch)]
        self.resent = collections.Counter()              # property values that were asked for
        self.switches = collections.defaultdict(set)     # those that introduced them at all
        names, open_calls = {}, {}
        self.gone = gone = {}
        current = None
        entries = [line.split() for line in lines(path)]
        for word in entries:
            if word[0] == "owner":
                if word[1] == "-" and current is not None:
                    # The end that we caused lies before what the bus says of it.
                    at = bisect.bisect_left(switch_kills, int(word[2]))
                    gone[current] = switch_kills[at - 1] if at else 0
                    current = None
                elif word[1] != "-":
                    current = word[1]
            elif word[0] in "pc":
                names[word[1]] = word[2]
        for word in entries:
            if word[0] not in "SAR":
                continue
            switch, producer, local_id, consumer, token, time = word[1:]
            pair = (names.get(producer), int(local_id), names.get(consumer), int(token))
            if word[0] == "S":
                self.resent[pair] += 1
                open_calls[switch, pair] = int(time)
                self.switches[pair].add(switch)
            elif word[0] == "R":
                self.resent[pair] += 1
            else:
                self.introduced[pair].append((open_calls[switch, pair], int(time),
                                              gone.get(switch, NEVER)))


class Judge:
    def __init__(self, folder):
        self.folder = pathlib.Path(folder)
        self.faults = []
        self.count = collections.Counter()
        self.life = [json.loads(line) for line in lines(self.folder / "life")]
        kills = sorted(entry["time"] for entry in self.life if entry["what"] == "switch ends")
        self.switch_kills = kills
        self.witness = Witness(self.folder / "witness.log", kills)
        self.producers, self.consumers = {}, {}
        self.read_clients()

    def read_clients(self):
        for entry in self.life:
            if entry["what"] == "starts" and entry["kind"] == "producer":
                self.producers[entry["name"]] = Producer(entry["name"])
            elif entry["what"] == "starts":
                self.consumers[entry["name"]] = Consumer(entry["name"])
            elif entry["what"] == "killed":
                (self.producers.get(entry["name"]) or
                 self.consumers[entry["name"]]).killed = entry["time"]
        for producer in self.producers.values():
            producer.read(self.folder / f"{producer.name}.log")

        def is_property(name, declaration):
            stream = self.stream(name, declaration)
            return stream is not None and stream.property
        for consumer in self.consumers.values():
            consumer.read(self.folder / f"{consumer.name}.log", self.faults, is_property)
        for entry in self.life:
            if entry["what"] == "subscribes":
                subscriptions = self.consumers[entry["name"]].subscriptions
                if entry["number"] in subscriptions:
                    subscriptions[entry["number"]].expression = expressions.parse(entry["tests"])

    def stream(self, name, declaration):
        producer = self.producers.get(name)
        return producer.streams.get(declaration) if producer else None

    def run(self):
        for producer in self.producers.values():
            for stream in producer.streams.values():
                self.count["streams"] += 1
                self.count["offered"] += len(stream.offered)
                self.count["taken"] += len(stream.taken)
                self.count["refused"] += len(stream.refused)
        by_pair = self.introductions_by_names()
        for consumer in self.consumers.values():
            for number, subscription in consumer.subscriptions.items():
                self.count["subscriptions"] += 1
                streams = set(subscription.received) | by_pair[consumer.name, subscription.token]
                for name, declaration in sorted(streams):
                    self.judge(consumer, number, subscription, name, declaration)
        return self.faults

    def introductions_by_names(self):
        """The streams that each (consumer, token) was introduced to."""
        by_local_id = {(producer.name, stream.local_id): declaration
                       for producer in self.producers.values()
                       for declaration, stream in producer.streams.items()}
        found = collections.defaultdict(set)
        for producer, local_id, consumer, token in self.witness.introduced:
            declaration = by_local_id.get((producer, local_id))
            if declaration is not None:
                found[consumer, token].add((producer, declaration))
        return found

    # ---- One stream and one subscription ----

    def judge(self, consumer, number, subscription, name, declaration):
        where = f"{consumer.name} subscription {number} from {name} declaration {declaration}"
        received = [event for event, _ in subscription.received.get((name, declaration), [])]
        self.count["received"] += len(received)
        stream = self.stream(name, declaration)
        if stream is None:
            self.faults.append(f"{where}: nobody has declared that")
            return
        pair = (name, stream.local_id, consumer.name, subscription.token)
        self.judge_what_came(where, subscription, stream, name, declaration, received, pair)
        self.judge_what_did_not(where, consumer, subscription, stream, name, declaration, received,
                                pair)

    def judge_what_came(self, where, subscription, stream, name, declaration, received, pair):
        repeated = 0
        former = 0
        for event in received:
            if event not in stream.offered:
                self.faults.append(f"{where}: event {event} was never sent")
            elif event in stream.refused:
                self.faults.append(f"{where}: event {event} was refused and came all the same")
            elif not expressions.matches(
                    expressions.event_keys(name, declaration, stream.kind, event),
                    subscription.expression):
                self.faults.append(f"{where}: event {event} was not asked for")
            if event < former:
                self.faults.append(f"{where}: event {event} came after {former}")
            repeated += event == former
            former = event
        allowed = self.witness.resent[pair] if stream.property else 0
        self.count["repeated"] += repeated
        if repeated > allowed:
            self.faults.append(f"{where}: {repeated} events came twice, {allowed} may have")

    def judge_what_did_not(self, where, consumer, subscription, stream, name, declaration, received,
                           pair):
        producer = self.producers[name]
        intervals = self.live_intervals(pair, producer, stream, subscription)
        had = set(received)
        # Before the first introduction and after the last nothing can be missing.
        first = min((call for call, _, _ in self.witness.introduced[pair]), default=NEVER)
        final = max((end for _, _, end in intervals), default=0)
        wanted = [event for event, time in stream.offered.items()
                  if (first <= time <= final or event in had) and event not in stream.refused and
                  expressions.matches(expressions.event_keys(name, declaration, stream.kind, event),
                                      subscription.expression)]
        if stream.property:
            self.judge_first_value(where, producer, stream, subscription, name, declaration, had,
                                   intervals)
        last = max(had, default=0)
        end = min(subscription.ending, producer.killed)
        missing_runs, in_run = 0, False
        for event in wanted:
            required = self.is_live(stream, event, intervals)
            self.count["required"] += required
            if event in had:
                in_run = False
                continue
            if required:
                # Where one side ended, what was on the way or waited went with it; and only that.
                truncated = producer.settled_after(stream.taken[event]) >= end and end < NEVER
                if not truncated or event < last:
                    self.faults.append(f"{where}: event {event} is lost")
                else:
                    self.count["went with an end"] += 1
            else:
                self.count["not introduced"] += 1
            if not in_run and event < last and had and event > min(had):
                missing_runs += 1
            in_run = True
        # Between two introductions one stretch may be missing, and none without a switch that went.
        sent_last = stream.offered.get(last, 0)
        ends = sum(1 for switch in self.witness.switches[pair]
                   if self.witness.gone.get(switch, NEVER) < sent_last)
        if missing_runs > ends:
            self.faults.append(f"{where}: events are missing in {missing_runs} places, and the "
                               f"switch ended {ends} times meanwhile")

    def live_intervals(self, pair, producer, stream, subscription):
        """When the producer surely held the subscription, and the last of the time in which its
        value of a property was asked for: (call, answer, end)."""
        found = []
        for call, answer, switch_end in self.witness.introduced[pair]:
            end = min(switch_end, producer.killed, stream.undeclared, subscription.ending)
            if answer < end:
                found.append((call, answer, end))
        return found

    @staticmethod
    def is_live(stream, event, intervals):
        taken = stream.taken.get(event)
        return taken is not None and any(answer < stream.offered[event] and taken < end
                                         for _, answer, end in intervals)

    def judge_first_value(self, where, producer, stream, subscription, name, declaration, had,
                          intervals):
        """Whoever subscribes to a property gets the value that it has."""
        times = sorted((time, event) for event, time in stream.taken.items())
        for call, answer, _ in intervals:
            at = bisect.bisect_left(times, (call, 0)) - 1
            event = times[at][1] if at >= 0 else None
            if event is None or event in had or not expressions.matches(
                    expressions.event_keys(name, declaration, stream.kind, event),
                    subscription.expression):
                continue
            # Another value may have come between.
            if any(other > event and other not in stream.refused and time <= answer
                   for other, time in stream.offered.items()):
                continue
            end = min(subscription.ending, producer.killed)
            if end < NEVER and producer.settled_after(answer) >= end:
                continue
            self.faults.append(f"{where}: event {event}, the property's value, is lost")


def main():
    if len(sys.argv) != 2:
        print("usage: judge.py FOLDER", file=sys.stderr)
        return 2
    judge = Judge(sys.argv[1])
    faults = judge.run()
    for name, count in sorted(judge.count.items()):
        print(f"{name:20} {count}")
    for fault in faults:
        print(fault)
    return 1 if faults else 0


if __name__ == "__main__":
    sys.exit(main())
