"""Replies decoded by the model's layouts, from frames made by hand: the tokenizers, the result
maps, missing fields, other codes and frames that are none. Nothing is loaded."""

import pytest

import zanth


def frame(code, payload, tail=b""):
    payload = payload.encode() if isinstance(payload, str) else payload
    return f"{code:04d};{10 + len(payload):04d};".encode() + payload + tail


def test_texts_numbers_and_stamps():
    info = zanth.decode_reply("RspControllerInfo", frame(1079, "ZN-4000;4.21.7;C0:00:01;ZS1;"))
    assert (info.code, info.result, info.ok) == (1079, 0, True)
    assert info.value() == "ZN-4000;4.21.7;C0:00:01;ZS1;"   # the whole payload, ';' and all

    clock = zanth.decode_reply("GetTimeDate", frame(1019, "0;11;4;2026;7;5;2;"))
    assert clock.value() == zanth.records.GetTimeDateResult(result=0, date="2026/11/4",
                                                            time="7:5:2")
    counts = zanth.decode_reply("get_number_of_cards", frame(1089, "0;12;50000;"))
    assert (counts.outputs["first_count"], counts.outputs["second_count"]) == (12, 50000)

    # The tokeniser: runs of ';' are one, a field ends at '#', an empty field ends the split.
    tz = zanth.decode_reply("RspGetTZ", frame(1087, ";;0;;CET-1#comment;ignored;"))
    assert tz.value() == "CET-1"

    # The length field measures the frame: what follows it is not read.
    tail = zanth.decode_reply("RspGetTZ", frame(1087, "0;UTC;", tail=b"9;junk;"))
    assert tail.value() == "UTC"


def test_results_and_failures():
    # The controller's -1 to -99 become -10001; below that the result stands.
    low = zanth.decode_reply("RspGetTZ", frame(1087, "-5;"))
    assert (low.result, low.ok, low.outputs) == (-10001, False, {})
    with pytest.raises(zanth.ZanthError) as caught:
        low.value()
    assert (caught.value.code, caught.value.export) == (-10001, "GetTZ")
    assert zanth.decode_reply("RspGetTZ", frame(1087, "-101;")).result == -101
    # A code the command doesn't expect: 9920 can't be processed, anything else unexpected.
    assert zanth.decode_reply("RspGetTZ", frame(9920, "87;")).result == -10030
    assert zanth.decode_reply("RspGetTZ", frame(9910, "87;")).result == -10010
    assert zanth.decode_reply("RspGetTZ", frame(1088, "0;")).result == -10010
    # Not a frame at all.
    assert zanth.decode_reply("RspGetTZ", b"garbage, no header").result == -10024
    assert zanth.decode_reply("RspGetTZ", b"1087;00x4;0;").result == -10024
    # A field the layout needs is missing.
    status = zanth.decode_reply("GetCardholderStatus3", frame(1076, "0;2024/01/02-08:00:00;1;2;"))
    assert (status.result, status.ok) == (-10011, False)


def test_card_records_read_every_field():
    fields = ["0", "1001", "7", "0", "4321", "2", "3000000000", "5", "1", "2", "0", "0", "0", "0",
              "0", "65535", "1", "x", "1", "x", "1", "x", "2024/01/02-08:30:00", "0", "9", "3",
              "255", "x", "1", "300"]
    whole = zanth.decode_reply("RspGetCardRecord4", frame(1035, ";".join(fields) + ";"))
    record = whole.value()
    assert record == zanth.CardRecord(
        card_set_id=7, no_format=0, card_number="1001", pin="4321", access_type=2,
        unique_id=3000000000, field7_value=5, access_group1=1, access_group2=2,
        access_group8=65535, passback_exempt=1, extended_access=1, pin_commands=1,
        start_date="2024/01/02", start_time="08:30:00", end_date="0", end_time="0",
        escort_id=9, in_schedule_elevator_group=3, out_schedule_elevator_group=255,
        pin_exempt=1, card_role=300)
    # Every ';' ends a field, empty ones too; a reply that stops short is a success that leaves
    # the outputs of the missing fields as the blocking form leaves them, the selection as given.
    short = zanth.decode_reply("RspGetCardRecord4", frame(1035, "0;;7;"), card_set_id=7,
                               no_format=0, card_number="1001", pin="1")
    assert short.ok
    assert short.value() == zanth.CardRecord(card_set_id=7, card_number="", pin="1",
                                             access_type=0, start_date="", start_time="",
                                             end_date="", end_time="")


def test_exact_counts_and_other_delimiters():
    # Twelve fields or -1; the first converted, not passed on.
    good = "0;a;b;c;d;e;1;2;3;4;5;6"
    schedule = zanth.decode_reply("RspGetSchedule", frame(1116, good))
    assert schedule.ok and schedule.outputs["schedule_text5"] == "e"
    assert schedule.outputs["schedule_value5"] == 5
    assert zanth.decode_reply("RspGetSchedule", frame(1116, good + ";7")).result == -1
    assert zanth.decode_reply("RspGetSchedule", frame(1116, good.replace(";3;", ";3x;"))).result == -1
    # A Contact ID comm record is cut at '#': its one text keeps its ';'.
    comm = zanth.decode_reply("RspGetContactIDCommRecord", frame(1123, "a;b;c"))
    assert comm.outputs == {"comm_text": "a;b;c"} and comm.ok
    assert zanth.decode_reply("RspGetContactIDCommRecord", frame(1123, "a#b")).result == -1


