#!/usr/bin/python3
"""zanthd on a message bus, measured: Debian's mosquitto, zanthd publishing its journal to it and
mosquitto_sub subscribed, all on loopback, with zanth-sim's controllers as a process of their own.
It prints figures next to the library's ingest and asserts nothing.

  /usr/bin/python3 gateway/bench/mqtt_bench.py --bin build/release/bin [--counts 100,1000]
      [--seconds 30] [--outage-s 60 --outage-controllers 100] [--decisions 400]

1. Events, N controllers flat out (the library's ingest: N x 21.3 events/s, one per Worker turn
   of 47 ms): events journaled per second, events at the subscriber per second (distinct journal
   ids, QoS 1 both ways), ids missing or duplicated at the subscriber, and the latency from the
   event leaving the controller to the message reaching the subscriber, p50 and p99. The
   controller's moment comes from zanth-sim's capture (--pcap: each frame stamped as the
   simulator writes it), the subscriber's from mosquitto_sub (-F %U: each message stamped as it
   arrives); both are the wall clock of this machine. Model: the event waits for its Worker's
   turn (0-47 ms), zanthd takes it from the library's queue within a millisecond or so, commits
   it with the batch it came in, and the publisher reads the journal and sends it.
2. A broker outage: N controllers flat out, mosquitto stopped for --outage-s seconds (SIGTERM,
   persistence on; the subscriber keeps a persistent session) and started again: the backlog
   zanthd holds when the broker comes back, how long it takes to drain (zanthd_mqtt_backlog_records
   back to what it is in steady state), the rate of the drain, and whether the subscriber got
   every id.
3. Door decisions over the bus: one controller presenting a card every 150-650 ms, [decisions]
   mode "mqtt", a decider (paho, in this process) answering each look-up at once. zanthd's part
   (look-up taken -> answer in -> decision handed to the library: the bus's round trip) from the
   journal's latency_ms, and the whole road (look-up leaving the controller -> decision reaching
   it) from the capture.

Run it on an otherwise quiet machine: mosquitto, zanthd, zanth-sim and the subscriber share the
cores. The first line gives the load average before each run."""
import argparse
import json
import os
import re
import shutil
import signal
import socket
import struct
import subprocess
import sys
import tempfile
import threading
import time

sys.path.insert(0, os.path.dirname(os.path.abspath(__file__)))
from zanthd_bench import Site, cpu_seconds, free_port, sim  # noqa: E402

PREFIX = "zanth/bench"


def load():
    with open("/proc/loadavg") as f:
        return " ".join(f.read().split()[:3])


def rss_mb(pid):
    with open(f"/proc/{pid}/status") as f:
        for line in f:
            if line.startswith("VmRSS:"):
                return int(line.split()[1]) / 1024
    return 0.0


def quantile(values, p):
    values = sorted(values)
    if not values:
        return float("nan")
    return values[min(len(values) - 1, int(p * len(values)))] if values else float("nan")


def wait_for(condition, timeout, what):
    deadline = time.monotonic() + timeout
    while time.monotonic() < deadline:
        value = condition()
        if value:
            return value
        time.sleep(0.1)
    raise SystemExit(f"mqtt_bench: timed out waiting for {what}")


class Broker:
    def __init__(self, directory):
        self.dir = os.path.join(directory, "broker")
        os.makedirs(self.dir, exist_ok=True)
        self.port = free_port()
        self.config = os.path.join(self.dir, "mosquitto.conf")
        import getpass
        with open(self.config, "w") as f:
            f.write(f"user {getpass.getuser()}\nlistener {self.port} 127.0.0.1\nallow_anonymous true\n"
                    f"max_queued_messages 0\npersistence true\npersistence_location {self.dir}/\n"
                    f"log_dest file {self.dir}/mosquitto.log\n")
        self.proc = None

    def start(self):
        self.proc = subprocess.Popen(["/usr/sbin/mosquitto", "-c", self.config], stdout=subprocess.DEVNULL,
                                     stderr=subprocess.DEVNULL)

        def listening():
            try:
                with socket.create_connection(("127.0.0.1", self.port), timeout=1):
                    return True
            except OSError:
                return False
        wait_for(listening, 30, "mosquitto to listen")

    def stop(self):
        if self.proc and self.proc.poll() is None:
            self.proc.send_signal(signal.SIGTERM)
            self.proc.wait(timeout=60)
        self.proc = None


