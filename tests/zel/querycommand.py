"""The query and enrich commands on hard ground: wrong arguments, broken outputs, interrupts.

querycommand.py ZEL RECORDS
"""
import csv
import io
import json
import os
import pty
import signal
import subprocess
import sys
import time
import unicodedata

from zelcommand import Zel, await_work

TIME = "2026-01-02T03:04:05.006Z"


def record(sequence, path, actor=r"C:\a.exe"):
    return json.dumps({
        "artifacts": {"actor": {"object_type": "process", "path": {"value": [actor]}},
                      "target": {"object_type": "file", "path": {"value": [path]}}},
        "action": ["create"], "begin_time": {"value": TIME}, "seq_num": sequence}, ensure_ascii=False).encode()


def refusals(zel):
    """Told before any store is looked for: there is none."""
    cases = {
        ("",): "DOCUMENT: must not be empty",
        ("--action", ""): "--action: must not be empty",
        ("--actoin", "create"): 'unknown flag "--actoin"; did you mean "--action"?',
        ("--limit", "-1"): "--limit: a number from 0 to 2147483647",
        ("--until", "yester"): "\n  yester\n  ^",
        ("--pattern", "a(b"): "\n  a(b\n     ^",
        ("--where", "actor_pth = x"): 'unknown column "actor_pth"; did you mean "actor_path"?\n  actor_pth = x\n  ^',
        ("--where", "user like x"): 'unknown operator "like"; known: ',
        ("--where", "actor_path ~ a(b"): "missing ): a(b\n  actor_path ~ a(b\n               ^",
        ("--where", "time > never"): "a time such as",
        ("--pid", "x"): "--pid: a number is expected",
        ("--key", "p<begin_time>"): "--key: the key has no date",
        ("--key", "p<begin_time>" + TIME + "<sequence>x<object_type>file<action>set"): "no sequence of ten digits",
        ("--key", "k", "--action", "create"): "--key names one event",
        ("--by", "receive", "--grep", "x"): "--by receive walks rows",
        ("--port", "1", "--object", "file"): "no event has all of that",
        ("{",): "line 1, column 2",
        ("{}", "--since", "today"): "excludes",
        ('{"event_query":{"events":[{}]}}',): "event_query.events[0]: there is no time",
    }
    for arguments, words in cases.items():
        for explain in ([], ["--explain"]):
            ended = zel.run("query", *explain, *arguments)
            zel.check(f"{arguments} is refused", (2, b""), (ended.returncode, ended.stdout))
            zel.check(f"{arguments} says {words}", True, words in ended.stderr.decode())
    zel.check("a distance back is a time", 3, zel.run("query", "--since", "-2h").returncode)
    words = (("qurey", "--store", "x"), ("settings", "gett"), ("query", "-v", "--since", "-2h", "--store", "/nosuch"))
    zel.check("the command line as a whole", [
        b'zel: unknown command "qurey"; did you mean "query"?\n',
        b'zel: unknown command "gett"; did you mean "get"?\n',
        b"zel: the store /nosuch does not exist\n"], [zel.run(*line).stderr for line in words])


def outputs(zel, records):
    zel.run("ingest", records)
    total = len(zel.rows())
    for arguments in ([], ["--explain"]):
        with open("/dev/full", "wb") as full:
            ended = zel.run("query", *arguments, stdout=full)
        zel.check("a full disk", (4, b"zel: can't write: No space left on device\n"),
                  (ended.returncode, ended.stderr))
        ended = zel.run("query", *arguments, preexec_fn=lambda: os.close(1))
        zel.check("no stdout", (4, b"zel: can't write: Bad file descriptor\n"),
                  (ended.returncode, ended.stderr))
    zel.check("nothing of it went into the store", total, len(zel.rows()))

    def start():
        return subprocess.Popen(zel.command("query"), stdout=subprocess.PIPE, stderr=subprocess.PIPE,
                                env=zel.environment)
    with start() as query:
        query.stdout.readline()
        query.stdout.close()
        zel.check("a reader that went away", (b"", 0), (query.stderr.read(), query.wait()))
    with start() as query:
        lines = [query.stdout.readline()]
        query.send_signal(signal.SIGINT)
        lines += query.stdout.readlines()
        zel.check("interrupted", (b"", 130), (query.stderr.read(), query.wait()))
        zel.check("and the output stopped", True, len(lines) < total)

    ended = zel.run("query", "--pattern", "(.*a){20}")
    zel.check("a costly pattern", 4, ended.returncode)
    told = ended.stderr.decode()
    zel.check("told once", (1, True), (told.count("\n"), " row(s) could not be tested: " in told))
    zel.check("one array", b"[\n%b,\n%b\n]\n" % tuple(zel.rows("--limit", "2")),
              zel.run("query", "-o", "json", "--limit", "2").stdout)
    ended = zel.run("query", "-o", "json", "--since", "2100-01-01")
    zel.check("an empty one", (1, b"[]\n"), (ended.returncode, ended.stdout))


