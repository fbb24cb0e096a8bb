#!/usr/bin/python3
"""zanthd's benchmark: events from N controllers flat out into the journal and onto the SSE
stream, the journal's commit cost and zanthd's CPU, with SQLite's synchronous=NORMAL and FULL;
a kill -9 in the middle of a flat-out run (events and alarms lost and duplicated, and what the
library's memory queues held: look-ups, door reports, connect notices); and zanthd's own part of
the door decisions. It prints figures next to the model and asserts nothing. The whole road of a
door decision, REST and clients at once are zanthd-bench's (gateway/bench/decision_bench.cpp).

  /usr/bin/python3 gateway/bench/zanthd_bench.py --bin build/release/bin [--counts 100,400]
      [--seconds 60] [--synchronous normal,full] [--kill] [--lookups 200]

Model: a controller flat out sends one event per Worker turn (47 ms): N x 21.3 events/s. A
look-up waits 0-47 ms for its Worker's turn; zanthd polls every 1 ms and decides in well under a
millisecond; the decision leaves at the Worker's next turn: 47-94 ms from card to decision at the
controller. The journal's figure below is zanthd's own part (look-up taken -> decision handed to
the library); the Worker's turns come on top."""
import argparse
import hashlib
import json
import os
import re
import shutil
import signal
import socket
import subprocess
import sys
import tempfile
import threading
import time

import requests

TOKEN = "bench-token"


def free_port():
    with socket.socket() as s:
        s.bind(("127.0.0.1", 0))
        return s.getsockname()[1]


def cpu_seconds(pid):
    with open(f"/proc/{pid}/stat") as f:
        fields = f.read().rsplit(")", 1)[1].split()
    return (int(fields[11]) + int(fields[12])) / os.sysconf("SC_CLK_TCK")


class Site:
    def __init__(self, bindir, controllers, doors="", synchronous="normal"):
        self.bindir = bindir
        self.dir = tempfile.mkdtemp(prefix="zanthd-bench-")
        self.port, self.http = free_port(), free_port()
        with open(os.path.join(self.dir, "zanthd.toml"), "w") as f:
            f.write(f'[library]\nport = {self.port}\ncontrollers = {controllers}\n'
                    f'[journal]\nsynchronous = "{synchronous}"\n'
                    f'[http]\nlisten = "127.0.0.1:{self.http}"\nthreads = 16\n'
                    f'[[tokens]]\nname = "bench"\nscope = "operator"\n'
                    f'sha256 = "{hashlib.sha256(TOKEN.encode()).hexdigest()}"\n{doors}')
        self.proc = None

    def start(self):
        env = dict(os.environ, HOME=self.dir, XDG_CONFIG_HOME=self.dir)
        self.log = open(os.path.join(self.dir, "zanthd.log"), "ab")
        self.proc = subprocess.Popen([os.path.join(self.bindir, "zanthd"), "--config",
                                      os.path.join(self.dir, "zanthd.toml")], stdout=self.log,
                                     stderr=self.log, env=env)
        deadline = time.monotonic() + 60
        while time.monotonic() < deadline:
            try:
                if self.get("/readyz").status_code == 200:
                    return
            except requests.RequestException:
                pass
            time.sleep(0.05)
        raise SystemExit("zanthd did not come up")

    def get(self, path, **kw):
        return requests.get(f"http://127.0.0.1:{self.http}/api/v1{path}",
                            headers={"Authorization": f"Bearer {TOKEN}"}, timeout=30, **kw)

    def metric(self, name):
        m = re.search(rf"^{re.escape(name)} (\S+)$", self.get("/metrics").text, re.M)
        return float(m.group(1)) if m else 0.0

    def records(self, kind):
        out, after = [], 0
        while True:
            page = self.get("/events", params={"after": after, "limit": 1000, "kind": kind}).json()
            if not page["records"]:
                return out
            out += page["records"]
            after = page["next_after"]

    def stop(self, kill=False):
        if self.proc and self.proc.poll() is None:
            self.proc.send_signal(signal.SIGKILL if kill else signal.SIGTERM)
            self.proc.wait(timeout=30)
        self.proc = None

    def close(self):
        self.stop()
        shutil.rmtree(self.dir, ignore_errors=True)


