"""The hunt command on the sample's source events, with the rules of the examples and with bad ones.

huntcommand.py ZEL EXAMPLES

With ZEL_SOURCE_SAMPLES=FOLDER also the public rules there (sigma/), each of which has to have as many hits as
its list of expected ones says.
"""
import collections
import csv
import io
import json
import os
import signal
import subprocess
import sys
import tarfile

from zelcommand import Zel, await_work

BAD = r"""
title: Unknown Modifier
logsource: {category: process_creation, product: windows}
detection:
  selection:
    Image|ends: '\x.exe'
  condition: selection
---
title: Good
id: 00000000-0000-4000-8000-000000000001
logsource: {category: process_creation, product: windows}
detection:
  selection:
    Image|endswith: '\calc.exe'
  condition: selection
level: critical
---
title: Never There
logsource: {category: process_creation, product: windows}
detection:
  selection:
    NoSuchField: x
  condition: selection
"""

CHAIN = r"""
title: Base
id: AB000000-0000-4000-8000-000000000002
logsource: {category: process_creation, product: windows}
detection: {s: {Image|endswith: '\calc.exe'}, condition: s}
level: low
tags: [attack.t1059.001]
---
title: Inner
name: inner
correlation: {type: event_count, rules: ab000000-0000-4000-8000-000000000002, timespan: 1d, condition: {gte: 1}, generate: true}
---
title: Outer
correlation: {type: event_count, rules: inner, timespan: 1d, condition: {gte: 1}, generate: true}
level: high
---
title: Lost
correlation: {type: temporal, rules: [inner, none], timespan: 1d}
level: high
"""


def hunt(zel, *arguments, **options):
    ended = zel.run("hunt", *arguments, **options)
    hits = [json.loads(line) for line in ended.stdout.splitlines() if line.startswith(b"{")]
    return ended.returncode, hits, ended.stderr.decode()


def titles(hits):
    return collections.Counter(hit["rule"]["title"] for hit in hits)


def finds(zel, rules):
    code, hits, told = hunt(zel, rules, "-o", "ndjson")
    expected = {"Text Is Decoded on a Command Line": 1, "WMIC Runs a Script from the Network": 1,
                "One Process Uses Many Pipes": 3}
    found = titles(hits)
    zel.check("hits of single rules", expected, {title: found[title] for title in expected})
    zel.check("a rule that others count is told through them", 0, found["Pipe Outside of the System's"])
    zel.check("what was run is told", True, "partly 0, not 1\n" in told and "hit(s) of" in told)
    zel.check("the end", 0, code)
    wmic = next(hit for hit in hits if hit["rule"]["title"].startswith("WMIC"))
    zel.check("of a hit", ("high", "The ZELStore authors", True, True),
              (wmic["rule"]["level"], wmic["rule"]["author"], "\\WMIC.exe" in json.dumps(wmic["event"]).replace("\\\\", "\\"),
               any(line.startswith("selection_img: ") for line in wmic["why"])))
    rows = list(csv.reader(io.StringIO(hunt_text(zel, rules, "-o", "csv"))))
    zel.check("CSV has as many rows, all of one width", (len(hits) + 1, 1), (len(rows), len({len(row) for row in rows})))
    zel.check("so has JSON", len(hits), len(json.loads(hunt_text(zel, rules, "-o", "json"))))
    summary = [json.loads(line) for line in hunt_text(zel, rules, "--summary", "-o", "ndjson").splitlines()]
    zel.check("a summary counts them all", len(hits), sum(row["hits"] for row in summary))
    zel.check("the worst first", "high", summary[0]["level"])
    table = hunt_text(zel, rules, "-o", "table", columns=120).splitlines()
    zel.check("a table", (len(hits) + 1, True), (len(table), all(len(line) <= 120 for line in table)))


def hunt_text(zel, *arguments, **options):
    return zel.run("hunt", *arguments, **options).stdout.decode()


def narrows(zel, rules):
    for arguments, expected in {
            ("--min-level", "high"): {"WMIC Runs a Script from the Network": 1},
            ("--tag", "attack.T1140"): {"Text Is Decoded on a Command Line": 1},
            ("--status", "stable"): {"WMIC Runs a Script from the Network": 1},
            ("--day", "2022-05-11", "--status", "test"): {"Text Is Decoded on a Command Line": 1},
            ("--where", "action = launch", "--status", "stable"): {"WMIC Runs a Script from the Network": 1},
    }.items():
        zel.check(arguments, expected, dict(titles(hunt(zel, rules, *arguments)[1])))
    zel.check("nothing found", 1, hunt(zel, rules, "--until", "2001-01-01")[0])
    chain = os.path.join(zel.folder, "chain.yml")
    with open(chain, "w", encoding="utf-8") as file:
        file.write(CHAIN)
    code, hits, told = hunt(zel, chain, "--min-level", "high", chain)
    zel.check("what is only counted is no hit", (0, {"Outer"}, True), (code, set(titles(hits)), "refused 1" in told))
    zel.check("a technique has its parts", {"Base"}, set(titles(hunt(zel, chain, "--tag", "attack.T1059")[1])))
    zel.check("and no others", {}, titles(hunt(zel, chain, "--tag", "attack.t105")[1]))


