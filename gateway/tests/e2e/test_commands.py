"""zanthd's commands end to end, against zanth-sim: POST /call/{export} (answers, refusals before
anything is sent, deadlines and late replies, request ids, the audit trail), and the resources on
the same call path: cards and bulk loads, time, doors, outputs and inputs, schedules on the
controllers, files, pending card changes, and the connect and disconnect notices."""
import base64
import json
import os
import random
import threading

from conftest import READER, wait_for

DOORS = """
[[doors]]
name = "front"
controller = "00:00:01"
door = 1
relay = 0
lock_input = 8
open_ms = 1200
"""


def audits(g):
    return [r for r in g.records(kind="audit")]


def test_call_answers_refuses_before_sending_and_journals(site):
    g = site.gateway().start()
    sim = site.sim(g.port, "--count", "1")
    g.connected(1)
    # A command through its Rsp form, decoded into the blocking form's outputs.
    r = g.call("GetTimeDate", {"mac": "00:00:01"})
    assert r.status_code == 200, r.text
    a = r.json()
    assert (a["result"], a["name"], a["ok"]) == (0, "ok", True)
    assert set(a["outputs"]) == {"date", "time"} and a["outputs"]["date"].count("/") == 2
    # Its Rsp form by name answers the same way; so does a local export.
    assert g.call("RspGetTimeDate", {"mac": "0000-01"}).json()["outputs"].keys() == {"date", "time"}
    assert g.call("GetDLLVersion").json()["outputs"]["buffer"].count(".") == 3
    # A record written and read back, and the controller's own refusal.
    card = {"mac": "00:00:01", "cardSetId": 7, "noFormat": 0, "cardNumber": "1001", "pin": "1234",
            "accessType": 1, "uniqueId": 42, **{f"accessGroup{i}": 0 for i in range(1, 9)},
            "extendedAccess": 0, "passbackExempt": 0, "pinCommands": 0, "startDate": "0", "startTime": "0",
            "endDate": "2030/12/31", "endTime": "23:59:59", "escortId": 0, "inScheduleElevatorGroup": 0,
            "outScheduleElevatorGroup": 0, "pinExempt": 0, "cardRole": 5}
    assert g.call("AddModCardRecord3", card).json()["ok"]
    got = g.call("GetCardRecord4", {"mac": "00:00:01", "cardSetId": 7, "noFormat": 0, "cardNumber": "1001",
                                    "pin": "0"}).json()
    assert got["ok"] and got["outputs"]["uniqueId"] == 42 and got["outputs"]["role"] == 5
    assert got["outputs"]["endDate"] == "2030/12/31"
    missing = g.call("GetCardRecord4", {"mac": "00:00:01", "cardSetId": 7, "noFormat": 0, "cardNumber": "999",
                                        "pin": "0"})
    assert missing.status_code == 200 and missing.json()["ok"] is False and missing.json()["result"] == -101
    assert missing.json()["controller_result"] == "unknown record"
    before = g.metric("zanthd_commands_total", export="GetTimeDate", result="ok")

    # Refused before anything is sent: each names its field and the bound.
    bad = [
        ({"mac": "00:00:01", "target": 33}, "RebootBoard", "target", "0 to 32"),
        ({"mac": "00:00:01", "target": "3"}, "RebootBoard", "target", "integer"),
        ({"mac": "00:00:01", "target": 3.5}, "RebootBoard", "target", "integer"),
        ({"mac": "00:00:01"}, "RebootBoard", "target", "required"),
        ({"mac": "00:00:01", "target": 3, "targte": 1}, "RebootBoard", "targte", "did you mean target"),
        ({"mac": "00:00:01", "rspid": 9}, "RspGetTimeDate", "rspid", "gateway"),
        ({"mac": "not a mac"}, "GetTimeDate", "mac", "MAC"),
        ({"mac": "00:00:01", "date": "2025/13/01", "time": "10:00:00"}, "SetTimeDate", "date", "month 1 to 12"),
        ({"mac": "00:00:01", "dateSize": 3}, "GetTimeDate", "dateSize", "11 to 1048576"),
        ({**card, "accessType": 4}, "AddModCardRecord3", "accessType", "1 to 3"),
        ({"mac": "00:00:01", "controllerPathFile": "/x", "pcPathFile": "../zanthd.toml"}, "SendFile", "pcPathFile", "files folder"),
        ({"mac": "00:00:01", "controllerPathFile": "/x", "pcPathFile": "/etc/passwd"}, "GetFile", "pcPathFile", "files folder"),
        ({"mac": "00:00:01", "controllerPathFile": "/x", "pcPathFile": "sub/../../x"}, "GetFile", "pcPathFile", "files folder"),
    ]
    for args, export, field, words in bad:
        r = g.call(export, args)
        assert r.status_code == 400, (export, args, r.text)
        assert r.json()["field"] == field and words in r.json()["error"], (export, r.json())
    assert g.request("POST", "/call/GetTimeDate", data="[1,2]", headers={"Content-Type": "application/json"}).status_code == 400
    assert g.request("POST", "/call/GetTimeDate", data="{nope", headers={"Content-Type": "application/json"}).status_code == 400
    # Only bulk loads and files may be larger than max_body_bytes (4096 here).
    big = g.call("SetTZ", {"mac": "00:00:01", "tz": "x" * 5000})
    assert big.status_code == 413 and "field" not in big.json()
    # The exports the gateway keeps to itself.
    for export in ("Shutdown", "Initialization", "SetValidControllers", "RecvWaitTime", "SetEventCallback",
                   "GetNextEvent", "GetNextLookup", "GetNextResponse", "EventLogSize", "ContactController"):
        r = g.call(export, {})
        assert r.status_code == 403 and export in r.json()["error"], (export, r.text)
    # An unknown export, with the closest names.
    r = g.call("GetTimeDat", {"mac": "00:00:01"})
    assert r.status_code == 404 and r.json()["suggestions"][0] == "GetTimeDate"
    assert g.call("gettimedate", {}).json()["suggestions"][0] == "GetTimeDate"
    # A read-only token may not call.
    assert g.call("GetTimeDate", {"mac": "00:00:01"}, token=READER).status_code == 403
    # Nothing of the above reached the controller.
    assert g.metric("zanthd_commands_total", export="GetTimeDate", result="ok") == before
    assert g.metric("zanthd_commands_total", export="RebootBoard", result="ok") == 0

    # A controller that isn't connected: 503 with the library's result name.
    r = g.call("GetTimeDate", {"mac": "00:00:09"})
    assert r.status_code == 503 and r.json()["name"] == "kNotConnected" and r.json()["result"] == -10003

    # A request id makes a repeat harmless: the first answer again, the command not sent again.
    sent = g.metric("zanthd_commands_total", export="CmdOutputFunction3", result="ok")
    args = {"mac": "00:00:01", "target": 32, "bitOrFunctionCode": 5, "state": 2}
    first = g.call("CmdOutputFunction3", args, headers={"Idempotency-Key": "toggle-1"}).json()
    again = g.call("CmdOutputFunction3", args, headers={"Idempotency-Key": "toggle-1"}).json()
    assert first["ok"] and again["repeat"] is True and again["audit_id"] == first["audit_id"]
    assert g.metric("zanthd_commands_total", export="CmdOutputFunction3", result="ok") == sent + 1

    # Every call that was made is in the journal under the token's name, PINs masked.
    trail = [a for a in audits(g) if a["raw"].startswith("call ")]
    made = [(a["fields"]["export"], a["fields"]["result"]) for a in trail]
    assert ("GetTimeDate", "ok") in made and ("GetTimeDate", "kNotConnected") in made
    assert all(a["actor"] == "operator" for a in trail)
    add = next(a for a in trail if a["fields"]["export"] == "AddModCardRecord3")
    assert add["fields"]["args"]["pin"] == "***" and add["mac"] == "00:00:01"
    assert not any(a["fields"]["export"] in ("Shutdown", "RebootBoard") for a in trail)
    sim.stop()
    g.stop()


