"""What the tests with real clients share: where a client is, what it sends, and what the store has to hold then."""
import glob
import json
import os
import shutil
import subprocess
import sys
import time

FOLDER = os.path.dirname(os.path.abspath(__file__))
sys.path[:0] = [os.path.join(FOLDER, "..", name) for name in ("agent", "zel")]
from agentprocess import LIMIT, Service, free_port  # noqa: E402
from zelcommand import Zel, read_records  # noqa: E402

# Where scripts/setup --services unpacks them.
CLIENTS = os.environ.get("ZEL_SERVICES", os.path.join(FOLDER, "..", "..", "build", "services"))
TOKEN = "t" * 43
COUNT = 2000


class Missing(Exception):
    """A client that is not there."""


def find(name):
    unpacked = glob.glob(f"{CLIENTS}/*/usr/*bin/{name}")
    found = unpacked[0] if unpacked else shutil.which(name, path=os.environ["PATH"] + ":/usr/sbin")
    if not found:
        raise Missing(f"{name} is not installed; scripts/setup --services brings it")
    return found


def folder_of(pattern):
    """One of an unpacked package, else of the system."""
    return next(iter(glob.glob(f"{CLIENTS}/*{pattern}") + glob.glob(pattern)), "")


def start(zel, *command, **options):
    """A client; what it says goes to the file clients, below the test's folder."""
    libraries = ":".join(glob.glob(f"{CLIENTS}/*/usr/lib/*-linux-gnu") + glob.glob(f"{CLIENTS}/*/usr/lib/syslog-ng"))
    environment = {**zel.environment, "LD_LIBRARY_PATH": libraries, **options.pop("env", {})}
    with open(os.path.join(zel.folder, "clients"), "ab") as log:
        return subprocess.Popen(command, env=environment, stdin=subprocess.DEVNULL,
                                **{"stdout": log, "stderr": log, **options})


def ended(process):
    process.terminate()
    try:
        process.wait(LIMIT)
    except subprocess.TimeoutExpired:
        process.kill()
        process.wait()


class PortService(Service):
    """One that shippers reach by a port, with TOKEN for all rights that a port has."""

    def __init__(self, zel, port, **settings):
        token = os.path.join(zel.folder, "token")
        with open(token, "w", encoding="utf-8") as file:
            file.write(TOKEN + "\n")
        super().__init__(zel, http_port=port, http_write_token_file=token, http_read_token_file=token, **settings)
        self.port = port


def differences(zel, lines):
    """Some of what the store lacks, and of what nobody sent."""
    made = zel.run("ingest", "--keys-only", "--keep-unmapped", given=b"\n".join(lines)).stdout.splitlines()
    stored = set(zel.rows("--since", "2000-01-01", "--print-keys"))
    stored -= set(zel.rows("--object", "etw", "--grep", '"gap":', "--print-keys"))  # of the service itself
    return sorted(set(made) - stored)[:3], sorted(stored - set(made))[:3]


def check_stored(service, lines, client):
    """All lines come, in the end, and nothing else."""
    until, got = time.time() + 2 * LIMIT, None
    while got != ([], []) and time.time() < until and service.process.poll() is None and client.poll() in (None, 0):
        service.await_count("accepted", len(lines))
        service.await_stored()
        got = differences(service.zel, lines)
    service.zel.check("lacking, and sent by nobody", ([], []), got)


def run_checks(zel_program, sample, checks):
    """Each check gets a store and the lines; one whose client is missing says so. The program's exit code."""
    raw = os.path.join(os.environ.get("ZEL_SOURCE_SAMPLES", ""), "raw_sample.ndjson.xz")
    lines = read_records(raw) if os.path.exists(raw) else sorted(read_records(sample), key=lambda line: json.loads(line)["seq_num"])
    lines = lines[:COUNT]
    failures = skipped = 0
    for check in checks:
        if len(sys.argv) > 3 and check.__name__[6:] not in sys.argv[3:]:
            continue
        with Zel(os.path.abspath(zel_program)) as zel:
            began, word = time.time(), "good"
            try:
                check(zel, lines)
            except Missing as missing:
                skipped, word = skipped + 1, f"skipped: {missing}"
            if zel.failures:
                word = "FAILED; what was said: " + " ".join(tail(zel.folder, name) for name in ("log", "clients"))
            failures += zel.failures
            print(f"{check.__name__[6:]}: {word}, {time.time() - began:.1f} s", flush=True)
    return 1 if failures else 77 if skipped == len(checks) else 0


def tail(folder, name):
    try:
        with open(os.path.join(folder, name), encoding="utf-8", errors="replace") as file:
            return file.read()[-1500:]
    except OSError:
        return ""


__all__ = ["CLIENTS", "FOLDER", "LIMIT", "Missing", "PortService", "Service", "TOKEN", "check_stored", "ended", "find",
           "folder_of", "free_port", "glob", "json", "os", "run_checks", "start", "subprocess", "sys", "time"]
