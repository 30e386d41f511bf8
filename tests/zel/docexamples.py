"""Runs the examples of documents on the sample and compares what they print.

docexamples.py ZEL SAMPLE DOCUMENT... [--write]   (--write puts the real output into the documents)

A line that begins with four blanks and "$ " is a command, the indented lines behind it are what it prints;
a block of ```sql is asked with zel sql, and what it prints stands indented behind a blank line.
What differs from run to run, such as rates and today's date, may differ. C++ has to stand in examples/ as
it is in the document, links have to lead to a file, and tables of constants to hold those of the headers.
"""
import glob
import itertools
import os
import re
import shlex
import subprocess
import sys

from zelcommand import Zel

INDENT = "    "
VARYING = re.compile(r"\d+\.\d+ s, \d+ records/s|\b20(2[6-9]|[3-9]\d)-?\d\d-?\d\d(\d{3})?(T[\d:.]+Z)?|"
                     r" *\d+\.\d [KM]iB|(?<=events|silent) +\d+|\(\d+ bytes\)|\d+ MB free|(?<=silent_sequence>)\d{18}")
CONSTANTS = {  # of a header, and how a document's table shows them
    "result.h": (r"HRESULT (\w+) = Code\((\w+)\)", "| `hr::{}` | {} |", "embedding.md"),
    "lock.h": (r"(?m)^    (\w+) = (\d+),", "| `{}` | {} |", "architecture.md"),
}


def run(zel, commands):
    """What each command prints, as lines. One shell runs all, so that variables stay."""
    script = "exec 2>&1\n"
    for command in commands:
        if not re.search(" -o |--explain|--print-keys| [|] ", command):  # as a terminal shows it
            command = re.sub(r"\bzel (query|hunt|info|purge|sql)\b", r"zel \1 -o table", command, count=1)
        script += command + "\nprintf '\\036'\n"
    path = os.path.dirname(zel.program) + ":" + os.environ["PATH"]
    environment = dict(zel.environment, ZEL_STORE=zel.store, COLUMNS="100", TMPDIR=zel.folder, PATH=path)
    ended = subprocess.run(["bash", "-c", script], cwd=zel.folder, env=environment, stdin=subprocess.DEVNULL,
                           stdout=subprocess.PIPE, check=False)
    return [printed.splitlines() for printed in ended.stdout.decode().split("\036")]


def fixed(lines):
    return [VARYING.sub("~", line) for line in lines]


def commands_of(lines):
    """Each command, and the number of the line where what it prints begins."""
    at = 0
    while at < len(lines):
        if lines[at].startswith(INDENT + "$ "):
            yield lines[at][len(INDENT) + 2:], at + 1
        elif lines[at] == "```sql":
            end = lines.index("```", at)
            yield "zel sql -o table " + shlex.quote("\n".join(lines[at + 1:end])), end + 2
            at = end
        at += 1


def with_real_output(zel, lines):
    """The document's lines with what its commands print now, where that differs."""
    commands = list(commands_of(lines))
    outputs = run(zel, [command for command, _ in commands]) if commands else []
    real, done = [], 0
    for (_, first), output in zip(commands, outputs):
        real += lines[done:first]
        done = first
        while done < len(lines) and lines[done].startswith(INDENT) and lines[done][4:6] != "$ ":
            done += 1
        printed = [(INDENT + line).rstrip() for line in output]
        real += lines[first:done] if fixed(printed) == fixed(lines[first:done]) else printed
    return real + lines[done:]


def without_layout(text):
    return "\n".join(line.strip() for line in text.splitlines() if line.strip())


def check_against_sources(zel, document, text):
    root = os.path.dirname(os.path.dirname(os.path.abspath(__file__ + "/..")))
    for link in re.findall(r"\]\(([^)#:]+)\)", text):
        zel.check(f"{document}: {link} is there", True,
                  os.path.exists(os.path.join(os.path.dirname(document), link)))
    sources = "\n".join(without_layout(open(name, encoding="utf-8").read())
                        for name in glob.glob(root + "/examples/*.cpp"))
    for code in re.findall(r"(?sm)^```cpp\n(.*?)^```", text):
        zel.check(f"{document}: it is in examples/", code, code if without_layout(code) in sources else "")
    for header, (pattern, row, name) in CONSTANTS.items():
        with open(root + "/src/include/common/" + header, encoding="utf-8") as declared:
            for constant in re.findall(pattern, declared.read()) if document.endswith(name) else []:
                zel.check(f"{document}: {constant}", True, row.format(*constant) in text)


def main(program, sample, *documents, write=False):
    failures = 0
    for document in documents:
        with Zel(os.path.abspath(program)) as zel:
            zel.run("ingest", sample)
            os.symlink(os.path.dirname(os.path.abspath(sample)), os.path.join(zel.folder, "examples"))
            with open(document, encoding="utf-8") as text:
                lines = text.read().splitlines()
            real = with_real_output(zel, lines)
            if write:
                with open(document, "w", encoding="utf-8") as text:
                    text.write("\n".join(real) + "\n")
            else:
                pairs = itertools.zip_longest(lines, real)
                zel.check(document, *next((pair for pair in pairs if pair[0] != pair[1]), ("", "")))
                check_against_sources(zel, document, "\n".join(lines))
            failures += zel.failures
    return 1 if failures else 0


if __name__ == "__main__":
    sys.exit(main(*(a for a in sys.argv[1:] if a != "--write"), write="--write" in sys.argv))