def test_deadline_answers_504_and_the_late_reply_is_dropped(site):
    g = site.gateway().start()
    # Every time read (code 19) and every input status of a board (code 2) is answered 1.5 s late.
    sim = site.sim(g.port, "--count", "1", "--late", "19:1500", "--late", "2:1500")
    g.connected(1)
    r = g.call("GetTimeDate", {"mac": "00:00:01"}, params={"deadline_ms": 300})
    assert r.status_code == 504, r.text
    assert r.json()["deadline_ms"] == 300 and "dropped" in r.json()["error"]
    wait_for(lambda: g.metric("zanthd_late_replies_total") >= 1, 30, "the late reply to be dropped")
    # The late reply went to nobody: the next command gets its own answer.
    info = g.call("ControllerInfo", {"mac": "00:00:01"})
    assert info.status_code == 200 and info.json()["ok"] and info.json()["outputs"]["buffer"]
    # With time enough the same command succeeds.
    assert g.call("GetTimeDate", {"mac": "00:00:01"}, params={"deadline_ms": 5000}).json()["ok"]
    r = g.call("GetTimeDate", {"mac": "00:00:01"}, params={"deadline_ms": 10 ** 8})
    assert r.status_code == 400 and r.json()["field"] == "deadline_ms"
    assert g.metric("zanthd_commands_total", export="GetTimeDate", result="timeout") == 1

    # A repeat that comes while the first is still under way waits for the first's answer.
    answers = []
    def timed_read():
        answers.append(g.call("GetTimeDate", {"mac": "00:00:01"}, params={"deadline_ms": 5000},
                              headers={"Idempotency-Key": "slow-1"}).json())
    first = threading.Thread(target=timed_read)
    first.start()
    wait_for(lambda: g.metric("zanthd_commands_in_flight") >= 1, 10, "the first read under way")
    timed_read()
    first.join()
    assert sorted(a.get("repeat", False) for a in answers) == [False, True], answers
    assert answers[0]["outputs"] == answers[1]["outputs"] and answers[0]["audit_id"] == answers[1]["audit_id"]

    # A command without a Rsp form runs in its blocking form: past its deadline the caller hears
    # 504, and the result that comes later is dropped too.
    late = g.metric("zanthd_late_replies_total")
    r = g.call("GetInputStatus", {"mac": "00:00:01", "target": 0}, params={"deadline_ms": 300})
    assert r.status_code == 504 and r.json()["export"] == "GetInputStatus", r.text
    wait_for(lambda: g.metric("zanthd_late_replies_total") > late, 30, "the blocking call's late result dropped")
    again = g.call("GetInputStatus", {"mac": "00:00:01", "target": 0}, params={"deadline_ms": 5000}).json()
    assert again["ok"] and again["outputs"]["buffer"] == "0" * 16, again
    timeout = [a["fields"]["export"] for a in audits(g) if a["fields"].get("result") == "timeout"]
    assert timeout == ["GetTimeDate", "GetInputStatus"]
    sim.stop()
    g.stop()


