"""What a page is made of is what `zel query` finds: counts by time and by value, lists in both directions, single
events with what is around them; and an answer that was kept is given only while it holds.

shown.py ZEL SAMPLE
"""
import collections
import json
import os
import sys
import time
import urllib.parse

sys.path.insert(0, os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "zel"))
from agentprocess import Service, Socket  # noqa: E402
from zelcommand import Zel, read_records  # noqa: E402

FIELDS = {"object": "object", "action": "action", "actor": "actor_path", "target": "target_path", "user": "user",
          "computer": "computer", "address": "dst_ip"}
RULE = """title: {}
id: {}
level: {}
logsource: {{product: windows, category: process_creation}}
detection: {{selection: {{Image|endswith: {}}}, condition: selection}}
"""
RULES = RULE.format("any", "1b4d4c7e-3f0a-4f0e-9a5a-0d8c7d9b2a11", "low", ".exe") + "---\n" + RULE.format(
    "shell", "1b4d4c7e-3f0a-4f0e-9a5a-0d8c7d9b2a12", "high", "shell.exe")
QUESTIONS = (
    [], [("object", "service")], [("object", "service"), ("until", "2050-01-01")], [("object", "file")], [("object", "process"), ("object", "network")], [("action", "launch"), ("where", "user != x")],
    [("where", "actor_path ends powershell.exe")], [("grep", "exe"), ("object", "reg_value")],
    [("since", "2021-01-01"), ("until", "2030-01-01")], [("object", "url"), ("action", "launch")],
)
BAD = (
    ("/v1/histogram?buckets=0", 400), ("/v1/histogram?by=x", 400), ("/v1/histogram?objekt=file", 400),
    ("/v1/facets?columns=object,x", 400), ("/v1/facets?level=x", 400), ("/v1/list?behind=1.2", 400),
    ("/v1/list?behind=1.2.3.99999999999999999999", 400), ("/v1/list?fields=x", 400), ("/v1/list?most=1001", 400),
    ("/v1/list?by=receive", 400), ("/v1/list?where=user", 400), ("/v1/event?key=x", 400), ("/v1/event", 400),
    ("/v1/event?key=p%3Cbegin_time%3E2026-01-01T00:00:00.000Z%3Csequence%3E0000000001%3Cobject_type%3Efile%3Caction%3Ex", 404),
    ("/v1/tree?key=p%3Cbegin_time%3E2026-01-01T00:00:00.000Z%3Csequence%3E0000000001%3Cobject_type%3Efile%3Caction%3Ex", 404),
)


def fold(text):
    """As conditions compare: the case of ASCII letters does not matter."""
    return "".join(c.lower() if c.isascii() else c for c in text)


class Page:
    def __init__(self, zel, service):
        self.zel, self.service, self.peer = zel, service, Socket(service.socket)

    def ask(self, way, *conditions, **own):
        path = f"/v1/{way}?" + urllib.parse.urlencode([*conditions, *own.items()])
        status, body, _ = self.service.ask("GET", path, connection=self.peer)
        self.zel.check(f"status of {path}: {body[:200]!r}", 200, status)
        return [json.loads(line) for line in body.splitlines()]

    def all(self, *conditions, **own):
        """All pages of a list, and how many there were."""
        rows, pages, behind = [], 0, {}
        while True:
            *page, end = self.ask("list", *conditions, **own, **behind)
            rows, pages = rows + page, pages + 1
            if not end["more"] or not page or pages > 2000:
                return rows, pages
            behind = {"behind": page[-1]["position"]}


def found(zel, conditions):
    flags = [f"--{name.replace('_', '-')}={value}" for name, value in conditions]
    fields = ",".join(["key", "time", *FIELDS.values()])
    return [json.loads(row) for row in zel.rows(*flags, "-o", "ndjson", "--fields", fields)]


def check_counts(zel, page, conditions, events):
    for _ in range(2):  # the second time from what was kept
        histogram, = page.ask("histogram", *conditions, buckets=50)
        counted = collections.Counter()
        for bucket in histogram["buckets"]:
            counted.update(bucket["counts"])
        zel.check(f"kinds of {conditions}", collections.Counter(event["object"] for event in events), counted)
        zel.check(f"total of {conditions}", (len(events), True), (histogram["total"], histogram["complete"]))
        zel.check(f"buckets of {conditions}", True, len(histogram["buckets"]) <= 51)
    facets, = page.ask("facets", *conditions, most=1000, columns=",".join(FIELDS))
    for facet, column in FIELDS.items():
        expected = collections.Counter(fold(event[column]) for event in events if event[column])
        got = {fold(value["value"]): value["count"] for value in facets["facets"][facet]["values"]}
        others = facets["facets"][facet]["others"]
        zel.check(f"{facet} of {conditions}", [count for _, count in expected.most_common(1000)], sorted(got.values())[::-1])
        zel.check(f"others of {facet} of {conditions}", sum(expected.values()) - sum(got.values()), others)
        zel.check(f"values of {facet} of {conditions}", set(), set(got.items()) - set(expected.items()))
        for value in facets["facets"][facet]["values"][:2]:
            if tuple(value["parameter"]) in conditions:
                continue
            both = [page.ask("histogram", *conditions, tuple(value[way]))[0]["total"] for way in ("parameter", "exclude")]
            zel.check(f"{value} of {conditions}", [value["count"], len(events) - value["count"]], both)


