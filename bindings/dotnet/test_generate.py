#!/usr/bin/env python3
"""The C# generator's --check against a copy of the model and the generated files: it passes on
the committed files, and fails, naming the files, when the model changes without regenerating or
when a generated file is edited by hand. Run by CTest as dotnet.drift_detects."""
import contextlib
import io
import json
import shutil
import sys
import tempfile
import unittest
from pathlib import Path

HERE = Path(__file__).resolve().parent
ROOT = HERE.parent.parent
sys.path.insert(0, str(HERE))
import generate  # noqa: E402

OUTPUTS = ["ZanthNative.g.cs", "ZanthModel.g.cs", "ZanthTypes.g.cs", "ZanthApi.g.cs"]


class Checkout:
    """The model and the generated C# in a temporary folder laid out as the checkout."""

    def __init__(self):
        self.dir = Path(tempfile.mkdtemp(prefix="zanth-dotnet-gen-"))
        for relative in [generate.MODEL] + [f"{generate.OUT_DIR}/{name}" for name in OUTPUTS]:
            target = self.dir / relative
            target.parent.mkdir(parents=True, exist_ok=True)
            shutil.copy(ROOT / relative, target)

    def model(self):
        return json.loads((self.dir / generate.MODEL).read_text())

    def save_model(self, model):
        (self.dir / generate.MODEL).write_text(json.dumps(model, indent=1))

    def run(self, *args):
        err = io.StringIO()
        with contextlib.redirect_stderr(err), contextlib.redirect_stdout(io.StringIO()):
            status = generate.main(["--root", str(self.dir), *args])
        return status, err.getvalue()

    def close(self):
        shutil.rmtree(self.dir, ignore_errors=True)


def export(model, name):
    return next(e for e in model["exports"] if e["name"] == name)


class DriftTest(unittest.TestCase):
    def setUp(self):
        self.copy = Checkout()

    def tearDown(self):
        self.copy.close()

    def test_committed_files_match(self):
        self.assertEqual(self.copy.run("--check"), (0, ""))

    def test_a_bound_changed_in_the_model_is_drift(self):
        model = self.copy.model()
        target = next(p for p in export(model, "CmdOutputFunction3")["params"] if p["name"] == "target")
        target["max"] = 31
        self.copy.save_model(model)
        status, err = self.copy.run("--check")
        self.assertEqual(status, 1)
        self.assertIn("ZanthModel.g.cs", err)
        self.assertNotIn("ZanthNative.g.cs", err)  # a bound changes no declaration
        # Regenerating brings the files in line, and the bound is in the table.
        self.assertEqual(self.copy.run()[0], 0)
        self.assertEqual(self.copy.run("--check"), (0, ""))
        text = (self.copy.dir / generate.OUT_DIR / "ZanthModel.g.cs").read_text()
        self.assertIn('new ParamInfo("target", "int32_t", ParamRole.In, "int32", ParamDir.In, '
                      "new Bounds(min: 0L, max: 31L))", text)

    def test_a_new_parameter_changes_the_declaration_and_the_wrapper(self):
        model = self.copy.model()
        e = export(model, "DriveSavedOutputs")
        e["params"].append({"base": "int32", "ctype": "int32_t", "dir": "in", "max": 10, "min": 0,
                            "name": "delay", "role": "in"})
        e["decl"] = e["decl"].replace(");", ", int32_t delay);")
        self.copy.save_model(model)
        status, err = self.copy.run("--check")
        self.assertEqual(status, 1)
        for name in ("ZanthNative.g.cs", "ZanthModel.g.cs", "ZanthApi.g.cs"):
            self.assertIn(name, err)
        self.copy.run()
        api = (self.copy.dir / generate.OUT_DIR / "ZanthApi.g.cs").read_text()
        self.assertIn("public static int DriveSavedOutputs(string mac, int @interface, int delay)", api)
        self.assertIn("Check.Number(x, 2, delay);", api)

    def test_a_hand_edit_of_a_generated_file_is_drift(self):
        path = self.copy.dir / generate.OUT_DIR / "ZanthApi.g.cs"
        path.write_text(path.read_text().replace("Check.Number(x, 1, target);", "", 1))
        status, err = self.copy.run("--check")
        self.assertEqual(status, 1)
        self.assertIn("ZanthApi.g.cs", err)
        self.assertIn("Run: python3 bindings/dotnet/generate.py", err)

    def test_a_role_without_a_csharp_form_stops_the_generator(self):
        model = self.copy.model()
        export(model, "Terminate")["params"][0]["role"] = "telepathy"
        self.copy.save_model(model)
        status, err = self.copy.run("--check")
        self.assertEqual(status, 2)
        self.assertIn("Terminate.mac: no C# form for role telepathy", err)


if __name__ == "__main__":
    unittest.main()
