"""The manual page and the completion know the commands, flags and values that zel itself tells, and no others.

commandtexts.py ZEL SOURCE
"""
import json
import os
import re
import subprocess
import sys
import tempfile

ZEL, SOURCE = sys.argv[1:]
failures = 0


def check(what, expected, got):
    global failures
    if expected != got:
        failures += 1
        print(f"FAILED: {what}\n  expected: {expected}\n  got:      {got}")


def run(*command, given=""):
    return subprocess.run(command, capture_output=True, check=False, encoding="utf-8", input=given)


def told(path, commands):
    """Fills `commands`: a command to its flags, each with the sign of a value or its values."""
    text = run(ZEL, *path, "--help").stdout
    commands[path] = dict(re.findall(r"^  (?:-\w,)?(--[a-z-]+) ?(\S*)", text, re.MULTILINE))
    below = re.findall(r"^  ([a-z]+)", text.partition("Subcommands:")[2], re.MULTILINE)
    for name in below:
        told(path + (name,), commands)
    if path:
        check(f"completion behind {path[:-1]}", True, path[-1] in completed(*path[:-1], ""))
    if below:
        check(f"commands completed behind {path}", below, completed(*path, ""))


def completed(*words):
    script = ('source "$0"; COMP_WORDS=(zel "$@"); COMP_CWORD=$#; _zel_complete; '
              'printf "%s\\n" "${COMPREPLY[@]}"')
    return run("bash", "--norc", "-c", script, f"{SOURCE}/completions/zel.bash", *words).stdout.split()


def check_stored_values():
    """What the store holds is completed, and never run."""
    with tempfile.TemporaryDirectory() as folder:
        store = os.path.join(folder, "store")
        os.environ.update(ZEL_STORE=store, PATH=os.path.dirname(os.path.abspath(ZEL)) + ":" + os.environ["PATH"],
                          XDG_CONFIG_HOME=folder)
        for number, user in enumerate((r"NT\me", "$(touch made)", 'a"b', "ann")):
            run(ZEL, "ingest", given=json.dumps({
                "artifacts": {"actor": {"object_type": "process"}, "target": {"object_type": "session"}},
                "action": ["logon"], "begin_time": {"value": "2026-01-02T03:04:05.006Z"}, "seq_num": number,
                "unmapped": {"User": user}, "source": {"computer": "box"}}))
        check("users of the store", ["\\$\\(touch\\", "made\\)", "NT\\\\me", "ann"], completed("query", "--user", ""))
        check("those that begin so", ["ann"], completed("query", "--user", "an"))
        del os.environ["ZEL_STORE"]
        check("of a named store", ["box"], completed("--store", store, "query", "--computer", ""))
        check("nothing was run", False, os.path.exists("made"))


def manual():
    """A command to the flags that the manual page has for it."""
    commands, path, behind = {}, None, ""
    with open(f"{SOURCE}/docs/zel.1", encoding="utf-8") as page:
        for line in page:
            section = re.match(r'\.SS "?([a-z]+(?: [a-z]+)?)', line)
            if line.startswith(".SH"):
                path = () if line == ".SH OPTIONS\n" else None
            if section:
                path = tuple(section[1].split())
            if path is not None:
                flags = commands.setdefault(path, {"--help"})
                flags.update(re.findall("--[a-z-]+", line.replace("\\-", "-")) if behind == ".TP\n" else [])
            behind = line
    return commands


def main():
    commands = {}
    told((), commands)
    leaves = {path: set(flags) for path, flags in commands.items()
              if not path or not any(other[:-1] == path for other in commands)}
    check("the manual page's flags", leaves, manual())
    for page in ("zel.1", "zel-serve.8", "zel.toml.5.in"):
        check(f"what the formatter says of {page}", "", run("groff", "-ww", "-man", "-Tutf8", f"{SOURCE}/docs/{page}").stderr)
    page, keys = (run(*command).stdout for command in ((f"{SOURCE}/packaging/configpage.sh", ZEL, f"{SOURCE}/docs/zel.toml.5.in"),
                                                       (ZEL, "config", "show")))
    check("keys of the configuration's page", re.findall(r"(?m)^(\w+) =", keys), re.findall(r"(?m)^\.B \"(\w+)\"$", page))
    for path, flags in commands.items():
        everywhere = [flag for flag in commands[()] if path and flag not in ("--help", "--version")]
        offered = completed(*path, "--")
        check(f"flags completed behind {path}", list(flags) + everywhere, offered)
        for flag, sign in flags.items():
            takes = re.match("[A-Z0-9]+(:|$)", sign) is not None
            check(f"{flag} of {path} takes a value", takes, completed(*path, flag, "--") != offered)
            if values := re.search(r"\{(.*)\}", sign):
                check(f"values of {flag}", values[1].split(","), completed(*path, flag, ""))
                check(f"values of {flag}=", values[1].split(","), completed(*path, flag, "=", ""))
                check(f"values of {flag}= in one word", [f"{flag}={value}" for value in values[1].split(",")],
                      completed(*path, flag + "="))
    for flag in ("--action", "--object"):
        names = completed("query", flag, "")
        check(f"names behind {flag}", True, len(names) > 10)
        asked = run(ZEL, "query", "--explain", *(word for name in names for word in (flag, name)))
        check(f"{flag} takes what is completed", (0, ""), (asked.returncode, asked.stderr))
    check_stored_values()
    check("the version", "zel ", run(ZEL, "--version").stdout[:4])
    return 1 if failures else 0


if __name__ == "__main__":
    os.environ.pop("ZEL_STORE", None)
    sys.exit(main())
