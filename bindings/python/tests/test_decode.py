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
