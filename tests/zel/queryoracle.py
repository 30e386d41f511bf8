"""Questions to a store of recorded events, answered a second time by a plain look at the records.

queryoracle.py ZEL RECORDS
"""
import collections
import json
import re
import sys

from zelcommand import Zel, read_records

TYPE_IDS = {"session": 8000, "process": 8001, "module": 8002, "file": 8003, "directory": 8004,
            "reg_key": 8005, "reg_value": 8006, "network": 8007, "kernel_object": 8009,
            "etw": 8015, "amsi": 8018, "url": 42}


def wildcard(text):
    """A value with * and ? as a regular expression."""
    return re.sub(rb"[\\.$^{}\[\]()|+]", lambda m: b"\\" + m[0], text).replace(
        b"?", b".{1}").replace(b"*", b".*")


class Event:
    """What a query can see of a record: the facts that fit a key, as bytes; None for an absent one."""

    def __init__(self, line):
        record = json.loads(line)
        self.line = line
        self.time = record["begin_time"]["value"]
        self.sequence = record.get("seq_num", 0)
        artifacts = record["artifacts"]
        actor, target = artifacts.get("actor", {}), artifacts["target"]
        self.object_type = target["object_type"]
        self.action = min(record["action"])
        self.type_id = str(TYPE_IDS.get(self.object_type, ""))
        self.actor_hash, self.target_hash = self.fact(actor, "sha2"), self.fact(target, "sha2")
        self.actor_path = self.fact(actor, "path", True)
        self.path = self.fact(target, "name" if self.object_type == "kernel_object" else "path", True)
        self.source, self.destination = self.fact(target, "src_ip", True), self.fact(target, "dst_ip", True)
        self.correlation = self.fact(record, "correlation_uid")
        if self.correlation is not None:
            self.correlation = self.correlation.upper()

    @staticmethod
    def fact(owner, name, wildcards=False):
        values = [value.encode() for value in owner.get(name, {}).get("value", [])]
        if not values:
            return None
        if wildcards and any(b"*" in v or b"?" in v for v in values):
            values = [wildcard(v) for v in values]
        # Marks inside a value cut it short, or lose it.
        text = min(values).split(b"<")[0]
        return None if b">" in text else text


def fits(pattern, text, flags=re.IGNORECASE):
    return text is not None and re.fullmatch(pattern, text, flags | re.DOTALL) is not None


def like(text, *values):
    return any(fits(wildcard(value.encode()), text) for value in values)


def document(*sub_queries, **rest):
    return [json.dumps({"event_query": {"events": sub_queries, **rest}})]


def on(field, operator, values, **more):
    """A sub-query over all times with one condition on a path."""
    owner, name = field.split(".")
    pair = {"operator": {"value": operator, **more.pop("op", {})}, "value": values}
    return {"begin_time": {"value": "1601-01-01T00:00:00.000Z"},
            "artifacts": {owner: {"object_type": "process", name: pair}}, **more}


def commonest(values):
    return collections.Counter(v for v in values if v is not None).most_common(1)[0][0]


