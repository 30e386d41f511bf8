"""Programs in JavaScript bring events: the clients 7, 8 and 9 of Elasticsearch, pino, and the OTLP exporters.

scripts.py ZEL SAMPLE
"""
from clients import (CLIENTS, FOLDER, LIMIT, Missing, PortService, TOKEN, check_stored, find, free_port, json, os, run_checks,
                     start, subprocess, sys, time)


def node(zel, script, *arguments, **options):
    if not os.path.isdir(CLIENTS + "/node_modules"):
        raise Missing("the clients in JavaScript are not there; scripts/setup --services brings them")
    return start(zel, find("node"), os.path.join(FOLDER, script), *arguments,
                 env={"NODE_PATH": CLIENTS + "/node_modules", "LD_LIBRARY_PATH": ""}, **options)


def put(zel, lines):
    with open(os.path.join(zel.folder, "lines"), "wb") as file:
        file.write(b"\n".join(lines))
    return file.name


def told(process):
    """What a client printed, once it has ended well."""
    text, _ = process.communicate(timeout=3 * LIMIT)
    return json.loads(text) if process.returncode == 0 else {"ended with": process.returncode}


def check_elasticsearch(zel, lines):
    lines, file, counts = lines[:500], put(zel, lines[:500]), []
    with PortService(zel, free_port()) as service:
        for module, target, compression in (("es7", None, True), ("es8", None, False), ("es9", None, True), ("es9", service.socket, False)):
            service.end(15)
            os.system(f"rm -rf {zel.store} {zel.folder}/spool")
            service = PortService(zel, service.port)
            client = node(zel, "es.js", module, target or f"http://127.0.0.1:{service.port}", TOKEN, file,
                          json.dumps({"compression": compression}), stdout=subprocess.PIPE)
            got = told(client)
            first, second = ({name: got.get(run, {}).get(name) for name in ("successful", "failed", "dropped")} for run in ("first", "second"))
            zel.check(f"{module}: asked", ("8.19.0", True, False), (got.get("info"), got.get("ping"), got.get("bulk")))
            # The first ten were brought by themselves, with the same ids.
            zel.check(f"{module}: once", {"successful": 490, "failed": 10, "dropped": 10}, first)
            zel.check(f"{module}: again", {"successful": 0, "failed": 500, "dropped": 500}, second)
            check_stored(service, lines, client)
            counts.append(service.status()["ledger"]["accepted"])
        zel.check("each once", [500] * 4, counts)
        service.end(15)


def check_elasticsearch_full(zel, lines):
    """There is no room at first; the helper goes on, and nothing is dropped."""
    port, file = free_port(), put(zel, lines)
    with PortService(zel, port, store_stop_below="1000T", spool_hold=1):
        client = node(zel, "es.js", "es9", f"http://127.0.0.1:{port}", TOKEN, file, '{"untilDone": true}', stdout=subprocess.PIPE)
        time.sleep(8)
    with PortService(zel, port) as service:
        got = told(client).get("helper", {})
        zel.check("all, none dropped", (len(lines), 0), (got.get("successful"), got.get("dropped")))
        check_stored(service, lines, client)


def check_pino(zel, lines):
    file = put(zel, lines)
    with PortService(zel, free_port()) as service:
        client = node(zel, "pino.js", f"http://127.0.0.1:{service.port}", TOKEN, file)
        zel.check("its end", 0, client.wait(2 * LIMIT))
        service.await_stored()
        zel.check("all", (len(lines), 0), (service.status()["ledger"]["accepted"], service.status()["rejected"]))


def check_otlp(zel, lines):
    file = put(zel, lines)
    with PortService(zel, free_port()) as service:
        url = f"http://127.0.0.1:{service.port}"
        for compression in ("none", "gzip"):
            client = node(zel, "otel.js", "http", url, TOKEN, file, compression)
            zel.check("its end", 0, client.wait(2 * LIMIT))
            check_stored(service, lines, client)
        zel.check("both", 2 * len(lines), service.status()["ledger"]["accepted"])
        before = os.path.getsize(zel.folder + "/clients")
        node(zel, "otel.js", "proto", url, TOKEN, file, "none").wait(2 * LIMIT)
        with open(zel.folder + "/clients", encoding="utf-8") as said:
            said.seek(before)
            zel.check("protobuf is told", True, "415" in said.read() or service.status()["ledger"]["accepted"] == 3 * len(lines))


def check_otlp_full(zel, lines):
    """No room for four seconds, which the exporter waits out."""
    port, file = free_port(), put(zel, lines)
    with PortService(zel, port, store_stop_below="1000T", spool_hold=1):
        client = node(zel, "otel.js", "http", f"http://127.0.0.1:{port}", TOKEN, file, "none")
        time.sleep(4)
    with PortService(zel, port) as service:
        zel.check("its end", 0, client.wait(2 * LIMIT))
        check_stored(service, lines, client)


if __name__ == "__main__":
    sys.exit(run_checks(*sys.argv[1:3], (check_elasticsearch, check_elasticsearch_full, check_pino, check_otlp, check_otlp_full)))