def hostile(zel):
    """Questions that would take minutes end soon after an interrupt, whatever they are busy with."""
    zel.run("ingest", "-", given=b"\n".join(record(n, "a" * 3000) for n in range(3000)))
    begin = '"begin_time":{"value":"1601-01-01T00:00:00.000Z"}'

    def on_path(operator, values):
        return ('{%s,"artifacts":{"target":{"object_type":"file","path":{"operator":{"value":"%s"},"value":%s}}}}'
                % (begin, operator, json.dumps(values)))
    questions = {
        "backtracking": on_path("fits_pattern", ["(.*a){20}b"]),
        "alternatives": on_path("fits_pattern", ["(x|%s)*y" % "|".join(f"a+a+{'a' * 40}{n}" for n in range(500))]),
        "many values": on_path("contains", ["a" * 20 + str(n) for n in range(10000)]),
        # Each with a range of its own: they share no walk, and what one learns spares no other.
        "many sub-queries": ",".join('{"end_time":{"value":"2090-01-01T00:00:%02d.%03dZ"},' % divmod(n, 1000) +
                                     on_path("contains", ["b"])[1:] for n in range(10000)),
    }
    for name, sub_queries in questions.items():
        document = os.path.join(zel.folder, "document.json")
        with open(document, "w", encoding="utf-8") as file:
            file.write('{"event_query":{"events":[%s]}}' % sub_queries)
        with subprocess.Popen(zel.command("query", document), stdout=subprocess.DEVNULL,
                              stderr=subprocess.DEVNULL, env=zel.environment) as query:
            await_work(query.pid, 0.5)
            query.send_signal(signal.SIGINT)
            began = time.monotonic()
            try:
                code = query.wait(timeout=30)
            except subprocess.TimeoutExpired:
                query.kill()
                code = "no end"
        print(f"{name}: {time.monotonic() - began:.3f} s")
        zel.check(f"{name}, interrupted", 130, code)


def width(text):
    return sum(0 if unicodedata.combining(c) else 2 if unicodedata.east_asian_width(c) in "WF" else 1
               for c in text)


def tables(zel):
    nasty = "C:\\\x1b[31m\u202e\u4e2d\u6587\u00e4\u0301\U0001f600\n" * 9
    zel.run("ingest", given=b"\n".join([record(1, nasty), record(2, nasty, nasty), record(3, "x", nasty)]))
    for columns in (1, 10, 77, 200):
        lines = zel.run("query", "-o", "table", columns=columns).stdout.decode().splitlines()
        zel.check(f"rows in {columns} columns", 4, len(lines))
        zel.check(f"none is wider than {columns}", [], [l for l in lines if width(l) > columns])
        zel.check("no control characters", [], [c for l in lines for c in l if ord(c) < 32 or c == "\u202e"])
    lines = zel.run("query", "-o", "table").stdout.decode().splitlines()
    start = lines[0].index("TARGET")
    zel.check("without a width the columns stand below each other", [" T", " C", " C", " x"],
              [next(line[i - 1:i + 1] for i in range(len(line)) if width(line[:i]) == start) for line in lines])
    zel.check("a wide table shows all", True, "C:\\\\x1b[31m\\u202e\u4e2d" in
              zel.run("query", "-o", "table", columns=2000).stdout.decode())


