"""What comes to a fleet from a store's directory, whatever the fleet answers: sending.py ZEL EVENTS."""
import json
import os
import subprocess
import sys
import time

from agentprocess import LIMIT, run_checks
from fakefleet import FakeFleet
from zelcommand import read_records

EVENTS = sys.argv[2]
AGAIN = (3, 159, 202, 210, 242, 243, 279, 319, 999)


def send(zel, url, *more, **environment):
    zel.environment.update(environment)
    return zel.run("fleet", "send", url, "--first-pause", "1", "--host", "one", *more)


def keys(zel):
    return sorted(zel.rows("--print-keys"))


def check_all(zel, what, fleet):
    zel.check(what, keys(zel), sorted({row["key"].encode() for row in fleet.rows if row["table"] == "events"}))


def state(zel):
    name = next(n for n in os.listdir(zel.store) if n.startswith("zel.position-fleet-") and not n.endswith("refused"))
    with open(os.path.join(zel.store, name), encoding="utf-8") as file:
        return dict(line.split(" ", 1) for line in file.read().splitlines())


def ingest(zel, count=300, first=0):
    zel.run("ingest", given=b"\n".join(read_records(EVENTS)[first:first + count]))


def failures_of_the_moment(zel):
    """Each is met by sending the same again; what was taken without an answer comes twice and is the same row."""
    ingest(zel)
    plans = [[(code, 500)] for code in AGAIN] + [[(0, 429), (0, 503)], [(252, 500)], ["lost"], ["late"], ["failed"], ["late", (202, 500), "lost"]]
    for plan in plans:
        with FakeFleet(plan) as fleet:
            ended = send(zel, fleet.url, "--batch-rows", "100", "--settling", "0", "--since", "-1d")
            zel.check(f"{plan}: the end", 0, ended.returncode)
            check_all(zel, f"{plan}: what came", fleet)
            zel.check(f"{plan}: requests", 3 + len(plan), len(fleet.inserts))
    with FakeFleet([(999, 500)] * 5) as fleet:
        zel.check("one that stays away", 3, send(zel, fleet.url).returncode)


def rows_that_are_refused(zel):
    ingest(zel)
    bad = lambda row: row["sequence"] % 97 == 5  # noqa: E731
    with FakeFleet(bad=bad) as fleet:
        ended = send(zel, fleet.url, "--batch-rows", "128", "--settling", "0")
        refused = os.path.join(zel.store, next(n for n in os.listdir(zel.store) if n.endswith(".refused")))
        with open(refused, encoding="utf-8") as file:
            aside = [json.loads(line) for line in file]
        zel.check("the end", 4, ended.returncode)
        zel.check("rows and those aside", keys(zel), sorted(row["key"].encode() for row in fleet.rows + [a["row"] for a in aside]))
        zel.check("only those", (True, True), (len(aside) > 1, all(bad(a["row"]) and a["code"] == 27 for a in aside)))
        zel.check("the account", (str(len(fleet.rows)), str(len(aside))), (state(zel)["sent"], state(zel)["refused"]))
        zel.check("nothing comes again", (0, 0), (send(zel, fleet.url, "--settling", "0").returncode, len(keys(zel)) - len(fleet.rows) - len(aside)))
    with FakeFleet(bad=lambda row: True) as fleet:
        ended = send(zel, fleet.url)
        zel.check("a table that takes nothing", (3, True), (ended.returncode, b"the table may not be as it should" in ended.stderr))


def halves_and_ends(zel):
    ingest(zel)
    with FakeFleet(most=40) as fleet:
        zel.check("little memory", 0, send(zel, fleet.url).returncode)
        check_all(zel, "in parts", fleet)
        zel.check("once each", len(keys(zel)), len(fleet.rows))
    for code, status in ((60, 404), (516, 403), (16, 404), (0, 404)):
        with FakeFleet([(code, status)]) as fleet:
            ended = send(zel, fleet.url)
            zel.check(f"{code}: the end, at once", (3, 1), (ended.returncode, len(fleet.inserts)))


