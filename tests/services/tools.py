"""What systems have at hand: curl, the service manager's tools, promtool and Prometheus.

tools.py ZEL SAMPLE [NAME...]
"""
import http.client
import re
import signal
import socket
import threading

from clients import (FOLDER, LIMIT, PortService, Service, TOKEN, check_stored, ended, find, free_port, json, os, run_checks,
                     start, subprocess, sys, time)

PACKAGING = os.path.join(FOLDER, "..", "..", "packaging")


def curl(service, path, *options, given=None):
    """Its exit code and what it printed."""
    done = subprocess.run([find("curl"), "-sS", "--max-time", str(LIMIT), "--unix-socket", service.socket, *options,
                           "http://localhost" + path], input=given, stdout=subprocess.PIPE, check=False)
    return done.returncode, done.stdout


def resident(service):
    with open(f"/proc/{service.process.pid}/statm", encoding="utf-8") as file:
        return int(file.read().split()[1]) * os.sysconf("SC_PAGE_SIZE")


def check_curl(zel, lines):
    """A stream, a file that is put, one too large, a bomb, and a service that stops reading for a while."""
    find("curl")
    text = b"\n".join(lines) + b"\n"
    with Service(zel) as service:
        for options in (("-X", "POST", "-T", "-", "-H", "Content-Type: application/x-ndjson"), ("-T", "-"), ("--data-binary", "@-")):
            code, told = curl(service, "/v1/events", "--fail-with-body", *options, given=text)
            zel.check(f"{options}", (0, len(lines)), (code, json.loads(told or b"{}").get("accepted")))
        before = resident(service)
        large = curl(service, "/v1/events", "--fail-with-body", "-w", "%{http_code} %{size_upload}", "-o", "/dev/null", "--data-binary", "@-",
                     given=bytes(100 << 20))
        zel.check("too large, not sent", (22, b"413 0"), large)
        bomb = subprocess.run(["gzip"], input=bytes(70 << 20), stdout=subprocess.PIPE, check=True).stdout
        zel.check("a bomb", (0, b"413"), curl(service, "/v1/events", "-w", "%{http_code}", "-o", "/dev/null", "-H",
                                              "Content-Encoding: gzip", "--data-binary", "@-", given=bomb))
        zel.check("memory is bounded", True, resident(service) < before + (200 << 20))
        service.process.send_signal(signal.SIGSTOP)
        sender = start(zel, find("curl"), "-sS", "--unix-socket", service.socket, "--data-binary", "@" + file_of(zel, text),
                       "http://localhost/v1/events", stdout=subprocess.PIPE)
        time.sleep(1)
        zel.check("it waits", None, sender.poll())
        service.process.send_signal(signal.SIGCONT)
        zel.check("and is taken", len(lines), json.loads(sender.communicate(timeout=LIMIT)[0])["accepted"])
        check_stored(service, lines, sender)


def file_of(zel, text):
    with open(os.path.join(zel.folder, "lines"), "wb") as file:
        file.write(text)
    return file.name


def check_units(zel, _):
    """The units are good, as they stand in the package and with the program that was built, and few rights are left."""
    analyze = find("systemd-analyze")
    with open(os.path.join(PACKAGING, "zel.service"), encoding="utf-8") as file:
        unit = file.read().replace("/usr/bin/zel", zel.program)
    with open(os.path.join(zel.folder, "zel.service"), "w", encoding="utf-8") as file:
        file.write(unit)
    os.symlink(os.path.join(PACKAGING, "zel.socket"), os.path.join(zel.folder, "zel.socket"))
    for what in (["verify", "--man=no", zel.folder + "/zel.service", zel.folder + "/zel.socket"],
                 ["security", "--offline=yes", "--threshold=15", zel.folder + "/zel.service"]):
        done = subprocess.run([analyze, *what], stdout=subprocess.PIPE, stderr=subprocess.STDOUT, check=False)
        zel.check(what[0], 0, done.returncode and done.stdout[-600:])
    for form in ("sysusers", "tmpfiles"):
        tool, root = find("systemd-" + form), os.path.join(zel.folder, "root")
        command = [tool, "--root=" + root, *(["--create"] if form == "tmpfiles" else []), f"{PACKAGING}/zel.{form}"]
        os.makedirs(root + "/etc", exist_ok=True)
        if os.geteuid() == 0:  # they give files to others
            zel.check(form, 0, subprocess.run(command, stderr=subprocess.DEVNULL, check=False).returncode)
    if os.geteuid() == 0:
        zel.check("its folder", 0o700, os.stat(os.path.join(zel.folder, "root", "var", "lib", "zel")).st_mode & 0o7777)


