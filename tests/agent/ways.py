"""What zel serve takes in beside whole requests: files that grow, standard input, streams.

ways.py ZEL AUDIT
"""
import json
import os
import random
import shutil
import signal
import subprocess
import sys
import time

sys.path.insert(0, os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "zel"))
from agentprocess import LIMIT, Service, holds, record  # noqa: E402
from zelcommand import Zel, read_records  # noqa: E402


class Grower:
    """A file that is written as logs are: line by line, and not always whole lines at once."""

    def __init__(self, path):
        self.path, self.file, self.count = path, open(path, "ab", buffering=0), 0

    def grow(self, lines):
        for _ in range(lines):
            line = record(self.count) + b"\n"
            self.file.write(line[:self.count % 150])
            self.file.write(line[self.count % 150:])
            self.count += 1

    def rename(self, keeps_descriptor):
        os.rename(self.path, f"{self.path}.{self.count}")
        if keeps_descriptor:
            self.grow(3)
        self.file = open(self.path, "ab", buffering=0)

    def copy_and_empty(self):
        shutil.copy(self.path, f"{self.path}.{self.count}")
        self.file.truncate(0)


def await_accepted(service, count):
    until = time.time() + LIMIT
    while (got := service.status()["ledger"]["accepted"]) < count and time.time() < until:
        time.sleep(0.02)
    return got


def check_each_once(zel, service, count):
    zel.check("accepted", count, await_accepted(service, count))
    zel.check("ledger", True, holds(service.status()["ledger"]))
    zel.check("end", 0, service.end(signal.SIGTERM))
    got = sorted(json.loads(row)["seq_num"] for row in zel.rows("--since", "2000-01-01", "--duplicates"))
    zel.check("each once", (count, []), (len(got), sorted(set(range(count)) ^ set(got))[:10]))


def check_tail(zel):
    """Rotation of each kind, at work and while the service is away; kills at any moment."""
    rolls, log = random.Random(1), Grower(os.path.join(zel.folder, "grows.log"))
    rotations = (lambda: log.rename(False), lambda: log.rename(True), log.copy_and_empty)
    for rotate in rotations * 2:
        service = Service(zel, tail_files=[log.path])
        log.grow(30)
        await_accepted(service, log.count - rolls.randrange(20))  # so that the file is being read
        rotate()
        log.grow(20)
        await_accepted(service, rolls.randrange(log.count))
        service.end(signal.SIGKILL)
        log.grow(5)
        rotate()
        log.grow(5)
    service = Service(zel, tail_files=[log.path])
    check_each_once(zel, service, log.count)


def check_tail_of_audit(zel, audit):
    """Lines of one event that come apart are one event; what is no event is told."""
    path = os.path.join(zel.folder, "audit.log")
    expected = zel.run("ingest", "--keys-only", "--keep-unmapped", given=b"\n".join(audit)).stdout.splitlines()
    with Service(zel, tail_files=[path]) as service, open(path, "wb", buffering=0) as log:
        for at in range(0, len(audit), 7):
            log.write(b"\n".join(audit[at:at + 7]) + b"\n")
            time.sleep(0.01)  # so that it comes in several parts; nothing depends on it
        log.write(b"nonsense\n")
        zel.check("events", len(expected), await_accepted(service, len(expected)))
        while not service.status()["rejected"]:
            time.sleep(0.02)
    with open(service.log, encoding="utf-8") as said:
        zel.check("told", True, "rejected, the first is line" in said.read())
    zel.check("keys", sorted(set(expected)), sorted(set(zel.rows("--since", "2000-01-01", "--print-keys"))))


def check_input(zel):
    """The end of standard input is the end of the service, behind all that it brought."""
    with Service(zel) as service:
        pass
    lines = [record(number) for number in range(5000)]
    done = subprocess.run([zel.program, "serve", "--config", service.file, "--stdin"], input=b"\n".join(lines),
                          check=False, env=zel.environment, timeout=LIMIT, stderr=subprocess.DEVNULL)
    zel.check("end", 0, done.returncode)
    zel.check("all", len(lines), len(zel.rows("--since", "2000-01-01", "--print-keys")))


def main():
    audit, failures = read_records(sys.argv[2]), 0
    for check, arguments in ((check_tail, ()), (check_tail_of_audit, (audit,)), (check_input, ())):
        with Zel(sys.argv[1]) as zel:
            began = time.time()
            check(zel, *arguments)
            failures += zel.failures
            print(f"{check.__name__}: {time.time() - began:.1f} s")
    return 1 if failures else 0


if __name__ == "__main__":
    sys.exit(main())
