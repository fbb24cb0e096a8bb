#!/usr/bin/env python3
"""The API as data: reads the header, the annotations beside this script and the wire code list,
and writes the API model and everything made from it.

Inputs (read only):
  include/zanth.h          the 275 declarations, their doc comments, the families, the results
  api/annotations.toml     what a declaration can't say: roles, bounds, modes, rules, layouts
  protocol/CodeList.h      the wire codes, read by name
  CMakeLists.txt           the library's version
Outputs (committed, never edited by hand):
  api/zanth-api.json       the model
  bindings/python/zanth/zanth-api.json   the Python package's copy of it (the package ships it)
  docs/API.md              the reference page for host developers
  include/zanth_table.hpp  the model as C++ tables and call thunks (the dynamic layer's data)
  include/zanth_api.hpp    typed C++ wrappers of every export

  python3 api/generate.py           write the outputs
  python3 api/generate.py --check   fail (status 1) when an output differs from what the inputs
                                    give; the CTest test docs.api runs this
  --root DIR                        work on another checkout (the drift test uses a copy)

Standard library only (Python 3.11: tomllib).
"""
import argparse
import json
import re
import sys
import tomllib
from pathlib import Path

SCHEMA_VERSION = 1
HERE = Path(__file__).resolve().parent

INT_RANGES = {
    "int32_t": (-2147483648, 2147483647),
    "uint32_t": (0, 4294967295),
    "uint16_t": (0, 65535),
    "char": (-128, 127),
}
CALLBACK_TYPES = ("ZanthTextCallback", "ZanthResponseCallback", "ZanthConnectionCallback")
# Keys of a parameter annotation that describe its bounds: a Rsp form or a fixed-mode form
# inherits these from the export it mirrors.
BOUND_KEYS = ("min", "max", "values", "pattern", "no_semicolon", "not_empty", "max_length",
              "local_path", "verbatim", "min_capacity")
ROLES = ("mac", "rspid", "in", "in_char", "in_text", "writable_text", "out_text", "inout_text",
         "out_bytes", "in_bytes", "size", "out_int32", "out_uint32", "out_uint64", "inout_int32",
         "callback", "handle", "local_path", "mode_dependent")
CATEGORIES = ("command", "setting", "life", "info", "callback", "queue", "message_file")
FIELD_KINDS = ("result", "int", "uint", "strict_int", "status", "text", "stamp", "rest", "skip",
               "wire_date", "wire_time")
RESULT_MAPS = ("low", "none", "leading", "board", "mox", "error_log", "transfer")
PATTERNS = ("hex", "hex_or_empty", "octal3", "date", "date_or_zero", "time", "time_or_zero")
OTHER_CODE = ("check_error_code", "no_reply", "zero", "cannot_process")
DEFAULT_MAX_SIZE = 1048576


class ModelError(Exception):
    """A fact of the inputs that the model can't be built from."""


# ---- Reading the inputs --------------------------------------------------------------------

def comment_lines(block):
    """The text lines of a C comment, without its markers."""
    lines = []
    for line in block.splitlines():
        line = line.strip()
        line = re.sub(r"^/\*+\s?", "", line)
        line = re.sub(r"\s?\*+/$", "", line)
        line = re.sub(r"^\*\s?", "", line)
        lines.append(line.rstrip())
    return lines


def reflow(lines):
    """Comment lines as paragraphs: wrapped lines joined, list items ("- ", "* ") kept apart,
    paragraphs separated by a blank line."""
    paragraphs, current = [], []
    for line in lines:
        if not line.strip():
            if current:
                paragraphs.append(current)
                current = []
            continue
        stripped = line.strip()
        if re.match(r"^[-*] ", stripped) or not current:
            current.append(stripped)
        else:
            current[-1] += " " + stripped
    if current:
        paragraphs.append(current)
    return "\n\n".join("\n".join(p) for p in paragraphs).strip()


def parse_results(text):
    """The table of library results in the header's opening comment."""
    rows = []
    pattern = r"^ \*\s+(-100\d\d)\s+(k\w+)\s+(.+?)(?=^ \*\s+-100\d\d|^ \*/|^ \*\s*$)"
    for m in re.finditer(pattern, text, re.M | re.S):
        meaning = " ".join(part.strip(" *") for part in m.group(3).splitlines()).strip()
        rows.append({"code": int(m.group(1)), "name": m.group(2),
                     "meaning": re.sub(r"\s+", " ", meaning)})
    if not rows:
        raise ModelError("include/zanth.h: no table of library results in the opening comment")
    return rows


def parse_param(text, export):
    text = " ".join(text.split())
    m = re.match(r"^(const\s+char\s*\*|char\s*\*|int32_t\s*\*|uint32_t\s*\*|uint64_t\s*\*|void\s*\*|ZanthResponse\s*\*|"
                 r"int32_t|uint32_t|uint16_t|char|Zanth\w+)\s*(\w+)$", text)
    if not m:
        raise ModelError(f"include/zanth.h: {export}: can't read the parameter '{text}'")
    ctype = re.sub(r"\s*\*", "*", " ".join(m.group(1).split()))
    return {"name": m.group(2), "ctype": ctype}


def header_items(body):
    """The header after its opening comment as a list of items: comment, blank, decl, define,
    typedef, other; each with its text and line number."""
    lines = body.splitlines()
    items, i = [], 0
    while i < len(lines):
        stripped = lines[i].strip()
        start = i
        if stripped.startswith("/*"):
            while "*/" not in lines[i]:
                i += 1
            items.append(("comment", "\n".join(lines[start:i + 1]), start))
        elif not stripped:
            items.append(("blank", "", start))
        elif stripped.startswith("ZANTH_API"):
            while not lines[i].rstrip().endswith(";"):
                i += 1
            items.append(("decl", " ".join(l.strip() for l in lines[start:i + 1]), start))
        elif stripped.startswith("#define ZANTH_") and not stripped.startswith("#define ZANTH_API"):
            items.append(("define", stripped, start))
        elif stripped.startswith("typedef"):
            if "{" in stripped:
                while not re.match(r"^\}\s*\w+\s*;", lines[i].strip()):
                    i += 1
            else:
                while not lines[i].rstrip().endswith(";"):
                    i += 1
            items.append(("typedef", "\n".join(lines[start:i + 1]), start))
        else:
            items.append(("other", stripped, start))
        i += 1
    return items


def parse_header(path):
    text = path.read_text()
    results = parse_results(text)
    opening_end = text.index("*/") + 2
    body = text[opening_end:]
    families, exports, constants, typedefs = [], [], {}, {}
    family = None
    pending = []       # comments since the last blank line, not yet given to a declaration
    notes = []         # comments of the family that belong to no declaration group
    group_doc = ""

    decl_re = re.compile(r"ZANTH_API\s+(\w+)\s+(\w+)\s*\((.*?)\)\s*;", re.S)
    for kind, item, _ in header_items(body):
        if kind == "comment":
            first = item.strip().splitlines()[0]
            section = re.match(r"^/\* ---- (.+?) -+ \*/$", first)
            if section:
                if family is not None:
                    family["notes"] = "\n\n".join(n for n in notes + pending if n)
                family = {"title": section.group(1), "notes": ""}
                families.append(family)
                pending, notes, group_doc = [], [], ""
                continue
            text_lines = comment_lines(item)
            doc = reflow(text_lines)
            if doc and doc != "(declarations of this family follow)":
                pending.append(doc)
        elif kind == "blank":
            # Comments followed by a blank line document the family, not the next declaration.
            notes.extend(pending)
            pending = []
        elif kind == "decl":
            m = decl_re.search(item)
            if not m:
                raise ModelError(f"include/zanth.h: can't read the declaration '{item}'")
            if pending:
                group_doc = "\n\n".join(pending)
                pending = []
            args = " ".join(m.group(3).split())
            params = [] if args == "void" else [parse_param(a, m.group(2)) for a in args.split(",")]
            exports.append({"name": m.group(2), "returns": m.group(1), "params": params,
                            "family_title": family["title"] if family else None,
                            "doc": group_doc,
                            "decl": f"{m.group(1)} {m.group(2)}({args});"})
        elif kind == "define":
            m = re.match(r"#define\s+(ZANTH_\w+)\s+(\d+)", item)
            if m:
                constants[m.group(1)] = int(m.group(2))
        elif kind == "typedef":
            doc = "\n\n".join(pending)
            pending = []
            m = re.search(r"\(\*(\w+)\)\((.*?)\)", item)
            if m:
                typedefs[m.group(1)] = {"doc": doc, "params": [parse_param(a, m.group(1))
                                                               for a in m.group(2).split(",")]}
            else:
                name = re.search(r"\}\s*(\w+)\s*;", item).group(1)
                typedefs[name] = {"doc": doc, "definition": item.strip()}
    if family is not None:
        family["notes"] = "\n\n".join(n for n in notes + pending if n)
    return {"results": results, "families": families, "exports": exports,
            "constants": constants, "typedefs": typedefs}


