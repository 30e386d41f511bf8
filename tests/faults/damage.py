"""Damages each kind of file of a folder in each way, with whole folders beside it, and runs the commands.

damage.py BINARIES; ZEL_DAMAGES says how many random ones follow the table, ZEL_SEED with which seed."""
import os
import random
import shutil
import sys
import time

from faultstore import Store, ended_badly, record, setting

PER_DAY = 1000
OLD = "20200101"
TODAY = time.strftime("%Y%m%d", time.gmtime())
FILES = ("CURRENT", "MANIFEST", ".log", ".ldb", "LOCK", "LOG")


def read(path):
    with open(path, "rb") as file:
        return file.read()


def write(path, content):
    with open(path, "wb") as file:
        file.write(content)


def flip(path, dice):
    content = bytearray(read(path))
    for _ in range(dice.choice((1, 1, 1, 8)) if content else 0):
        content[dice.randrange(len(content))] ^= 1 << dice.randrange(8)
    write(path, content)


def cut(path, dice):
    write(path, read(path)[:dice.randrange(os.path.getsize(path) or 1)])


def put_directory(path, _):
    os.remove(path)
    os.mkdir(path)
    write(os.path.join(path, "stray"), b"")


WAYS = {
    "flipped": flip,
    "cut": cut,
    "emptied": lambda path, _: write(path, b""),
    "removed": lambda path, _: os.remove(path),
    "garbage": lambda path, dice: write(path, dice.randbytes(dice.randrange(1, 70000))),
    "a directory": put_directory,
}
# What the library may take for a write that was cut off, not for damage.
SILENT = {(".log", way) for way in WAYS} - {(".log", "a directory")} | {("MANIFEST", "cut"), ("MANIFEST", "flipped")}


class Damages:
    def __init__(self, store, dice):
        self.store, self.dice = store, dice
        self.whole, self.damaged = store.store + ".whole", store.store + ".damaged"
        self.counts = {"told": 0, "silent": 0, "without effect": 0}
        # The second run's opening makes a table of what the first one wrote; its own rows stay in a log.
        half = PER_DAY // 2
        for day in (0, 1):
            for first in (0, half):
                code = store.run_writer(day * PER_DAY + first, half, PER_DAY, 600)[0]
                store.check("the records are written", 0, code)
            # Apart, so that the second day's writer doesn't open the first day's folder.
            shutil.move(store.store, self.whole + str(day))
            os.mkdir(store.store)
        shutil.move(self.whole + "0", self.whole)
        for folder in os.listdir(self.whole + "1"):
            # Today's folder takes what is written now.
            name = TODAY if folder == "20200102" else folder
            shutil.move(os.path.join(self.whole + "1", folder), os.path.join(self.whole, name))
        self.restore(self.whole)
        _, rows = store.look()
        store.check("all are there", [], store.lacks(rows, range(2 * PER_DAY)))

    def restore(self, copy):
        shutil.rmtree(self.store.store, ignore_errors=True)
        shutil.copytree(copy, self.store.store)

    def damage(self, folder, kind, way):
        """False when the folder has no such file."""
        path = os.path.join(self.store.store, folder)
        files = [f for f in sorted(os.listdir(path)) if f.endswith(kind) or (kind == "MANIFEST" and f.startswith(kind))]
        if files:
            WAYS[way](os.path.join(path, self.dice.choice(files)), self.dice)
        return bool(files)

    def command(self, *arguments, **options):
        ended = self.store.run(*arguments, **options)
        if ended_badly(ended.returncode):
            self.store.check(f"{arguments[0]} ends", "an end", (ended.returncode, ended.stderr[-3000:]))
        return ended.returncode

    def one(self, folder, kind, way):
        self.restore(self.whole)
        if not self.damage(folder, kind, way):
            return
        before = self.store.failures
        shutil.rmtree(self.damaged, ignore_errors=True)
        shutil.copytree(self.store.store, self.damaged)
        told = self.command("info", "--check") == 4
        self.restore(self.damaged)
        self.read(folder, kind, way, told)
        self.write(folder)
        self.command("purge", "--max-size", "0")
        self.store.check("a purge takes all folders", [], self.store.folders())
        if self.store.failures != before:
            print(f"  with {folder} {kind} {way}, told: {told}", flush=True)

    def read(self, folder, kind, way, told):
        lost = query_told = False
        others = {OLD: range(PER_DAY, 2 * PER_DAY), TODAY: range(PER_DAY)}.get(folder, range(2 * PER_DAY))
        for arguments in (("--enrichments",), ("--by", "receive")):
            ended, rows = self.store.look(*arguments, strict=False)
            if ended_badly(ended.returncode):
                self.store.check("query ends", "an end", (ended.returncode, ended.stderr[-3000:]))
            self.store.check(f"{arguments}: the other folders' rows", [], [n for n in others if n not in rows][:10])
            missing = self.store.lacks(rows, range(2 * PER_DAY))
            lost = lost or bool(missing)
            # The first to open a folder hears what its log has lost.
            query_told = query_told or ended.returncode == 4
            # Bits that are not what they were may go unseen in a query, which verifies no checksums.
            if missing and (kind, way) not in SILENT and way != "flipped":
                self.store.check(f"{arguments}: {len(missing)} rows are missing, which is told", True, query_told)
        if lost and (kind, way) not in SILENT:
            self.store.check("the check tells", True, told)
        self.counts["told" if told else "silent" if lost else "without effect"] += 1

    def write(self, folder):
        """New records are stored or told; another folder's damage is nothing to them."""
        number = 10**6 + 1
        code = self.command("ingest", given=record(number))
        stored = number in self.store.look(strict=False)[1]
        self.store.check("a new record is stored or told", True, stored or code == 4)
        if folder != TODAY:
            self.store.check("it is stored", (True, 0), (stored, code))
        self.command("enrich", KEY, given=b"1")


# Of an event of the first day: its enrichments stand in the folder OLD + 999.
KEY = "p<begin_time>2020-01-01T00:00:00.001Z<sequence>0000000001<object_type>file<action>create"


def main(binaries):
    count, seed = setting("ZEL_DAMAGES", 0), setting("ZEL_SEED", int(time.time()))
    dice = random.Random(seed)
    folders = (OLD, TODAY, OLD + "999")
    table = [(dice.choice(folders), kind, way) for kind in FILES for way in WAYS]
    table += [(dice.choice(folders), dice.choice(FILES), dice.choice(list(WAYS))) for _ in range(count)]
    print(f"{len(table)} damages, ZEL_SEED={seed}", flush=True)
    with Store(binaries) as store:
        damages = Damages(store, dice)
        for row in table:
            damages.one(*row)
        print(damages.counts)
        return 1 if store.failures else 0


if __name__ == "__main__":
    sys.exit(main(*sys.argv[1:2]))
