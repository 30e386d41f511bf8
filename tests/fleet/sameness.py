"""The same documents to a store and to a fleet with its rows: the answers are equal, text by text and in order.

sameness.py PROGRAM RECORDS: PROGRAM is sameness.cpp's. How many documents: ZEL_FLEET_DOCUMENTS; which: ZEL_FLEET_SEED."""
import json
import os
import random
import subprocess
import sys
import tempfile

from engine import Engine, kinds, only_kind
from zelcommand import read_records

OPERATORS = ["equals", "does_not_equal", "contains", "does_not_contain", "starts_with", "ends_with", "less_than",
             "less_than_or_equal", "greater_than", "greater_than_or_equal", "fits_pattern"]
ALL = "1601-01-01T00:00:00.000Z"
# Texts that another matcher, another quoting or another alphabet reads in another way.
HOSTILE = ["", " ", "a", "A_b", "a_B", "100%", "%", "_", "\\", "\\\\", "'", "''", '"', "`", "a\nb", "a\tb", "a\rb", "é",
           "É", "Éa", "\u212a", "\u212b", "ſ", "\U0001f600", "日本", "a%b_c", "x--y", "x;y", "/*x*/", "{a:String}", "$1", "a.b",
           "[a]", "(a|b)", "^a$", "C:\\Ünï\\cöde.exe", "c:\\windows\\SYSTEM32\\kernel.dll", "K", "k", "i", "I", "İ",
           "\\N", "NULL", "0", "-1", "a" * 300, "\x01", "\x7f", "a<b", "a>b", "<a", "b>", "*", "?", "a*b", "a?b", "\\x41"]
PATTERNS = [r".*", r".", r"..", r".{2,5}", r".{20}", r"é", r"é*", r"[^x]", r"[^x]*", r"[^x]+.", r"a[^x]*b", r".*[^a]", r"\W",
            r"\W+", r"\w+", r"\d+", r"\D*", r"[a-z]+", r"[A-Z]+", r"[!-Z]+", r"[[:alpha:]]+", r"[[:upper:]]*", r"[[:punct:]]",
            r"[\w.]+", r"[^\w]+", r"[]a]+", r"[^]]*", r"[a\]]+", r"a|b", r"a|[^x]*b|.*é", r"(a|b)+", r"(?:[^x]*a)*", r"^a.*$",
            r"^.*|b$", r"\bk\b", r"k", r"K", r"s", r"kelvin", r".*\\.*", r"\x41.*", r".*\.exe", r"a{0}", r"a{2,}", r"(a{3}){3}", r"a*?b",
            r".*\n.*", r".*%.*", r".*_.*", r".*'.*", r"[^\\]*\\[^\\]*", r".*[^\\]+\.(exe|dll)", r"(?=a).*", r"(?i)a", r"a++", r"\Qa\E",
            r"(a)\1", r"[[.a.]]", r"[[=a=]]", r"\x{41}", r"a\z", r"\pL", r"[é]", r"é+", r"\<a", r"a$b", r"(?#x)a", r".*(?<!x)",
            r"windows.*(?=k).*", r"[a-c-e]", r"\e", r"[\b]", r"\B.*", r"\v", r"[^\x00-\x7f]*", r"", r"()", r"(|a)", r"a{1001}", r"((a{40}){40})?"]
PIECES = ["a", "b", "k", "K", "é", "日", ".", ".*", "\\.", "\\\\", "[ab]", "[^x]", "[^a-f]*", "[^\\\\]+", "\\d", "\\D", "\\w+",
          "\\W*", "\\s", "\\S+", "(", ")", "|", "?", "*", "+", "{2}", "{1,3}", "{2,}", "\\b", "(?:", "[[:alnum:]]", "[!-Z]", "\\x41",
          "exe", "windows", "^", "$", "%", "_", "'", "\n", "-", "[^k]*?", "(?=", "\\1", "[é]"]


def pair(values, operator=None, sensitive=None):
    said = {"value": values}
    if operator:
        said["operator"] = {"value": operator}
        if sensitive is not None:
            said["operator"]["case_insensitive"] = not sensitive
    return said


