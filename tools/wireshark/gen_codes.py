#!/usr/bin/env python3
"""Writes the code table of the Wireshark dissector (tools/wireshark/zanth.lua) from the
library's one code list, protocol/CodeList.h, so that the dissector names every code exactly as
the library does and the two can't drift apart.

    python3 tools/wireshark/gen_codes.py           # rewrite the table in zanth.lua
    python3 tools/wireshark/gen_codes.py --check   # exit 1, with a diff, if it is out of date

The table sits in zanth.lua between the BEGIN and END lines below; the rest of the file is
written by hand. Each code gets its constant, its name text and its class:

  command      a request of the host (below 1000)
  reply        an answer to the other side's message: the controller's answers are the codes
               the library's IsResponseCode accepts (9910, 9920 and names holding "_RSP"); the
               host's are the codes below 1000 whose names hold "_RSP" (the acknowledgements)
               and 70 and 71, its answer to an identification
               and the codes whose names are a host request's with _MORE or _END behind
               (the chunks of a file that the host asked for)
  unsolicited  a message the controller sends of its own accord, or a request of its own
  either side  9980 and 9990, which both sides send

The codes that Codes.h adds after the list (sent although the name table has no row for them)
are listed apart: the library names them "TOTALLY UNKNOWN CODE (n)".
"""

import argparse
import difflib
import pathlib
import re
import sys

ROOT = pathlib.Path(__file__).resolve().parents[2]
CODE_LIST = ROOT / "protocol" / "CodeList.h"
CODES_H = ROOT / "protocol" / "Codes.h"
DISSECTOR = ROOT / "tools" / "wireshark" / "zanth.lua"

BEGIN = "-- BEGIN CODE TABLE (tools/wireshark/gen_codes.py writes it from protocol/CodeList.h)"
END = "-- END CODE TABLE"

ROW = re.compile(r'^ZANTH_CODE\(\s*(\d+)\s*,\s*(\w+)\s*,\s*"((?:[^"\\]|\\.)*)"\s*\)\s*$')
EXTRA = re.compile(r"^constexpr\s+int32_t\s+(ZANTH_\w+)\s*=\s*(\d+)\s*;")

# The protocol-level codes that IsResponseCode accepts by number (protocol/MessageUtil.cpp).
RESPONSE_BY_NUMBER = {9910, 9920, 9980, 9990}
# Sent by both sides: a failed file transfer, and the end of the connection.
EITHER_SIDE = {9980, 9990}
# The host's answer to a controller's identification: accept and reject.
IDENTIFICATION_ANSWERS = {"ZANTH_ACCEPT_CONNECTION", "ZANTH_REJECT_CONNECTION"}


def read_codes():
    codes = []
    for number, line in enumerate(CODE_LIST.read_text().splitlines(), 1):
        line = line.strip()
        if not line.startswith("ZANTH_CODE("):
            continue
        m = ROW.match(line)
        if not m:
            sys.exit(f"{CODE_LIST}:{number}: can't read the row: {line}")
        codes.append((int(m.group(1)), m.group(2), m.group(3).encode().decode("unicode_escape")))
    if not codes:
        sys.exit(f"{CODE_LIST}: no ZANTH_CODE rows")
    numbers = [c[0] for c in codes]
    if numbers != sorted(set(numbers)):
        sys.exit(f"{CODE_LIST}: the codes are not in ascending order, or one is repeated")
    return codes


def read_unnamed(known):
    """Constants of Codes.h that stand outside the list: codes sent without a name row."""
    extra = []
    after_list = False
    for line in CODES_H.read_text().splitlines():
        if '#include "protocol/CodeList.h"' in line:
            after_list = True
            continue
        m = EXTRA.match(line.strip())
        if after_list and m and int(m.group(2)) not in known:
            extra.append((int(m.group(2)), m.group(1)))
    return sorted(extra)


def code_class(code, name, commands=()):
    if code in EITHER_SIDE:
        return "either side"
    if code < 1000:
        if "_RSP" in name:
            return "reply"
        return "command"
    if code in RESPONSE_BY_NUMBER or "_RSP" in name:
        return "reply"
    constant = name.split(" ")[0]
    for suffix in ("_MORE", "_END"):
        if constant.endswith(suffix) and constant[: -len(suffix)] in commands:
            return "reply"
    return "unsolicited"


def lua_string(text):
    return '"' + text.replace("\\", "\\\\").replace('"', '\\"') + '"'


def table():
    codes = read_codes()
    unnamed = read_unnamed({c[0] for c in codes})
    commands = {constant for code, constant, name in codes if code_class(code, name) == "command"}
    lines = [BEGIN, "-- Do not edit: run the script after a change to the code list.", "local CODES = {"]
    for code, constant, name in codes:
        cls = "reply" if constant in IDENTIFICATION_ANSWERS else code_class(code, name, commands)
        lines.append(f"    [{code}] = {{ {lua_string(constant)}, {lua_string(name)}, {lua_string(cls)} }},")
    lines.append("}")
    lines.append("-- Sent although the name table has no row for them.")
    lines.append("local UNNAMED_CODES = {")
    for code, constant in unnamed:
        lines.append(f"    [{code}] = {{ {lua_string(constant)}, {lua_string(code_class(code, constant))} }},")
    lines.append("}")
    lines.append(END)
    return "\n".join(lines) + "\n"


def splice(text, block):
    start = text.find(BEGIN)
    end = text.find(END)
    if start < 0 or end < start:
        sys.exit(f"{DISSECTOR}: the BEGIN and END lines of the code table are missing")
    end = text.index("\n", end) + 1
    return text[:start] + block + text[end:]


def main():
    parser = argparse.ArgumentParser(description=__doc__.split("\n\n")[0])
    parser.add_argument("--check", action="store_true",
                        help="fail with a diff if zanth.lua's table is not what the list gives")
    args = parser.parse_args()
    current = DISSECTOR.read_text()
    wanted = splice(current, table())
    if args.check:
        if current != wanted:
            sys.stdout.writelines(difflib.unified_diff(
                current.splitlines(True), wanted.splitlines(True),
                "zanth.lua (committed)", "zanth.lua (from protocol/CodeList.h)"))
            print("gen_codes: zanth.lua's code table is out of date; run "
                  "python3 tools/wireshark/gen_codes.py", file=sys.stderr)
            return 1
        print(f"gen_codes: zanth.lua's code table matches protocol/CodeList.h "
              f"({len(read_codes())} codes)")
        return 0
    if current != wanted:
        DISSECTOR.write_text(wanted)
        print(f"gen_codes: wrote the code table of {DISSECTOR.relative_to(ROOT)}")
    else:
        print("gen_codes: the code table was already up to date")
    return 0


if __name__ == "__main__":
    sys.exit(main())
