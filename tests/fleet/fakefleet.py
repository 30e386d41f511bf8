"""A server that takes rows as a fleet's does and fails as it is told: for the answers that no real one gives at will."""
import gzip
import http.server
import json
import threading
import urllib.parse


class FakeFleet:
    """`plan`: what the next inserts meet, one after the other: (CODE, STATUS) refuses; "lost" and "late" give no answer,
    ahead of the rows and behind them; "failed" takes them and answers as if it had not. `bad` tells rows that are refused,
    `most` is how many fit into memory."""

    def __init__(self, plan=(), bad=lambda row: False, most=10**9, port=0):
        self.plan, self.bad, self.most = list(plan), bad, most
        self.rows, self.inserts, self.packed, self.headers = [], [], 0, {}
        fleet = self

        class Handler(http.server.BaseHTTPRequestHandler):
            protocol_version = "HTTP/1.1"
            wbufsize = 1 << 16

            def log_message(self, *_):
                pass

            def do_POST(self):
                fleet.take(self)

        self.server = http.server.ThreadingHTTPServer(("127.0.0.1", port), Handler)
        self.url = f"http://127.0.0.1:{self.server.server_port}"
        threading.Thread(target=self.server.serve_forever, daemon=True).start()

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.server.shutdown()
        self.server.server_close()

    def answer(self, request, status, body, code=0):
        request.send_response(status)
        if code:
            request.send_header("X-ClickHouse-Exception-Code", str(code))
            body = f"Code: {code}. DB::Exception: made up"
        request.send_header("Content-Length", str(len(body)))
        request.end_headers()
        request.wfile.write(body.encode())

    def take(self, request):
        body = request.rfile.read(int(request.headers["Content-Length"]))
        self.headers = dict(request.headers)
        query = dict(urllib.parse.parse_qsl(urllib.parse.urlsplit(request.path).query))
        if "query" not in query:
            self.answer(request, 200, "25.8.1.1\n")
            return
        if request.headers.get("Content-Encoding") == "gzip":
            body, self.packed = gzip.decompress(body), self.packed + 1
        rows = [dict(json.loads(line), table=query["query"].split()[2]) for line in body.splitlines()]
        self.inserts.append(len(rows))
        step = self.plan.pop(0) if self.plan else None
        if isinstance(step, tuple):
            self.answer(request, step[1], "", step[0])
        elif len(rows) > self.most:
            self.answer(request, 500, "", 241)
        elif any(self.bad(row) for row in rows):
            self.answer(request, 400, "", 27)
        else:
            self.rows += rows if step != "lost" else []
            if step in ("lost", "late"):
                request.close_connection = True
            else:
                self.answer(request, 500 if step == "failed" else 200, "", 999 if step == "failed" else 0)
