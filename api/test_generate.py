#!/usr/bin/env python3
"""The generator's --check against a copy of the checkout: it passes on the committed files, and
fails when the header, the annotations or the code list change without regenerating, or when the
annotations say something the inputs can't back. Run by CTest as api.drift."""
import contextlib
import io
import re
import shutil
import sys
import tempfile
import unittest
from pathlib import Path

HERE = Path(__file__).resolve().parent
ROOT = HERE.parent
sys.path.insert(0, str(HERE))
import generate  # noqa: E402

INPUTS = ["include/zanth.h", "api/annotations.toml", "protocol/CodeList.h", "CMakeLists.txt"]


class Checkout:
    """A copy of the generator's inputs and outputs in a temporary folder."""

    def __init__(self):
        self.dir = Path(tempfile.mkdtemp(prefix="zanth-api-"))
        for relative in INPUTS + list(generate.OUTPUTS):
            target = self.dir / relative
            target.parent.mkdir(parents=True, exist_ok=True)
            shutil.copy(ROOT / relative, target)

    def edit(self, relative, old, new):
        path = self.dir / relative
        text = path.read_text()
        if old not in text:
            raise AssertionError(f"{old!r} not in {relative}")
        path.write_text(text.replace(old, new, 1))

    def run(self, *args):
        err = io.StringIO()
        with contextlib.redirect_stderr(err), contextlib.redirect_stdout(io.StringIO()):
            status = generate.main(["--root", str(self.dir), *args])
        return status, err.getvalue()

    def close(self):
        shutil.rmtree(self.dir, ignore_errors=True)


class DriftTest(unittest.TestCase):
    def setUp(self):
        self.copy = Checkout()

    def tearDown(self):
        self.copy.close()

    def test_committed_files_match(self):
        self.assertEqual(self.copy.run("--check"), (0, ""))

    def test_doc_edit_without_regenerating_fails(self):
        self.copy.edit("include/zanth.h", "The controller's description as one text.",
                       "The controller's own description as one text.")
        status, err = self.copy.run("--check")
        self.assertEqual(status, 1)
        for stale in ("api/zanth-api.json", "docs/API.md", "include/zanth_table.hpp"):
            self.assertIn(stale, err)
        # Regenerating brings them back in line.
        self.assertEqual(self.copy.run()[0], 0)
        self.assertEqual(self.copy.run("--check"), (0, ""))

    def test_new_parameter_changes_every_output(self):
        self.copy.edit("include/zanth.h",
                       "ZANTH_API int32_t DriveSavedOutputs(const char* mac, int32_t interface);",
                       "ZANTH_API int32_t DriveSavedOutputs(const char* mac, int32_t interface,"
                       " int32_t delay);")
        status, err = self.copy.run("--check")
        self.assertEqual(status, 1)
        for stale in generate.OUTPUTS:
            self.assertIn(stale, err)

    def test_renamed_code_breaks_the_model(self):
        # The annotations name codes; the numbers come only from the list.
        self.copy.edit("protocol/CodeList.h", "ZANTH_CONTROLLER_INFO_RSP,", "ZANTH_INFO_RSP,")
        status, err = self.copy.run("--check")
        self.assertEqual(status, 2)
        self.assertIn("ControllerInfo: no code ZANTH_CONTROLLER_INFO_RSP", err)

    def test_renumbered_code_reaches_the_outputs(self):
        self.copy.edit("protocol/CodeList.h", "ZANTH_CODE(1079, ZANTH_CONTROLLER_INFO_RSP",
                       "ZANTH_CODE(1179, ZANTH_CONTROLLER_INFO_RSP")
        status, err = self.copy.run("--check")
        self.assertEqual(status, 1)
        self.assertIn("include/zanth_table.hpp", err)

    def test_copied_number_is_refused(self):
        self.copy.edit("api/annotations.toml", 'send = "ZANTH_CONTROLLER_INFO"', "send = 79")
        status, err = self.copy.run("--check")
        self.assertEqual(status, 2)
        self.assertIn("code 79 is ZANTH_CONTROLLER_INFO", err)

    def test_new_export_needs_its_annotations(self):
        # A command without its wire codes, and a local export without a category.
        self.copy.edit("include/zanth.h",
                       "ZANTH_API int32_t DriveSavedOutputs(const char* mac, int32_t interface);",
                       "ZANTH_API int32_t DriveSavedOutputs(const char* mac, int32_t interface);\n"
                       "ZANTH_API int32_t BlinkLeds(const char* mac, int32_t count);")
        status, err = self.copy.run("--check")
        self.assertEqual(status, 2)
        self.assertIn("BlinkLeds: a command needs its wire codes", err)
        self.copy.edit("include/zanth.h", "ZANTH_API int32_t BlinkLeds(const char* mac, "
                       "int32_t count);", "ZANTH_API int32_t PurgeCaches(int32_t count);")
        status, err = self.copy.run("--check")
        self.assertEqual(status, 2)
        self.assertIn("PurgeCaches: say its category", err)

    def test_new_section_needs_a_family_id(self):
        self.copy.edit("include/zanth.h", "/* ---- Library reset ---",
                       "/* ---- Library resets ---")
        status, err = self.copy.run("--check")
        self.assertEqual(status, 2)
        self.assertIn('no id for the header\'s section "Library resets"', err)

    def test_reply_output_must_exist(self):
        self.copy.edit("api/annotations.toml",
                       'layout = "result_int"\nouts = ["count"]',
                       'layout = "result_int"\nouts = ["total"]')
        status, err = self.copy.run("--check")
        self.assertEqual(status, 2)
        self.assertIn("writes 'total', which is no output of GetNumberDelRecords", err)


