"""Every export as a method, made from the model at import (nothing is loaded then), and the
decoded replies of the Rsp forms."""

import difflib
import inspect
from dataclasses import dataclass, field
from typing import Optional

from . import _callbacks
from ._call import bind, invoke, shape
from ._loader import load
from ._model import MODEL
from ._reply import decode
from .errors import UnknownExportError, ZanthError


def find_export(name):
    """The export of a C name (ControllerInfo) or a Python one (controller_info)."""
    e = MODEL.find(name)
    if e is None:
        names = list(MODEL.exports) + list(MODEL.by_pyname)
        close = difflib.get_close_matches(name, names, n=3, cutoff=0.6)
        lower = name.lower().replace("_", "")
        close += [n for n in MODEL.exports if lower and lower in n.lower() and n not in close]
        raise UnknownExportError(name, close[:3])
    return e


@dataclass(frozen=True)
class Reply:
    """A reply that came under an rspid, decoded by the model's layout into what the blocking
    form would have given.

    ``export`` names the Rsp form it answers (None when the rspid was not asked through this
    Library: the reply is then not decoded). ``code`` is the reply's code, ``result`` the result
    the blocking form would have returned and ``ok`` that result judged by the blocking form's
    rule; ``outputs`` holds the outputs by their snake_case names (``payload``, bytes, for a
    reply without a fixed layout: ``raw`` is then true). ``value()`` gives exactly what the
    blocking form returns, or raises its ZanthError."""

    rspid: Optional[int]
    frame: bytes
    export: Optional[str] = None
    code: int = 0
    result: int = 0
    ok: bool = False
    raw: bool = False
    outputs: dict = field(default_factory=dict)
    _by_header: dict = field(default_factory=dict, repr=False, compare=False)

    @property
    def decoded(self):
        return self.export is not None

    def value(self):
        if self.export is None:
            raise ValueError(f"the reply under rspid {self.rspid} was not asked through this "
                             "Library: decode it with zanth.decode_reply(export, frame)")
        e = MODEL.exports[self.export]
        blocking = MODEL.blocking_of(e) or e
        if not self.ok:
            raise ZanthError(blocking.name, self.result)
        if self.raw:
            return self.outputs["payload"]
        return shape(blocking, self.result, self._by_header)


def decode_reply(export, frame, rspid=None, **args):
    """Decodes a reply `frame` (bytes or text, "CCCC;LLLL;payload") of `export` (the Rsp form
    or its blocking twin, by C or Python name) into a Reply. `args` are the call's arguments:
    `mode` chooses the reply of a mode export; an input-output the reply doesn't write keeps
    the value given."""
    e = find_export(export)
    if isinstance(frame, str):
        frame = frame.encode("utf-8", "surrogateescape")
    frame = bytes(frame)
    if not e.replies:
        raise ValueError(f"{e.name} has no reply to decode")
    by_header = {}
    for key, value in args.items():
        p = e.by_pyname.get(key) or e.by_name.get(key)
        blocking = MODEL.blocking_of(e)
        if p is None and blocking is not None:
            p = blocking.by_pyname.get(key) or blocking.by_name.get(key)
        if p is None:
            raise TypeError(f"{e.name}: no parameter {key!r}")
        by_header[p.name] = value
    code, result, ok, raw, outputs = decode(e, frame, by_header)
    blocking = MODEL.blocking_of(e) or e
    snake = {}
    for name, value in outputs.items():
        p = blocking.by_name.get(name)
        snake[p.pyname if p is not None else name] = value
    rsp = e if e.form == "rsp" else MODEL.exports.get(e.twin or "", e)
    return Reply(rspid=rspid, frame=frame, export=rsp.name, code=code, result=result, ok=ok,
                 raw=raw, outputs=snake, _by_header=outputs)


