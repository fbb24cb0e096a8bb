"""Decoding a reply frame "CCCC;LLLL;payload" by the model's layouts into the outputs and the
result that the blocking form would have given. The rules (tokenizers, result maps, field kinds)
are the library's, as the model's layouts describe them."""

from ._model import MODEL

_INT32_MIN, _INT32_MAX = -(2**31), 2**31 - 1
_BLANKS = b" \t\n\r\f\v"
_DIGITS = b"0123456789"


def frame_length(frame):
    """The length of a frame by its length field (at least the 10 bytes of the header, at most
    what `frame` holds); 0 when the header is not a frame's."""
    if len(frame) < 10 or frame[4:5] != b";" or frame[9:10] != b";":
        return 0
    digits = frame[5:9]
    if not all(48 <= c <= 57 for c in digits):
        return 0
    return min(max(int(digits), 10), len(frame))


def split(t, layout):
    """The fields of payload `t` as (begin, end, next) by the layout's tokenizer; `next` is
    where the rest begins behind the field's delimiter (None: no delimiter)."""
    fields = []
    n = len(t)
    if layout.tokenizer == "tokens":
        pos = 0
        while len(fields) < 150:
            while pos < n and t[pos] == 59:  # runs of ';' count as one
                pos += 1
            if pos >= n:
                break
            end = t.find(b";", pos)
            stop = n if end < 0 else end
            hash_ = t.find(b"#", pos, stop)
            cut = hash_ if hash_ >= 0 else stop
            if cut == pos:
                break  # an empty field ends the split
            fields.append((pos, cut, None if end < 0 else end + 1))
            pos = stop
    elif layout.tokenizer == "every":
        pos = 0
        while True:
            end = t.find(b";", pos)
            if end < 0:
                break
            fields.append((pos, end, end + 1))
            pos = end + 1
    else:
        pos = 0
        delimiter = layout.delimiter
        while pos < n:
            end = t.find(delimiter, pos)
            if end < 0:
                fields.append((pos, n, None))
                break
            fields.append((pos, end, end + 1))
            pos = end + 1
    return fields


def atoi(f):
    """C's atoi as the library uses it: blanks, a sign, digits; 0 without digits; clamped."""
    i, n = 0, len(f)
    while i < n and f[i] in _BLANKS:
        i += 1
    negative = False
    if i < n and f[i] in b"+-":
        negative = f[i] == 45
        i += 1
    value = 0
    while i < n and f[i] in _DIGITS:
        value = min(value * 10 + f[i] - 48, 2**31)
        i += 1
    value = -value if negative else value
    return max(_INT32_MIN, min(_INT32_MAX, value))


def starts_with_number(f):
    i, n = 0, len(f)
    while i < n and f[i] in b" \t":
        i += 1
    if i < n and f[i] in b"+-":
        i += 1
    return i < n and f[i] in _DIGITS


def unsigned(f):
    """"%u": blanks, a sign (a '-' wraps), digits; None without digits."""
    i, n = 0, len(f)
    while i < n and f[i] in b" \t":
        i += 1
    negative = False
    if i < n and f[i] in b"+-":
        negative = f[i] == 45
        i += 1
    if i >= n or f[i] not in _DIGITS:
        return None
    value = 0
    while i < n and f[i] in _DIGITS:
        value = min(value * 10 + f[i] - 48, 2**32 - 1)
        i += 1
    return (-value) % 2**32 if negative else value


def strict(f):
    """A field that is wholly a decimal number within 32 bits, else None."""
    i = 1 if f[:1] in (b"-", b"+") else 0
    if i >= len(f) or len(f) - i > 10 or not all(c in _DIGITS for c in f[i:]):
        return None
    value = int(f[i:])
    if f[:1] == b"-":
        value = -value
    return value if _INT32_MIN <= value <= _INT32_MAX else None


def map_result(kind, field):
    r = atoi(field)
    if kind in ("none", "leading"):
        return r
    if kind == "board":
        if r == 1:
            return 0
        return -10001 if -99 <= r <= 0 else r
    if kind == "mox":
        return {-1513: -10029, -1512: -10028}.get(r, r)
    if kind == "error_log":
        if r == 0:
            return -10014
        return -10001 if -99 <= r <= -1 else r
    if kind == "transfer":
        return r if starts_with_number(field) else -10003
    return -10001 if -99 <= r <= -1 else r  # the controller's -1 to -99 are -10001


def _text(b):
    return b.decode("utf-8", "surrogateescape")