def card_record(i):
    return {"cardSetId": 3, "cardNumber": str(50000 + i), "uniqueId": 1000 + i, "pin": str(1000 + i % 9000),
            "accessGroup1": i % 7, "endDate": "2031/01/31", "endTime": "12:00:00"}


def test_cards_by_key_and_by_unique_id_and_a_bulk_load(site):
    g = site.gateway().start()
    sim = site.sim(g.port, "--count", "1")
    g.connected(1)
    base = "/controllers/00:00:01/cards"
    r = g.request("PUT", f"{base}/7/0/1001", json={"uniqueId": 42, "pin": "1234", "accessGroup2": 9})
    assert r.status_code == 200 and r.json()["uniqueId"] == 42 and "pin" not in r.json(), r.text
    got = g.get(f"{base}/7/0/1001").json()
    assert (got["uniqueId"], got["pin"], got["accessGroup2"], got["accessType"]) == (42, "1234", 9, 1)
    # The path holds the key: a body that says otherwise is refused.
    r = g.request("PUT", f"{base}/7/0/1001", json={"uniqueId": 42, "cardNumber": "1002"})
    assert r.status_code == 400 and r.json()["field"] == "cardNumber"
    r = g.request("PUT", f"{base}/7/0/1001", json={"pin": "1"})
    assert r.status_code == 400 and r.json()["field"] == "uniqueId"
    r = g.request("PUT", f"{base}/7/2/1001", json={"uniqueId": 42})
    assert r.status_code == 400 and r.json()["field"] == "noFormat"
    # The same card for another record: the controller says no.
    r = g.request("PUT", f"{base}/7/0/1001", json={"uniqueId": 43})
    assert r.status_code == 409 and r.json()["controller_result"] == "card in use"
    # By unique ID: the record replaced, its status read, then deleted.
    r = g.request("PUT", f"{base}/by-uid/42", json={"cardSetId": 7, "cardNumber": "1001", "pin": "4321"})
    assert r.status_code == 200, r.text
    assert g.get(f"{base}/7/0/1001").json()["pin"] == "4321"
    status = g.get(f"{base}/by-uid/42/status").json()
    assert status["uniqueId"] == 42 and "statusValue1" in status
    assert g.request("DELETE", f"{base}/by-uid/42").status_code == 200
    r = g.get(f"{base}/7/0/1001")
    assert r.status_code == 404 and r.json()["controller_result"] == "record deleted"
    assert g.request("PUT", f"{base}/7/0/1001", json={"uniqueId": 42}).status_code == 200
    assert g.request("DELETE", f"{base}/7/0/1001").status_code == 200
    assert g.get(f"{base}/7/0/1001").status_code == 404
    assert g.get(f"{base}/7/0/77").status_code == 404
    assert g.request("DELETE", f"{base}/by-uid/0").json()["field"] == "uniqueId"

    # A bulk load checks every record first: one bad record and nothing is sent.
    count = g.call("GetNumberOfCards", {"mac": "00:00:01"}).json()["outputs"]
    cards = [card_record(i) for i in range(300)]
    wrong = [dict(c) for c in cards]
    wrong[217]["endDate"] = "2031/02/30x"
    r = g.request("POST", "/controllers/00:00:01/card-loads", json={"cards": wrong})
    assert r.status_code == 400 and r.json()["field"] == "cards[217].endDate", r.text
    assert g.call("GetNumberOfCards", {"mac": "00:00:01"}).json()["outputs"] == count
    r = g.request("POST", "/controllers/00:00:01/card-loads", json={"cards": cards})
    assert r.status_code == 202, r.text
    progress = r.json()["progress"]
    assert r.headers["Location"] == progress
    seen = []

    def finished():
        p = g.request("GET", progress[len("/api/v1"):]).json()
        seen.append(p["done"])
        return p["state"] != "running" and p
    done = wait_for(finished, 120, "the card load")
    assert (done["state"], done["ok"], done["failed"], done["not_sent"]) == ("done", 300, 0, 0), done
    assert seen == sorted(seen)
    print(f"bulk load: {done['records_per_second']:.1f} records/s")
    for i in (0, 150, 299):
        rec = g.get(f"{base}/3/0/{50000 + i}").json()
        assert (rec["uniqueId"], rec["pin"], rec["accessGroup1"], rec["endDate"]) == (
            1000 + i, str(1000 + i % 9000), i % 7, "2031/01/31")
    assert any(l["id"] == done["id"] for l in g.get("/card-loads").json()["loads"])
    # A record the controller refuses is named in the progress; the others go in.
    clash = [card_record(i) for i in range(300, 305)]
    clash[2]["cardNumber"] = "50000"  # held by the record of unique ID 1000
    r = g.request("POST", "/controllers/00:00:01/card-loads", json={"cards": clash})
    second = wait_for(lambda: (p := g.get(f"/card-loads/{r.json()['id']}").json())["state"] == "done" and p, 60, "the second load")
    assert (second["ok"], second["failed"]) == (4, 1), second
    assert second["errors"] == [{"index": 2, "cardNumber": "50000", "status": 200, "result": -104,
                                 "name": "controller result"}], second["errors"]
    loads = [a for a in audits(g) if a["raw"].startswith("card load")]
    assert [a["raw"] for a in loads] == ["card load started", "card load ended"] * 2
    assert loads[1]["fields"]["ok"] == 300 and loads[1]["actor"] == "operator"
    sim.stop()
    # A load to a controller that went away stops, and says why.
    wait_for(lambda: g.get("/controllers").json()["connected"] == 0, 30, "the controller to go")
    r = g.request("POST", "/controllers/00:00:01/card-loads", json={"cards": cards[:20]})
    stopped = wait_for(lambda: (p := g.get(f"/card-loads/{r.json()['id']}").json())["state"] != "running" and p, 30, "the load to stop")
    assert stopped["state"] == "stopped" and stopped["ok"] == 0 and "not connected" in stopped["stopped_because"]
    g.stop()