class Exports:
    """Every export of the library as a method, by its snake_case name (GetDLLVersion is
    ``get_dll_version``), with keyword arguments named after the header's parameters in
    snake_case (``card_set_id``). Arguments are checked against the API model before any call
    (ArgumentTypeError, a TypeError, or ArgumentValueError, a ValueError); a result that the
    export's success rule calls a failure raises ZanthError; a poll that finds nothing returns
    None.

    What a method returns: the one output (a str for a text), a CardRecord for the card
    commands, ``<Export>Result`` (a dataclass: the result, then the outputs) for several
    outputs, and the result itself where there are no outputs. Sizes of output buffers are
    optional keywords (``size=...``) with the model's default.

    The library is loaded when the first export is called (see `zanth.load`)."""

    def __init__(self, library=None):
        self._library_path = library
        self._loaded = None

    def _dll(self):
        if self._loaded is None:
            self._loaded = load(self._library_path)
        return self._loaded

    def _note_rsp(self, e, given):
        """Remembers what an rspid asked for, so that its reply can be decoded (a Library)."""

    def _forget_rsp(self, given):
        """Forgets an rspid whose call failed (a Library)."""

    def _invoke(self, e, args, kwargs):
        given = bind(e, args, kwargs)
        if e.category == "callback":
            p = next(p for p in e.params if p.role == "callback")
            return _callbacks.set_handler(self._dll(), p.callback["kind"], given.get(p.name))
        rsp = e.form == "rsp"
        if rsp:
            self._note_rsp(e, given)
        try:
            result, outputs = invoke(self._dll(), e, given)
        except BaseException:
            if rsp:
                self._forget_rsp(given)
            raise
        if outputs is None:
            return None
        return shape(e, result, outputs)

    def call(self, name, *args, **kwargs):
        """Calls an export by its C or Python name: ``lib.call("ControllerInfo", mac)``."""
        e = find_export(name)
        return getattr(self, e.pyname)(*args, **kwargs)

    def decode_reply(self, export, frame, rspid=None, **args):
        """Decodes a reply frame of `export`; see zanth.decode_reply."""
        return decode_reply(export, frame, rspid=rspid, **args)


def _doc(e):
    lines = [e.decl, ""]
    if e.doc:
        lines += [e.doc, ""]
    family = MODEL.families.get(e.family)
    lines.append(f"Family: {family['title'] if family else e.family}. Form: {e.form}"
                 + (f" (twin {e.twin})" if e.twin else "") + f". Success rule: {e.rule}.")
    if e.struct_in:
        lines.append("A CardRecord may stand in for the record's fields, right after the MAC.")
    if e.outputs:
        lines.append("Outputs: " + ", ".join(p.pyname for p in e.outputs) + ".")
    return "\n".join(lines)


def _signature(e):
    params = [inspect.Parameter("self", inspect.Parameter.POSITIONAL_OR_KEYWORD)]
    for p in e.inputs:
        optional = p.modes is not None or p.role == "callback"
        params.append(inspect.Parameter(p.pyname, inspect.Parameter.POSITIONAL_OR_KEYWORD,
                                        default=None if optional else inspect.Parameter.empty))
    # After an optional parameter every later one needs a default too.
    seen_default = False
    fixed = []
    for p in params:
        if p.default is not inspect.Parameter.empty:
            seen_default = True
        elif seen_default:
            p = p.replace(default=None)
        fixed.append(p)
    for p in e.sizes:
        fixed.append(inspect.Parameter(p.pyname, inspect.Parameter.KEYWORD_ONLY,
                                       default=p.default_size))
    return inspect.Signature(fixed)


def _method(e):
    def method(self, *args, **kwargs):
        return self._invoke(e, args, kwargs)

    method.__name__ = e.pyname
    method.__qualname__ = f"Exports.{e.pyname}"
    method.__doc__ = _doc(e)
    method.__signature__ = _signature(e)
    return method


for _e in MODEL.exports.values():
    setattr(Exports, _e.pyname, _method(_e))
del _e