class Subscriber:
    """mosquitto_sub with a persistent session, every message stamped as it arrives."""

    def __init__(self, directory, broker, topic):
        self.path = os.path.join(directory, "sub.txt")
        self.out = open(self.path, "wb")
        self.proc = subprocess.Popen(["mosquitto_sub", "-h", "127.0.0.1", "-p", str(broker.port), "-q", "1",
                                      "-c", "-i", "bench-subscriber", "-t", topic, "-F", "%U %p"],
                                     stdout=self.out, stderr=subprocess.DEVNULL)
        self.ids = {}
        self.offset = 0
        self.partial = b""

    def read(self):
        """{journal id: (arrival s, record)} of the first arrival of each id, and the duplicates."""
        with open(self.path, "rb") as f:
            f.seek(self.offset)
            chunk = f.read()
        self.offset += len(chunk)
        lines = (self.partial + chunk).split(b"\n")
        self.partial = lines.pop()
        duplicates = 0
        for line in lines:
            stamp, _, payload = line.partition(b" ")
            record = json.loads(payload)
            if record["id"] in self.ids:
                duplicates += 1
            else:
                self.ids[record["id"]] = (float(stamp), record)
        return duplicates

    def stop(self):
        if self.proc.poll() is None:
            self.proc.send_signal(signal.SIGTERM)
            try:
                self.proc.wait(timeout=10)
            except subprocess.TimeoutExpired:  # busy with a backlog, it may not look at the signal
                self.proc.kill()
                self.proc.wait()
        self.out.close()


def capture_frames(path, host_port):
    """zanth-sim's capture: [(seconds, from_controller, stream, text)] of every data segment."""
    out = []
    with open(path, "rb") as f:
        data = f.read()
    magic = struct.unpack_from("<I", data, 0)[0]
    endian = "<" if magic in (0xA1B2C3D4, 0xA1B23C4D) else ">"
    nano = magic in (0xA1B23C4D, 0x4D3CB2A1)
    pos = 24
    while pos + 16 <= len(data):
        sec, frac, incl, _ = struct.unpack_from(endian + "IIII", data, pos)
        pos += 16
        packet = data[pos:pos + incl]
        pos += incl
        ihl = (packet[14] & 0x0F) * 4
        tcp = 14 + ihl
        sport, dport = struct.unpack_from(">HH", packet, tcp)
        payload = packet[tcp + (packet[tcp + 12] >> 4) * 4:]
        if payload:
            out.append((sec + frac / (1e9 if nano else 1e6), dport == host_port,
                        (min(sport, dport), max(sport, dport)), payload.decode("latin-1")))
    return out


EVENT = re.compile(r"([0-9A-Fa-f]{2}(?::[0-9A-Fa-f]{2}){2,5});(\d+);\d\d/\d\d/\d{4};")


def event_times(frames):
    """{(mac's last three bytes, msg_id): seconds the event left its controller}."""
    out = {}
    for t, from_controller, _, text in frames:
        if from_controller:
            m = EVENT.search(text)
            if m:
                out.setdefault((m.group(1).upper()[-8:], m.group(2)), t)
    return out


def mqtt_config(broker, extra=""):
    return (f'[mqtt]\nenabled = true\nport = {broker.port}\ntopic_prefix = "{PREFIX}"\n{extra}')