def text_condition(field, condition):
    """A sub-query without a time that puts a condition to a field of keys."""
    owner, kind, member = field
    if owner:
        return {"artifacts": {owner: {"object_type": kind, member: condition}}}
    return {member: condition}


FIELDS = [("actor", "process", "path"), ("actor", "process", "sha2"), ("actor", "process", "uid"), ("target", "file", "path"),
          ("target", "file", "sha2"), ("target", "process", "path"), ("target", "reg_key", "path"), ("target", "network", "src_ip"),
          ("target", "network", "dst_ip"), ("target", "url", "text"), ("target", "kernel_object", "name"), ("", "", "correlation_uid")]


def made_records():
    """Records whose texts are hostile, in each field that a key has; and such as have nothing at all."""
    for number, text in enumerate(HOSTILE):
        time = f"2020-01-01T{number % 24:02}:00:00.{number % 3:03}Z"
        for kind, member in (("file", "path"), ("process", "path"), ("network", "src_ip"), ("url", "text"),
                             ("kernel_object", "name"), ("reg_key", "path"), ("file", "sha2")):
            yield {"artifacts": {"actor": {"object_type": "process", "path": {"value": [text]}, "sha2": {"value": [text, "zz"]},
                                           "uid": {"value": [text + "u"]}},
                                 "target": {"object_type": kind, member: {"value": [text]}}},
                   "action": [["create", "open", "reputation_query"][number % 3]], "begin_time": {"value": time},
                   "correlation_uid": {"value": [text]}, "seq_num": number % 5}
    for kind in ("session", "etw", "amsi", "module", "directory", "kernel_object", "file"):
        yield {"artifacts": {"target": {"object_type": kind}}, "action": ["logon"], "begin_time": {"value": ALL}}


