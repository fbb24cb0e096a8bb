"""The everyday verbs against simulated controllers: list, info, time, open, call, watch, and the
two ways to reach controllers (they call zanth's port, or zanth calls them)."""
import re

from conftest import free_port, model


def test_list_and_info(site):
    sim = site.sim("--count", "2")
    port = ["--port", str(sim.port)]
    r = site.zanth(*port, "--wait", "00:00:01,00:00:02", "list")
    assert r.rc == 0, r
    assert r.out.split() == ["00:00:01", "00:00:02"], r
    assert f"2 controllers connected to port {sim.port}" in r.err
    r = site.zanth(*port, "--json", "--wait", "00:00:02", "list")
    assert r.rc == 0, r
    [listed] = r.json()
    assert "00:00:02" in listed["controllers"] and listed["count"] == len(listed["controllers"])

    r = site.zanth(*port, "info", "00:00:02")
    assert r.rc == 0, r
    assert re.fullmatch(r"ZN-\d+;[\d.]+;00:00:02;ZS0+2;\n", r.out), r
    r = site.zanth(*port, "--json", "info", "00:00:01")
    assert r.rc == 0 and r.json() == [{"mac": "00:00:01", "info": "ZN-4000;4.21.7;00:00:01;ZS000001;"}], r
    # A MAC in another spelling names the same controller.
    assert site.zanth(*port, "info", "00-00-01").rc == 0


def test_time_shows_the_drift_and_sets_the_clock(site):
    sim = site.sim("--clock-offset-s", "3600")
    port = ["--port", str(sim.port)]
    r = site.zanth(*port, "time", "00:00:01")
    assert r.rc == 0, r
    drift = int(re.search(r"drift ([+-]?\d+) s", r.out).group(1))
    assert abs(drift - 3600) <= 2, r
    r = site.zanth(*port, "--json", "time", "00:00:01", "--set")
    assert r.rc == 0, r
    [t] = r.json()
    assert t["set"] is True and abs(t["drift_before_s"] - 3600) <= 2 and abs(t["drift_s"]) <= 2, t
    assert re.fullmatch(r"\d{4}/\d{1,2}/\d{1,2}", t["date"]), t
    r = site.zanth(*port, "--json", "time", "00:00:01")
    assert abs(r.json()[0]["drift_s"]) <= 2, r


def lock_monitors(site, port):
    """Controller inputs 8 and 9 read 1 while door relay 0 or 1 is on."""
    r = site.zanth("--port", str(port), "--json", "call", "GetInputStatus3", "00:00:01", "32")
    assert r.rc == 0, r
    states = r.json()[0]["outputs"]["buffer"]
    return states[8], states[9]


def test_open_switches_the_door_relay(site):
    sim = site.sim()
    port = ["--port", str(sim.port)]
    assert lock_monitors(site, sim.port) == ("0", "0")
    r = site.zanth(*port, "open", "00:00:01", "0", "--for", "60")
    assert r.rc == 0, r
    assert "door 0 of 00:00:01 unlocked; the controller locks it again after 60 s" in r.out, r
    assert lock_monitors(site, sim.port) == ("1", "0")
    r = site.zanth(*port, "--json", "open", "00:00:01", "1")
    assert r.rc == 0, r
    assert r.json() == [{"mac": "00:00:01", "door": 1, "unlocked": True, "relay_timer_ms": 0}]
    assert lock_monitors(site, sim.port) == ("1", "1")
    r = site.zanth(*port, "open", "00:00:01", "1")
    assert "stays unlocked until the relay is switched off: zanth call CmdOutputFunction3 00:00:01 32 1 0" in r.out


