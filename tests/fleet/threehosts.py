"""Three machines send to one server, one of them is killed and comes back, and one question finds what was on two: as
docs/fleet.md tells an operator. Whatever is asked, the fleet answers what the three stores answer together.

threehosts.py ZEL RECORDS
"""
import contextlib
import json
import os
import signal
import subprocess
import sys
import time

from engine import LIMIT, Engine
from zelcommand import Zel, read_records

PROGRAM, RECORDS = sys.argv[1:]
HOSTS = ["3f1c-alpha", "77aa-beta", "c0de-gamma"]
RULE = b"""title: A program of Windows runs
id: 7d6b6a5e-0a7e-4a3c-9a53-2d3a4f0f9d11
logsource: {product: windows, category: process_creation}
detection: {selection: {Image|contains: system32}, condition: selection}
"""
QUESTIONS = [
    [], ["--action", "launch"], ["--object", "file", "--since", "2020-10-01", "--until", "2022-01-01"],
    ["--actor-path", "*\\powershell.exe"], ["--target-path", "*\\sys?em32\\*"], ["--pattern", r".*\.(exe|dll)"],
    ["--pattern", r".*\\[^\\]+\.ps1.*"], ["--type-id", "8001"], ["--ip", "172.18.*"], ["--cmd-line", "netsh"],
    ["--where", "dst_port = 445"], ["--grep", "mimikatz"], ["--user", "pgustavo"],
    ['{"event_query":{"events":[{"begin_time":{"value":"2020-10-20T00:00:00.000Z"},"action":{"value":["launch"],'
     '"operator":{"value":"does_not_equal"}}}]}}'],
]


class Fleet:
    def __init__(self, stack):
        self.engine = stack.enter_context(Engine())
        self.stores = [stack.enter_context(Zel(PROGRAM)) for _ in HOSTS]
        self.first = self.stores[0]
        has_users = self.engine.kind == "server"
        self.writer, self.reader = self.place("zel_writer", has_users), self.place("zel_reader", has_users)
        for store in self.stores:
            store.environment["ZEL_FLEET_PASSWORD"] = "writer" if has_users else ""
        self.password = os.path.join(self.first.folder, "password")
        with open(self.password, "w", encoding="ascii") as file:
            file.write("reader\n" if has_users else os.environ.get("ZEL_FLEET_PASSWORD", "") + "\n")
        os.chmod(self.password, 0o600)

    def place(self, user, has_users):
        return self.engine.as_user(user) if has_users else self.engine.url

    def ask(self, command, *arguments, given=b""):
        return subprocess.run([PROGRAM, command, "--fleet", self.reader, "--fleet-password", self.password, *arguments],
                              input=given, capture_output=True, env=self.first.environment, timeout=LIMIT * 5)

    def lines(self, *arguments):
        return self.ask("query", *arguments).stdout.splitlines()

    def send(self, number, *arguments):
        store = self.stores[number]
        return store.command("fleet", "send", self.writer, "--host", HOSTS[number], *arguments)


def fill(fleet):
    """Every third record each, and of one hash all on the first two."""
    records = read_records(RECORDS)
    hashed = [r for r in records if b'"sha2"' in r and b'"target":{"object_type":"module"' in r][:5]
    for number, store in enumerate(fleet.stores):
        own = records[number::3]
        own += [r for r in hashed if number < 2 and r not in own]
        own = [r for r in own if number < 2 or r not in hashed]
        done = store.run("ingest", given=b"\n".join(own) + b"\n")
        store.check("stored", 0, done.returncode)
    target = json.loads(hashed[0])["artifacts"]["target"]
    return target["sha2"]["value"][0]


def send(fleet):
    check = fleet.first.check
    made = subprocess.run(fleet.first.command("fleet", "init", fleet.engine.url), capture_output=True, timeout=LIMIT,
                          env=dict(fleet.first.environment, ZEL_FLEET_PASSWORD=fleet.engine.user[1]))
    check(f"tables: {made.stderr}", 0, made.returncode)
    check("sent", 0, subprocess.run(fleet.send(0), env=fleet.first.environment, timeout=LIMIT).returncode)
    # The second is killed in the midst of it, and comes back.
    with subprocess.Popen(fleet.send(1, "--follow"), env=fleet.first.environment, stderr=subprocess.DEVNULL) as sender:
        until = time.monotonic() + LIMIT
        while not fleet.lines("--host", HOSTS[1], "--limit", "1") and time.monotonic() < until:
            time.sleep(0.05)
        sender.send_signal(signal.SIGKILL)
    for number in (1, 2):
        done = subprocess.run(fleet.send(number), env=fleet.first.environment, timeout=LIMIT, capture_output=True)
        check(f"sent {number}: {done.stderr}", 0, done.returncode)


def local(fleet, *question):
    """What the stores give, with the host of each."""
    return [(host, line) for host, store in zip(HOSTS, fleet.stores) for line in store.rows(*question, "-o", "ndjson")]