class ModelTest(unittest.TestCase):
    """Facts of the committed model that the generator's inference must get right."""

    @classmethod
    def setUpClass(cls):
        cls.model = generate.build_model(ROOT)
        cls.by_name = {e["name"]: e for e in cls.model["exports"]}

    def test_every_declaration_is_in_the_model(self):
        declared = re.findall(r"ZANTH_API\s+\w+\s+(\w+)\s*\(",
                              (ROOT / "include" / "zanth.h").read_text())
        self.assertEqual(len(declared), 275)
        self.assertEqual([e["name"] for e in self.model["exports"]], declared)

    def test_out_of_step_twins(self):
        pairs = {"CmdOutputFunction2": "RspCmdOutputFunction",
                 "CmdOutputFunction3": "RspCmdOutputFunction2",
                 "GetInputStatus2": "RspGetInputStatus", "GetInputStatus3": "RspGetInputStatus2",
                 "GetCardholderStatus3": "RspGetCardholderStatus"}
        for blocking, rsp in pairs.items():
            self.assertEqual(self.by_name[blocking]["rsp_twin"], rsp)
            self.assertEqual(self.by_name[rsp]["blocking_twin"], blocking)
        for alone in ("CmdOutputFunction", "GetInputStatus", "GetCardholderStatus",
                      "GetCardholderStatus2", "DiscoverInterfaces", "GetData", "SendData"):
            self.assertIsNone(self.by_name[alone]["rsp_twin"], alone)

    def test_every_twin_pair_is_mutual(self):
        for e in self.model["exports"]:
            if e.get("rsp_twin"):
                self.assertEqual(self.by_name[e["rsp_twin"]]["blocking_twin"], e["name"])

    def test_reply_outputs_are_outputs_of_the_blocking_form(self):
        for e in self.model["exports"]:
            target = self.by_name.get(e.get("blocking_twin")) or e
            outputs = {p["name"] for p in target["params"]
                       if p["role"].startswith(("out_", "inout_")) or p["role"] == "mode_dependent"}
            for r in e.get("wire", {}).get("replies", []):
                if e["form"] == "rsp" and not e.get("blocking_twin"):
                    continue
                self.assertLessEqual(set(r["outs"]), outputs, e["name"])

    def test_gateway_sees_only_commands_named_by_mac(self):
        for e in self.model["exports"]:
            if e["category"] == "command":
                self.assertIn("mac", [p["name"] for p in e["params"]], e["name"])

    def test_codes_come_from_the_list(self):
        codes = self.model["codes"]
        for e in self.model["exports"]:
            for c in e.get("wire", {}).get("sends", []) + e.get("wire", {}).get("replies", []):
                if c["source"] == "list":
                    self.assertEqual(codes[c["name"]]["value"], c["value"])

    def test_json_is_deterministic(self):
        self.assertEqual(generate.render_json(self.model),
                         generate.render_json(generate.build_model(ROOT)))


if __name__ == "__main__":
    unittest.main(verbosity=2)
