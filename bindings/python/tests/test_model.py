"""The package stands on the API model: its copy is checked against the project's, and every
export is a method with the header's parameters. Nothing is loaded."""

import inspect
import shutil
import subprocess
import sys

import zanth
from zanth._model import MODEL

from conftest import HERE


def test_the_model_check_catches_a_stale_copy(tmp_path):
    """check_model.py (CTest bindings.python.model) fails on a copy that differs, by one byte."""
    tests = tmp_path / "bindings" / "python" / "tests"
    package = tmp_path / "bindings" / "python" / "zanth"
    tests.mkdir(parents=True)
    package.mkdir()
    (tmp_path / "api").mkdir()
    shutil.copy(HERE / "check_model.py", tests)
    model = (HERE.parent / "zanth" / "zanth-api.json").read_bytes()
    (tmp_path / "api" / "zanth-api.json").write_bytes(model)

    def check():
        return subprocess.run([sys.executable, str(tests / "check_model.py")],
                              capture_output=True, text=True, timeout=60)
    (package / "zanth-api.json").write_bytes(model)
    assert check().returncode == 0
    (package / "zanth-api.json").write_bytes(model.replace(b'"min": 1025', b'"min": 1024', 1))
    stale = check()
    assert stale.returncode == 1 and "cp api/zanth-api.json" in stale.stderr
    (package / "zanth-api.json").unlink()
    assert check().returncode == 1


def test_every_export_is_a_method_with_the_headers_parameters():
    assert len(zanth.exports()) == MODEL.export_count == 275
    names = set()
    for e in MODEL.exports.values():
        method = getattr(zanth.Library, e.pyname)
        names.add(e.pyname)
        assert e.decl in method.__doc__
        params = list(inspect.signature(method).parameters)[1:]
        # The inputs in the header's order, then the sizes of output buffers as keywords.
        assert params == [p.pyname for p in e.inputs] + [p.pyname for p in e.sizes], e.name
        assert zanth.find_export(e.name) is e and zanth.find_export(e.pyname) is e
    assert len(names) == 275
    assert zanth.Library.get_dll_version.__name__ == "get_dll_version"
    assert list(inspect.signature(zanth.Library.get_card_record4).parameters)[1:6] == [
        "mac", "card_set_id", "no_format", "card_number", "pin"]
