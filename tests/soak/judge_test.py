#!/usr/bin/python3
"""The judge of the soak against logs written by hand: it finds each kind of fault, and no others."""
import json
import pathlib
import tempfile
import unittest

import expressions
import judge
import samples


class Run:
    """A producer p00.1 that sends events 1 to 10 at 110, 120, ... 200, and a consumer c00.1 that
    gets them. A subscription is introduced at 50 and the introduction answered at 60."""

    def __init__(self, kind="plain"):
        self.life = [{"what": "starts", "time": 1, "kind": "producer", "name": "p00.1"},
                     {"what": "starts", "time": 1, "kind": "consumer", "name": "c00.1"},
                     {"what": "subscribes", "time": 20, "name": "c00.1", "number": 1,
                      "tests": "class=c1"}]
        self.witness = ["owner :1.1 5", "p :1.2 p00.1", "c :1.3 c00.1",
                        "S :1.1 :1.2 7 :1.3 4 50", "A :1.1 :1.2 7 :1.3 4 60"]
        self.producer = [f"d 3 7 c1 {kind} 10"]
        for number in range(1, 11):
            self.producer += [f"o 3 {number} {100 + 10 * number}", f"s {number} {101 + 10 * number}"]
        self.consumer = ["b 1 4 30"] + [f"e 1 p00.1 3 {number} {105 + 10 * number}"
                                        for number in range(1, 11)]

    def faults(self):
        with tempfile.TemporaryDirectory() as name:
            folder = pathlib.Path(name)
            for file, lines in (("life", [json.dumps(entry) for entry in self.life]),
                                ("witness.log", self.witness), ("p00.1.log", self.producer),
                                ("c00.1.log", self.consumer)):
                (folder / file).write_text("".join(line + "\n" for line in lines))
            self.judged = judge.Judge(folder)
            return self.judged.run()

    def lose(self, *numbers):
        self.consumer = [line for line in self.consumer
                         if line.split()[0] != "e" or int(line.split()[4]) not in numbers]


class Faults(unittest.TestCase):
    def test_a_run_in_order(self):
        run = Run()
        self.assertEqual(run.faults(), [])
        self.assertEqual(run.judged.count["required"], 10)

    def test_a_lost_event_is_named(self):
        run = Run()
        run.lose(4)
        self.assertIn("c00.1 subscription 1 from p00.1 declaration 3: event 4 is lost", run.faults())

    def test_the_last_event_of_a_life_to_the_end_is_required(self):
        run = Run()
        run.lose(10)
        self.assertEqual(run.faults(),
                         ["c00.1 subscription 1 from p00.1 declaration 3: event 10 is lost"])

    def test_an_event_that_comes_twice(self):
        run = Run()
        run.consumer.append("e 1 p00.1 3 10 300")
        self.assertEqual(len(run.faults()), 1)

    def test_events_out_of_order(self):
        run = Run()
        run.consumer[3], run.consumer[4] = run.consumer[4], run.consumer[3]
        self.assertEqual(len(run.faults()), 2)  # of the stream, and of the producer

    def test_an_event_that_was_refused(self):
        run = Run()
        run.producer[run.producer.index("s 6 161")] = "r 6 161 5"
        self.assertEqual(len(run.faults()), 1)

    def test_an_event_that_nobody_asked_for(self):
        run = Run()
        run.life[2]["tests"] = "class=c1;level!=2"
        self.assertEqual(len(run.faults()), 3)  # 2, 6 and 10

    def test_an_event_after_the_end_of_the_subscription(self):
        run = Run()
        run.consumer += ["x 1 206", "y 1 207", "e 1 p00.1 3 10 208"]
        run.consumer.remove("e 1 p00.1 3 10 205")
        self.assertEqual(len(run.faults()), 1)

    def test_before_the_introduction_nothing_is_required(self):
        run = Run()
        run.witness[4] = "A :1.1 :1.2 7 :1.3 4 145"
        run.lose(1, 2, 3, 4)
        self.assertEqual(run.faults(), [])

    def test_a_killed_consumer_loses_only_its_tail(self):
        run = Run()
        run.life.append({"what": "killed", "time": 250, "name": "c00.1"})
        run.lose(9, 10)
        self.assertEqual(run.faults(), [])
        run.lose(5)
        self.assertIn("c00.1 subscription 1 from p00.1 declaration 3: event 5 is lost", run.faults())

    def test_what_was_answered_before_the_end_has_come(self):
        run = Run()
        run.life.append({"what": "killed", "time": 250, "name": "c00.1"})
        run.producer.append("q 240")
        run.lose(10)
        self.assertEqual(len(run.faults()), 1)

    def test_a_killed_producer_loses_only_its_tail(self):
        run = Run()
        run.life.append({"what": "killed", "time": 250, "name": "p00.1"})
        run.lose(10)
        self.assertEqual(run.faults(), [])
        run.lose(2)
        self.assertEqual(len(run.faults()), 2)

    def test_while_the_switch_is_away_one_stretch_is_missing(self):
        run = Run()
        run.life.append({"what": "switch ends", "time": 145})
        run.witness += ["owner - 146", "owner :1.9 150", "S :1.9 :1.2 7 :1.3 4 170",
                        "A :1.9 :1.2 7 :1.3 4 175"]
        run.lose(5, 6, 7)
        self.assertEqual(run.faults(), [])
        run.lose(4)
        self.assertEqual(run.faults(),
                         ["c00.1 subscription 1 from p00.1 declaration 3: event 4 is lost"])

    def test_the_producer_may_serve_a_moment_longer_than_the_switch_lives(self):
        run = Run()
        run.life.append({"what": "switch ends", "time": 109})
        run.witness += ["owner - 126", "owner :1.9 130", "S :1.9 :1.2 7 :1.3 4 180",
                        "A :1.9 :1.2 7 :1.3 4 185"]
        run.lose(2, 3)
        self.assertEqual(run.faults(), [])

    def test_two_stretches_need_two_ends_of_the_switch(self):
        run = Run()
        run.life.append({"what": "switch ends", "time": 125})
        run.witness += ["owner - 126", "owner :1.9 130", "S :1.9 :1.2 7 :1.3 4 180",
                        "A :1.9 :1.2 7 :1.3 4 185"]
        run.lose(3, 6)
        self.assertEqual(len(run.faults()), 1)

    def test_after_an_undeclaration_what_was_sent_before_arrives(self):
        run = Run()
        run.producer.append("u 3 300")
        run.lose(10)
        self.assertEqual(len(run.faults()), 1)

    def test_what_the_consumer_found_wrong(self):
        run = Run()
        run.consumer.append("bad the text of event 3 is not what was sent")
        self.assertEqual(len(run.faults()), 1)