def events(bindir, n, seconds, with_capture=True):
    work = tempfile.mkdtemp(prefix="mqtt-bench-")
    broker = Broker(work)
    site = sub = s = None
    try:
        print(f"\n(load average before: {load()})", flush=True)
        broker.start()
        sub = Subscriber(work, broker, f"{PREFIX}/+/event")
        site = Site(bindir, n, mqtt_config(broker))
        site.start()
        capture = os.path.join(work, "sim.pcap")
        s = sim(bindir, site.port, "--count", str(n), "--flat-out", "--duration-s", str(seconds + 12),
                *(["--pcap", capture] if with_capture else []))
        wait_for(lambda: site.get("/controllers").json()["connected"] >= n, 120, f"{n} controllers")
        time.sleep(2)  # past the connect burst
        t0, c0, j0 = time.monotonic(), cpu_seconds(site.proc.pid), site.metric("zanthd_journal_last_id")
        p0 = site.metric("zanthd_mqtt_published_total")
        m0 = cpu_seconds(broker.proc.pid)
        time.sleep(seconds)
        t1, c1, j1 = time.monotonic(), cpu_seconds(site.proc.pid), site.metric("zanthd_journal_last_id")
        p1 = site.metric("zanthd_mqtt_published_total")
        m1 = cpu_seconds(broker.proc.pid)
        backlog = site.metric("zanthd_mqtt_backlog_records")
        rss = rss_mb(site.proc.pid)
        s.communicate(timeout=120)
        wait_for(lambda: site.metric("zanthd_mqtt_backlog_records") == 0 and site.metric("zanthd_journal_lag_records") == 0,
                 300, "the backlog to drain")
        events_in_journal = {r["id"]: r for r in site.records("event")}
        duplicates = 0
        deadline = time.monotonic() + 120
        while time.monotonic() < deadline:
            duplicates += sub.read()
            if set(events_in_journal) <= set(sub.ids):
                break
            time.sleep(0.2)
        missing = len(set(events_in_journal) - set(sub.ids))
        sent_at = event_times(capture_frames(capture, site.port)) if with_capture else {}
        # The whole road, and its two halves: controller -> journaled (the record's time_ms, taken
        # as zanthd takes the event from the library) and journaled -> subscriber.
        latencies, to_journal, to_subscriber = [], [], []
        for rid, (arrived, record) in sub.ids.items():
            key = (record["mac"].upper()[-8:], record["fields"].get("msg_id"))
            to_subscriber.append(arrived * 1000 - record["time_ms"])
            if key in sent_at:
                latencies.append((arrived - sent_at[key]) * 1000)
                to_journal.append(record["time_ms"] - sent_at[key] * 1000)
        dt = t1 - t0
        print(f"| {n} | {dt:.0f} | {n * 1000 / 47:.0f} | {(j1 - j0) / dt:.0f} | {(p1 - p0) / dt:.0f} |"
              f" {len(events_in_journal)} | {missing} | {duplicates} | {len(latencies)} |"
              f" {quantile(latencies, 0.5):.1f} | {quantile(latencies, 0.99):.1f} | {max(latencies, default=float('nan')):.1f} |"
              f" {quantile(to_journal, 0.5):.1f} / {quantile(to_journal, 0.99):.1f} |"
              f" {quantile(to_subscriber, 0.5):.1f} / {quantile(to_subscriber, 0.99):.1f} |"
              f" {backlog:.0f} | {100 * (c1 - c0) / dt:.0f} | {100 * (m1 - m0) / dt:.0f} | {rss:.0f} |", flush=True)
    finally:
        for thing in (s,):
            if thing and thing.poll() is None:
                thing.kill()
                thing.wait()
        if sub:
            sub.stop()
        if site:
            site.close()
        broker.stop()
        shutil.rmtree(work, ignore_errors=True)