def parse_codes(path):
    codes = {}
    for m in re.finditer(r'^ZANTH_CODE\((\d+),\s*(\w+),\s*"([^"]*)"\)', path.read_text(), re.M):
        codes[m.group(2)] = {"value": int(m.group(1)), "text": m.group(3)}
    if not codes:
        raise ModelError("protocol/CodeList.h: no ZANTH_CODE entries")
    return codes


def parse_version(path):
    m = re.search(r"project\(zanth VERSION ([\d.]+)", path.read_text())
    if not m:
        raise ModelError("CMakeLists.txt: no project(zanth VERSION ...)")
    return m.group(1)


# ---- Building the model ----------------------------------------------------------------------

def base_of(ctype, role):
    if role in ("in_bytes", "out_bytes"):
        return "bytes"
    return {"const char*": "text", "char*": "text", "int32_t": "int32", "uint32_t": "uint32",
            "uint16_t": "uint16", "char": "char", "int32_t*": "int32", "uint32_t*": "uint32",
            "uint64_t*": "uint64", "void*": "handle"}.get(ctype, "callback")


def infer_role(params, index):
    """A parameter's role from its declaration alone."""
    p = params[index]
    name, ctype = p["name"], p["ctype"]
    nxt = params[index + 1] if index + 1 < len(params) else None
    prev = params[index - 1] if index > 0 else None
    if name == "mac" and ctype == "const char*":
        return "mac"
    if name == "rspid" and ctype == "uint32_t":
        return "rspid"
    if ctype in CALLBACK_TYPES:
        return "callback"
    if ctype == "void*":
        return "handle"
    if ctype == "const char*":
        return "in_text"
    if ctype == "char*":
        if nxt and nxt["ctype"] == "int32_t" and nxt["name"] in ("size", name + "Size"):
            return "out_text"
        return "writable_text"
    if ctype == "int32_t" and prev and prev["ctype"] in ("char*", "const char*") and \
            name in ("size", prev["name"] + "Size"):
        return "size"
    if ctype == "int32_t*":
        return "out_int32"
    if ctype == "uint32_t*":
        return "out_uint32"
    if ctype == "uint64_t*":
        return "out_uint64"
    if ctype == "char":
        return "in_char"
    return "in"


def resolve_constant(value, constants, where):
    if isinstance(value, str):
        if value not in constants:
            raise ModelError(f"{where}: no constant {value} in include/zanth.h")
        return constants[value]
    return value


