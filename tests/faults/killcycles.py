"""Kills a writer, a reader and a purge at random moments, and looks at the store behind them.

killcycles.py BINARIES; ZEL_KILL_CYCLES says how often, ZEL_SEED with which seed."""
import os
import random
import sys
import time

from faultstore import Store, read_acks, setting, subprocess

CYCLES_A_STORE = 25
PER_DAY = 9000
FILLERS = 78  # tables of a folder that has room for two more


def kill_after(command, seconds, environment):
    process = subprocess.Popen(command, stdout=subprocess.PIPE, stderr=subprocess.PIPE, env=environment)
    try:
        out, told = process.communicate(timeout=seconds)
    except subprocess.TimeoutExpired:
        process.kill()
        out, told = process.communicate()
    return process.returncode, out, told


class Cycles:
    def __init__(self, store, dice):
        self.store, self.dice = store, dice
        self.begun = 0     # folders whose making a kill has cut off
        self.next = 0      # the first number that no writer has had
        self.sure = set()  # acknowledged
        self.killed = {"writer": 0, "query": 0, "purge": 0}

    def kill(self, what, command, longest):
        code, out, told = kill_after(command, self.dice.uniform(0, longest), self.store.environment)
        self.killed[what] += code == -9
        if code not in (-9, 0, 1, 4):
            self.store.check(f"{what} ends by itself or is killed", "0, 1, 4 or -9", (code, told[-2000:]))
        return code, out

    def write(self):
        count = self.dice.choice((2000, 6000, 12000))
        command = self.store.writer_command(self.next, count, PER_DAY, self.dice.choice((60, 400, 3000)))
        code, out = self.kill("writer", command, self.dice.choice((0.15, 0.6, 1.5)))
        acked, told = read_acks(out)
        self.store.check("no writer has failures of its own", [], told)
        end = self.next + count if code == 0 else acked or self.next
        self.sure.update(range(self.next, end))
        self.next += count

    def fill_up(self):
        """Makes folders of events nearly full, so that the next ones follow."""
        for folder in self.store.folders():
            # A making that was cut off has nothing of others in it.
            made = os.path.exists(os.path.join(self.store.store, folder, "CURRENT"))
            if made and folder[8:] != "999" and not os.path.exists(self.table(folder, 0)):
                for i in range(FILLERS):
                    open(self.table(folder, i), "wb").close()

    def table(self, folder, number):
        # The library leaves such names alone.
        return os.path.join(self.store.store, folder, f"filler{number}.ldb")

    def verify(self):
        self.begun += sum(not os.path.exists(os.path.join(self.store.store, f, "CURRENT")) for f in self.store.folders())
        ended, rows = self.store.look()
        self.store.check("all acknowledged is there", [], self.store.lacks(rows, self.sure)[:10])
        self.store.check("nothing else is there", [], [n for n in rows if not 0 <= n < self.next][:10])
        # What a kill has left of a making is taken away, and no failure.
        self.store.check("the query's end", 0 if rows else 1, ended.returncode)
        info = self.store.info()[1]
        folders = self.store.folders()
        size = sum(e.stat().st_size for f in folders for e in os.scandir(os.path.join(self.store.store, f)))
        # What was to go when a kill came takes room until the store next starts for writing.
        self.store.check("folders and sizes", ([f for f in folders if not f.endswith(".removed")], size),
                         ([f["name"] for f in info["folders"]], info["bytes"]))
        self.store.check("the check's end", 0, self.store.info("--check")[0])
        self.fill_up()

    def end(self):
        """A purge that is killed leaves rows as they were; the next one takes the rest."""
        self.kill("purge", self.store.command("purge", "--max-size", "0"), 0.06)
        _, rows = self.store.look()
        self.store.check("a purge makes no rows", [], [n for n in rows if not 0 <= n < self.next][:10])
        self.store.check("a second purge", 0, self.store.run("purge", "--max-size", "0").returncode)
        # A folder that the first one had emptied takes no room.
        self.store.check("has nothing left", 0, self.store.info()[1]["bytes"])


def main(binaries):
    cycles, seed = setting("ZEL_KILL_CYCLES", 15), setting("ZEL_SEED", int(time.time()))
    print(f"{cycles} cycles, ZEL_SEED={seed}", flush=True)
    failures, done, sums = 0, 0, {"records": 0, "folders": 0, "begun": 0}
    dice, killed = random.Random(seed), {}
    while done < cycles and not failures:
        with Store(binaries) as store:
            run = Cycles(store, dice)
            for _ in range(min(CYCLES_A_STORE, cycles - done)):
                if dice.random() < 0.3:
                    run.kill("query", store.command("query"), 0.1)
                run.write()
                run.verify()
                done += 1
                if store.failures:
                    break
            sums["records"] += len(run.sure)
            sums["folders"] += len(store.folders())
            sums["begun"] += run.begun
            if not store.failures:
                run.end()
            failures += store.failures
            killed = {what: killed.get(what, 0) + count for what, count in run.killed.items()}
    print(f"{done} cycles; killed: {killed}; {sums['records']} records acknowledged, {sums['folders']} folders, "
          f"{sums['begun']} of them cut off at their making")
    return 1 if failures else 0


if __name__ == "__main__":
    sys.exit(main(*sys.argv[1:2]))