def twice(zel):
    """Events that stand in the folders of two days are printed once, whatever the shape of the question."""
    def answer(*arguments):
        ended = zel.run("query", *arguments)
        return ended.returncode, len(ended.stdout.splitlines()), ended.stderr.decode()
    zel.run("ingest", given=b"\n".join(record(n, "C:\\t") for n in (1, 2, 3)))
    os.rename(*(os.path.join(zel.store, day) for day in (os.listdir(zel.store)[0], "20200101")))
    zel.run("ingest", given=b"\n".join(record(n, "C:\\t") for n in (2, 3, 4, 5)))
    parts = ("--object", "file", "--object", "directory", "--object", "module")
    once = [(), parts, ("--day", "2026-01-02"), ("--until", "2026-01-02"), ("--since", "2026-01-02T03:04"),
            ("--enrichments",), ("--enrichments", *parts), ("--print-keys",), ("--with-key",)]
    zel.check("once", [(0, 5, "")] * len(once), [answer(*question) for question in once])
    zel.check("all", [(0, 7, "")] * 2, [answer("--duplicates"), answer("--duplicates", *parts)])
    more = "zel: the limit of {} is reached; more events fit\n"
    for question in ((), parts, ("--enrichments",)):
        zel.check("limits", [(0, n, more.format(n) if n < 5 else "") for n in range(7) if n != 6] + [(0, 5, "")],
                  [answer("--limit", str(n), *question) for n in range(7)])
    zel.check("by time of receipt", [(0, 7, "zel: the limit of 7 is reached; whether more follow is not known\n"),
                                     (0, 7, "")], [answer("--by", "receive", "--limit", n) for n in ("7", "8")])
    zel.check("not with that", (1, 0, ""), answer("--limit", "0", "--since", "2027-01-01"))
    zel.check("a document's own 0", (0, 1, more.format(1)), answer(
        '{"event_query":{"events":[{"begin_time":{"value":"2026-01-01T00:00:00.000Z"}}],"limit_result_count":0}}'))
    keys = [json.loads(row).pop("key") for row in zel.rows("--with-key")]
    zel.check("the same keys", [keys] * 2, [[row.decode() for row in zel.rows("--print-keys", *more)]
                                            for more in ((), ("--enrichments",))])
    zel.run("enrich", keys[1], given=b'{"enrichments":[1],"x":"}"}')
    for question in ((), ("--enrichments",)):
        zel.check("enriched or not", keys, [row.decode() for row in zel.rows("--print-keys", *question)])
        zel.check("once, with enrichments joined", 5, len(zel.rows(*question)))
    received = [row.decode() for row in zel.rows("--by", "receive", "--print-keys")]
    zel.check("of receive-time rows", sorted(keys + keys[1:3]), sorted(received))


def ordered(zel):
    """The order of time over folders and parts; the newest of them; what a limit keeps."""
    def event(second, kind):
        text = record(second, "C:\\t").replace(b'"file"', b'"%b"' % kind)
        return text.replace(TIME.encode(), b"2026-01-02T03:04:%02d.000Z" % second)
    for day, seconds in (("20260101", (1, 4, 9)), ("20260102", (2, 4, 5, 30)), (None, (3, 7, 31))):
        zel.run("ingest", given=b"\n".join(event(n, b"module" if n % 2 else b"file") for n in seconds))
        if day:
            os.rename(os.path.join(zel.store, max(os.listdir(zel.store))), os.path.join(zel.store, day))
    every = [1, 2, 3, 4, 5, 7, 9, 30, 31]
    parts = ("--object", "file", "--object", "module")
    def answer(*arguments):
        ended = zel.run("query", *arguments)
        told = ended.stderr.decode()
        return [json.loads(row)["seq_num"] for row in ended.stdout.splitlines()], "more events fit" in told
    cases = {
        ("--sort",): (every, False),
        ("--reverse",): (every[::-1], False),
        ("--sort", "--limit", "4"): (every[:4], True),
        ("--reverse", "--limit", "4"): (every[:4:-1], True),
        ("--reverse", "--limit", "9"): (every[::-1], False),
        ("-n", "3"): (every[:5:-1], False),
        ("-n", "3", "--sort"): (every[6:], False),
        ("-n", "99"): (every[::-1], False),
        ("-n", "2", "--until", "2026-01-02T03:04:05"): ([5, 4], False),
        ("-n", "1", "--action", "delete"): ([], False),
        ("--sort", "--duplicates"): (sorted(every + [4]), False),
    }
    for arguments, expected in cases.items():
        for more in ((), parts):
            zel.check(f"{arguments} {more}", expected, answer(*arguments, *more))
    zel.check("of receipts the last", ([31, 7, 3], False), answer("--by", "receive", "-n", "3"))
    zel.check("conditions that exclude each other", 1, zel.run("query", "--where", "object = url", *parts).returncode)
    with open("/dev/full", "wb") as full:
        ended = subprocess.run(zel.command("query", "--by", "receive", "--sort", "--show-cursor"), stdout=full,
                               stderr=subprocess.PIPE, env=zel.environment, check=False)
    zel.check("no cursor behind what was not printed", (4, True), (ended.returncode, b"zel: no cursor" in ended.stderr))
    for wrong in (("-n", "0"), ("-n", "x"), ("-n", "1", "--limit", "1"), ("--sort", "--reverse"),
                  ("--by", "receive", "--sort", "--limit", "1", "--show-cursor")):
        zel.check(f"{wrong} is refused", 2, zel.run("query", *wrong).returncode)


