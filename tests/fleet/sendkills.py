"""The service, the exporter of a directory and the server are killed at random: in the end the fleet has what the store has.

sendkills.py ZEL; ZEL_FLEET_KILLS says how often, ZEL_SEED with which seed.
"""
import os
import random
import signal
import subprocess
import sys
import time

from agentprocess import LIMIT, Service, record, run_checks
from engine import Engine, Refused, only_kind
from kills import Sender

KILLS = int(os.environ.get("ZEL_FLEET_KILLS", "6"))
ONLY = "SELECT key FROM events WHERE host = '{}' GROUP BY key ORDER BY key FORMAT TabSeparatedRaw"


def fleet_keys(engine, host):
    return engine.sql(ONLY.format(host)).splitlines()


def await_same(zel, engine, host):
    """What the store has and the fleet is to get, once both are at rest."""
    expected = sorted(row.decode() for row in zel.rows("--print-keys"))
    until = time.time() + LIMIT
    while (got := fleet_keys(engine, host)) != expected and time.time() < until:
        time.sleep(0.2)
    zel.check(f"{host}: the fleet has all", (len(expected), []), (len(got), sorted(set(expected) ^ set(got))[:5]))
    return len(expected)


def kill_server(engine, dice):
    engine.end(signal.SIGKILL)
    time.sleep(dice.uniform(0, 0.5))
    engine.start()


def service_is_killed(zel, engine, dice):
    """The service and the server, under a sender; then both run until the fleet has all."""
    settings = {"fleet_url": engine.url, "fleet_host": "service", "fleet_every": 1, "fleet_batch_rows": 100}
    running = [Service(zel, **settings)]
    sender = Sender(lambda: running[0], 1, size=20, pause=0.01)
    sender.start()
    for _ in range(KILLS):
        time.sleep(dice.uniform(0.1, 1.5))
        if engine.process and dice.random() < 0.3:
            kill_server(engine, dice)
        else:
            running[0].end(signal.SIGKILL)
            running[0] = Service(zel, **settings)
    sender.stopping.set()
    sender.join(LIMIT)
    with running[0] as service:
        service.await_stored()
        time.sleep(1)
        stored = zel.rows("--print-keys")
        zel.check("what was acknowledged", True, len(stored) >= sender.acknowledged * 20)
        count = await_same(zel, engine, "service")
        told = service.status()["fleet"]
        zel.check("told", ("", 0, 0), (told["failing"], told["refused"], told["missed"]))
    return count


def exporter_is_killed(zel, engine, dice):
    """Of a directory that grows between the runs."""
    command = zel.command("fleet", "send", engine.url, "--host", "exporter", "--settling", "0", "--first-pause", "50")
    number = 0
    for _ in range(KILLS):
        zel.run("ingest", given=b"\n".join(record(number + i) for i in range(500)))
        number += 500
        with subprocess.Popen([*command, "--batch-rows", "50"], stderr=subprocess.DEVNULL) as process:
            time.sleep(dice.uniform(0, 1))
            if engine.process and dice.random() < 0.2:
                kill_server(engine, dice)
            process.kill()
    zel.check("the last run", 0, subprocess.run(command, stderr=subprocess.DEVNULL, check=False).returncode)
    return await_same(zel, engine, "exporter")


def others_are_refused(zel, engine):
    """Who may not, and what is no table."""
    zel.run("ingest", given=record(1))
    if engine.kind == "server":
        ended = zel.run("fleet", "send", engine.as_user("nobody"))
        zel.check("a wrong user", (3, True), (ended.returncode, b"nothing can be sent" in ended.stderr))
    zel.check("it is good", 0, zel.run("fleet", "check", engine.url).returncode)
    engine.sql("ALTER TABLE events DROP COLUMN target_url_text")
    ended = zel.run("fleet", "check", engine.url)
    zel.check("a column less", (4, True), (ended.returncode, b"target_url_text is missing" in ended.stdout))
    zel.check("made anew", 0, zel.run("fleet", "init", engine.url.rpartition("/")[0] + "/" + engine.database + "_2").returncode)
    engine.sql(f"DROP DATABASE {engine.database}_2")


def main():
    only_kind()
    seed = int(os.environ.get("ZEL_SEED", random.randrange(10**6)))
    print(f"seed {seed}")
    dice = random.Random(seed)
    with Engine() as engine:
        def check(what):
            def run(zel):
                zel.check("init", 0, zel.run("fleet", "init", engine.url).returncode)
                return what(zel)
            run.__name__ = what.__name__
            return run

        def killed_service(zel):
            print(service_is_killed(zel, engine, dice), "events")

        def killed_exporter(zel):
            print(exporter_is_killed(zel, engine, dice), "events")

        def refused(zel):
            others_are_refused(zel, engine)

        return run_checks(check(killed_service), check(killed_exporter), check(refused))


if __name__ == "__main__":
    try:
        sys.exit(main())
    except Refused as refusal:
        print(f"FAILED: {refusal}")
        sys.exit(1)
