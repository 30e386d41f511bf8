"""The service is killed at random moments, also while it replays and purges, under two senders with ids: every line once.

kills.py ZEL; ZEL_AGENT_KILLS says how often, ZEL_SEED with which seed.
"""
import http.client
import json
import os
import random
import shutil
import signal
import sys
import threading
import time

sys.path.insert(0, os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "zel"))
from agentprocess import Service, holds, record  # noqa: E402
from zelcommand import Zel  # noqa: E402

APART = 10**8  # numbers of one sender
OLD = "2020010"


class Sender(threading.Thread):
    """Sends batches of records until it is stopped, each again until it is acknowledged, as shippers do."""

    def __init__(self, service_of, number, size=5, pause=0):
        super().__init__(daemon=True)
        self.service_of, self.number, self.size, self.pause = service_of, number, size, pause
        self.acknowledged, self.refused, self.stopping = 0, 0, threading.Event()

    def run(self):
        while not self.stopping.is_set():
            first = self.number * APART + self.acknowledged * self.size
            try:
                answer = self.service_of().events([record(first + i) for i in range(self.size)],
                                                  **{"Idempotency-Key": f"{self.number}-{self.acknowledged}"})
            except (OSError, http.client.HTTPException):
                answer = None
            if isinstance(answer, dict):
                self.acknowledged += 1
                time.sleep(self.pause)
            else:
                self.refused += 1
                time.sleep(0.01)

    def sent(self):
        return [self.number * APART + i for i in range(self.acknowledged * self.size)]


def check_once(zel, senders):
    """What was acknowledged is in the store, and nothing twice. The service has ended."""
    for folder in os.listdir(zel.store):
        if folder.startswith(OLD):
            shutil.rmtree(os.path.join(zel.store, folder))
    got = sorted(json.loads(row)["seq_num"] for row in zel.rows("--object", "file", "--duplicates"))
    sent = sorted(number for sender in senders for number in sender.sent())
    zel.check("each once", (len(sent), []), (len(got), sorted(set(sent) ^ set(got))[:10]))
    return len(sent)


def put_old_folders(zel, template):
    """Some that a purge may take; the service is down meanwhile."""
    for day in range(1, 9):
        folder = os.path.join(zel.store, f"{OLD}{day}")
        if not os.path.exists(folder):
            shutil.copytree(template, folder)


def make_template(zel):
    """A folder of a store, which takes 2 MiB more than its records."""
    with Zel(zel.program) as other:
        other.run("ingest", given=record(1))
        old = next(os.path.join(other.store, name) for name in os.listdir(other.store) if name.isdigit())
        template = shutil.copytree(old, os.path.join(zel.folder, "old"))
    with open(os.path.join(template, "filler"), "wb") as filler:
        filler.write(bytes(2 << 20))
    return template


def limit_of(zel):
    """One that lets most of the old folders go and no other, in MiB."""
    most = 6 << 20
    for folder, _, files in os.walk(zel.store):
        for name in files if not os.path.basename(folder).startswith(OLD) else ():
            try:
                most += os.stat(os.path.join(folder, name)).st_size
            except FileNotFoundError:
                pass  # the store has made another of it
    return most >> 20


def purge(service, limit):
    try:
        service.ask("POST", f"/v1/purge?max_size={limit}M")
    except (OSError, http.client.HTTPException):
        pass  # it was killed meanwhile


def main(program):
    kills, seed = int(os.environ.get("ZEL_AGENT_KILLS", 15)), int(os.environ.get("ZEL_SEED", time.time()))
    print(f"{kills} kills, ZEL_SEED={seed}", flush=True)
    dice, counts = random.Random(seed), {"at work": 0, "replaying": 0, "purging": 0}
    with Zel(program) as zel:
        template = make_template(zel)
        running = [Service(zel)]
        senders = [Sender(lambda: running[0], number) for number in (0, 1)]
        for sender in senders:
            sender.start()
        for _ in range(kills):
            way = dice.choice(("at work", "at work", "replaying", "purging"))
            counts[way] += 1
            if way == "replaying":
                time.sleep(dice.uniform(0, 0.2))
                running[0].end(signal.SIGKILL)
                running[0] = Service(zel, ready=False)
                time.sleep(dice.uniform(0, 0.1))
            elif way == "purging":
                running[0].end(signal.SIGKILL)
                put_old_folders(zel, template)
                running[0] = Service(zel)
                threading.Thread(target=purge, args=(running[0], limit_of(zel))).start()
                time.sleep(dice.uniform(0, 0.05))
            else:
                time.sleep(dice.uniform(0, 0.4))
            running[0].end(signal.SIGKILL)  # when it is killed is chance; nothing is expected of the moment
            running[0] = Service(zel)
            zel.check("the account", True, holds(running[0].status()["ledger"]))
        for sender in senders:
            sender.stopping.set()
            sender.join()
        zel.check("nothing of theirs was purged", 0, running[0].status()["ledger"]["purged"])
        zel.check("end", 0, running[0].end(signal.SIGTERM))
        print(f"kills: {counts}, records: {check_once(zel, senders)}")
        return 1 if zel.failures else 0


if __name__ == "__main__":
    sys.exit(main(sys.argv[1]))
