"""Rules that zel serve runs on what comes in: what they find is stored and told, whatever happens to the service.

rules.py ZEL
"""
import json
import os
import random
import signal
import socket
import sys
import time

sys.path.insert(0, os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "zel"))
from agentprocess import LIMIT, Service, record, run_checks  # noqa: E402

RULE = """title: ends with %s
id: 00000000-0000-0000-0000-00000000000%s
level: high
logsource: {product: windows, category: file_event}
detection: {selection: {TargetFilename|endswith: '%s'}, condition: selection}
"""
COUNTED = """---
title: three of them
correlation: {type: event_count, rules: [ends with 7], timespan: 1h, condition: {gte: 3}, generate: true}
level: critical
"""


def write_rule(zel, number, more=""):
    folder = os.path.join(zel.folder, "rules")
    os.makedirs(folder, exist_ok=True)
    with open(os.path.join(folder, f"{number}.yml"), "w", encoding="utf-8") as file:
        file.write(RULE % (number, number, number) + more)
    return folder


def await_that(zel, what, is_so):
    until = time.monotonic() + LIMIT
    while not is_so() and time.monotonic() < until:
        time.sleep(0.02)
    zel.check(what, True, is_so())


def await_tested(zel, service, count):
    await_that(zel, "tested", lambda: service.status()["hunt"]["tested"] >= count)


def marks(zel):
    """How many marks of a rule each event of the store has, by its number and the rule's last digit."""
    found = {}
    for row in zel.rows("--since", "2000-01-01", "--enrichments"):
        event = json.loads(row)
        for mark in event.get("enrichments", []):
            place = (event["seq_num"], mark["sigma"]["id"][-1])
            found[place] = found.get(place, 0) + 1
    return found


def check_live(zel):
    """Hits are marked, counted, and told to a command and a socket; the rules are told what is wrong with them."""
    heard = socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM)
    heard.settimeout(LIMIT)
    heard.bind(zel.folder + "/alerts")
    rules, told = write_rule(zel, 7, COUNTED), os.path.join(zel.folder, "told")
    write_rule(zel, 8, "---\ntitle: broken\n")
    with Service(zel, hunt_rules=[rules], hunt_alert_socket=zel.folder + "/alerts", hunt_alert_per_second=1000,
                 hunt_alert_command=["/usr/bin/tee", "-a", told]) as service:
        zel.check("taken", 30, service.events([record(n) for n in range(30)])["accepted"])
        lines = [json.loads(heard.recv(65536)) for _ in range(7)]
        zel.check("hits", sorted(["ends with 7", "ends with 8"] * 3 + ["three of them"]), sorted(l["rule"]["title"] for l in lines))
        zel.check("an event", [7, 17, 27], [l["event"]["seq_num"] for l in lines if l["rule"]["id"].endswith("7")])
        zel.check("counted", [3], [l["correlation"]["count"] for l in lines if "correlation" in l])
        zel.check("numbers", 7, len({l["hit"] for l in lines}))
        await_that(zel, "alerts end", lambda: service.status()["hunt"]["alerts_waiting"] == 0)
        state = service.status()["hunt"]
        zel.check("counts", (3, 1, 30, 6, 1, 7, 0), (state["rules"], state["refused"], state["tested"], state["hits"]["high"],
                                                     state["hits"]["critical"], state["alerts_told"], state["alerts_failed"]))
        metrics = service.ask("GET", "/metrics")[1]
        zel.check("metrics", True, b'zel_rule_hits_total{level="high"} 6\n' in metrics)
        service.events([record(7)])
        zel.check("again, with its number", True, json.loads(heard.recv(65536))["hit"] in {l["hit"] for l in lines})
        write_rule(zel, 9)
        service.process.send_signal(signal.SIGHUP)
        await_that(zel, "a rule more", lambda: service.status()["hunt"]["rules"] == 4)
        service.events([record(39)])
        zel.check("of the new rule", "ends with 9", json.loads(heard.recv(65536))["rule"]["title"])
    with open(told, encoding="utf-8") as file:
        zel.check("the command", {l["hit"] for l in lines}, {json.loads(line)["hit"] for line in file} & {l["hit"] for l in lines})
    zel.check("marks", {(7, "7"): 1, (17, "7"): 1, (27, "7"): 1, (8, "8"): 1, (18, "8"): 1, (28, "8"): 1, (39, "9"): 1}, marks(zel))
    with open(service.log, encoding="utf-8") as file:
        zel.check("told", True, "broken" in file.read())
    checked = zel.run("serve", "--config", service.file, "--check")
    zel.check("checked", (2, True), (checked.returncode, b"8.yml" in checked.stderr))


