"""rsyslog and syslog-ng bring a file of events, while the service is killed, goes away and has no room.

shippers.py ZEL SAMPLE
"""
import signal

from clients import (PortService, TOKEN, check_stored, ended, find, folder_of, free_port, json, os, run_checks, start,
                     sys, time)

RSYSLOG = """global(workDirectory="{folder}" maxMessageSize="64k")
module(load="imfile") module(load="omelasticsearch")
template(name="raw" type="string" string="%msg%")
template(name="id" type="string" string="%$!metadata!filename%-%$!metadata!fileoffset%")
input(type="imfile" file="{input}" tag="ev" addMetadata="on" ruleset="zel")
ruleset(name="zel") {{ action(type="omelasticsearch" server="127.0.0.1" serverport="{port}"
  template="raw" searchIndex="events" bulkmode="on" uid="zel" pwd="{token}"
  writeoperation="create" bulkid="id" dynbulkid="on" errorfile="{folder}/refused.json"
  action.resumeRetryCount="-1" action.resumeInterval="1"
  queue.type="LinkedList" queue.size="10000" queue.dequeueBatchSize="64" {queue}) }}
"""
SYSLOG_NG = """@version: 3.38
options {{ log-msg-size(65536); }};
source s {{ file("{input}" flags(no-parse) follow-freq(1)); }};
destination d {{ http(url("http://127.0.0.1:{port}{path}") method("POST")
  headers("Content-Type: application/x-ndjson", "Authorization: Bearer {token}")
  body("{body}") delimiter("\\n") batch-lines(100) batch-bytes(1Mb) batch-timeout(500) timeout(30) time-reopen(2)
  disk-buffer(mem-buf-size(1048576) disk-buf-size(268435456) reliable(yes) dir("{folder}"))); }};
log {{ source(s); destination(d); flags(flow-control); }};
"""


def configure(zel, text, lines, **values):
    """The configuration's file, and the folder of the shipper, which has its input."""
    folder = os.path.join(zel.folder, "shipper")
    os.makedirs(folder, exist_ok=True)
    values = {"folder": folder, "input": os.path.join(folder, "events.ndjson"), "token": TOKEN, **values}
    with open(values["input"], "wb") as file:
        file.write(b"\n".join(lines) + b"\n")
    with open(os.path.join(folder, "conf"), "w", encoding="utf-8") as file:
        file.write(text.format(**values))
    return file.name, folder


# With it events that are more than its memory holds come in another order; measured with 1,000 in memory.
DISK_QUEUE = 'queue.filename="zel" queue.maxDiskSpace="1g" queue.saveOnShutdown="on"'


def rsyslog(zel, lines, port, queue=DISK_QUEUE):
    conf, folder = configure(zel, RSYSLOG, lines, port=port, queue=queue)
    modules = folder_of("/usr/lib/*-linux-gnu/rsyslog")
    return start(zel, find("rsyslogd"), "-n", "-f", conf, "-i", folder + "/pid", "-M", modules)


def syslog_ng(zel, lines, port, path="/v1/events", body="${MESSAGE}"):
    conf, folder = configure(zel, SYSLOG_NG, lines, port=port, path=path, body=body)
    modules = folder_of("/usr/lib/syslog-ng/*.*")
    return start(zel, find("syslog-ng"), "-F", "-f", conf, "--no-caps", "--module-path", modules, "-R", folder + "/persist",
                 "-p", folder + "/pid", "-c", folder + "/ctl")


def killed_twice(zel, port, lines):
    """The service, after it was killed twice in the midst of what the shipper brings."""
    service = PortService(zel, port)
    for part in (4, 2):
        service.await_count("accepted", len(lines) // part)
        service.end(signal.SIGKILL)
        service = PortService(zel, port)
    return service


def refused_statuses(file):
    """What the items had that rsyslog counts as refused."""
    if not os.path.exists(file):
        return set()
    with open(file, encoding="utf-8") as text:
        return {item["create"]["status"] for line in text for item in json.loads(line)["reply"]["items"]} - {201}


def check_rsyslog(zel, lines):
    find("rsyslogd")
    with PortService(zel, free_port()) as service:
        shipper = rsyslog(zel, lines, service.port)
        check_stored(service, lines, shipper)
        status = service.status()
        zel.check("each once", (len(lines), 0), (service.ledger()["accepted"], status["duplicate"]))
        if b'"seq_num"' in lines[0]:  # rows of one moment stand by their numbers, by which the lines are sorted
            rows = zel.rows("--by", "receive", "--since", "2000-01-01")
            zel.check("in order", lines, [row.replace(b',"enriched_data":null', b"") for row in rows])
        ended(shipper)


def check_rsyslog_kills(zel, lines):
    find("rsyslogd")
    port = free_port()
    shipper = rsyslog(zel, lines, port)
    with killed_twice(zel, port, lines) as service:
        check_stored(service, lines, shipper)
        zel.check("once, by ids", len(lines), service.ledger()["accepted"])
        ended(shipper)


def check_rsyslog_away_and_full(zel, lines):
    find("rsyslogd")
    port = free_port()
    with PortService(zel, port) as service:
        shipper = rsyslog(zel, lines, port)
        service.await_count("accepted", len(lines) // 4)
    time.sleep(5)  # it is away
    with PortService(zel, port, store_stop_below="1000T", spool_hold=1) as service:
        time.sleep(10)  # it has no room
        asked = service.ask("GET", "/metrics")[1].decode()
        zel.check("nothing is taken", True, service.status()["degraded"] == ["disk full"] and "zel_http_requests_total" in asked)
    with PortService(zel, port) as service:
        check_stored(service, lines, shipper)
        refused = refused_statuses(zel.folder + "/shipper/refused.json")
        zel.check("refused as stored already alone", set(), refused - {409})
        ended(shipper)


def check_rsyslog_bad_lines(zel, lines):
    find("rsyslogd")
    mixed = [line for number, line in enumerate(lines) for line in ([line, b"{no event"] if number % 100 == 0 else [line])]
    with PortService(zel, free_port()) as service:
        shipper = rsyslog(zel, mixed, service.port)
        check_stored(service, lines, shipper)
        zel.check("told as rejected", len(mixed) - len(lines), service.status()["rejected"])
        ended(shipper)


def check_syslog_ng_kills(zel, lines):
    """The service is killed twice, the shipper once; a line that is no event stops nothing."""
    find("syslog-ng")
    port = free_port()
    mixed = lines[:500] + [b"{no event"] + lines[500:]
    service = PortService(zel, port)
    shipper = syslog_ng(zel, mixed, port)
    service.await_count("accepted", 200)
    shipper.kill()
    shipper.wait()
    service.end(signal.SIGKILL)
    shipper = syslog_ng(zel, mixed, port)
    with killed_twice(zel, port, mixed) as service:
        check_stored(service, lines, shipper)
        ended(shipper)


def check_syslog_ng_bulk(zel, lines):
    """As a bulk interface, with the empty lines that its delimiter makes between items."""
    find("syslog-ng")
    with PortService(zel, free_port()) as service:
        shipper = syslog_ng(zel, lines, service.port, "/_bulk", '{\\"index\\":{\\"_index\\":\\"events\\"}}\\n${MESSAGE}\\n')
        check_stored(service, lines, shipper)
        zel.check("each once", len(lines), service.ledger()["accepted"])
        ended(shipper)


if __name__ == "__main__":
    sys.exit(run_checks(*sys.argv[1:3], (check_rsyslog, check_rsyslog_kills, check_rsyslog_away_and_full, check_rsyslog_bad_lines,
                                         check_syslog_ng_kills, check_syslog_ng_bulk)))