def fields(zel):
    """Columns, pointers and zones in the forms that show them."""
    line = '=cmd|"x",1\r\n\u00e4'
    event = json.loads(record(7, "@SUM(1)", "-x"))
    event["artifacts"]["actor"].update(cmd_line={"value": [line]}, pid={"value": [4]})
    event["a/b~"] = [{"x": -1}, None, True]
    zel.run("ingest", given=json.dumps(event).encode())
    key = zel.rows("--print-keys")[0].decode()
    zel.run("enrich", key, given=b'{"a": 1}')
    wanted = ("time", "seq", "actor_pid", "actor_path", "target_path", "actor_cmd_line", "user",
              "/a~1b~0/0/x", "/a~1b~0/1", "/a~1b~0/2", "/a~1b~0/3", "enrichments", "key")
    question = ("--fields", ",".join(wanted), "--enrichments")
    plain = [TIME, 7, 4, "-x", "@SUM(1)", line, None, -1, None, True, None, [{"a": 1}], key]
    zel.check("as JSON", [dict(zip(wanted, plain))], json.loads(zel.run("query", "-o", "json", *question).stdout))
    zel.check("a line each", [dict(zip(wanted, plain))], [json.loads(row) for row in zel.rows(*question)])
    text = zel.run("query", "-o", "csv", *question).stdout.decode()
    cells = [TIME, "7", "4", "'-x", "'@SUM(1)", "'" + line, "", "-1", "", "true", "",
             '[{"a":1}]', key]
    zel.check("as CSV", [list(wanted), cells], list(csv.reader(io.StringIO(text, newline=""))))
    zel.check("its lines end as they have to", 2, text.replace("\r\n\u00e4", "").count("\r\n"))
    table = zel.run("query", "-o", "table", *question[:2], "--enrichments", columns=150).stdout.decode().splitlines()
    zel.check("as a table", (2, True, True), (len(table), table[0].startswith("TIME"), max(map(width, table)) <= 150))
    every = next(csv.DictReader(io.StringIO(zel.run("query", "-o", "csv", "--with-key").stdout.decode(), newline="")))
    zel.check("all columns", (key, "7", False), (every["key"], every["seq"], "event" in every))
    sketch = json.loads(zel.run("query", "-o", "timesketch").stdout)
    zel.check("a timeline", ("create file @SUM(1) by -x", "2026-01-02T03:04:05.006+00:00", "event time", line),
              tuple(sketch[name] for name in ("message", "datetime", "timestamp_desc", "actor_cmd_line")))
    for zone, shown in (("Europe/Berlin", "2026-01-02T04:04:05.006+01:00"), ("UTC", TIME),
                        ("America/St_Johns", "2026-01-01T23:34:05.006-03:30")):
        for form in ("csv", "table"):
            got = zel.run("query", "-o", form, "--tz", zone, "--fields", "time").stdout.decode().split()[1]
            zel.check(f"{zone} as {form}", shown, got)
        zel.check("and read back", 1, len(zel.rows("--since", shown, "--until", shown)))
        zel.check("without its offset", 1, len(zel.rows("--since", shown[:23], "--until", shown[:23], "--tz", zone)))
        zel.check("its day", 1, len(zel.rows("--day", shown[:10], "--tz", zone)))
    days = {"2026-03-29": ("2026-03-28T23:00:00.000Z", "2026-03-29T21:59:59.999Z"),
            "2026-10-25": ("2026-10-24T22:00:00.000Z", "2026-10-25T22:59:59.999Z")}
    for day, ends in days.items():
        asked = json.loads(zel.run("query", "--explain", "--tz", "Europe/Berlin", "--day", day).stdout)
        part = asked["event_query"]["events"][0]
        zel.check(f"{day} whole", ends, (part["begin_time"]["value"], part["end_time"]["value"]))
    for wrong in (("--fields", "tim"), ("--fields", "time,,seq"), ("--fields", "/a~2"), ("--fields", "enrichments"),
                  ("--fields", "time", "-o", "ocsf"), ("--tz", "Nowhere"), ("--tz", "../x")):
        ended = zel.run("query", *wrong)
        zel.check(f"{wrong} is refused", (2, True), (ended.returncode, wrong[0].encode() in ended.stderr))


