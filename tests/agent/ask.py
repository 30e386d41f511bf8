"""Commands that reach a store through its agent answer as they do alone.

ask.py ZEL SAMPLE
"""
import json
import os
import signal
import subprocess
import sys
import time

sys.path.insert(0, os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "zel"))
from agentprocess import LIMIT, Service, Socket, record  # noqa: E402
from zelcommand import Zel, read_records  # noqa: E402

RULE = """title: launch
id: 1b4d4c7e-3f0a-4f0e-9a5a-0d8c7d9b2a11
logsource: {product: windows, category: process_creation}
detection: {selection: {Image|endswith: .exe}, condition: selection}
"""
COMMANDS = (
    ["query"], ["query", "--limit", "7"], ["query", "--limit", "0"], ["query", "--last", "5", "-o", "csv"],
    ["query", "--by", "receive", "--limit", "9", "--show-cursor"], ["query", "--print-keys", "--action", "launch"],
    ["query", "--action", "delete", "--target-path", "nowhere"], ["query", "--pattern", ".*\\\\cmd\\.exe", "--sort"],
    ["query", "--count-by", "action"], ["query", "--trailer", "--grep", "exe", "-o", "table"],
    ["query", "--enrichments", "--since", "2015-01-01", "--limit", "3"], ["query", "--since", "nonsense"], ["query", "{"],
    ["query", '{"event_query":{"events":[{"begin_time":{"value":"2000-01-01T00:00:00.000Z"},"action":["launch"]}]}}'],
    ["sql", "select action, count(*) from events group by 1 order by 1"], ["sql", "select * from nothing"],
    ["sql", "select name, in_use from folders"], ["sql", "select time, seq from events order by time limit 3"],
    ["tree", "4"], ["info", "-o", "json"], ["purge", "--max-size", "0", "--dry-run", "-o", "json"],
)


def through(zel, service, *arguments, **options):
    return subprocess.run([zel.program, "--socket", service.socket, *arguments], stdout=subprocess.PIPE,
                          stderr=subprocess.PIPE, env=zel.environment, timeout=LIMIT, check=False, **options)


def is_waiting(process):
    """Whether it has its handlers for signals, and lives."""
    while True:
        with open(f"/proc/{process.pid}/status", encoding="utf-8") as file:
            caught = next(int(line.split()[1], 16) for line in file if line.startswith("SigCgt"))
        if caught & 1 << (signal.SIGINT - 1) or process.poll() is not None:
            return process.poll() is None
        time.sleep(0.01)


def check_same(zel, service):
    with open(os.path.join(zel.folder, "rule.yml"), "w", encoding="utf-8") as file:
        file.write(RULE)
    hunt = ["hunt", file.name, "-o", "ndjson"]
    for command in (*COMMANDS, hunt):
        alone, asked = zel.run(*command), through(zel, service, *command)
        zel.check(f"end of {command}", alone.returncode, asked.returncode)
        zel.check(f"output of {command}", alone.stdout, asked.stdout)
        if alone.returncode == 2:
            zel.check(f"words of {command}", alone.stderr, asked.stderr)
    environment = dict(zel.environment, ZEL_SOCKET=service.socket, ZEL_STORE="/nowhere")
    got = subprocess.run([zel.program, "query", "--limit", "1"], env=environment, capture_output=True, check=False)
    zel.check("named by the environment", 0, got.returncode)
    zel.check("two places", 2, through(zel, service, "--store", zel.store, "info").returncode)
    zel.check("ingest wants a directory", 3, through(zel, service, "ingest", input=b"{}").returncode)


def check_enrichments(zel, service):
    key = through(zel, service, "query", "--print-keys", "--limit", "1").stdout.decode().strip()
    done = through(zel, service, "enrich", key, input=b'{"verdict": 1.50}')
    zel.check("taken", (0, b"zel: 1 enrichment(s) taken by the agent\n"), (done.returncode, done.stderr))
    line = json.dumps({"key": key, "enrichment": {"note": "by hand"}}).encode()
    zel.check("by hand", (200, b'{"accepted":1}\n'), service.ask("POST", "/v1/enrichments", line)[:2])
    for bad in (b"nonsense", b'{"key":"p","enrichment":1}', line + b"\n{}"):
        zel.check(f"refused: {bad}", 400, service.ask("POST", "/v1/enrichments", bad)[0])
    begin = time.monotonic()
    while time.monotonic() < begin + LIMIT:  # the agent's next flush is waited for
        got = zel.run("query", "--enrichments", "--key", key).stdout
        if b'"enrichments":[{"verdict": 1.50},{"note": "by hand"}]' in got:
            return
        time.sleep(0.2)
    zel.check("enrichments", "both", got)


def check_killed(zel):
    """An enrichment that was acknowledged outlives the service, which may not have given it to the store."""
    with Service(zel) as service:
        service.events([record(1)])
        service.await_stored()
        key = through(zel, service, "query", "--since", "2000-01-01", "--print-keys").stdout.decode().strip()
        zel.check("taken", 0, through(zel, service, "enrich", key, input=b'{"kept":1}').returncode)
        service.end(signal.SIGKILL)
    with Service(zel):
        pass
    rows = zel.rows("--object", "file", "--enrichments")
    zel.check("kept", [1], [row.count(b'{"kept":1}') for row in rows])


