"""The tables of the loadable extension on the sample.

tables.py ZEL EXTENSION SAMPLE
"""
import json
import os
import subprocess
import sys

from sqlshell import SqlShell
from zelcommand import read_records

PYTHON = """
import sqlite3, sys
connection = sqlite3.connect(":memory:")
if not hasattr(connection, "enable_load_extension"):
    sys.exit(77)
connection.enable_load_extension(True)
connection.load_extension(sys.argv[1])
connection.execute(f"create virtual table e using zel('{sys.argv[2]}')")
print(connection.execute("select count(*), min(time) from e").fetchone())
half = connection.execute("select event from e")  # left in the midst of its walk
half.fetchone()
connection.close()
"""


def columns(shell, records):
    """Each column as the records have it; an event is a row, once, though it be stored twice."""
    shell.run("ingest", "--no-receive-rows", "-", given=records[0])
    total = [str(len(records))]
    shell.check("all events", total, shell.lines("select count(*) from events;"))
    first = json.loads(records[0])
    target, actor = first["artifacts"]["target"], first["artifacts"]["actor"]
    row = shell.lines("select time, seq, object, actor_path, actor_pid, typeof(actor_pid), user, url is null, "
                      f"event ->> '$.seq_num' from events where seq = {first['seq_num']} order by time limit 1;")
    shell.check("columns", "|".join(map(str, (
        first["begin_time"]["value"], first["seq_num"], target["object_type"], actor["path"]["value"][0],
        actor["pid"]["value"][0], "integer", first.get("unmapped", {}).get("User", ""), 1, first["seq_num"]))), row[0])
    keys = {key.decode() for key in shell.rows("--print-keys")}
    shell.check("keys", keys, set(shell.lines("select key from events;")))


def other_tables(shell):
    key = shell.rows("--print-keys", "--limit", "1")[0].decode()
    for number in range(2):
        shell.run("enrich", key, given=b'{"n":[%d,",\\"enrichments\\":[1]"]}' % number)
    shell.check("enrichments", [f"{key}|1|0", f"{key}|2|1"], shell.lines(
        "select key, number, enrichment ->> '$.n[0]' from enrichments order by 2;"))
    shell.check("an event's text has none of them", ["0"], shell.lines(
        "select count(*) from events where event like '%enrichments%';"))
    folders = sorted(os.listdir(shell.store))
    shell.check("folders", folders, shell.lines("select name from folders;"))
    table = os.path.join(shell.store, folders[-1], "CURRENT")
    with open(table, "w", encoding="utf-8") as damaged:
        damaged.write("MANIFEST-999999\n")
    got = shell.lines("select count(*) from events;", "select folder, operation, count > 0 from errors;")
    shell.check("errors", ["0", folders[-1] + "|read|1"], got)


def refusals(shell):
    cases = {
        "insert into events(time) values('x');": "may not be modified",
        "delete from events;": "may not be modified",
        "create virtual table x using zel('/nosuch');": "a process has one store",
        "create virtual table x using zel;": "no store is named",
        "create virtual table x using zel('a', narrow=of);": "unknown argument narrow=of",
        "select time regexp '(' from events;": "missing ): (",
    }
    for statement, words in cases.items():
        shell.check(statement, True, words in shell.sql(statement).stderr.decode())
    ended = shell.sql("create virtual table x using zel('/nosuch');", "select 1;", prepare=False)
    shell.check("no store", (True, b"1\n"), (b"the store /nosuch does not exist" in ended.stderr, ended.stdout))


def loading(shell):
    """By a statement, during which SQLite replaces no function, and twice; a directory with any sign in it."""
    load = f"select load_extension('{shell.extension}');"
    odd = os.path.join(shell.folder, "a'=\"b")
    os.symlink(shell.store, odd)
    doubled = odd.replace('"', '""')
    ended = shell.sql(load, load, f'create virtual table t using zel("{doubled}");', "select count(*) > 0 from t;", load=False)
    shell.check("loading by a statement", (b"\n\n1\n", b""), (ended.stdout, ended.stderr))


def python(shell, total):
    for program in dict.fromkeys([sys.executable, "/usr/bin/python3"]):
        ended = subprocess.run([program, "-c", PYTHON, shell.extension, shell.store], check=False, timeout=60,
                               env=dict(shell.environment, LD_PRELOAD=shell.preload(), ASAN_OPTIONS="detect_leaks=0"),
                               stdout=subprocess.PIPE, stderr=subprocess.STDOUT)
        if ended.returncode == 77:
            print(f"{program} loads no extensions: not tried with it")
            continue
        shell.check(f"with {program}", (0, f"({total}, '2019-05-07T11:50:28.074Z')\n"),
                    (ended.returncode, ended.stdout.decode()))


def main(program, extension, sample):
    with SqlShell(program, extension) as shell:
        shell.run("ingest", sample)
        records = read_records(sample)
        columns(shell, records)
        refusals(shell)
        loading(shell)
        python(shell, len(records))
        other_tables(shell)
        return 1 if shell.failures else 0


if __name__ == "__main__":
    sys.exit(main(*sys.argv[1:]))
