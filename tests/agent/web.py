"""The page: who gets in, what is refused, what comes live, what is stored and handed out; and that of a copy.

web.py ZEL EVENTS.xz
"""
import base64
import hashlib
import http.client
import json
import os
import re
import select
import signal
import subprocess
import sys
import urllib.parse

sys.path.insert(0, os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "zel"))
from agentprocess import LIMIT, Service, free_port, record  # noqa: E402
from zelcommand import Zel, read_records  # noqa: E402


class Browser:
    """One that has opened a link, or has not."""

    def __init__(self, link):
        self.host, _, self.target = link.removeprefix("http://").partition("/")
        self.cookie = ""

    def ask(self, method, path, body=None, **headers):
        connection = http.client.HTTPConnection(self.host, timeout=LIMIT)
        headers = {name.replace("_", "-"): value for name, value in headers.items()}
        connection.request(method, path, body, {**({"Cookie": self.cookie} if self.cookie else {}), **headers})
        return connection.getresponse()

    def open(self):
        answer = self.ask("GET", "/" + self.target)
        self.cookie = (answer.headers["Set-Cookie"] or "").partition(";")[0]
        return answer

    def status(self, *arguments, **headers):
        return self.ask(*arguments, **headers).status

    def json(self, path):
        return json.loads(self.ask("GET", path).read())


class Live:
    """A reader of /v1/live: each event as its name, its data and its id."""

    def __init__(self, browser, query="", **headers):
        self.answer = browser.ask("GET", "/v1/live?" + query, **headers)

    def next(self):
        fields = {}
        while line := self.answer.readline().decode().rstrip("\n"):
            name, _, value = line.partition(": ")
            fields[name] = value
        return (fields["event"], json.loads(fields["data"]), fields["id"]) if "event" in fields else self.next()


def link_of(zel, service):
    return subprocess.run([zel.program, "--socket", service.socket, "web", "--no-open"], env=zel.environment,
                          stdout=subprocess.PIPE, check=True, timeout=LIMIT).stdout.decode().strip()


def check_doors(zel, service):
    """Tokens, cookies, and what browsers tell of whose page asks."""
    link = link_of(zel, service)
    page, other = Browser(link), Browser(link)
    zel.check("nobody", (401, 401, 401), tuple(page.status("GET", path) for path in ("/", "/v1/page", "/assets/main.js")))
    zel.check("elsewhere", (421, 403, 403), (
        page.status("GET", "/" + page.target, Host="evil.example"), page.status("GET", "/" + page.target, Origin="http://evil"),
        page.status("GET", "/open?token=" + "0" * 64)))
    opened = page.open()
    zel.check("opened", (303, "/"), (opened.status, opened.headers["Location"]))
    cookie = opened.headers["Set-Cookie"]
    zel.check("cookie", [True] * 3, [part in cookie for part in ("; HttpOnly", "; SameSite=Strict", "; Path=/")])
    zel.check("once", (403, ""), (other.open().status, other.cookie))
    mailed = other.ask("GET", "/" + link_of(zel, service).rpartition("/")[2], Sec_Fetch_Site="cross-site")
    zel.check("from elsewhere by a hop", (200, True, True), (
        mailed.status, b'content="0;url=/"' in mailed.read(), mailed.headers["Set-Cookie"].startswith("zel_web_")))
    other.cookie = page.cookie[:-1] + ("0" if page.cookie[-1] != "0" else "1")
    zel.check("a wrong cookie", 401, other.status("GET", "/v1/page"))
    origin = "http://" + page.host
    zel.check("refused", (403, 403, 421, 404, 405, 404), (
        page.status("GET", "/v1/page", Origin="http://127.0.0.1:1"), page.status("GET", "/v1/page", Sec_Fetch_Site="same-site"),
        page.status("GET", "/v1/page", Host="localhost:80@evil"), page.status("POST", "/v1/events", b"{}", Origin=origin),
        page.status("POST", "/v1/page", b"{}"), page.status("GET", "/assets/../webroutes.cpp")))
    zel.check("forwarded", 200, page.status("GET", "/v1/page", Host="localhost:1234", Origin="http://localhost:1234"))
    first = page.ask("GET", "/")
    zel.check("page", (200, "text/html; charset=utf-8", "nosniff", "no-referrer", "same-origin"), (first.status, *(
        first.headers[name] for name in ("Content-Type", "X-Content-Type-Options", "Referrer-Policy", "Cross-Origin-Opener-Policy"))))
    policy = dict(part.split(" ", 1) for part in first.headers["Content-Security-Policy"].split("; "))
    zel.check("policy", ("'none'", "'self'", "'none'"), tuple(policy[name] for name in ("default-src", "script-src", "frame-ancestors")))
    text = first.read().decode()
    zel.check("no script within", [], [line for line in text.splitlines() if "<script" in line and "src=" not in line or "style=" in line])
    for name in ("main.js", "style.css", "d3.js"):
        zel.check(f"{name} is there", 200, page.status("GET", "/assets/" + name))
        tag = page.ask("HEAD", "/assets/" + name).headers["ETag"]
        zel.check(f"{name} is kept", 304, page.status("GET", "/assets/" + name, If_None_Match=tag))
    zel.check("a link is for the socket", 404, page.status("POST", "/v1/web/link"))
    return page


