"""Instructions that an event costs its producer and its consumer, counted by callgrind: unlike times
the same on any machine."""
import os
import shutil

from side_by_side import REFERENCE, Peer

PEERS = ("library", REFERENCE, "gdbus", "sdbuscpp")
EVENTS = 2048


def total(files):
    for line in files.read_text().splitlines():
        if line.startswith("totals:"):
            return int(line.split()[1])
    raise RuntimeError(f"{files}: callgrind has written no sum")


def count(peer, programs, environment, folder, role, events):
    """Of one side that is alone under callgrind, from its start to its end."""
    dump = folder / f"callgrind.{peer}.{role}"
    wrapper = ["valgrind", "--quiet", "--tool=callgrind", f"--callgrind-out-file={dump}"]
    run = Peer(peer, programs, environment, os.getpid(), 1, 1, {role: wrapper})
    try:
        run.run(events)
    finally:
        run.end()
    return total(dump)


def rows(arguments, progress, environment):
    """Per event: the difference of two runs, so that starting and ending fall out.

    The dumps of the longer runs stay in the build's folder, for callgrind_annotate.
    """
    result = {}
    if not shutil.which("valgrind"):
        return result
    programs = arguments.build / "bin"
    few = EVENTS // (4 if arguments.quick else 1)
    for peer in PEERS[:2] if arguments.quick else PEERS:
        if not (programs / f"bench_bus_{peer}").exists():
            continue
        progress.next(f"instructions, {peer}")
        result[peer] = {}
        for role in ("producer", "consumer"):
            one, two = (count(peer, programs, environment, arguments.build, role, events)
                        for events in (few, 2 * few))
            result[peer][role] = round((two - one) / few)
    return result
