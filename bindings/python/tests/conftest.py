"""What the Python package's tests share: a free loopback port, deadline waits, and the zanth-sim
program started by the test and always stopped.

Each test that loads the library runs as a CTest test of its own (bindings/python/CMakeLists.txt)
through sandbox.sh: its own process, working directory, HOME and XDG_CONFIG_HOME. The library
is found through ZANTH_LIBRARY and the simulator in ZANTH_TEST_BIN, both set by CTest.
"""

import ctypes
import os
import signal
import socket
import subprocess
import sys
import time
from pathlib import Path

import pytest

HERE = Path(__file__).resolve().parent
PACKAGE_ROOT = HERE.parent
SOURCE_ROOT = PACKAGE_ROOT.parent.parent
sys.path.insert(0, str(PACKAGE_ROOT))

import zanth  # noqa: E402  (the package from this checkout, never loaded at import)

BIN = Path(os.environ.get("ZANTH_TEST_BIN", SOURCE_ROOT / "build" / "bindings" / "bin"))
SIM = BIN / "zanth-sim"


def free_port():
    with socket.socket() as s:
        s.bind(("127.0.0.1", 0))
        return s.getsockname()[1]


def wait_until(condition, timeout=10.0, every=0.005):
    """Polls `condition` until it holds (returns its value) or `timeout` passes (returns it
    once more)."""
    deadline = time.monotonic() + timeout
    while True:
        value = condition()
        if value or time.monotonic() >= deadline:
            return value
        time.sleep(every)


def _die_with_parent():
    # The simulator ends with the test process, also when CTest kills it at its timeout.
    try:
        ctypes.CDLL(None).prctl(1, signal.SIGTERM)  # PR_SET_PDEATHSIG
    except Exception:
        pass


class Sim:
    """zanth-sim in a process of its own, dialling 127.0.0.1:port; stop() ends it (SIGTERM,
    then SIGKILL)."""

    def __init__(self, port, *args, mac="C0:00:01", count=1):
        if not SIM.exists():
            pytest.fail(f"zanth-sim is not built ({SIM}); build the bindings tree first")
        self.log = Path(f"zanth-sim-{port}.log").resolve()
        command = [str(SIM), "--host", "127.0.0.1", "--port", str(port), "--count", str(count),
                   "--mac-base", mac, "--duration-s", "170", *map(str, args)]
        with open(self.log, "wb") as out:
            self.process = subprocess.Popen(command, stdout=out, stderr=subprocess.STDOUT,
                                            preexec_fn=_die_with_parent)

    def output(self):
        return self.log.read_text(errors="replace") if self.log.exists() else ""

    def stop(self):
        if self.process.poll() is None:
            self.process.terminate()
            try:
                self.process.wait(10)
            except subprocess.TimeoutExpired:
                self.process.kill()
                self.process.wait()


@pytest.fixture
def sandbox():
    """The test's own working directory (sandbox.sh made it): the library's files go there."""
    cwd = Path.cwd()
    assert not cwd.resolve().is_relative_to(SOURCE_ROOT.resolve()), (
        "tests that load the library run in a sandbox of their own: run them through CTest")
    return cwd


@pytest.fixture
def site(sandbox):
    """A factory: site(mac, *sim_args, **library_options) starts a Library on a free port with
    one simulated controller `mac` connected to it. Everything it started is stopped at the end,
    also when the test fails."""
    started = []

    def make(mac="C0:00:01", *sim_args, count=1, wait=True, **options):
        port = free_port()
        options.setdefault("valid", [mac] if count == 1 else "ALL")
        lib = zanth.Library(port=port, **options)
        started.append(lib)
        sim = Sim(port, *sim_args, mac=mac, count=count)
        started.append(sim)
        if wait:
            try:
                lib.wait_connected(mac, timeout=20)
            except TimeoutError as e:
                pytest.fail(f"{e}\n{sim.output()}")
        lib.sim = sim
        return lib

    yield make
    for thing in reversed(started):
        try:
            if isinstance(thing, Sim):
                thing.stop()
            else:
                thing.close()
        except Exception as e:  # stop the rest all the same
            print(f"teardown: {e!r}", file=sys.stderr)
