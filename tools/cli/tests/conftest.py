"""Harness of zanth's tests: each test runs the command line as a user would, in a folder of its
own (its HOME, XDG_CONFIG_HOME and XDG_STATE_HOME inside it), against zanth-sim processes that
it starts on free loopback ports and always stops, on failure too. Waits have deadlines, never
fixed sleeps."""
import hashlib
import json
import os
import re
import signal
import socket
import subprocess
import threading
import time

import pytest

BIN = os.environ.get("ZANTH_TEST_BIN", os.path.join(os.path.dirname(__file__), "../../../build/asan/bin"))
MODEL = os.environ.get("ZANTH_API_MODEL",
                       os.path.join(os.path.dirname(__file__), "../../../api/zanth-api.json"))
ZANTH = os.path.join(BIN, "zanth")


def free_port():
    with socket.socket() as s:
        s.bind(("127.0.0.1", 0))
        return s.getsockname()[1]


def wait_for(condition, timeout, what):
    deadline = time.monotonic() + timeout
    last = None
    while time.monotonic() < deadline:
        last = condition()
        if last:
            return last
        time.sleep(0.05)
    raise AssertionError(f"timed out after {timeout} s waiting for {what} (last: {last!r})")


def model():
    with open(MODEL) as f:
        return json.load(f)


class Run:
    def __init__(self, args, proc_result):
        self.args = args
        self.rc = proc_result.returncode
        self.out = proc_result.stdout
        self.err = proc_result.stderr

    def json(self):
        """Every stdout line as a JSON object (each must parse)."""
        return [json.loads(line) for line in self.out.splitlines() if line.strip()]

    def __repr__(self):
        return f"zanth {' '.join(self.args)} -> {self.rc}\n--- stdout\n{self.out}\n--- stderr\n{self.err}"


class Site:
    """A test's folder: where zanth runs (work/), its HOME, its state folder (so its default data
    folder is state/zanth), and the simulators it started."""

    def __init__(self, root):
        self.root = str(root)
        self.work = os.path.join(self.root, "work")
        self.home = os.path.join(self.root, "home")
        self.state = os.path.join(self.root, "state")
        self.data = os.path.join(self.state, "zanth")
        for d in (self.work, self.home, os.path.join(self.home, ".config")):
            os.makedirs(d, exist_ok=True)
        self.sims = []
        self.procs = []
        self.gateways = []

    def env(self, extra=None):
        env = dict(os.environ)
        env.update(HOME=self.home, XDG_CONFIG_HOME=os.path.join(self.home, ".config"),
                   XDG_STATE_HOME=self.state)
        env.pop("ZANTH_LIBRARY", None)
        env.update(extra or {})
        return env

    def path(self, *parts):
        return os.path.join(self.work, *parts)

    def zanth(self, *args, timeout=150, env=None, cwd=None):
        p = subprocess.run([ZANTH, *args], capture_output=True, text=True, timeout=timeout,
                           env=self.env(env), cwd=cwd or self.work)
        return Run(list(args), p)

    def start(self, *args, env=None):
        """zanth in the background; its stdout and stderr are read line by line into .out_lines
        and .lines. finish() waits for its end."""
        proc = subprocess.Popen([ZANTH, *args], stdout=subprocess.PIPE, stderr=subprocess.PIPE,
                                text=True, env=self.env(env), cwd=self.work)
        proc.lines, proc.out_lines = [], []
        proc.readers = [threading.Thread(target=lambda f=f, to=to: to.extend(iter(f.readline, "")), daemon=True)
                        for f, to in ((proc.stderr, proc.lines), (proc.stdout, proc.out_lines))]
        for t in proc.readers:
            t.start()
        self.procs.append(proc)
        return proc

    @staticmethod
    def finish(proc, timeout):
        """Waits for a background zanth to end: its exit status, stdout and stderr."""
        proc.wait(timeout=timeout)
        for t in proc.readers:
            t.join(timeout=10)
        return proc.returncode, "".join(proc.out_lines), "".join(proc.lines)

    def sim(self, *args, port=None, listen=None):
        s = Sim(self.root, port=port, listen=listen, args=args)
        self.sims.append(s)
        return s

    def gateway(self, **kw):
        """zanthd on free loopback ports, in a folder of its own; start() it."""
        g = Gateway(os.path.join(self.root, f"gateway-{len(self.gateways)}"), **kw)
        self.gateways.append(g)
        return g

    def cleanup(self):
        for p in self.procs:
            if p.poll() is None:
                p.kill()
                p.wait()
        for s in self.sims:
            s.cleanup()
        for g in self.gateways:
            g.cleanup()