class Builder:
    """Turns the parsed header, the code list and the annotations into the model."""

    def __init__(self, header, codes, notes, version):
        self.header, self.codes, self.notes, self.version = header, codes, notes, version
        self.decls = {e["name"]: e for e in header["exports"]}
        self.ann = notes.get("exports", {})
        for name in self.ann:
            if name not in self.decls:
                raise ModelError(f"api/annotations.toml: [exports.{name}] names no export of "
                                 "include/zanth.h")
        self.layouts = self.build_layouts()
        self.resolved = {}

    # -- annotations of one export, with what it inherits --

    def own(self, name):
        """The export's annotations with `same_as` followed (names and all else copied)."""
        a = dict(self.ann.get(name, {}))
        if "same_as" in a:
            other = a.pop("same_as")
            if other not in self.decls:
                raise ModelError(f"api/annotations.toml: {name}: same_as {other} is no export")
            base = self.own(other)
            base.pop("why", None)
            base.update(a)
            a = base
            a["alias_of"] = other
        return a

    def twins(self):
        """Pairs of blocking and Rsp forms: by name, then as the annotations say."""
        pairs = {}
        for name in self.decls:
            rsp = "Rsp" + name
            if rsp in self.decls:
                pairs[name] = rsp
        for name in self.decls:
            a = self.own(name)
            if "twin" in a:
                if a["twin"]:
                    if a["twin"] not in self.decls:
                        raise ModelError(f"api/annotations.toml: {name}: twin {a['twin']} is no "
                                         "export")
                    pairs = {k: v for k, v in pairs.items() if v != a["twin"]}
                    pairs[name] = a["twin"]
                else:
                    pairs.pop(name, None)
        return pairs

    # -- layouts --

    def build_layouts(self):
        raw = self.notes.get("layouts", {})
        out = {}

        def build(name, seen=()):
            if name in out:
                return out[name]
            if name not in raw:
                raise ModelError(f"api/annotations.toml: no layout '{name}'")
            if name in seen:
                raise ModelError(f"api/annotations.toml: layout '{name}' extends itself")
            spec = raw[name]
            fields = []
            if "extends" in spec:
                fields = [dict(f) for f in build(spec["extends"], seen + (name,))["fields"]]
            for f in spec.get("fields", []):
                if f.get("kind") not in FIELD_KINDS:
                    raise ModelError(f"api/annotations.toml: layout {name}: kind {f.get('kind')}")
                if f["kind"] == "result" and f.get("map", "low") not in RESULT_MAPS:
                    raise ModelError(f"api/annotations.toml: layout {name}: map {f['map']}")
                fields.append(dict(f))
            layout = {"doc": spec["doc"], "fields": fields,
                      "tokenizer": spec.get("tokenizer", "tokens")}
            if layout["tokenizer"] not in self.notes.get("tokenizers", {}):
                raise ModelError(f"api/annotations.toml: layout {name}: tokenizer "
                                 f"{layout['tokenizer']}")
            for key in ("delimiter", "exact_count", "count_mismatch", "result", "raw"):
                if key in spec:
                    layout[key] = spec[key]
            if layout["tokenizer"] == "getline":
                layout.setdefault("delimiter", ";")
            out[name] = layout
            return layout

        for name in raw:
            build(name)
        return out

    @staticmethod
    def layout_outputs(layout):
        outs = []
        for f in layout["fields"]:
            if "out" in f:
                outs.append(f["out"])
            if "out2" in f:
                outs.append(f["out2"])
        return outs

    # -- wire codes --

    def code_ref(self, ref, where):
        """A code as the annotations name it: a CodeList.h name, "library" (a frame of code 0
        made by the library), "any" (the reply's code is not tested), or a number that has no
        name in the list."""
        if ref == "library":
            return {"name": None, "value": 0, "source": "library"}
        if ref == "any":
            return {"name": None, "value": None, "source": "any"}
        if isinstance(ref, int):
            named = [n for n, c in self.codes.items() if c["value"] == ref]
            if named:
                raise ModelError(f"{where}: code {ref} is {named[0]} in protocol/CodeList.h: name "
                                 "it, don't copy its number")
            return {"name": None, "value": ref, "source": "unnamed"}
        if ref not in self.codes:
            raise ModelError(f"{where}: no code {ref} in protocol/CodeList.h")
        c = self.codes[ref]
        return {"name": ref, "value": c["value"], "source": "list",
                "deprecated": c["text"].endswith("deprecated")}

    def wire(self, name, a):
        """sends, replies and the rule for another reply code, from the annotations."""
        where = f"api/annotations.toml: {name}"
        if "send" in a or "sends" in a:
            sends = a.get("sends") or [{"code": a["send"]}]
        else:
            sends = []
        if "reply" in a or "replies" in a:
            replies = a.get("replies") or [{"code": a["reply"], "layout": a.get("layout")}]
            if "outs" in a:
                replies = [dict(r, outs=a["outs"]) for r in replies]
        else:
            replies = []
        wire = {"sends": [], "replies": [], "other_code": a.get("other_code", "check_error_code"),
                "awaits_reply": a.get("awaits_reply", True)}
        if wire["other_code"] not in OTHER_CODE:
            raise ModelError(f"{where}: other_code {wire['other_code']}")
        for s in sends:
            entry = self.code_ref(s["code"], where)
            for key in ("mode", "when"):
                if key in s:
                    entry[key] = s[key]
            wire["sends"].append(entry)
        for r in replies:
            if r.get("layout") not in self.layouts:
                raise ModelError(f"{where}: reply {r.get('code')} has no layout")
            entry = self.code_ref(r["code"], where)
            entry["layout"] = r["layout"]
            outs = self.layout_outputs(self.layouts[r["layout"]])
            if "outs" in r:
                if len(r["outs"]) != len(outs):
                    raise ModelError(f"{where}: outs {r['outs']} for layout {r['layout']} with "
                                     f"{len(outs)} outputs")
                entry["outs"] = list(r["outs"])
            else:
                entry["outs"] = outs
            for key in ("mode", "when"):
                if key in r:
                    entry[key] = r[key]
            wire["replies"].append(entry)
        if not wire["sends"] and not wire["replies"]:
            return None
        return wire

    @staticmethod
    def wire_of_mode(wire, mode):
        """The sends and replies of one mode, its tag dropped (a form with the mode fixed)."""
        if wire is None:
            return None
        fixed = dict(wire)
        for key in ("sends", "replies"):
            fixed[key] = [{k: v for k, v in e.items() if k != "mode"}
                          for e in wire[key] if e.get("mode", mode) == mode]
        return fixed

    # -- parameters --

    def param_bounds(self, name, export, spec, role, base, ctype):
        """Stated bounds of one parameter, checked; the type's range where none is stated."""
        where = f"api/annotations.toml: {export}.{name}"
        out = {}
        for key in BOUND_KEYS:
            if key in spec:
                out[key] = spec[key]
        if "pattern" in out and out["pattern"] not in PATTERNS:
            raise ModelError(f"{where}: pattern {out['pattern']}")
        if base in ("int32", "uint32", "uint16", "char") and ctype in INT_RANGES:
            low, high = INT_RANGES[ctype]
            if "values" in out and base == "char":
                out["values"] = [ord(v) if isinstance(v, str) else v for v in out["values"]]
            out.setdefault("min", low)
            out.setdefault("max", high)
            if out["min"] < low or out["max"] > high or out["min"] > out["max"]:
                raise ModelError(f"{where}: bounds {out['min']}..{out['max']} outside {ctype}")
        return out

    def build_params(self, name, a, mirror, mirror_mode, is_rsp, to_controller):
        """The export's parameters: roles inferred, then annotated; bounds from the annotation,
        from the export it mirrors (twin or mode export), or from the parameter's name."""
        decl = self.decls[name]
        params = []
        names = [p["name"] for p in decl["params"]]
        own = a.get("params", {})
        for pname in own:
            if pname not in names:
                raise ModelError(f"api/annotations.toml: {name}: no parameter {pname}")
        defaults = self.notes.get("param_defaults", {})
        for i, p in enumerate(decl["params"]):
            spec = {}
            inherited = mirror.get(p["name"]) if mirror else None
            role = infer_role(decl["params"], i)
            if role in ("in", "in_text", "writable_text", "local_path", "in_char", "inout_int32",
                        "inout_text") and p["name"] in defaults:
                spec.update(defaults[p["name"]])
            if inherited:
                for key in BOUND_KEYS:
                    if key in inherited:
                        spec[key] = inherited[key]
                if "by_mode" in inherited:
                    if mirror_mode is not None:
                        spec.update(inherited["by_mode"].get(str(mirror_mode), {}))
                        spec.pop("dir", None)
                    else:
                        spec["by_mode"] = inherited["by_mode"]
            spec.update(own.get(p["name"], {}))
            if "role" in spec:
                role = spec.pop("role")
            if role not in ROLES:
                raise ModelError(f"api/annotations.toml: {name}.{p['name']}: role {role}")
            entry = {"name": p["name"], "ctype": p["ctype"]}
            by_mode = spec.pop("by_mode", None)
            if by_mode is not None:
                entry["by_mode"] = self.build_by_mode(name, p, by_mode, is_rsp, to_controller)
                dirs = {m["dir"] for m in entry["by_mode"].values()} - {"unused"}
                if len(dirs) > 1:
                    role = "mode_dependent"
            base = base_of(p["ctype"], role)
            entry["role"] = role
            entry["base"] = base
            entry["dir"] = ("by_mode" if role == "mode_dependent" else
                            "out" if role.startswith("out_") else
                            "inout" if role.startswith("inout_") else "in")
            if role == "callback":
                entry["callback"] = {"shape": p["ctype"], "kind": spec.pop("kind", None),
                                     "padded": spec.pop("padded", False)}
            if role == "local_path":
                spec["local_path"] = True
            # A text that goes into a ';'-separated payload would shift the fields behind it.
            if to_controller and p["ctype"] in ("const char*", "char*") and \
                    not spec.get("verbatim") and not spec.get("local_path") and role != "mac":
                spec.setdefault("no_semicolon", True)
            for key in ("fixed_size", "default", "frame", "count_param", "size_param"):
                if key in spec:
                    value = spec.pop(key)
                    if key in ("fixed_size", "default"):
                        value = resolve_constant(value, self.header["constants"],
                                                 f"{name}.{p['name']}")
                    entry[key] = value
            if role not in ("out_text", "out_bytes", "out_int32", "out_uint32", "out_uint64",
                            "callback", "handle", "mac", "size"):
                entry.update(self.param_bounds(p["name"], name, spec, role, base, p["ctype"]))
            elif role == "size":
                entry.update(self.param_bounds(p["name"], name, spec, role, base, p["ctype"]))
            if role in ("rspid",):
                entry.update(self.param_bounds(p["name"], name, spec, role, base, p["ctype"]))
            params.append(entry)
        self.link_sizes(name, params)
        return params

    def build_by_mode(self, name, p, by_mode, is_rsp, to_controller):
        out = {}
        for mode, spec in sorted(by_mode.items(), key=lambda kv: int(kv[0])):
            spec = dict(spec)
            d = spec.pop("dir", "in")
            if is_rsp and p["ctype"] != "char*" and d in ("out", "inout"):
                d = "unused"
            if is_rsp and d == "out":
                d = "unused"
            if d not in ("in", "out", "inout", "unused"):
                raise ModelError(f"api/annotations.toml: {name}.{p['name']}: dir {d}")
            entry = {"dir": d}
            if d in ("in", "inout") and p["ctype"] in ("const char*", "char*") and \
                    to_controller and not spec.get("local_path"):
                spec.setdefault("no_semicolon", True)
            if d in ("in", "inout"):
                ctype = p["ctype"].rstrip("*") if p["ctype"] in ("int32_t*", "uint32_t*",
                                                                 "uint64_t*") else p["ctype"]
                if ctype == "uint64_t":
                    ctype = "uint32_t"  # the ring's new size is read as 32 bits
                base = base_of(p["ctype"], "in")
                entry.update(self.param_bounds(p["name"], name, spec, "in", base, ctype))
            out[str(mode)] = entry
        return out

    def link_sizes(self, name, params):
        """Ties each buffer to its size parameter and back; sets default sizes."""
        by_name = {p["name"]: p for p in params}
        for i, p in enumerate(params):
            if p["role"] in ("out_text", "inout_text", "out_bytes", "in_bytes", "mode_dependent") \
                    and p["ctype"] in ("char*", "const char*") and "fixed_size" not in p:
                size = p.get("size_param")
                if size is None and i + 1 < len(params) and params[i + 1]["ctype"] == "int32_t" \
                        and params[i + 1]["name"] in ("size", p["name"] + "Size"):
                    size = params[i + 1]["name"]
                if size is None:
                    if p["role"] != "mode_dependent":
                        raise ModelError(f"{name}.{p['name']}: an output buffer without a size")
                    continue
                p["size_param"] = size
                sp = by_name[size]
                sp["role"] = "size"
                sp["of"] = p["name"]
                sp.setdefault("default", 4097 if p["role"] != "in_bytes" else None)
                if sp["default"] is None:
                    del sp["default"]
                sp["min"] = max(sp.get("min", 0), 0)
                if sp.get("max", DEFAULT_MAX_SIZE) > DEFAULT_MAX_SIZE or sp.get("max") == 2147483647:
                    sp["max"] = DEFAULT_MAX_SIZE
            if "count_param" in p and p["count_param"] not in by_name:
                raise ModelError(f"{name}.{p['name']}: no count parameter {p['count_param']}")
        for p in params:
            if p["role"] == "size" and "of" not in p:
                raise ModelError(f"{name}.{p['name']}: a size of no buffer")

    # -- one export --

    def resolve(self, name):
        if name in self.resolved:
            return self.resolved[name]
        self.resolved[name] = None  # a cycle of same_as / fixed_mode_of / twins shows as None
        decl = self.decls[name]
        a = self.own(name)
        pairs = self.twins()
        blocking_twin = next((b for b, r in pairs.items() if r == name), None)
        has_mac = any(p["name"] == "mac" for p in decl["params"])
        has_rspid = bool(decl["params"]) and decl["params"][0] == {"name": "rspid",
                                                                  "ctype": "uint32_t"}
        form = a.get("form") or ("rsp" if has_rspid else "blocking" if has_mac else "local")
        mirror, mirror_mode, inherited = None, None, None
        if "fixed_mode_of" in a:
            source = self.resolve(a["fixed_mode_of"])
            mirror = {p["name"]: p for p in source["params"]}
            mirror_mode = a["mode"]
            inherited = source
        elif form == "rsp" and blocking_twin:
            source = self.resolve(blocking_twin)
            mirror = {p["name"]: p for p in source["params"]}
            inherited = source
        category = a.get("category")
        if category is None:
            if inherited is not None:
                category = inherited["category"]
            elif name.startswith("Set") and name.endswith("Callback"):
                category = "callback"
            elif (name.startswith("GetNext") or name.startswith("GetNumber")) and not has_mac:
                category = "queue"
            elif has_mac:
                category = "command"
            else:
                raise ModelError(f"api/annotations.toml: {name}: say its category")
        if category not in CATEGORIES:
            raise ModelError(f"api/annotations.toml: {name}: category {category}")
        params = self.build_params(name, a, mirror, mirror_mode, form == "rsp",
                                   category == "command")
        success = a.get("success")
        if success is None:
            if form == "rsp":
                success = "zero"
            elif inherited is not None and "fixed_mode_of" in a:
                success = inherited["success"]
            elif category == "command":
                success = "controller"
            elif category == "queue" and name.startswith("GetNext"):
                success = "poll"
            else:
                success = "zero"
        if success not in self.notes.get("rules", {}):
            raise ModelError(f"api/annotations.toml: {name}: no success rule {success}")
        wire = self.wire(name, a)
        if wire is None and inherited is not None:
            wire = self.wire_of_mode(inherited.get("wire"), mirror_mode) \
                if mirror_mode is not None else inherited.get("wire")
        export = {"name": name, "returns": decl["returns"], "decl": decl["decl"],
                  "doc": decl["doc"], "form": form, "category": category, "success": success,
                  "params": params}
        if form == "blocking":
            export["rsp_twin"] = pairs.get(name)
        if form == "rsp":
            export["blocking_twin"] = blocking_twin
        if wire is not None:
            export["wire"] = wire
        for key in ("why", "struct", "positive_result", "alias_of"):
            if key in a:
                export[key] = a[key]
        if "fixed_mode_of" in a:
            export["mode_of"] = {"export": a["fixed_mode_of"], "mode": a["mode"]}
        if any(p.get("local_path") or any(m.get("local_path") for m in p.get("by_mode", {}).values())
               for p in params):
            export["local_files"] = True
        self.resolved[name] = export
        return export

    def check_export(self, e):
        """Facts that must hold of every export; a failure names what to annotate."""
        where = f"api/annotations.toml: {e['name']}"
        if e["category"] == "command":
            if "wire" not in e:
                raise ModelError(f"{where}: a command needs its wire codes (send, reply, layout)")
            if e["wire"]["awaits_reply"] and not e["wire"]["replies"]:
                raise ModelError(f"{where}: a command that awaits a reply needs its reply layout")
        names = {p["name"]: p for p in e["params"]}
        if "wire" in e:
            target = e if e["form"] != "rsp" or not e.get("blocking_twin") else \
                self.resolved[e["blocking_twin"]]
            outputs = {p["name"] for p in target["params"]
                       if p["role"] in ("out_text", "inout_text", "out_bytes", "out_int32",
                                        "out_uint32", "out_uint64", "inout_int32",
                                        "mode_dependent")}
            if e["form"] != "rsp" or e.get("blocking_twin"):
                for r in e["wire"]["replies"]:
                    for out in r["outs"]:
                        if out not in outputs:
                            raise ModelError(f"{where}: reply {r['name'] or r['source']} writes "
                                             f"'{out}', which is no output of {target['name']}")
        for p in e["params"]:
            if p["role"] == "mode_dependent" or "by_mode" in p:
                if "mode" not in names:
                    raise ModelError(f"{where}.{p['name']}: by_mode without a mode parameter")
                modes = {str(v) for v in names["mode"].get("values", [])}
                if modes and set(p["by_mode"]) != modes:
                    raise ModelError(f"{where}.{p['name']}: by_mode {sorted(p['by_mode'])} for "
                                     f"modes {sorted(modes)}")
                p["mode_param"] = "mode"

    def build(self):
        families, by_title = [], {}
        ids = self.notes.get("families", {})
        for f in self.header["families"]:
            if f["title"] not in ids:
                raise ModelError(f"api/annotations.toml: [families] has no id for the header's "
                                 f"section \"{f['title']}\"")
            entry = {"id": ids[f["title"]], "title": f["title"], "notes": f["notes"]}
            families.append(entry)
            by_title[f["title"]] = entry
        exports = []
        for decl in self.header["exports"]:
            e = self.resolve(decl["name"])
            if e is None:
                raise ModelError(f"api/annotations.toml: {decl['name']}: a cycle of same_as, "
                                 "fixed_mode_of or twins")
            e = dict(e, family=by_title[decl["family_title"]]["id"])
            exports.append(e)
        for e in exports:
            self.check_export(e)
        rules = {}
        for rname, spec in self.notes.get("rules", {}).items():
            rules[rname] = dict(spec)
        callbacks = {}
        for tname, t in self.header["typedefs"].items():
            callbacks[tname] = t
        return {
            "schema": SCHEMA_VERSION,
            "library": {"name": "zanth", "version": self.version, "export_count": len(exports)},
            "generated_from": ["include/zanth.h", "api/annotations.toml", "protocol/CodeList.h",
                               "CMakeLists.txt"],
            "constants": self.header["constants"],
            "results": self.header["results"],
            "success_rules": rules,
            "categories": self.notes.get("categories", {}),
            "tokenizers": {k: v["doc"] for k, v in self.notes.get("tokenizers", {}).items()},
            "layouts": self.layouts,
            "families": families,
            "types": callbacks,
            "codes": {n: {"value": c["value"], "text": c["text"]} for n, c in self.codes.items()},
            "exports": exports,
        }


