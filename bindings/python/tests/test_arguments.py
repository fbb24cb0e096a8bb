"""Arguments are checked against the model before anything is called, and reach the C functions
as they must (writable texts and outputs in buffers of their own). These tests never load the
library: the exports are called through a stand-in that records every call."""

import ctypes

import pytest

import zanth
from zanth._model import MODEL

MAC = "C0:00:01"
# A result each rule calls a success (and not a poll's "nothing").
SUCCESS = {"controller": 0, "zero": 0, "status": 0, "status_rsp": -1, "result_rsp": -1,
           "poll": 0, "poll_file": 0}


class Recorder:
    """Stands in for the loaded library: each export records its C arguments and returns what
    `results` says (a number, or a function of the arguments that may write the outputs)."""

    def __init__(self):
        self.calls = []
        self.results = {}
        recorder = self

        class Functions(dict):
            def __missing__(self, name):
                def function(*cargs):
                    recorder.calls.append((name, cargs))
                    r = recorder.results.get(name, SUCCESS[MODEL.exports[name].rule])
                    return r(*cargs) if callable(r) else r
                return function

        self.functions = Functions()


@pytest.fixture
def offline():
    recorder = Recorder()
    api = zanth.Exports()
    api._loaded = recorder
    api.recorder = recorder
    return api


SAMPLES = {"hex": "1F", "hex_or_empty": "", "octal3": "644", "date": "2024/01/02",
           "date_or_zero": "0", "time": "12:30:00", "time_or_zero": "0"}


def valid_args(e, mode=None):
    """Arguments every bound of the model accepts, by the header's names."""
    args = {}
    for p in e.inputs:
        d = p.dir_in(mode)
        if p.name == "mode" and e.mode_param is p:
            args["mode"] = mode
            continue
        if d in ("out", "unused") or p.role == "callback":
            continue
        b = p.bounds_in(mode)
        if p.role == "mac":
            args[p.name] = MAC
        elif p.base == "bytes":
            args[p.name] = b"data"
        elif p.base == "text":
            args[p.name] = SAMPLES.get(b.pattern, "x")
        elif p.role == "in_char":
            args[p.name] = chr(min(b.values)) if b.values else "a"
        else:
            args[p.name] = min(b.values) if b.values else b.min
    return args


def modes_of(e):
    if e.mode_param is None:
        return [None]
    values = e.mode_param.bounds.values
    return sorted(values) if values else [0]  # a mode that decides no direction


CALLABLE = [e for e in MODEL.exports.values() if e.category != "callback"]


def call(api, e, args):
    return getattr(api, e.pyname)(**{e.by_name[k].pyname: v for k, v in args.items()})


def test_valid_arguments_reach_every_export(offline):
    """Arguments within every bound go through, each in its C form: an own buffer for every
    char* (writable texts at least as large as the model says), bytes for a const char*."""
    for e in CALLABLE:
        for mode in modes_of(e):
            offline.recorder.calls.clear()
            args = valid_args(e, mode)
            call(offline, e, args)
            assert len(offline.recorder.calls) == 1, e.name
            name, cargs = offline.recorder.calls[0]
            assert name == e.name and len(cargs) == len(e.params)
            for p, c in zip(e.params, cargs):
                if p.ctype == "char*":
                    assert isinstance(c, ctypes.Array), f"{e.name}.{p.name} got {type(c)}"
                    if p.name in args and p.dir_in(mode) == "in":
                        text = args[p.name]
                        text = text.encode() if isinstance(text, str) else text
                        assert c.raw.startswith(text + b"\0")
                        assert len(c) >= max(p.bounds_in(mode).min_capacity, len(text) + 1)
                elif p.ctype == "const char*" and p.role == "mac":
                    assert c == MAC.encode()


def test_every_number_is_checked_at_both_ends(offline):
    """Each integer input at its bounds goes through; one past either end is refused with a
    ValueError naming the parameter, and nothing is called."""
    checked = 0
    for e in CALLABLE:
        for mode in modes_of(e):
            base = valid_args(e, mode)
            for p in e.inputs:
                if p.name not in base or p.base in ("text", "bytes") or p.role == "mac":
                    continue
                b = p.bounds_in(mode)
                if p is e.mode_param:
                    continue
                if p.role == "in_char":
                    good = [chr(v) for v in sorted(b.values)]
                    bad = ["z", "ab"]
                else:
                    good = [b.min, b.max] if b.values is None else sorted(b.values)
                    bad = [b.min - 1, b.max + 1] if b.values is None else [max(b.values) + 1]
                for value in good:
                    offline.recorder.calls.clear()
                    call(offline, e, {**base, p.name: value})
                    assert len(offline.recorder.calls) == 1, (e.name, p.name, value)
                for value in bad:
                    offline.recorder.calls.clear()
                    with pytest.raises(zanth.ArgumentValueError) as caught:
                        call(offline, e, {**base, p.name: value})
                    assert caught.value.param == p.name and caught.value.export == e.name
                    assert offline.recorder.calls == []
                checked += 1
    assert checked > 300