def test_time_read_set_and_drift(site):
    g = site.gateway().start()
    # The controller's clock runs an hour ahead of the site's.
    sim = site.sim(g.port, "--count", "1", "--clock-offset-s", "3600", env={"TZ": "Europe/Berlin"})
    g.connected(1)
    t = g.get("/controllers/00:00:01/time").json()
    assert abs(t["drift_s"] - 3600) <= 2, t
    assert t["time_zone"] == "Europe/Berlin"
    r = g.request("PUT", "/controllers/00:00:01/time", json={})
    assert r.status_code == 200, r.text
    assert abs(g.get("/controllers/00:00:01/time").json()["drift_s"]) <= 2
    r = g.request("PUT", "/controllers/00:00:01/time", json={"date": "2030/06/01", "time": "12:00:00"})
    assert r.status_code == 200
    t = g.get("/controllers/00:00:01/time").json()
    assert t["controller"].startswith("2030-06-01T12:00")
    for body, field in (({"date": "2030/02/31x", "time": "12:00:00"}, "date"), ({"date": "2030/06/01"}, "time"),
                        ({"when": "now"}, "when")):
        r = g.request("PUT", "/controllers/00:00:01/time", json=body)
        assert r.status_code == 400 and r.json()["field"] == field, r.text
    sim.stop()
    g.stop()