def outage(bindir, n, outage_s):
    work = tempfile.mkdtemp(prefix="mqtt-bench-")
    broker = Broker(work)
    site = sub = s = None
    try:
        print(f"\n(load average before: {load()})", flush=True)
        broker.start()
        sub = Subscriber(work, broker, f"{PREFIX}/+/event")
        site = Site(bindir, n, mqtt_config(broker, "reconnect_max_s = 1\n"))
        site.start()
        s = sim(bindir, site.port, "--count", str(n), "--flat-out", "--duration-s", str(outage_s + 400))
        wait_for(lambda: site.get("/controllers").json()["connected"] >= n, 120, f"{n} controllers")
        time.sleep(5)
        steady = site.metric("zanthd_mqtt_backlog_records")
        broker.stop()
        t_down = time.monotonic()
        time.sleep(outage_s)
        held = site.metric("zanthd_mqtt_backlog_records")
        j_down = site.metric("zanthd_journal_last_id")
        broker.start()
        t_up = time.monotonic()
        p_up = site.metric("zanthd_mqtt_published_total")
        # Drained: the backlog is back under twice the steady state's (what is in flight at the rate).
        threshold = max(2 * steady, n * 0.1, 50)
        wait_for(lambda: site.metric("zanthd_mqtt_backlog_records") <= threshold, 900, "the backlog to drain")
        t_drained = time.monotonic()
        p_drained = site.metric("zanthd_mqtt_published_total")
        j_drained = site.metric("zanthd_journal_last_id")
        s.send_signal(signal.SIGTERM)
        s.communicate(timeout=120)
        wait_for(lambda: site.metric("zanthd_mqtt_backlog_records") == 0 and site.metric("zanthd_journal_lag_records") == 0,
                 300, "the last of the backlog")
        want = {r["id"] for r in site.records("event")}
        deadline = time.monotonic() + 120
        duplicates = 0
        while time.monotonic() < deadline:
            duplicates += sub.read()
            if want <= set(sub.ids):
                break
            time.sleep(0.2)
        drain = t_drained - t_up
        rate = (p_drained - p_up) / drain if drain > 0 else float("nan")
        incoming = (j_drained - j_down) / drain if drain > 0 else float("nan")
        print(f"| {n} | {t_up - t_down:.0f} | {steady:.0f} | {held:.0f} | {drain:.1f} | {rate:.0f} | {incoming:.0f} |"
              f" {len(want)} | {len(want - set(sub.ids))} | {duplicates} | {rss_mb(site.proc.pid):.0f} |", flush=True)
    finally:
        if s and s.poll() is None:
            s.kill()
            s.wait()
        if sub:
            sub.stop()
        if site:
            site.close()
        broker.stop()
        shutil.rmtree(work, ignore_errors=True)


