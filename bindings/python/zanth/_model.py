"""The API model: every export of the library as data.

``zanth-api.json`` beside this module is a copy of the project's ``api/zanth-api.json``; a test
fails when the two differ. Everything the package knows about an export (its C prototype, its
parameters' roles and bounds, its success rule, the layout of its reply) is read from here, so
nothing is written export by export.
"""

import json
import keyword
import re
from pathlib import Path

MODEL_PATH = Path(__file__).with_name("zanth-api.json")

# The C types' own ranges, for bounds the model leaves open.
TYPE_RANGES = {
    "int32": (-(2**31), 2**31 - 1),
    "uint32": (0, 2**32 - 1),
    "uint16": (0, 2**16 - 1),
    "uint64": (0, 2**64 - 1),
    "char": (-128, 127),
}

# The roles whose value comes back from the call (what the typed results hold).
OUTPUT_ROLES = frozenset(("out_text", "inout_text", "out_bytes", "out_int32", "out_uint32",
                          "out_uint64", "inout_int32", "mode_dependent"))

_WORD_BREAKS = (
    re.compile(r"(?<=[a-z])(?=[A-Z])"),             # cardSet -> card_Set
    re.compile(r"(?<=[a-z][0-9])(?=[A-Z])"),        # field7Value -> field7_Value
    re.compile(r"(?<=[A-Z0-9])(?=[A-Z][a-z])"),     # DLLVersion -> DLL_Version, A2DLimits
)


def snake(name):
    """The Python name of a C name: GetDLLVersion -> get_dll_version, cardSetId -> card_set_id."""
    for pattern in _WORD_BREAKS:
        name = pattern.sub("_", name)
    name = name.lower()
    return name + "_" if keyword.iskeyword(name) else name


class Bounds:
    """What an input must satisfy: numbers within min..max (and one of values), texts by flags."""

    __slots__ = ("min", "max", "values", "pattern", "no_semicolon", "not_empty", "max_length",
                 "min_capacity")

    def __init__(self, spec, base):
        low, high = TYPE_RANGES.get(base, (None, None))
        self.min = spec.get("min", low)
        self.max = spec.get("max", high)
        self.values = frozenset(spec["values"]) if "values" in spec else None
        self.pattern = spec.get("pattern")
        self.no_semicolon = bool(spec.get("no_semicolon"))
        self.not_empty = bool(spec.get("not_empty"))
        self.max_length = spec.get("max_length", 0)
        self.min_capacity = spec.get("min_capacity", 0)


class Param:
    """One parameter as the header declares it, with its role and its links to other
    parameters (by index): its size parameter, the buffer a size measures, an output chunk's
    count, and the `mode` that decides its direction."""

    __slots__ = ("index", "name", "pyname", "ctype", "base", "dir", "role", "bounds", "modes",
                 "size_index", "of_index", "count_index", "mode_index", "default_size",
                 "fixed_size", "frame", "callback", "spec")

    def __init__(self, index, spec):
        self.index = index
        self.spec = spec
        self.name = spec["name"]
        self.pyname = snake(self.name)
        self.ctype = spec["ctype"]
        self.base = spec["base"]
        # A parameter whose direction the mode decides counts as an input while no mode is known.
        self.dir = "in" if spec["dir"] == "by_mode" else spec["dir"]
        self.role = spec["role"]
        self.bounds = Bounds(spec, self.base)
        self.modes = None
        if "by_mode" in spec:
            self.modes = {int(mode): (rule["dir"], Bounds(rule, self.base))
                          for mode, rule in spec["by_mode"].items()}
        self.size_index = self.of_index = self.count_index = self.mode_index = -1
        self.default_size = spec.get("default", 4097)
        self.fixed_size = spec.get("fixed_size", 0)
        self.frame = bool(spec.get("frame"))
        self.callback = spec.get("callback")

    def dir_in(self, mode):
        """The direction in `mode` (the mode's own where the parameter has one)."""
        if self.modes is None or mode is None:
            return self.dir
        rule = self.modes.get(mode)
        return rule[0] if rule else "unused"

    def bounds_in(self, mode):
        if self.modes is not None and mode is not None and mode in self.modes:
            return self.modes[mode][1]
        return self.bounds


class Reply:
    """A reply the export may get: its code (None: any code), the mode it belongs to (None:
    every mode), its layout and the output names the layout fills, in order."""

    __slots__ = ("code", "name", "any_code", "mode", "layout", "outs")

    def __init__(self, spec, layouts):
        self.any_code = spec.get("source") == "any"
        self.code = spec.get("value")
        self.name = spec.get("name")
        self.mode = spec.get("mode")
        self.layout = layouts[spec["layout"]]
        self.outs = tuple(spec.get("outs", ()))