def answers(fleet):
    check = fleet.first.check
    for question in QUESTIONS:
        mine = local(fleet, *question)
        told = [(json.loads(line).get("host"), line) for line in fleet.lines(*question, "--with-key")]
        bare = fleet.lines(*question)
        check(f"{question}: as many", len(mine), len(told))
        check(f"{question}: with hosts", sorted(bare), sorted(line for _, line in mine))
        for host in HOSTS:
            here = [line for line, (whose, _) in zip(bare, told) if whose == host]
            check(f"{question} of {host}, in order", [line for whose, line in mine if whose == host], here)
        in_time = fleet.lines(*question, "--sort")
        times = [json.loads(line)["begin_time"]["value"] for line in in_time]
        check(f"{question}: one order of time", (sorted(times), sorted(bare)), (times, sorted(in_time)))
        newest = in_time[::-1]
        check(f"{question}: the newest first", newest, fleet.lines(*question, "--reverse"))
        check(f"{question}: so many of the newest", newest[:3], fleet.lines(*question, "-n", "3"))
        check(f"{question}: the same, the oldest first", newest[:3][::-1], fleet.lines(*question, "-n", "3", "--sort"))
        check(f"{question}: the first ones", bare[:4], fleet.lines(*question, "--limit", "4"))
        check(f"{question}: of one host", [line for whose, line in mine if whose == HOSTS[2]],
              fleet.lines(*question, "--host", HOSTS[2]))


def faces(fleet, digest):
    """The ways in which a person meets the hosts."""
    check = fleet.first.check
    found = local(fleet, "--hash", digest)
    counts = fleet.lines("--hash", digest, "--count-by", "host", "-o", "csv")
    own = {host: sum(whose == host for whose, _ in found) for host in HOSTS}
    check("a hash on two hosts", [0], [count for host, count in own.items() if host == HOSTS[2]])
    check("counted by host", sorted(f"{host},{count}".encode() for host, count in own.items() if count),
          sorted(counts[1:]))
    table = fleet.lines("--hash", digest, "-o", "table")
    check("a column of a table", (True, True), (b" HOST " in table[0], HOSTS[0].encode() in b"".join(table)))
    check("a column of csv", b"host,time,", fleet.lines("--hash", digest, "-o", "csv")[0][:10])
    key = json.loads(fleet.lines("--hash", digest, "--with-key", "--limit", "1")[0])
    check("one by its key", 1, len(fleet.lines("--key", key["key"], "--host", key["host"])))
    told = json.loads(fleet.lines("--hash", digest, "--trailer", "-o", "ndjson")[-1])["trailer"]
    check("hosts in a trailer", [(host, False) for host in HOSTS], [(h["host"], h["silent"]) for h in told["hosts"]])
    check("a whole answer", (len(found), True), (told["found"], told["complete"]))
    receipts = fleet.lines("--by", "receive", "--host", HOSTS[0])
    check("receipts", fleet.stores[0].rows("--by", "receive"), receipts)


def tables_and_rules(fleet):
    check = fleet.first.check
    statement = "select action, count(*) from events where object = 'process' group by 1 order by 1"
    total = {}
    for store in fleet.stores:
        for line in store.run("sql", "-o", "ndjson", statement).stdout.splitlines():
            action, count = json.loads(line).values()
            total[action] = total.get(action, 0) + count
    asked = fleet.ask("sql", "-o", "ndjson", statement).stdout.splitlines()
    check("counted in SQL", total, dict(tuple(json.loads(line).values()) for line in asked))
    newest = "select host, key, event from events where host = '%s' order by time desc limit 2" % HOSTS[1]
    rows = [json.loads(line) for line in fleet.ask("sql", "-o", "ndjson", newest).stdout.splitlines()]
    check("the newest of a host in SQL", fleet.stores[1].rows("-n", "2", "-o", "ndjson"), [r["event"].encode() for r in rows])
    check("keys in SQL", fleet.stores[1].rows("-n", "2", "--print-keys"), [r["key"].encode() for r in rows])

    def hits(lines):
        return sorted(json.dumps(hit["event"]) for hit in map(json.loads, lines) if "event" in hit)
    mine = [line for store in fleet.stores for line in store.run("hunt", "-", given=RULE).stdout.splitlines()]
    theirs = fleet.ask("hunt", "-", given=RULE).stdout.splitlines()
    check("hits of rules", (True, hits(mine)), (len(hits(mine)) > 0, hits(theirs)))
    check("whose they are", True, all("host" in hit for hit in map(json.loads, theirs) if "event" in hit))


def rights(fleet):
    """Who may read may not write; who is wrong is told so."""
    check = fleet.first.check
    if fleet.engine.kind != "server":
        return
    wrong = subprocess.run([PROGRAM, "query", "--fleet", fleet.reader, "--limit", "1"], capture_output=True,
                           env=dict(fleet.first.environment, ZEL_FLEET_PASSWORD="no"), timeout=LIMIT)
    check(f"a wrong password: {wrong.stderr}", 3, wrong.returncode)
    check("it is told nowhere", False, b"no\n" in wrong.stderr or b"'no'" in wrong.stderr)
    for statement in ("DROP TABLE events", "INSERT INTO events (host) VALUES ('x')"):
        fleet.engine.user = ("zel_reader", "reader")
        try:
            refused = not fleet.engine.sql(statement)
        except Exception as why:
            refused = "164" in str(why) or "readonly" in str(why)
        check(f"a reader's {statement}", True, refused)
    fleet.engine.user = ("default", "")


def main():
    with contextlib.ExitStack() as stack:
        fleet = Fleet(stack)
        digest = fill(fleet)
        send(fleet)
        answers(fleet)
        faces(fleet, digest)
        tables_and_rules(fleet)
        rights(fleet)
        return any(store.failures for store in fleet.stores)


sys.exit(main())
