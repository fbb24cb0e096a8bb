"""Commands to a simulated controller: the success rules on real results, card records that
round-trip, and Rsp replies decoded into exactly what the blocking forms give."""

import dataclasses
import threading

import pytest

import zanth


def sample_card():
    return zanth.CardRecord(
        card_set_id=7, card_number="1001", pin="4321", access_type=2,
        unique_id=3000000000,                 # above 2**31: read back unsigned
        access_group1=1, access_group2=2, access_group8=65535, extended_access=1,
        pin_commands=1, start_date="2024/01/02", start_time="08:30:00", end_date="2037/12/31",
        end_time="17:00:00", escort_id=4294967295, in_schedule_elevator_group=3,
        out_schedule_elevator_group=255, pin_exempt=1, card_role=300)


def test_success_rules_on_real_results(site):
    lib = site("C0:00:01")
    mac = lib.connected()[0]
    assert zanth.same_mac(mac, "c0-00-01")
    # controller: the description; a MAC not in the valid list; a controller's own refusal.
    assert "C0:00:01" in lib.controller_info(mac)
    with pytest.raises(zanth.ZanthError) as caught:
        lib.controller_info("C0:00:02")
    assert (caught.value.code, caught.value.name) == (-10004, "kNotValid")
    with pytest.raises(zanth.ZanthError) as caught:
        lib.delete_card_record2(mac, 99)              # no such record: the controller's -101
    assert caught.value.code < 0 and caught.value.name == "controller result"
    # status: the controller's field as it stands, 0 or above is success.
    assert lib.update_schedule(mac, "a", "b", "c", "d", "e", 1, 2, 3, 4, 5, 6) >= 0
    with pytest.raises(zanth.ZanthError) as caught:
        lib.delete_schedule(mac, 5)
    assert caught.value.code < 0
    # status_rsp says nothing, even for a MAC not in the list; result_rsp is -1 once queued.
    assert lib.rsp_delete_schedule(1, "C0:00:02", 5) == -1
    assert lib.rsp_get_schedule(2, mac, 1) == -1
    assert lib.wait_reply(2, timeout=10).value().schedule_text5 == "e"
    with pytest.raises(zanth.ZanthError) as caught:
        lib.rsp_get_schedule(3, "C0:00:02", 1)
    assert caught.value.code == -10004
    # zero: an Rsp form that couldn't queue its message.
    with pytest.raises(zanth.ZanthError):
        lib.rsp_controller_info(4, "C0:00:02")
    # polls: nothing is None.
    assert lib.get_next_lookup() is None and lib.get_next_response() is None


def test_card_records_round_trip(site):
    lib = site("C0:00:02")
    mac = "C0:00:02"
    card = sample_card()
    assert lib.add_mod_card_record3(mac, card) == 0
    read = lib.get_card_record4(mac, 7, 0, "1001", "4321")
    assert isinstance(read, zanth.CardRecord)
    expected = zanth.CardRecord(**{**dataclasses.asdict(card), "field7_value": read.field7_value})
    assert read == expected
    # Earlier generations read what they know, and leave the rest at the defaults.
    assert lib.get_card_record2(mac, 7, 0, "1001", "4321") == zanth.CardRecord(
        **{**dataclasses.asdict(expected), "card_role": 0})
    assert lib.get_card_record(mac, 7, 0, "1001", "4321").pin_exempt == 0
    # Generation 1 sends no pin exemption and no role, whatever the record holds.
    older = zanth.CardRecord(**{**dataclasses.asdict(card), "card_number": "2002", "unique_id": 8})
    lib.add_mod_card_record(mac, older)
    again = lib.get_card_record4(mac, 7, 0, "2002", "4321")
    assert (again.pin_exempt, again.card_role, again.unique_id) == (0, 0, 8)
    # Flat keywords do the same as a record; blanks the library trims in its own buffer.
    flat = {k: v for k, v in dataclasses.asdict(zanth.CardRecord(card_set_id=7, unique_id=9)).items()
            if k not in ("card_role", "field7_value")}     # generation 2 has no role
    flat.update(card_number=" 3003 ", pin="")
    lib.add_mod_card_record2(mac, **flat)
    trimmed = lib.get_card_record4(mac, 7, 0, "3003", "0")
    assert (trimmed.card_number, trimmed.pin, trimmed.unique_id) == ("3003", "0", 9)
    # Deleted: the get raises the controller's result.
    lib.delete_card_record2(mac, 3000000000)
    with pytest.raises(zanth.ZanthError) as caught:
        lib.get_card_record4(mac, 7, 0, "1001", "4321")
    assert caught.value.code < 0
    assert lib.get_number_of_cards(mac).first_count == 2