def counts(zel):
    """Groups, steps of time, and both, where clocks are put back on a Sunday."""
    times = ("2026-10-24T21:59", "2026-10-24T22:00", "2026-10-25T00:30", "2026-10-25T01:30", "2026-10-25T22:59",
             "2026-10-25T23:00")
    zel.run("ingest", given=b"\n".join(record(n, "C:\\%d" % (n % 2)).replace(TIME.encode(), f"{time}:00.000Z".encode())
                                      for n, time in enumerate(times)))
    def rows(*arguments):
        return [list(json.loads(row).values()) for row in zel.rows(*arguments)]
    def steps(*arguments):
        return [[row[0].replace(":00.000", "")] + row[1:] for row in rows("--tz", "Europe/Berlin", *arguments)]
    zel.check("groups", [["C:\\0", 3], ["C:\\1", 3]], rows("--count-by", "target_path"))
    zel.check("of a pointer", [["C:\\0", None, 3], ["C:\\1", None, 3]],
              rows("--count-by", "/artifacts/target/path/value/0,user"))
    zel.check("days", [["2026-10-24T00:00+02:00", 1], ["2026-10-25T00:00+02:00", 4], ["2026-10-26T00:00+01:00", 1]],
              steps("--histogram", "1d"))
    zel.check("weeks", [["2026-10-19T00:00+02:00", 5], ["2026-10-26T00:00+01:00", 1]], steps("--histogram", "1w"))
    hours = steps("--histogram", "1h", "--until", "2026-10-25T02:00Z")
    zel.check("an hour twice", [["2026-10-25T02:00+02:00", 1], ["2026-10-25T02:00+01:00", 1]],
              [row for row in hours if "T02" in row[0]])
    zel.check("and those between", ["2026-10-24T23:00+02:00", 5], [hours[0][0], len(hours)])
    zel.check("both", [["2026-10-25T00:00+02:00", "C:\\0", 2], ["2026-10-25T00:00+02:00", "C:\\1", 2]],
              steps("--histogram", "1d", "--count-by", "target_path", "--day", "2026-10-25"))
    ended = zel.run("query", "--count-by", "seq", "--limit", "2")
    zel.check("a limit", (2, b"zel: 4 more row(s) are left out\n"), (len(ended.stdout.splitlines()), ended.stderr))
    bars = zel.run("query", "--histogram", "1d", "-o", "table", columns=40).stdout.decode().splitlines()
    zel.check("bars", [("2026-10-24T00:00:00.000Z 2", 7), ("2026-10-25T00:00:00.000Z 4", 13)],
              [(bar[:26], bar.count("\u2588")) for bar in bars])
    zel.check("of nothing", (1, b"[]\n"), (lambda e: (e.returncode, e.stdout))(
        zel.run("query", "--count-by", "seq", "-o", "json", "--since", "2100-01-01")))
    for wrong in (("--histogram", "0h"), ("--histogram", "1y"), ("--count-by", "x"), ("--count-by", "enrichments"),
                  ("--count-by", "seq", "-n", "1"), ("--count-by", "seq", "--fields", "seq"), ("--histogram", "1h", "-o", "ocsf")):
        zel.check(f"{wrong} is refused", 2, zel.run("query", *wrong).returncode)


