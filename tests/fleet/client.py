"""ClickHouse's own client reads what zel has sent: the same keys and texts as the store has.

client.py ZEL RECORDS
"""
import json
import os
import subprocess
import sys

from engine import LIMIT, Engine, only_kind
from zelcommand import Zel

MODULES = os.environ.get("ZEL_FLEET_CHDB", "")
if not os.path.exists(os.path.join(MODULES, "@clickhouse/client")):
    print("skipped: no @clickhouse/client in ZEL_FLEET_CHDB")
    sys.exit(77)
with Engine(only_kind()) as engine, Zel(sys.argv[1]) as zel:
    zel.check("stored", 0, zel.run("ingest", sys.argv[2]).returncode)
    for command in (["init", engine.url], ["send", engine.url, "--host", "h"], ["send", engine.url, "--host", "h", "--since", "2000-01-01"]):
        done = zel.run("fleet", *command)
        zel.check(f"{command}: {done.stderr}", 0, done.returncode)
    script = os.path.join(os.path.dirname(os.path.abspath(__file__)), "client.js")
    done = subprocess.run(["node", script, MODULES, engine.base, engine.database], capture_output=True, timeout=LIMIT)
    zel.check(f"read: {done.stderr}", 0, done.returncode)
    rows = [json.loads(line) for line in done.stdout.splitlines()]
    zel.check("texts", zel.rows("-o", "ndjson"), [row["event"].encode() for row in rows])
    zel.check("keys", zel.rows("--print-keys"), [row["key"].encode() for row in rows])
    zel.check("hosts", {"h"}, {row["host"] for row in rows})
    sys.exit(zel.failures != 0)
