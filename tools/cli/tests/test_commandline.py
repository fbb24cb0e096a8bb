"""The command line before any controller: help, usage, suggestions, the model's checks (which
refuse a call before the library is even loaded), exit statuses, and the folders it touches."""
import os
import socket

from conftest import free_port, model, write


def test_help_lists_commands_options_and_exit_statuses(site):
    r = site.zanth("--help")
    assert r.rc == 0, r
    for verb in ["list", "info MAC", "time MAC", "open MAC DOOR", "cards load", "cards check", "cards get",
                 "file put", "file get", "watch", "call EXPORT"]:
        assert verb in r.out, verb
    for status in ["0 ", "1 ", "2 ", "3 ", "4 ", "5 ", "130"]:
        assert f"\n  {status}" in r.out, status
    assert "can't listen there" in r.out and "docs/cards-csv.md" in r.out
    assert site.zanth().rc == 2  # no command: the help goes to stderr
    for args in (["help", "cards", "load"], ["cards", "load", "--help"]):
        h = site.zanth(*args)
        assert h.rc == 0 and "usage: zanth cards load MAC[,MAC...] FILE [--window N]" in h.out, h
    assert not os.path.exists(site.data), "help loaded the library"


def test_wrong_arguments_get_the_commands_usage(site):
    cases = [
        (["info"], "too few arguments", "usage: zanth info MAC"),
        (["info", "00:00:01", "extra"], "too many arguments", "usage: zanth info MAC"),
        (["open", "00:00:01", "5"], "DOOR is 0 or 1", "usage: zanth open MAC DOOR"),
        (["list", "--fro", "3"], "unknown option --fro; did you mean --for?", "usage: zanth list"),
        (["watch", "--count", "zero"], "--count wants", "usage: zanth watch"),
        (["--port", "80", "list"], "--port wants 1025 to 65535", ""),
        (["--contact", "nohost", "list"], "--contact wants HOST:PORT", ""),
        (["file", "put", "00:00:01", "x", "a;b"], "controllerPathFile: must not hold ';'", "usage: zanth file put"),
    ]
    for args, why, usage in cases:
        r = site.zanth(*args)
        assert r.rc == 2, r
        assert why in r.err and usage in r.err, r
    # Nothing was loaded or called for any of them.
    assert not os.path.exists(site.data)


def test_unknown_names_get_the_closest_ones(site):
    cases = [
        (["lsit"], "did you mean list?"),
        (["cards", "lod", "00:00:01", "f.csv"], "did you mean cards load"),
        (["cards"], "'cards' wants a second word: cards load, cards check, cards get"),
        (["call", "ControlerInfo", "00:00:01"], "no export named 'ControlerInfo'; did you mean ControllerInfo"),
        (["call", "controllerinfo", "00:00:01"], "did you mean ControllerInfo?"),
        (["help", "GetTimeDat"], "did you mean GetTimeDate"),
        (["call", "CmdOutputFunction3", "00:00:01", "32", "0", "sate=1"], "sate: no such parameter; did you mean state?"),
    ]
    for args, expected in cases:
        r = site.zanth(*args)
        assert r.rc == 2, r
        assert expected in r.err, r
    assert not os.path.exists(site.data)


def test_call_checks_every_argument_against_the_model_before_loading(site):
    usage3 = "usage: zanth call CmdOutputFunction3 mac target bitOrFunctionCode state"
    cases = [
        (["CmdOutputFunction3", "00:00:01", "32", "0", "7"], "state: must be 0 to 2 (got 7)", usage3),
        (["CmdOutputFunction3", "00:00:01", "33", "0", "1"], "target: must be 0 to 32 (got 33)", usage3),
        (["CmdOutputFunction3", "00:00:01", "x", "0", "1"], "target: must be an integer (int32_t), not 'x'", usage3),
        (["CmdOutputFunction3", "00:00:01", "32"], "bitOrFunctionCode: is required", usage3),
        (["CmdOutputFunction3", "00:00:01", "32", "0", "1", "9"], "'9' is one too many", usage3),
        (["ControllerInfo", "00:00:01", "buffer=x"], "buffer: is an output, not an argument",
         "usage: zanth call ControllerInfo mac [size=4097]"),
        (["SetTimeDate", "00:00:01", "2024/13/01", "10:00:00"], "date: must be a date yyyy/mm/dd", "usage: zanth call SetTimeDate"),
        (["SystemTime", "00:00:01", "mode=5"], "mode: must be one of 0, 1, 2 (got 5)", "usage: zanth call SystemTime"),
        (["SetEventCallback"], "is a callback registration", ""),
        (["SetLogFilePath", "/tmp"], "would move the library's own files", "usage: zanth call SetLogFilePath path"),
        (["LogFilePath", "1", "/tmp"], "would move the library's own files", ""),
        (["SendData", "00:00:01", "/f", "hex:0g", "1"], "hex: wants pairs of hexadecimal digits", ""),
    ]
    for args, why, usage in cases:
        r = site.zanth("call", *args)
        assert r.rc == 2, r
        assert why in r.err and usage in r.err, r
        assert r.out == "", r
    # --json: the same failure as one object.
    r = site.zanth("--json", "call", "CmdOutputFunction3", "00:00:01", "32", "0", "7")
    assert r.rc == 2 and r.json() == [{"error": "CmdOutputFunction3: state: must be 0 to 2 (got 7)", "exit": 2}], r
    assert not os.path.exists(site.data), "a refused call loaded the library"


