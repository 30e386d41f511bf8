"""The program as a person runs it, for the tests of its commands."""
import lzma
import os
import shutil
import subprocess
import tempfile
import time


class Zel:
    """One store in a folder of its own, which goes with the object."""

    def __init__(self, program):
        self.program = program
        self.folder = tempfile.mkdtemp()
        self.store = os.path.join(self.folder, "store")
        self.environment = {k: v for k, v in os.environ.items() if k not in ("ZEL_STORE", "COLUMNS")}
        self.environment["XDG_CONFIG_HOME"] = os.path.join(self.folder, "config")
        self.failures = 0

    def __enter__(self):
        return self

    def __exit__(self, *_):
        shutil.rmtree(self.folder, ignore_errors=True)

    def command(self, *arguments):
        return [self.program, "--store", self.store, *arguments]

    def run(self, *arguments, given=b"", columns=None, terminal=None, **options):
        """The ended process; stdout and stderr as bytes, but for what goes to a terminal."""
        environment = dict(self.environment, **({"COLUMNS": str(columns)} if columns else {}))
        options.setdefault("stdout", subprocess.PIPE)
        return subprocess.run(self.command(*arguments), input=given, stderr=terminal or subprocess.PIPE,
                              env=environment, **options)

    def rows(self, *arguments, **options):
        return self.run("query", *arguments, **options).stdout.splitlines()

    def check(self, what, expected, got):
        if expected == got:
            return
        self.failures += 1
        print(f"FAILED: {what}\n  expected: {str(expected)[:800]}\n  got:      {str(got)[:800]}")


def processor_time(pid):
    """Seconds that the process has used of processors; nothing for one that has ended."""
    with open(f"/proc/{pid}/stat", encoding="utf-8") as file:
        fields = file.read().rpartition(")")[2].split()
    return None if fields[0] == "Z" else (int(fields[11]) + int(fields[12])) / os.sysconf("SC_CLK_TCK")


def await_work(pid, seconds):
    """Until the process has used so much more of a processor, so that it is in the midst of its work; or has ended."""
    first = processor_time(pid)
    while (used := processor_time(pid)) is not None and used - (first or 0) < seconds:
        time.sleep(0.01)


def read_records(file):
    with (lzma.open if file.endswith(".xz") else open)(file, "rb") as lines:
        return lines.read().splitlines()
