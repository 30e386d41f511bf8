"""Whatever of a statement's conditions is handed down to the store, the answer is the same.

handingdown.py ZEL EXTENSION SAMPLE   (ZEL_TEST_SEED and ZEL_TEST_STATEMENTS let it try others, and more)

Statements are made by chance of columns, operators and values, with values taken from the events and turned
into what nearly fits: another letter case, a part, a number, null. Each is put to `events` and to `plain`, the
same table without conditions that narrow the walk; and again to a store that has each event in two folders.
"""
import json
import os
import random
import shutil
import sys

from sqlshell import SqlShell
from zelcommand import read_records

COLUMNS = ["time", "object", "action", "correlation_uid", "target_hash", "src_ip", "dst_ip", "actor_path", "seq",
           "target_path", "actor_uid", "type_id"]
HOSTILE = [  # what keys hold otherwise than the text, or in several values
    {"action": ["set", "create"], "begin_time": {"value": "2021-01-01T00:00:00.000Z"}},
    {"correlation_uid": {"value": ["b-1", "A-2"]}}, {"correlation_uid": {"value": ["-"]}},
    {"artifacts": {"target": {"object_type": "file", "path": {"value": ["/z", "/a>b<c"]}, "sha2": {"value": ["ff"]}},
                   "actor": {"path": {"value": ["/bin/x*?"]}, "uid": {"value": ["u"]}}}},
    {"artifacts": {"target": {"object_type": "etw", "path": {"value": ["/z"]}, "src_ip": {"value": ["10.0.0.1"]}}}},
    {"artifacts": {"target": {"object_type": "network", "src_ip": {"value": ["10.0.0.1"]},
                              "dst_ip": {"value": ["::ffff:10.0.0.2", "10.0.0.2"]}}}},
    {"artifacts": {"target": {"object_type": "file", "sha2": {"value": ["FF"]}}}},
]


def hostile_records():
    base = {"artifacts": {"target": {"object_type": "process"}}, "action": ["launch"],
            "begin_time": {"value": "2021-01-01T00:00:30.000Z"}}
    return [json.dumps(dict(base, **changes, seq_num=number)) for number, changes in enumerate(HOSTILE, 1)]


def quoted(text):
    return "'" + text.replace("'", "''") + "'"


class Statements:
    """Statements that nearly fit events, of values by column."""

    def __init__(self, chance, values):
        self.chance, self.values = chance, values

    def value(self, column):
        text = str(self.chance.choice(self.values[column]))
        return self.chance.choice([
            text, text, text, text, text.upper(), text.lower(), text + " ", text[:10], text[:len(text) // 2], "",
            text.replace("T", " ").replace("Z", ""), "2021-01-01", "2021-01-01T00:00:30Z", "-9999d", "today"])

    def condition(self):
        column = self.chance.choice(COLUMNS)
        value = self.value(column)
        operator = self.chance.choice(["=", "=", "==", "<", "<=", ">", ">=", "in", "in", "like", "glob", "regexp",
                                       "between", "is", "is not", "<>", "not in", "isnull", "notnull"])
        sided = self.chance.choice(["", "", "", " collate nocase", " collate binary", " collate rtrim"])
        if operator == "between":
            return f"{column} between {quoted(value)} and {quoted(self.value(column))}{sided}"
        if operator.endswith("in"):
            some = [quoted(self.value(column)) for _ in range(self.chance.randrange(4))]
            return f"{column} {operator} ({', '.join(some + self.chance.choice([[], [], ['null'], ['5']]))})"
        if operator.endswith("null"):
            return f"{column} {operator}"
        if operator in ("like", "glob", "regexp"):
            wild, one = {"like": ("%", "_"), "glob": ("*", "?"), "regexp": (".*", ".")}[operator]
            value = "".join(self.chance.choice([c] * 9 + [one]) for c in value if c not in "\\()[{+*?|^$")
            value = self.chance.choice(["", wild]) + value[self.chance.choice([0, 0, 3]):] + self.chance.choice([wild, ""])
        other = self.chance.choice([quoted(value)] * 12 + ["null", "5", f"+{quoted(value)}", "actor_uid"])
        return f"{column} {operator} {other}{sided}"

    def where(self, deepest=2):
        if deepest == 0 or self.chance.random() < 0.4:
            return self.condition()
        joint = self.chance.choice([" and ", " and ", " or "])
        text = "(" + joint.join(self.where(deepest - 1) for _ in range(self.chance.choice([2, 2, 3]))) + ")"
        return self.chance.choice([text] * 5 + ["not " + text])

    def make(self):
        where = self.where()
        return self.chance.choice([
            f"select count(*), total(seq), min(time), max(time) from TABLE where {where}",
            f"select time, seq from TABLE where {where} order by time, seq, event",
            f"select time, seq from TABLE where {where} order by time desc, seq, event limit 7 offset 2",
            f"select time from TABLE where {where} order by time limit 9",
            f"select time, count(*) from TABLE where {where} group by time",
            f"select action, count(*) from TABLE where {where} group by 1 order by 1",
            f"select count(*) from TABLE a join TABLE b on b.seq = 3 and b.action = a.action where a.seq < 4 and "
            f"exists (select 1 from TABLE where seq = a.seq and {where})",
        ])


def ask(shell, statements):
    """What `events` and `plain` answer to each statement, one behind the other."""
    script = []
    for statement in statements:
        for table in ("events", "plain"):
            script += ["select 'statement ';", statement.replace("TABLE", table) + ";"]
    answers = "\n".join(shell.lines(*script)).split("statement ")[1:]
    shell.check("all are answered", 2 * len(statements), len(answers))
    return [answer.strip() for answer in answers]


def main(program, extension, sample):
    seed, count = int(os.environ.get("ZEL_TEST_SEED", "1")), int(os.environ.get("ZEL_TEST_STATEMENTS", "120"))
    with SqlShell(program, extension) as shell:
        records = [line.decode() for line in read_records(sample)[::25]] + hostile_records()
        shell.run("ingest", "--no-receive-rows", "-", given="\n".join(records).encode())
        shell.check("all are stored", [str(len(records))], shell.lines("select count(*) from plain;"))
        listed = shell.lines(f"select {', '.join(f'ifnull({column}, char(9))' for column in COLUMNS)} from plain;")
        values = {column: [row.split("|")[i] for row in listed] for i, column in enumerate(COLUMNS)}
        made = Statements(random.Random(seed), values)
        statements = [made.make() for _ in range(count)]
        answers = ask(shell, statements)
        found = 0
        for number, (narrowed, plain) in enumerate(zip(answers[::2], answers[1::2])):
            shell.check(f"{seed}: {statements[number]}", plain, narrowed)
            found += plain not in ("0|0.0||", "0", "")
        shell.check("many statements find something", True, found > count // 5)
        folder = os.path.join(shell.store, os.listdir(shell.store)[0])
        shutil.copytree(folder, os.path.join(shell.store, "20200101"))
        for number, again in enumerate(ask(shell, statements)):
            shell.check(f"{seed}, stored twice: {statements[number // 2]}", answers[number], again)
        return 1 if shell.failures else 0


if __name__ == "__main__":
    sys.exit(main(*sys.argv[1:]))