def test_every_export_is_known_by_name_and_its_help_comes_from_the_model(site):
    m = model()
    r = site.zanth("help", "exports")
    assert r.rc == 0, r
    listed = [line.split()[0] for line in r.out.splitlines() if line.startswith("  ")]
    assert listed == [e["name"] for e in m["exports"]]

    exports = {e["name"]: e for e in m["exports"]}
    for name in ["ControllerInfo", "CmdOutputFunction3", "AddModCardRecord3", "RspGetTimeDate", "SendData",
                 "GetNextResponse", "SystemTime", "Initialization"]:
        e = exports[name]
        h = site.zanth("call", name, "--help")
        assert h.rc == 0, h
        assert e["decl"] in h.out, name
        # The doc comment, as the model has it (the help wraps its lines).
        assert " ".join(e["doc"].split())[:120] in " ".join(h.out.split()), name
        # The usage lists the inputs a caller gives, in the header's order; sizes and the rspid
        # are optional and named.
        usage = next(line for line in h.out.splitlines() if line.startswith("usage: zanth call"))
        positional = [p["name"] for p in e["params"]
                      if p["role"] not in ("size", "rspid", "callback", "handle")
                      and p["dir"] in ("in", "inout", "by_mode")]
        words = [w for w in usage.split()[4:] if not w.startswith("[")]
        assert words == positional, (name, usage)
        assert ("[rspid=1]" in usage) == any(p["role"] == "rspid" for p in e["params"]), name


def test_a_controller_that_does_not_come_gets_its_own_exit_status(site):
    port = free_port()
    r = site.zanth("--port", str(port), "--timeout", "1", "info", "00:00:09")
    assert r.rc == 3, r
    assert "00:00:09" in r.err and f"port {port}" in r.err, r
    r = site.zanth("--json", "--port", str(port), "--timeout", "0.5", "--wait", "00:00:08", "list")
    assert r.rc == 3, r
    [error] = r.json()
    assert error["exit"] == 3 and "00:00:08 did not connect to port" in error["error"]
    closed = free_port()
    r = site.zanth("--contact", f"127.0.0.1:{closed}", "--timeout", "1", "info", "00:00:01")
    assert r.rc == 1 and "10061" in r.err and "refused" in r.err, r


def test_a_port_held_by_another_program_is_named(site):
    with socket.socket() as held:
        held.bind(("0.0.0.0", 0))
        held.listen()
        port = held.getsockname()[1]
        r = site.zanth("--port", str(port), "list", "--for", "0.1")
    assert r.rc == 5, r
    assert f"can't listen on port {port}: it is in use by another program" in r.err, r
    assert "--contact" in r.err


def test_a_library_that_is_not_there_is_named(site):
    missing = os.path.join(site.root, "nowhere", "libzanth.so.2")
    r = site.zanth("call", "GetDLLVersion", env={"ZANTH_LIBRARY": missing})
    assert r.rc == 5 and missing in r.err, r
    r = site.zanth("--library", "nowhere/libzanth.so.2", "call", "GetDLLVersion")
    assert r.rc == 5 and os.path.join(site.work, "nowhere", "libzanth.so.2") in r.err, r


def snapshot(folder):
    out = {}
    for dirpath, _, files in os.walk(folder):
        for f in files:
            p = os.path.join(dirpath, f)
            st = os.stat(p)
            with open(p, "rb") as fh:
                out[os.path.relpath(p, folder)] = (fh.read(), st.st_mtime_ns)
    return out


def test_another_programs_files_are_left_untouched(site):
    """Run from a folder where another program keeps its library files, with that program's
    per-user log folder set: zanth's library writes only into zanth's own data folder."""
    write(site.path("ZanthMessages.log"), "another program's log\n")
    with open(site.path("ZanthEvents.log"), "wb") as f:
        f.write(bytes(range(256)) * 3)
    write(site.path("zanth.txt"), "00:00:01 another-programs-seed\n")
    other = os.path.join(site.root, "other-logs")
    os.makedirs(other)
    write(os.path.join(other, "ZanthMessages.log"), "the other program's log folder\n")
    setting = os.path.join(site.home, ".config", "Orlan", "ZanthDLL")
    os.makedirs(setting)
    write(os.path.join(setting, "LogFilePath"), other + "/")
    before_work, before_other, before_home = snapshot(site.work), snapshot(other), snapshot(site.home)

    r = site.zanth("--json", "call", "GetLogFilePath")
    assert r.rc == 0, r
    [answer] = r.json()
    # No log folder is set for zanth's library: it keeps its files in its working folder.
    assert answer["outputs"]["path"] == "", answer
    port = free_port()
    assert site.zanth("--port", str(port), "--timeout", "1", "info", "00:00:01").rc == 3

    assert snapshot(site.work) == before_work
    assert snapshot(other) == before_other
    assert snapshot(site.home) == before_home
    assert os.path.exists(os.path.join(site.data, "ZanthMessages.log"))
    # --data-dir puts them elsewhere, still never in the working folder.
    assert site.zanth("--data-dir", "mine", "call", "GetDLLVersion").rc == 0
    assert os.path.exists(site.path("mine", "ZanthMessages.log"))
    assert {k for k in snapshot(site.work) if not k.startswith("mine")} == set(before_work)