def build_model(root):
    header = parse_header(root / "include" / "zanth.h")
    codes = parse_codes(root / "protocol" / "CodeList.h")
    with open(root / "api" / "annotations.toml", "rb") as f:
        notes = tomllib.load(f)
    version = parse_version(root / "CMakeLists.txt")
    return Builder(header, codes, notes, version).build()


# ---- Writing: the model as JSON ----------------------------------------------------------------

def render_json(model):
    return json.dumps(model, indent=2, sort_keys=True, ensure_ascii=False) + "\n"


# ---- Writing: docs/API.md --------------------------------------------------------------------

def bounds_text(p):
    parts = []
    if "values" in p:
        vals = [chr(v) if p.get("base") == "char" else str(v) for v in p["values"]]
        parts.append("one of " + ", ".join(vals))
    elif "min" in p and p.get("base") in ("int32", "uint32", "uint16") and p["role"] != "rspid":
        low, high = INT_RANGES.get(p["ctype"], (None, None))
        if (p["min"], p["max"]) != (low, high):
            parts.append(f"{p['min']} to {p['max']}")
    if p.get("pattern"):
        parts.append(p["pattern"].replace("_", " "))
    if p.get("not_empty"):
        parts.append("not empty")
    if p.get("max_length"):
        parts.append(f"at most {p['max_length']} bytes")
    if p.get("no_semicolon"):
        parts.append("no ';'")
    if p.get("verbatim"):
        parts.append("sent verbatim")
    if p.get("local_path"):
        parts.append("a path on the host")
    if p.get("min_capacity"):
        parts.append(f"buffer of at least {p['min_capacity']} bytes")
    if p.get("fixed_size"):
        parts.append(f"buffer of {p['fixed_size']} bytes")
    if p["role"] == "size":
        parts.append(f"size of `{p['of']}`, default {p.get('default', '-')}"
                     + (f", at least {p['min']}" if p.get("min") else ""))
    if p.get("count_param"):
        parts.append(f"byte count in `{p['count_param']}`")
    if p.get("frame"):
        parts.append("a whole reply frame")
    for mode, m in p.get("by_mode", {}).items():
        detail = bounds_text(dict(m, role="in", base=p["base"], ctype=p["ctype"].rstrip("*")))
        parts.append(f"mode {mode}: {m['dir']}" + (f" ({detail})" if detail else ""))
    return "; ".join(parts)