def check_activation(zel, lines):
    """The first who comes starts the service, and is answered."""
    tool, path = find("systemd-socket-activate"), os.path.join(zel.folder, "s")
    service = Service(zel, (tool, "-l", path, "--fdname=zel", "-E", "NOTIFY_SOCKET", "-E", "XDG_CONFIG_HOME"), ready=False)
    while not os.path.exists(path):
        time.sleep(0.01)
    code, told = curl(service, "/v1/events", "--data-binary", "@-", given=lines[0])
    zel.check("answered", (0, 1), (code, json.loads(told or b"{}").get("accepted")))
    zel.check("its end", 0, service.end(signal.SIGTERM))


def check_restarts(zel, lines):
    """The socket is held by a manager: while the service restarts nobody is refused, who comes waits."""
    path, refused, answered, stop = os.path.join(zel.folder, "s"), [], [], threading.Event()
    with socket.socket(socket.AF_UNIX) as held:
        held.bind(path)
        held.listen()
        handed = ("bash", "-c", f'LISTEN_PID=$$ LISTEN_FDS=1 exec "$@" 3<&{held.fileno()}', "-")

        def ask():
            while not stop.is_set():
                try:
                    answered.append(service.events(lines[:1])["accepted"])
                except ConnectionRefusedError as problem:
                    refused.append(problem)
                except (ConnectionError, http.client.HTTPException):
                    pass  # one that was open while the service stopped

        service = Service(zel, handed, inherited=(held.fileno(),))
        asker = threading.Thread(target=ask)
        asker.start()
        for how in (signal.SIGTERM, signal.SIGKILL, signal.SIGTERM):
            done = len(answered)
            while len(answered) < done + 5:
                time.sleep(0.01)
            began = time.time()
            service.end(how)
            zel.check("ends once what is in hand is answered", True, time.time() < began + 9)
            service = Service(zel, handed, inherited=(held.fileno(),))
        stop.set()
        asker.join()
        zel.check("refused", [], refused)
        zel.check("the socket stays", (0, True), (service.end(signal.SIGTERM), os.path.exists(path)))


def check_prometheus(zel, lines):
    """The metrics are well-formed, are scraped, and say what the status says."""
    promtool, prometheus = find("promtool"), find("prometheus")
    with PortService(zel, free_port()) as service:
        service.events([*lines, b"nonsense"])
        service.await_stored()
        metrics = service.ask("GET", "/metrics")[1]
        zel.check("promtool", 0, subprocess.run([promtool, "check", "metrics"], input=metrics, check=False).returncode)
        families = [line.split()[2] for line in metrics.decode().splitlines() if line.startswith("# TYPE")]
        zel.check("no family twice", len(set(families)), len(families))
        config, port = os.path.join(zel.folder, "p.yml"), free_port()
        with open(config, "w", encoding="utf-8") as file:
            file.write("scrape_configs: [{job_name: zel, scrape_interval: 1s, authorization: {credentials: %s}, "
                       "static_configs: [{targets: ['127.0.0.1:%d']}]}]\n" % (TOKEN, service.port))
        client = start(zel, prometheus, "--config.file=" + config, "--storage.tsdb.path=" + zel.folder + "/tsdb",
                       f"--web.listen-address=127.0.0.1:{port}")
        ledger, until, got = service.status()["ledger"], time.time() + LIMIT, {}
        while got.get("zel_events_stored_total") is None and time.time() < until and client.poll() is None:
            time.sleep(0.5)
            got = {name: value(port, name) for name in ("up", "zel_events_stored_total", "zel_events_rejected_total", "zel_events_lost_total")}
        zel.check("scraped", {"up": 1, "zel_events_stored_total": ledger["stored"], "zel_events_rejected_total": 1,
                              "zel_events_lost_total": ledger["lost"]}, got)
        ended(client)


def check_alarms(zel, _):
    """Every metric that the documents name is there."""
    with Service(zel, fleet_url="http://127.0.0.1:1") as service:
        metrics = service.ask("GET", "/metrics")[1].decode()
        for document in ("fleet.md", "operations.md", "service.md"):
            with open(os.path.join(FOLDER, "..", "..", "docs", document), encoding="utf-8") as text:
                told = set(re.findall(r"\bzel_(?!reader|writer)[a-z_]+", text.read()))
            zel.check(document, [], sorted(name for name in told if f"# TYPE {name} " not in metrics))


def value(port, name):
    """The sum over a metric's labels, as Prometheus has it; None without one."""
    try:
        connection = http.client.HTTPConnection("127.0.0.1", port, timeout=LIMIT)
        connection.request("GET", f"/api/v1/query?query=sum({name})")
        result = json.loads(connection.getresponse().read())["data"]["result"]
        return float(result[0]["value"][1]) if result else None
    except OSError:
        return None


if __name__ == "__main__":
    sys.exit(run_checks(*sys.argv[1:3], (check_curl, check_units, check_activation, check_restarts, check_alarms, check_prometheus)))
