"""What zel serve takes in beside whole requests: files that grow, standard input, streams.

ways.py ZEL AUDIT MOST_MEMORY
"""
import gzip
import json
import os
import random
import re
import shutil
import signal
import subprocess
import sys
import time
import zlib

sys.path.insert(0, os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "zel"))
from agentprocess import LIMIT, Service, holds, record, run_checks  # noqa: E402
from zelcommand import read_records  # noqa: E402


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
    while (got := service.ledger()["accepted"]) < count and time.time() < until:
        time.sleep(0.02)
    return got


def check_each_once(zel, service, count):
    zel.check("accepted", count, await_accepted(service, count))
    zel.check("ledger", True, holds(service.status()["ledger"]))
    zel.check("end", 0, service.end(signal.SIGTERM))
    got = sorted(json.loads(row)["seq_num"] for row in zel.rows("--object", "file", "--duplicates"))
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
    zel.check("all", len(lines), len(zel.rows("--object", "file", "--print-keys")))


def stream(service, lines, **headers):
    """The answer to lines that are sent in chunks, some in each."""
    packed = headers.get("Content-Encoding") == "gzip"
    packer = zlib.compressobj(wbits=31)

    def chunks():
        for at in range(0, len(lines), 997):
            chunk = b"".join(line + b"\n" for line in lines[at:at + 997])
            yield packer.compress(chunk) + packer.flush(zlib.Z_SYNC_FLUSH) if packed else chunk
        if packed:
            yield packer.flush()

    status, body, _ = service.ask("POST", "/v1/events", chunks(), headers)
    return status, json.loads(body)


def check_streams(zel, most_memory):
    """A body of any length, packed or not, is taken in pieces, in bounded memory, and waits where there is no room."""
    lines = [record(number)[:-1] + b',"x":"%s"}' % (b"x" * 1000) for number in range(30000)]
    lines[1000], lines[25000] = b"nonsense", b"y" * 3000000
    with Service(zel, http_body_size="1M", http_inflated_size="1M") as service:
        for headers in ({}, {"Content-Encoding": "gzip"}):
            status, answer = stream(service, lines, **headers)
            zel.check("counts", (200, 29998, 2, [1001, 25001]),
                      (status, answer["accepted"], answer["rejected"], [error["line"] for error in answer["errors"]]))
        with open(f"/proc/{service.process.pid}/status", encoding="utf-8") as file:
            most = int(re.search(r"VmHWM:\s+(\d+)", file.read()).group(1)) // 1024
        zel.check("memory", True, most < int(most_memory) or most)
        bad = iter([gzip.compress(b"\n".join(lines[:10])) + b"no more"])
        status, body, _ = service.ask("POST", "/v1/events", bad, {"Content-Encoding": "gzip"})
        zel.check("damage", (400, 1), (status, json.loads(body)["next_line"]))
        status, body, _ = service.ask("POST", "/v1/events", iter([b"[" + b",".join(lines[:5]), b"]"]))
        zel.check("array", (200, 5), (status, json.loads(body)["accepted"]))
    with Service(zel, spool_max_size="1M", spool_hold=0) as service:
        rest = lines[2000:4000]
        while rest:
            status, answer = stream(service, rest)
            zel.check("told where to go on", answer["next_line"] - 1 if status == 503 else len(rest),
                      answer["accepted"] + answer["rejected"])
            rest = rest[answer["next_line"] - 1:] if status == 503 else []
            time.sleep(0.1)
        zel.check("all", 29998 * 2 + 5 + 2000, service.ledger()["accepted"])


def check_audisp(zel, audit):
    """Records wait for a service that is away, and go on when it comes; what is too many is dropped, and told."""
    with Service(zel) as service:
        pass
    command = [zel.program, "--socket", service.socket, "audisp"]
    with subprocess.Popen(command, stdin=subprocess.PIPE, stderr=subprocess.PIPE, env=zel.environment) as plugin:
        plugin.stdin.write(b"\n".join(audit))
        plugin.stdin.close()
        with Service(zel) as service:
            zel.check("ended", 0, plugin.wait(LIMIT))
            expected = set(zel.run("ingest", "--keys-only", "--keep-unmapped", given=b"\n".join(audit)).stdout.splitlines())
            zel.check("accepted", len(expected), service.ledger()["accepted"])
    zel.check("keys", sorted(expected), sorted(zel.rows("--since", "2000-01-01", "--until", "2020-01-01", "--print-keys")))
    many = b"".join(b"type=LOGIN msg=audit(1481076984.827:%d): pid=1 uid=0\n" % n for n in range(40000))
    full = subprocess.run([*command, "--queue", "1"], input=many, stderr=subprocess.PIPE, check=False, env=zel.environment)
    zel.check("dropped", (4, True), (full.returncode, b" audit record(s) were dropped" in full.stderr))


def check_ids(zel):
    """A member of the events is their id."""
    lines = [record(number)[:-1] + b',"my":{"id":"%d"}}' % (number % 5) for number in range(10)]
    with Service(zel, intake_id_member="my.id") as service:
        answer = service.events(lines)
        zel.check("by member", (5, 5), (answer["accepted"], answer["duplicate"]))


def main():
    audit = read_records(sys.argv[2])
    return run_checks(check_tail, (check_tail_of_audit, audit), check_input, (check_streams, *sys.argv[3:]), (check_audisp, audit),
                      check_ids)


if __name__ == "__main__":
    sys.exit(main())
