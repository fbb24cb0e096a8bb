"""cmake --install puts zanth in bin/ beside zanth-sim, the library in lib/, and the cards CSV's
description in share/doc/zanth; the installed zanth finds its library by itself."""
import os
import subprocess

from conftest import BIN, Site


def test_installed_zanth_finds_its_library(tmp_path):
    build = os.path.dirname(os.path.abspath(BIN))
    prefix = tmp_path / "prefix"
    p = subprocess.run(["cmake", "--install", build, "--prefix", str(prefix)], capture_output=True, text=True,
                       timeout=120)
    assert p.returncode == 0, p.stdout + p.stderr
    assert (prefix / "bin" / "zanth").exists() and (prefix / "bin" / "zanth-sim").exists()
    assert (prefix / "share" / "doc" / "zanth" / "cards-csv.md").exists()
    libraries = [f for f in os.listdir(prefix / "lib") if f.startswith("libzanth.so.")]
    assert libraries, os.listdir(prefix / "lib")

    site = Site(tmp_path / "site")
    r = subprocess.run([str(prefix / "bin" / "zanth"), "--json", "call", "GetDLLVersion"], capture_output=True,
                       text=True, env=site.env(), cwd=site.work, timeout=60)
    assert r.returncode == 0, r.stdout + r.stderr
    assert '"ok":true' in r.stdout
    # Its data folder is the default one, the user's alone.
    assert os.path.exists(os.path.join(site.data, "ZanthMessages.log"))
    assert oct(os.stat(site.data).st_mode & 0o777) == "0o700"