def test_call_reaches_controllers_and_the_library(site):
    sim = site.sim()
    port = ["--port", str(sim.port)]
    # Positional and named arguments, a blocking command and its result.
    r = site.zanth(*port, "call", "ControllerInfo", "00:00:01")
    assert r.rc == 0 and r.out == "ControllerInfo: 0 ok\nbuffer: ZN-4000;4.21.7;00:00:01;ZS000001;\n", r
    r = site.zanth(*port, "--json", "call", "CmdOutputFunction3", "state=1", "mac=00:00:01", "target=32",
                   "bitOrFunctionCode=1")
    assert r.rc == 0 and r.json()[0]["ok"] is True, r
    # Door relay 1 is on: its lock monitor, controller input 9, reads 1.
    r = site.zanth(*port, "--json", "call", "GetInputStatus3", "00:00:01", "target=0x20")
    assert r.json()[0]["outputs"]["buffer"][9] == "1", r
    # A Rsp form: its reply is awaited under its rspid and decoded as the blocking form's outputs.
    r = site.zanth(*port, "--json", "call", "RspGetTimeDate", "00:00:01", "rspid=7")
    assert r.rc == 0, r
    reply = r.json()[0]["reply"]
    assert reply["code"] == 1019 and reply["ok"] and reply["frame"].startswith("1019;"), reply
    assert re.fullmatch(r"\d{4}/\d{1,2}/\d{1,2}", reply["outputs"]["date"]), reply
    # A controller's own negative result: exit 1 with the result's name and meaning.
    r = site.zanth(*port, "call", "GetCardRecord4", "00:00:01", "cardSetId=0", "noFormat=0", "cardNumber=99",
                   "pin=0")
    assert r.rc == 1 and "GetCardRecord4: -101 controller result: the controller's own negative result" in r.err, r
    r = site.zanth(*port, "--json", "call", "GetCardRecord4", "00:00:01", "cardSetId=0", "noFormat=0",
                   "cardNumber=99", "pin=0")
    assert r.json()[-1]["result"] == -101 and r.json()[-1]["exit"] == 1, r
    # Local exports need no controller: the library's version, and a poll that finds nothing.
    r = site.zanth("call", "GetDLLVersion")
    assert r.rc == 0 and f"buffer: {model()['library']['version']}" in r.out, r
    r = site.zanth("call", "GetNextLookup")
    assert r.rc == 0 and "(nothing waiting)" in r.out, r


def test_contact_calls_the_controllers(site):
    listen = free_port()
    site.sim("--count", "1", listen=listen)
    r = site.zanth("--contact", f"127.0.0.1:{listen}", "info", "00:00:01")
    assert r.rc == 0 and "00:00:01" in r.out, r
    r = site.zanth("--contact", f"127.0.0.1:{listen}", "list")
    assert r.rc == 0 and r.out.split() == ["00:00:01"], r


def test_watch_shows_what_comes(site):
    sim = site.sim("--count", "2", "--event-interval-ms", "300", "--alarm-interval-ms", "900",
                   "--lookup-interval-ms", "600")
    port = ["--port", str(sim.port)]
    r = site.zanth(*port, "--json", "watch", "--count", "14")
    assert r.rc == 0, r
    lines = r.json()
    notices, summary = lines[:-1], lines[-1]
    assert len(notices) == 14 and summary["notices"] == 14 and sum(summary["counts"].values()) == 14
    kinds = {n["kind"] for n in notices}
    assert {"connect", "event", "lookup"} <= kinds, kinds
    assert sorted(n["text"] for n in notices if n["kind"] == "connect") == ["00:00:01", "00:00:02"]
    # Events carry their controller's MAC first.
    assert all(n["text"].split(";")[0] in ("00:00:01", "00:00:02") for n in notices if n["kind"] == "event")

    # Events that came while no one watched are skipped, and counted, unless --backlog.
    assert site.zanth(*port, "--wait", "00:00:01", "info", "00:00:01").rc == 0
    r = site.zanth(*port, "watch", "--for", "0.2")
    m = re.search(r"skipped (\d+) events and (\d+) alarms left unread by earlier runs", r.err)
    assert r.rc == 0 and m and int(m.group(1)) + int(m.group(2)) > 0, r
    site.zanth(*port, "--wait", "00:00:01", "info", "00:00:01")
    r = site.zanth(*port, "--json", "watch", "--backlog", "--count", "1", "--timeout", "0")
    assert r.rc == 0 and r.json()[0]["kind"] in ("event", "alarm"), r
