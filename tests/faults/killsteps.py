"""Kills a purge and the making of a folder ahead of each of their calls that change the directory, and looks
at what the next commands make of the rest.

killsteps.py BINARIES FAULTYDISK"""
import os
import shutil
import sys

from faultstore import FaultyDisk, Store, record

STEPS = ("mkdir", "rename", "unlink", "rmdir", "open", "write", "fdatasync")
PER_DAY = 600
NEW, LATER = 10**6 + 1, 10**6 + 2


class Steps:
    def __init__(self, store, library):
        self.store, self.disk = store, FaultyDisk(store, library)
        self.whole = store.store + ".whole"
        store.check("the records are written", 0, store.run_writer(0, 2 * PER_DAY, PER_DAY, 100)[0])
        store.check("so is today's", 0, store.run("ingest", given=record(NEW)).returncode)
        os.rename(store.store, self.whole)
        self.rows_of = [self.rows_in(folder) for folder in os.listdir(self.whole)]
        self.killed = {}

    def rows_in(self, folder):
        os.mkdir(self.store.store)
        shutil.copytree(os.path.join(self.whole, folder), os.path.join(self.store.store, folder))
        rows = set(self.store.look(strict=False)[1])
        shutil.rmtree(self.store.store)
        return rows

    def restore(self, is_empty):
        shutil.rmtree(self.store.store, ignore_errors=True)
        if is_empty:
            os.mkdir(self.store.store)
        else:
            shutil.copytree(self.whole, self.store.store)

    def sweep(self, name, calls, arguments, given=b"", is_empty=False):
        for call in calls:
            nth, killed = 0, True
            while killed:
                nth += 1
                self.restore(is_empty)
                ended, failed = self.disk.run(self.store.command(*arguments), call, "*", nth, nth, 0, given)
                killed = failed > 0
                if killed:
                    self.store.check("it is killed", -9, ended.returncode)
                    self.killed[name, call] = nth
                    before = self.store.failures
                    self.verify()
                    if self.store.failures != before:
                        print(f"  with {name} killed ahead of {call} {nth}", flush=True)

    def verify(self):
        """Writes go on, whole folders answer whole, and nothing is left of what was killed."""
        written = self.store.run("ingest", given=record(LATER))
        self.store.check("writes go on", (0, b""), (written.returncode, written.stderr if written.returncode else b""))
        ended, rows = self.store.look("--enrichments", strict=False)
        self.store.check("the query has no failures", (0, True), (ended.returncode, LATER in rows))
        for folder in self.rows_of:
            self.store.check("a folder is there as a whole or not at all", True, folder <= set(rows) or not folder & set(rows))
        self.store.check("no folder is left half", [],
                         [f for f in self.store.folders() if not f.isdigit() or len(f) not in (8, 11)])
        self.store.check("the check has no failures", 0, self.store.info("--check")[0])


def main(binaries, library):
    with Store(binaries) as store:
        steps = Steps(store, library)
        steps.sweep("purge", STEPS[:4], ("purge", "--max-size", "0"))
        steps.sweep("make", STEPS, ("ingest",), record(NEW), is_empty=True)
        print("kills:", {" ".join(name): count for name, count in steps.killed.items()})
        return 1 if store.failures else 0


if __name__ == "__main__":
    sys.exit(main(*sys.argv[1:3]))