def test_texts_are_checked_before_any_call(offline):
    """';' where it would split the message, NUL, patterns, lengths and empty texts."""
    refused = 0
    for e in CALLABLE:
        for mode in modes_of(e):
            base = valid_args(e, mode)
            for p in e.inputs:
                if p.name not in base or p.base != "text" or p.role == "mac":
                    continue
                b = p.bounds_in(mode)
                bad = ["a\0b"]
                if b.no_semicolon:
                    bad.append("1;2")
                if b.pattern:
                    bad.append({"hex": "G1", "hex_or_empty": "xyz", "octal3": "648",
                                "date": "2038/01/01", "date_or_zero": "2024/13/01",
                                "time": "24:00:00", "time_or_zero": "12:60:00"}[b.pattern])
                if b.max_length:
                    bad.append("a" * (b.max_length + 1))
                if b.not_empty:
                    bad.append("")
                for value in bad:
                    with pytest.raises(zanth.ArgumentValueError) as caught:
                        call(offline, e, {**base, p.name: value})
                    assert caught.value.param == p.name
                    refused += 1
    assert offline.recorder.calls == []
    assert refused > 250


def test_refusals_name_what_is_wrong(offline):
    r = offline.recorder
    card = dict(mac=MAC, card_set_id=7, no_format=0, card_number="1001", pin="1234",
                access_type=1, unique_id=42)
    groups = {f"access_group{i}": 0 for i in range(1, 9)}
    rest = dict(extended_access=0, passback_exempt=0, pin_commands=0, start_date="0",
                start_time="0", end_date="0", end_time="0", escort_id=0,
                in_schedule_elevator_group=0, out_schedule_elevator_group=0, pin_exempt=0,
                card_role=0)
    full = {**card, **groups, **rest}
    cases = [
        # (arguments, exception, parameter, words of the message)
        (dict(full, access_type="1"), TypeError, "accessType", "must be an integer"),
        (dict(full, access_type=1.0), TypeError, "accessType", "must be an integer"),
        (dict(full, card_number=1001), TypeError, "cardNumber", "must be a text"),
        (dict(full, mac=1), TypeError, "mac", "must be a text"),
        (dict(full, mac="C0:00;01"), ValueError, "mac", "MAC"),
        (dict(full, mac=""), ValueError, "mac", "MAC"),
        (dict(full, unique_id=0), ValueError, "uniqueId", "1 to 4294967295"),
        (dict(full, unique_id=2**32), ValueError, "uniqueId", "1 to 4294967295"),
        (dict(full, card_role=65536), ValueError, "cardRole", "0 to 65535"),
        (dict(full, pin="12;34"), ValueError, "pin", "';'"),
        (dict(full, start_date="2024/02/30x"), ValueError, "startDate", "yyyy/mm/dd"),
        (dict(full, end_time="7:5"), ValueError, "endTime", "hh:mm:ss"),
        ({k: v for k, v in full.items() if k != "pin"}, TypeError, "pin", "is required"),
        (dict(full, cardrole=1), TypeError, "cardrole", "did you mean card_role"),
    ]
    for args, exception, param, words in cases:
        with pytest.raises(exception) as caught:
            offline.add_mod_card_record3(**args)
        assert caught.value.param == param, args
        assert words in str(caught.value) and "AddModCardRecord3" in str(caught.value)
    assert r.calls == []
    offline.add_mod_card_record3(**full)
    assert len(r.calls) == 1

    with pytest.raises(TypeError, match="is an output"):
        offline.debug_level(0, level=50)           # mode 0 reads the level
    with pytest.raises(TypeError, match="level: is required"):
        offline.debug_level(1)                     # mode 1 sets it
    with pytest.raises(ValueError, match="one of 0, 1"):
        offline.debug_level(2)
    with pytest.raises(ValueError, match="0 to 75"):
        offline.debug_level(1, 76)
    with pytest.raises(ValueError, match="0 to 1048576"):
        offline.controller_info(MAC, size=-1)      # an output's size
    with pytest.raises(TypeError, match="takes at most 1 positional"):
        offline.controller_info(MAC, 4097)
    with pytest.raises(TypeError, match="given twice"):
        offline.controller_info(MAC, mac=MAC)
    with pytest.raises(ValueError, match="one character"):
        offline.read_interface_memory_2(MAC, 0, 1, "0", 1, "ad")
    with pytest.raises(ValueError, match="0 to 4086"):
        offline.send_data(MAC, "/tmp/f", b"x" * 4087, 0)
    assert r.calls[1:] == []
    with pytest.raises(zanth.UnknownExportError) as caught:
        zanth.call("ControlerInfo", MAC)
    assert "ControllerInfo" in caught.value.suggestions


