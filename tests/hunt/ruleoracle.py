#!/usr/bin/env python3
"""Rules on random events, answered a second time: by plain looks at what the source sent.

  ruleoracle.py ZEL [SEED]
"""
import base64
import fnmatch
import ipaddress
import json
import os
import random
import re
import sys

import yaml

sys.path.insert(0, os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "zel"))
from zelcommand import Zel

SOURCES = {"process_creation": (1, ["Image", "CommandLine", "ParentImage", "ParentCommandLine", "User", "Company"]),
           "network_connection": (3, ["Image", "User", "DestinationIp", "DestinationPort", "SourceIp"]),
           "file_event": (11, ["Image", "TargetFilename", "User"]),
           "registry_set": (13, ["Image", "TargetObject", "Details"])}
NEEDED = ("Image", "TargetObject", "TargetFilename", "DestinationIp")  # or the format makes no record
WORDS = ["C:\\Windows\\", "cmd.exe", "\\reg.exe", " /add", " -enc ", "\"q\"", "Straße", "a*b", "what?", "x\\\\y", "100%",
         base64.b64encode(b"key").decode(), "HKLM\\Run", "QUIZ", "tab\tend", "/"]


def fold(text):
    """Lower case for ASCII letters alone."""
    return text.encode().lower().decode()


class Evaluator:
    """One rule on one event, as its source sent it: a map from names to texts."""

    def __init__(self, rule, event):
        self.detection, self.event = rule["detection"], event

    def fits(self):
        def call(found):
            return "of(%r, %r)" % found.group(1, 2) if found[1] else "search(%r)" % found[0]

        text = re.sub(r"\b(?:(1|all) of ([\w*]+)|s\w+)", call, self.detection["condition"])
        return eval(text, {"of": self.of, "search": self.search})

    def of(self, count, names):
        found = [self.search(name) for name in self.detection
                 if name != "condition" and (names == "them" or fnmatch.fnmatchcase(name, names))]
        return any(found) if count == "1" else all(found)

    def search(self, name):
        return self.group(self.detection[name])

    def group(self, group):
        if isinstance(group, dict):
            return all(self.field(name, value) for name, value in group.items())
        return any(self.group(each) if isinstance(each, dict)
                   else any(self.text(str(each), value, ["contains"]) for value in self.event.values())
                   for each in group)

    def field(self, name, wanted):
        name, *modifiers = name.split("|")
        value = self.event.get(name)
        if "exists" in modifiers:
            return (value is not None) == wanted
        wanted = wanted if isinstance(wanted, list) else [wanted]
        return (all if "all" in modifiers else any)(self.one(value, each, modifiers) for each in wanted)

    def one(self, value, wanted, modifiers):
        if wanted is None:
            return value is None
        if "fieldref" in modifiers:
            other = self.event.get(wanted)
            return value is not None and other is not None and fold(value) == fold(other)
        if value is None:
            return False
        if "re" in modifiers:
            return re.search(wanted, value, re.I if "i" in modifiers else 0) is not None
        if "cidr" in modifiers:
            return ipaddress.ip_address(value) in ipaddress.ip_network(wanted)
        for name, compare in (("gte", float.__ge__), ("gt", float.__gt__), ("lte", float.__le__), ("lt", float.__lt__)):
            if name in modifiers:
                return re.fullmatch(r"-?\d+(\.\d+)?", value) is not None and compare(float(value), float(wanted))
        if "base64" in modifiers:
            return self.text(base64.b64encode(wanted.encode()).decode(), value, modifiers)
        if "windash" in modifiers:
            return any(self.text(re.sub(r"(^|(?<=\s))[-/]", lambda _: dash, str(wanted)), value, modifiers) for dash in "-/–—―")
        return self.text(str(wanted), value, modifiers)

    def text(self, wanted, value, modifiers):
        """Of a backslash, what is special behind it loses its meaning; else it is itself."""
        expression = ""
        for part in re.findall(r"\\[\\*?]|[*?]|.", wanted, re.S):
            expression += {"*": ".*", "?": "."}.get(part) or re.escape(part[-1])
        before, behind = (".*" if mark & set(modifiers) else "" for mark in ({"contains", "endswith"}, {"contains", "startswith"}))
        if "cased" not in modifiers:
            expression, value = fold(expression), fold(value)
        return re.fullmatch(before + expression + behind, value, re.S) is not None


