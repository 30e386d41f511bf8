"""What docs/query.md asks, and rules, of a store and of a fleet that got its events: the same on stdout, to the byte.

flags.py ZEL RECORDS PAGE RULES: PAGE is docs/query.md. Further rules: the folder that ZEL_FLEET_RULES names.
"""
import os
import re
import shlex
import subprocess
import sys

from engine import Engine, kinds, only_kind
from zelcommand import Zel

HOST = "3f1c-alpha"
# What the page has in its tables and not in an example.
MORE = [["--actor-path", "*\\powershell.exe", "--limit", "7"], ["--target-path", "*\\sys?em32\\*", "-n", "11"],
        ["--hash", "*"], ["--correlation", "905cc552-2064-5cc5-0000-00102f370200"], ["--type-id", "8001", "--type-id", "8006"],
        ["--actor-uid", "{905CC552-2064-5CC5-0000-00102F370200}"], ["--no-live-enriched", "--action", "launch"],
        ["--enrichments", "--action", "launch"], ["--duplicates", "--object", "module", "--limit", "50"],
        ["--by", "receive", "--limit", "30"], ["--object", "file", "--reverse"], ["--object", "file", "-n", "700", "--sort"],
        ["--user", "pgustavo", "--limit", "5"], ["--computer", "WORKSTATION5.theshire.local"], ["--pid", "5452"], ["--port", "445"],
        ["--object", "network", "--since", "2020-10-19", "--until", "2020-10-23", "--ip", "172.18.*"],
        ["--with-key", "--action", "terminate"], ["--print-keys", "--object", "url"], ["--count-by", "action"], []]
SQL = ["select count(*), min(time), max(time) from events", "select target_path, count(*) from events where action = 'launch' "
       "and actor_path like '%\\powershell.exe' group by 1 order by 2 desc, 1", "select time, target_path from events where "
       "object = 'file' order by time desc limit 5"]


def examples(page):
    """The questions of the page, as arguments; without those of other stores."""
    with open(page, encoding="utf-8") as file:
        for line in re.findall(r"^    \$ zel query (.*)$", file.read(), re.MULTILINE):
            words = shlex.split(line.split(" | ")[0].split(" 2>")[0].split("; ")[0])
            if not {"--store", "--explain", "--trailer"} & set(words) and "$" not in line:
                yield words


class Both:
    def __init__(self, zel, engine):
        self.zel, self.engine, self.count = zel, engine, 0
        zel.environment["ZEL_FLEET_PASSWORD"] = engine.user[1]

    def fill(self, records):
        zel = self.zel
        zel.check("stored", 0, zel.run("ingest", records).returncode)
        for number, key in enumerate(zel.rows("--action", "launch", "--print-keys")[::3]):
            zel.check("enriched", 0, zel.run("enrich", *(["--live"] if number % 2 else []), key.decode(), given=b'{"n":1}\n').returncode)
        for command in (["init", self.engine.url], ["send", "--host", HOST, "--settling", "0", self.engine.url]):
            done = zel.run("fleet", *command)
            zel.check(f"{command}: {done.stderr}", 0, done.returncode)

    def ask(self, command, *arguments):
        """Once here, once there: what is printed, and how it ends."""
        here = self.zel.run(command, *arguments)
        there = subprocess.run([self.zel.program, command, "--fleet", self.engine.url, "--host", HOST, *arguments],
                               capture_output=True, env=self.zel.environment, timeout=300)
        self.count += 1
        # What comes with a key or a rule tells its host as well.
        got = [line.replace(b'{"host":"%s",' % HOST.encode(), b"{", 1) for line in there.stdout.splitlines()]
        for what, a, b in (("lines", here.stdout.splitlines(), got), ("end", here.returncode, there.returncode)):
            if a != b and what == "lines":
                at = next((i for i, (x, y) in enumerate(zip(a, b)) if x != y), min(len(a), len(b)))
                a, b = (len(a), at, a[at:at + 1]), (len(b), at, b[at:at + 1])
            self.zel.check(f"{self.engine.kind}: {command} {arguments}: {what} {there.stderr[-300:]}", a, b)


def main(program, records, page, rules):
    only_kind()
    failures = 0
    folders = [rules, *filter(None, [os.environ.get("ZEL_FLEET_RULES")])]
    for kind in kinds():
        with Engine(kind) as engine, Zel(program) as zel:
            both = Both(zel, engine)
            both.fill(records)
            for words in [*examples(page), *MORE]:
                both.ask("query", *words)
            for folder in folders:
                for path in sorted(os.path.join(at, name) for at, _, names in os.walk(folder) for name in names):
                    if path.endswith((".yml", ".yaml")):
                        both.ask("hunt", path)
                both.ask("hunt", folder)
            for statement in SQL:
                both.ask("sql", statement)
            print(f"{kind} {engine.version}: {both.count} questions, {zel.failures} answered otherwise")
            failures += zel.failures
    return 1 if failures else 0


if __name__ == "__main__":
    sys.exit(main(*sys.argv[1:5]))
