"""zel sql: what it prints, refuses and ends with, and its shell.

command.py ZEL EXTENSION SAMPLE
"""
import os
import pty
import signal
import subprocess
import sys

from zelcommand import Zel, await_work

ENDLESS = "with recursive x(n) as (select 1 union all select n + 1 from x) select max(n) from x"


def ends(zel):
    cases = [  # statement, input, end, what is printed, words on stderr
        ("select 1 as a; select 2 as b", b"", 0, '{"a":1}\n{"b":2}\n', ""),
        ("select time from events where action = 'nothing'", b"", 1, "", ""),
        ("select x'00ff' as a, cast(x'ff41' as text) as b", b"", 0, '{"a":"X\'00FF\'","b":"\\\\xffA"}\n', ""),
        ("select actoin from events", b"", 2, "", "no such column: actoin\n  select actoin from events\n         ^\n"),
        ("select 1 as a; delete from events", b"", 2, '{"a":1}\n', "table events may not be modified"),
        (".tables", b"", 0, "".join(f'{{"table":"{t}"}}\n' for t in ("enrichments", "errors", "events", "folders")), ""),
        (".schema nothing", b"", 2, "", "no table nothing"),
        (".tabels", b"", 2, "", 'unknown command ".tabels"; did you mean ".tables"?'),
        ("", b"select 1\n as a; .mode csv\nselect '=1' as a", 2, '{"a":1}\n', "near"),
        ("", b"select 1\n as a;\n.mode csv\nselect '=1' as a", 0, '{"a":1}\na\r\n\'=1\r\n', ""),
        ("", b"select 1 as a;\0 select 2;", 2, "", "character NUL"),
        ("select 1 where time > '-1h'", b"", 2, "", "no such column: time"),
        ("select count(*) as n from events where time < '-1h'", b"", 0, '{"n":2029}\n', ""),
    ]
    for word in ("attach 'x' as y", "create table t(a)", "pragma temp_store = 1", "vacuum into 'x'",
                 "create virtual table x using zel('/')", "create temp view v as select 1"):
        cases.append((word, b"", 2, "", "zel sql only reads"))
    for statement, given, end, printed, words in cases:
        ended = zel.run("sql", *([statement] if statement else []), given=given)
        zel.check(statement or given, (end, printed), (ended.returncode, ended.stdout.decode()))
        zel.check(f"{statement or given} says {words}", True, words in ended.stderr.decode())
    table = zel.run("sql", "-o", "table", "select 'a' || char(27) as text, 12 as n union select 'bcd', 3", columns=9)
    zel.check("a table", "text   n\na\\x1b  12\nbcd     3\n".split(), table.stdout.decode().split())


def interruptions(zel):
    for statement in (ENDLESS, "select count(*) from events a, events b, events c"):
        started = subprocess.Popen(zel.command("sql", statement), env=zel.environment, stdout=subprocess.PIPE,
                                   stderr=subprocess.PIPE)
        await_work(started.pid, 0.5)
        started.send_signal(signal.SIGINT)
        zel.check(f"{statement} is interrupted", (130, b"", b""),
                  (started.wait(20), started.stdout.read(), started.stderr.read()))
    reader = subprocess.run(["bash", "-c", '"$@" | head -n 1', "-", *zel.command("sql", "select event from events")],
                            env=zel.environment, capture_output=True, check=False, timeout=20)
    zel.check("a reader that goes away", (1, b""), (reader.stdout.count(b"\n"), reader.stderr))


def shell(zel):
    child, terminal = pty.fork()
    if child == 0:
        environment = dict(zel.environment, TERM="xterm", XDG_STATE_HOME=zel.folder)
        os.execve(zel.program, zel.command("sql"), environment)
    seen = b""

    def until(words):
        nonlocal seen
        while words not in seen:
            try:
                seen += os.read(terminal, 65536)
            except OSError:
                return zel.check(f"the shell says {words}", True, False)
        seen = seen.split(words, 1)[1]
        return None

    until(b"zel> ")
    os.write(terminal, b"select count(*)\n")
    until(b"...> ")
    os.write(terminal, b"from events;\n")
    until(b"2029")
    until(b"zel> ")
    os.write(terminal, ENDLESS.encode() + b";\n")
    until(b"from x;\r\n")
    await_work(child, 0.5)
    os.write(terminal, b"\x03")
    until(b"zel: interrupted")
    until(b"zel> ")
    os.write(terminal, b".mode csv\nselect char(27) as \"e\";\n")
    until(b"\\x1b\r")
    os.write(terminal, b".quit\n")
    zel.check("the shell's end", 0, os.waitstatus_to_exitcode(os.waitpid(child, 0)[1]))
    history = os.path.join(zel.folder, "zelstore/sql_history")
    zel.check("history is its owner's", 0o600, os.stat(history).st_mode & 0o777)


def histogram(zel, examples):
    """The example draws: bars of text where there is no matplotlib, as without site packages, else a picture."""
    environment = dict(zel.environment, PATH=os.path.dirname(zel.program) + ":" + os.environ["PATH"])
    environment.pop("PYTHONPATH", None)
    for options in (["-S"], []):
        ended = subprocess.run(["/usr/bin/python3", *options, os.path.join(examples, "histogram.py"), zel.store,
                                "time > '2023-01-01'"], cwd=zel.folder, env=environment, stdout=subprocess.PIPE,
                               check=False, timeout=60)
        printed = ended.stdout.decode()
        picture = os.path.join(zel.folder, "histogram.png")
        zel.check(f"a histogram with {options}", True, f"2023-07-19T16  {'#' * 60} 159\n" in printed or (
            options == [] and "3 hour(s), 180 event(s)" in printed and os.path.getsize(picture) > 0))


def losses(zel):
    folder = next(entry for entry in os.scandir(zel.store))
    with open(os.path.join(folder, "CURRENT"), "w", encoding="utf-8") as damaged:
        damaged.write("MANIFEST-999999\n")
    ended = zel.run("sql", "select count(*) as n from events")
    zel.check("a damaged folder", (4, b'{"n":0}\n', True),
              (ended.returncode, ended.stdout, f"folder {folder.name}: ".encode() in ended.stderr))


def main(program, _extension, sample):
    with Zel(os.path.abspath(program)) as zel:
        zel.check("no store", 3, zel.run("sql", "select 1").returncode)
        zel.run("ingest", sample)
        ends(zel)
        interruptions(zel)
        shell(zel)
        histogram(zel, os.path.dirname(os.path.abspath(sample)))
        losses(zel)
        return 1 if zel.failures else 0


if __name__ == "__main__":
    sys.exit(main(*sys.argv[1:]))
