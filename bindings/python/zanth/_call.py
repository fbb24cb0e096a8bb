"""Calling an export: arguments bound by name, checked against the model before anything is
called, passed as the C function takes them (writable texts and outputs in buffers of their
own), the result judged by the export's success rule, and the outputs shaped into a typed
result."""

import ctypes
import difflib
import operator

from ._model import MODEL, OUTPUT_ROLES
from ._reply import frame_length, is_empty, succeeded
from .errors import ArgumentTypeError, ArgumentValueError, ZanthError
from .records import CardRecord, result_type

_C_INTS = {"int32": ctypes.c_int32, "uint32": ctypes.c_uint32, "uint16": ctypes.c_uint16,
           "uint64": ctypes.c_uint64}

_MAC_WHY = "must be a controller's MAC such as C0:00:01"


def encode(text):
    return text.encode("utf-8", "surrogateescape")


def decode(data):
    return data.decode("utf-8", "surrogateescape")


# ---- Argument checks -------------------------------------------------------------------------

def _triple(t, sep, low, high):
    parts = t.split(sep)
    if len(parts) != 3:
        return False
    for part, lo, hi in zip(parts, low, high):
        if not part or len(part) > 4 or not part.isdigit() or not part.isascii():
            return False
        if not lo <= int(part) <= hi:
            return False
    return True


_HEX = frozenset("0123456789abcdefABCDEF")
_DATE = ((1901, 1, 1), (2037, 12, 31))
_TIME = ((0, 0, 0), (23, 59, 59))
_DATE_TEXT = "a date yyyy/mm/dd (year 1901 to 2037, month 1 to 12, day 1 to 31)"
_TIME_TEXT = "a time hh:mm:ss (hour 0 to 23, minute and second 0 to 59)"

PATTERNS = {
    "hex": ("hexadecimal digits", lambda t: bool(t) and set(t) <= _HEX),
    "hex_or_empty": ("hexadecimal digits or an empty text", lambda t: set(t) <= _HEX),
    "octal3": ("three octal digits such as 644",
               lambda t: len(t) == 3 and all(c in "01234567" for c in t)),
    "date": (_DATE_TEXT, lambda t: _triple(t, "/", *_DATE)),
    "date_or_zero": (_DATE_TEXT + " or 0", lambda t: t == "0" or _triple(t, "/", *_DATE)),
    "time": (_TIME_TEXT, lambda t: _triple(t, ":", *_TIME)),
    "time_or_zero": (_TIME_TEXT + " or 0", lambda t: t == "0" or _triple(t, ":", *_TIME)),
}


def _type_name(v):
    return {int: "an integer", str: "a text", bytes: "bytes"}.get(type(v), type(v).__name__)


def check_integer(e, p, v):
    if isinstance(v, (str, bytes, float)) or v is None:
        raise ArgumentTypeError(e.name, p.name, f"must be an integer ({p.ctype}), not "
                                                f"{_type_name(v)}")
    try:
        return operator.index(v)
    except TypeError:
        raise ArgumentTypeError(e.name, p.name, f"must be an integer ({p.ctype}), not "
                                                f"{_type_name(v)}") from None


def _range_text(b, characters):
    if b.values is not None:
        shown = sorted(b.values)
        return "one of " + ", ".join(chr(v) if characters else str(v) for v in shown)
    return f"{b.min} to {b.max}"


def check_number(e, p, b, value):
    if value < b.min or value > b.max or (b.values is not None and value not in b.values):
        characters = p.base == "char"
        got = chr(value % 256) if characters else str(value)
        raise ArgumentValueError(e.name, p.name, f"must be {_range_text(b, characters)} "
                                                 f"(got {got})")
    return value


def check_text(e, p, b, v):
    """The bytes of a text argument, checked against its bounds."""
    if isinstance(v, str):
        data = encode(v)
    elif isinstance(v, (bytes, bytearray)):
        data = bytes(v)
    else:
        raise ArgumentTypeError(e.name, p.name, f"must be a text, not {_type_name(v)}")
    if b"\0" in data:
        raise ArgumentValueError(e.name, p.name, "must not hold a NUL character")
    if b.not_empty and not data:
        raise ArgumentValueError(e.name, p.name, "must not be empty")
    if b.no_semicolon and b";" in data:
        raise ArgumentValueError(e.name, p.name,
                                 "must not hold ';', which separates the fields of the message")
    if b.max_length and len(data) > b.max_length:
        raise ArgumentValueError(e.name, p.name, f"must be at most {b.max_length} bytes long "
                                                 f"(got {len(data)})")
    if b.pattern:
        expected, matches = PATTERNS[b.pattern]
        if not matches(decode(data)):
            raise ArgumentValueError(e.name, p.name, f"must be {expected} (got {decode(data)!r})")
    return data