def decisions(bindir, count):
    import paho.mqtt.client as mqtt
    work = tempfile.mkdtemp(prefix="mqtt-bench-")
    broker = Broker(work)
    site = s = None
    decider = mqtt.Client(client_id="bench-decider", clean_session=True)
    try:
        print(f"\n(load average before: {load()})", flush=True)
        broker.start()
        ready = threading.Event()

        def connected(client, userdata, flags, rc):
            client.subscribe(f"{PREFIX}/+/decide", qos=1)

        def subscribed(client, userdata, mid, granted):
            ready.set()

        def decide(client, userdata, m):
            request = json.loads(m.payload)
            client.publish(request["reply_to"], json.dumps({"id": request["id"], "grant": request["card"] == 1001,
                                                            "reason": "bench"}), qos=1)
        decider.on_connect, decider.on_subscribe, decider.on_message = connected, subscribed, decide
        decider.connect("127.0.0.1", broker.port)
        decider.loop_start()
        if not ready.wait(30):
            raise SystemExit("mqtt_bench: the decider did not subscribe")
        doors = "".join(f'[[doors]]\nname = "d{i}"\ncontroller = "00:00:01"\ndoor = {i}\n' for i in range(1, 5))
        site = Site(bindir, 1, mqtt_config(broker) + '[decisions]\nmode = "mqtt"\nmqtt_timeout_ms = 1000\n' + doors)
        site.start()
        capture = os.path.join(work, "sim.pcap")
        s = sim(bindir, site.port, "--count", "1", "--lookup-interval-ms", "400", "--pcap", capture)
        wait_for(lambda: len(site.records("lookup")) >= count, 60 + count, f"{count} look-ups")
        s.send_signal(signal.SIGTERM)
        s.communicate(timeout=30)
        records = site.records("lookup")
        bus = [r["latency_ms"] for r in records if r.get("source") == "mqtt"]
        other = len(records) - len(bus)
        # The whole road: each look-up (1073) leaving the controller, and the next decision (75)
        # reaching it on the same link.
        road, asked = [], {}
        for t, from_controller, stream, text in capture_frames(capture, site.port):
            code = text.split(";", 1)[0]
            if from_controller and code == "1073":
                asked[stream] = t
            elif not from_controller and code == "0075" and stream in asked:
                road.append((t - asked.pop(stream)) * 1000)
        print(f"| zanthd's part: asked on the bus -> answer in -> decision to the library | {len(bus)} |"
              f" {min(bus):.2f} | {quantile(bus, 0.5):.2f} | {quantile(bus, 0.99):.2f} | {max(bus):.2f} | {other} |")
        if road:
            print(f"| whole road: look-up leaves the controller -> decision reaches it | {len(road)} |"
                  f" {min(road):.1f} | {quantile(road, 0.5):.1f} | {quantile(road, 0.99):.1f} | {max(road):.1f} | |")
        else:
            print("| whole road: no look-up and decision pair found in the capture | | | | | | |")
    finally:
        if s and s.poll() is None:
            s.kill()
            s.wait()
        decider.loop_stop()
        if site:
            site.close()
        broker.stop()
        shutil.rmtree(work, ignore_errors=True)


def main():
    p = argparse.ArgumentParser()
    p.add_argument("--bin", default="build/release/bin")
    p.add_argument("--counts", default="100,1000")
    p.add_argument("--seconds", type=int, default=30)
    p.add_argument("--outage-s", type=int, default=60)
    p.add_argument("--outage-controllers", type=int, default=100)
    p.add_argument("--decisions", type=int, default=400)
    p.add_argument("--no-capture", action="store_true",
                   help="no capture by zanth-sim (it costs CPU at 1000 controllers): no controller -> subscriber latency")
    a = p.parse_args()
    if not shutil.which("mosquitto_sub") or not os.path.exists("/usr/sbin/mosquitto"):
        print("mqtt_bench: needs mosquitto and mosquitto-clients (scripts/setup.sh)", file=sys.stderr)
        return 1
    print(f"machine: {os.cpu_count()} cores, {os.uname().release}; zanthd from {a.bin}")
    counts = [int(x) for x in a.counts.split(",") if x]
    if counts:
        print("\n| controllers | s | library ingest model ev/s | journaled ev/s | published (acked) ev/s | events |"
              " missing at subscriber | duplicated | latencies matched | p50 ms | p99 ms | max ms |"
              " controller -> journal p50/p99 ms | journal -> subscriber p50/p99 ms |"
              " backlog at end | zanthd CPU % | mosquitto CPU % | zanthd RSS MB |")
        print("|---:|---:|---:|---:|---:|---:|---:|---:|---:|---:|---:|---:|---:|---:|---:|---:|---:|---:|")
        for n in counts:
            events(a.bin, n, a.seconds, not a.no_capture)
    if a.outage_s:
        print("\n| controllers | outage s | steady backlog | backlog at return | drain s | drain published/s |"
              " journaled/s meanwhile | events | missing at subscriber | duplicated | zanthd RSS MB |")
        print("|---:|---:|---:|---:|---:|---:|---:|---:|---:|---:|---:|")
        outage(a.bin, a.outage_controllers, a.outage_s)
    if a.decisions:
        print("\n| door decision over MQTT | n | min ms | p50 ms | p99 ms | max ms | not decided on the bus |")
        print("|---|---:|---:|---:|---:|---:|---:|")
        decisions(a.bin, a.decisions)
    return 0


if __name__ == "__main__":
    sys.exit(main())
