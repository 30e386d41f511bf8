"""zel serve as its peers meet it.

serve.py ZEL SAMPLE RAW EVENTLOG
"""
import base64
import gzip
import http.client
import json
import lzma
import os
import signal
import socket
import subprocess
import sys
import time

sys.path.insert(0, os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "zel"))
from agentprocess import LIMIT, Service, Socket, free_port, holds, run_checks  # noqa: E402
from zelcommand import processor_time, read_records  # noqa: E402


def check_forms(zel, sample, raw, event_log):
    """Every format, packed and not; what is wrong is told by its line; a stop leaves all in the store."""
    with Service(zel) as service:
        zel.check("records", {"accepted": len(sample), "duplicate": 0, "rejected": 0, "errors": []}, service.events(sample))
        zel.check("mixed", 2, service.events([sample[0], b"", b"nonsense", raw[0]])["accepted"])
        zel.check("its line", 3, service.events([sample[0], b"", b"nonsense", raw[0]])["errors"][0]["line"])
        for what, body, headers in (
                ("gzip", gzip.compress(b"\n".join(raw)), {"Content-Encoding": "gzip"}),
                ("array", b"[" + b",".join(raw) + b"]", {}), ("event log", event_log, {})):
            zel.check(what, 200, service.ask("POST", "/v1/events", body, headers)[0])
        chunked = service.ask("PUT", "/v1/events", iter([sample[1] + b"\n", sample[2]]))
        zel.check("chunked", 2, json.loads(chunked[1])["accepted"])
        lines = [b'{"index":{}}', b"", b'{"create":{"_index":"e","_id":"1"}}', sample[0], b"", b'{"index":{"_index":"e","_id":"1"}}', sample[0],
                 b'{"index":{}}', b"bad", b'{"update":{"_id":"2"}}', b"{}", b'{"index":{"op_type":"create","_index":"e"}}', sample[1]]
        for expected in ([400, 201, 200, 400, 400, 201], [400, 409, 200, 400, 400, 201]):
            status, body, answer = service.ask("POST", "/_bulk", b"\n".join(lines))
            got = [list(item.values())[0]["status"] for item in json.loads(body)["items"]]
            zel.check("bulk", (200, expected, "Elasticsearch"), (status, got, answer.getheader("X-Elastic-Product")))
        zel.check("no action", 400, service.ask("POST", "/_bulk", b"what\n")[0])
        log = {"resourceLogs": [{"scopeLogs": [{"logRecords": [
            {"body": {"stringValue": sample[3].decode()}}, {"body": {"stringValue": "no event"}}]}]}]}
        status, body, _ = service.ask("POST", "/v1/logs", json.dumps(log), {"Content-Type": "application/json"})
        zel.check("otlp", (200, "1"), (status, json.loads(body)["partialSuccess"]["rejectedLogRecords"]))
        zel.check("protobuf", 415, service.ask("POST", "/v1/logs", b"x", {"Content-Type": "application/x-protobuf"})[0])
        state = service.status()
        zel.check("ledger", (True, 2), (holds(state["ledger"]), state["duplicate"] - 1))
        shown = subprocess.run([zel.program, "--socket", service.socket, "status", "-o", "table"], check=False,
                               stdout=subprocess.PIPE, env=zel.environment).stdout.decode()
        zel.check("status", True, "ledger.accepted" in shown and "ready:" in shown)
        service.await_stored()  # then ask for a part: who has enough is no failure that the end would tell
        everything = '{"event_query":{"events":[{"begin_time":{"value":"2000-01-01T00:00:00.000Z"}}]}}'
        zel.check("a part", 4, service.ask("POST", "/v1/query?limit=3", everything)[1].count(b"\n"))
        zel.check("an event", 2, service.ask("GET", "/v1/follow?limit=1&position=2000-01-01T00:00:00.000Z")[1].count(b"\n"))
        service.await_word("WATCHDOG=1")
    service.await_word("STOPPING=1")
    zel.check("end", 0, service.process.returncode)
    expected = set(zel.run("ingest", "--keys-only", "--keep-unmapped", given=b"\n".join(sample)).stdout.split(b"\n"))
    zel.check("all records", set(), expected - set(zel.rows("--since", "2000-01-01", "--print-keys")) - {b""})