def same_both_ways(lib, export, *args, **kwargs):
    """The blocking form's value and its Rsp form's decoded reply agree (also when both fail)."""
    try:
        blocking = getattr(lib, zanth.find_export(export).pyname)(*args, **kwargs)
    except zanth.ZanthError as e:
        blocking = e
    rspid = lib.request(export, *args, **kwargs)
    reply = lib.wait_reply(rspid, timeout=10)
    assert reply.rspid == rspid and reply.decoded
    try:
        decoded = reply.value()
    except zanth.ZanthError as e:
        assert isinstance(blocking, zanth.ZanthError), f"{export}: {blocking!r} vs {e}"
        assert (e.code, e.export) == (blocking.code, blocking.export)
        return e
    assert decoded == blocking, f"{export}: frame {reply.frame!r}"
    return decoded


def test_rsp_replies_decode_to_the_blocking_outputs(site):
    lib = site("C0:00:03")
    mac = "C0:00:03"
    assert "ZN-" in same_both_ways(lib, "ControllerInfo", mac)      # the whole payload
    same_both_ways(lib, "SetTZ", mac, "CET-1CEST")                    # a bare result
    assert same_both_ways(lib, "GetTZ", mac) == "CET-1CEST"          # result and a text
    counts = same_both_ways(lib, "GetNumberOfCards", mac)            # result and two numbers
    assert counts.second_count > 0
    lib.add_mod_card_record3(mac, sample_card())
    card = same_both_ways(lib, "GetCardRecord4", mac, 7, 0, "1001", "4321")
    assert card.unique_id == 3000000000
    failed = same_both_ways(lib, "GetCardRecord4", mac, 7, 0, "9999", "0")
    assert isinstance(failed, zanth.ZanthError)
    same_both_ways(lib, "GetCardholderStatus3", mac, 3000000000)     # a stamp and eight values
    status = same_both_ways(lib, "GetInputStatus3", mac, 32)         # through the older Rsp name
    assert len(status.buffer) == 16
    saved = same_both_ways(lib, "GetSavedOutputs", mac, 0)       # the result kept beside
    assert saved.result >= 0


def test_replies_wait_for_their_own_rspid(site):
    lib = site("C0:00:04")
    first = lib.request("GetTZ", "C0:00:04", rspid=70)
    second = lib.request("ControllerInfo", "C0:00:04", rspid=71)
    # Taken in the other order: the first is kept while the second is awaited.
    assert "C0:00:04" in lib.wait_reply(second, timeout=10).value()
    assert lib.wait_reply(first, timeout=10).export == "RspGetTZ"
    with pytest.raises(TimeoutError, match="rspid 72"):
        lib.wait_reply(72, timeout=0.2)


def test_replies_through_the_response_callback(site):
    seen = []
    got = threading.Event()

    def on_response(reply):
        seen.append(reply)
        got.set()
    lib = site("C0:00:05", on_response=on_response)
    rspid = lib.request("ControllerInfo", "C0:00:05")
    reply = lib.wait_reply(rspid, timeout=10)
    assert got.wait(10)
    assert seen[0].rspid == rspid and seen[0].value() == reply.value()
    assert reply.value() == lib.controller_info("C0:00:05")
    # The callback took the reply: the queue that GetNextResponse reads stays empty.
    assert lib.get_next_response() is None