def check_mac(e, p, v):
    if not isinstance(v, (str, bytes)):
        raise ArgumentTypeError(e.name, p.name, f"must be a text, not {_type_name(v)}")
    data = encode(v) if isinstance(v, str) else v
    if not data or len(data) > 64 or b";" in data or b"\0" in data:
        raise ArgumentValueError(e.name, p.name, _MAC_WHY)
    return data


# ---- Binding ---------------------------------------------------------------------------------

def bind(e, args, kwargs):
    """The arguments by the header's names. Positionals follow the inputs in the header's order;
    keywords are the snake_case names (the header's own are taken too). A CardRecord may stand
    in for the record's fields of an export that takes one."""
    given = {}
    inputs = e.inputs
    if e.struct_in:
        for i, a in enumerate(args):
            if isinstance(a, CardRecord):
                lead = inputs[:i]
                if any(p.role not in ("mac", "rspid") for p in lead) or i != len(args) - 1:
                    raise ArgumentTypeError(e.name, "", "takes a CardRecord right after the "
                                                        "MAC (and rspid), as its last argument")
                for p, value in zip(lead, args[:i]):
                    given[p.name] = value
                for p in inputs[i:]:
                    name = CardRecord.field_of(p)
                    if name is not None:
                        given[p.name] = getattr(a, name)
                args = ()
                break
    if len(args) > len(inputs):
        raise ArgumentTypeError(e.name, "", f"takes at most {len(inputs)} positional arguments "
                                            f"({len(args)} given)")
    for p, value in zip(inputs, args):
        given[p.name] = value
    for key, value in kwargs.items():
        p = e.by_pyname.get(key) or e.by_name.get(key)
        if p is None:
            close = difflib.get_close_matches(key, list(e.by_pyname), n=2)
            why = "no such parameter" + ("; did you mean " + " or ".join(close) + "?"
                                          if close else "")
            raise ArgumentTypeError(e.name, key, why)
        if p.name in given:
            raise ArgumentTypeError(e.name, p.name, "given twice")
        given[p.name] = value
    return given


# ---- The call --------------------------------------------------------------------------------

class Prepared:
    """A call ready to go: its C arguments, the buffers behind them, and the mode."""

    __slots__ = ("cargs", "slots", "mode", "sizes")

    def __init__(self, n):
        self.cargs = [None] * n
        self.slots = [None] * n
        self.sizes = {}
        self.mode = None


