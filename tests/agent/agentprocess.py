"""zel serve as a process, for all tests that talk to it: its configuration, its requests, its end."""
import http.client
import json
import os
import signal
import socket
import subprocess
import sys
import threading
import time

from zelcommand import Zel

LIMIT = 60  # seconds that nothing may take


class Socket(http.client.HTTPConnection):
    def __init__(self, path):
        super().__init__("localhost", timeout=LIMIT)
        self.path = path

    def connect(self):
        self.sock = socket.socket(socket.AF_UNIX)
        self.sock.settimeout(LIMIT)
        self.sock.connect(self.path)


class Service:
    """One service on the store of `zel`, with a configuration; ends with the block. `prefix` is what starts it, if that
    is not the program itself."""

    def __init__(self, zel, prefix=(), ready=True, inherited=(), **settings):
        self.zel, self.socket = zel, os.path.join(zel.folder, "s")
        self.notify = socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM)
        name = os.path.join(zel.folder, "notify")
        if os.path.exists(name):
            os.unlink(name)
        self.notify.bind(name)
        config = {"store": {"path": zel.store}, "spool": {"path": zel.folder + "/spool"}, "http": {"socket": self.socket}}
        for key, value in settings.items():
            section, _, name_of = key.partition("_")
            config.setdefault(section, {})[name_of] = value
        self.file = os.path.join(zel.folder, "zel.toml")
        with open(self.file, "w", encoding="utf-8") as file:
            for section, keys in config.items():
                file.write(f"[{section}]\n" + "".join(f"{k} = {json.dumps(v)}\n" for k, v in keys.items()))
        self.log = os.path.join(zel.folder, "log")
        with open(self.log, "ab") as log:
            self.process = subprocess.Popen(
                [*prefix, zel.program, "serve", "--config", self.file], stderr=log, pass_fds=inherited,
                env=dict(zel.environment, ZEL_SOCKET=self.socket, NOTIFY_SOCKET=name, WATCHDOG_USEC="3000000"))
        self.told = []
        threading.Thread(target=self.hear, daemon=True).start()
        if ready:
            self.await_word("READY=1")

    def hear(self):
        with self.notify:
            while word := self.notify.recv(4096).decode():
                self.told.append(word)

    def await_word(self, word):
        until = time.time() + LIMIT
        while word not in self.told and time.time() < until and (self.process.poll() is None or word == "STOPPING=1"):
            time.sleep(0.01)
        self.zel.check(f"{word} in time", True, word in self.told)

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.end(signal.SIGTERM)

    def end(self, how):
        if self.process.poll() is not None:
            return self.process.returncode
        self.process.send_signal(how)
        code = self.process.wait(LIMIT)
        self.notify.shutdown(socket.SHUT_RD)  # what has been told is still heard
        return code

    def ask(self, method, path, body=None, headers=None, connection=None):
        connection = connection or Socket(self.socket)
        connection.request(method, path, body, headers or {})
        answer = connection.getresponse()
        return answer.status, answer.read(), answer

    def events(self, lines, **headers):
        status, body, _ = self.ask("POST", "/v1/events", b"\n".join(lines), headers)
        return json.loads(body) if status == 200 else status

    def status(self):
        return json.loads(self.ask("GET", "/v1/status")[1])

    def await_stored(self):
        while self.status()["ledger"]["waiting"] != 0:
            time.sleep(0.05)

    def await_count(self, name, count):
        """Until the ledger counts so many; what a client brings meanwhile is its affair."""
        until = time.time() + 2 * LIMIT
        while self.ledger()[name] < count and time.time() < until:
            time.sleep(0.01)

    def ledger(self):
        """Of what was brought: the service's own notices are left out of what was accepted."""
        state = self.status()
        return dict(state["ledger"], accepted=state["ledger"]["accepted"] - state["notices"])

    def is_cut(self, method, path, body=None):
        try:
            self.ask(method, path, body)
        except (http.client.RemoteDisconnected, ConnectionResetError, BrokenPipeError):
            return True
        return False


def run_checks(*checks):
    """Each check with a store of its own, and what else it takes: a function, or one with its arguments. The program's exit code."""
    failures = 0
    for check, *arguments in (one if isinstance(one, tuple) else (one,) for one in checks):
        with Zel(sys.argv[1]) as zel:
            began = time.time()
            check(zel, *arguments)
            failures += zel.failures
            print(f"{check.__name__}: {time.time() - began:.1f} s", flush=True)
    return 1 if failures else 0


def holds(ledger):
    return ledger["accepted"] == ledger["stored"] + ledger["waiting"] + ledger["lost"] + ledger["purged"]


def record(number):
    return (b'{"artifacts":{"target":{"object_type":"file","path":{"value":["C:\\\\%d"]}}},"action":["create"],'
            b'"begin_time":{"value":"2026-11-12T10:00:00.000Z"},"seq_num":%d}' % (number, number))


def free_port():
    with socket.socket() as probe:
        probe.bind(("127.0.0.1", 0))
        return probe.getsockname()[1]
