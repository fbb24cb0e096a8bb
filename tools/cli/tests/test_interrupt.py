"""Ctrl-C (SIGINT) during a load and during a transfer: zanth stops after what is under way, says
what was done, and what it says matches what the controller received."""
import os
import re
import signal

from conftest import card_line, wait_for, write


def progress_started(proc, pattern):
    """A progress line that shows some work done (written every few seconds off a terminal)."""
    def started():
        for line in list(proc.lines):
            m = re.search(pattern, line)
            if m and float(m.group(1)) > 0:
                return line
        return None
    return started


def test_ctrl_c_during_a_load_stops_cleanly_and_says_what_was_done(site):
    records = 2000
    path = write(site.path("site.csv"), "\n".join(card_line(n) for n in range(1, records + 1)) + "\n")
    sim = site.sim()
    proc = site.start("--port", str(sim.port), "cards", "load", "00:00:01", path)
    wait_for(progress_started(proc, r"cards: \[[#-]+\] (\d+)/2000 records"), 90, "the load to start")
    proc.send_signal(signal.SIGINT)
    rc, out, err = site.finish(proc, 60)
    assert rc == 130, (out, err)
    m = re.search(r"^interrupted: loaded (\d+) of 2000 records", out, re.M)
    assert m, (out, err)
    loaded = int(m.group(1))
    assert 0 < loaded < records, out
    m = re.search(r"00:00:01 was interrupted: (\d+) of 2000 records loaded or refused \(up to line (\d+)\); "
                  r"(\d+) not sent", err)
    assert m, err
    assert int(m.group(1)) == loaded and int(m.group(2)) == loaded and int(m.group(3)) == records - loaded
    # Every record zanth says it loaded reached the controller, and nothing more.
    assert sim.commands().get(27) == loaded, sim.summary


def test_ctrl_c_during_a_file_put_stops_between_chunks(site):
    size = 1 << 20
    with open(site.path("image.bin"), "wb") as f:
        f.write(os.urandom(size))
    sim = site.sim()
    port = ["--port", str(sim.port)]
    proc = site.start(*port, "file", "put", "00:00:01", "image.bin", "/firmware/image.bin")
    wait_for(progress_started(proc, r"put: \[[#-]+\] ([\d.]+)/"), 90, "the transfer to start")
    proc.send_signal(signal.SIGINT)
    rc, out, err = site.finish(proc, 60)
    assert rc == 130, (out, err)
    m = re.search(r"interrupted: sent (\d+) of 1048576 bytes \((\d+) of 257 chunks\); the controller's "
                  r"/firmware/image.bin was left without its last chunk", err)
    assert m, err
    sent, chunks = int(m.group(1)), int(m.group(2))
    assert sent == chunks * 4086 and 0 < chunks < 257
    # The controller got the opening and exactly the chunks zanth counted, never the last one, so
    # it holds no such file.
    r = site.zanth(*port, "file", "get", "00:00:01", "back.bin", "/firmware/image.bin")
    assert r.rc == 1 and "-101" in r.err, r
    commands = sim.commands()
    assert commands.get(30) == 1 and commands.get(31) == chunks and 32 not in commands, commands
