"""Which events an expression asks for, from the rules alone.

An expression is a text: and-lists divided by '|', their tests by ';'. Tests: K=V, K!=V, K=* (the
key is present), !K (it is absent), *=V (some key has the value), *!=V (none has).
"""


def parse(text):
    """The and-lists: each a list of (key or None for any, value or None for any, negated)."""
    def parse_test(test):
        if test.startswith("!"):
            return test[1:], None, True
        key, _, value = test.partition("=")
        negated = key.endswith("!")
        key = key.rstrip("!")
        return None if key == "*" else key, None if value == "*" else value, negated
    return [[parse_test(test) for test in and_list.split(";")] for and_list in text.split("|")]


def passes(keys, test):
    """keys: text by key, None where a declaration leaves the value open."""
    key, value, negated = test
    if key is None:
        if negated:
            return value not in keys.values()
        return any(other is None or other == value for other in keys.values())
    if key not in keys:
        return negated
    if value is None:
        return not negated
    if negated:
        return keys[key] is None or keys[key] != value
    return keys[key] is None or keys[key] == value


def matches(keys, and_lists):
    return any(all(passes(keys, test) for test in tests) for tests in and_lists)


def declared_keys(producer, declaration, kind):
    return {"topic0": "Soak", "producer": producer, "declaration": str(declaration),
            "class": kind, "level": None, "number": None, "text": None}


def event_keys(producer, declaration, kind, number):
    return {"topic0": "Soak", "producer": producer, "declaration": str(declaration),
            "class": kind, "level": str(number % 4), "number": str(number),
            "text": chr(ord("a") + number % 26) * (number * 37 % 256)}