def prepare(e, given, callbacks=None):
    """Checks every argument against the model and builds the C arguments. Nothing is called.
    `callbacks(kind, fn)` turns a callable for a callback parameter into the C function."""
    params = e.params
    call = Prepared(len(params))
    mode = None
    if e.mode_param is not None:
        p = e.mode_param
        if p.name not in given:
            raise ArgumentTypeError(e.name, "mode", "is required")
        mode = check_number(e, p, p.bounds, check_integer(e, p, given[p.name]))
    call.mode = mode
    # Sizes first: an output buffer is as large as its size says (the caller's or the model's).
    for p in params:
        if p.role != "size":
            continue
        buffer = params[p.of_index]
        d = buffer.dir_in(mode)
        v = given.get(p.name)
        if d in ("out", "inout"):
            size = p.default_size if v is None else check_integer(e, p, v)
            call.sizes[p.index] = check_number(e, p, p.bounds, size)
        elif v is not None:
            raise ArgumentTypeError(e.name, p.name, "is the size of an input, which is measured, "
                                                    "not given")
        else:
            call.sizes[p.index] = p.bounds.min
    for p in params:
        role = p.role
        i = p.index
        if role == "size":
            continue
        if role == "handle":
            call.cargs[i] = None
            continue
        v = given.get(p.name)
        if role == "mac":
            if v is None:
                raise ArgumentTypeError(e.name, p.name, "is required")
            call.cargs[i] = check_mac(e, p, v)
            continue
        d = p.dir_in(mode)
        b = p.bounds_in(mode)
        if d == "out":
            if v is not None:
                raise ArgumentTypeError(e.name, p.name, "is an output, not an argument")
        elif d != "unused" and v is None:
            raise ArgumentTypeError(e.name, p.name, "is required")
        if role == "callback":
            if v is not None and not callable(v):
                raise ArgumentTypeError(e.name, p.name, "must be callable")
            call.cargs[i] = callbacks(p.callback["kind"], v) if callbacks else v
            continue
        base = p.base
        if base in ("text", "bytes"):
            capacity = 0
            if p.size_index >= 0:
                capacity = call.sizes[p.size_index] + 1
            if p.fixed_size:
                capacity = max(capacity, p.fixed_size + 1)
            if d == "unused" or d == "out":
                # Not read by the library in this mode, or written by it: a zeroed place of its own.
                buf = ctypes.create_string_buffer(max(capacity, 1))
            elif base == "bytes":
                if isinstance(v, str):
                    data = encode(v)
                elif isinstance(v, (bytes, bytearray, memoryview)):
                    data = bytes(v)
                else:
                    raise ArgumentTypeError(e.name, p.name, f"must be bytes or a text, not "
                                                            f"{_type_name(v)}")
                size = params[p.size_index]
                check_number(e, size, size.bounds, len(data))
                buf = ctypes.create_string_buffer(data, len(data) + 1)
                call.sizes[p.size_index] = len(data)
            else:
                data = check_text(e, p, b, v)
                if d == "inout" and len(data) + 1 > capacity:
                    raise ArgumentValueError(e.name, p.name, f"is longer than its buffer of "
                                                             f"{capacity - 1} bytes")
                # Always a buffer of its own, never the caller's object: the library may write.
                buf = ctypes.create_string_buffer(
                    data, max(capacity, b.min_capacity, len(data) + 1))
                if p.size_index >= 0 and d == "in":
                    call.sizes[p.size_index] = len(buf) - 1
            call.slots[i] = buf
            call.cargs[i] = buf
            continue
        # Numbers.
        if p.ctype.endswith("*"):
            value = 0
            if d in ("in", "inout"):
                value = check_number(e, p, b, check_integer(e, p, v))
            cell = _C_INTS[base](value)
            call.slots[i] = cell
            call.cargs[i] = ctypes.byref(cell)
            continue
        if d == "unused":
            call.cargs[i] = 0
            continue
        if role == "in_char" and isinstance(v, (str, bytes)):
            if len(v) != 1:
                raise ArgumentValueError(e.name, p.name, "must be one character")
            value = ord(v)
        else:
            value = check_integer(e, p, v)
        call.cargs[i] = check_number(e, p, b, value)
        if base == "char":
            call.cargs[i] = value % 256 if value < 0 else value
    for index, size in call.sizes.items():
        call.cargs[index] = size
    return call


def collect(e, call):
    """The outputs after the call, by the header's names (every output the export has, as its
    typed result holds them: a mode's inputs as they stand after the call)."""
    out = {}
    for p in e.outputs:
        slot = call.slots[p.index]
        if p.base == "text":
            if p.frame:
                raw = slot.raw[:-1]
                out[p.name] = raw[:frame_length(raw)]
            else:
                out[p.name] = decode(slot.value)
        elif p.base == "bytes":
            count = 0
            if p.count_index >= 0:
                count = call.slots[p.count_index].value
            count = max(0, min(count, len(slot) - 1))
            out[p.name] = slot.raw[:count]
        else:
            out[p.name] = slot.value if slot is not None else 0
    return out


def shape(e, result, outputs):
    """The typed value of a call: a CardRecord for a card export's outputs, the result where
    there are no outputs, the one output, or `<Export>Result` for several."""
    if not e.outputs:
        return result
    if e.struct and not e.struct_in:
        return CardRecord.from_outputs(outputs, e)
    if len(e.outputs) == 1 and not e.positive_result:
        p = e.outputs[0]
        return outputs.get(p.name, _zero(p))
    values = {p.pyname: outputs.get(p.name, _zero(p)) for p in e.outputs}
    return result_type(e)(result=result, **values)


def _zero(p):
    if p.frame or p.base == "bytes":
        return b""
    return "" if p.base == "text" else 0


def invoke(loaded, e, given, callbacks=None):
    """Calls export `e` with arguments `given` (by header name): (result, outputs), or raises
    ZanthError when the export's rule calls the result a failure. A poll that finds nothing
    gives outputs None."""
    call = prepare(e, given, callbacks)
    result = loaded.functions[e.name](*call.cargs)
    rule = e.rule
    if not succeeded(rule, result):
        raise ZanthError(e.name, result)
    if is_empty(rule, result):
        return result, None
    return result, collect(e, call)


__all__ = ["bind", "prepare", "invoke", "shape", "collect", "OUTPUT_ROLES", "MODEL"]
