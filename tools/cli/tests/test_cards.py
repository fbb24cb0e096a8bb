"""zanth cards load, check and get against the simulated card databases."""
import re

from conftest import card_line, write


def test_load_reports_bad_lines_and_sends_nothing_for_them(site):
    good = [card_line(n, generation=3) for n in range(1, 11)]
    good += [card_line(n, generation=2) for n in range(11, 16)]
    good += [card_line(n, generation=1) for n in range(16, 21)]
    bad = {
        "7,0,5001,1,9,501,1,2,0,0,0,0,0,8,1,0,1,2012/01/02,0,2037/12/31,0,5,3,4,0,1": (5, "accessType", "must be 1 to 3 (got 9)"),
        "7,0,5002,1,1,x502,1,2,0,0,0,0,0,8,1,0,1,2012/01/02,0,2037/12/31,0,5,3,4": (6, "uniqueId", "not a number: 'x502'"),
        "7,0,5003,1,1,503": (0, "", "expected 24 to 26 fields, found 6"),
        "7,0,5004,1,1,504,1,2,0,0,0,0,0,8,1,0,1,2012/13/02,0,2037/12/31,0,5,3,4": (18, "startDate", "must be a date yyyy/mm/dd"),
        "7,0,50;05,1,1,505,1,2,0,0,0,0,0,8,1,0,1,2012/01/02,0,2037/12/31,0,5,3,4": (3, "cardNumber", "must not hold ';'"),
        "7,0,5006,1,1,506,1,70000,0,0,0,0,0,8,1,0,1,2012/01/02,0,2037/12/31,0,5,3,4": (8, "accessGroup2", "must be 0 to 65535 (got 70000)"),
    }
    lines = ["# site cards", ""]
    expected_bad = {}
    goods = iter(good)
    for text, what in bad.items():
        lines += [next(goods), next(goods), text]
        expected_bad[len(lines)] = what
    lines += list(goods) + ["   ", "# the end"]
    path = write(site.path("site.csv"), "\n".join(lines) + "\n")

    sim = site.sim()
    r = site.zanth("--port", str(sim.port), "--json", "cards", "load", "00:00:01", path)
    assert r.rc == 4, r
    objects = r.json()
    reported = {o["line"]: (o["column"], o["field"], o["error"]) for o in objects if "error" in o}
    assert set(reported) == set(expected_bad), reported
    for line, (column, field, why) in expected_bad.items():
        assert reported[line][:2] == (column, field) and why in reported[line][2], (line, reported[line])
    summary = objects[-1]
    assert (summary["loaded"], summary["refused"], summary["bad_lines"], summary["records"]) == (20, 0, 6, 20)
    assert summary["interrupted"] is False
    for line in expected_bad:
        assert f"line {line}" in r.err and "(nothing sent for it)" in r.err
    # Nothing went out for the bad lines; each good line with the add command of its generation.
    commands = sim.commands()
    assert (commands.get(27), commands.get(24), commands.get(21)) == (10, 5, 5), commands

    # The same file in text for a person.
    sim2 = site.sim()
    r = site.zanth("--port", str(sim2.port), "cards", "load", "00:00:01", path)
    assert r.rc == 4, r
    assert re.search(r"loaded 20 of 20 records into 1 controller in .*; 0 refused, 6 bad lines", r.out), r
    [access] = [line for line, what in expected_bad.items() if what[1] == "accessType"]
    assert f"line {access}, field 5 (accessType): must be 1 to 3 (got 9) (nothing sent for it)" in r.err, r


def test_check_reports_the_records_that_differ(site):
    loaded = [card_line(n) for n in range(1, 13)]
    write(site.path("loaded.csv"), "\n".join(loaded) + "\n")
    sim = site.sim("--cards", site.path("loaded.csv"))
    port = ["--port", str(sim.port)]
    r = site.zanth(*port, "cards", "check", "00:00:01", "loaded.csv")
    assert r.rc == 0 and "checked 12 of 12 records" in r.out and "12 the same, 0 differ, 0 not read" in r.out, r

    changed = list(loaded)
    changed[3] = card_line(4, group2=5)                 # line 4: access group 2 differs
    changed[6] = card_line(7, access_type=2)            # line 7: access type differs
    changed[8] = changed[8].replace(",1009,", ",8009,")  # line 9: a card the controller doesn't hold
    write(site.path("changed.csv"), "\n".join(changed) + "\n")
    r = site.zanth(*port, "--json", "cards", "check", "00:00:01", "changed.csv")
    assert r.rc == 4, r
    objects = r.json()
    by_line = {o["line"]: o for o in objects if "line" in o}
    assert set(by_line) == {4, 7, 9}, objects
    assert by_line[4]["differences"] == [{"field": "accessGroup2", "file": "5", "controller": "2"}]
    assert by_line[7]["differences"] == [{"field": "accessType", "file": "2", "controller": "1"}]
    assert by_line[9]["missing"] is True and by_line[9]["result"] == -101
    summary = objects[-1]
    assert (summary["checked"], summary["same"], summary["differ"], summary["missing"]) == (12, 9, 2, 1)
    r = site.zanth(*port, "cards", "check", "00:00:01", "changed.csv")
    assert "line 4 (card 7/1004) on 00:00:01 differs:\n  accessGroup2 2 on the controller, 5 in the file" in r.out, r


def test_load_into_two_controllers_then_check_and_get(site):
    lines = [card_line(n, generation=1 + n % 3) for n in range(1, 31)]
    path = write(site.path("site.csv"), "\n".join(lines) + "\n")
    sim = site.sim("--count", "2")
    port = ["--port", str(sim.port)]
    r = site.zanth(*port, "--json", "cards", "load", "00:00:01,00:00:02", path, "--window", "3")
    assert r.rc == 0, r
    summary = r.json()[-1]
    assert summary["loaded"] == 60 and [c["loaded"] for c in summary["controllers"]] == [30, 30], summary
    r = site.zanth(*port, "cards", "check", "00:00:01,00:00:02", path)
    assert r.rc == 0 and "checked 60 of 60 records" in r.out and "60 the same" in r.out, r

    r = site.zanth(*port, "--json", "cards", "get", "00:00:02", "1014", "--card-set", "7")
    assert r.rc == 0, r
    record = r.json()[0]["record"]
    assert record["uniqueId"] == 14 and record["pin"] == "0014" and record["accessGroup8"] == 8
    assert (record["endDate"], record["endTime"]) == ("2037/12/31", "18:00:00")
    assert (record["startDate"], record["startTime"]) == ("2012/01/02", "00:00:00")
    r = site.zanth(*port, "cards", "get", "00:00:02", "1014", "--card-set", "8")
    assert r.rc == 1 and "-101" in r.err, r


def test_a_record_the_controller_refuses_is_reported(site):
    lines = [card_line(1), card_line(2), card_line(1).replace(",1,1,2,0", ",99,1,2,0", 1)]
    # The third line gives card 7/1001 again under another unique ID: the controller refuses it.
    assert lines[2].split(",")[5] == "99"
    path = write(site.path("site.csv"), "\n".join(lines) + "\n")
    sim = site.sim()
    r = site.zanth("--port", str(sim.port), "cards", "load", "00:00:01", path)
    assert r.rc == 4, r
    assert "line 3 (card 7/1001) refused by 00:00:01: -104" in r.err, r
    assert "loaded 2 of 3 records" in r.out and "1 refused" in r.out, r
