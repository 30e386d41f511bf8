"""Following the service: every accepted event comes once to whoever comes back with his position.

follow.py ZEL
"""
import json
import os
import random
import signal
import sys
import threading
import time

sys.path.insert(0, os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "zel"))
from agentprocess import LIMIT, Service, Socket, holds, record  # noqa: E402
from zelcommand import Zel  # noqa: E402


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
            service.events([record(i) + b" " * 400 for i in range(number, number + 1000)])
        slow.until(12100)
        zel.check("slow reader", list(range(12100)), slow.seen)
        service.await_stored()
        old = Follower(service, "2020-01-01T00:00:00.000Z")
        old.until(12100)
        zel.check("from the store", list(range(12100)), old.seen)
        for what, position, document in (("position", "yesterday", None), ("document", "", "{"),
                                         ("times", "", '{"event_query":{"events":[{"receive_time":{"value":"x"}}]}}')):
            zel.check(what, 400, Follower(service, position, document).open())


def main():
    failures = 0
    for check in (check_sources,):
        with Zel(sys.argv[1]) as zel:
            began = time.time()
            check(zel)
            failures += zel.failures
            print(f"{check.__name__}: {time.time() - began:.1f} s")
    return 1 if failures else 0


if __name__ == "__main__":
    sys.exit(main())
