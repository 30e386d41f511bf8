"""The disk of the store and its spool is filled by another program and freed again, under two senders: what was
acknowledged is in the store, and the service goes on by itself.

fulldisk.py ZEL; ZEL_AGENT_FILLS says how often, ZEL_SEED with which seed. Needs to mount a volume; ends with 77 where
it may not.
"""
import os
import random
import signal
import subprocess
import sys
import time

sys.path[:0] = [os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", name) for name in ("faults", "zel")]
from agentprocess import LIMIT, Service, holds  # noqa: E402
from kills import Sender, check_once  # noqa: E402
from shortage import free, mount  # noqa: E402
from zelcommand import Zel  # noqa: E402


def fill(volume, leave):
    """Takes all room but so much; with 0 also what only the system's own user may have."""
    path = os.path.join(volume, "other")
    with open(path, "ab", buffering=0) as file:
        for piece in (16 << 20, 1 << 20, 1 << 16, 1 << 12):
            try:
                while leave == 0 or free(volume) - leave > piece:
                    os.posix_fallocate(file.fileno(), os.fstat(file.fileno()).st_size, piece)
            except OSError:
                pass
    return path


def await_taken(zel, senders, before):
    until = time.time() + LIMIT
    while time.time() < until and not all(s.acknowledged > b for s, b in zip(senders, before)):
        time.sleep(0.02)
    zel.check("events are taken again", True, all(s.acknowledged > b for s, b in zip(senders, before)))


def cycle(zel, settings, running, senders, dice):
    """No room until the service has refused for a while; then some again. It is killed in between now and then."""
    path = fill(zel.volume, dice.choice((0, 0, 1 << 20, 30 << 20)) if settings["store_stop_below"] != "0" else 0)
    refused, until = [sender.refused for sender in senders], time.time() + LIMIT
    while not all(s.refused > r for s, r in zip(senders, refused)) and time.time() < until:
        time.sleep(0.02)
    zel.check("it refuses", True, time.time() < until)
    time.sleep(dice.uniform(0, 1))
    if dice.random() < 0.2:
        running[0].end(signal.SIGKILL)
        running[0] = Service(zel, ready=False, **settings)
        time.sleep(0.5)
        os.remove(path)
        if running[0].process.poll() is not None:  # there was no room to begin in; the service manager begins again
            zel.check("its end without room", 3, running[0].process.returncode)
            running[0] = Service(zel, **settings)
        running[0].await_word("READY=1")
    else:
        zel.check("the account", True, holds(running[0].status()["ledger"]))
        os.remove(path)
    await_taken(zel, senders, [sender.acknowledged for sender in senders])


def main(program):
    fills, seed = int(os.environ.get("ZEL_AGENT_FILLS", 2)), int(os.environ.get("ZEL_SEED", time.time()))
    dice = random.Random(seed)
    with Zel(program) as zel:
        zel.volume = os.path.join(zel.folder, "volume")
        os.mkdir(zel.volume)
        kind = mount(zel.volume, os.path.join(zel.folder, "image"))
        if kind is None:
            print("nothing can be mounted here")
            return 77
        print(f"{fills} times on {kind}, ZEL_SEED={seed}", flush=True)
        try:
            zel.store = os.path.join(zel.volume, "store")
            settings = {"spool_path": os.path.join(zel.volume, "spool"), "store_stop_below": "80M", "spool_hold": 0}
            running = [Service(zel, **settings)]
            senders = [Sender(lambda: running[0], number) for number in (0, 1)]
            for sender in senders:
                sender.start()
            for number in range(fills):
                # Every second time the service learns of it by what fails alone.
                running[0].end(signal.SIGTERM)
                settings["store_stop_below"] = "0" if number % 2 else "80M"
                running[0] = Service(zel, **settings)
                cycle(zel, settings, running, senders, dice)
            for sender in senders:
                sender.stopping.set()
                sender.join()
            if running[0].end(signal.SIGTERM) == 4:  # what the store lost last waits for the next start
                running[0] = Service(zel, **settings)
            zel.check("end", 0, running[0].end(signal.SIGTERM))
            print(f"records: {check_once(zel, senders)}")
            if zel.failures:
                with open(running[0].log, encoding="utf-8", errors="replace") as said:
                    print("the service said", *said.readlines()[-60:])
        finally:
            subprocess.run(["umount", "-l", zel.volume], check=False)
        return 1 if zel.failures else 0


if __name__ == "__main__":
    sys.exit(main(sys.argv[1]))
