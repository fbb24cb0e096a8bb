"""The package installs offline into a virtual environment, exactly as the README says, and the
installed copy runs against a simulated controller."""

import os
import subprocess
import sys
import textwrap

from conftest import PACKAGE_ROOT, SIM, free_port

PROGRAM = textwrap.dedent("""
    import subprocess, sys
    import zanth
    assert zanth.__file__.startswith(sys.prefix), zanth.__file__   # the installed copy
    port, sim = int(sys.argv[1]), sys.argv[2]
    with zanth.Library(port=port, valid=["C0:00:21"]) as lib:
        controller = subprocess.Popen([sim, "--host", "127.0.0.1", "--port", str(port),
                                       "--mac-base", "C0:00:21", "--quiet", "--duration-s", "120"],
                                      stdout=subprocess.DEVNULL)
        try:
            lib.wait_connected("C0:00:21", timeout=20)
            print(lib.controller_info("C0:00:21"))
            print(lib.get_time_date("C0:00:21").date)
        finally:
            controller.terminate()
            controller.wait(10)
""")


def test_offline_install_into_a_venv(sandbox):
    venv = sandbox / ".venv"
    # Debian's Python, which carries venv and pip (the Python first on PATH may be another).
    python = "/usr/bin/python3" if os.path.exists("/usr/bin/python3") else sys.executable
    env = {k: v for k, v in os.environ.items() if k not in ("PYTHONPATH", "PIP_FIND_LINKS")}
    subprocess.run([python, "-m", "venv", str(venv)], check=True, timeout=120, env=env)
    pip = subprocess.run([str(venv / "bin" / "pip"), "install", "--no-index",
                          "--no-build-isolation", str(PACKAGE_ROOT)],
                         capture_output=True, text=True, timeout=300, env=env)
    assert pip.returncode == 0, pip.stdout + pip.stderr
    assert "Successfully installed zanth" in pip.stdout
    # The source folder is left as it was: no build folders, no metadata.
    leftovers = {p.name for p in PACKAGE_ROOT.iterdir()} & {"build", "zanth.egg-info", "dist"}
    assert not leftovers
    (sandbox / "run.py").write_text(PROGRAM)
    work = sandbox / "work"
    work.mkdir()
    run = subprocess.run([str(venv / "bin" / "python"), str(sandbox / "run.py"),
                          str(free_port()), str(SIM)],
                         cwd=work, capture_output=True, text=True, timeout=120, env=env)
    assert run.returncode == 0, run.stdout + run.stderr
    info, date = run.stdout.splitlines()
    assert "C0:00:21" in info and date.count("/") == 2
    assert (work / "ZanthMessages.log").exists()                # the library's files: its cwd
