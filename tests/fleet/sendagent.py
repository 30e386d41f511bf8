"""The service that sends to a fleet which fails: sendagent.py ZEL."""
import contextlib
import os
import signal
import socket
import sqlite3
import subprocess
import sys
import time

from agentprocess import LIMIT, Service, free_port, record, run_checks
from fakefleet import FakeFleet
from follow import large


def awaited(zel, what, fits):
    until = time.time() + LIMIT
    while not (good := fits()) and time.time() < until:
        time.sleep(0.05)
    zel.check(what, True, bool(good))


def numbers(fleet):
    return sorted({row["sequence"] for row in fleet.rows if row["table"] == "events" and row["object_type"] == "file"})


def name_fleet(service, url):
    """A new configuration, taken while it runs."""
    with open(service.file, encoding="utf-8") as file:
        lines = [f'url = "{url}"\n' if line.startswith("url =") else line for line in file]
    with open(service.file, "w", encoding="utf-8") as file:
        file.writelines(lines)
    service.process.send_signal(signal.SIGHUP)


def fleet_fails(zel):
    """Nothing else is held up, it is told, and a reload begins anew."""
    with FakeFleet([(60, 404)] * 99) as broken, FakeFleet() as good:
        with Service(zel, fleet_url=broken.url, fleet_host="h", fleet_every=1) as service:
            zel.check("taken", 20, service.events([record(i) for i in range(20)])["accepted"])
            awaited(zel, "it is told", lambda: "Code: 60" in service.status()["fleet"]["failing"])
            zel.check("in metrics", True, b"\nzel_fleet_failing 1\n" in service.ask("GET", "/metrics")[1])
            zel.check("once until somebody looks", 1, len(broken.inserts))
            name_fleet(service, good.url)
            awaited(zel, "it has all", lambda: numbers(good) == list(range(20)))
            awaited(zel, "that is told", lambda: service.status()["fleet"]["position"].startswith("20"))
            zel.check("well", "", service.status()["fleet"]["failing"])
            sent = len(good.rows)
            name_fleet(service, "")
            awaited(zel, "no fleet", lambda: "fleet" not in service.status())
        with Service(zel, fleet_url=good.url, fleet_host="h", fleet_every=1) as service:
            service.events([record(20)])
            awaited(zel, "the next process goes on", lambda: 20 in numbers(good))
            zel.check("and sends nothing twice", 1, sum(row["sequence"] == 7 for row in good.rows[sent:] + good.rows if row["object_type"] == "file"))


def fleet_is_silent(zel):
    """A server that takes connections and says nothing does not keep the service from its end."""
    with socket.create_server(("127.0.0.1", 0)) as deaf:
        with Service(zel, fleet_url=f"http://127.0.0.1:{deaf.getsockname()[1]}", fleet_host="h", fleet_every=1) as service:
            service.events([record(1)])
            with deaf.accept()[0]:
                zel.check("the end", 0, service.end(signal.SIGTERM))


def purged_unsent(zel):
    """What went before it could be sent is counted, and the rest is sent."""
    port = free_port()
    settings = {"fleet_url": f"http://127.0.0.1:{port}", "fleet_host": "h", "fleet_every": 1}
    with Service(zel, **settings) as service:
        service.events([large(i, 40000) for i in range(50)])
        awaited(zel, "it fails", lambda: service.status()["fleet"]["failing"])
    today = next(name for name in os.listdir(zel.store) if name.isdigit() and not name.endswith("999"))
    os.rename(os.path.join(zel.store, today), os.path.join(zel.store, "20200101"))
    with contextlib.closing(sqlite3.connect(zel.folder + "/spool/spool.db")) as spool, spool:
        spool.execute("UPDATE folders SET name='20200101'")
        spool.execute("UPDATE ranges SET folder='20200101'")
    with Service(zel, store_max_size="1M", store_purge_every=1, **settings) as service:
        awaited(zel, "purged", lambda: service.status()["store"]["purged_folders"])
        service.events([record(i) for i in range(50, 60)])
        with FakeFleet(port=port) as fleet:
            awaited(zel, "the rest", lambda: numbers(fleet) == list(range(50, 60)))
            awaited(zel, "the gap is counted", lambda: service.status()["fleet"]["missed"] >= 50)


def volume_is_full(zel):
    """A position that can't be kept ends the exporter; with room it goes on."""
    volume = os.path.join(zel.folder, "volume")
    os.mkdir(volume)
    if subprocess.run(["mount", "-t", "tmpfs", "-o", "size=64k", "tmpfs", volume], stderr=subprocess.DEVNULL, check=False).returncode != 0:
        print("no volume can be mounted")
        return
    try:
        zel.run("ingest", given=b"\n".join(record(i) for i in range(50)))
        with FakeFleet() as fleet:
            send = lambda: zel.run("fleet", "send", fleet.url, "--host", "h", "--settling", "0", "--batch-rows", "10",  # noqa: E731
                                   "--first-pause", "1", "--position", volume + "/position")
            zel.check("room", 0, send().returncode)
            zel.run("ingest", given=b"\n".join(record(i) for i in range(50, 100)))
            with open(volume + "/other", "wb", buffering=0) as other, contextlib.suppress(OSError):
                while True:
                    other.write(bytes(4096))
            ended = send()
            zel.check("no room", (3, True), (ended.returncode, b"can't be kept" in ended.stderr))
            os.remove(volume + "/other")
            zel.check("room again", (0, list(range(100))), (send().returncode, numbers(fleet)))
    finally:
        subprocess.run(["umount", volume], check=False)


if __name__ == "__main__":
    sys.exit(run_checks(fleet_fails, fleet_is_silent, purged_unsent, volume_is_full))
