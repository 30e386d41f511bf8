"""Following the service: every accepted event comes once to whoever comes back with his position.

follow.py ZEL
"""
import contextlib
import http.client
import json
import os
import random
import signal
import sqlite3
import subprocess
import sys
import threading
import time

sys.path.insert(0, os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "zel"))
from agentprocess import LIMIT, Service, Socket, holds, record, run_checks  # noqa: E402


class Follower:
    """A reader of /v1/follow that comes back by its position: what it has seen, in order."""

    def __init__(self, service, position="", document=None):
        self.socket, self.position, self.document = service.socket, position, document
        self.seen, self.gaps, self.connection = [], [], None

    def open(self):
        self.connection = Socket(self.socket)
        self.connection.request("POST", "/v1/follow?position=" + self.position, self.document)
        self.answer = self.connection.getresponse()
        return self.answer.status

    def read(self):
        """One line. False at the end."""
        line = self.answer.readline()
        if not line.endswith(b"\n"):
            return False
        if line.strip():
            item = json.loads(line)
            self.position = item["position"]
            if "event" in item:
                self.seen.append(item["event"]["seq_num"])
            if "gap" in item:
                self.gaps.append(item["gap"])
        return True

    def until(self, count):
        """Comes back, whatever happens, until so many were seen."""
        end = time.time() + LIMIT
        while len(self.seen) < count and time.time() < end:
            try:
                if self.connection is None:
                    self.open()
                if self.read():
                    continue
            except (OSError, ValueError):
                pass
            self.close()
            time.sleep(0.02)

    def close(self):
        if self.connection is not None:
            self.connection.close()
        self.connection = None


def large(number, size):
    return record(number)[:-1] + b',"unmapped":{"x":"' + b"x" * size + b'"}}'


def check_sources(zel):
    """From memory, from the store and from both; conditions; a slow reader; too many."""
    with Service(zel, questions_followers=3, questions_buffer="64K") as service:
        now = Follower(service)
        zel.check("begun", (200, True), (now.open(), now.read()))
        start = now.position
        service.events([record(i) for i in range(100)])
        now.until(100)
        zel.check("as they come", list(range(100)), now.seen)
        wanted = r'{"event_query":{"events":[{"artifacts":{"target":{"object_type":"file","path":{"value":["C:\\7"]}}}}]}}'
        some = Follower(service, start, wanted)
        slow = Follower(service, start)
        zel.check("slow", 200, slow.open())  # and reads nothing yet
        some.until(1)
        zel.check("conditions", [7], some.seen)
        fourth = Follower(service)
        zel.check("too many", 503, fourth.open())
        some.close()
        for number in range(100, 12000, 1000):  # more than memory keeps
            service.events([large(i, 400) for i in range(number, number + 1000)])
        slow.until(12100)
        zel.check("slow reader", list(range(12100)), slow.seen)
        service.await_stored()
        old = Follower(service, "2020-01-01T00:00:00.000Z")
        old.until(12100)
        zel.check("from the store", list(range(12100)), old.seen)
        for what, position, document in (("position", "yesterday", None), ("document", "", "{"),
                                         ("times", "", '{"event_query":{"events":[{"receive_time":{"value":"x"}}]}}')):
            zel.check(what, 400, Follower(service, position, document).open())


def check_kills(zel):
    """Two senders that repeat what was not acknowledged, a service that is killed, readers that come back."""
    rolls, created = random.Random(2), '{"event_query":{"events":[{"action":["create"]}]}}'
    service, stop, acknowledged = Service(zel), threading.Event(), [0, 0]
    reader = Follower(service, document=created)
    reader.open()
    reader.read()
    begin = reader.position
    command = subprocess.Popen([zel.program, "--socket", service.socket, "follow", "--action", "create", "--reconnect",
                                "--from", begin, "--with-position"], stdout=subprocess.PIPE, env=zel.environment)
    printed = []
    listener = threading.Thread(target=lambda: printed.extend(json.loads(line) for line in command.stdout))
    listener.start()

    def send(sender):
        while not stop.is_set():
            first = acknowledged[sender] * 5 + sender * 1000000
            try:
                answer = service.events([record(first + i) for i in range(5)],
                                        **{"Idempotency-Key": f"{sender}-{acknowledged[sender]}"})
                acknowledged[sender] += isinstance(answer, dict)
            except (OSError, http.client.HTTPException):
                time.sleep(0.01)

    senders = [threading.Thread(target=send, args=(sender,)) for sender in (0, 1)]
    for sender in senders:
        sender.start()
    for _ in range(6):
        time.sleep(rolls.uniform(0.01, 0.4))  # where it is killed; nothing is expected of it
        service.end(signal.SIGKILL)
        service = Service(zel)
    stop.set()
    for sender in senders:
        sender.join()
    sent = sorted(sender * 1000000 + i for sender in (0, 1) for i in range(acknowledged[sender] * 5))
    reader.until(len(sent))
    until = time.time() + LIMIT
    while len(printed) < len(sent) and time.time() < until:
        time.sleep(0.05)
    command.terminate()
    zel.check("ordered end", 0, command.wait(LIMIT))
    listener.join()
    zel.check("each once", (sent, []), (sorted(reader.seen), reader.gaps))
    zel.check("the same by the command", reader.seen, [event["seq_num"] for event in printed])
    middle = printed[len(printed) // 2]
    again = subprocess.run([zel.program, "--socket", service.socket, "follow", "--action", "create", "--limit", "3", "-o", "csv",
                            "--fields", "seq", "--from", middle["position"]], capture_output=True, env=zel.environment,
                           timeout=LIMIT, check=False)
    place = len(printed) // 2 + 1
    zel.check("from a position", (0, [str(number) for number in reader.seen[place:place + 3]]),
              (again.returncode, again.stdout.decode().split()[1:]))
    zel.check("end", 0, service.end(signal.SIGTERM))
    gone = subprocess.run([zel.program, "--socket", service.socket, "follow"], capture_output=True, env=zel.environment,
                          timeout=LIMIT, check=False)
    zel.check("nobody there", (3, b""), (gone.returncode, gone.stdout))


def check_purge(zel):
    """What a purge took is told where it is missing."""
    with Service(zel) as service:
        reader = Follower(service)
        reader.open()
        reader.read()
        begin = reader.position
        service.events([large(i, 40000) for i in range(50)])
    today = next(name for name in os.listdir(zel.store) if name.isdigit() and not name.endswith("999"))
    os.rename(os.path.join(zel.store, today), os.path.join(zel.store, "20200101"))
    with contextlib.closing(sqlite3.connect(zel.folder + "/spool/spool.db")) as spool, spool:
        spool.execute("UPDATE folders SET name='20200101'")
        spool.execute("UPDATE ranges SET folder='20200101'")
    with Service(zel, store_max_size="1M", store_purge_every=1) as service:
        while not service.status()["store"]["purged_folders"]:
            time.sleep(0.05)
        service.events([record(i) for i in range(50, 60)])
        reader = Follower(service, begin, '{"event_query":{"events":[{"action":["create"]}]}}')
        reader.until(10)
        zel.check("gap", (list(range(50, 60)), [{"reason": "purged", "events": 50}]), (reader.seen, reader.gaps))
        zel.check("ledger", True, holds(service.status()["ledger"]))


def main():
    return run_checks(check_sources, check_kills, check_purge)


if __name__ == "__main__":
    sys.exit(main())
