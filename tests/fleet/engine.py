"""A ClickHouse for the tests of the fleet: a server of its own on loopback, with a folder that goes with it.

Which one: the distribution's server with examples/fleet/ ("server"); the engine as a library behind a small server that is
not part of this repository ("modern"): ZEL_FLEET_SHIM names its program and ZEL_FLEET_CHDB the node_modules with chdb; or
one that runs already ("given"), at ZEL_FLEET_URL. A test that finds none ends with 77 and a word."""
import base64
import fcntl
import os
import random
import shutil
import signal
import subprocess
import sys
import tempfile
import time
import urllib.error
import urllib.parse
import urllib.request

LIMIT = 60  # seconds that nothing may take
EXAMPLES = os.path.join(os.path.dirname(os.path.abspath(__file__)), "../../examples/fleet")
SERVER = shutil.which("clickhouse-server", path=os.environ.get("PATH", "") + ":/usr/sbin:/usr/bin")


class Refused(Exception):
    """The server's answer to a statement, where that is an error."""


def kinds():
    """What is there; `ZEL_FLEET_ENGINES=modern,server` narrows it."""
    shim = os.environ.get("ZEL_FLEET_SHIM", "")
    chdb = os.environ.get("ZEL_FLEET_CHDB", "")
    there = {"given": "ZEL_FLEET_URL" in os.environ, "server": bool(SERVER),
             "modern": os.path.exists(shim) and os.path.exists(os.path.join(chdb, "chdb"))}
    wanted = os.environ.get("ZEL_FLEET_ENGINES", "given,server,modern").split(",")
    return [kind for kind in wanted if there.get(kind)]


def only_kind():
    """The first of them; where there is none, the test is skipped."""
    found = kinds()
    if not found:
        print("skipped: no clickhouse-server, no ZEL_FLEET_SHIM with ZEL_FLEET_CHDB, no ZEL_FLEET_URL")
        sys.exit(77)
    return found[0]


class Engine:
    """`url` is what zel --fleet takes: a database of the test's own. `arguments` go to the engine's command line."""

    def __init__(self, kind=None, arguments=()):
        self.kind, self.arguments = kind or only_kind(), list(arguments)
        self.folder = tempfile.mkdtemp(prefix="zel-fleet-")
        self.process = self.lock = None
        self.database = f"zel_{os.getpid()}_{random.randrange(10**9)}"
        self.base = os.environ.get("ZEL_FLEET_URL", "").rstrip("/")
        self.user = ("default", "")
        try:
            if self.kind == "given":
                parts = urllib.parse.urlsplit(self.base)
                self.user = (parts.username or "default", os.environ.get("ZEL_FLEET_PASSWORD", ""))
                self.base = f"{parts.scheme}://{parts.hostname}:{parts.port or 8123}"
            else:
                self.reserve_port()
                self.start()
            self.sql(f"CREATE DATABASE {self.database}", database=None)
        except BaseException:
            self.close()
            raise
        self.url = self.as_user(None if self.user[0] == "default" else self.user[0])
        self.version = self.sql("SELECT version()").strip()

    def as_user(self, name):
        scheme, _, address = self.base.partition("://")
        return f"{scheme}://{name + '@' if name else ''}{address}/{self.database}"

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.close()

    def reserve_port(self):
        """Below those that the system gives away, and kept through restarts."""
        while True:
            self.port = random.randrange(20000, 32000)
            self.lock = open(os.path.join(tempfile.gettempdir(), f"zel-fleet-port-{self.port}"), "w", encoding="ascii")
            try:
                fcntl.flock(self.lock, fcntl.LOCK_EX | fcntl.LOCK_NB)
            except OSError:
                self.lock.close()
                continue
            self.base = f"http://127.0.0.1:{self.port}"
            return

    def command(self):
        data = os.path.join(self.folder, "data")
        if self.kind == "modern":
            return ["node", os.environ["ZEL_FLEET_SHIM"], "--data", data, "--port", str(self.port), *self.arguments]
        places = {"http_port": self.port, "path": data + "/", "tmp_path": data + "/tmp/", "user_files_path": data + "/files/",
                  "logger.log": data + ".log", "logger.errorlog": data + ".err"}
        return [SERVER, f"--config-file={EXAMPLES}/config.xml", "--",
                *[f"--{name}={value}" for name, value in places.items()], *self.arguments]

    def start(self):
        environment = {k: v for k, v in os.environ.items() if "SAN_OPTIONS" not in k}
        environment["NODE_PATH"] = os.environ.get("ZEL_FLEET_CHDB", "")
        if "ZEL_FLEET_LIBRARIES" in environment:  # of a server that is not installed but unpacked
            environment["LD_LIBRARY_PATH"] = environment["ZEL_FLEET_LIBRARIES"]
        with open(os.path.join(self.folder, "out"), "ab") as out:
            self.process = subprocess.Popen(self.command(), stdout=out, stderr=out, env=environment, cwd=self.folder)
        until = time.monotonic() + LIMIT
        while True:
            time.sleep(0.05)
            try:
                with urllib.request.urlopen(self.base + "/ping", timeout=LIMIT) as answer:
                    answered = answer.read().startswith(b"Ok.")
            except OSError:
                answered = False
            if self.process.poll() is not None or time.monotonic() > until:
                with open(os.path.join(self.folder, "out"), encoding="utf-8", errors="replace") as out:
                    raise RuntimeError(f"{self.kind} did not start: {out.read()[-2000:]}")
            if answered:
                return

    def end(self, how=signal.SIGTERM):
        """As a crash does with SIGKILL; `start` brings it back with what it has kept."""
        if self.process and self.process.poll() is None:
            self.process.send_signal(how)
            try:
                self.process.wait(LIMIT)
            except subprocess.TimeoutExpired:
                self.process.kill()
                self.process.wait(LIMIT)

    def close(self):
        if self.kind == "given":
            self.sql(f"DROP DATABASE IF EXISTS {self.database}", database=None)
        self.end(signal.SIGKILL)
        if self.lock:
            os.unlink(self.lock.name)
            self.lock.close()
        shutil.rmtree(self.folder, ignore_errors=True)

    def sql(self, statement, body=None, database="", settings=None):
        """The answer to a statement; the rows of an INSERT are its body."""
        query = dict(settings or {})
        if database is not None:
            query["database"] = database or self.database
        if body is not None:
            query["query"] = statement
        given = (statement if body is None else body).encode() if not isinstance(body, bytes) else body
        request = urllib.request.Request(f"{self.base}/?{urllib.parse.urlencode(query)}", given)
        request.add_header("Authorization", "Basic " + base64.b64encode(":".join(self.user).encode()).decode())
        try:
            with urllib.request.urlopen(request, timeout=LIMIT) as answer:
                return answer.read().decode(errors="replace")
        except urllib.error.HTTPError as error:
            raise Refused(error.read().decode(errors="replace")) from None
