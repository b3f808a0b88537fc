"""What happens in a soak run: chosen by a seed, done to real processes, and written down."""
import collections
import heapq
import json
import pathlib
import random
import shutil
import signal
import sys
import time

import expressions
from processes import GENEROUS, Bus, Process
from samples import Series, measure

CLASSES = [f"c{number}" for number in range(6)]


class Client:
    """One producer or consumer through all its processes."""

    def __init__(self, kind, index, lasting):
        self.kind, self.index, self.lasting = kind, index, lasting
        self.runs = 0
        self.process = None
        self.name = None
        self.ready = False
        self.stopped = False
        self.items = {}     # number: (class, property) of declarations, tests of subscriptions
        self.ids = {}       # number: local id or token
        self.numbers = 0

    def alive(self):
        return self.process is not None


class Life:
    def __init__(self, options, folder):
        self.options, self.folder = options, folder
        self.random = random.Random(options.seed)
        self.count = collections.Counter()
        self.faults = []
        self.series, self.judged = {}, set()
        self.agenda, self.order = [], 0
        self.begin = time.monotonic()
        self.life_log = open(folder / "life", "a", encoding="utf-8")
        self.witness_log = None
        self.switch = None
        self.switch_stopped = False
        self.switch_name = None          # on the bus
        self.names = {}                  # name of a process by its name on the bus
        self.introduced = set()          # to the switch that is there now
        self.reports = {}
        self.reports_asked = 0
        self.pause_life = False
        quarter = max(1, options.producers // 4)
        self.producers = [Client("producer", at, at < quarter) for at in range(options.producers)]
        quarter = max(1, options.consumers // 4)
        self.consumers = [Client("consumer", at, at < quarter) for at in range(options.consumers)]
        self.clients = self.producers + self.consumers

    # ---- Time ----

    def seconds(self):
        return time.monotonic() - self.begin

    def later(self, delay, action):
        self.order += 1
        heapq.heappush(self.agenda, (time.monotonic() + delay, self.order, action))

    def write(self, what, **fields):
        entry = {"what": what, "time": time.monotonic_ns(), **fields}
        self.life_log.write(json.dumps(entry) + "\n")
        self.life_log.flush()

    def turn(self, limit):
        """Does what is due and hears what was said; returns after a moment."""
        while self.agenda and self.agenda[0][0] <= time.monotonic():
            heapq.heappop(self.agenda)[2]()
        self.listen()
        next_due = self.agenda[0][0] - time.monotonic() if self.agenda else limit
        time.sleep(max(0.0, min(0.02, limit, next_due)))

    def wait_for(self, condition, what):
        deadline = time.monotonic() + GENEROUS
        while not condition():
            self.turn(0.02)
            if time.monotonic() > deadline:
                self.faults.append(f"waited {GENEROUS} s in vain until {what()}")
                return False
        return True

    # ---- What the others say ----

    def listen(self):
        for client in self.clients:
            if client.alive():
                self.hear(client)
                if client.process.ended():
                    self.faults.append(f"{client.name} ended by itself with "
                                       f"{client.process.close()}, see {client.process.errors}")
                    client.process = None
        if self.switch is not None and self.switch.ended():
            self.faults.append(f"{self.switch.name} ended by itself with {self.switch.close()}, "
                               f"see {self.switch.errors}")
            self.write("switch ends")
            self.switch = None
            self.start_switch()
        self.read_witness()

    def hear(self, client):
        for words in client.process.hear():
            if words[0] == "ready":
                client.ready = True
            elif words[0] in ("declared", "subscribed"):
                client.ids[int(words[1])] = int(words[2])
            elif words[0] == "report":
                self.reports[client.name] = (int(words[1]), int(words[2]), int(words[3]))

    def read_witness(self):
        if self.witness.ended():
            raise RuntimeError(f"the witness ended, see {self.witness.errors}")
        while line := self.witness_log.readline():
            if not line.endswith("\n"):     # the rest comes later
                self.witness_log.seek(self.witness_log.tell() - len(line))
                break
            word = line.split()
            if word[0] == "owner":
                self.switch_name = None if word[1] == "-" else word[1]
                self.introduced.clear()
            elif word[0] in "pc":
                self.names[word[1]] = word[2]
            elif word[0] in "AN" and word[1] == self.switch_name:
                self.introduced.add((self.names.get(word[2]), int(word[3]),
                                     self.names.get(word[4]), int(word[5])))

    # ---- Processes ----

    def program(self, name):
        return str(self.options.build / "bin" / name)

    def start_client(self, client):
        client.runs += 1
        client.name = f"{client.kind[0]}{client.index:02}.{client.runs}"
        client.items, client.ids, client.ready, client.stopped = {}, {}, False, False
        command = [self.program(f"soak_{client.kind}")]
        if client.kind == "consumer" and client.index == 0 and not self.options.no_foreign:
            command = ["/usr/bin/python3",
                       str(pathlib.Path(__file__).with_name("foreign_consumer.py"))]
        self.write("starts", kind=client.kind, name=client.name)
        client.process = Process(self.folder, client.name,
                                 [*command, client.name, str(self.folder / f"{client.name}.log")])
        if client.kind == "producer":
            client.process.tell("rate", self.options.pause)
        for _ in range(self.random.randint(1, 3)):
            self.add_item(client)

    def kill_client(self, client):
        self.count[f"killed {client.kind}"] += 1
        self.write("killed", name=client.name)
        client.process.kill()
        client.process = None

    def end_client(self, client):
        """In order: what it sent last arrives as well."""
        if client.stopped:
            self.resume(client)
        process, client.process = client.process, None
        process.tell("end")
        return process

    def check_end(self, process):
        try:
            code = process.close()
        except Exception:
            process.kill()
            self.faults.append(f"{process.name} did not end within {GENEROUS} s")
            return
        if code != 0:
            self.faults.append(f"{process.name} ended with {code}, see {process.errors}")

    def start_switch(self):
        self.count["switches"] += 1
        name = f"switch{self.count['switches']}"
        self.switch_stopped = False
        types = self.folder / "types"
        types.mkdir(exist_ok=True)
        self.switch = Process(self.folder, name,
                              [self.program("varro2-switchd"), f"--types-dir={types}",
                               f"--system-types-dir={types}"], pipes=False)

    def end_switch(self, number):
        self.write("switch ends")
        # Before the other signal: later it would undo the stop with which a leak check begins.
        self.resume_switch(self.switch)
        process, self.switch = self.switch, None
        process.signal(number)
        if number == signal.SIGKILL:
            self.count["killed switch"] += 1
            process.close()
        else:
            self.check_end(process)

    def resume(self, client):
        if client.alive() and client.stopped:
            client.stopped = False
            client.process.signal(signal.SIGCONT)

    # ---- Declarations and subscriptions ----

    def add_item(self, client):
        client.numbers += 1
        number = client.numbers
        if client.kind == "producer":
            kind = self.random.choice(CLASSES)
            is_property = self.random.random() < 0.25
            client.items[number] = (kind, is_property)
            client.process.tell("declare", number, kind, "property" if is_property else "plain")
        else:
            tests = self.choose_tests()
            client.items[number] = tests
            secure = ["secure"] if self.random.random() < 0.2 else []
            self.write("subscribes", name=client.name, number=number, tests=tests)
            client.process.tell("subscribe", number, tests, *secure)

    def choose_tests(self):
        chosen = self.random
        kind, other = chosen.choice(CLASSES), chosen.choice(CLASSES)
        level = chosen.randrange(4)
        some = chosen.choice(self.producers)
        producer = f"p{some.index:02}.{max(some.runs, 1)}"
        return chosen.choice([
            f"topic0=Soak;class={kind}",
            f"topic0=Soak;class={kind};level={level}",
            f"class={kind};level!={level}",
            f"class={kind};level={level}|topic0=Soak;class={other}",
            f"producer={producer}",
            f"producer={producer};class!={kind}|class={kind};declaration=*;level={level}",
            f"*={kind}",
            f"*={kind};*!={producer};!absent",
        ])

    def remove_item(self, client):
        known = [number for number in client.items if number in client.ids]
        if not known:
            return
        number = self.random.choice(known)
        del client.items[number]
        client.process.tell("undeclare" if client.kind == "producer" else "unsubscribe", number)

    # ---- Accidents ----

    def some(self, clients, condition=lambda client: True):
        fitting = [client for client in clients
                   if client.alive() and client.ready and condition(client)]
        return self.random.choice(fitting) if fitting else None

    def happen(self):
        """One thing, and then the next."""
        share = self.seconds() / self.options.seconds
        if self.options.kills_only:
            weights = {self.kill_some_producer: 4, self.kill_some_consumer: 4, self.kill_switch: 2}
            pause = 0.25
        else:
            weights = {self.add: 24, self.remove: 20, self.burst: 10, self.refresh: 4,
                       self.ask_state: 1, self.stop_client: 5, self.stop_switch: 1,
                       self.kill_some_producer: 3, self.kill_some_consumer: 3,
                       self.end_some_client: 2}
            # Afterwards the last switch lives on, so that its memory can be judged.
            if share < 0.4:
                weights |= {self.kill_switch: 1.5, self.terminate_switch: 0.5}
            pause = 0.1
        if not self.pause_life:
            self.random.choices(list(weights), list(weights.values()))[0]()
        self.later(self.random.expovariate(1 / pause), self.happen)

    def add(self):
        client = self.some(self.clients, lambda one: len(one.items) < 5)
        if client:
            self.add_item(client)

    def remove(self):
        client = self.some(self.clients, lambda one: len(one.items) > 1)
        if client:
            self.remove_item(client)

    def burst(self):
        client = self.some(self.producers, lambda one: one.items)
        if client:
            client.process.tell("burst", self.random.choice(list(client.items)),
                                self.random.randint(20, 150))

    def refresh(self):
        client = self.some(self.consumers, lambda one: one.items)
        if client:
            client.process.tell("refresh", self.random.choice(list(client.items)))

    def ask_state(self):
        client = self.some(self.consumers)
        if client:
            client.process.tell("state", f"topic0=Soak;class={self.random.choice(CLASSES)}")

    def stop_client(self):
        client = self.some(self.clients, lambda one: not one.stopped)
        if client:
            self.count["stopped"] += 1
            client.stopped = True
            process = client.process
            process.signal(signal.SIGSTOP)
            self.later(self.random.uniform(0.1, 3),
                       lambda: client.process is process and self.resume(client))

    def stop_switch(self):
        if self.switch is None or self.switch_stopped:
            return
        self.count["stopped"] += 1
        self.switch_stopped = True
        process = self.switch
        process.signal(signal.SIGSTOP)
        self.later(self.random.uniform(0.1, 2), lambda: self.resume_switch(process))

    def resume_switch(self, process):
        if self.switch is process and self.switch_stopped:
            self.switch_stopped = False
            process.signal(signal.SIGCONT)

    def restart(self, client):
        self.later(self.random.uniform(0, 1), lambda: self.start_client(client))

    def kill_some_producer(self):
        self.kill_some(self.producers)

    def kill_some_consumer(self):
        self.kill_some(self.consumers)

    def kill_some(self, clients):
        client = self.some(clients, lambda one: not one.lasting)
        if client:
            self.kill_client(client)
            self.restart(client)

    def end_some_client(self):
        client = self.some(self.clients, lambda one: not one.lasting)
        if client:
            process = self.end_client(client)
            deadline = time.monotonic() + GENEROUS

            def look():
                if process.ended() or time.monotonic() > deadline:
                    self.check_end(process)
                    self.restart(client)
                else:
                    self.later(0.05, look)
            look()

    def kill_switch(self):
        self.renew_switch(signal.SIGKILL)

    def terminate_switch(self):
        self.renew_switch(signal.SIGTERM)

    def renew_switch(self, number):
        if self.switch is not None:
            self.end_switch(number)
            self.later(self.random.uniform(0, 0.5), self.start_switch)

    # ---- Everybody is there, and everybody gets what is sent ----

    def missing(self):
        """Who has not been introduced to whom."""
        found = []
        subscriptions = [(consumer.name, consumer.ids.get(number), expressions.parse(tests))
                         for consumer in self.consumers if consumer.alive()
                         for number, tests in consumer.items.items()]
        for producer in self.producers:
            if not producer.alive():
                continue
            for number, (kind, _) in producer.items.items():
                keys = expressions.declared_keys(producer.name, number, kind)
                for consumer, token, tests in subscriptions:
                    pair = (producer.name, producer.ids.get(number), consumer, token)
                    if pair not in self.introduced and expressions.matches(keys, tests):
                        found.append(pair)
        return found

    def everybody_is_there(self):
        return (self.switch is not None and self.switch_name is not None and
                all(client.alive() and client.ready and len(client.ids) >= len(client.items)
                    for client in self.clients))

    def ask_reports(self):
        self.reports_asked += 1
        for client in self.clients:
            client.process.tell("report", self.reports_asked)

    def all_settled(self):
        if any(self.reports.get(client.name, (0,))[0] != self.reports_asked
               for client in self.clients if client.alive()):
            return False
        if all(self.reports[client.name][1] == 0 for client in self.clients if client.alive()):
            return True
        self.ask_reports()
        return False

    def roll_call(self):
        self.count["roll calls"] += 1
        self.pause_life = True
        for client in self.clients:
            self.resume(client)
        self.resume_switch(self.switch)
        self.wait_for(self.everybody_is_there, lambda: "everybody is there")
        self.wait_for(lambda: not self.missing(),
                      lambda: f"these have been introduced: {self.missing()[:20]}")
        for producer in self.producers:
            if producer.alive():
                producer.process.tell("roll")
        self.ask_reports()
        self.wait_for(self.all_settled, lambda: "all calls have been answered")
        self.pause_life = False

    # ---- The run ----

    def run(self):
        self.bus = Bus(self.folder)
        try:
            self.run_on_bus()
        finally:
            for process in [client.process for client in self.clients] + [self.switch]:
                if process is not None:
                    process.signal(signal.SIGKILL)
            self.witness.kill()
            self.bus.daemon.kill()

    def run_on_bus(self):
        (self.folder / "witness.log").touch()
        self.witness_log = open(self.folder / "witness.log", encoding="ascii")
        self.witness = Process(self.folder, "witness",
                               [self.program("soak_witness"), str(self.folder / "witness.log")])
        deadline = time.monotonic() + GENEROUS
        while not self.witness.hear():
            if self.witness.ended() or time.monotonic() > deadline:
                raise RuntimeError(f"the witness did not start, see {self.witness.errors}")
            time.sleep(0.01)
        self.start_switch()
        for client in self.clients:
            self.start_client(client)
        self.wait_for(self.everybody_is_there, lambda: "everybody has started")
        self.begin = time.monotonic()
        self.happen()
        self.sample()
        while self.seconds() < self.options.seconds:
            next_call = self.seconds() + self.options.roll_call
            while self.seconds() < min(next_call, self.options.seconds):
                self.turn(0.02)
            self.roll_call()
        self.finish()

    def finish(self):
        self.pause_life = True
        self.options.stopped_sampling = True
        self.count["dropped"] = sum(report[2] for report in self.reports.values())
        self.write("finish")
        for clients in (self.producers, self.consumers):
            for process in [self.end_client(client) for client in clients if client.alive()]:
                self.check_end(process)
        if self.switch is not None:
            self.end_switch(signal.SIGTERM)
        self.read_errors()

    def read_errors(self):
        """Nothing but warnings may stand there."""
        for file in sorted(self.folder.glob("*.errors")):
            text = file.read_text(errors="replace")
            self.count["warnings"] += text.count("WARNING") + text.count("warning")
            for sign in ("CRITICAL", "ERROR", "runtime error", "Traceback"):
                # The interpreter's binding to the bus now and then complains of itself.
                if sign == "CRITICAL" and file.name.startswith("c00.") and not self.options.no_foreign:
                    continue
                if sign in text:
                    line = next(line for line in text.splitlines() if sign in line)
                    self.faults.append(f"{file.name}: {line[:300]}")
                    break

    def sample(self):
        if getattr(self.options, "stopped_sampling", False):
            return
        watched = [(client.name, client.process.pid) for client in self.clients
                   if client.lasting and client.alive()]
        if self.switch is not None:
            watched.append((self.switch.name, self.switch.pid))
        for name, pid in watched:
            self.series.setdefault(name, Series(name)).add(self.seconds(), measure(pid))
            # The interpreter's memory is not ours.
            if name != "c00.1" or self.options.no_foreign:
                self.judged.add(name)
        if not self.options.quiet:
            self.show_progress()
        self.later(1, self.sample)

    def show_progress(self):
        text = (f"soak: {self.seconds():4.0f} of {self.options.seconds:.0f} s, "
                f"{sum(client.alive() for client in self.clients)} clients, "
                f"{self.count['switches']} switches, "
                f"{self.count['killed producer'] + self.count['killed consumer']} clients killed, "
                f"{self.count['roll calls']} roll calls, {len(self.faults)} faults")
        if sys.stderr.isatty():
            width = shutil.get_terminal_size().columns
            print("\r" + text[:width - 1].ljust(width - 1), end="", file=sys.stderr, flush=True)
        elif int(self.seconds()) % 30 == 0:
            print(text, file=sys.stderr, flush=True)
