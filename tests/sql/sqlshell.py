"""SQLite's own shell with the store's tables loaded."""
import os
import shutil
import subprocess
import sys

from zelcommand import Zel

TABLES = {"events": "zel", "folders": "zel_folders", "enrichments": "zel_enrichments", "errors": "zel_errors"}


class SqlShell(Zel):
    """A store whose tables, and `plain` without conditions that narrow the walk, are asked in SQL."""

    def __init__(self, program, extension):
        super().__init__(program)
        self.extension = os.path.splitext(os.path.abspath(extension))[0]
        if not shutil.which("sqlite3"):
            print("there is no sqlite3")
            sys.exit(77)

    def preload(self):
        # A sanitizer's library has to be the first; the shell was not linked with it.
        linked = subprocess.run(["ldd", self.extension + ".so"], stdout=subprocess.PIPE, check=False).stdout.decode()
        found = [line.split()[2] for line in linked.splitlines() if "san.so" in line]
        return " ".join(found) or os.environ.get("ZEL_SANITIZER_RUNTIME", "")

    def sql(self, *statements, options=(), load=True, prepare=True):
        """The ended shell. Statements that fail don't end it."""
        tables = [f"create virtual table {name} using {module}('{self.store}');" for name, module in TABLES.items()]
        tables.append(f"create virtual table plain using zel('{self.store}', narrow=off);")
        script = ([f".load {self.extension}"] if load else []) + (tables if load and prepare else []) + list(statements)
        environment = dict(self.environment, LD_PRELOAD=self.preload(), ASAN_OPTIONS="detect_leaks=0")
        ended = subprocess.run(["sqlite3", *options, ":memory:"], input="\n".join(script).encode(), env=environment,
                              stdout=subprocess.PIPE, stderr=subprocess.PIPE, check=False, timeout=250)
        self.check("what a sanitizer says", b"", ended.stderr if b"Sanitizer" in ended.stderr else b"")
        return ended

    def lines(self, *statements, **options):
        return self.sql(*statements, **options).stdout.decode().splitlines()
