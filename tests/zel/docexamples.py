"""Runs the examples of a document on the sample and compares what they print.

docexamples.py ZEL SAMPLE DOCUMENT [--write]   (--write puts the real output into the document)
"""
import os
import subprocess
import sys

from zelcommand import Zel

INDENT = "    "


def run(zel, command):
    """What the command prints, as lines. Variables that it sets stay for the next ones."""
    environment = dict(zel.environment, ZEL_STORE=zel.store, COLUMNS="100",
                       PATH=os.path.dirname(zel.program) + ":" + os.environ["PATH"])
    script = command
    if " -o " not in command and "--explain" not in command:
        script = command.replace("zel query ", "zel query -o table ", 1)  # as a terminal shows it
    ended = subprocess.run(["bash", "-c", script + "\ndeclare -p key >variables 2>/dev/null"], cwd=zel.folder,
                           env=dict(environment, BASH_ENV="variables"), stdout=subprocess.PIPE,
                           stderr=subprocess.STDOUT, check=False)
    return ended.stdout.decode().splitlines()


def main(program, sample, document, write=False):
    with Zel(os.path.abspath(program)) as zel:
        zel.run("ingest", sample)
        os.symlink(os.path.dirname(os.path.abspath(sample)), os.path.join(zel.folder, "examples"))
        with open(document, encoding="utf-8") as text:
            lines = text.read().splitlines()
        real, skipping = [], False
        for line in lines:
            if line.startswith(INDENT + "$ "):
                real += [line] + [(INDENT + out).rstrip() for out in run(zel, line[len(INDENT) + 2:])]
                skipping = True
            elif not skipping or not line.startswith(INDENT):
                skipping = False
                real.append(line)
        if write:
            with open(document, "w", encoding="utf-8") as text:
                text.write("\n".join(real) + "\n")
        else:
            for shown, printed in zip(lines + [""] * len(real), real):
                zel.check(document, shown, printed)
        return 1 if zel.failures else 0


if __name__ == "__main__":
    sys.exit(main(*sys.argv[1:4], write="--write" in sys.argv))
