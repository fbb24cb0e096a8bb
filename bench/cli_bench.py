#!/usr/bin/python3
"""zanth, the command line, against zanth-sim: its own pace next to the library's.

    /usr/bin/python3 bench/cli_bench.py --bin build/release/bin [--records 10000]
        [--controllers 10] [--fleet-records 1000] [--file-kb 1024] [--runs single,fleet,window1,file]

Runs zanth as a user would (a process of its own, its data folder in a scratch directory) and
reads the figures from its --json summary; zanth-sim plays the controllers on a free loopback
port. A program, not a test: nothing here asserts on time. Exit 0 when every run completed, 1
otherwise; the simulator is always stopped.

The model: a controller's Worker sends one queued command a turn (47 ms) and takes the next in
the turn that reads the former's reply, so a load that keeps one more record queued carries a
record every turn, 1000/47 = 21.3 records/s per link, and links don't share a Worker; a chunk
of a file is 4086 bytes a turn, 86.9 KB/s (the library's own transfer measured 86.5 KB/s).
"""
import argparse
import json
import os
import platform
import shutil
import signal
import socket
import subprocess
import sys
import tempfile
import time

TURN_MS = 47.0
RECORDS_PER_S = 1000.0 / TURN_MS
CHUNK = 4086
KB_PER_S = CHUNK / TURN_MS  # bytes per ms = KB/s
MEASURED_KB_PER_S = 86.5    # zanth-bench-files, SendFile on one link


def free_port():
    with socket.socket() as s:
        s.bind(("127.0.0.1", 0))
        return s.getsockname()[1]


def card_line(n):
    return (f"7,0,{1000000 + n},{n % 10000:04d},1,{n},1,2,0,0,0,0,0,8,1,0,1,2012/01/02,0,"
            f"2037/12/31,0,{n % 100},3,4,0,{n % 300}")


def machine():
    cpu = "?"
    try:
        with open("/proc/cpuinfo") as f:
            cpu = next(l.split(":", 1)[1].strip() for l in f if l.startswith("model name"))
    except (OSError, StopIteration):
        pass
    load = os.getloadavg()
    return (f"{os.cpu_count()} cores, {cpu}, Linux {platform.release()}, "
            f"load average {load[0]:.1f} {load[1]:.1f} {load[2]:.1f}")


class Bench:
    def __init__(self, bin_dir, scratch):
        self.bin = bin_dir
        self.dir = scratch
        self.sim = None

    def start_sim(self, count):
        port = free_port()
        log = open(os.path.join(self.dir, "sim.log"), "ab")
        self.sim = subprocess.Popen([os.path.join(self.bin, "zanth-sim"), "--host", "127.0.0.1", "--port", str(port),
                                     "--count", str(count), "--quiet"], stdout=log, stderr=subprocess.STDOUT)
        return port

    def stop_sim(self):
        if self.sim and self.sim.poll() is None:
            self.sim.send_signal(signal.SIGTERM)
            try:
                self.sim.wait(timeout=30)
            except subprocess.TimeoutExpired:
                self.sim.kill()
                self.sim.wait()
        self.sim = None

    def zanth(self, *args, timeout=3600):
        env = dict(os.environ, HOME=self.dir, XDG_CONFIG_HOME=os.path.join(self.dir, ".config"),
                   XDG_STATE_HOME=os.path.join(self.dir, "state"))
        started = time.monotonic()
        p = subprocess.run([os.path.join(self.bin, "zanth"), "--json", *args], capture_output=True, text=True,
                           env=env, cwd=self.dir, timeout=timeout)
        took = time.monotonic() - started
        lines = [json.loads(l) for l in p.stdout.splitlines() if l.strip()]
        if p.returncode != 0:
            sys.stderr.write(f"zanth {' '.join(args)} exited {p.returncode}\n{p.stderr[-2000:]}\n")
        return p.returncode, (lines[-1] if lines else {}), took

    def load(self, name, controllers, records, window):
        path = os.path.join(self.dir, f"cards-{records}.csv")
        with open(path, "w") as f:
            f.write("\n".join(card_line(n) for n in range(1, records + 1)) + "\n")
        port = self.start_sim(controllers)
        macs = ",".join(f"00:00:{i:02X}" for i in range(1, controllers + 1))
        try:
            # The controllers first, so that the load's own seconds hold only the load.
            rc, _, _ = self.zanth("--port", str(port), "--wait", macs, "list")
            rc, s, took = self.zanth("--port", str(port), "--timeout", "60", "cards", "load", macs, path,
                                     "--window", str(window))
        finally:
            self.stop_sim()
        ok = rc == 0 and s.get("loaded") == records * controllers
        total = s.get("loaded", 0)
        seconds = s.get("seconds", 0.0)
        rate = total / seconds if seconds else 0.0
        model = RECORDS_PER_S * controllers if window > 1 else RECORDS_PER_S * controllers / 2
        return ok, [name, str(controllers), str(records), str(window), str(total), f"{seconds:.1f}",
                    f"{rate:.1f}", f"{rate / controllers:.2f}", f"{model / controllers:.2f}",
                    f"{100 * rate / model:.0f} %", f"{took:.1f}"]

    def put(self, kb):
        path = os.path.join(self.dir, "image.bin")
        with open(path, "wb") as f:
            f.write(os.urandom(kb * 1024))
        port = self.start_sim(1)
        try:
            self.zanth("--port", str(port), "--wait", "00:00:01", "list")
            rc, s, took = self.zanth("--port", str(port), "file", "put", "00:00:01", path, "/bench/image.bin")
            rc2, g, took2 = self.zanth("--port", str(port), "file", "get", "00:00:01", path + ".back",
                                      "/bench/image.bin")
        finally:
            self.stop_sim()
        with open(path, "rb") as a, open(path + ".back", "rb") as b:
            same = a.read() == b.read()
        ok = rc == 0 and rc2 == 0 and s.get("complete") and g.get("complete") and same
        rows = []
        for what, r, t in (("file put", s, took), ("file get", g, took2)):
            rows.append([what, f"{r.get('bytes', 0)}", f"{r.get('seconds', 0):.2f}", f"{r.get('kb_per_s', 0):.1f}",
                         f"{KB_PER_S:.1f}", f"{MEASURED_KB_PER_S:.1f}", f"{t:.1f}"])
        return ok, rows, same


