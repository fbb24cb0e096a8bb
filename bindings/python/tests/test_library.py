"""The library's loading and life: found where the docstring says, loaded only when asked,
prototypes from the model, local exports, one Library at a time."""

import ctypes
import os
import shutil
import subprocess
import sys
from pathlib import Path

import pytest

import zanth
from zanth import _loader
from zanth._model import MODEL

from conftest import PACKAGE_ROOT, free_port


def mapped(name):
    return name in Path("/proc/self/maps").read_text()


def test_loaded_only_when_a_library_is_made(sandbox):
    # The package is imported (conftest did) and nothing is loaded, nothing written here.
    assert _loader.loaded() is None and not mapped("libzanth")
    assert not (sandbox / "ZanthMessages.log").exists()
    with zanth.Library() as lib:  # no port: no Initialization, the local exports work
        assert mapped("libzanth")
        assert (sandbox / "ZanthMessages.log").exists()
        assert lib.get_dll_version() == MODEL.version == zanth.__version__
        # Every export got its prototype from the model.
        loaded = _loader.loaded()
        assert len(loaded.functions) == MODEL.export_count == 275
        for e in MODEL.exports.values():
            f = loaded.functions[e.name]
            assert f.restype is ctypes.c_int32 and len(f.argtypes) == len(e.params), e.name


def test_local_exports_through_the_model(sandbox):
    with zanth.Library(valid=["C0:00:01", "c0:00:02"]) as lib:
        assert lib.get_valid_controllers().upper() == "C0:00:01,C0:00:02"
        assert lib.get_connected_controllers() == "" and lib.connected() == []
        lib.debug_level(1, 75)                      # mode 1 sets, mode 0 reads back
        assert lib.debug_level(0) == 75
        lib.debug_level(1, level=50)
        assert lib.debug_level(mode=0) == 50
        lib.recv_wait_time(1, 1234)
        assert lib.recv_wait_time(0) == 1234
        assert lib.event_log_size(0) == 5000       # uint64 written by the library
        assert lib.number_unread_events() == 0
        assert lib.get_log_file_path() == ""        # HOME is the sandbox's: nothing set
        assert lib.get_next_event() is None          # the message file's "nothing"
        assert lib.get_next_lookup() is None         # a queue's "nothing"
        assert lib.get_next_response() is None
        # Too small a buffer is the library's own refusal, raised with its name.
        with pytest.raises(zanth.ZanthError) as caught:
            lib.get_dll_version(size=3)
        assert caught.value.name == "kTooLarge"
        # By name, C or Python.
        assert zanth.call("GetDLLVersion") == zanth.call("get_dll_version") == MODEL.version


def test_one_library_at_a_time_and_wait_connected(sandbox):
    port = free_port()
    lib = zanth.Library(port=port, valid="ALL")
    try:
        with pytest.raises(RuntimeError, match="one Library at a time"):
            zanth.Library()
        with pytest.raises(TimeoutError) as caught:
            lib.wait_connected("C0:00:09", timeout=0.2)
        assert "C0:00:09" in str(caught.value) and f"port {port}" in str(caught.value)
        with pytest.raises(zanth.ZanthError) as caught:
            lib.controller_info("C0:00:09")         # valid (ALL), not connected
        assert caught.value.code == -10003
    finally:
        lib.close()
    lib.close()                                      # a second close does nothing
    assert lib.closed
    # The port is checked against the model before Initialization runs.
    with pytest.raises(ValueError, match="1025 to 65535"):
        zanth.Library(port=80)
    with zanth.Library() as again:                   # the run is free again
        assert again.get_dll_version()


def test_missing_library_is_named(sandbox, monkeypatch):
    monkeypatch.setenv("ZANTH_LIBRARY", str(sandbox / "nowhere" / "libzanth.so"))
    with pytest.raises(OSError, match="nowhere/libzanth.so"):
        zanth.Library()
    assert _loader.loaded() is None


def test_found_beside_the_package(sandbox):
    """Without ZANTH_LIBRARY the copy beside the package is taken."""
    copy = sandbox / "site" / "zanth"
    shutil.copytree(PACKAGE_ROOT / "zanth", copy, ignore=shutil.ignore_patterns("__pycache__"))
    library = Path(os.environ["ZANTH_LIBRARY"]).resolve()
    shutil.copy(library, copy / _loader.LIBRARY_NAMES[0])
    env = {k: v for k, v in os.environ.items() if k not in ("ZANTH_LIBRARY", "PYTHONPATH")}
    script = ("import zanth, zanth._loader as l; zanth.load(); "
              "print(l.loaded().path); print(zanth.call('get_dll_version'))")
    run = subprocess.run([sys.executable, "-c", script], cwd=sandbox, capture_output=True,
                         text=True, timeout=60, env=dict(env, PYTHONPATH=str(copy.parent)))
    assert run.returncode == 0, run.stderr
    path, version = run.stdout.split()
    assert Path(path) == copy / _loader.LIBRARY_NAMES[0] and version == MODEL.version