def test_door_open_relocks_by_the_relay_timer_and_inputs_and_outputs(site):
    g = site.gateway(doors=DOORS).start()
    # Input 3 of the controller is on from the start.
    sim = site.sim(g.port, "--count", "1", "--input", "32:3=1")
    g.connected(1)
    door = g.get("/doors/front").json()
    assert door["unlocked"] is False and door["lock_input"] == 8
    r = g.request("POST", "/doors/front/open")
    assert r.status_code == 200 and r.json()["opened"] and r.json()["relock_ms"] == 1200, r.text
    assert g.get("/doors/front").json()["unlocked"] is True
    # The controller's relay timer, written by the gateway, locks the door again.
    wait_for(lambda: g.get("/doors/front").json()["unlocked"] is False, 20, "the door to lock again")
    timers = g.call("GetLocalRelayTimer", {"mac": "00:00:01", "relay": 0}).json()
    assert timers["ok"] and 1200 in timers["outputs"].values(), timers
    # The same door by its controller's door number; an unmapped one is not found.
    assert g.request("POST", "/controllers/00:00:01/doors/1/open").status_code == 200
    assert g.get("/doors/front").json()["unlocked"] is True
    assert g.request("POST", "/controllers/00:00:01/doors/2/open").status_code == 404
    assert g.request("POST", "/doors/side/open").status_code == 404
    opened = [a for a in audits(g) if a["raw"] == "door front opened"]
    assert len(opened) == 2 and opened[0]["actor"] == "operator"
    # Inputs and outputs.
    inputs = g.get("/controllers/00:00:01/inputs").json()
    assert inputs["inputs"][3] == 1 and inputs["mask"] & 8
    assert g.request("PUT", "/controllers/00:00:01/outputs/32/5", json={"state": 1}).status_code == 200
    assert g.get("/controllers/00:00:01/inputs/0").json()["target"] == 0
    r = g.request("PUT", "/controllers/00:00:01/outputs/32/5", json={"state": 7})
    assert r.status_code == 400 and r.json()["field"] == "state"
    assert g.request("PUT", "/controllers/00:00:01/outputs/33/5", json={"state": 1}).json()["field"] == "target"
    assert g.get("/controllers/00:00:01/inputs/40").json()["field"] == "target"
    sim.stop()
    g.stop()