def table(header, rows):
    print("| " + " | ".join(header) + " |")
    print("|" + "|".join("---:" if i else "---" for i in range(len(header))) + "|")
    for r in rows:
        print("| " + " | ".join(r) + " |")
    print()


def main():
    ap = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    ap.add_argument("--bin", required=True, help="the bin folder holding zanth and zanth-sim")
    ap.add_argument("--records", type=int, default=10000)
    ap.add_argument("--controllers", type=int, default=10)
    ap.add_argument("--fleet-records", type=int, default=1000)
    ap.add_argument("--window1-records", type=int, default=500)
    ap.add_argument("--file-kb", type=int, default=1024)
    ap.add_argument("--runs", default="single,fleet,window1,file")
    ap.add_argument("--keep", action="store_true", help="keep the scratch folder")
    a = ap.parse_args()
    for program in ("zanth", "zanth-sim"):
        if not os.access(os.path.join(a.bin, program), os.X_OK):
            sys.exit(f"cli_bench: no {program} in {a.bin}")
    runs = a.runs.split(",")
    scratch = tempfile.mkdtemp(prefix="zanth-cli-bench-")
    bench = Bench(os.path.abspath(a.bin), scratch)
    print(f"zanth command line benchmark: {machine()}")
    print(f"scratch folder {scratch}\n")
    all_ok = True
    try:
        rows = []
        if "single" in runs:
            ok, row = bench.load("cards load, one controller", 1, a.records, 4)
            all_ok &= ok
            rows.append(row)
        if "fleet" in runs:
            ok, row = bench.load("cards load, controllers at once", a.controllers, a.fleet_records, 4)
            all_ok &= ok
            rows.append(row)
        if "window1" in runs:
            ok, row = bench.load("cards load, one record at a time", 1, a.window1_records, 1)
            all_ok &= ok
            rows.append(row)
        if rows:
            table(["run", "controllers", "records each", "window", "loaded", "load s", "records/s",
                   "per link /s", "model per link /s", "of model", "zanth ran s"], rows)
        if "file" in runs:
            ok, rows, same = bench.put(a.file_kb)
            all_ok &= bool(ok)
            table(["transfer", "bytes", "s", "KB/s", "model KB/s", "library's SendFile KB/s", "zanth ran s"], rows)
            print(f"the file came back {'byte for byte' if same else 'CHANGED'}\n")
    finally:
        bench.stop_sim()
        if not a.keep:
            shutil.rmtree(scratch, ignore_errors=True)
    print("all runs completed" if all_ok else "some runs did not complete (see above)")
    return 0 if all_ok else 1


if __name__ == "__main__":
    sys.exit(main())