def test_writable_texts_are_copies_of_their_own(offline):
    """The library may write into a writable text (it trims the card number in place): each
    call gets fresh buffers, large enough for what the library may write there."""
    r = offline.recorder

    def trim(*cargs):
        cargs[3].value = b"0"   # an empty card number comes back as "0"
        return 0
    r.results["AddModCardRecord3"] = trim
    record = zanth.CardRecord(card_set_id=7, card_number="", pin="1", unique_id=5)
    offline.add_mod_card_record3(MAC, record)
    offline.add_mod_card_record3(MAC, record)
    (_, first), (_, second) = r.calls
    assert first[3].value == b"0" and len(first[3]) >= 2
    assert ctypes.addressof(first[3]) != ctypes.addressof(second[3])
    assert first[4] is not second[4]
    assert record.card_number == ""
    # Every field of the record went where the header puts it.
    assert (first[1], first[6], first[4].value) == (7, 5, b"1")


def test_success_rules(offline):
    """Each rule of the model: what is returned, what raises, and a poll's "nothing"."""
    r = offline.recorder
    cases = [
        # export, result, what the call gives (an exception class, or the value)
        ("CmdOutputFunction3", 0, 0),
        ("CmdOutputFunction3", 3, 3),                        # controller: a positive value is ok
        ("CmdOutputFunction3", -1, zanth.ZanthError),        # the controller's own result
        ("CmdOutputFunction3", -10003, zanth.ZanthError),
        ("SetValidControllers", 0, 0),
        ("SetValidControllers", 104, zanth.ZanthError),      # zero: a positive system error
        ("DeleteSchedule", 2, 2),                             # status: the controller's field
        ("DeleteSchedule", -1, zanth.ZanthError),
        ("RspDeleteSchedule", -1, -1),                        # status_rsp: never raises
        ("RspDeleteSchedule", -10004, -10004),
        ("RspGetSchedule", -1, -1),                           # result_rsp: -1 is queued
        ("RspGetSchedule", 0, zanth.ZanthError),
        ("RspGetSchedule", -10003, zanth.ZanthError),
        ("GetNextLookup", -10009, None),                      # poll: empty
        ("GetNextLookup", -10008, zanth.ZanthError),
        ("GetNextEvent", -10008, None),                       # poll_file: empty
        ("GetNextEvent", -10009, zanth.ZanthError),
        ("GetNextEvent", -10006, zanth.ZanthError),
    ]
    for name, result, expected in cases:
        e = MODEL.exports[name]
        r.results[name] = result
        args = valid_args(e)
        if isinstance(expected, type):
            with pytest.raises(expected) as caught:
                call(offline, e, args)
            assert caught.value.code == result and caught.value.export == name
            assert caught.value.name == zanth.result_name(result)
        else:
            assert call(offline, e, args) == expected, (name, result)
    with pytest.raises(zanth.ZanthError) as caught:
        r.results["ControllerInfo"] = -10003
        offline.controller_info(MAC)
    assert (caught.value.name, caught.value.meaning) == (
        "kNotConnected", "the MAC is valid but its controller is not connected")
    assert "ControllerInfo: -10003 kNotConnected" in str(caught.value)