def places(zel):
    """Young rows come again, since others may come ahead of them; settled ones do not."""
    ingest(zel, 100)
    with FakeFleet() as fleet:
        for expected in (100, 200):
            send(zel, fleet.url)
            zel.check("young rows", expected, len(fleet.rows))
        zel.check("no place", "0000-01-01T00:00:00.000Z", state(zel)["position"])
        send(zel, fleet.url, "--settling", "0")
        ingest(zel, 50, 100)
        zel.check("new ones alone", (0, 350), (send(zel, fleet.url, "--settling", "0").returncode, len(fleet.rows)))
        zel.check("another host", 3, zel.run("fleet", "send", fleet.url, "--host", "two", "--position", os.path.join(
            zel.store, next(n for n in os.listdir(zel.store) if "fleet" in n))).returncode)
        zel.check("packed only elsewhere", 0, fleet.packed)
        check_all(zel, "all", fleet)
        before = len(fleet.rows)
        zel.check("a range", 0, zel.run("fleet", "backfill", fleet.url, "--host", "one", "--since", "2019-05-07", "--until", "2019-05-07").returncode)
        zel.check("what it sent", sorted(zel.rows("--print-keys", "--day", "2019-05-07")), sorted(r["key"].encode() for r in fleet.rows[before:]))


def follows(zel):
    """What comes to the directory comes to the fleet, until SIGTERM."""
    ingest(zel, 50)
    with FakeFleet() as fleet, subprocess.Popen(zel.command("fleet", "send", fleet.url, "--host", "one", "--follow", "--every", "1"),
                                                stderr=subprocess.DEVNULL) as process:
        for count in (50, 80):
            until = time.time() + LIMIT
            while len({row["key"] for row in fleet.rows}) < count and time.time() < until:
                time.sleep(0.05)
            check_all(zel, f"the first {count}", fleet)
            ingest(zel, 30, 50)
        process.terminate()
        zel.check("the end", 0, process.wait(LIMIT))


def enrichments(zel):
    """A later one is found by its folder, and only then."""
    ingest(zel, 20)
    first, second = keys(zel)[:2]
    zel.run("enrich", first.decode(), given=b'{"note":"\xc3\xa9\\n"}')
    with FakeFleet() as fleet:
        of = lambda: [(r["base_key"].encode(), r["live"], r["text"]) for r in fleet.rows if r["table"] == "enrichments"]  # noqa: E731
        send(zel, fleet.url)
        one = (first, 0, '{"note":"\u00e9\\n"}')
        zel.check("the first", [one], of())
        send(zel, fleet.url)
        zel.check("nothing new", [one], of())
        zel.run("enrich", second.decode(), "--live", given=b'"later"')
        send(zel, fleet.url)
        zel.check("a later one", (second, 1, '"later"'), of()[-1])


def what_is_said(zel):
    ingest(zel, 10)
    with FakeFleet() as fleet:
        address = fleet.url.replace("//", "//me@") + "/db"
        send(zel, address, ZEL_FLEET_PASSWORD="secret")
        zel.check("user and password", ("me", "secret"), tuple(fleet.headers.get(f"X-ClickHouse-{name}") for name in ("User", "Key")))
    for url in ("ftp://h", "http://", "http://u:p@h", "http://h:0", "http://h/a/b", "http://h/?x=1"):
        ended = send(zel, url)
        zel.check(url, (2, True), (ended.returncode, b"the fleet's address" in ended.stderr))
    zel.check("no such place", 3, send(zel, "http://127.0.0.1:1", "--position", os.path.join(zel.folder, "none", "p")).returncode)


sys.exit(run_checks(failures_of_the_moment, rows_that_are_refused, halves_and_ends, places, follows, enrichments, what_is_said))