def check_failures(zel):
    """Whom nobody hears, and commands that fail, are counted; nothing else suffers."""
    rules = write_rule(zel, 7)
    with Service(zel, hunt_rules=[rules], hunt_alert_socket=zel.folder + "/nobody", hunt_alert_per_second=1000,
                 hunt_alert_time=1, hunt_alert_command=["/bin/sh", "-c", "read l; case $l in *:7}}) exit 3;; *) sleep 60;; esac"]) as service:
        service.events([record(7), record(17), record(18)])
        await_that(zel, "all failed", lambda: service.status()["hunt"]["alerts_failed"] == 4)
        await_that(zel, "none waits", lambda: service.status()["hunt"]["alerts_waiting"] == 0)
        zel.check("well", 200, service.ask("GET", "/readyz")[0])


def check_left_behind(zel):
    """What a command leaves behind holds nothing of the service, which starts again after a kill."""
    rules, told = write_rule(zel, 7), os.path.join(zel.folder, "pid")
    command = ["/bin/sh", "-c", f"setsid sleep 600 & echo $! > {told}"]
    with Service(zel, hunt_rules=[rules], hunt_alert_command=command) as service:
        service.events([record(7)])
        await_that(zel, "told", lambda: service.status()["hunt"]["alerts_told"] == 1)
        service.end(signal.SIGKILL)
    with Service(zel), open(told, encoding="utf-8") as file:
        os.kill(int(file.read()), signal.SIGKILL)


def check_kills(zel, cycles):
    """However often the service is killed, each hit is stored once."""
    rules, rolls, sent = write_rule(zel, 7), random.Random(1), 0
    for _ in range(cycles):
        service = Service(zel, hunt_rules=[rules])
        for _ in range(rolls.randrange(1, 4)):
            sent += service.events([record(n) for n in range(sent, sent + 20)])["accepted"]
        if rolls.random() < 0.5:
            time.sleep(rolls.uniform(0, 0.3))  # where it is killed; nothing is expected of it
        service.end(signal.SIGKILL)
    with Service(zel, hunt_rules=[rules]) as service:
        service.events([record(sent)])
        await_tested(zel, service, 1)
    zel.check("each hit once", {(n, "7"): 1 for n in range(7, sent, 10)}, marks(zel))


def check_rules_go_and_come(zel):
    """What rules have seen is not seen again when they are taken away and come back."""
    folder = write_rule(zel, 7)
    with Service(zel, hunt_rules=[folder]) as service:
        service.events([record(n) for n in range(5)])
        await_tested(zel, service, 5)
        for count in (0, 1):
            os.rename(*((folder, folder + "-") if count == 0 else (folder + "-", folder)))
            service.process.send_signal(signal.SIGHUP)
            await_that(zel, "rules", lambda: service.status()["hunt"]["rules"] == count)
        service.events([record(6)])
        await_tested(zel, service, 6)
        zel.check("each once", 6, service.status()["hunt"]["tested"])


def check_reload(zel):
    """SIGHUP takes what is good; what is bad changes nothing."""
    with Service(zel, store_max_size="3G", rights_read_group="root") as service:
        def reload(text, word):
            with open(service.file, "w", encoding="utf-8") as file:
                file.write(text)
            service.process.send_signal(signal.SIGHUP)
            await_that(zel, word, lambda: any(word in m["text"] for m in service.status()["last_messages"]))
        with open(service.file, encoding="utf-8") as file:
            good = file.read()
        reload(good.replace('"3G"', '"4G"') + "[questions]\nat_onse = 3\n", "nothing was changed")
        zel.check("as it was", 3 << 30, service.status()["store"]["max_bytes"])
        reload(good.replace('"3G"', '"4G"').replace("[spool]\n", "[spool]\nhold = 7\n").replace("[http]\n", "[http]\nthreads = 3\n"), "restart")
        zel.check("limit", 4 << 30, service.status()["store"]["max_bytes"])
        said = " ".join(m["text"] for m in service.status()["last_messages"])
        zel.check("by name", True, all(word in said for word in ("store.max_size", "spool.hold", "http.threads")))


def main():
    return run_checks(check_live, check_failures, check_left_behind, (check_kills, 6), check_rules_go_and_come, check_reload)


if __name__ == "__main__":
    sys.exit(main())
