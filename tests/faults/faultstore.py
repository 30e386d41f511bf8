"""What the drivers of this folder share: a store filled by storewriter, and looks at what it holds."""
import json
import os
import re
import struct
import subprocess
import sys
import zlib

sys.path.insert(0, os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "zel"))
from zelcommand import Zel  # noqa: E402

LONGEST = 120  # seconds; nothing here takes a tenth of that
ENRICHED_EACH = 7
GIVEN_UP = ("0x80070570", "0x8007045D")  # codes of a database that is deleted
ROW = re.compile(rb'(.*"seq_num":(\d+),"fill":"[A-Z]*"),"sum":"([0-9a-f]{8})"(,"enrichments":\[.*\]|,"enriched_data":null)?\}', re.DOTALL)


def setting(name, default):
    return int(os.environ.get(name, default))


class Store(Zel):
    """`binaries` is the folder with zel and storewriter."""

    def __init__(self, binaries):
        super().__init__(os.path.join(binaries, "zel"))
        self.writer = os.path.join(binaries, "storewriter")
        os.mkdir(self.store)

    def writer_command(self, first, count, per_day, most_bytes):
        return [self.writer, self.store, *map(str, (first, count, per_day, most_bytes))]

    def run_writer(self, *arguments, **environment):
        """How it ended, what it acknowledged and which errors it told."""
        ended = subprocess.run(self.writer_command(*arguments), stdout=subprocess.PIPE, stderr=subprocess.PIPE,
                               env=dict(self.environment, **environment), timeout=LONGEST)
        return (ended.returncode, *read_acks(ended.stdout), ended.stderr)

    def run(self, *arguments, **options):
        options.setdefault("timeout", LONGEST)
        return super().run(*arguments, **options)

    def folders(self):
        return sorted(entry.name for entry in os.scandir(self.store) if entry.is_dir())

    def look(self, *arguments, strict=True):
        """The query's end, and the numbers of its rows: True with the enrichment that belongs to them. What is
        not as it was written or comes twice is a failure, or is left out."""
        ended = self.run("query", *(arguments or ("--enrichments",)))
        rows = {}
        for line in ended.stdout.splitlines():
            row = ROW.fullmatch(line)
            whole = bool(row) and zlib.crc32(row[1]) == int(row[3], 16)
            number = int(row[2]) if whole else None
            joined = whole and row[4] in (b',"enrichments":[{"of":%d}]' % number, b',"enriched_data":null')
            if strict:
                self.check("a row is as it was written", True, whole and (joined or not row[4]) or line[:300])
                self.check("no row comes twice", False, number in rows)
            if whole:
                rows[number] = number % ENRICHED_EACH != 0 or joined
        return ended, rows

    def lacks(self, rows, numbers):
        """Which of the records are not there with their enrichments."""
        return [number for number in numbers if not rows.get(number)]

    def info(self, *arguments):
        ended = self.run("info", "-o", "json", *arguments)
        return ended.returncode, json.loads(ended.stdout or b"{}")


class FaultyDisk:
    """Runs commands on the store while calls of the system fail, or kill them (faultydisk.cpp)."""

    def __init__(self, store, library):
        self.store = store
        # A sanitizer's runtime has to come first of all that is preloaded.
        lines = subprocess.run(["ldd", store.program], stdout=subprocess.PIPE).stdout.decode().splitlines()
        runtimes = [line.split()[2] for line in lines if any(f"lib{name}.so" in line for name in ("asan", "tsan"))]
        self.preload = " ".join(runtimes + [library])
        self.state = os.path.join(store.folder, "state")

    def environment(self, *fault):
        """For calls that fail: CALL, KIND, NTH, LAST, ERROR; 0 for the last kills."""
        with open(self.state, "wb") as state:
            state.write(bytes(8))
        words = " ".join(map(str, (self.state, self.store.store, *fault)))
        return dict(self.store.environment, LD_PRELOAD=self.preload, ZEL_FAULT=words)

    def run(self, command, call, kind, nth, last, error, given=b""):
        """The ended process, and how many of its calls failed."""
        ended = subprocess.run(command, input=given, stdout=subprocess.PIPE, stderr=subprocess.PIPE,
                               env=self.environment(call, kind, nth, last, error), timeout=LONGEST)
        with open(self.state, "rb") as state:
            return ended, struct.unpack("II", state.read())[1]


def read_acks(lines):
    """The last number below which all was acknowledged, or None, and what was told."""
    acked, told, missing = None, [], []
    for line in lines.decode().splitlines():
        words = line.split()
        if words[:1] == ["acked"] and len(words) == 2:
            acked = int(words[1])
        elif words[:1] == ["missing"]:
            missing.append(int(words[1]))
        elif words[:1] == ["told"] or words[:1] == ["damaged"]:
            told.append(words[1:])
    return min([acked, *missing]) if missing else acked, told


def read_back(lines):
    """All numbers that were read back once."""
    acked, missing = 0, set()
    for words in map(bytes.split, lines.splitlines()):
        if words[:1] == [b"acked"]:
            acked = int(words[1])
        elif words[:1] == [b"missing"]:
            missing.update(range(int(words[1]), int(words[2])))
    return [number for number in range(acked) if number not in missing]


def record(number):
    """As storewriter makes them."""
    text = (b'{"artifacts":{"target":{"object_type":"file","path":{"value":["C:\\\\t\\\\%d.txt"]}}},"action":["create"],'
            b'"begin_time":{"value":"2020-01-01T12:00:00.000Z"},"seq_num":%d,"fill":"A"' % (number, number))
    return b'%s,"sum":"%08x"}' % (text, zlib.crc32(text))


def ended_badly(code):
    """Whether a process died of a signal or of what a sanitizer found."""
    return code not in (0, 1, 3, 4)


__all__ = ["FaultyDisk", "GIVEN_UP", "LONGEST", "Store", "ended_badly", "read_acks", "read_back", "record", "setting", "subprocess"]