def sim(bindir, port, *args):
    return subprocess.Popen([os.path.join(bindir, "zanth-sim"), "--port", str(port), "--quiet",
                             "--max-connecting", "64", *args], stdout=subprocess.PIPE, text=True)


def acks(summary):
    m = re.search(r"acks:.*?\b67=(\d+)", summary)
    return int(m.group(1)) if m else 0


def sent(summary, code):
    """How many messages of `code` the controllers sent, from zanth-sim's summary."""
    m = re.search(rf"sent:.*?\b{code}=(\d+)", summary)
    return int(m.group(1)) if m else 0


def identifications(summary):
    m = re.search(r"(\d+) identifications", summary)
    return int(m.group(1)) if m else 0


def sse_count(site, stop, out):
    ids = set()
    out["ids"] = ids
    try:
        sse_follow(site, stop, out, ids)
    except requests.RequestException:
        pass  # zanthd killed under the stream (the kill -9 run): the count stops there


def sse_follow(site, stop, out, ids):
    with requests.get(f"http://127.0.0.1:{site.http}/api/v1/events/stream",
                      params={"after": 0, "kind": "event"}, stream=True, timeout=60,
                      headers={"Authorization": f"Bearer {TOKEN}"}) as r:
        for line in r.iter_lines(decode_unicode=True):
            if line.startswith("data: "):
                d = json.loads(line[6:])
                ids.add((d["mac"], d["fields"].get("msg_id")))
            if stop.is_set() and len(ids) >= out.get("want", 1 << 60):
                break


def events(bindir, n, seconds, kill, synchronous="normal"):
    site = Site(bindir, n, synchronous=synchronous)
    try:
        site.start()
        stop = threading.Event()
        seen = {}
        reader = threading.Thread(target=sse_count, args=(site, stop, seen), daemon=True)
        reader.start()
        # The kill run presents cards too: look-ups and door reports wait in the library's memory.
        extra = ["--lookup-interval-ms", "500"] if kill else []
        s = sim(bindir, site.port, "--count", str(n), "--flat-out", "--duration-s", str(seconds + 10), *extra)
        deadline = time.monotonic() + 60
        while site.get("/controllers").json()["connected"] < n and time.monotonic() < deadline:
            time.sleep(0.2)
        t0, c0, r0 = time.monotonic(), cpu_seconds(site.proc.pid), site.metric("zanthd_journal_last_id")
        commit0 = site.metric("zanthd_journal_commit_seconds_total")
        if kill:
            time.sleep(seconds / 2)
            site.stop(kill=True)
            site.start()
            time.sleep(seconds / 2)
        else:
            time.sleep(seconds)
        t1, c1, r1 = time.monotonic(), cpu_seconds(site.proc.pid), site.metric("zanthd_journal_last_id")
        commit1 = site.metric("zanthd_journal_commit_seconds_total")
        summary = s.communicate(timeout=120)[0]
        deadline = time.monotonic() + 120
        while site.metric("zanthd_journal_lag_records") > 0 and time.monotonic() < deadline:
            time.sleep(0.2)
        got = site.records("event")
        keys = [(e["mac"], e["fields"].get("msg_id")) for e in got]
        acked = acks(summary)
        lost, dup = acked - len(set(keys)), len(keys) - len(set(keys))
        seen["want"] = len(set(keys))
        stop.set()
        reader.join(timeout=30)
        sse_lost = len(set(keys) - seen.get("ids", set())) if not kill else None
        rate = (r1 - r0) / (t1 - t0)
        per = site.metric("zanthd_journal_commit_seconds_per_commit")
        # After a kill the process and its counters are new: CPU and commit cost are the steady runs'.
        cpu = "-" if kill else f"{100 * (c1 - c0) / (t1 - t0):.1f}"
        per_event = "-" if kill else f"{(commit1 - commit0) / max(1, r1 - r0) * 1e6:.1f}"
        print(f"| {n} | {'kill -9' if kill else 'steady'} | {synchronous} | {t1 - t0:.0f} | {rate:.0f} | {n * 1000 / 47:.0f} |"
              f" {acked} | {lost} | {dup} | {sse_lost if sse_lost is not None else '-'} |"
              f" {cpu} | {per * 1e3:.2f} | {per_event} |", flush=True)
        if kill:
            queues(site, summary)
    finally:
        site.close()


