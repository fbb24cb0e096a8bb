"""zanth --gateway: every verb through zanthd, which owns the controllers' port, against zanth-sim;
the tokens, TLS and the exports the gateway keeps to itself."""
import json
import os
import re
import signal
import subprocess

from conftest import OPERATOR, READER, card_line, wait_for, write


def test_site_verbs_through_the_gateway(site):
    g = site.gateway().start()
    sim = site.sim("--count", "2", "--clock-offset-s", "3600", port=g.port)
    gw = g.args()
    r = site.zanth(*gw, "--wait", "00:00:01,00:00:02", "list")
    assert r.rc == 0 and r.out.split() == ["00:00:01", "00:00:02"], r
    assert f"2 controllers connected to the gateway at {g.url}" in r.err, r
    # The library isn't loaded: its data folder is never made.
    assert not os.path.exists(site.data)

    r = site.zanth(*gw, "--json", "info", "00:00:02")
    assert r.rc == 0 and r.json() == [{"mac": "00:00:02", "info": "ZN-4000;4.21.7;00:00:02;ZS000002;"}], r

    r = site.zanth(*gw, "--json", "time", "00:00:01")
    assert r.rc == 0 and abs(r.json()[0]["drift_s"] - 3600) <= 2, r
    r = site.zanth(*gw, "--json", "time", "00:00:01", "--set")
    assert r.rc == 0, r
    [t] = r.json()
    assert abs(t["drift_before_s"] - 3600) <= 2 and abs(t["drift_s"]) <= 2, t

    # open: door relay 0 goes on, and the lock monitor (controller input 8) with it.
    def lock_inputs():
        r = site.zanth(*gw, "--json", "call", "GetInputStatus3", "00:00:01", "32")
        assert r.rc == 0, r
        return r.json()[0]["outputs"]["buffer"][8:10]
    assert lock_inputs() == "00"
    r = site.zanth(*gw, "open", "00:00:01", "0", "--for", "60")
    assert r.rc == 0 and "door 0 of 00:00:01 unlocked; the controller locks it again after 60 s" in r.out, r
    assert lock_inputs() == "10"

    # call: a Rsp form answered decoded, a controller's refusal, a local export.
    r = site.zanth(*gw, "--json", "call", "RspGetTimeDate", "00:00:02")
    assert r.rc == 0, r
    [answer] = r.json()
    assert answer["ok"] and re.fullmatch(r"\d{4}/\d{1,2}/\d{1,2}", answer["outputs"]["date"]), answer
    r = site.zanth(*gw, "call", "GetCardRecord4", "00:00:01", "cardSetId=0", "noFormat=0", "cardNumber=99", "pin=0")
    assert r.rc == 1 and "GetCardRecord4: -101 controller result: the controller's own negative result" in r.err, r
    r = site.zanth(*gw, "call", "GetDLLVersion")
    assert r.rc == 0 and re.search(r"^buffer: \d+\.\d+", r.out, re.M), r

    # Exports the gateway keeps to itself: its 403, said as such; nothing else happens.
    for export, why in (["GetNextEvent", "reads the message files into its journal"],
                        ["Initialization", "holds the library's life"]):
        args = [export] + (["3001"] if export == "Initialization" else [])
        r = site.zanth(*gw, "call", *args)
        assert r.rc == 1, r
        assert f"the gateway doesn't take {export} (403)" in r.err and why in r.err, r
        assert "GET /api/v1/call lists them" in r.err, r

    # A controller the gateway doesn't hold: --timeout, exit 3, named with the gateway.
    r = site.zanth(*gw, "--timeout", "0.5", "info", "00:00:09")
    assert r.rc == 3 and f"00:00:09 did not connect to the gateway at {g.url} within 0.5 s" in r.err, r
    # The changes went through zanthd, which journaled each under the token's name.
    audits = [(a["actor"], a["raw"]) for a in g.records() if a["kind"] == "audit"]
    for change in ("call SetTimeDate", "call SetLocalRelayTimer", "call CmdOutputFunction3"):
        assert ("operator", change) in audits, audits
    sim.stop()
    g.stop()


