"""Harness of zanthd's end-to-end tests: each test starts zanth-sim and zanthd on free loopback
ports, in a directory of its own (also the processes' HOME), talks to them over real HTTP, and
always stops them, on failure too. Waits are on conditions with deadlines, never fixed sleeps."""
import os
import re
import signal
import socket
import subprocess
import time

import pytest
import requests

BIN = os.environ.get("ZANTH_TEST_BIN", os.path.join(os.path.dirname(__file__), "../../../build/asan/bin"))
LIB = os.environ.get("ZANTH_TEST_LIB", os.path.join(BIN, "../lib"))
OPERATOR = "op-token-for-tests"
READER = "read-token-for-tests"


def free_port():
    with socket.socket() as s:
        s.bind(("127.0.0.1", 0))
        return s.getsockname()[1]


def sha256(text):
    import hashlib
    return hashlib.sha256(text.encode()).hexdigest()


def wait_for(condition, timeout, what):
    deadline = time.monotonic() + timeout
    last = None
    while time.monotonic() < deadline:
        try:
            last = condition()
            if last:
                return last
        except (requests.RequestException, OSError) as e:
            last = e
        time.sleep(0.05)
    raise AssertionError(f"timed out after {timeout} s waiting for {what} (last: {last!r})")


class Gateway:
    def __init__(self, directory, extra="", doors="", tls=None):
        self.dir = directory
        self.port = free_port()
        self.http_port = free_port()
        self.proc = None
        self.tls = tls
        self.scheme = "https" if tls else "http"
        tls_lines = f'tls_cert = "{tls[0]}"\ntls_key = "{tls[1]}"\n' if tls else ""
        self.config = os.path.join(directory, "zanthd.toml")
        with open(self.config, "w") as f:
            f.write(f"""[gateway]
time_zone = "Europe/Berlin"
[library]
port = {self.port}
controllers = 10
[http]
listen = "127.0.0.1:{self.http_port}"
max_body_bytes = 4096
{tls_lines}{extra}
[[tokens]]
name = "operator"
scope = "operator"
sha256 = "{sha256(OPERATOR)}"
[[tokens]]
name = "viewer"
scope = "read"
sha256 = "{sha256(READER)}"
{doors}""")
        self.log = open(os.path.join(directory, "zanthd.log"), "ab")

    @property
    def url(self):
        return f"{self.scheme}://127.0.0.1:{self.http_port}/api/v1"

    def env(self):
        env = dict(os.environ)
        env.update(HOME=self.dir, XDG_CONFIG_HOME=self.dir, LD_LIBRARY_PATH=LIB)
        return env

    def start(self, wait=True):
        self.proc = subprocess.Popen([os.path.join(BIN, "zanthd"), "--config", self.config],
                                     stdout=self.log, stderr=self.log, env=self.env(), cwd=self.dir)
        if wait:
            wait_for(lambda: self.proc.poll() is None and self.get("/readyz").status_code == 200
                     or self.proc.poll() is not None, 60, "zanthd to be ready")
            assert self.proc.poll() is None, f"zanthd ended with {self.proc.returncode}: {self.log_text()}"
        return self

    def log_text(self):
        with open(os.path.join(self.dir, "zanthd.log"), "rb") as f:
            return f.read().decode(errors="replace")[-4000:]

    def request(self, method, path, token=OPERATOR, **kw):
        headers = kw.pop("headers", {})
        if token:
            headers["Authorization"] = f"Bearer {token}"
        kw.setdefault("timeout", 10)
        if self.tls:
            kw.setdefault("verify", self.tls[0])
        return requests.request(method, self.url + path, headers=headers, **kw)

    def get(self, path, **kw):
        return self.request("GET", path, **kw)

    def call(self, export, args=None, **kw):
        """POST /call/{export} with the arguments as JSON."""
        return self.request("POST", f"/call/{export}", json=args if args is not None else {}, **kw)

    def connected(self, n):
        wait_for(lambda: self.get("/controllers").json()["connected"] == n, 60, f"{n} controllers connected")

    def metric(self, name, **labels):
        """A counter or gauge of /metrics, 0 when absent."""
        text = self.get("/metrics").text
        want = ",".join(f'{k}="{v}"' for k, v in labels.items())
        for line in text.splitlines():
            key, _, value = line.rpartition(" ")
            if key == (f"{name}{{{want}}}" if want else name):
                return float(value)
        return 0.0

    def records(self, kind=None, after=0):
        out = []
        while True:
            params = {"after": after, "limit": 1000}
            if kind:
                params["kind"] = kind
            page = self.get("/events", params=params).json()
            out += page["records"]
            if not page["records"]:
                return out
            after = page["next_after"]

    def lag(self):
        text = self.get("/metrics").text
        return float(re.search(r"^zanthd_journal_lag_records (\S+)$", text, re.M).group(1))

    def stop(self):
        """SIGTERM: must exit 0 within a few seconds."""
        if self.proc and self.proc.poll() is None:
            started = time.monotonic()
            self.proc.send_signal(signal.SIGTERM)
            rc = self.proc.wait(timeout=20)
            took = time.monotonic() - started
            assert rc == 0, f"zanthd exited {rc} on SIGTERM: {self.log_text()}"
            assert took < 10, f"zanthd took {took:.1f} s to stop"
        self.proc = None

    def kill9(self):
        self.proc.send_signal(signal.SIGKILL)
        self.proc.wait(timeout=10)
        self.proc = None

    def cleanup(self):
        if self.proc and self.proc.poll() is None:
            self.proc.kill()
            self.proc.wait()
        self.log.close()


class Sim:
    def __init__(self, directory, port, *args, env=None):
        self.out_path = os.path.join(directory, f"sim-{time.monotonic_ns()}.log")
        self.out = open(self.out_path, "wb")
        self.proc = subprocess.Popen([os.path.join(BIN, "zanth-sim"), "--port", str(port), "--quiet", *args],
                                     stdout=self.out, stderr=subprocess.STDOUT, cwd=directory,
                                     env=dict(os.environ, **(env or {})))

    def stop(self):
        if self.proc.poll() is None:
            self.proc.send_signal(signal.SIGTERM)
        self.proc.wait(timeout=30)
        self.out.close()
        with open(self.out_path) as f:
            return f.read()

    def cleanup(self):
        if self.proc.poll() is None:
            self.proc.kill()
            self.proc.wait()
        if not self.out.closed:
            self.out.close()


def counts(summary, line):
    """{code: n} from zanth-sim's summary line ("acks:", "sent:", "commands:")."""
    m = re.search(rf"^\s*{line}\s*(.*)$", summary, re.M)
    return {int(k): int(v) for k, v in re.findall(r"(\d+)=(\d+)", m.group(1))} if m else {}


class Site:
    """Makes gateways and simulators in one folder, and stops them all, the last made first."""

    def __init__(self, directory):
        self.dir = directory
        self.made = []

    def keep(self, thing):
        self.made.append(thing)
        return thing

    def gateway(self, **kw):
        return self.keep(Gateway(self.dir, **kw))

    def sim(self, port, *args, env=None):
        return self.keep(Sim(self.dir, port, *args, env=env))

    def cleanup(self):
        for thing in reversed(self.made):
            thing.cleanup()


@pytest.fixture
def site(tmp_path):
    """Makes gateways and simulators that are always stopped."""
    made = Site(str(tmp_path))
    yield made
    made.cleanup()