def check_live(zel, service, page):
    """As they come, from a position on, paused in the store, and conditions."""
    live = Live(page, "object=file&where=target_path%20ends%207&fields=time,target_path,key")
    name, hello, start = live.next()
    zel.check("begun", ("hello", start), (name, hello["position"]))
    service.events([record(i) for i in range(20)])
    rows = [live.next() for _ in range(2)]
    zel.check("rows", ["C:\\7", "C:\\17"], [row["cells"][1] for _, row, _ in rows])
    zel.check("cells", ("2026-11-12T10:00:00.000Z", "file", rows[0][1]["key"]), (rows[0][1]["cells"][0], rows[0][1]["object"], rows[0][1]["cells"][2]))
    again = Live(page, "object=file&where=target_path%20ends%207", Last_Event_ID=rows[0][2])
    zel.check("goes on", ["hello", "row"], [again.next()[0] for _ in range(2)])
    zel.check("paused", 200, page.status("POST", f"/v1/live/pause?id={hello['id']}&paused=1"))
    service.events([record(i) for i in range(20, 40)])
    zel.check("the other sees it", "C:\\27", again.next()[1]["cells"][-1])
    zel.check("nothing meanwhile", [], select.select([live.answer.fp.raw._sock], [], [], 0.3)[0])
    zel.check("goes on, too", 200, page.status("POST", f"/v1/live/pause?id={hello['id']}&paused=0"))
    zel.check("and has missed nothing", "C:\\27", live.next()[1]["cells"][1])
    zel.check("unknown", (404, 400, 400), (page.status("POST", "/v1/live/pause?id=x&paused=1"),
                                           page.status("GET", "/v1/live?fields=colour"), page.status("GET", "/v1/live?colour=red")))
    return rows[0][1]["key"]


def check_notes(zel, service, page, key):
    """A note stands with its event for `zel query`."""
    said = {"key": key, "kind": "note", "text": "<script>alert(1)</script> \u202e"}
    answer = page.ask("POST", "/v1/notes", json.dumps(said))
    told = json.loads(answer.read())
    zel.check("said", (200, {"author", "time"}), (answer.status, set(told)))
    service.await_stored()
    found = zel.run("query", "--key", key, "--enrichments", "-o", "ndjson")
    zel.check("stored", [{"annotation": {"kind": "note", "text": said["text"], **told}}],
              [one for line in found.stdout.splitlines() for one in json.loads(line).get("enrichments", [])])
    wrong = [dict(said, kind="lie"), dict(said, text=" "), dict(said, text="x" * 20000), dict(said, key="p<begin_time>"), {}, []]
    zel.check("refused", [400] * len(wrong), [page.status("POST", "/v1/notes", json.dumps(one)) for one in wrong])


def check_long(zel, service, page):
    """Whoever makes an event chooses how long its key is; it can be looked at all the same."""
    path = "C:\\" + "\u00e4" * 32000
    service.events([record(1).replace(b"C:\\\\1", json.dumps(path)[1:-1].encode())])
    service.await_stored()
    row, _ = (json.loads(line) for line in page.ask("GET", "/v1/list?object=file&where=target_path+contains+%C3%A4").read().splitlines())
    conditions = [{"key": row["key"]}, {"where": "target_path = " + path}]
    zel.check("long", [200, 200], [page.status("GET", f"/v1/{way}?" + urllib.parse.urlencode(asked))
                                   for way, asked in zip(("event", "histogram"), conditions)])