def test_schedules_kept_on_a_controller(site):
    g = site.gateway().start()
    sim = site.sim(g.port, "--count", "1")
    g.connected(1)
    path = "/controllers/00:00:01/schedules/5"
    body = {"texts": ["Mon-Fri", "08:00", "18:00", "", "office"], "values": [1, 2, 3, 4, 5]}
    assert g.request("PUT", path, json=body).status_code == 200
    got = g.get(path).json()
    assert got["texts"] == body["texts"] and got["values"][0] == 5 and got["values"][1:] == [1, 2, 3, 4]
    assert g.request("DELETE", path).status_code == 200
    # A controller that has no such schedule answers with fewer fields than a schedule's, which
    # the command reads as -1: refused, without saying why.
    gone = g.get(path)
    assert gone.status_code == 422 and gone.json()["result"] == -1, gone.text
    r = g.request("PUT", path, json={"texts": ["a;b"]})
    assert r.status_code == 400 and r.json()["field"] == "scheduleText1"
    sim.stop()
    g.stop()


def test_a_file_goes_up_and_comes_back_byte_for_byte(site):
    g = site.gateway().start()
    sim = site.sim(g.port, "--count", "1")
    g.connected(1)
    data = bytes(random.Random(7).getrandbits(8) for _ in range(10000))  # three chunks
    r = g.request("PUT", "/files/blob.bin", data=data, headers={"Content-Type": "application/octet-stream"})
    assert r.status_code == 201 and r.json()["size"] == len(data)
    assert {"name": "blob.bin", "size": len(data)} in g.get("/files").json()["files"]
    r = g.request("POST", "/controllers/00:00:01/files/send", json={"file": "blob.bin", "path": "/data/blob.bin"})
    assert r.status_code == 200, r.text
    assert g.get("/controllers/00:00:01/files/status", params={"path": "/data/blob.bin"}).json()["permission"] == "644"
    r = g.request("POST", "/controllers/00:00:01/files/fetch", json={"file": "back.bin", "path": "/data/blob.bin"})
    assert r.status_code == 200 and r.json()["size"] == len(data), r.text
    back = g.get("/files/back.bin")
    assert back.content == data
    # The same through /call, chunk by chunk, bytes in base64 (GetData has only a blocking form).
    streamed = b""
    for _ in range(5):
        chunk = g.call("GetData", {"mac": "00:00:01", "controllerPathFile": "/data/blob.bin", "size": 4086}).json()
        assert chunk["ok"], chunk
        streamed += base64.b64decode(chunk["outputs"]["buffer"])[:chunk["outputs"]["bytesRead"]]
        if chunk["outputs"]["isLast"]:
            break
    assert streamed == data
    # Removed on the controller: fetching it again is refused, and nothing was written.
    assert g.request("DELETE", "/controllers/00:00:01/files", params={"path": "/data/blob.bin"}).status_code == 200
    r = g.request("POST", "/controllers/00:00:01/files/fetch", json={"file": "again.bin", "path": "/data/blob.bin"})
    assert r.status_code in (404, 422), r.text
    # Names outside the folder are refused before anything is sent.
    for name in ("../escape", ".hidden", "a/b"):
        r = g.request("POST", "/controllers/00:00:01/files/send", json={"file": name, "path": "/x"})
        assert r.status_code == 400 and r.json()["field"] == "file", (name, r.text)
    assert g.request("PUT", "/files/..", data=b"x").status_code in (400, 404)
    assert g.request("POST", "/controllers/00:00:01/files/send", json={"file": "none.bin", "path": "/x"}).status_code == 404
    assert not os.path.exists(os.path.join(site.dir, "escape"))
    assert g.request("DELETE", "/files/back.bin").status_code == 204
    sent = [a for a in audits(g) if a["fields"].get("export") in ("SendFile", "GetFile")]
    assert [a["fields"]["export"] for a in sent] == ["SendFile", "GetFile", "GetFile"]
    sim.stop()
    g.stop()