class Documents:
    """Made of what the records hold and of what they do not."""

    def __init__(self, records, chance):
        self.chance, self.values, self.times = chance, {}, sorted({r["begin_time"]["value"] for r in records})
        for owner, kind, member in FIELDS:
            found = set()
            for record in records:
                artifact = record.get("artifacts", {}).get(owner, {}) if owner else record
                if not owner or artifact.get("object_type") == kind:
                    found.update(artifact.get(member, {}).get("value", []))
            self.values[owner, kind, member] = sorted(found)

    def value(self, field):
        found, chance = self.values[field], self.chance
        text = chance.choice(found) if found and chance.random() < 0.6 else chance.choice(HOSTILE)
        while text and chance.random() < 0.5:
            cut = chance.choice([text[len(text) // 2:], text[:len(text) // 2], text.upper(), text.lower(), "*" + text[1:],
                                 text[:-1] + "*", text.replace("a", "?"), text + "x", text])
            text = cut if len(cut) < 400 else text
            if chance.random() < 0.5:
                break
        return text

    def pattern(self):
        chance = self.chance
        if chance.random() < 0.5:
            return chance.choice(PATTERNS)
        return "".join(chance.choice(PIECES) for _ in range(chance.randrange(1, 7)))

    def condition(self, field, operator=None):
        chance = self.chance
        operator = operator or chance.choice([*OPERATORS, "fits_pattern"])
        values = [self.value(field) for _ in range(chance.choice([1, 1, 1, 2, 3, 5, 12]))]
        if operator == "fits_pattern":
            values = [self.pattern() for _ in range(chance.choice([1, 1, 2]))]
        return pair(values, operator, chance.choice([None, None, True, False]))

    def time_range(self):
        chance = self.chance
        times = [*self.times, ALL, "2020-01-01", "2020-01-01T05:00:00.000Z", "2019", "2020-01-01T05:00:00.000Zx"]
        said = {"begin_time": {"value": chance.choice([ALL, ALL, ALL, chance.choice(times)])}}
        if chance.random() < 0.3:
            said["begin_time"]["operator"] = {"value": chance.choice(["greater_than", "greater_than_or_equal", "less_than_or_equal"])}
        if chance.random() < 0.3:
            said["end_time"] = {"value": chance.choice(times)}
            if chance.random() < 0.7:
                said["end_time"]["operator"] = {"value": chance.choice(["less_than", "less_than_or_equal"])}
        if chance.random() < 0.1:
            said["seq_num"] = chance.randrange(0, 5)
        return said

    def sub_query(self):
        chance = self.chance
        said = self.time_range()
        for _ in range(chance.choice([0, 1, 1, 1, 2])):
            for name, value in text_condition(field := chance.choice(FIELDS), self.condition(field)).items():
                said.setdefault(name, {}).update(value)
        if chance.random() < 0.2:
            said["action"] = chance.sample(["create", "open", "launch", "reputation_query", "load"], chance.choice([0, 1, 2]))
        if chance.random() < 0.15:
            said["type_id"] = pair(chance.sample([5, 8001, 8003, 8005, 8009, 42, 1, 10], 2), chance.choice([None, *OPERATORS[:10]]))
        if chance.random() < 0.1:
            said.setdefault("artifacts", {})["target"] = {"object_type": "kernel_object", "type_ids": chance.choice([[], [1], [2, 1]])}
        return said

    def systematic(self):
        """Each operator on each field, with and without case, for values that differ in kind."""
        for field in FIELDS:
            for operator in OPERATORS[:10]:
                for sensitive in (True, False):
                    yield {"begin_time": {"value": ALL}, **text_condition(field, pair([self.value(field)], operator, sensitive))}
            for operator in ("equals", "contains"):
                many = [f"{text}{number}" for number in range(30) for text in ("x", "*\\a", "b*", "é?")]
                yield {"begin_time": {"value": ALL}, **text_condition(field, pair([*many, "", self.value(field)], operator))}
        for expression in PATTERNS:
            for sensitive in (True, False):
                for field in (FIELDS[0], FIELDS[3]):
                    yield {"begin_time": {"value": ALL}, **text_condition(field, pair([expression], "fits_pattern", sensitive))}

    def make(self, count):
        for sub_query in self.chance.sample(all_of := list(self.systematic()), min(len(all_of), count // 2)):
            yield {"events": [sub_query]}
        for _ in range(count - min(len(all_of), count // 2)):
            query = {"events": [self.sub_query() for _ in range(self.chance.choice([1, 1, 1, 2, 3, 9]))]}
            if self.chance.random() < 0.2:
                query["limit_result_count"] = self.chance.choice([0, 1, 2, 10, 311, 622, 10000])
            if self.chance.random() < 0.1:
                query["include_enrichments"] = True
            if self.chance.random() < 0.1:
                query["no_live_enriched_events"] = True
            yield query


def write_lines(folder, name, objects):
    path = os.path.join(folder, name)
    with open(path, "w", encoding="utf-8") as file:
        for each in objects:
            file.write(json.dumps(each, ensure_ascii=False) + "\n")
    return path


def main(program, sample):
    only_kind()
    records = [json.loads(line) for line in read_records(sample)][:1500] + list(made_records())
    count, seed = int(os.environ.get("ZEL_FLEET_DOCUMENTS", "200")), int(os.environ.get("ZEL_FLEET_SEED", "1"))
    failed = 0
    with tempfile.TemporaryDirectory() as folder:
        given = write_lines(folder, "records", records)
        documents = write_lines(folder, "documents", ({"event_query": q} for q in Documents(records, random.Random(seed)).make(count)))
        for kind in kinds():
            with Engine(kind) as engine:
                ended = subprocess.run([program, engine.url, given, documents], stdout=subprocess.PIPE, check=False)
                print(kind, engine.version, ended.stdout.decode(errors="replace")[-6000:])
                told = json.loads(ended.stdout.splitlines()[-1]) if ended.returncode in (0, 1) else {}
                failed += ended.returncode != 0 or told.get("equal", 0) < count / 3
    return 1 if failed else 0


if __name__ == "__main__":
    sys.exit(main(*sys.argv[1:3]))