def check_lists(zel, page, conditions, events):
    keys = sorted(event["key"] for event in events)
    lists = {order: page.all(*conditions, order=order, most=437, fields="key,time") for order in ("oldest", "newest")}
    for order, (rows, _) in lists.items():
        zel.check(f"rows {order} first of {conditions}", keys, sorted(row["key"] for row in rows))
        times = [row["cells"][1] for row in rows]
        zel.check(f"order {order} first of {conditions}", sorted(times, reverse=order == "newest"), times)
    oldest, newest = ([row["key"] for row in lists[order][0]] for order in ("oldest", "newest"))
    zel.check(f"both directions of {conditions}", oldest, newest[::-1])
    for order, all_keys in (("oldest", oldest), ("newest", newest)):
        for behind, skip in ((None, 5), (None, 1234), (None, max(len(keys), 1) - 1), (None, len(keys) + 7), (10, 3), (10, 777)):
            place = {} if behind is None or behind >= len(keys) else {"behind": lists[order][0][behind]["position"]}
            start = skip + (behind + 1 if place else 0)
            *rows, end = page.ask("list", *conditions, order=order, most=3, skip=skip, **place)
            zel.check(f"{order} {behind} {skip} of {conditions}", (all_keys[start:start + 3], start + 3 < len(keys)),
                      ([row["key"] for row in rows], end["more"]))


def check_words(zel, service):
    def ask(line, **own):
        status, body, _ = service.ask("GET", "/v1/words?" + urllib.parse.urlencode({"line": line, **own}))
        return status, json.loads(body)

    for line, parameters, command in (
            ("", [], "zel query"),
            ("--object file --where 'user != O'\\''Brien'", [["object", "file"], ["where", "user != O'Brien"]],
             "zel query --object file --where 'user != O'\\''Brien'"),
            ("zel query --since=-2h --target-path C:\\a\\*", [["since", "-2h"], ["target_path", "C:\\a\\*"]],
             "zel query --since=-2h --target-path 'C:\\a\\*'"),
            ("power shell --user \"a b\" x", [["grep", "power shell"], ["user", "a b"], ["grep", "x"]],
             "zel query --grep 'power shell' --user 'a b' --grep x"),
            ("--no-live-enriched --rule 'a b'", [["no_live_enriched", ""], ["rule", "a b"]],
             "zel query --no-live-enriched  # --rule 'a b'")):
        status, words = ask(line)
        zel.check(f"words of {line}", (200, parameters, command), (status, words.get("parameters"), words.get("command")))
    decided = ask("--since -1h --user x --where 'dst_ip = 10.0.0.1' --where 'user = y' --where 'object = network'")[1]["decided"]
    zel.check("decided", (2, 4), (len(decided["key"]), len(decided["text"])))
    for line, at in (("--object process --action lunch", 26), ("--objekt x", 0), ("--where 'user is x'", 14), ("a 'b", 2),
                     ("--since 2026-13-01", 8), ("--object", 0), ("--sort", 0), ("--object file --pattern '(' x", 26)):
        status, words = ask(line)
        zel.check(f"error in {line}: {words}", (400, at), (status, words.get("at")))
    for line, at, offered in (("--obj", None, (0, "--object")), ("--object netw", None, (9, "network")), ("--where act", 11, (8, "'action ")),
                              ("--where 'action ", None, (16, "= ")), ("--where 'object = fi", None, (18, "file'")),
                              ("--user ", None, (7, "--user")), ("--level hi --sort", 10, (8, "high"))):
        completions = ask(line, at=len(line) if at is None else at)[1]["completions"]
        zel.check(f"completions of {line}", offered != (7, "--user"), offered in [(one["from"], one["text"]) for one in completions])


def mark_events(zel):
    """All rows, and the marks of those that rules fit."""
    zel.check("hunt", 0, zel.run("hunt", "-", "--enrich", "-o", "ndjson", given=RULES.encode()).returncode)
    rows = [json.loads(row) for row in zel.rows("--enrichments", "--with-key", "-o", "ndjson")]
    marked = {row["key"]: [mark["sigma"] for mark in row["enrichments"]] for row in rows if "enrichments" in row}
    return rows, marked