def screen(zel):
    """What a terminal gets: the order of time, colours, a pager. And the trailer, also elsewhere."""
    zel.run("ingest", given=b"\n".join(record(n, "C:\\t") for n in (2, 1)))
    def shown(*arguments, **variables):
        terminal, stdout = pty.openpty()
        environment = dict(zel.environment, TERM="xterm", COLUMNS="100", **variables)
        with subprocess.Popen(zel.command("query", *arguments), stdout=stdout, stderr=subprocess.DEVNULL,
                              env=environment) as query:
            os.close(stdout)
            text = b""
            try:
                while piece := os.read(terminal, 4096):
                    text += piece
            except OSError:  # all that had it open have closed it
                pass
        os.close(terminal)
        return query.returncode, text.decode().replace("\r\n", "\n")
    plain, coloured = (TIME + " %sfile          create    %s" % colours for colours in (("", ""), ("\x1b[36m", "\x1b[0m")))
    for variables, arguments, expected in (
            ({"PAGER": ""}, (), coloured), ({"PAGER": "cat"}, ("--no-pager",), coloured),
            ({"PAGER": "", "NO_COLOR": "1"}, (), plain),
            ({"PAGER": "sed 's/^/| /'", "NO_COLOR": "1"}, (), "| " + plain),
            ({"PAGER": "sed 's/^/| /'", "NO_COLOR": "1"}, ("--no-pager",), plain),
            ({"PAGER": "exec 0<&-; sleep 0"}, (), ""), ({"PAGER": "/nowhere/more -x"}, (), "")):
        code, text = shown("--actor-path", "?*", *arguments, **variables)
        zel.check(f"{variables} {arguments}", (4 if "nowhere" in str(variables) else 0, [expected] * (2 if expected else 0)),
                  (code, [line[:len(expected)] for line in text.splitlines()[1:]]))
    zel.check("found is what is printed", 1, json.loads(zel.rows("--trailer", "-n", "1")[-1])["trailer"]["found"])
    rows = zel.rows("--trailer", "--limit", "1")
    trailer = json.loads(rows[-1])["trailer"]
    zel.check("a trailer", (2, 1, 1, [], True, True, False),
              (len(rows), *(trailer[name] for name in ("found", "folders", "not_read", "limited", "complete",
                                                       "being_written"))))
    folder = os.path.join(zel.store, "20200103")
    os.mkdir(folder)
    for name in ("CURRENT", "000005.ldb"):
        with open(os.path.join(folder, name), "w", encoding="utf-8") as file:
            file.write("MANIFEST-000009\n")
    ended = zel.run("query", "--trailer", "--since", "2100-01-01")
    trailer = json.loads(ended.stdout)["trailer"]
    zel.check("nothing found, and not all was read", (4, 0, False, True), (ended.returncode, trailer["found"],
              trailer["complete"], "20200103" in [failure["folder"] for failure in trailer["not_read"]]))
    ended = zel.run("query", "--trailer", "-o", "csv", "--fields", "seq")
    zel.check("beside csv", (b"seq\r\n1\r\n2\r\n", True), (ended.stdout, b"zel: 2 event(s) found" in ended.stderr))
    zel.run("ingest", given=record(3, "\x1b[31m\x9b\u202e"))
    for form in (("-o", "csv"), ("--print-keys",), ("-o", "json"), ("--fields", "target_path", "-o", "ndjson")):
        text = shown(*form, "--grep", "31m", PAGER="")[1]
        zel.check(f"{form} brings no codes to a terminal", [True, False, False, False],
                  ["[31m" in text] + [code in text for code in "\x1b\x9b\u202e"])