class Properties(unittest.TestCase):
    def test_a_value_may_come_again_as_often_as_it_was_asked_for(self):
        run = Run("property")
        run.witness.append("R :1.1 :1.2 7 :1.3 4 300")
        run.consumer += ["e 1 p00.1 3 10 310", "e 1 p00.1 3 10 320"]  # and one for the subscription
        self.assertEqual(run.faults(), [])
        run.consumer.append("e 1 p00.1 3 10 330")
        self.assertEqual(len(run.faults()), 1)

    def test_whoever_subscribes_gets_the_value(self):
        run = Run("property")
        run.witness[3:] = ["S :1.1 :1.2 7 :1.3 4 155", "A :1.1 :1.2 7 :1.3 4 156"]
        run.lose(1, 2, 3, 4)
        self.assertEqual(run.faults(), [])
        run.lose(5)
        self.assertEqual(
            run.faults(),
            ["c00.1 subscription 1 from p00.1 declaration 3: event 5, the property's value, is lost"])


class Expressions(unittest.TestCase):
    def matches(self, keys, text):
        return expressions.matches(keys, expressions.parse(text))

    def test_tests(self):
        keys = {"a": "1", "b": "2"}
        for text in ("a=1", "a!=2", "c!=1", "a=*", "!c", "*=2", "*!=3", "a=2|b=2", "a=1;b=2"):
            self.assertTrue(self.matches(keys, text), text)
        for text in ("a=2", "a!=1", "c=1", "c=*", "!a", "*=3", "*!=2", "a=2|b=3", "a=1;b=3"):
            self.assertFalse(self.matches(keys, text), text)

    def test_open_values(self):
        keys = {"a": "1", "b": None}
        for text in ("b=5", "b!=5", "b=*", "*=5", "*!=5"):
            self.assertTrue(self.matches(keys, text), text)
        for text in ("!b", "*!=1"):
            self.assertFalse(self.matches(keys, text), text)


class Flatness(unittest.TestCase):
    def series(self, value_at):
        series = samples.Series("s")
        for second in range(100):
            series.add(second, value_at(second))
        return series

    def test_growth_at_the_begin_is_nothing_to_speak_of(self):
        self.assertEqual(self.series(lambda at: (min(at, 50) * 100, 8)).faults(), [])

    def test_a_leak_of_memory(self):
        self.assertEqual(len(self.series(lambda at: (1000 + 10 * at, 8)).faults()), 1)

    def test_a_leak_of_descriptors(self):
        self.assertEqual(len(self.series(lambda at: (1000, 8 + at // 10)).faults()), 1)

    def test_noise_is_flat(self):
        self.assertEqual(self.series(lambda at: (1000 + at % 7 * 30, 8 + at % 3)).faults(), [])


if __name__ == "__main__":
    unittest.main()