def code_text(c):
    if c["source"] == "library":
        return "0 (made by the library)"
    if c["source"] == "any":
        return "any code"
    if c["source"] == "unnamed":
        return f"{c['value']} (no name in the code list)"
    return f"{c['value']} `{c['name']}`"


def md_overview(model):
    """The results, rules, categories and layouts, ahead of the exports."""
    out = ["# libzanth API reference", "",
           "Generated from the API model `api/zanth-api.json` by `api/generate.py`, which reads "
           "`include/zanth.h`, `api/annotations.toml` and `protocol/CodeList.h`; edit those, not "
           "this page. A CTest test (`docs.api`) fails when any generated file differs from what "
           "they give.", "",
           f"{model['library']['export_count']} exports, library version "
           f"{model['library']['version']}.", ""]
    out += ["## Library results", "", "| code | name | meaning to a host |", "|---|---|---|"]
    out += [f"| {r['code']} | `{r['name']}` | {r['meaning']} |" for r in model["results"]]
    out += ["", "## Success rules", "",
            "Each export names the rule that tells its success from its failure.", "",
            "| rule | meaning |", "|---|---|"]
    out += [f"| `{n}` | {r['doc']} |" for n, r in sorted(model["success_rules"].items())]
    out += ["", "## Categories", "", "| category | meaning |", "|---|---|"]
    out += [f"| `{n}` | {d} |" for n, d in model["categories"].items()]
    out += ["", "## Reply layouts", "",
            "How the payload of a reply maps to the blocking form's outputs, so that a reply "
            "taken from the response queue under a Rsp form's rspid decodes into what the "
            "blocking form would have given.", ""]
    out += [f"- Tokeniser `{n}`: {d}" for n, d in model["tokenizers"].items()]
    out += ["", "| layout | tokeniser | fields | meaning |", "|---|---|---|---|"]
    for name, layout in sorted(model["layouts"].items()):
        fields = []
        for f in layout["fields"]:
            text = f["kind"]
            if "out" in f:
                text += f" {f['out']}" + (f"/{f['out2']}" if "out2" in f else "")
            if f.get("map") and f["map"] != "low":
                text += f" ({f['map']})"
            if f.get("optional"):
                text += " (optional on)"
            fields.append(text)
        if layout.get("raw"):
            fields = ["raw"]
        if "result" in layout:
            fields = [f"result {layout['result']}"]
        tok = layout["tokenizer"] + (f" '{layout['delimiter']}'" if "delimiter" in layout else "")
        if "exact_count" in layout:
            tok += f" exactly {layout['exact_count']}"
        out.append(f"| `{name}` | {tok} | {', '.join(fields) or '-'} | {layout['doc']} |")
    return out + [""]


def md_wire(e):
    wire = e.get("wire")
    if not wire:
        return []
    lines = []
    sends = [code_text(s) + (f" (mode {s['mode']})" if "mode" in s else "")
             + (f" ({s['when']})" if "when" in s else "") for s in wire["sends"]]
    if sends:
        lines.append("Sends " + "; ".join(sends) + ".")
    if not wire["awaits_reply"] and e["form"] != "rsp":
        lines.append("No reply is awaited.")
    replies = []
    for r in wire["replies"]:
        text = f"{code_text(r)} as `{r['layout']}`"
        if r["outs"]:
            text += " into " + ", ".join(f"`{o}`" for o in r["outs"])
        if "mode" in r:
            text += f" (mode {r['mode']})"
        replies.append(text)
    if replies:
        lines.append("Reply: " + "; ".join(replies) + ".")
    if wire["other_code"] != "check_error_code":
        lines.append(f"Another reply code: `{wire['other_code']}`.")
    return [" ".join(lines), ""]


def md_export(e, show_doc):
    out = [f"### `{e['name']}`", "", "```c", e["decl"], "```", ""]
    form = {"blocking": "blocking", "rsp": "Rsp form, returns at once; the reply comes under "
            "`rspid`", "local": "local (no controller)"}[e["form"]]
    if e.get("rsp_twin"):
        form += f"; its Rsp form is `{e['rsp_twin']}`"
    if e.get("blocking_twin"):
        form += f" of `{e['blocking_twin']}`"
    facts = [f"Form: {form}.", f"Category: `{e['category']}`.", f"Success: `{e['success']}`."]
    if e.get("mode_of"):
        facts.append(f"`{e['mode_of']['export']}` with mode {e['mode_of']['mode']}.")
    if e.get("alias_of"):
        facts.append(f"A second name of `{e['alias_of']}`.")
    if e.get("why"):
        facts.append(e["why"])
    out += [" ".join(facts), ""]
    shown = [p for p in e["params"] if p["role"] != "mac"]
    if shown:
        out += ["| parameter | type | role | bounds |", "|---|---|---|---|"]
        out += [f"| `{p['name']}` | `{p['ctype']}` | {p['role']} | {bounds_text(p)} |"
                for p in shown]
        out.append("")
    out += md_wire(e)
    if show_doc:
        out += [e["doc"], ""]
    return out


def render_api_md(model):
    out = md_overview(model)
    by_family = {}
    for e in model["exports"]:
        by_family.setdefault(e["family"], []).append(e)
    last_doc = None
    for family in model["families"]:
        out += [f"## {family['title']}", ""]
        if family["notes"]:
            out += [family["notes"], ""]
        for e in by_family.get(family["id"], []):
            # A doc the header shares among a group of declarations shows once, at its first.
            out += md_export(e, bool(e["doc"]) and e["doc"] != last_doc)
            last_doc = e["doc"]
    return "\n".join(out).rstrip() + "\n"


# ---- Writing: the C++ tables (include/zanth_table.hpp) ----------------------------------------

def cstr(text):
    if text is None:
        return "nullptr"
    s = text.replace("\\", "\\\\").replace('"', '\\"').replace("\n", "\\n")
    return f'"{s}"'


def camel(name):
    return "".join(part.capitalize() for part in name.split("_"))


# A mode-dependent parameter's direction is in its mode rules; its own is not read.
DIRS = {"in": "kIn", "out": "kOut", "inout": "kInout", "by_mode": "kIn"}
BASES = {"int32": "kInt32", "uint32": "kUint32", "uint16": "kUint16", "uint64": "kUint64",
         "char": "kChar", "text": "kText", "bytes": "kBytes", "callback": "kCallback",
         "handle": "kHandle"}
