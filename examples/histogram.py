#!/usr/bin/env python3
"""How many events each hour has, asked in SQL and drawn: histogram.py DIR [CONDITION]

Such as histogram.py /var/lib/zel "action = 'launch' and time > '-7d'". Draws histogram.png with matplotlib,
without it bars of text. Asks zel, which has to be in PATH, and so works with any Python.
"""
import json
import subprocess
import sys

WIDTH = 60  # columns of the longest bar


def hours(directory, condition):
    statement = f"select substr(time, 1, 13) hour, count(*) events from events where {condition} group by 1 order by 1"
    asked = subprocess.run(["zel", "--store", directory, "sql", "-o", "ndjson", statement], stdout=subprocess.PIPE)
    if asked.returncode not in (0, 1):  # 1: there are none
        sys.exit(asked.returncode)
    rows = [json.loads(line) for line in asked.stdout.splitlines()]
    return [row["hour"] for row in rows], [row["events"] for row in rows]


def draw_text(names, counts):
    for name, count in zip(names, counts):
        print(f"{name}  {'#' * -(-count * WIDTH // max(counts))} {count}")


def draw_picture(pyplot, names, counts):
    pyplot.figure(figsize=(12, 4), layout="tight")
    pyplot.bar(names, counts)
    pyplot.xticks(rotation=90)
    pyplot.savefig("histogram.png")
    print(f"histogram.png: {len(names)} hour(s), {sum(counts)} event(s)")


if __name__ == "__main__":
    if len(sys.argv) not in (2, 3):
        sys.exit(__doc__)
    found = hours(sys.argv[1], *(sys.argv[2:] or ["true"]))
    try:
        import matplotlib
        matplotlib.use("Agg")
        from matplotlib import pyplot
        draw_picture(pyplot, *found)
    except ImportError:
        draw_text(*found)
