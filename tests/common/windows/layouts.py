#!/usr/bin/env python3
"""Compares what two compilers make of the public interfaces: the places of their functions, the sizes of their structures, the numbers of the results, and what the libraries export.

    layouts.py SOURCE_FOLDER COMPILER CROSS_COMPILER CROSS_OBJDUMP LIBRARIES HOST_LIBRARY COMPONENT_OBJECT

LIBRARIES is the folder of those for Windows, HOST_LIBRARY the host services of this system.
"""
import pathlib
import re
import subprocess
import sys
import tempfile

HOME = {"common": "src/include", "zelstore": "src"}
PUBLIC = """common/itobbase.h common/itobfactory.h common/istringvalue.h common/iutf8value.h
common/ivaluecollection.h common/jobmanager.h common/settings.h common/hostservices.h
common/machinedescription.h zelstore/ieventstore.h zelstore/izelstorequery.h
zelstore/diskmonitor/idiskspacemonitor.h""".split()
CLASS = re.compile(r"^(namespace|class|struct) ([\w:]+)[^;{]*\{", re.M)
FUNCTION = re.compile(r"^    virtual [^(;~]*?(\w+)\(", re.M)
CODE = re.compile(r"inline constexpr (?:HRESULT|TobResult) (\w+)\s*[={]")


def functions(text):
    """Interfaces and their functions, by full names; of functions of one name none can be told."""
    scope = space = ""
    for match in re.finditer(f"(?:{CLASS.pattern})|(?:{FUNCTION.pattern})", text, re.M):
        kind, name, function = match.groups()
        if kind == "namespace":
            space = name if name in ("ZEL", "wm", "wmJobMgr") else space
        elif kind:
            scope = f"{space}::{name}"
        elif (scope, function) != ("ZEL::ITobFactory2", "CreateInstance"):
            yield scope, function


def program(source):
    text = (source / "src/include/common/result.h").read_text()
    lines = [f'#include "{header}"\n' for header in PUBLIC]
    for name in CODE.findall(text):
        where = "ZEL::" if name.startswith("TOB") else "ZEL::hr::"
        lines.append(f'extern "C" const std::uint32_t code_{name};\n'
                     f'const std::uint32_t code_{name} = static_cast<std::uint32_t>({where}{name});\n')
    for header in PUBLIC:
        for scope, function in functions((source / HOME[header.split("/")[0]] / header).read_text()):
            name = f"slot_{scope}_{function}".replace("::", "_")
            member = f"&{scope}::{function}"
            lines.append(f"extern decltype({member}) const {name};\n"
                         f"decltype({member}) const {name} = {member};\n")
    return "".join(lines)


def dump(source, compiler, folders):
    """The tables of functions and the sizes by class, and the assembly."""
    with tempfile.TemporaryDirectory() as folder:
        (pathlib.Path(folder) / "p.cpp").write_text(program(source))
        includes = [f"-I{source / name}" for name in folders]
        subprocess.run([compiler, "-std=c++20", "-S", "-fdump-lang-class=classes", *includes, "p.cpp"],
                       cwd=folder, check=True)
        return (pathlib.Path(folder) / "classes").read_text(), (pathlib.Path(folder) / "p.s").read_text()


def tables(text):
    """Of each interface the number of its slots."""
    return {name: int(count) for name, count in
            re.findall(r"^Vtable for ((?:ZEL|wm|wmJobMgr)::\w+)\n.*: (\d+) entries$", text, re.M)}


def slots(assembly):
    """Of each function its slot, as a pointer to it holds it."""
    return dict(re.findall(r"^slot_(\w+):\n\s+\.quad\s+(\d+)", assembly, re.M))


def sizes(text):
    return {name: (size, align) for name, size, align in
            re.findall(r"^Class ((?:ZEL|wm|wmJobMgr)::\w+)\n   size=(\d+) align=(\d+)", text, re.M)}


def codes(assembly):
    return dict(re.findall(r"^code_(\w+):\n\s+\.long\s+(-?\d+)", assembly, re.M)) | {
        name: "0" for name in re.findall(r"^code_(\w+):\n\s+\.(?:space|zero)\s+4", assembly, re.M)}


def output(*command):
    return subprocess.run(command, check=True, capture_output=True, text=True).stdout


def object_exports(objdump, file):
    section = output(objdump, "-s", "-j", ".drectve", file)
    directives = bytes.fromhex("".join(
        "".join(line[6:41].split()) for line in section.splitlines() if re.match(r" [0-9a-f]{4} ", line)))
    return {name.decode() for name in re.findall(rb'-export:"?(\w+)', directives)}


def library_exports(objdump, file):
    return set(re.findall(r"^\t\[ *\d+\] (\w+)$", output(objdump, "-p", file), re.M))


def operations(names):
    """Full names without parameters, whose types have other sizes on the other system."""
    plain = {re.split(r"[(\[]", name)[0] for name in output("c++filt", *sorted(names)).splitlines()}
    return {name for name in plain if "::State::" not in name}


def compare_exports(objdump, libraries, host_library, component):
    found = {"its object": object_exports(objdump, component)}
    for name in ("ZELStore", "wmSet", "wmJobMgr"):
        if (libraries / f"{name}.dll").exists():
            found[name] = library_exports(objdump, libraries / f"{name}.dll")
    faults = [f"{name} exports {names}" for name, names in found.items() if names != {"GetFactory", "GetObjectCount"}]
    if not host_library.exists():
        print(f"{host_library} is not built: what it exports is not compared")
        return faults, len(found)
    here = operations(re.findall(r" T (\w+)$", output("nm", "-D", "--defined-only", host_library), re.M))
    there = operations(library_exports(objdump, libraries / "wmLib.dll"))
    if len(here) < 80 or here != there:
        faults.append(f"wmLib exports on one side alone: {here ^ there}")
    return faults, len(found) + 1


def main():
    source = pathlib.Path(sys.argv[1]).resolve()
    here, here_code = dump(source, sys.argv[2], ["src/include", "src"])
    there, there_code = dump(source, sys.argv[3],
                             ["src/host/wmlib/windows/include", "src/include", "src"])
    faults = []
    interfaces = tables(here)
    if len(interfaces) < 20 or interfaces != tables(there):
        faults.append(f"interfaces: {set(interfaces.items()) ^ set(tables(there).items())}")
    places = slots(here_code)
    if len(places) < 100 or places != slots(there_code):
        faults.append(f"slots: {set(places.items()) ^ set(slots(there_code).items())}")
    # Structures that hold texts or lists of the standard library stay on their side.
    plain = ["ZEL::GUID", "ZEL::JobTriggerValue", "wm::SystemTime"] + list(interfaces)
    for name in plain:
        if name not in sizes(here) or sizes(here)[name] != sizes(there).get(name):
            faults.append(f"{name}: size {sizes(here).get(name)}, there {sizes(there).get(name)}")
    numbers = codes(here_code)
    if len(numbers) < 30 or numbers != codes(there_code):
        faults.append(f"results differ: {set(numbers.items()) ^ set(codes(there_code).items())}")
    exports, libraries = compare_exports(sys.argv[4], pathlib.Path(sys.argv[5]), pathlib.Path(sys.argv[6]), sys.argv[7])
    faults += exports
    for fault in faults:
        print(fault)
    print(f"{len(interfaces)} interfaces, {len(places)} functions, {len(plain)} sizes, "
          f"{len(numbers)} results, exports of {libraries}: {'differ' if faults else 'equal'}")
    return 1 if faults else 0


if __name__ == "__main__":
    sys.exit(main())