class Layout:
    __slots__ = ("name", "tokenizer", "delimiter", "raw", "exact_count", "count_mismatch",
                 "result", "fields", "doc")

    def __init__(self, name, spec):
        self.name = name
        self.tokenizer = spec["tokenizer"]
        self.delimiter = spec.get("delimiter", ";").encode()
        self.raw = bool(spec.get("raw"))
        self.exact_count = spec.get("exact_count", -1)
        self.count_mismatch = spec.get("count_mismatch", -1)
        self.result = spec.get("result")
        self.fields = tuple(spec.get("fields", ()))
        self.doc = spec.get("doc", "")


class Export:
    """One export: its parameters, form and twin, category, success rule, wire and doc."""

    __slots__ = ("name", "pyname", "decl", "doc", "family", "form", "twin", "category", "rule",
                 "params", "by_name", "by_pyname", "mode_param", "replies", "other_code",
                 "struct", "struct_in", "positive_result", "outputs", "inputs", "sizes",
                 "spec", "plan", "result_type")

    def __init__(self, spec, layouts):
        self.spec = spec
        self.name = spec["name"]
        self.pyname = snake(self.name)
        self.decl = spec["decl"]
        self.doc = spec["doc"]
        self.family = spec["family"]
        self.form = spec["form"]
        self.twin = spec.get("rsp_twin") if self.form != "rsp" else spec.get("blocking_twin")
        self.category = spec["category"]
        self.rule = spec["success"]
        self.params = tuple(Param(i, p) for i, p in enumerate(spec["params"]))
        self.by_name = {p.name: p for p in self.params}
        self.by_pyname = {p.pyname: p for p in self.params}
        for p in self.params:
            if "size_param" in p.spec:
                p.size_index = self.by_name[p.spec["size_param"]].index
            if "of" in p.spec:
                p.of_index = self.by_name[p.spec["of"]].index
            if "count_param" in p.spec:
                p.count_index = self.by_name[p.spec["count_param"]].index
            if "mode_param" in p.spec:
                p.mode_index = self.by_name[p.spec["mode_param"]].index
        mode = self.by_name.get("mode")
        self.mode_param = mode if mode is not None and mode.role == "in" else None
        wire = spec.get("wire") or {}
        self.replies = tuple(Reply(r, layouts) for r in wire.get("replies", ()))
        self.other_code = wire.get("other_code")
        self.struct = spec.get("struct")
        self.positive_result = bool(spec.get("positive_result"))
        # The outputs the typed result holds, whatever the mode.
        self.outputs = tuple(p for p in self.params if p.role in OUTPUT_ROLES)
        # What a caller gives, in the header's order; sizes of output buffers come as keywords.
        self.inputs = tuple(p for p in self.params
                            if p.role not in ("size", "handle") and p.dir != "out")
        self.sizes = tuple(p for p in self.params
                           if p.role == "size" and self.params[p.of_index].role in OUTPUT_ROLES)
        self.struct_in = False
        self.plan = None
        self.result_type = None

    @property
    def is_command(self):
        return self.category == "command"


class Model:
    """The whole model: exports by C and Python name, results, success rules, layouts."""

    def __init__(self, data):
        self.data = data
        self.version = data["library"]["version"]
        self.export_count = data["library"]["export_count"]
        self.constants = data["constants"]
        self.results = {r["code"]: (r["name"], r["meaning"]) for r in data["results"]}
        self.rules = data["success_rules"]
        self.layouts = {name: Layout(name, spec) for name, spec in data["layouts"].items()}
        self.types = data["types"]
        self.families = {f["id"]: f for f in data["families"]}
        self.exports = {}
        self.by_pyname = {}
        for spec in data["exports"]:
            e = Export(spec, self.layouts)
            self.exports[e.name] = e
            self.by_pyname[e.pyname] = e
        for e in self.exports.values():
            # The Rsp form of an export that takes a card record takes one too.
            struct = e.struct
            if struct is None and e.form == "rsp" and e.twin in self.exports:
                twin = self.exports[e.twin]
                if twin.struct and not twin.outputs:
                    struct = twin.struct
            e.struct = struct
            e.struct_in = bool(struct) and not e.outputs
        self.callback_kinds = {p.callback["kind"]: (e, p)
                               for e in self.exports.values() for p in e.params
                               if p.role == "callback"}

    def find(self, name):
        """The export of a C name (ControllerInfo) or a Python one (controller_info), or None."""
        return self.exports.get(name) or self.by_pyname.get(name)

    def blocking_of(self, e):
        """The blocking form whose outputs a reply of `e` decodes into (None: no such form)."""
        if e.form == "rsp":
            twin = self.exports.get(e.twin) if e.twin else None
            return twin if twin is not None and twin.form != "rsp" else None
        return e


def load_model(path=MODEL_PATH):
    with open(path, encoding="utf-8") as f:
        return Model(json.load(f))


MODEL = load_model()