def test_pending_card_changes_are_written_when_the_controller_connects(site):
    g = site.gateway(doors=DOORS).start()
    body = {"name": "Ada", "pin": "2468", "valid_until": "2031-05-06T07:08", "cards": [{"number": 1001, "facility": 7}],
            "access": [{"door": "front"}]}
    r = g.request("POST", "/cardholders", json=body)
    assert r.status_code == 201
    holder = r.json()["id"]
    pending = g.get("/pending-card-changes").json()["pending"]
    assert [(p["mac"], p["op"], p["card"], p["facility"], p["last_result"]) for p in pending] == [
        ("00:00:01", "add", 1001, 7, None)]
    sim = site.sim(g.port, "--count", "1")
    wait_for(lambda: g.get("/pending-card-changes").json()["pending"] == [], 60, "the pending change written")
    rec = g.get("/controllers/00:00:01/cards/7/0/1001").json()
    assert (rec["pin"], rec["endDate"], rec["endTime"]) == ("2468", "2031/05/06", "07:08:00"), rec
    uid = rec["uniqueId"]
    # While it is connected, a change is written at once; the card keeps its unique ID.
    body["cards"] = [{"number": 1001, "facility": 7}, {"number": 1002, "facility": 7}]
    assert g.request("PUT", f"/cardholders/{holder}", json=body).status_code == 200
    wait_for(lambda: g.get("/controllers/00:00:01/cards/7/0/1002").status_code == 200, 30, "card 1002 written")
    assert g.get("/controllers/00:00:01/cards/7/0/1001").json()["uniqueId"] == uid
    assert g.request("DELETE", f"/cardholders/{holder}").status_code == 204
    wait_for(lambda: g.get("/controllers/00:00:01/cards/7/0/1001").status_code == 404, 30, "card 1001 deleted")
    wait_for(lambda: g.get("/controllers/00:00:01/cards/7/0/1002").status_code == 404, 30, "card 1002 deleted")
    assert g.get("/pending-card-changes").json()["pending"] == []
    written = [a for a in audits(g) if a["actor"] == "gateway" and a["fields"].get("via") == "pending"]
    assert [a["fields"]["export"] for a in written].count("AddModCardRecord3") == 2
    assert [a["fields"]["export"] for a in written].count("DeleteCardRecord2") == 2
    sim.stop()
    g.stop()


def test_connects_and_disconnects_come_from_the_notices_in_order(site):
    g = site.gateway().start()
    sim = site.sim(g.port, "--count", "2")
    g.connected(2)
    sim.stop()
    # The same controller back at once, before a look at the connected list could tell.
    again = site.sim(g.port, "--count", "1")
    wait_for(lambda: len([r for r in g.records() if r["mac"] == "00:00:01" and r["kind"] == "connect"]) >= 2, 60,
             "the second connect notice")
    again.stop()
    wait_for(lambda: g.get("/controllers").json()["connected"] == 0, 30, "both gone")

    def sequence(mac):
        return [r["kind"] for r in g.records() if r["mac"] == mac and r["kind"] in ("connect", "disconnect")]
    wait_for(lambda: sequence("00:00:01")[-1:] == ["disconnect"], 60, "the last disconnect notice")
    one, two = sequence("00:00:01"), sequence("00:00:02")
    # Every notice, in the order the library gave them: a controller's end may be noticed twice.
    assert one[0] == "connect" and one.count("connect") == 2, one
    second = one.index("connect", 1)
    assert "disconnect" in one[1:second] and one[-1] == "disconnect", one
    assert two[0] == "connect" and "disconnect" in two and "connect" not in two[1:], two
    ids = [r["id"] for r in g.records()]
    assert ids == sorted(ids)
    assert all(r["fields"]["mac_known"] for r in g.records() if r["kind"] in ("connect", "disconnect"))
    g.stop()