class Chance:
    def __init__(self, seed):
        self.random = random.Random(seed)
        self.pick = self.random.choice

    def words(self, most):
        return "".join(self.pick(WORDS) for _ in range(self.random.randint(1, most)))

    def some_case(self, text):
        return self.pick([str, str, fold, str.upper])(text) if text.isascii() else text

    def value_of(self, field):
        if field.endswith("Ip"):
            return "10.%d.0.%d" % (self.random.randint(0, 2), self.random.randint(1, 3))
        return str(self.random.randint(78, 82)) if field == "DestinationPort" else self.words(3)

    def event(self, number):
        category = self.pick(list(SOURCES))
        event_id, fields = SOURCES[category]
        event = {name: self.value_of(name) for name in fields if self.random.random() < .8 or name in NEEDED}
        return category, event, {"EventID": event_id, "Channel": "Microsoft-Windows-Sysmon/Operational", "Hostname": "pc",
                                 "RecordNumber": number, "UtcTime": "2026-03-02 09:%02d:%02d.%03d" % (
                                     number // 60000 % 60, number // 1000 % 60, number % 1000),
                                 "ProcessGuid": "{39E4A257-0000-5F90-D310-%012X}" % number, "ProcessId": "600",
                                 **({"EventType": "SetValue"} if event_id == 13 else {}),
                                 **({"Initiated": "true", "Protocol": "tcp"} if event_id == 3 else {}), **event}

    def escaped(self, text):
        return text.replace("\\", "\\\\").replace("*", "\\*").replace("?", "\\?") if self.random.random() < .7 else text

    def entry(self, fields):
        field, kind = self.pick(fields), self.random.randint(0, 9)
        if field.endswith("Ip") and kind < 5:
            return field + "|cidr", self.pick(["10.0.0.0/16", "10.1.0.0/31", "10.0.0.0/8"])
        if field == "DestinationPort" and kind < 5:
            return field + "|" + self.pick(["lt", "lte", "gt", "gte"]), 80
        if kind == 0:
            return field + "|exists", self.pick([True, False])
        if kind == 1:
            return field, self.pick([None, [None, self.escaped(self.words(1))]])
        if kind == 2:
            return field + self.pick(["|re", "|re|i"]), self.pick(["(md|eg)[.]e", "qu[a-i]z", "^C:.W", "\\.exe$", "e{2}"])
        if kind == 3:
            return field + "|fieldref", self.pick(fields)
        if kind == 4:
            return field + "|base64|contains", "key"
        if kind == 5:
            return field + "|contains|windash", self.pick([" -add", " -enc"])
        place = self.pick(["", "|contains", "|contains", "|startswith", "|endswith", "|contains|all", "|contains|cased"])
        values = [self.some_case(self.escaped(self.words(2))) for _ in range(self.random.randint(1, 3))]
        if self.random.random() < .2:
            values[0] = "*" + values[0] + "?" + "*"
        return field + place, values if "all" in place or len(values) > 1 else values[0]

    def search(self, fields):
        if self.random.random() < .1:
            return [self.escaped(word) for word in self.random.sample(WORDS[1:6], 2)]
        maps = [dict(self.entry(fields) for _ in range(self.random.randint(1, 2))) for _ in range(self.random.randint(1, 2))]
        return maps[0] if len(maps) == 1 else maps

    def rule(self, number):
        category = self.pick(list(SOURCES))
        fields = SOURCES[category][1]
        return {"title": "rule %d" % number, "logsource": {"category": category, "product": "windows"},
                "detection": {**{name: self.search(fields) for name in ("sa", "sb", "sfilter", "sfilter_more")},
                              "condition": self.pick([
                                  "sa and not sfilter", "sa or sb", "(sa or sb) and not 1 of sfilter*", "not sa and sb",
                                  "sa and not (sb or sfilter)", "all of sfilter*", "1 of sa* and not all of sfilter*", "1 of them"])}}


def main(program, seed):
    print("seed", seed)
    chance = Chance(seed)
    rules, events = [chance.rule(i) for i in range(150)], [chance.event(i + 1) for i in range(600)]
    with Zel(program) as zel:
        file = os.path.join(zel.folder, "rules.yml")
        with open(file, "w") as out:
            yaml.safe_dump_all(rules, out, allow_unicode=True, sort_keys=False)
        lines = "\n".join(json.dumps(raw, ensure_ascii=chance.pick([False, False, True])) for _, _, raw in events)
        taken = zel.run("ingest", "-", given=lines.encode())
        zel.check("all events are taken", True, b"%d record(s) stored" % len(events) in taken.stderr or taken.stderr)
        asked = zel.run("hunt", file, "-o", "ndjson")
        hits = [json.loads(line) for line in asked.stdout.splitlines()]
        got = sorted((hit["rule"]["title"], hit["event"]["seq_num"]) for hit in hits)
        expected = sorted((rule["title"], raw["RecordNumber"]) for rule in rules for category, event, raw in events
                          if category == rule["logsource"]["category"] and Evaluator(rule, event).fits())
        zel.check("it can be asked: " + asked.stderr.decode(), 0, asked.returncode)
        print(len(expected), "hits")
        for name in sorted({title for title, _ in set(got) ^ set(expected)}):
            rule = next(rule for rule in rules if rule["title"] == name)
            more, less = ([number for title, number in set(a) - set(b) if title == name] for a, b in ((got, expected), (expected, got)))
            shown = [event for _, event, raw in events if raw["RecordNumber"] in (more + less)[:1]]
            zel.check(yaml.safe_dump(rule, allow_unicode=True) + str(shown), sorted(less)[:5], sorted(more)[:5])
        return zel.failures


if __name__ == "__main__":
    sys.exit(1 if main(sys.argv[1], int(sys.argv[2]) if len(sys.argv) > 2 else random.randrange(1 << 32)) else 0)