def check_marked(zel, page, rows, marked):
    titles = collections.Counter(title for marks in marked.values() for title in {mark["title"] for mark in marks})
    rule = page.ask("facets", columns="rule", most=1000)[0]["facets"]["rule"]
    zel.check("rules", dict(titles), {value["value"]: value["count"] for value in rule["values"]})
    for value in rule["values"][:3]:
        zel.check("events of a rule", value["count"], len(page.ask("list", tuple(value["parameter"]), most=1000)) - 1)
    levels = collections.Counter()
    for bucket in page.ask("histogram", by="level")[0]["buckets"]:
        levels.update(bucket["counts"])
    zel.check("events without a hit", len(rows) - len(marked), levels["none"])
    zel.check("all levels", len(rows), sum(levels.values()))
    key, marks = next(iter(marked.items()))
    event, = page.ask("event", key=key)
    zel.check("the marks", marks, [{k: v for k, v in hit.items() if k in mark} for hit, mark in zip(event["hits"], marks)])
    own = next(dict(row) for row in rows if row["key"] == key)
    own.pop("key"), own.pop("enrichments")
    zel.check("the record", own, event["record"])
    launch = next(row for row in rows if row["action"][0] == "launch")
    tree, = page.ask("tree", key=launch["key"])
    zel.check("the process", [launch["key"]], [node["key"] for node in tree["nodes"] if node["here"]])
    ids = {node["id"] for node in tree["nodes"]}
    zel.check("parents are there", True, all(node["parent"] in ids for node in tree["nodes"] if node["parent"]))
    *around, _ = page.ask("around", key=launch["key"], seconds=30, fields="key")
    zel.check("it is among those around", True, launch["key"] in [row["key"] for row in around])
    uid = event["facts"].get("actor_uid") or launch["artifacts"]["target"].get("uid", {}).get("value", [""])[0]
    *own, _ = page.ask("around", key=launch["key"], seconds=86400, by="process", fields="actor_uid,target_uid")
    zel.check("by the process alone", True, not uid or all(len({*row["cells"]}) > 0 for row in own))


def bursts():
    """Many at one moment, many on the whole of an hour, and few far away."""
    times = ["2024-05-01T12:00:00.000Z"] * 3000 + [f"2024-05-02T12:{s // 50 % 60:02}:{s % 50:02}.{s % 1000:03}Z" for s in range(3000)]
    times += ["1990-01-01T00:00:00.000Z", "2024-06-01T00:00:00.000Z", "2090-01-01T00:00:00.000Z", "2090-01-01T00:00:00.001Z"]
    return [new_event(10000 + number, time, "service") for number, time in enumerate(times)]


def new_event(number, time, kind="directory"):
    return json.dumps({"artifacts": {"target": {"object_type": kind, "path": {"value": [f"C:\\{number}"]}}},
                       "action": ["create"], "begin_time": {"value": time}, "seq_num": number}).encode()


def check_kept(zel, service, page):
    """What is kept ends with an event of its range, and only then; unlike ranges don't matter."""
    def total(*range_of):
        return page.ask("histogram", ("object", "directory"), *range_of)[0]["total"]

    old = (("since", "2001-01-01"), ("until", "2001-12-31"))
    counts = []
    for number, time in ((1, "2001-05-01T00:00:00.000Z"), (2, "2005-05-01T00:00:00.000Z"), (3, "2001-07-01T00:00:00.000Z")):
        counts.append((total(*old), total(*old)))
        service.events([new_event(number, time)])
        service.await_stored()
    counts.append((total(*old), total(*old)))
    zel.check("counts beside new events", [(0, 0), (1, 1), (1, 1), (2, 2)], counts)
    zel.check("all of them", 3, total())
    page.zel.check("purge", 200, service.ask("POST", "/v1/purge?max_size=1M")[0])
    after = page.ask("histogram", *old)[0]
    zel.check("kept over a purge", len(found_keys(page, old)), after["total"])


def found_keys(page, conditions):
    return {row["key"] for row in page.all(*conditions, most=1000)[0]}


def check_gaps(zel, page):
    gaps = page.ask("histogram")[0]["gaps"]
    zel.check("gaps", True, all({"reason", "from", "until", "events"} == set(gap) for gap in gaps))
    return [gap["reason"] for gap in gaps]


def main(program, sample):
    with Zel(program) as zel:
        zel.check("ingest", 0, zel.run("ingest", given=b"\n".join([*read_records(sample), *bursts()])).returncode)
        rows, marked = mark_events(zel)
        with Service(zel) as service:
            page = Page(zel, service)
            for path, status in BAD:
                zel.check(path, status, service.ask("GET", path)[0])
            for conditions in QUESTIONS:
                events = found(zel, conditions)
                check_counts(zel, page, conditions, events)
                check_lists(zel, page, conditions, events)
            check_marked(zel, page, rows, marked)
            check_words(zel, service)
        with Service(zel) as service:
            page = Page(zel, service)
            while service.status()["notices"] == 0:  # of its being away, which is accepted in its own time
                time.sleep(0.05)
            service.await_stored()
            zel.check("what befell it", ["service not running"], check_gaps(zel, page))
            check_kept(zel, service, page)
        return zel.failures


if __name__ == "__main__":
    sys.exit(main(*sys.argv[1:]) != 0)