def trees(zel):
    """Who began whom, over the folders of two days, of processes whose number was used twice."""
    def launch(second, parent, child):
        def process(told):
            uid, pid, name = told.split(",")
            return {"object_type": "process", **({"uid": {"value": [uid]}} if uid else {}),
                    "pid": {"value": [int(pid)]}, "path": {"value": ["C:\\" + name]}}
        return json.dumps({"artifacts": {"actor": process(parent), "target": process(child)}, "action": ["launch"],
                           "begin_time": {"value": f"2026-01-02T03:04:{second}.000Z"}}).encode()

    def tree(*arguments):
        ended = zel.run("tree", *arguments)
        rows = [json.loads(row) for row in ended.stdout.splitlines()]
        return ended.returncode, [(r["depth"], r["relation"][0], r["path"][3:]) for r in rows]
    zel.run("ingest", given=b"\n".join([launch(30, "B,5,b", "C,6,c"), launch(50, ",1,a", ",5,d")]))
    os.rename(*(os.path.join(zel.store, day) for day in (os.listdir(zel.store)[0], "20200101")))
    zel.run("ingest", given=b"\n".join([launch(20, "A,1,a", "B,5,b"), record(9, "C:\\t")]))
    first = [(0, "a", "a"), (1, "s", "b"), (2, "d", "c")]
    zel.check("by identifier", (0, first), tree("{b}"))
    zel.check("by number", (0, first + [(0, "a", "a"), (1, "s", "d")]), tree("5"))
    zel.check("within a time", (0, [(0, "s", "b"), (1, "d", "c")]), tree("B", "--since", "2026-01-02T03:04:25"))
    keys = {json.loads(row)["begin_time"]["value"][17:19]: json.loads(row)["key"] for row in zel.rows("--with-key")}
    zel.check("of an event", (0, first), tree("--key", keys["20"]))
    zel.check("of one that no launch tells of", (1, []), tree("--key", keys["05"]))
    zel.check("not there", [(1, [])] * 3, [tree("7"), tree("no"), tree("--key", keys["20"] + "x")])
    zel.check("an empty array", b"[]\n", zel.run("tree", "7", "-o", "json").stdout)
    nested = json.loads(zel.run("tree", "B", "-o", "json").stdout)
    zel.check("as objects", "C", nested[0]["children"][0]["children"][0]["uid"])
    drawn = zel.run("tree", "B", "-o", "tree").stdout.decode().splitlines()
    zel.check("drawn", ["a  C:\\a", "└─ ► b  C:\\b", "   └─ c  C:\\c"], [line[34:] for line in drawn[1:]])
    zel.check("refused", [2] * 4, [zel.run("tree", *words).returncode for words in (
        [], ["5", "--key", keys["20"]], ["--key", "x"], ["5", "--day", "never"])])
    zel.store += "nosuch"
    zel.check("no store", 3, zel.run("tree", "5").returncode)


def files(zel):
    """Documents in files, and what is none."""
    document = b'{"event_query":{"events":[{"begin_time":{"value":"2026-01-01T00:00:00.000Z"}}]}}'
    name = os.path.join(zel.folder, "doc.json")
    zel.run("ingest", given=record(1, "C:\\t"))
    for text, told in ((document, ""), (b" " * (17 << 20), f"zel: {name}: larger than 16 MiB\n"),
                       (b"{", f"zel: the document is no JSON: line 1, column 2: ")):
        with open(name, "wb") as file:
            file.write(text)
        for given in ((name,), ("-",)):
            ended = zel.run("query", *given, given=text)
            zel.check(f"{given}: {told}", (bool(told), not told),
                      (told.replace(name, "standard input" if given[0] == "-" else name) in ended.stderr.decode()
                       and ended.returncode == 2, ended.stdout.count(b"\n") == 1))
    ended = zel.run("query", "nosuch.json")
    zel.check("a missing file", (2, b"zel: nosuch.json: can't be read: No such file or directory\n"),
              (ended.returncode, ended.stderr))