class Sim:
    """zanth-sim: controllers that connect to `port` (or listen on `listen`, `listen`+1, ...)."""

    def __init__(self, directory, port=None, listen=None, args=()):
        self.port = port or free_port()
        self.log_path = os.path.join(directory, f"sim-{time.monotonic_ns()}.log")
        self.log = open(self.log_path, "wb")
        where = ["--listen", str(listen)] if listen else ["--host", "127.0.0.1", "--port", str(self.port)]
        self.proc = subprocess.Popen([os.path.join(BIN, "zanth-sim"), *where, "--quiet", *args],
                                     stdout=self.log, stderr=subprocess.STDOUT, cwd=directory)
        self.summary = None

    def stop(self):
        """SIGTERM, and the summary it prints."""
        if self.proc.poll() is None:
            self.proc.send_signal(signal.SIGTERM)
        self.proc.wait(timeout=30)
        self.log.close()
        with open(self.log_path) as f:
            self.summary = f.read()
        return self.summary

    def commands(self):
        """{code: count} of the commands the controllers received, from the summary."""
        text = self.summary if self.summary is not None else self.stop()
        m = re.search(r"^\s*commands:\s*(.*)$", text, re.M)
        return {int(k): int(v) for k, v in re.findall(r"(\d+)=(\d+)", m.group(1))} if m else {}

    def cleanup(self):
        if self.proc.poll() is None:
            self.proc.kill()
            self.proc.wait()
        if not self.log.closed:
            self.log.close()


OPERATOR = "operator-token-of-the-tests"
READER = "read-only-token-of-the-tests"


class Gateway:
    """zanthd with an operator and a read-only token, its controllers' port and its API on free
    loopback ports; TLS with `tls=(cert, key)`."""

    def __init__(self, directory, tls=None, extra=""):
        self.dir = directory
        os.makedirs(directory)
        self.port = free_port()       # where the controllers connect
        self.http_port = free_port()
        self.tls = tls
        self.files = os.path.join(directory, "files")
        tls_lines = f'tls_cert = "{tls[0]}"\ntls_key = "{tls[1]}"\n' if tls else ""
        self.config = os.path.join(directory, "zanthd.toml")
        with open(self.config, "w") as f:
            f.write(f"""[library]
port = {self.port}
controllers = 10
[http]
listen = "127.0.0.1:{self.http_port}"
{tls_lines}{extra}
[[tokens]]
name = "operator"
scope = "operator"
sha256 = "{hashlib.sha256(OPERATOR.encode()).hexdigest()}"
[[tokens]]
name = "viewer"
scope = "read"
sha256 = "{hashlib.sha256(READER.encode()).hexdigest()}"
""")
        self.log = open(os.path.join(directory, "zanthd.log"), "ab")
        self.proc = None

    @property
    def url(self):
        return f"{'https' if self.tls else 'http'}://127.0.0.1:{self.http_port}"

    def args(self, token=OPERATOR):
        """zanth's options to work through this gateway."""
        return ["--gateway", self.url] + (["--token", token] if token else [])

    def get(self, path, **params):
        """GET /api/v1/<path> with the operator's token: (status, JSON body)."""
        import requests
        r = requests.get(f"{self.url}/api/v1{path}", params=params, timeout=10,
                         headers={"Authorization": f"Bearer {OPERATOR}"},
                         verify=self.tls[0] if self.tls else True)
        return r.status_code, r.json()

    def records(self, after=0):
        """Every record of the journal after `after`."""
        out = []
        while True:
            status, page = self.get("/events", after=after, limit=1000)
            assert status == 200, page
            out += page["records"]
            if not page["records"]:
                return out
            after = page["next_after"]

    def start(self):
        env = dict(os.environ, HOME=self.dir, XDG_CONFIG_HOME=self.dir)
        self.proc = subprocess.Popen([os.path.join(BIN, "zanthd"), "--config", self.config],
                                     stdout=self.log, stderr=self.log, env=env, cwd=self.dir)

        def ready():
            if self.proc.poll() is not None:
                return "ended"
            try:
                return self.get("/readyz")[0] == 200
            except OSError:
                return False
        assert wait_for(ready, 60, "zanthd to be ready") is True, f"zanthd ended: {self.proc.returncode}"
        return self

    def connected(self, *macs):
        wait_for(lambda: set(macs) <= {c["mac"] for c in self.get("/controllers")[1]["controllers"]
                                        if c["connected"]}, 60, f"{macs} connected to zanthd")

    def stop(self):
        """SIGTERM, and the wait for its end."""
        if self.proc and self.proc.poll() is None:
            self.proc.send_signal(signal.SIGTERM)
            assert self.proc.wait(timeout=30) == 0
        self.proc = None

    def cleanup(self):
        if self.proc and self.proc.poll() is None:
            self.proc.kill()
            self.proc.wait()
        self.log.close()


@pytest.fixture
def site(tmp_path):
    s = Site(tmp_path)
    yield s
    s.cleanup()


def card_line(n, generation=3, card_set=7, access_type=1, group2=2):
    """A valid CSV line for record n of the given generation (24, 25 or 26 fields)."""
    fields = [card_set, 0, 1000 + n, f"{n % 10000:04d}", access_type, n, 1, group2, 0, 0, 0, 0, 0, 8,
              1, 0, 1, "2012/01/02", 0, "2037/12/31", "18:00:00", n % 100, 3, 4]
    if generation >= 2:
        fields.append(n % 2)
    if generation >= 3:
        fields.append(n % 300)
    return ",".join(str(f) for f in fields)


def write(path, text):
    with open(path, "w") as f:
        f.write(text)
    return path