def check_bounds(zel, sample):
    """Large, slow and foreign peers cost nobody else anything."""
    bomb = gzip.compress(b" " * (3 << 20))
    with Service(zel, http_inflated_size="1M", http_body_size="1M", http_header_time=1, http_connections=8,
                 intake_line_size="2K", intake_items=3) as service:
        zel.check("bomb", 413, service.ask("POST", "/v1/events", bomb, {"Content-Encoding": "gzip"})[0])
        zel.check("length", 413, service.ask("POST", "/v1/events", None, {"Content-Length": "2000000"})[0])
        zel.check("encoding", 415, service.ask("POST", "/v1/events", b"x", {"Content-Encoding": "br"})[0])
        zel.check("long line", 1, service.events([sample[0], b"x" * 3000])["rejected"])
        for what, expected, arguments in (
                ("host", 421, ("GET", "/", None, {"Host": "evil"})), ("page", 403, ("GET", "/", None, {"Origin": "http://x"})),
                ("unknown", 404, ("GET", "/_search")), ("method", 405, ("DELETE", "/metrics")),
                ("set up", 400, ("PUT", "/_ilm/policy/x", b"{}")), ("life", 200, ("GET", "/healthz")), ("ping", 200, ("HEAD", "/")),
                ("many bad lines", 413, ("POST", "/v1/events", b"x\n" * 4)), ("many", 413, ("POST", "/v1/events", b"\n".join(sample[:4]))),
                ("many members", 413, ("POST", "/v1/events", b"[" + b"1," * 4 + b"1]")),
                ("broken array", 400, ("POST", "/v1/enrichments", b"[1,")), ("many actions", 413, ("POST", "/_bulk", b'{"index":{}}\nx\n' * 4)), ("no body", 413, ("GET", "/healthz", b"x")),
                ("long key", 400, ("POST", "/v1/events", b"x", {"Idempotency-Key": "k" * 513})),
                ("two lengths", 400, ("POST", "/v1/events", b"x", {"Transfer-Encoding": "chunked", "Content-Length": "1"}))):
            zel.check(what, expected, service.ask(*arguments)[0])
        slow = [Socket(service.socket) for _ in range(30)]
        for peer in slow:
            peer.connect()
            peer.sock.sendall(b"POST /v1/events HTTP/1.1\r\nHos")
        zel.check("meanwhile", 1, service.events(sample[:1])["accepted"])
        refused = [Socket(service.socket) for _ in range(8)]
        for peer in refused:
            peer.request("GET", "/", None, {"Host": "evil", "Content-Length": "9"})
            peer.getresponse().read()
        zel.check("beside those who were refused and stay", 200, service.ask("GET", "/healthz")[0])
        zel.check("half heads end", {b""}, {end_of(peer.sock) for peer in slow})


def end_of(peer):
    try:
        return peer.recv(1)
    except ConnectionResetError:
        return b""


def check_port(zel, sample):
    port = free_port()
    write, read = "w" * 43, "r" * 43
    for name, token in (("write", write), ("read", read)):
        with open(os.path.join(zel.folder, name), "w", encoding="utf-8") as file:
            file.write(token + "\n")
    basic = base64.b64encode(f"any:{write}".encode()).decode()
    with Service(zel, http_port=port, http_write_token_file=zel.folder + "/write",
                 http_read_token_file=zel.folder + "/read") as service:
        for sign, writes, reads in (("", 401, 401), ("Bearer " + write, 200, 401), ("Basic " + basic, 200, 401),
                                    ("ApiKey " + basic, 200, 401), ("Bearer " + read, 401, 200), ("Bearer x", 401, 401)):
            headers = {"Authorization": sign} if sign else {}
            got = [service.ask(*what, headers, http.client.HTTPConnection("127.0.0.1", port, timeout=LIMIT))[0]
                   for what in (("POST", "/v1/events", sample[0]), ("GET", "/v1/status", None))]
            zel.check(sign[:8], [writes, reads], got)
        began = time.monotonic()
        for _ in range(12):
            service.ask("GET", "/metrics", None, {}, http.client.HTTPConnection("127.0.0.1", port, timeout=LIMIT))
        zel.check("who tries tokens waits", True, time.monotonic() - began >= 1)


def check_room(zel, sample):
    """Without room nothing is taken and every sender hears what makes it wait; a full spool is only slow."""
    with Service(zel, store_stop_below="1000T", spool_hold=0) as service:
        zel.check("events", 503, service.events(sample[:1]))
        zel.check("bulk", True, service.is_cut("POST", "/_bulk", b'{"index":{}}\n' + sample[0]))
        zel.check("health", True, service.is_cut("GET", "/_cat/health"))
        zel.check("readiness", (503, ["disk full"]), (service.ask("GET", "/readyz")[0], service.status()["degraded"]))
    with Service(zel, spool_max_size="1M", spool_hold=60) as service:
        zel.check("full, then taken", [len(sample)] * 2, [service.events(sample)["accepted"] for _ in range(2)])
        zel.check("ledger", True, holds(service.status()["ledger"]))


def check_purge(zel, sample):
    zel.run("ingest", given=b"\n".join(sample))
    today = next(name for name in os.listdir(zel.store) if name.isdigit())
    os.rename(os.path.join(zel.store, today), os.path.join(zel.store, "20200101"))
    with Service(zel, store_max_size="1M", store_purge_every=1) as service:
        while not service.status()["store"]["purged_folders"]:
            time.sleep(0.1)
    zel.check("oldest folder", False, os.path.exists(os.path.join(zel.store, "20200101")))


def check_descriptors(zel):
    """Out of descriptors it waits, rather than trying without a pause, and serves again when there are some."""
    with Service(zel, prefix=("prlimit", "--nofile=96"), http_connections=200, http_idle_time=3600) as service:
        peers = [Socket(service.socket) for _ in range(110)]
        for peer in peers:
            peer.connect()
        time.sleep(0.5)
        before = processor_time(service.process.pid)
        time.sleep(2)
        zel.check("a processor taken in vain", True, processor_time(service.process.pid) - before < 0.3)
        for peer in peers:
            peer.close()
        zel.check("serves again", 200, service.ask("GET", "/v1/status")[0])


def check_socket(zel):
    """A socket that another service has put in place of a lost one is left to it."""
    with Service(zel) as service:
        os.unlink(service.socket)
        with socket.socket(socket.AF_UNIX) as other:
            other.bind(service.socket)
            zel.check("end", 0, service.end(signal.SIGTERM))
            zel.check("the other's socket", True, os.path.exists(service.socket))


def main():
    sample, raw = read_records(sys.argv[2]), read_records(sys.argv[3])
    event_log = lzma.open(sys.argv[4]).read()
    return run_checks((check_forms, sample, raw, event_log), (check_bounds, sample), (check_port, sample), (check_room, sample),
                      (check_purge, sample), check_descriptors, check_socket)


if __name__ == "__main__":
    sys.exit(main())