def questions(events):
    """Name, arguments and the test that says which records are the answer."""
    both = commonest(e.actor_hash for e in events if e.actor_hash == e.target_hash)
    actor_only = commonest(e.actor_hash for e in events)
    uid = commonest(e.correlation for e in events)
    ip = commonest(e.source for e in events)
    times = sorted(e.time for e in events)
    early, late = times[len(times) // 4], times[len(times) // 2]
    svchost = r"C:\Windows\System32\svchost.exe"

    yield ("several actions", ["--action", "create", "--action", "delete"],
           lambda e: e.action in ("create", "delete"))
    yield ("kinds of target", ["--object", "file", "--object", "network"],
           lambda e: e.object_type in ("file", "network"))
    actors = [r"*\powershell*.exe", svchost]
    yield ("actors in any letter case", [a for p in actors for a in ("--actor-path", p.upper())],
           lambda e: like(e.actor_path, *actors))
    paths = [r"*\cmd.exe", svchost, r"C:\Windows\System32\???.exe", r"*.d?l"]
    yield ("several paths with wildcards", [a for p in paths for a in ("--target-path", p)],
           lambda e: like(e.path, *paths))
    pattern = r".*\\(powershell|wmi[a-z]*|reg)(_ise)?\.exe"
    yield "a regular expression", ["--pattern", pattern], lambda e: fits(pattern.encode(), e.path)
    for value in both, actor_only:
        yield ("a hash", ["--hash", value.decode().lower()],
               lambda e, v=value: v in (e.actor_hash, e.target_hash))
    yield ("addresses", ["--ip", ip.decode(), "--ip", "127.*", "--ip", "*:*"],
           lambda e: ip in (e.source, e.destination)
           or like(e.source, "127.*", "*:*") or like(e.destination, "127.*", "*:*"))
    yield ("event types", ["--type-id", "8001", "--type-id", "42"], lambda e: e.type_id in ("8001", "42"))
    yield ("a correlation in lower case", ["--correlation", uid.decode().lower()],
           lambda e: e.correlation == uid)
    yield ("all kinds of flags together",
           ["--since", early, "--until", late, "--action", "load", "--action", "create", "--object",
            "module", "--object", "reg_key", "--actor-path", r"C:\Windows\*"],
           lambda e: early <= e.time <= late and e.action in ("load", "create")
           and e.object_type in ("module", "reg_key") and like(e.actor_path, r"C:\Windows\*"))
    yield ("neither of two", document(on("actor.path", "does_not_contain", ["svchost", "POWERSHELL"])),
           lambda e: e.actor_path is not None
           and not re.search(rb"svchost|powershell", e.actor_path, re.IGNORECASE))
    yield ("letter case that matters",
           document(on("actor.path", "equals", [svchost], op={"case_insensitive": False})),
           lambda e: e.actor_path == svchost.encode())
    yield ("times without their ends",
           document({"begin_time": {"operator": {"value": "greater_than"}, "value": early},
                     "end_time": {"operator": {"value": "less_than"}, "value": late}}),
           lambda e: early < e.time < late)
    yield ("sub-queries that overlap",
           document(on("actor.path", "contains", ["powershell"]),
                    on("actor.path", "contains", ["windows"], action=["load"])),
           lambda e: e.actor_path is not None and (b"powershell" in e.actor_path.lower() or
                                                   (e.action == "load" and b"windows" in e.actor_path.lower())))


def ask(zel, events):
    for name, arguments, test in questions(events):
        expected = [e.line for e in events if test(e)]
        got = zel.rows(*arguments)
        zel.check(f"{name}: there is an answer", True, len(expected) > 0)
        zel.check(f"{name}: which", sorted(expected), sorted(got))
        explained = zel.run("query", "--explain", *arguments).stdout
        zel.check(f"{name}: the document asks the same", got, zel.rows("-", given=explained))


def of_text(events):
    """Arguments that ask of the records' texts, and the test of a record."""
    def values(owner, name):
        return lambda r: [str(v) for v in r["artifacts"].get(owner, {}).get(name, {}).get("value", [])]
    lines, pids = [values(o, "cmd_line") for o in ("actor", "target")], [values(o, "pid") for o in ("actor", "target")]
    ports = [values("target", name) for name in ("src_port", "dst_port")]
    records = [json.loads(e.line) for e in events]
    pid, port = (commonest(v for r in records for f in fields for v in f(r)) for fields in (pids, ports))
    actor, uid = values("actor", "path"), values("actor", "uid")
    some_uid = commonest(v for r in records for v in uid(r))
    late = sorted(e.time for e in events)[len(events) // 2]
    yield (["--cmd-line", " -ENC", "--cmd-line", "whoami"],
           lambda r: any(w in l.lower() for f in lines for l in f(r) for w in (" -enc", "whoami")))
    yield ["--pid", pid], lambda r: any(pid in f(r) for f in pids)
    yield ["--port", port], lambda r: any(port in f(r) for f in ports)
    yield ["--actor-uid", "{" + some_uid.lower() + "}"], lambda r: some_uid in uid(r)
    yield ["--grep", r"\system32\wbem"], lambda r: r"\\system32\\wbem" in json.dumps(r).lower()
    yield (["--where", r"actor_path ends \POWERSHELL.exe", "--where", "action=launch", "--where", f"time >= {late}"],
           lambda r: actor(r)[:1] and actor(r)[0].lower().endswith(r"\powershell.exe") and
           min(r["action"]) == "launch" and r["begin_time"]["value"] >= late)
    yield (["--where", "dst_ip in 10.0.0.0/8", "--object", "network"],
           lambda r: any(ip.startswith("10.") for ip in values("target", "dst_ip")(r)[:1]))
    yield (["--where", "actor_path ~ (cmd|reg)\\.exe$", "--where", "object != file", "--until", late],
           lambda r: re.search(r"(cmd|reg)\.exe$", (actor(r) or [""])[0], re.IGNORECASE) and
           r["artifacts"]["target"]["object_type"] != "file" and r["begin_time"]["value"] <= late)


def ask_texts(zel, events):
    everything = '{"event_query":{"events":[{"begin_time":{"value":"1601-01-01T00:00:00.000Z"}}]}}'
    for arguments, test in of_text(events):
        expected = sorted(e.line for e in events
                          if test(json.loads(e.line)) and ("network" not in arguments or e.object_type == "network"))
        zel.check(f"{arguments}: there is an answer", True, 0 < len(expected) < len(events))
        zel.check(f"{arguments}: which", expected, sorted(zel.rows(*arguments)))
        zel.check(f"{arguments}: the limit counts what fits", 1, len(zel.rows(*arguments, "--limit", "1")))
        if not {"--actor-uid", "--object", "--until"} & set(arguments):
            zel.check(f"{arguments}: of a document", expected, sorted(zel.rows(everything, *arguments)))
    keys = [json.loads(row)["key"] for row in zel.rows("--with-key")]
    for at in range(0, len(keys), 97):
        zel.check("the event of a key", [keys[at].encode()], zel.rows("--key", keys[at], "--print-keys"))


def ask_limits(zel, events):
    ordered = [e.line for e in sorted(events, key=lambda e: (e.time, e.sequence))]
    zel.check("events come in the order of time", ordered, zel.rows())
    for arguments in ([], ["--target-path", "*"], ["--ip", "*"], ["--object", "file", "--object", "url"]):
        everything = zel.rows(*arguments)
        for limit in (1, 5, len(everything) - 1, len(everything)):
            zel.check(f"{arguments} up to {limit}", everything[:limit],
                      zel.rows(*arguments, "--limit", str(limit)))


def ask_by_receive(zel, events):
    expected = [e.line[:-1] + b',"enriched_data":null}' for e in events]
    zel.check("by receive: the order of arrival", expected, zel.rows("--by", "receive"))
    got, cursor = [], []
    while True:
        page = zel.run("query", "--by", "receive", "--show-cursor", "--limit", str(len(events) // 3), *cursor)
        if page.returncode == 1:
            break
        got += page.stdout.splitlines()
        cursor = ["--after-cursor", page.stderr.split()[-1].decode()]
    zel.check("page by page, each row once", expected, got)
    zel.check("the position stays at the end", cursor[1], page.stderr.split()[-1].decode())


def main(program, records):
    events = [Event(line) for line in read_records(records)]
    with Zel(program) as zel:
        zel.check("all is stored", 0, zel.run("ingest", records).returncode)
        ask(zel, events)
        ask_texts(zel, events)
        ask_limits(zel, events)
        ask_by_receive(zel, events)
        return 1 if zel.failures else 0


if __name__ == "__main__":
    sys.exit(main(*sys.argv[1:3]))