def nothing(zel):
    """What a terminal is told when nothing was found; a script is told nothing."""
    zel.run("ingest", given=record(1, "C:\\t\\a.txt"))
    def told(*arguments):
        terminal, stderr = pty.openpty()
        ended = zel.run("query", *arguments, terminal=stderr)
        os.close(stderr)
        text = os.read(terminal, 4096).decode().replace("\r\n", "\n").replace("\r\x1b[K", "")
        os.close(terminal)
        said, _, trailer = text.rpartition("zel: 0 event(s) found, ")
        zel.check("and what was looked at", True, trailer.startswith("0 row(s) looked at, 1 folder(s) from "))
        return ended.returncode, said
    def lines(*words):
        return 1, "".join(f"zel: {line}\n" for line in ("no events", *words))
    zel.check("not a word to a script", (1, b""),
              (lambda ended: (ended.returncode, ended.stderr))(zel.run("query", "--since", "2027-01-01")))
    cases = {
        ("--action", "delete"): lines(),
        ("--target-path", "a.txt"): lines('"a.txt" is compared with whole paths; "*\\a.txt" finds that name in any folder'),
        ("--target-path", "*\\b.txt"): lines(),
        (json.dumps({"event_query": {"events": [{"begin_time": {"value": TIME}, "artifacts": {"target": {
            "object_type": "reg_key", "path": {"value": ["hklm\\Software\\*"]}}}}]}}),): lines(
                'sensors write the roots of registry paths in several ways; "*\\Software\\*" leaves the root open'),
        ("--day", "2026-01-01", "--target-path", "x"): lines(
            "the store holds none of that time, whatever else is asked; its oldest folder begins with one of " + TIME),
    }
    for question, words in cases.items():
        zel.check(f"{question}: the cause", words, told(*question))


def enrichments(zel):
    zel.run("ingest", given=record(7, r"C:\t.txt"))
    key = zel.rows("--print-keys")[0].decode()
    def enrich(*arguments, given):
        ended = zel.run("enrich", *arguments, given=given)
        return ended.returncode, ended.stderr.decode()
    def joined(flag):
        return [json.loads(row).get("enrichments") for row in zel.rows(flag)]

    zel.check("silent", (0, "zel: 1 enrichment(s) stored\n"), enrich(key, given=b'{"a": 1.10,\n "b": 2}\n'))
    zel.check("as it was written, on one line", 1, zel.run("query", "--enrichments").stdout.count(b'{"a": 1.10,  "b": 2}'))
    zel.check("silent ones leave their event", [None], joined("--no-live-enriched"))
    lines = [json.dumps({"key": key, "enrichment": [n]}).encode() for n in range(3)]
    hostile = [b"nonsense", b"{}", b'{"key":1,"enrichment":2}', b'{"key":"r<receive_time>","enrichment":1}',
               b'{"key":"p<begin_time>x<sequence>1<object_type>file<action>set","enrichment":1}', b'{"a":\xff}']
    code, told = enrich("--ndjson", given=b"\n".join(hostile + [b""] + lines))
    zel.check("many, with losses", (4, "zel: 3 enrichment(s) stored, 6 line(s) rejected"),
              (code, told.splitlines()[-1]))
    zel.check("each bad line with its place", [f"zel: (stdin):{n + 1}:" for n in range(6)],
              [" ".join(l.split()[:2]) for l in told.splitlines() if l.startswith("zel: (stdin)")])
    zel.check("in order", [[{"a": 1.1, "b": 2}, [0], [1], [2]]], joined("--enrichments"))
    zel.check("a live one", 0, enrich("--live", key, given=b"null")[0])
    zel.check("takes its event out", [], joined("--no-live-enriched"))
    for bad_key, words in (("abc", "begins with p<begin_time>"), (key + "<silent_sequence>1", "of an enrichment"),
                           (key[:40], "cut off"), (key.replace("2026-01", "2026-13"), "no date")):
        code, told = enrich(bad_key, given=b"1")
        zel.check(f"{bad_key} is refused", (2, True), (code, words in told))
    for bad in (b"", b"{} {}", b"\xff", b"/**/1"):
        zel.check(f"{bad} is refused", 2, enrich(key, given=bad)[0])
    zel.check("no key", 2, enrich(given=b"1")[0])
    zel.store += "nosuch"
    zel.check("no store", 3, enrich(key, given=b"1")[0])


def main(program, records):
    failures = 0
    for scenario, arguments in ((refusals, ()), (outputs, (records,)), (hostile, ()), (tables, ()), (twice, ()), (ordered, ()),
                                (trees, ()), (fields, ()), (counts, ()), (screen, ()),
                                (files, ()), (nothing, ()), (enrichments, ())):
        with Zel(program) as zel:
            scenario(zel, *arguments)
            failures += zel.failures
    return 1 if failures else 0


if __name__ == "__main__":
    sys.exit(main(*sys.argv[1:3]))