def test_cards_through_the_gateway_keep_the_lines_and_the_pace(site):
    # 60 records of the three generations, then card 7/1001 again under another unique ID,
    # which the controller refuses, and a line the model refuses.
    lines = [card_line(n, generation=1 + n % 3) for n in range(1, 61)]
    lines.append(card_line(1).replace(",1,1,2,0", ",99,1,2,0", 1))
    lines.append("7,0,5001,1,9,501,1,2,0,0,0,0,0,8,1,0,1,2012/01/02,0,2037/12/31,0,5,3,4")
    write(site.path("site.csv"), "\n".join(lines) + "\n")
    g = site.gateway().start()
    sim = site.sim("--count", "2", port=g.port)
    gw = g.args()
    r = site.zanth(*gw, "--json", "--wait", "00:00:01,00:00:02", "cards", "load", "00:00:01,00:00:02", "site.csv")
    assert r.rc == 4, r
    objects = r.json()
    summary = objects[-1]
    assert (summary["loaded"], summary["refused"], summary["bad_lines"], summary["records"]) == (120, 2, 1, 61), summary
    refused = sorted((o["mac"], o["line"], o["result"]) for o in objects if o.get("refused") is True)
    assert refused == [("00:00:01", 61, -104), ("00:00:02", 61, -104)], refused
    assert [o["line"] for o in objects if "error" in o and "field" in o] == [62]
    # Pipelined: one call per Worker turn (about 19 a second per controller through the
    # gateway), where calls one after the other get one per two turns (10.6).
    assert summary["records_per_s"] > 2 * 13, summary
    assert "cards:" in r.err  # the progress bar

    # A read-only token checks and reads: those are GETs, which leave no audit record.
    before = [rec["id"] for rec in g.records() if rec["kind"] == "audit"]
    reader = g.args(READER)
    write(site.path("check.csv"), "\n".join(lines[:60]) + "\n")
    r = site.zanth(*reader, "cards", "check", "00:00:01,00:00:02", "check.csv")
    assert r.rc == 0 and "checked 120 of 120 records" in r.out and "120 the same" in r.out, r
    changed = list(lines[:60])
    changed[3] = card_line(4, generation=2, group2=5)
    write(site.path("changed.csv"), "\n".join(changed) + "\n")
    r = site.zanth(*reader, "cards", "check", "00:00:02", "changed.csv")
    assert r.rc == 4 and "line 4 (card 7/1004) on 00:00:02 differs:\n  accessGroup2 2 on the controller, 5 in the file" in r.out, r
    r = site.zanth(*reader, "--json", "cards", "get", "00:00:02", "1014", "--card-set", "7")
    assert r.rc == 0, r
    record = r.json()[0]["record"]
    assert (record["uniqueId"], record["pin"], record["endDate"]) == (14, "0014", "2037/12/31"), record
    r = site.zanth(*reader, "cards", "get", "00:00:02", "8888", "--card-set", "7")
    assert r.rc == 1 and "-101" in r.err, r
    audits = [rec for rec in g.records() if rec["kind"] == "audit"]
    assert [a["id"] for a in audits] == before and all(a["actor"] == "operator" for a in audits)

    # Each line went out with its own generation's add command, the refused one too.
    commands = sim.stop() and sim.commands()
    assert (commands.get(21), commands.get(24), commands.get(27)) == (2 * 20, 2 * 20, 2 * 21), commands
    g.stop()