ACCESSORS = {"const char*": "s.Text({i})", "char*": "s.Buffer({i})", "int32_t": "s.I32({i})",
             "uint32_t": "s.U32({i})", "uint16_t": "s.U16({i})", "char": "s.Chr({i})",
             "int32_t*": "s.PI32({i})", "uint32_t*": "s.PU32({i})", "uint64_t*": "s.PU64({i})",
             "void*": "nullptr"}


def cpp_bounds(p, prefix):
    """A Bounds initializer, and the values array it needs (or None)."""
    values = None
    ref = "nullptr"
    if p.get("values"):
        values = f"inline constexpr int64_t {prefix}[] = {{{', '.join(str(v) for v in p['values'])}}};"
        ref = prefix
    low = p.get("min", INT_RANGES["int32_t"][0] if p.get("base") not in ("uint32", "uint64") else 0)
    high = p.get("max", INT_RANGES["int32_t"][1] if p.get("base") != "uint32" else 4294967295)
    pattern = "k" + camel(p["pattern"]) if p.get("pattern") else "kNone"
    init = (f"{{{low}LL, {high}LL, {ref}, {len(p.get('values', []))}, meta::Pattern::{pattern}, "
            f"{str(bool(p.get('no_semicolon'))).lower()}, {str(bool(p.get('not_empty'))).lower()}, "
            f"{p.get('max_length', 0)}, {p.get('min_capacity', 0)}, "
            f"{str(bool(p.get('local_path'))).lower()}, {str(bool(p.get('verbatim'))).lower()}}}")
    return init, values


def cpp_bool(value):
    return "true" if value else "false"


def table_results_rules_families(model):
    out = [f"inline constexpr const char* kLibraryVersion = {cstr(model['library']['version'])};",
           "", "inline constexpr ResultInfo kResults[] = {"]
    out += [f"    {{{r['code']}, {cstr(r['name'])}, {cstr(r['meaning'])}}}," for r in model["results"]]
    out += ["};", ""]
    rules = model["success_rules"]
    for name, r in rules.items():
        if r.get("ok_values"):
            out.append(f"inline constexpr int32_t kRuleOk_{name}[] = "
                       f"{{{', '.join(str(v) for v in r['ok_values'])}}};")
    out.append("inline constexpr RuleInfo kRules[] = {")
    for name, r in rules.items():
        ok = f"kRuleOk_{name}" if r.get("ok_values") else "nullptr"
        out.append(f"    {{Rule::k{camel(name)}, {cstr(name)}, {cpp_bool('ok_min' in r)}, "
                   f"{r.get('ok_min', 0)}, {ok}, {len(r.get('ok_values', []))}, "
                   f"{cpp_bool(r.get('always_ok'))}, {cpp_bool('empty' in r)}, "
                   f"{r.get('empty', 0)}, {cstr(r['doc'])}}},")
    out += ["};", "", "inline constexpr Family kFamilies[] = {"]
    out += [f"    {{{cstr(f['id'])}, {cstr(f['title'])}, {cstr(f['notes'])}}},"
            for f in model["families"]]
    return out + ["};", ""]


def table_layout(name, layout):
    """A layout's fields; each output is named by its place among the layout's outputs, which a
    reply entry's `outs` renames."""
    slots = Builder.layout_outputs(layout)
    out, fields = [], []
    for f in layout["fields"]:
        o = slots.index(f["out"]) if "out" in f else -1
        o2 = slots.index(f["out2"]) if "out2" in f else -1
        then = "Zero" if f.get("then") == "zero" else "NonNegative"
        fields.append(f"    {{FieldKind::k{camel(f['kind'])}, {o}, {o2}, "
                      f"ResultMap::k{camel(f.get('map', 'low'))}, Then::k{then}, "
                      f"{cpp_bool(f.get('optional'))}, {f.get('count', 1)}, "
                      f"{f.get('offset', -1)}, {f.get('missing', -10011)}}},")
    if fields:
        out += [f"inline constexpr Field kFields_{name}[] = {{", *fields, "};"]
    out.append(f"inline constexpr Layout kLayout_{name} = {{{cstr(name)}, "
               f"Tokenizer::k{camel(layout['tokenizer'])}, '{layout.get('delimiter', ';')}', "
               f"{cpp_bool(layout.get('raw'))}, {layout.get('exact_count', -1)}, "
               f"{layout.get('count_mismatch', -1)}, {cpp_bool('result' in layout)}, "
               f"{layout.get('result', 0)}, {'kFields_' + name if fields else 'nullptr'}, "
               f"{len(fields)}, {cstr(layout['doc'])}}};")
    return out


CODE_SOURCES = {"list": "kList", "library": "kLibrary", "any": "kAny", "unnamed": "kUnnamed"}


def table_params(e):
    """The export's parameters, with the value lists and mode rules they point at."""
    n = e["name"]
    index = {p["name"]: i for i, p in enumerate(e["params"])}
    out, params = [], []
    for p in e["params"]:
        prefix = f"kValues_{n}_{p['name']}"
        bounds, values = cpp_bounds(p, prefix)
        out += [values] if values else []
        modes = "nullptr"
        if p.get("by_mode"):
            rules = []
            for mode, m in p["by_mode"].items():
                mb, mv = cpp_bounds(dict(m, base=p["base"]), f"{prefix}_mode{mode}")
                out += [mv] if mv else []
                rules.append(f"{{{mode}, Dir::k{camel(m['dir'])}, {mb}}}")
            modes = f"kModes_{n}_{p['name']}"
            out.append(f"inline constexpr ModeRule {modes}[] = {{" + ", ".join(rules) + "};")
        params.append(
            f"    {{{cstr(p['name'])}, {cstr(p['ctype'])}, Role::k{camel(p['role'])}, "
            f"Base::{BASES[p['base']]}, Dir::{DIRS[p['dir']]}, {bounds}, "
            f"{index.get(p.get('size_param'), -1)}, {index.get(p.get('of'), -1)}, "
            f"{index.get(p.get('count_param'), -1)}, {index.get(p.get('mode_param'), -1)}, "
            f"{p.get('default', 0)}, {p.get('fixed_size', 0)}, {cpp_bool(p.get('frame'))}, "
            f"{modes}, {len(p.get('by_mode', {}))}, "
            f"{cstr((p.get('callback') or {}).get('kind'))}}},")
    if params:
        out += [f"inline constexpr Param kParams_{n}[] = {{", *params, "};"]
    return out


def table_wire(e):
    """The export's replies (with their output names) and the codes it sends."""
    n, wire, out = e["name"], e.get("wire"), []
    if not wire:
        return out
    if wire["replies"]:
        replies = []
        for i, r in enumerate(wire["replies"]):
            outs = f"kOuts_{n}_{i}" if r["outs"] else "nullptr"
            if r["outs"]:
                out.append(f"inline constexpr const char* {outs}[] = {{"
                           + ", ".join(cstr(o) for o in r["outs"]) + "};")
            replies.append(f"    {{CodeSource::{CODE_SOURCES[r['source']]}, {r['value'] or 0}, "
                           f"{cstr(r['name'])}, &kLayout_{r['layout']}, {outs}, {len(r['outs'])}, "
                           f"{cpp_bool('mode' not in r)}, {r.get('mode', 0)}}},")
        out += [f"inline constexpr Reply kReplies_{n}[] = {{", *replies, "};"]
    if wire["sends"]:
        out.append(f"inline constexpr Send kSends_{n}[] = {{")
        out += [f"    {{CodeSource::{CODE_SOURCES[s['source']]}, {s['value'] or 0}, "
                f"{cstr(s['name'])}, {cpp_bool('mode' not in s)}, {s.get('mode', 0)}, "
                f"{cstr(s.get('when'))}}}," for s in wire["sends"]]
        out.append("};")
    return out


