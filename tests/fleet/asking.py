"""A question to servers that fail, are slow or talk nonsense, and what of a command line is no question to a fleet.

asking.py ZEL
"""
import http.server
import json
import signal
import subprocess
import sys
import threading

from zelcommand import Zel

LIMIT = 60  # seconds that nothing may take


def row(number):
    return json.dumps({"host": "h", "key": f"p<begin_time>{number}", "event": '{"n":%d}' % number, "part": 0,
                       "begin_time": f"2026-01-01T00:00:00.00{number}Z", "sequence": number, "receive_ms": 1,
                       "receive_no": 1}).encode() + b"\n"


class Server(http.server.ThreadingHTTPServer):
    """Gives one answer after the other: (status, body, whether it ends as announced)."""
    daemon_threads = True

    def __init__(self, answers, has_version=True):
        super().__init__(("127.0.0.1", 0), Handler)
        self.has_version = has_version
        self.answers, self.asked, self.left = list(answers), [], threading.Event()
        threading.Thread(target=self.serve_forever, daemon=True).start()

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.shutdown()
        self.server_close()


class Handler(http.server.BaseHTTPRequestHandler):
    def log_message(self, *_):
        pass

    def do_POST(self):
        asked = self.rfile.read(int(self.headers["Content-Length"])).decode()
        if asked == "SELECT version()" and self.server.has_version:
            status, body, is_whole = 200, b"18.16.1\n", True
        else:
            self.server.asked.append(asked)
            status, body, is_whole = self.server.answers.pop(0)
        self.send_response(status)
        self.send_header("Content-Length", str(len(body) + (0 if is_whole else 1)))
        self.end_headers()
        self.wfile.write(body)
        self.wfile.flush()
        if is_whole is None:  # silent until the other side has gone
            self.connection.settimeout(LIMIT)
            if not self.connection.recv(1):
                self.server.left.set()
        self.close_connection = True


FAULT = b"Code: 395, e.displayText() = DB::Exception: a fault\n"
BUSY = (500, b"Code: 202, e.displayText() = DB::Exception: Too many simultaneous queries\n", True)
REFUSED = (500, b"Code: 60, e.displayText() = DB::Exception: no table\n", True)


def faults(zel):
    rows = [row(n) for n in range(1, 5)]
    cases = [  # what it answers, what is printed, the end, what is told
        ("whole", [(200, b"".join(rows), True)], 4, 0, b""),
        ("nothing", [(200, b"", True)], 0, 1, b""),
        ("broken off, then the rest", [(200, rows[0] + rows[1] + rows[2][:9], False), (200, rows[2] + rows[3], True)], 4, 0, b""),
        ("busy, then not", [BUSY, BUSY, (200, b"".join(rows), True)], 4, 0, b""),
        ("busy", [BUSY] * 9, 0, 3, b"Too many simultaneous queries"),
        ("a fault behind rows", [(200, rows[0] + FAULT, True)] + [(200, FAULT, True)] * 9, 1, 3, b"a fault"),
        ("a refusal", [REFUSED], 0, 3, b"no table"),
        ("a line that is no row", [(200, rows[0] + b'{"host":"h"}\n', True)], 1, 3, b"does not answer as one does"),
        ("no rows", [(200, b"<html>\n", True)], 0, 3, b"<html>"),
        ("other: another service", [(200, b"<html>\n", True)], 0, 3, b"does not answer as such a server does"),
        ("other: nothing there", [(404, b"not here\n", True)], 0, 3, b"not here"),
    ]
    for name, answers, printed, end, told in cases:
        with Server(answers, not name.startswith("other")) as server:
            done = subprocess.run([zel.program, "query", "--fleet", f"http://127.0.0.1:{server.server_port}", "--since", "2026-01-01"],
                                  capture_output=True, env=zel.environment, timeout=LIMIT)
            events = [json.loads(line)["n"] for line in done.stdout.splitlines()]
            zel.check(f"{name}: rows", list(range(1, printed + 1)), events)
            zel.check(f"{name}: {done.stderr}", (end, True), (done.returncode, told in done.stderr))
            if name.startswith("broken off"):
                zel.check("goes on behind the last row", True, "00.002Z" in server.asked[1])


def ends(zel):
    """A question that nobody waits for any more ends at the server too."""
    for how, end in ((signal.SIGINT, 130), (signal.SIGTERM, 130)):
        with Server([(200, row(1), None)]) as server:
            with subprocess.Popen([zel.program, "query", "--fleet", f"http://127.0.0.1:{server.server_port}"],
                                  stdout=subprocess.PIPE, stderr=subprocess.DEVNULL, env=zel.environment) as asking:
                zel.check("the first row at once", 1, json.loads(asking.stdout.readline())["n"])
                asking.send_signal(how)
                zel.check("ended", end, asking.wait(LIMIT))
            zel.check("the server is left", True, server.left.wait(LIMIT))


def refusals(zel):
    there = "http://127.0.0.1:1"
    cases = [
        (["info", "--fleet", there], 2, b"a fleet is asked by query, sql and hunt; info is for one store"),
        (["tree", "1", "--fleet", there], 2, b"tree is for one store"),
        (["query", "--fleet", "ftp://x"], 2, b"--fleet: "),
        (["query", "--fleet", "http://me:secret@x"], 2, b"--fleet: "),
        (["query", "--host", "h", "--store", zel.store], 2, b"go with --fleet"),
        (["query", "--fleet", there, "--store", zel.store], 2, b"names a fleet"),
        (["query", "--fleet", there, "--fleet-password", "/no/such/file"], 2, b"/no/such/file"),
        (["query", "--fleet", there, "--by", "receive"], 2, b"name it with --host"),
        (["query", "--fleet", there, "--where", "host = h"], 2, b"--host asks for one"),
        (["query", "--fleet", there, "--pattern", "(?=a).*"], 2, b"the fleet can't test (?="),
        (["hunt", "-", "--enrich", "--fleet", there], 3, b"is only asked"),
        (["query", "--fleet", there], 3, b"127.0.0.1:1"),
        (["sql", "select count(*) from events", "--fleet", there], 4, b"127.0.0.1:1"),
    ]
    rule = b"title: t\nlogsource: {product: windows, category: process_creation}\ndetection: {s: {Image: a}, condition: s}\n"
    for arguments, end, told in cases:
        done = subprocess.run([zel.program, *arguments], input=rule, capture_output=True, env=zel.environment, timeout=LIMIT)
        zel.check(f"{arguments}: {done.stderr}", (end, True, False),
                  (done.returncode, told in done.stderr, b"secret" in done.stderr))
    named = dict(zel.environment, ZEL_FLEET=there)
    done = subprocess.run([zel.program, "query"], capture_output=True, env=named, timeout=LIMIT)
    zel.check("the environment's fleet", (3, True), (done.returncode, b"127.0.0.1:1" in done.stderr))
    done = subprocess.run([zel.program, "info"], capture_output=True, env=named, timeout=LIMIT)
    zel.check("is for those who ask one", False, b"127.0.0.1:1" in done.stderr)


with Zel(sys.argv[1]) as zel:
    faults(zel)
    ends(zel)
    refusals(zel)
    sys.exit(zel.failures != 0)