def check_lines(zel, service):
    document = json.dumps({"event_query": {"events": [{"begin_time": {"value": "2000-01-01T00:00:00.000Z"}}]}})
    status, body, _ = service.ask("POST", "/v1/query?limit=3", document)
    lines = [json.loads(line) for line in body.splitlines()]
    zel.check("lines", (200, 4, True, True), (status, len(lines), lines[-1]["end"], lines[-1]["truncated"]))
    everything, of_flags = "/v1/query?since=2000-01-01", (("action", "create"), ("grep", "ab"), ("user", "nobody-at-all"))
    for name, value in of_flags:
        flags = ("--since", "2000-01-01", "--duplicates", f"--{name}", value)
        body = service.ask("GET", f"{everything}&{name}={value}")[1]
        zel.check(name, sorted(zel.run("query", *flags).stdout.splitlines()), sorted(body.splitlines()[:-1]))
    zel.check("limit", (3, True), (lambda rows: (len(rows), json.loads(rows[-1])["truncated"]))(
        service.ask("GET", f"{everything}&target_path=*&limit=2")[1].splitlines()))
    for query, word in (("sinc=now", b"sinc"), ("since=never", b"since"), ("where=nonsense", b"where"),
                        ("action=fly", b"action"), ("limit=x", b"limit"), ("document={}&since=now", b"since")):
        status, body, _ = service.ask("GET", "/v1/query?" + query)
        zel.check(query, (400, True), (status, word in body))
    zel.check("no document", 400, service.ask("GET", "/v1/query")[0])
    zel.check("no JSON", 400, service.ask("POST", "/v1/query", "{")[0])
    zel.check("a method", 405, service.ask("DELETE", "/v1/query")[0])


def check_reader(zel, service):
    """Readers that wait, go and are interrupted; meanwhile events are taken in."""
    slow = [subprocess.Popen([zel.program, "--socket", service.socket, "query"], stdout=subprocess.PIPE,
                             stderr=subprocess.DEVNULL, env=zel.environment) for _ in range(3)]
    for process in slow:
        process.stdout.read(1)
    zel.check("taken in meanwhile", 20, service.events([record(n) for n in range(20)])["accepted"])
    slow[0].send_signal(signal.SIGINT)
    slow[1].stdout.close()
    zel.check("interrupted", 130, slow[0].wait(LIMIT))
    zel.check("nobody reads", 0, slow[1].wait(LIMIT))
    while service.status()["questions"]["running"] > 1:  # those of who has gone end
        time.sleep(0.02)
    whole = b"x" + slow[2].stdout.read()
    zel.check("read slowly", (0, True), (slow[2].wait(LIMIT), whole.endswith(b"}\n")))


def check_gone(zel, sample):
    """Who goes away before there is anything to answer leaves no question behind."""
    document = json.dumps({"event_query": {"events": [{"begin_time": {"value": "2000-01-01T00:00:00.000Z"}}]}})
    with Service(zel, questions_at_once=1, questions_buffer="1K") as service:
        service.events(sample)
        service.await_stored()
        slow, waits = Socket(service.socket), Socket(service.socket)
        for connection in (slow, waits):
            connection.request("POST", "/v1/query", document)
            while sum(service.status()["questions"][name] for name in ("running", "queued")) < 1 + (connection is waits):
                time.sleep(0.01)
        waits.close()
        until = time.time() + LIMIT
        while service.status()["questions"]["queued"] and time.time() < until:
            time.sleep(0.01)
        got = service.status()["questions"]
        zel.check("the other", (1, 0), (got["running"], got["queued"]))
        slow.close()


def check_rights(zel, service):
    """As somebody else, whom the socket's mode lets in."""
    os.chmod(zel.folder, 0o755)
    os.chmod(service.socket, 0o666)
    other = {"user": 65534, "group": 65534, "extra_groups": []}
    zel.check("reads", 0, through(zel, service, "query", "--limit", "1", **other).returncode)
    for command in (["enrich", "k"], ["purge", "--max-size", "0"]):
        got = through(zel, service, *command, **other, **({"input": b"1"} if command[0] == "enrich" else {}))
        zel.check(f"may not {command}", True, got.returncode in (2, 3))
    got = through(zel, service, "purge", "--max-size", "0", **other)
    zel.check("refused in words", (3, True), (got.returncode, b"may not" in got.stderr))


def main(program, sample):
    with Zel(program) as zel:
        check_killed(zel)
        check_gone(zel, sample)
        killed = zel.failures
    with Zel(program) as zel:
        with Service(zel) as service:
            zel.check("taken", len(sample), service.events(sample)["accepted"])
            service.await_stored()
            check_same(zel, service)
            check_lines(zel, service)
            check_enrichments(zel, service)
            check_reader(zel, service)
            if os.geteuid() == 0:
                check_rights(zel, service)
            purged = through(zel, service, "purge", "--max-size", "0", "-o", "json")
            zel.check("purged", (4, 0), (purged.returncode, len(json.loads(purged.stdout)["folders"])))
            service.process.send_signal(signal.SIGSTOP)
            for command in ("query", "info"):
                hung = subprocess.Popen([program, "--socket", service.socket, command], env=zel.environment,
                                        stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
                zel.check(f"{command} waits", True, is_waiting(hung))
                hung.send_signal(signal.SIGINT)
                zel.check(f"{command} is interrupted", True, hung.wait(LIMIT) in (3, 130))
            service.process.send_signal(signal.SIGCONT)
            asking = subprocess.Popen([program, "--socket", service.socket, "query"], stdout=subprocess.PIPE,
                                      stderr=subprocess.DEVNULL, env=zel.environment)
            asking.stdout.read(1)
            service.end(signal.SIGKILL)
            asking.stdout.read()
            zel.check("the agent has gone", 3, asking.wait(LIMIT))
            zel.check("and does not come", 3, through(zel, service, "query").returncode)
        return zel.failures + killed


sys.exit(main(sys.argv[1], read_records(sys.argv[2])) != 0)