def walk(layout, reply, payload):
    """(result, outputs, raw) of `payload` read by `layout` for `reply` (its output names)."""
    if layout.raw:
        return 0, {"payload": bytes(payload)}, True
    nul = payload.find(b"\0")
    if nul >= 0:
        payload = payload[:nul]  # the library reads a parsed payload as a C text
    if layout.result is not None:
        return layout.result, {}, False
    fields = split(payload, layout)
    if layout.exact_count >= 0 and len(fields) != layout.exact_count:
        return layout.count_mismatch, {}, False
    outs = reply.outs
    result = 0
    out = {}
    state = {"next": 0, "rest": 0}

    def take():
        if state["next"] >= len(fields):
            return None
        begin, end, after = fields[state["next"]]
        state["next"] += 1
        state["rest"] = after
        return payload[begin:end]

    def name(index):
        return outs[index] if index is not None and 0 <= index < len(outs) else None

    optional = False
    for f in layout.fields:
        kind = f["kind"]
        optional = optional or bool(f.get("optional"))
        out_name = name(f.get("out_index"))
        missing = None if optional else (f.get("missing", -10011) if kind == "result"
                                         else -10011)
        if kind == "result":
            field = take()
            if field is None or (f.get("map") == "leading" and not starts_with_number(field)):
                if missing is not None:
                    result = missing
                break
            result = map_result(f.get("map", "low"), field)
            if (atoi(field) != 0) if f.get("then") == "zero" else (result < 0):
                break
        elif kind in ("int", "uint"):
            field = take()
            if field is None:
                if missing is not None:
                    result = missing
                break
            if out_name:
                out[out_name] = atoi(field) if kind == "int" else (unsigned(field) or 0)
        elif kind in ("strict_int", "status"):
            field = take()
            if field is None:
                if missing is not None:
                    result = missing
                break
            v = strict(field)
            if v is None:
                result = -1
                break
            if kind == "status":
                result = v
            if out_name:
                out[out_name] = v
        elif kind == "text":
            field = take()
            if field is None:
                if missing is not None:
                    result = missing
                break
            if out_name:
                out[out_name] = _text(field)
        elif kind == "stamp":
            field = take()
            if field is None:
                if missing is not None:
                    result = missing
                break
            dash = field.find(b"-")
            date, time_ = (b"0", b"0") if dash < 0 else (field[:dash], field[dash + 1:])
            if out_name:
                out[out_name] = _text(date)
            second = name(f.get("out2_index"))
            if second:
                out[second] = _text(time_)
        elif kind in ("wire_date", "wire_time"):
            a, b, c = take(), take(), take()
            if a is None or b is None or c is None:
                if missing is not None:
                    result = missing
                break
            text = c + b"/" + a + b"/" + b if kind == "wire_date" else a + b":" + b + b":" + c
            if out_name:
                out[out_name] = _text(text)
        elif kind == "rest":
            start = state["rest"]
            if "offset" in f:
                # Read only when another field follows.
                if optional and state["next"] >= len(fields):
                    break
                start = f["offset"]
            elif state["next"] > 0 and start is None:
                if missing is not None:
                    result = missing
                break
            if out_name:
                out[out_name] = _text(payload[start:] if start < len(payload) else b"")
            state["next"] = len(fields)
        elif kind == "skip":
            stop = False
            for _ in range(max(f.get("count", 1), 1)):
                if take() is None:
                    if missing is not None:
                        result = missing
                    stop = True
                    break
            if stop:
                break
    return result, out, False


def _index_outputs(model):
    """Each field's output as an index into its reply's names, as the C++ tables hold them."""
    for layout in model.layouts.values():
        fields = []
        position = 0
        for f in layout.fields:
            f = dict(f)
            if "out" in f:
                f["out_index"] = position
                position += 1
            if "out2" in f:
                f["out2_index"] = position
                position += 1
            fields.append(f)
        layout.fields = tuple(fields)


_index_outputs(MODEL)


def succeeded(rule, result):
    """The model's success test. A poll's "empty" counts as no failure (is_empty tells it)."""
    r = MODEL.rules[rule]
    if r.get("always_ok"):
        return True
    if "empty" in r and result == r["empty"]:
        return True
    if "ok_min" in r and result >= r["ok_min"]:
        return True
    return result in r.get("ok_values", ())


def is_empty(rule, result):
    r = MODEL.rules[rule]
    return "empty" in r and result == r["empty"]


def decode(export, frame, args=None):
    """(code, result, ok, raw, outputs by header name) of a reply `frame` (bytes) that came
    under an rspid of `export` (the Rsp form or its blocking twin). `args` are the call's
    arguments by header name: `mode` chooses the reply of a mode export, and an input-output
    that the reply doesn't write keeps the value that went in."""
    args = args or {}
    blocking = MODEL.blocking_of(export)
    rule = blocking.rule if blocking is not None else "controller"
    length = frame_length(frame)
    if length == 0 or frame[0] not in _DIGITS:
        return 0, -10024, False, False, {}  # not a frame's header
    code = atoi(frame[:4])
    payload = frame[10:length]
    mode = args.get("mode") if "mode" in export.by_name else None
    match = None
    for r in export.replies:
        if (r.any_code or r.code == code) and (r.mode is None or mode is None or r.mode == mode):
            match = r
            break
    if match is None:
        result = {"check_error_code": -10030 if code == 9920 else -10010,
                  "no_reply": -10005, "zero": 0, "cannot_process": -10030}.get(export.other_code,
                                                                             -10010)
        return code, result, succeeded(rule, result), False, {}
    result, outputs, raw = walk(match.layout, match, payload)
    ok = succeeded(rule, result)
    if not ok:
        outputs = {}
    elif not raw and blocking is not None:
        # What the reply didn't write, the blocking form leaves as it was: zeroed outputs, and
        # for an input-output the value that went in.
        for p in blocking.params:
            d = p.dir_in(mode)
            if d not in ("out", "inout") or p.name in outputs:
                continue
            if d == "inout" and p.name in args:
                outputs[p.name] = args[p.name]
            elif p.base == "text":
                outputs[p.name] = ""
            elif p.base == "bytes":
                outputs[p.name] = b""
            else:
                outputs[p.name] = 0
    return code, result, ok, raw, outputs
