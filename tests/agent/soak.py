"""Eight writers, eight askers, four followers, purges and restarts for a while: the account holds whenever it is looked
at, every follower gets every event once, memory stays level, and no sanitizer has anything to say.

soak.py ZEL SECONDS
"""
import http.client
import json
import os
import random
import signal
import sys
import threading
import time

sys.path.insert(0, os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "zel"))
from agentprocess import LIMIT, Service, Socket, holds  # noqa: E402
from kills import Sender, check_once, limit_of, make_template, purge, put_old_folders  # noqa: E402
from zelcommand import Zel  # noqa: E402

SAMPLE = 5     # seconds between two looks
LIFE = 120     # until the service is restarted
FIRST = 30     # of a life, until its memory is what it will be
REPORTS = ("AddressSanitizer", "ThreadSanitizer", "LeakSanitizer", "runtime error:")
DOCUMENT = json.dumps({"event_query": {"events": [{"begin_time": {"value": "2000-01-01T00:00:00.000Z"}}]}})


class Asker(threading.Thread):
    """Reads answers of all lengths, some to their end, and goes away from others."""

    def __init__(self, service_of, stopping, seed):
        super().__init__(daemon=True)
        self.service_of, self.stopping, self.dice = service_of, stopping, random.Random(seed)
        self.answers = self.cut = 0

    def run(self):
        while not self.stopping.is_set():
            try:
                connection = Socket(self.service_of().socket)
                connection.request("POST", f"/v1/query?limit={self.dice.choice((1, 100, 5000))}", DOCUMENT)
                answer = connection.getresponse()
                if self.dice.random() < 0.2:
                    answer.read(1000)
                else:
                    self.answers += answer.read().rstrip().rpartition(b"\n")[2].startswith(b'{"end":true')
                connection.close()
            except (OSError, http.client.HTTPException):
                self.cut += 1
            time.sleep(self.dice.uniform(0, 0.5))


class Follower(threading.Thread):
    """Follows from the first event on, and comes back with its position whenever it is cut off."""

    def __init__(self, service_of, stopping):
        super().__init__(daemon=True)
        self.service_of, self.stopping = service_of, stopping
        self.numbers, self.twice, self.gaps, self.position = set(), 0, 0, "2000-01-01T00:00:00.000Z"

    def run(self):
        while not self.stopping.is_set():
            try:
                connection = Socket(self.service_of().socket)
                connection.request("GET", "/v1/follow?position=" + self.position.replace("+", "%2B"))
                answer = connection.getresponse()
                while answer.status == 200 and (line := answer.readline()):
                    self.take(line)
                    if self.stopping.is_set():
                        return
            except (OSError, http.client.HTTPException):
                pass

    def take(self, line):
        told = json.loads(line) if line.strip() and line.endswith(b"\n") else {}
        self.position = told.get("position", self.position)
        self.gaps += "gap" in told
        if "event" in told and told["event"]["action"] != ["generic"]:  # the same purge is told alike each time
            number = told["event"]["seq_num"]
            self.twice += number in self.numbers
            self.numbers.add(number)


def resident(service):
    with open(f"/proc/{service.process.pid}/statm", encoding="utf-8") as file:
        return int(file.read().split()[1]) * os.sysconf("SC_PAGE_SIZE") >> 20


def live(zel, service, seconds):
    """One life; the most memory of its second half, in MiB."""
    begin, most = time.time(), [0, 0]
    while time.time() < begin + seconds and service.process.poll() is None:
        time.sleep(SAMPLE)
        ledger = service.status()["ledger"]
        zel.check("the account", True, holds(ledger) or ledger)
        if time.time() > begin + min(FIRST, seconds / 4):
            half = time.time() > begin + seconds / 2
            most[half] = max(most[half], resident(service))
        purge(service, limit_of(zel))
    if seconds >= LIFE:  # a shorter one ends while it still grows into its work
        zel.check("memory stays level", True, most[1] <= most[0] * 1.3 + 30 or most)
    return most[1], ledger


def main(program, seconds):
    with Zel(program) as zel:
        template = make_template(zel)
        running, stopping = [Service(zel)], threading.Event()
        senders = [Sender(lambda: running[0], number, size=20, pause=0.25) for number in range(8)]
        askers = [Asker(lambda: running[0], stopping, number) for number in range(8)]
        followers = [Follower(lambda: running[0], stopping) for _ in range(4)]
        for thread in senders + askers + followers:
            thread.start()
        end = time.time() + int(seconds)
        while (left := end - time.time()) > 0:
            most, ledger = live(zel, running[0], min(LIFE, left))
            print(f"{most} MiB, {ledger}, {sum(a.answers for a in askers)} answers, {sum(a.cut for a in askers)} cut", flush=True)
            zel.check("end", 0, running[0].end(signal.SIGTERM))
            put_old_folders(zel, template)
            running[0] = Service(zel)
        for sender in senders:
            sender.stopping.set()
            sender.join()
        sent = {number for sender in senders for number in sender.sent()}
        until = time.time() + LIMIT
        while any(len(follower.numbers) < len(sent) for follower in followers) and time.time() < until:
            time.sleep(0.1)
        stopping.set()
        for follower in followers:
            zel.check("followed each once", ([], 0, 0), (sorted(sent - follower.numbers)[:5], follower.twice, follower.gaps))
        zel.check("end", 0, running[0].end(signal.SIGTERM))
        for thread in askers + followers:
            thread.join()
        with open(running[0].log, encoding="utf-8", errors="replace") as said:
            told = said.readlines()
        zel.check("no sanitizer says a word", [], [line for line in told if any(word in line for word in REPORTS)][:20])
        if zel.failures:
            print("the service said", *told[-30:])
        print(f"{check_once(zel, senders)} records, {min(a.answers for a in askers)} answers to each asker at least")
        return 1 if zel.failures else 0


if __name__ == "__main__":
    sys.exit(main(*sys.argv[1:3]))