def table_exports_loaded(model):
    """The exports as a table of pointers, for a host that loads the library at run time
    (ZANTH_HPP_LOAD_AT_RUNTIME): each typed from its declaration, filled by zanth::Load."""
    names = [e["name"] for e in model["exports"]]
    out = ["#ifdef ZANTH_HPP_LOAD_AT_RUNTIME", "struct LoadedExports {"]
    out += [f"    decltype(&::{n}) {n} = nullptr;" for n in names]
    out += ["    bool ready = false;", "};", "",
            "inline LoadedExports& LoadedTable() {", "    static LoadedExports table;",
            "    return table;", "}", "",
            "// The table once zanth::Load has filled it; calling an export before is a host's mistake.",
            "inline LoadedExports& Loaded() {", "    LoadedExports& t = LoadedTable();",
            "    if (!t.ready) throw std::logic_error(\"zanth::Load must be called first\");",
            "    return t;", "}", "",
            "// Fills every entry through `find` (a name to its address); false, with the first",
            "// missing name, when the library lacks one.",
            "template <typename Find>",
            "inline bool ResolveExports(LoadedExports& t, Find&& find, const char** missing) {"]
    for n in names:
        out.append(f"    if (!(t.{n} = reinterpret_cast<decltype(t.{n})>(find(\"{n}\")))) "
                   f"return *missing = \"{n}\", false;")
    out += ["    return true;", "}", "#endif", ""]
    return out


def table_thunk(e):
    """The C call of one export from the slots the dynamic layer filled."""
    args = ", ".join(ACCESSORS[p["ctype"]].format(i=i) for i, p in enumerate(e["params"]))
    unused = "(void)s; " if not e["params"] or all(p["ctype"] == "void*" for p in e["params"]) else ""
    return (f"inline int32_t Call_{e['name']}(Slots& s) {{ {unused}"
            f"return ZANTH_CALL({e['name']})({args}); }}")


def table_export(e, family_index, doc_names):
    n, wire = e["name"], e.get("wire")
    twin = e.get("rsp_twin") or e.get("blocking_twin")
    call = "nullptr" if e["category"] == "callback" else f"&detail::Call_{n}"
    forms = {"blocking": "kBlocking", "rsp": "kRsp", "local": "kLocal"}
    other = "k" + camel(wire["other_code"]) if wire else "kCheckErrorCode"
    mode_of = e.get("mode_of") or {}
    return (f"    {{{cstr(n)}, &kFamilies[{family_index[e['family']]}], {cstr(e['decl'])}, "
            f"{doc_names[e['doc']]}, Form::{forms[e['form']]}, {cstr(twin)}, "
            f"Category::k{camel(e['category'])}, Rule::k{camel(e['success'])}, "
            f"{'kParams_' + n if e['params'] else 'nullptr'}, {len(e['params'])}, {call}, "
            f"{cpp_bool(wire)}, {cpp_bool(wire and wire['awaits_reply'])}, OtherCode::{other}, "
            f"{'kSends_' + n if wire and wire['sends'] else 'nullptr'}, "
            f"{len(wire['sends']) if wire else 0}, "
            f"{'kReplies_' + n if wire and wire['replies'] else 'nullptr'}, "
            f"{len(wire['replies']) if wire else 0}, {cpp_bool(e.get('local_files'))}, "
            f"{cpp_bool(e.get('positive_result'))}, {cstr(mode_of.get('export'))}, "
            f"{mode_of.get('mode', 0)}, {cstr(e.get('why'))}}},")


def render_table_hpp(model):
    out = ["// Generated by api/generate.py from the API model (api/zanth-api.json); don't edit.",
           "// The model as constant tables, and one call thunk per export: the data of the",
           "// dynamic layer in zanth_dynamic.hpp. Included by zanth.hpp.", "",
           "#ifndef ZANTH_HPP_INSIDE", '#error "include zanth.hpp, not zanth_table.hpp"', "#endif",
           "", "namespace zanth {", "namespace meta {", ""]
    out += table_results_rules_families(model)
    for name, layout in sorted(model["layouts"].items()):
        out += table_layout(name, layout)
    out.append("")
    for e in model["exports"]:
        out += table_params(e) + table_wire(e)
    out += ["", "}  // namespace meta", "", "namespace detail {", ""]
    out += table_exports_loaded(model)
    out += [table_thunk(e) for e in model["exports"] if e["category"] != "callback"]
    out += ["", "}  // namespace detail", "", "namespace meta {", ""]
    # A doc comment the header shares among a group of declarations is written once.
    doc_names = {}
    for e in model["exports"]:
        if e["doc"] not in doc_names:
            doc_names[e["doc"]] = f"kDoc{len(doc_names)}"
            out.append(f"inline constexpr const char* {doc_names[e['doc']]} = {cstr(e['doc'])};")
    family_index = {f["id"]: i for i, f in enumerate(model["families"])}
    out += ["", "inline constexpr Export kExports[] = {"]
    out += [table_export(e, family_index, doc_names) for e in model["exports"]]
    out += ["};", "", f"inline constexpr size_t kExportCount = {len(model['exports'])};", "",
            "}  // namespace meta", "}  // namespace zanth", ""]
    return "\n".join(out)


# ---- Writing: the typed C++ wrappers (include/zanth_api.hpp) ----------------------------------

CPP_VALUE_TYPES = {"int32": "int32_t", "uint32": "uint32_t", "uint16": "uint16_t",
                   "uint64": "uint64_t", "char": "char", "text": "std::string",
                   "bytes": "zanth::Bytes"}
CARD_FIELDS = {"role": "cardRole"}