def test_openapi_document_covers_every_command_and_matches_the_answers(site):
    import jsonschema
    g = site.gateway(doors=DOORS).start()
    doc = g.get("/openapi.json").json()
    assert g.request("GET", "/../openapi.json").status_code in (200, 404)
    assert doc == g.get("/openapi.json").json()
    assert doc["openapi"].startswith("3.0.") and doc["info"]["title"] and doc["info"]["version"]
    assert doc["servers"] == [{"url": "/api/v1"}]
    assert doc["components"]["securitySchemes"]["bearer"] == {"type": "http", "scheme": "bearer"}
    model = json.load(open(os.path.join(os.path.dirname(__file__), "../../../api/zanth-api.json")))
    commands = [e["name"] for e in model["exports"] if e["category"] == "command"]
    assert len(commands) > 200
    for name in commands:
        assert "post" in doc["paths"].get(f"/call/{name}", {}), name
    withheld = [e["name"] for e in model["exports"] if e["category"] in ("life", "setting", "callback", "queue", "message_file")]
    assert not any(f"/call/{n}" in doc["paths"] for n in withheld)

    def resolve(node):
        """Every $ref in the document leads somewhere."""
        if isinstance(node, dict):
            if "$ref" in node:
                target = doc
                for part in node["$ref"][2:].split("/"):
                    target = target[part]
                return
            for v in node.values():
                resolve(v)
        elif isinstance(node, list):
            for v in node:
                resolve(v)
    resolve(doc)
    methods = {"get", "put", "post", "delete", "patch", "head", "options"}
    operation_ids = set()
    for path, ops in doc["paths"].items():
        assert path.startswith("/")
        declared = {p.split("}")[0] for p in path.split("{")[1:]}
        for method, op in ops.items():
            assert method in methods, (path, method)
            assert op["responses"] and all(k == "default" or (len(k) == 3 and k.isdigit()) for k in op["responses"])
            params = [doc["components"]["parameters"][p["$ref"].split("/")[-1]] if "$ref" in p else p
                      for p in op.get("parameters", [])]
            for p in params:
                assert p["in"] in ("path", "query", "header", "cookie") and p["name"] and "schema" in p
                if p["in"] == "path":
                    assert p["required"] is True and p["name"] in declared, (path, p["name"])
            assert declared <= {p["name"] for p in params if p["in"] == "path"}, path
            if "operationId" in op:
                assert op["operationId"] not in operation_ids
                operation_ids.add(op["operationId"])
            for content in op.get("requestBody", {}).get("content", {}).values():
                jsonschema.Draft4Validator.check_schema(content["schema"])

    # The request schemas say what the gateway checks.
    add = doc["paths"]["/call/AddModCardRecord3"]["post"]["requestBody"]["content"]["application/json"]["schema"]
    assert add["properties"]["accessType"] == {"type": "integer", "format": "int32", "minimum": 1, "maximum": 3}
    assert "uniqueId" in add["required"] and "rspid" not in add["properties"] and add["additionalProperties"] is False
    get = doc["paths"]["/call/GetTimeDate"]["post"]
    assert get["requestBody"]["content"]["application/json"]["schema"]["properties"]["dateSize"]["default"] >= 11
    assert doc["paths"]["/call/RebootBoard"]["post"]["x-zanth-way"] == "blocking"
    assert doc["paths"]["/call/GetInputStatus"]["post"]["x-zanth-way"] == "blocking"
    assert doc["paths"]["/call/GetInputStatus3"]["post"]["x-zanth-way"] == "rsp"
    # A real answer fits its documented schema.
    sim = site.sim(g.port, "--count", "1")
    g.connected(1)
    answer = g.call("GetTimeDate", {"mac": "00:00:01"}).json()
    schema = get["responses"]["200"]["content"]["application/json"]["schema"]
    resolver = jsonschema.RefResolver("", doc)
    jsonschema.validate(answer, schema, resolver=resolver)
    assert set(schema["allOf"][1]["properties"]["outputs"]["properties"]) == set(answer["outputs"])
    # The readable page is served by zanthd itself, and fetches nothing from elsewhere.
    page = g.request("GET", "/docs", token=None)
    assert page.status_code == 200 and page.headers["Content-Type"].startswith("text/html")
    assert "openapi.json" in page.text and "http://" not in page.text and "https://" not in page.text
    sim.stop()
    g.stop()
