"""Fails calls of the system under a writer and under the commands, and looks at the store behind them.

injected.py BINARIES FAULTYDISK; ZEL_FAULTS says how often each call fails on each kind of file, ZEL_SEED
with which seed."""
import errno
import os
import random
import shutil
import sys
import time

from faultstore import FaultyDisk, GIVEN_UP, Store, ended_badly, read_acks, record, setting

PER_DAY = 5000
OLD_ROWS = range(1000)                     # in a folder that the writer only reads
NEW_ROWS = range(PER_DAY, PER_DAY + 2600)  # enough for the library to make tables meanwhile
FAULTS = (
    ("open", (".log", ".ldb", "MANIFEST", "CURRENT", ".dbtmp", "LOCK", "LOG", "/"), ("EMFILE", "EACCES", "EIO")),
    ("write", (".log", ".ldb", "MANIFEST", ".dbtmp"), ("ENOSPC", "EIO")),
    ("read", (".log", "MANIFEST", "CURRENT"), ("EIO",)),
    ("fdatasync", (".ldb", "MANIFEST", ".dbtmp", "/"), ("EIO",)),
    ("mmap", (".ldb",), ("ENOMEM",)),
    ("rename", ("CURRENT", "LOG"), ("ENOSPC", "EACCES")),
    ("unlink", (".log", "MANIFEST"), ("EACCES", "EIO")),
    ("mkdir", ("/",), ("ENOSPC",)),
)
# Each with the calls that it makes.
COMMANDS = {
    "query": ("query", "--enrichments"),
    "check": ("info", "--check"),
    "ingest": ("ingest",),
    "enrich": ("enrich", "p<begin_time>2020-01-01T00:00:00.001Z<sequence>0000000001<object_type>file<action>create"),
    "purge": ("purge", "--max-size", "0"),
}


# A log is read through before the library gets it. Should only the library fail to read it, its rows go.
def may_lose_log(fault, told):
    return told and fault[0] in ("open", "read") and fault[1] == ".log"


class Faults:
    def __init__(self, store, library, dice):
        self.store, self.dice = store, dice
        self.disk = FaultyDisk(store, library)
        self.whole = store.store + ".whole"
        self.injected = {}
        half = len(OLD_ROWS) // 2
        for first in (0, half):
            store.check("the records are written", 0, store.run_writer(first, half, PER_DAY, 600)[0])
        os.rename(store.store, self.whole)

    def restore(self):
        shutil.rmtree(self.store.store, ignore_errors=True)
        shutil.copytree(self.whole, self.store.store)

    def run(self, what, command, fault, given=b""):
        """The ended process, and how many of its calls failed."""
        self.restore()
        call, kind, nth, last, error = fault
        ended, failed = self.disk.run(command, call, kind, nth, last, getattr(errno, error), given)
        if ended_badly(ended.returncode):
            self.store.check(f"{what} ends", "an end", (ended.returncode, ended.stderr[-3000:]))
        if failed:
            self.injected[f"{call} {kind}"] = self.injected.get(f"{call} {kind}", 0) + 1
        return ended, failed

    def writer(self, fault):
        command = self.store.writer_command(NEW_ROWS.start, len(NEW_ROWS), PER_DAY, 3600)
        ended, failed = self.run("writer", command, fault)
        acked, told = read_acks(ended.stdout)
        after, rows = self.store.look()
        if not may_lose_log(fault, ["data"] in told):
            self.store.check("the old rows are there", [], self.store.lacks(rows, OLD_ROWS)[:10])
        if ended.returncode == 0:
            self.store.check("the store said that all is written", [], self.store.lacks(rows, NEW_ROWS)[:10])
            self.store.check("and it can be read", 0, after.returncode)
        else:
            self.store.check("failures are told", True, bool(told))
        # A database that can't be written any more goes with its rows, and that is told. What only runs short
        # gives none up.
        given_up = any(line[-1] in GIVEN_UP for line in told)
        if fault[-1] != "EIO":
            self.store.check("nothing is given up", False, given_up)
        if not given_up:
            sure = range(NEW_ROWS.start, acked or NEW_ROWS.start)
            self.store.check("what was acknowledged is there", [], self.store.lacks(rows, sure)[:10])
        return failed, told

    def zel(self, name, fault):
        new = 10**6 + 1
        ended, failed = self.run(name, self.store.command(*COMMANDS[name]), fault,
                                 given=record(new) if name == "ingest" else b"1")
        told = ended.stderr[-300:]
        if name == "query" and ended.returncode == 0:
            rows = len(ended.stdout.splitlines())
            self.store.check("a query that ends well has all rows", len(OLD_ROWS), rows)
        after, rows = self.store.look(strict=name != "enrich")
        if name != "purge" and not may_lose_log(fault, ended.returncode == 4):
            self.store.check("the rows are there", [], [n for n in OLD_ROWS if n not in rows][:10])
        if name == "ingest" and ended.returncode == 0:
            self.store.check("what was taken is there", True, new in rows)
        if ended.returncode == 0 or name in ("query", "check"):
            self.store.check("nothing is broken", (0, 1), (0 if after.returncode in (0, 1) else after.stderr, 1))
        return failed, told

    def one(self, scenario, fault):
        before = self.store.failures
        failed, told = self.writer(fault) if scenario == "writer" else self.zel(scenario, fault)
        if self.store.failures != before:
            print(f"  with {scenario}, {fault}, {failed} calls failed, told: {told}", flush=True)
        return failed > 0

    def sweep(self, scenario, rounds):
        """Each call on each kind of file, early ones first; what a scenario doesn't call is left at once."""
        for call, kinds, errors in FAULTS:
            for kind in kinds:
                nth = 1
                for turn in range(rounds):
                    last = self.dice.choice((nth, 10**9))
                    if not self.one(scenario, (call, kind, nth, last, self.dice.choice(errors))):
                        break
                    nth += self.dice.randint(1, 1 + turn)


def main(binaries, library):
    rounds, seed = setting("ZEL_FAULTS", 1), setting("ZEL_SEED", int(time.time()))
    print(f"{rounds} round(s), ZEL_SEED={seed}", flush=True)
    dice = random.Random(seed)
    with Store(binaries) as store:
        faults = Faults(store, library, dice)
        faults.sweep("writer", rounds)
        # All commands open folders in the same way, so that a short run asks one of them.
        for name in COMMANDS if rounds > 1 else [dice.choice(list(COMMANDS))]:
            faults.sweep(name, rounds)
        print(f"{sum(faults.injected.values())} runs met failures: {faults.injected}")
        return 1 if store.failures else 0


if __name__ == "__main__":
    sys.exit(main(*sys.argv[1:3]))
