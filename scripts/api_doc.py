#!/usr/bin/env python3
"""Writes docs/API.md from include/zanth.h, or with --check fails when the page has drifted.

The header is the one source: its family sections ("/* ---- Title ---- */"), the comment in
front of each declaration, and the table of library results in its opening comment.
"""
import re
import sys
from pathlib import Path

ROOT = Path(__file__).resolve().parent.parent
HEADER = ROOT / "include" / "zanth.h"
PAGE = ROOT / "docs" / "API.md"

SECTION = re.compile(r"^/\* ---- (.+?) -+ \*/$")
DECL = re.compile(r"ZANTH_API\s+(\w+)\s+(\w+)\s*\((.*?)\)\s*;", re.S)


def comment_text(block):
    lines = []
    for line in block.splitlines():
        line = line.strip()
        line = re.sub(r"^/\*+\s?", "", line)
        line = re.sub(r"\s?\*+/$", "", line)
        line = re.sub(r"^\*\s?", "", line)
        lines.append(line)
    return "\n".join(lines).strip()


def results_table(text):
    rows = []
    for m in re.finditer(r"^ \*\s+(-100\d\d)\s+(k\w+)\s+(.+?)(?=^ \*\s+-100\d\d|^ \*/|^ \*\s*$)",
                         text, re.M | re.S):
        meaning = " ".join(part.strip(" *") for part in m.group(3).splitlines()).strip()
        rows.append((m.group(1), m.group(2), re.sub(r"\s+", " ", meaning)))
    return rows


def build():
    text = HEADER.read_text()
    out = ["# libzanth API reference", "",
           "Generated from `include/zanth.h` by `scripts/api_doc.py`; edit the header, not this page.",
           "A CTest test (`docs.api`) fails when the two differ.", ""]
    rows = results_table(text)
    out += ["## Library results", "", "| code | name | meaning to a host |", "|---|---|---|"]
    out += [f"| {c} | `{n}` | {m} |" for c, n, m in rows]
    out.append("")
    count = 0
    pending = []      # comments seen since the last declaration
    section_note = None
    body = text[text.index("#ifdef __cplusplus\nextern \"C\""):] if "extern \"C\"" in text else text
    pos = 0
    tokens = re.finditer(r"(/\*.*?\*/)|(ZANTH_API\s+\w+\s+\w+\s*\(.*?\)\s*;)", body, re.S)
    for tok in tokens:
        if tok.group(1):
            first = tok.group(1).strip().splitlines()[0]
            m = SECTION.match(first)
            if m:
                out += [f"## {m.group(1)}", ""]
                pending = []
                continue
            note = comment_text(tok.group(1))
            if note and note != "(declarations of this family follow)":
                pending.append(note)
            continue
        d = DECL.search(tok.group(2))
        ret, name, args = d.group(1), d.group(2), " ".join(d.group(3).split())
        count += 1
        form = "returns at once; the reply comes under `rspid`" if name.startswith("Rsp") else "blocking or local"
        out += [f"### `{name}`", "", "```c", f"{ret} {name}({args});", "```", "", f"Form: {form}.", ""]
        if pending:
            out += ["\n\n".join(pending), ""]
            pending = []
    out.insert(4, f"{count} exports.")
    return "\n".join(out).rstrip() + "\n"


def main():
    page = build()
    if "--check" in sys.argv:
        if not PAGE.exists() or PAGE.read_text() != page:
            sys.stderr.write("docs/API.md differs from include/zanth.h: run scripts/api_doc.py\n")
            return 1
        return 0
    PAGE.write_text(page)
    return 0


if __name__ == "__main__":
    sys.exit(main())