def queues(site, summary):
    """What the kill cost of what lives in the library's memory: look-ups, door reports and
    connect notices the controllers sent, against what the journal holds."""
    looked, reported = sent(summary, 1073), sent(summary, 1093)
    connects = identifications(summary)
    journaled = {k: len(site.records(k)) for k in ("lookup", "door", "connect")}
    print(f"\n| kill -9: in the library's memory | sent by the controllers | in the journal | lost |\n|---|---:|---:|---:|\n"
          f"| look-ups | {looked} | {journaled['lookup']} | {looked - journaled['lookup']} |\n"
          f"| door reports | {reported} | {journaled['door']} | {reported - journaled['door']} |\n"
          f"| connects (identifications / notices) | {connects} | {journaled['connect']} | {connects - journaled['connect']} |\n",
          flush=True)


def lookups(bindir, count):
    doors = "".join(f'[[doors]]\nname = "d{i}"\ncontroller = "00:00:01"\ndoor = {i}\n' for i in range(1, 5))
    site = Site(bindir, 1, doors)
    try:
        site.start()
        s = sim(bindir, site.port, "--count", "1", "--lookup-interval-ms", "150")
        deadline = time.monotonic() + 300
        while len(site.records("lookup")) < count and time.monotonic() < deadline:
            time.sleep(0.5)
        s.send_signal(signal.SIGTERM)
        s.communicate(timeout=30)
        lat = sorted(r["latency_ms"] for r in site.records("lookup"))
        q = lambda p: lat[min(len(lat) - 1, int(p * len(lat)))]
        print(f"| {len(lat)} | {q(0.5):.2f} | {q(0.99):.2f} | {lat[-1]:.2f} | below 1 (then the Worker's 47-94) |")
    finally:
        site.close()


def main():
    p = argparse.ArgumentParser()
    p.add_argument("--bin", default="build/release/bin")
    p.add_argument("--counts", default="100,400")
    p.add_argument("--seconds", type=int, default=60)
    p.add_argument("--kill", action="store_true")
    p.add_argument("--synchronous", default="normal", help="normal, full or both: normal,full")
    p.add_argument("--lookups", type=int, default=200)
    a = p.parse_args()
    print(f"machine: {os.cpu_count()} cores, {os.uname().release}; zanthd from {a.bin}")
    print("\n| controllers | run | synchronous | s | journaled ev/s | model ev/s | acked | lost | duplicated | lost on SSE | zanthd CPU % | ms per commit | commit us per record |")
    print("|---:|---|---|---:|---:|---:|---:|---:|---:|---:|---:|---:|---:|")
    for sync in a.synchronous.split(","):
        for n in [int(x) for x in a.counts.split(",") if x]:
            events(a.bin, n, a.seconds, False, sync)
    if a.kill:
        events(a.bin, int(a.counts.split(",")[0]), a.seconds, True)
    if a.lookups:
        print("\n| look-ups | zanthd p50 ms | p99 ms | max ms | model ms |\n|---:|---:|---:|---:|---|")
        lookups(a.bin, a.lookups)
    return 0


if __name__ == "__main__":
    sys.exit(main())