def check_files(zel, page, key):
    """What is handed out: all that fits as a file, and a report in which nothing is markup."""
    for form, kind in (("ndjson", "application/x-ndjson"), ("csv", "text/csv; charset=utf-8"), ("ocsf", "application/x-ndjson")):
        answer = page.ask("GET", f"/v1/export?object=process&form={form}")
        zel.check(f"{form} is a file", (200, kind, True), (
            answer.status, answer.headers["Content-Type"], answer.headers["Content-Disposition"].startswith("attachment; filename=")))
        expected = zel.run("query", "--object", "process", "-o", form).stdout.splitlines()
        zel.check(f"the same {form}", sorted(expected), sorted(answer.read().splitlines()))
    columns = "time,key,enrichments"
    expected = zel.run("query", "--object", "file", "--enrichments", "-o", "csv", "--fields", columns).stdout.splitlines()
    got = page.ask("GET", f"/v1/export?object=file&form=csv&fields={columns}").read().splitlines()
    zel.check("keys and enrichments", (sorted(expected), True), (sorted(got), any(b"annotation" in line for line in got)))
    zel.check("refused", (400, 400, 400), tuple(page.status("GET", "/v1/export?" + query)
                                                for query in ("form=exe", "form=csv&fields=colour", "colour=red")))
    ask = {"question": {"parameters": [["object", "file"], ["until", "2026-11-13"]], "command": "zel query --object file"},
           "title": "<b>&title", "events": [{"key": key, "note": "<img src=x onerror=alert(1)> \u202egpj"},
                                            {"key": key.replace("C:\\7", "C:\\none"), "note": ""}]}
    answer = page.ask("POST", "/v1/report", json.dumps(ask))
    text = answer.read().decode()
    zel.check("report", (200, "text/html; charset=utf-8"), (answer.status, answer.headers["Content-Type"]))
    zel.check("texts are texts", [], re.findall(r"<(?:script|img|b)\b|\u202e|\son\w+=(?!alert)", re.sub(r"&lt;[^<]*", "", text)))
    zel.check("it tells", [True] * 6, [part in text for part in (
        "&lt;b&gt;&amp;title", "zel query --object file", "No gap is known", "&lt;script&gt;alert(1)&lt;/script&gt;", "[U+202E]gpj",
        "It is not in the store")])
    style = re.search(r"<style>(.*)</style>", text)[1]
    zel.check("its style is allowed", True, base64.b64encode(hashlib.sha256(style.encode()).digest()).decode() in text)
    zel.check("no report", [400] * 4, [page.status("POST", "/v1/report", json.dumps(one)) for one in (
        [], dict(ask, events=[{"key": "x"}]), dict(ask, title="x" * 2000), dict(ask, question={"parameters": [["colour", "red"]]}))])


def check_copy(zel):
    """A store that is read alone: no notes, nothing live, and it ends when it is told."""
    with subprocess.Popen(zel.command("web", "--no-open"), stdout=subprocess.PIPE, env=zel.environment) as process:
        page = Browser(process.stdout.readline().decode().strip())
        zel.check("a copy is opened", 303, page.open().status)
        told = page.json("/v1/page?range=1")
        zel.check("read alone", (False, False, False), (told["writable"], told["may_annotate"], told["live"]))
        zel.check("of all events", "2019-05-07T11:50:28.074Z", told["first"])
        zel.check("neither", (404, 403), (page.status("GET", "/v1/live"), page.status("POST", "/v1/notes", "{}")))
        process.send_signal(signal.SIGTERM)
        zel.check("ended", 0, process.wait(LIMIT))


def main(program, events):
    with Zel(program) as zel:
        with Service(zel, web_port=free_port()) as service:
            page = check_doors(zel, service)
            empty = page.json("/v1/page?range=1")
            zel.check("an empty store", (None, None), (empty["first"], empty["last"]))
            service.events(events)
            service.await_stored()
            told = page.json("/v1/page?range=1")
            zel.check("range", ("2019-05-07T11:50:28.074Z", "2023-07-19T16:06:05.225Z"), (told["first"], told["last"]))
            zel.check("names", (True, True, True), ("process" in told["objects"], "launch" in told["actions"],
                                                    any(column["name"] == "target_path" for column in told["columns"])))
            key = check_live(zel, service, page)
            check_notes(zel, service, page, key)
            check_files(zel, page, key)
            check_long(zel, service, page)
        check_copy(zel)
        return zel.failures


sys.exit(main(sys.argv[1], read_records(sys.argv[2])) != 0)
