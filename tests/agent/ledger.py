"""What befell the service stands in its store, and its ledger adds up at every moment.

ledger.py ZEL
"""
import contextlib
import json
import os
import signal
import sqlite3
import sys
import threading
import time

sys.path.insert(0, os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "zel"))
from agentprocess import LIMIT, Service, holds, record, run_checks  # noqa: E402


def gaps(zel, what):
    """The notices of that kind, each once."""
    rows = [json.loads(row) for row in zel.rows("--since", "2000-01-01", "--object", "etw", "--grep", what)]
    return [row["unmapped"] for row in rows]


def await_notices(zel, service, count):
    """They are accepted a moment after the service is ready; then they are stored."""
    until = time.time() + LIMIT
    while service.status()["notices"] < count and time.time() < until:
        time.sleep(0.02)
    zel.check("notices", count, service.status()["notices"])
    service.await_stored()


def spool(zel, statement):
    with contextlib.closing(sqlite3.connect(zel.folder + "/spool/spool.db")) as database, database:
        return database.execute(statement).fetchall()


def check_notices(zel):
    """An end in order, one without warning, a full disk, a damaged spool, a purge: one event each."""
    with Service(zel) as service:
        service.events([record(i) for i in range(5)])
    with Service(zel, store_stop_below="1000T", spool_hold=0) as service:
        zel.check("no room", 503, service.events([record(9)]))
        zel.check("nothing lost", {"rejected": 0, "accepted": 0}, service.status()["sources"]["events"])
    service = Service(zel)
    service.events([record(i) for i in range(5, 10)])
    service.end(signal.SIGKILL)
    zel.check("waiting", [(1,)], spool(zel, "UPDATE spool SET checksum=0 WHERE events=5 RETURNING 1"))
    with Service(zel) as service:
        service.await_stored()
        ledger = service.status()["ledger"]
        zel.check("lost", (5, True), (ledger["lost"], holds(ledger)))
    with Service(zel) as service:
        await_notices(zel, service, 6)
    ends = [(gap["end"], gap["from"] <= gap["until"]) for gap in gaps(zel, "service not running")]
    zel.check("not running", [("in order", True)] * 3 + [("without warning", True)], sorted(ends))
    zel.check("stopped", ["disk full"], [gap["why"] for gap in gaps(zel, "intake stopped")])
    zel.check("lost", [5], [gap["events"] for gap in gaps(zel, "records lost")])
    today = next(name for name in os.listdir(zel.store) if name.isdigit() and not name.endswith("999"))
    os.rename(os.path.join(zel.store, today), os.path.join(zel.folder, "taken away"))
    with Service(zel) as service:
        ledger = service.status()["ledger"]
        zel.check("purged", (True, True), (ledger["purged"] > 5, holds(ledger)))
        await_notices(zel, service, 8)
    zel.check("told", [today], [gap["folders"] for gap in gaps(zel, "records purged")])


def check_equation(zel):
    """Sampled while several write, folders go, and the service is killed."""
    stop = threading.Event()
    service = Service(zel, store_purge_every=1)

    def send(sender):
        number = sender * 1000000
        while not stop.is_set():
            with contextlib.suppress(OSError, ValueError):
                service.events([record(number + i) for i in range(20)])
            number += 20

    senders = [threading.Thread(target=send, args=(sender,)) for sender in range(4)]
    for sender in senders:
        sender.start()
    samples = []
    for round_of in range(3):
        until = time.time() + 2
        while time.time() < until or (round_of == 1 and samples[-1]["stored"] == 0):
            samples.append(service.status()["ledger"])
        service.end(signal.SIGKILL)
        for name in os.listdir(zel.store) if round_of == 1 else ():
            os.rename(os.path.join(zel.store, name), os.path.join(zel.folder, name))
        service = Service(zel, store_purge_every=1)
    stop.set()
    for sender in senders:
        sender.join()
    samples.append(service.status()["ledger"])
    zel.check("adds up", [], [sample for sample in samples if not holds(sample)])
    zel.check("something was purged", True, samples[-1]["purged"] > 0)
    zel.check("grows", sorted(sample["accepted"] for sample in samples), [sample["accepted"] for sample in samples])
    service.end(signal.SIGTERM)


def main():
    return run_checks(check_notices, check_equation)


if __name__ == "__main__":
    sys.exit(main())
