"""The layout file on the fixture catalog of corner cases: its offsets are the ones C gives the
generated records (record order, reserved bytes, a widened member, a 128-bit field), and the C
check tests/layout_check.py writes from it compiles against the generated headers on each ABI the
compiler has."""

import json
import os
import shutil
import subprocess
import tempfile
import unittest

HERE = os.path.dirname(os.path.abspath(__file__))
ROOT = os.path.join(HERE, "..", "..")
FIXTURE = os.path.join(HERE, "fixtures", "corners.toml")
GENERATE = os.path.join(ROOT, "codegen", "generate.py")
CHECK = os.path.join(ROOT, "tests", "layout_check.py")
P = "p4_pd_corvin_switch_"


class FixtureLayout(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.out = tempfile.mkdtemp()
        subprocess.run(["python3", GENERATE, FIXTURE, cls.out, "--no-figures"], check=True)
        with open(os.path.join(cls.out, "share", "corvin_switch", "layout.json")) as f:
            cls.layout = json.load(f)

    @classmethod
    def tearDownClass(cls):
        shutil.rmtree(cls.out)

    def members(self, record):
        return [(m["name"], m["kind"], m["offset"], m["size"]) for m in self.layout["records"][record]["members"]]

    def test_records_in_record_order_with_reserved_bytes_and_widened_members(self):
        self.assertEqual(self.members(P + "ordered_match_spec_t"), [
            ("meta_port", "field", 0, 4), ("meta_port_mask", "mask", 4, 4), ("reserved1", "reserved", 8, 3),
            ("meta_color", "field", 12, 4), ("hdr_valid", "field", 16, 1), ("hdr_valid_mask", "mask", 17, 1)])
        self.assertEqual(self.layout["records"][P + "ordered_match_spec_t"]["size"], 20)
        self.assertEqual(self.members(P + "wide_match_spec_t")[-2:], [
            ("ip_dst", "field", 2, 16), ("ip_dst_prefix_length", "prefix", 18, 2)])
        self.assertEqual(self.layout["actions"]["metered"]["index"], {"param": "meterIndex", "in_image": False})

    def test_argument_lists_are_the_prototypes(self):
        f = self.layout["functions"][P + "ordered_table_add_with_hit"]
        self.assertEqual(f["args"], [["p4_pd_sess_hdl_t", "sess_hdl"], ["p4_pd_dev_target_t", "dev_tgt"],
                                     [P + "ordered_match_spec_t *", "match_spec"], ["uint32_t", "priority"],
                                     [P + "hit_action_spec_t *", "action_spec"], ["p4_pd_entry_hdl_t *", "entry_hdl"]])
        self.assertNotIn(P + "keyless_table_add_with_miss", self.layout["functions"])
        self.assertIn(P + "bound_add_entry_with_selector", self.layout["functions"])

    def test_the_c_check_compiles_against_the_headers(self):
        src = os.path.join(self.out, "layout_check.c")
        subprocess.run(["python3", CHECK, os.path.join(self.out, "share", "corvin_switch", "layout.json"), src],
                       check=True)
        flags = [[]]
        probe = subprocess.run(["cc", "-m32", "-x", "c", "-fsyntax-only", "-"], input="#include <stdint.h>\n",
                               text=True, capture_output=True)
        if probe.returncode == 0:
            flags.append(["-m32"])
        for extra in flags:
            r = subprocess.run(["cc", "-std=c11", "-Wall", "-Wextra", "-Werror", "-fsyntax-only", *extra,
                                "-I", os.path.join(self.out, "include"), "-I", os.path.join(ROOT, "include"),
                                "-I", os.path.join(ROOT, "platform", "include"), src], capture_output=True, text=True)
            self.assertEqual(r.returncode, 0, r.stderr[:2000])
        # A layout that disagrees with the headers does not compile.
        with open(os.path.join(self.out, "share", "corvin_switch", "layout.json")) as f:
            bad = json.load(f)
        bad["records"][P + "ordered_match_spec_t"]["members"][3]["offset"] = 11
        bad["functions"][P + "ordered_table_add_with_hit"]["args"].pop(3)
        with open(os.path.join(self.out, "bad.json"), "w") as f:
            json.dump(bad, f)
        subprocess.run(["python3", CHECK, os.path.join(self.out, "bad.json"), src], check=True)
        r = subprocess.run(["cc", "-std=c11", "-fsyntax-only", "-I", os.path.join(self.out, "include"),
                            "-I", os.path.join(ROOT, "include"), "-I", os.path.join(ROOT, "platform", "include"), src],
                           capture_output=True, text=True)
        self.assertNotEqual(r.returncode, 0)
        self.assertIn("offset of " + P + "ordered_match_spec_t.meta_color", r.stderr)
        self.assertIn("type of " + P + "ordered_table_add_with_hit", r.stderr)


if __name__ == "__main__":
    unittest.main()