def test_mode_chooses_the_reply():
    assert zanth.decode_reply("RspSystemTime", frame(1019, "0;1;2;2030;3;4;5;"), mode=0).value() == \
        zanth.records.SystemTimeResult(result=0, date="2030/1/2", time="3:4:5", zone="")
    assert zanth.decode_reply("RspSystemTime", frame(1018, "0;"), mode=1).ok
    # In mode 0 the set command's reply is no answer.
    assert zanth.decode_reply("RspSystemTime", frame(1018, "0;"), mode=0).result == -10010


def test_raw_replies_and_unknown_names():
    chunk = zanth.decode_reply("GetData", frame(1033, b"\x00\x01;\xff"))
    assert chunk.raw and chunk.value() == b"\x00\x01;\xff"
    with pytest.raises(ValueError, match="no reply"):
        zanth.decode_reply("GetDLLVersion", frame(0, "1;"))
    with pytest.raises(zanth.UnknownExportError):
        zanth.decode_reply("RspGetTimeDat", frame(1019, "0;"))


# Pieces of payloads: numbers at and past every limit the decoders clamp or wrap at, texts,
# stamps, the tokeniser's '#' and empty fields, and bytes that are no UTF-8.
PIECES = ["0", "1", "-1", "-5", "-99", "-100", "-101", "-1512", "-1513", "9910", "2147483647",
          "2147483648", "-2147483648", "-2147483649", "4294967295", "4294967296", "99999999999",
          " 12", "\t-3", "+7", "-0", "-", "abc", "12abc", "", "", "2024/01/02-08:30:00",
          "2024/01/02", "x-y", "-08:00", "#", "a#b", "ZN-4000", "\xff\xfe", "0x1F", "7 8"]


def random_frame(rng, codes):
    count = rng.randrange(0, 32)
    payload = ";".join(rng.choice(PIECES) for _ in range(count))
    payload += rng.choice([";", ";", "", ";;", "#"])
    if rng.random() < 0.05:
        cut = rng.randrange(len(payload) + 1)
        payload = payload[:cut] + "\0" + payload[cut:]
    data = payload.encode("latin-1")
    code = rng.choice(codes)
    length = 10 + len(data)
    roll = rng.random()
    if roll < 0.05:
        length = rng.randrange(0, length + 20)          # a length field that lies
    header = f"{code:04d};{length:04d};".encode()
    if roll > 0.97:
        header = rng.choice([b"10x9;0012;", b"1079:0012;", b"1079;00a2;", b"", b"1079;"])
    return header + data


def test_decoding_agrees_with_the_cpp_layer():
    """Random frames for every export that has a reply, in every mode, decoded here and by
    zanth.hpp's DecodeReply (zanth-decode-oracle): the same code, result, success and outputs."""
    import json
    import os
    import random
    import subprocess
    from pathlib import Path

    from zanth import _reply
    from zanth._model import MODEL

    oracle = Path(os.environ.get("ZANTH_TEST_BIN", "")) / "zanth-decode-oracle"
    assert oracle.exists(), f"{oracle} is not built"
    seed = int(os.environ.get("ZANTH_DECODE_SEED", "24"))
    rng = random.Random(seed)
    cases = []
    for e in MODEL.exports.values():
        if not e.replies:
            continue
        codes = sorted({r.code for r in e.replies if r.code is not None} | {0, 9910, 9920, 1079})
        modes = sorted(e.mode_param.bounds.values) if e.mode_param and e.mode_param.bounds.values \
            else [None]
        for _ in range(60):
            cases.append((e, rng.choice(modes), random_frame(rng, codes)))
    lines = "".join(f"{e.name} {'-' if m is None else m} {f.hex()}\n" for e, m, f in cases)
    done = subprocess.run([str(oracle)], input=lines, capture_output=True, text=True, timeout=120)
    assert done.returncode == 0, done.stderr
    answers = done.stdout.splitlines()
    assert len(answers) == len(cases)
    differ = []
    for (e, mode, frame), answer in zip(cases, answers):
        want = json.loads(answer)
        assert "error" not in want, bytes.fromhex(want["error"]).decode()
        code, result, ok, raw, outputs = _reply.decode(e, frame, {} if mode is None else {"mode": mode})
        got_outputs = {k: v if isinstance(v, int) else
                       (v if isinstance(v, bytes) else v.encode("utf-8", "surrogateescape")).hex()
                       for k, v in outputs.items()}
        got = {"code": code, "result": result, "ok": ok, "raw": raw, "outputs": got_outputs}
        if got != want:
            differ.append(f"{e.name} mode {mode} frame {frame!r}:\n  python {got}\n  c++    {want}")
    assert not differ, f"seed {seed}: {len(differ)} of {len(cases)} differ\n" + "\n".join(differ[:10])
    assert len(cases) > 8000