def test_files_through_the_gateway_byte_for_byte(site):
    g = site.gateway().start()
    site.sim(port=g.port)
    gw = g.args()
    for size in (1, 4087, 50000):
        data = os.urandom(size)
        with open(site.path(f"out-{size}.bin"), "wb") as f:
            f.write(data)
        r = site.zanth(*gw, "--json", "file", "put", "00:00:01", f"out-{size}.bin", f"/data/f{size}")
        assert r.rc == 0, r
        [put] = r.json()
        assert (put["bytes"], put["size"], put["complete"], put["chunks"]) == (size, size, True, -(-size // 4086)), put
        assert "put:" in r.err
        r = site.zanth(*gw, "file", "get", "00:00:01", f"back-{size}.bin", f"/data/f{size}")
        assert r.rc == 0 and f": {size} bytes in" in r.out, r
        with open(site.path(f"back-{size}.bin"), "rb") as f:
            assert f.read() == data, size
    # The copies made in the gateway's files folder for the transfers are gone.
    assert os.listdir(g.files) == []

    keep = write(site.path("keep.bin"), "what was here before")
    r = site.zanth(*gw, "file", "get", "00:00:01", "keep.bin", "/no/such/file")
    assert r.rc == 1 and "GetFile: -101" in r.err and "was not written" in r.err, r
    with open(keep) as f:
        assert f.read() == "what was here before"
    assert os.listdir(g.files) == []
    # A read-only token can't send files: the refusal says what to do.
    r = site.zanth(*g.args(READER), "file", "put", "00:00:01", "keep.bin", "/x")
    assert r.rc == 5 and "read-only" in r.err and "operator" in r.err, r
    g.stop()


def test_watch_resumes_after_the_gateway_restarts(site):
    g = site.gateway().start()
    sim = site.sim("--count", "2", "--event-interval-ms", "200", port=g.port)
    g.connected("00:00:01", "00:00:02")
    w = site.start(*g.args(READER), "--json", "watch")
    wait_for(lambda: len(w.out_lines) >= 5, 60, "the first notices")
    g.stop()
    wait_for(lambda: any("stream dropped" in line for line in w.lines), 60, "the drop to be noticed")
    seen = len(w.out_lines)
    g.start()
    wait_for(lambda: len(w.out_lines) >= seen + 10, 60, "notices after the restart")
    w.send_signal(signal.SIGINT)
    rc, out, err = site.finish(w, 30)
    assert rc == 0, err
    lines = [json.loads(line) for line in out.splitlines()]
    notices, summary = lines[:-1], lines[-1]
    assert summary["notices"] == len(notices) and summary["interrupted"] is True
    assert re.search(r"resuming after record (\d+)", err) and "resumed the gateway's event stream" in err, err
    # Nothing missed, nothing twice: exactly the journal's records of controllers in that span.
    ids = [n["id"] for n in notices]
    journal = [rec for rec in g.records(after=ids[0] - 1) if rec["id"] <= ids[-1]]
    assert ids == [rec["id"] for rec in journal if rec["kind"] != "audit"], (ids, journal)
    assert {"connect", "event"} <= {n["kind"] for n in notices}
    by_id = {rec["id"]: rec for rec in journal}
    assert all(n["text"] == by_id[n["id"]]["raw"] for n in notices)

    # --after replays the journal from a record on.
    r = site.zanth(*g.args(READER), "--json", "watch", "--after", str(ids[2]), "--count", "3")
    assert r.rc == 0, r
    assert [n["id"] for n in r.json()[:-1]] == ids[3:6], r
    sim.stop()
    g.stop()


def test_tokens_refused_with_what_to_do(site):
    g = site.gateway().start()
    site.sim(port=g.port)
    r = site.zanth("--gateway", g.url, "--token", "not-a-token", "list")
    assert r.rc == 5 and "refused the token (401: the token is not known)" in r.err and "--token or ZANTH_TOKEN" in r.err, r
    r = site.zanth("--gateway", g.url, "--json", "list")
    assert r.rc == 5 and r.json()[-1]["exit"] == 5 and "wants a token" in r.json()[-1]["error"], r
    # The token from the environment, so that it isn't on the command line.
    r = site.zanth("--gateway", g.url, "--wait", "00:00:01", "info", "00:00:01", env={"ZANTH_TOKEN": READER})
    assert r.rc == 0 and r.out.startswith("ZN-4000;"), r
    # A read-only token reads, and is refused a change, which is not made.
    r = site.zanth("--gateway", g.url, "open", "00:00:01", "1", env={"ZANTH_TOKEN": READER})
    assert r.rc == 5 and 'the token "viewer" is read-only' in r.err and "operator" in r.err, r
    r = site.zanth(*g.args(), "--json", "call", "GetInputStatus3", "00:00:01", "32")
    assert r.json()[0]["outputs"]["buffer"][9] == "0", r
    # A gateway that isn't there.
    port = g.http_port
    g.stop()
    r = site.zanth("--gateway", f"http://127.0.0.1:{port}", "--token", OPERATOR, "info", "00:00:01")
    assert r.rc == 5 and "can't reach the gateway" in r.err and "is zanthd running there" in r.err, r


def test_a_gateway_over_tls(site):
    cert, key = os.path.join(site.root, "cert.pem"), os.path.join(site.root, "key.pem")
    subprocess.run(["openssl", "req", "-x509", "-newkey", "rsa:2048", "-nodes", "-days", "1",
                    "-subj", "/CN=127.0.0.1", "-addext", "subjectAltName=IP:127.0.0.1",
                    "-keyout", key, "-out", cert], check=True, capture_output=True)
    g = site.gateway(tls=(cert, key)).start()
    site.sim(port=g.port)
    r = site.zanth(*g.args(), "--ca", cert, "--wait", "00:00:01", "info", "00:00:01")
    assert r.rc == 0 and "00:00:01" in r.out, r
    # The certificate is checked: not trusted without its CA, nor for another name.
    r = site.zanth(*g.args(), "info", "00:00:01")
    assert r.rc == 5 and "is not trusted: self-signed certificate" in r.err and "--ca FILE" in r.err, r
    r = site.zanth("--gateway", f"https://localhost:{g.http_port}", "--token", OPERATOR, "--ca", cert, "list")
    assert r.rc == 5 and "doesn't name its host" in r.err, r
    r = site.zanth("--gateway", f"http://127.0.0.1:{g.http_port}", "--token", OPERATOR, "list")
    assert r.rc == 5 and "closed the connection without an answer (does it want https://?)" in r.err, r
    g.stop()


def test_gateway_options_are_checked_before_anything(site):
    cases = [
        (["--gateway", "ftp://host:1", "list"], "--gateway wants http://HOST:PORT or https://HOST:PORT"),
        (["--gateway", "http://:8080", "list"], "--gateway wants"),
        (["--gateway", "http://user@host:8080", "list"], "--gateway wants"),
        (["--gateway", "http://host:99999", "list"], "--gateway wants"),
        (["--gateway", "http://host:8080", "--port", "4000", "list"], "--port has no meaning with --gateway"),
        (["--gateway", "http://host:8080", "--contact", "h:1", "list"], "--contact has no meaning with --gateway"),
        (["--token", "t", "list"], "--token is the gateway's: it goes with --gateway URL"),
        (["--gateway", "http://host:8080", "--ca", "c.pem", "list"], "--ca is for an https gateway"),
        (["watch", "--after", "3"], "--after names a record of the gateway's journal"),
        (["--gateway", "http://host:8080", "watch", "--backlog"], "--backlog reads the library's message files"),
    ]
    for args, why in cases:
        r = site.zanth(*args)
        assert r.rc == 2 and why in r.err, r
    r = site.zanth("--gateway", "https://host:8080", "--ca", "missing.pem", "list")
    assert r.rc == 5 and "missing.pem is not a file" in r.err, r
    r = site.zanth("--help")
    assert "--gateway URL" in r.out and "ZANTH_TOKEN" in r.out and "--ca FILE" in r.out
    assert not os.path.exists(site.data)