def test_outputs_are_shaped_by_the_model(offline):
    r = offline.recorder

    def status(mac, target, status, buffer, size):
        status._obj.value = 1
        buffer.value = b"0101"
        return 2
    r.results["GetInputStatus3"] = status
    got = offline.get_input_status3(MAC, 32)
    assert got == zanth.records.GetInputStatus3Result(result=2, status=1, buffer="0101")

    def response(rspid, buffer, size):
        rspid._obj.value = 9
        frame = b"1079;0013;ab;"
        ctypes.memmove(buffer, frame + b"junk", len(frame) + 4)
        return 0
    r.results["GetNextResponse"] = response
    got = offline.get_next_response()
    assert (got.rspid, got.buffer) == (9, b"1079;0013;ab;")  # measured by its length field

    def chunk(mac, path, buffer, size, read, last):
        ctypes.memmove(buffer, b"\x00\x01;\xff", 4)
        read._obj.value = 4
        last._obj.value = 1
        return 0
    r.results["GetData"] = chunk
    got = offline.get_data(MAC, "/tmp/f")
    assert (got.buffer, got.bytes_read, got.is_last) == (b"\x00\x01;\xff", 4, 1)

    def too_many(mac, path, buffer, size, read, last):
        read._obj.value = size + 100   # never read past the buffer
        return 0
    r.results["GetData"] = too_many
    assert len(offline.get_data(MAC, "/tmp/f", size=10).buffer) == 10

    def level(mode, value):
        value._obj.value = 42
        return 0
    r.results["DebugLevel"] = level
    assert offline.debug_level(0) == 42


def test_checks_agree_with_the_cpp_layer(offline):
    """Random arguments, mostly valid, some past a bound, of the wrong type, missing or
    unknown, checked here and by zanth.hpp's CheckArgs (zanth-decode-oracle): both accept the
    same calls, and refuse the others naming the same parameter."""
    import json
    import os
    import random
    import subprocess
    from pathlib import Path

    oracle = Path(os.environ.get("ZANTH_TEST_BIN", "")) / "zanth-decode-oracle"
    assert oracle.exists(), f"{oracle} is not built"
    rng = random.Random(int(os.environ.get("ZANTH_CHECK_SEED", "24")))
    texts = ["", "x", "a;b", ";", "x" * 300, "2024/13/01", "2024/01/02", "1901/1/1", "12:00:00",
             "24:00:00", "0", "G", "1F", "644", "648", "ad", "a", "C0:00:01", "  ", "1,2"]
    cases = []
    for e in CALLABLE:
        for _ in range(40):
            mode = rng.choice(modes_of(e))
            args = valid_args(e, mode)
            for _ in range(rng.choice([0, 1, 1, 2]) if e.params else 0):
                p = rng.choice(e.params)
                roll = rng.random()
                if roll < 0.1:
                    args.pop(p.name, None)
                elif roll < 0.15:
                    args["noSuchParam"] = 1
                elif p.base in ("text", "bytes") and roll < 0.8 or roll > 0.95:
                    args[p.name] = rng.choice(texts)
                else:
                    b = p.bounds_in(mode)
                    low, high = b.min if b.min is not None else 0, b.max if b.max is not None else 9
                    args[p.name] = rng.choice([low, high, low - 1, high + 1, 0, -1, 4097,
                                               min(high, 2**63 - 1)])
            if all(not isinstance(v, int) or -2**63 <= v < 2**63 for v in args.values()):
                cases.append((e, args))  # the C++ layer's numbers are 64-bit
    lines = []
    for e, args in cases:
        items = []
        for k, v in args.items():
            if isinstance(v, int):
                items.append(f"{k}=i:{v}")
            else:
                items.append(f"{k}=s:{(v if isinstance(v, bytes) else v.encode()).hex()}")
        lines.append(f"CHECK {e.name} {' '.join(items)}\n")
    done = subprocess.run([str(oracle)], input="".join(lines), capture_output=True, text=True,
                          timeout=120)
    assert done.returncode == 0, done.stderr
    answers = [json.loads(a) for a in done.stdout.splitlines()]
    assert len(answers) == len(cases)
    differ = []
    accepted = 0
    for (e, args), want in zip(cases, answers):
        try:
            getattr(offline, e.pyname)(**{e.by_name[k].pyname if k in e.by_name else k: v
                                          for k, v in args.items()})
            got = {"ok": True}
            accepted += 1
        except (TypeError, ValueError) as error:
            got = {"ok": False, "param": getattr(error, "param", "?")}
        if got["ok"] != want["ok"] or (not got["ok"] and got["param"] != want["param"]):
            why = bytes.fromhex(want.get("why", "")).decode(errors="replace")
            differ.append(f"{e.name} {args}: python {got}, c++ {want.get('param')} {why}")
    assert not differ, f"{len(differ)} of {len(cases)} differ\n" + "\n".join(differ[:10])
    assert 0.2 * len(cases) < accepted < 0.9 * len(cases)
