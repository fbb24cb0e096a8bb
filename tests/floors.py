#!/usr/bin/env python3
"""The library's folders stand on floors, and each floor includes only from the floors below it
(docs/DESIGN.md, "The floors"). This reads every #include of the library's sources and fails,
naming the file and the line, when one reaches a folder on its own floor or above, or names a
file that is neither a library folder's nor a public header.

    floors.py [--root DIR]   check the tree at DIR (default: this checkout)
    floors.py --self-test    show that each kind of fault is caught, on trees made for it
"""

import argparse
import os
import re
import sys
import tempfile

# From the bottom. A folder may always include from itself (its subfolders too).
FLOORS = {
    "platform": 1,
    "include": 1,
    "protocol": 2,
    "stores": 3,
    "monitors": 4,
    "security": 5,
    "notify": 6,
    "connection": 6,
    "frame": 7,
    "commands": 8,
}
# Made by the build, not kept in a folder: the version header, on the ground floor.
GENERATED = {"zanth_version.h": "include"}
SOURCES = (".h", ".hpp", ".c", ".cpp")
INCLUDE = re.compile(r'^\s*#\s*include\s*([<"])([^>"]+)[>"]')


def library_files(root):
    for folder in FLOORS:
        top = os.path.join(root, folder)
        for base, _, names in os.walk(top):
            for name in sorted(names):
                if name.endswith(SOURCES):
                    yield os.path.relpath(os.path.join(base, name), root).replace(os.sep, "/")


def folder_of(root, including, written, angle):
    """The top folder that an include reaches, or None when it is no file of the library's."""
    head = written.split("/", 1)[0]
    if "/" in written and head in FLOORS:
        return head
    if "/" in written or angle:
        # A system header (<cstdint>, <boost/any.hpp>), or a path of no library folder.
        return None if angle else "?"
    beside = os.path.join(root, os.path.dirname(including), written)
    if os.path.isfile(beside):
        return including.split("/", 1)[0]
    if os.path.isfile(os.path.join(root, "include", written)):
        return "include"
    return GENERATED.get(written, "?")


def check(root):
    faults = []
    for path in library_files(root):
        own = path.split("/", 1)[0]
        with open(os.path.join(root, path), encoding="utf-8", errors="replace") as f:
            for number, line in enumerate(f, 1):
                m = INCLUDE.match(line)
                if not m:
                    continue
                angle, written = m.group(1) == "<", m.group(2)
                target = folder_of(root, path, written, angle)
                if target is None or target == own:
                    continue
                if target == "?":
                    faults.append(f"{path}:{number}: includes \"{written}\", which is no file "
                                  "of a library folder nor a public header")
                elif FLOORS[target] >= FLOORS[own]:
                    faults.append(f"{path}:{number}: includes {written}: {target}/ stands on "
                                  f"floor {FLOORS[target]}, {own}/ on floor {FLOORS[own]}; a "
                                  "floor includes only from the floors below it")
    return faults


def self_test():
    """Each kind of fault, planted in a small tree, must be reported; the clean tree must not."""
    cases = {
        "clean": ({}, 0),
        "upward": ({"stores/LogMon.cpp": '#include "monitors/HandleMon.h"\n'}, 1),
        "same floor": ({"notify/Reset.cpp": '#include "connection/Worker.h"\n'}, 1),
        "unknown": ({"frame/Master.cpp": '#include "Globals.h"\n'}, 1),
        "angle brackets": ({"protocol/Text.cpp": "#include <security/Crypto.h>\n"}, 1),
    }
    base = {
        "platform/Thread.h": "#include <cstdint>\n",
        "include/zanth.h": "",
        "protocol/Text.cpp": '#include "platform/Thread.h"\n#include "zanth.h"\n',
        "stores/LogMon.cpp": '#include "protocol/Text.h"\n#include "zanth_version.h"\n',
        "monitors/HandleMon.h": '#include "stores/LogMon.h"\n',
        "security/Crypto.h": "",
        "notify/Reset.cpp": '#include "monitors/HandleMon.h"\n#include "Reset.h"\n',
        "notify/Reset.h": "",
        "connection/Worker.h": '#include "security/Crypto.h"\n',
        "frame/Master.cpp": '#include "connection/Worker.h"\n#include "notify/Reset.h"\n',
        "commands/card/Add.cpp": '#include "frame/Master.h"\n#include "commands/card/Add.h"\n',
    }
    failed = False
    for name, (changes, expected) in cases.items():
        with tempfile.TemporaryDirectory() as root:
            for path, text in {**base, **changes}.items():
                os.makedirs(os.path.join(root, os.path.dirname(path)), exist_ok=True)
                with open(os.path.join(root, path), "w", encoding="utf-8") as f:
                    f.write(text)
            faults = check(root)
        if len(faults) != expected:
            failed = True
            print(f"self-test {name}: {len(faults)} faults, {expected} expected: {faults}")
    return 1 if failed else 0


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--root", default=os.path.join(os.path.dirname(__file__), ".."))
    parser.add_argument("--self-test", action="store_true")
    args = parser.parse_args()
    if args.self_test:
        return self_test()
    faults = check(os.path.abspath(args.root))
    for fault in faults:
        print(fault)
    return 1 if faults else 0


if __name__ == "__main__":
    sys.exit(main())
