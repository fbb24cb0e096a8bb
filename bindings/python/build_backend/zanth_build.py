"""The package's build backend (PEP 517 and PEP 660), on the standard library alone.

The package is pure Python plus a data file, so its wheel is a zip file with the package and its
metadata. Building it here rather than through setuptools lets it install offline into any
virtual environment: setuptools before 70.1 needs the separate `wheel` package to build a
wheel, and a fresh Debian 12 venv has setuptools 66 without it, while an isolated build would
fetch both from a registry. With nothing required, `pip install bindings/python` works with or
without --no-build-isolation and --no-index.

The version is the library's, read from the API model in the package. A copy of the library
(libzanth.so, zanth.dll) put beside the package before the build is installed with it; the
wheel is then tagged for this platform.
"""

import base64
import hashlib
import io
import os
import re
import sysconfig
import tarfile
import zipfile
from pathlib import Path

ROOT = Path(__file__).resolve().parent.parent
PACKAGE = "zanth"
LIBRARIES = ("libzanth.so", "libzanth.so.2", "libzanth.dylib", "zanth.dll")


def _project():
    """The [project] table of pyproject.toml, and the version from the model."""
    text = (ROOT / "pyproject.toml").read_text(encoding="utf-8")
    try:
        import tomllib
        project = tomllib.loads(text)["project"]
    except ImportError:  # Python before 3.11: the few plain keys this file uses
        section = text.split("[project]", 1)[1].split("\n[", 1)[0]
        project = dict(re.findall(r'^([\w-]+)\s*=\s*"([^"]*)"', section, re.M))
    model = (ROOT / PACKAGE / "zanth-api.json").read_text(encoding="utf-8")
    project["version"] = re.search(r'"version":\s*"([^"]+)"', model).group(1)
    return project


def _metadata(project):
    lines = ["Metadata-Version: 2.1", f"Name: {project['name']}",
             f"Version: {project['version']}"]
    if project.get("description"):
        lines.append(f"Summary: {project['description']}")
    if project.get("requires-python"):
        lines.append(f"Requires-Python: {project['requires-python']}")
    readme = ROOT / "README.md"
    if readme.exists():
        lines.append("Description-Content-Type: text/markdown")
        return "\n".join(lines) + "\n\n" + readme.read_text(encoding="utf-8")
    return "\n".join(lines) + "\n"


def _files():
    """The package's files: its modules, the model, and a library put beside them."""
    out = []
    for path in sorted((ROOT / PACKAGE).iterdir()):
        if path.suffix in (".py", ".json", ".typed") or path.name in LIBRARIES:
            out.append(path)
    return out


def _digest(data):
    return "sha256=" + base64.urlsafe_b64encode(hashlib.sha256(data).digest()).rstrip(b"=").decode()


class _Wheel:
    def __init__(self, directory, project, tag):
        self.dist = f"{project['name']}-{project['version']}"
        self.name = f"{self.dist}-{tag}.whl"
        self.path = Path(directory) / self.name
        self.zip = zipfile.ZipFile(self.path, "w", zipfile.ZIP_DEFLATED)
        self.records = []
        self.tag = tag

    def add(self, name, data):
        if isinstance(data, str):
            data = data.encode("utf-8")
        info = zipfile.ZipInfo(name, date_time=(2020, 1, 1, 0, 0, 0))
        info.external_attr = 0o644 << 16
        info.compress_type = zipfile.ZIP_DEFLATED
        self.zip.writestr(info, data)
        self.records.append(f"{name},{_digest(data)},{len(data)}")

    def finish(self, project):
        info = f"{self.dist}.dist-info"
        self.add(f"{info}/METADATA", _metadata(project))
        self.add(f"{info}/WHEEL", "Wheel-Version: 1.0\nGenerator: zanth_build\n"
                                  f"Root-Is-Purelib: {'true' if self.tag.endswith('any') else 'false'}\n"
                                  f"Tag: {self.tag}\n")
        self.add(f"{info}/top_level.txt", PACKAGE + "\n")
        record = f"{info}/RECORD"
        self.zip.writestr(record, "\n".join(self.records + [f"{record},,"]) + "\n")
        self.zip.close()
        return self.name


def _tag(files):
    if any(f.name in LIBRARIES for f in files):
        return "py3-none-" + re.sub(r"[-.]", "_", sysconfig.get_platform())
    return "py3-none-any"


# ---- PEP 517 --------------------------------------------------------------------------------

def get_requires_for_build_wheel(config_settings=None):
    return []


def get_requires_for_build_sdist(config_settings=None):
    return []


def get_requires_for_build_editable(config_settings=None):
    return []


def build_wheel(wheel_directory, config_settings=None, metadata_directory=None):
    project = _project()
    files = _files()
    wheel = _Wheel(wheel_directory, project, _tag(files))
    for path in files:
        wheel.add(f"{PACKAGE}/{path.name}", path.read_bytes())
    return wheel.finish(project)


def build_editable(wheel_directory, config_settings=None, metadata_directory=None):
    """A wheel that points at this folder (a .pth file): edits take effect without a new
    install."""
    project = _project()
    wheel = _Wheel(wheel_directory, project, "py3-none-any")
    wheel.add(f"__editable__.{PACKAGE}.pth", str(ROOT) + "\n")
    return wheel.finish(project)


def build_sdist(sdist_directory, config_settings=None):
    project = _project()
    base = f"{project['name']}-{project['version']}"
    name = f"{base}.tar.gz"
    members = [ROOT / "pyproject.toml", Path(__file__)] + [
        p for p in _files() if p.name not in LIBRARIES]
    if (ROOT / "README.md").exists():
        members.append(ROOT / "README.md")
    with tarfile.open(os.path.join(sdist_directory, name), "w:gz", format=tarfile.PAX_FORMAT) as tar:
        for path in members:
            data = path.read_bytes()
            info = tarfile.TarInfo(f"{base}/{path.relative_to(ROOT).as_posix()}")
            info.size = len(data)
            info.mode = 0o644
            tar.addfile(info, io.BytesIO(data))
        pkg_info = _metadata(project).encode("utf-8")
        info = tarfile.TarInfo(f"{base}/PKG-INFO")
        info.size = len(pkg_info)
        info.mode = 0o644
        tar.addfile(info, io.BytesIO(pkg_info))
    return name