class Wrapper:
    """The pieces of one typed wrapper: its parameters, the locals it prepares, the arguments of
    the C call, and its outputs (name, C++ type, expression)."""

    def __init__(self, e, exports):
        self.e = e
        self.name = e["name"]
        self.args, self.prep, self.call, self.outputs = [], [], [], []
        self.struct = e.get("struct")
        if self.struct is None and e["form"] == "rsp" and e.get("blocking_twin"):
            twin = exports[e["blocking_twin"]]
            if twin.get("struct") and not self.output_params(twin):
                self.struct = twin["struct"]
        self.struct_in = bool(self.struct) and not self.output_params(e)
        params = e["params"]
        for i, p in enumerate(params):
            self.add(p, params)
        self.defaults_from_end()

    @staticmethod
    def output_params(e):
        return [p for p in e["params"] if p["role"] in ("out_text", "inout_text", "out_bytes",
                "out_int32", "out_uint32", "out_uint64", "inout_int32", "mode_dependent")]

    def size_of(self, p, params):
        by_name = {q["name"]: q for q in params}
        if "fixed_size" in p:
            return p["fixed_size"]
        return by_name[p["size_param"]].get("default", 4097)

    def arg(self, decl, default=None):
        self.args.append([decl, default])

    def add(self, p, params):
        n, role, ctype = p["name"], p["role"], p["ctype"]
        member = f"record.{CARD_FIELDS.get(n, n)}"
        from_struct = self.struct_in and role not in ("mac", "rspid")
        if role == "mac":
            self.arg("const std::string& mac")
            self.call.append("mac.c_str()")
        elif role == "rspid":
            self.arg("uint32_t rspid")
            self.call.append("rspid")
        elif role in ("in", "in_char"):
            if from_struct:
                if ctype == "uint16_t":
                    self.call.append(f'detail::Narrow<uint16_t>("{self.name}", "{n}", '
                                     f"{member}, 65535)")
                else:
                    self.call.append(member)
            else:
                self.arg(f"{ctype} {n}")
                self.call.append(n)
        elif role in ("in_text", "local_path"):
            self.arg(f"const std::string& {n}")
            self.call.append(f"{n}.c_str()")
        elif role == "writable_text":
            source = member if from_struct else n
            if not from_struct:
                self.arg(f"const std::string& {n}")
            self.prep.append(f"detail::Writable w_{n}({source}, {p.get('min_capacity', 0)});")
            self.call.append(f"w_{n}.data()")
        elif role in ("out_text", "out_bytes"):
            self.prep.append(f"detail::OutText o_{n}({self.size_of(p, params)});")
            self.call.append(f"o_{n}.data()")
            if role == "out_bytes":
                self.outputs.append((n, "zanth::Bytes", f"o_{n}.bytes(v_{p['count_param']})"))
            else:
                self.outputs.append((n, "std::string", f"o_{n}.frame()" if p.get("frame")
                                     else f"o_{n}.str()"))
        elif role == "inout_text":
            self.arg(f"const std::string& {n}")
            self.prep.append(f"detail::OutText o_{n}({n}, {self.size_of(p, params)});")
            self.call.append(f"o_{n}.data()")
            self.outputs.append((n, "std::string", f"o_{n}.str()"))
        elif role == "in_bytes":
            self.arg(f"std::string_view {n}")
            self.call.append(f"{n}.data()")
        elif role == "size":
            buffer = next(q for q in params if q["name"] == p["of"])
            if buffer["role"] == "in_bytes":
                self.call.append(f"static_cast<int32_t>({buffer['name']}.size())")
            else:
                self.call.append(f"o_{buffer['name']}.size()")
        elif role in ("out_int32", "out_uint32", "out_uint64"):
            t = CPP_VALUE_TYPES[p["base"]]
            self.prep.append(f"{t} v_{n} = 0;")
            self.call.append(f"&v_{n}")
            self.outputs.append((n, t, f"v_{n}"))
        elif role == "inout_int32":
            self.arg(f"int32_t {n}")
            self.prep.append(f"int32_t v_{n} = {n};")
            self.call.append(f"&v_{n}")
            self.outputs.append((n, "int32_t", f"v_{n}"))
        elif role == "callback":
            self.arg(f"{ctype} {n}")
            self.call.append(n)
        elif role == "handle":
            self.call.append("nullptr")
        elif role == "mode_dependent":
            if p["base"] == "text":
                self.arg(f"const std::string& {n}", "{}")
                self.prep.append(f"detail::OutText o_{n}({n}, {self.size_of(p, params)});")
                self.call.append(f"o_{n}.data()")
                self.outputs.append((n, "std::string", f"o_{n}.str()"))
            else:
                t = CPP_VALUE_TYPES[p["base"]]
                self.arg(f"{t} {n}", "0")
                self.prep.append(f"{t} v_{n} = {n};")
                self.call.append(f"&v_{n}")
                self.outputs.append((n, t, f"v_{n}"))
        else:
            raise ModelError(f"{self.name}.{n}: no C++ form for role {role}")
        if from_struct and role in ("in", "in_char", "writable_text"):
            pass
        if self.struct_in and role not in ("mac", "rspid") and not any(
                "CardRecord& record" in a[0] for a in self.args):
            self.arg(f"const {self.struct}& record")

    def defaults_from_end(self):
        keep = True
        for a in reversed(self.args):
            keep = keep and a[1] is not None
            if not keep:
                a[1] = None

    def signature(self, returns):
        args = ", ".join(a[0] + (f" = {a[1]}" if a[1] is not None else "") for a in self.args)
        return f"inline {returns} {self.name}({args})"

    def render(self):
        e, n = self.e, self.name
        rule = f"meta::Rule::k{camel(e['success'])}"
        poll = e["success"] in ("poll", "poll_file")
        lines = [f"// {e['decl']}"]
        struct_out = self.struct and not self.struct_in and self.outputs
        if struct_out:
            value_type = self.struct
        elif not self.outputs:
            value_type = "int32_t"
        elif len(self.outputs) == 1 and not e.get("positive_result"):
            value_type = self.outputs[0][1]
        else:
            value_type = f"{n}Result"
            lines.append(f"struct {n}Result {{")
            lines.append("    int32_t result = 0;")
            for name, t, _ in self.outputs:
                lines.append(f"    {t} {name}{{}};")
            lines.append("};")
        returns = f"std::optional<{value_type}>" if poll else value_type
        lines.append(self.signature(returns) + " {")
        lines += [f"    {line}" for line in self.prep]
        lines.append(f"    const int32_t result = ZANTH_CALL({n})({', '.join(self.call)});")
        if e["success"] == "status_rsp":
            lines.append("    return result;  // says nothing: the reply, if any, comes under rspid")
        else:
            if poll:
                lines.append(f'    if (detail::CheckResult("{n}", {rule}, result)) '
                             "return std::nullopt;")
            else:
                lines.append(f'    detail::CheckResult("{n}", {rule}, result);')
            if struct_out:
                lines.append(f"    {self.struct} record;")
                for name, t, expr in self.outputs:
                    field = CARD_FIELDS.get(name, name)
                    lines.append(f"    record.{field} = {expr};")
                lines.append("    return record;")
            elif not self.outputs:
                lines.append("    return result;")
            elif value_type == self.outputs[0][1] and len(self.outputs) == 1:
                lines.append(f"    return {self.outputs[0][2]};")
            else:
                lines.append(f"    {n}Result out;")
                lines.append("    out.result = result;")
                for name, _, expr in self.outputs:
                    lines.append(f"    out.{name} = {expr};")
                lines.append("    return out;")
        lines.append("}")
        return lines


def render_api_hpp(model):
    exports = {e["name"]: e for e in model["exports"]}
    out = ["// Generated by api/generate.py from the API model (api/zanth-api.json); don't edit.",
           "// One typed wrapper per export, in namespace zanth::lib. Included by zanth.hpp.",
           "//",
           "// - Buffers and their sizes become std::string results (a struct for several outputs;",
           "//   CardRecord for the card records); writable texts are copied into buffers of their",
           "//   own, so the caller's strings never change.",
           "// - A result that the export's success rule calls a failure throws zanth::Error.",
           "// - A poll returns std::nullopt when there is nothing.",
           "// - An export with a `mode` takes its mode-dependent values as inputs (used when the",
           "//   mode sets) and returns them (written when the mode reads).",
           "", "#ifndef ZANTH_HPP_INSIDE", '#error "include zanth.hpp, not zanth_api.hpp"',
           "#endif", "",
           "// <windows.h> defines `interface`, the name of some parameters below: set aside here.",
           "#if defined(_WIN32) && defined(interface)", '#pragma push_macro("interface")',
           "#undef interface", "#define ZANTH_API_HPP_RESTORE_INTERFACE", "#endif", "",
           "namespace zanth {", "namespace lib {", ""]
    family = None
    for e in model["exports"]:
        if e["family"] != family:
            family = e["family"]
            title = next(f["title"] for f in model["families"] if f["id"] == family)
            out += [f"// ---- {title} ----", ""]
        out += Wrapper(e, exports).render()
        out.append("")
    out += ["}  // namespace lib", "}  // namespace zanth", "",
            "#ifdef ZANTH_API_HPP_RESTORE_INTERFACE", '#pragma pop_macro("interface")',
            "#undef ZANTH_API_HPP_RESTORE_INTERFACE", "#endif", ""]
    return "\n".join(out)


# ---- Main --------------------------------------------------------------------------------------

OUTPUTS = {
    "api/zanth-api.json": render_json,
    "bindings/python/zanth/zanth-api.json": render_json,
    "docs/API.md": render_api_md,
    "include/zanth_table.hpp": render_table_hpp,
    "include/zanth_api.hpp": render_api_hpp,
}


def main(argv=None):
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--check", action="store_true",
                        help="fail when a generated file differs from what the inputs give")
    parser.add_argument("--root", type=Path, default=HERE.parent,
                        help="the checkout to read and write (default: this script's)")
    args = parser.parse_args(argv)
    try:
        model = build_model(args.root)
    except ModelError as error:
        print(f"api/generate.py: {error}", file=sys.stderr)
        return 2
    stale = []
    for relative, render in OUTPUTS.items():
        text = render(model)
        path = args.root / relative
        if args.check:
            if not path.exists() or path.read_text() != text:
                stale.append(relative)
        elif not path.exists() or path.read_text() != text:
            path.write_text(text)
            print(f"wrote {relative}")
    if stale:
        print("api/generate.py: these files differ from what include/zanth.h, "
              "api/annotations.toml and protocol/CodeList.h give: " + ", ".join(stale)
              + "\nRun: python3 api/generate.py", file=sys.stderr)
        return 1
    if args.check:
        print(f"api/generate.py: {len(OUTPUTS)} generated files match the model "
              f"({model['library']['export_count']} exports)")
    return 0


if __name__ == "__main__":
    sys.exit(main())