def refuses(zel, rules):
    bad = os.path.join(zel.folder, "bad.yml")
    with open(bad, "w", encoding="utf-8") as file:
        file.write(BAD)
    code, hits, told = hunt(zel, bad)
    zel.check("a bad rule keeps no other from being run", (0, {"Good"}), (code, set(titles(hits))))
    zel.check("and is told by its place", True, "bad.yml:6:" in told and 'Unknown Modifier' in told and "refused 1" in told)
    zel.check("a field that no record has", True, "not 1" in told)
    for flag in ("--strict", "--check"):
        zel.check(flag, 2, hunt(zel, bad, flag)[0])
    nothing = os.path.join(zel.folder, "nothing")
    os.mkdir(nothing)
    for arguments, words in {
            (nothing,): "no file that ends in .yml",
            (os.path.join(zel.folder, "none.yml"),): "none.yml",
            (rules, "--min-level", "hihg"): 'did you mean "high"',
            (rules, "--since", "yester"): "yester",
            (rules, "--placeholders", bad + "x"): "bad.ymlx",
            (rules, "--explain", "-o", "csv"): "no CSV",
            (): "files or folders of rules",
    }.items():
        code, hits, told = hunt(zel, *arguments)
        zel.check(f"{arguments} is refused", (2, [], True), (code, hits, words in told))
    os.symlink("nowhere", os.path.join(nothing, "link.yml"))
    os.mkfifo(os.path.join(nothing, "pipe.yml"))
    zel.check("a link to nothing is told", True, "link.yml: can't be read" in hunt(zel, nothing, rules)[2])
    ended = subprocess.run([zel.program, "--store", "/nosuch", "hunt", "--check", "-o", "ndjson", rules],
                           capture_output=True, check=False)
    reach = collections.Counter(json.loads(line)["reach"] for line in ended.stdout.splitlines())
    zel.check("a check needs no store", (0, 1, 5), (ended.returncode, reach["not"], reach["whole"]))
    zel.check("no store", 3, subprocess.run([zel.program, "--store", "/nosuch", "hunt", rules], capture_output=True,
                                            check=False).returncode)


def ends_at_once(zel, _):
    """Rules that take seconds to be read are no reason to wait."""
    slow = "title: t%d\nlogsource: {category: process_creation}\ndetection: {a: {Image|re: '(.{1,300}x){1,3}%d'}, condition: a}\n"
    started = subprocess.Popen(zel.command("hunt", "-"), stdin=subprocess.PIPE, stdout=subprocess.PIPE, stderr=subprocess.PIPE)
    started.stdin.write("---\n".join(slow % (n, n) for n in range(500)).encode())
    started.stdin.close()
    await_work(started.pid, 0.2)
    started.send_signal(signal.SIGINT)
    zel.check("an interrupt while rules are read", (130, b""), (started.wait(), started.stderr.read()))


def marks(zel, rules):
    """Last: it writes."""
    before = titles(hunt(zel, rules)[1])
    first, second = (hunt(zel, rules, "--enrich", "--summary")[2] for _ in range(2))
    events = [json.loads(row) for row in zel.rows("--enrichments")]
    stored = collections.Counter(mark["sigma"]["title"] for event in events for mark in event.get("enrichments", [])
                                 if "sigma" in mark)
    single = {title: count for title, count in before.items() if title != "One Process Uses Many Pipes"}
    zel.check("each hit stands with its event, once", single, dict(stored))
    zel.check("the first run stored them", True, f"{sum(single.values())} hit(s) stored" in first)
    zel.check("the second none", True, f"0 hit(s) stored with their events, {sum(single.values())} stood there" in second)
    zel.check("marks are no hits", before, titles(hunt(zel, rules)[1]))


def public_rules(zel, samples):
    zel.run("ingest", os.path.join(samples, "raw_sample.ndjson.xz"))
    sigma = os.path.join(samples, "sigma")
    more = os.path.join(zel.folder, "more")
    with tarfile.open(os.path.join(sigma, "more.tar.xz")) as archive:
        archive.extractall(more)
    expected = json.load(open(os.path.join(sigma, "more_expected.json"), encoding="utf-8"))
    for rule in json.load(open(os.path.join(sigma, "expected_hits.json"), encoding="utf-8"))["rules"]:
        expected[os.path.basename(rule["file"])] = rule["hits"]
    code, hits, _ = hunt(zel, os.path.join(sigma, "rules"), more)
    zel.check("the public rules are run", 0, code)
    found = collections.Counter(os.path.basename(hit["rule"]["file"]) for hit in hits)
    wrong = {file: (count, found[file]) for file, count in expected.items() if count is not None and count != found[file]}
    zel.check("hits of public rules: expected, found", {}, wrong)


def main(program, examples):
    rules = os.path.join(examples, "rules")
    with Zel(program) as zel:
        zel.run("ingest", os.path.join(examples, "raw.ndjson.xz"))
        for scenario in (finds, narrows, refuses, ends_at_once, marks):
            scenario(zel, rules)
        failures = zel.failures
    if samples := os.environ.get("ZEL_SOURCE_SAMPLES"):
        with Zel(program) as zel:
            public_rules(zel, samples)
            failures += zel.failures
    return failures != 0


if __name__ == "__main__":
    sys.exit(main(*sys.argv[1:]))
