"""The generator on a fixture catalog of corner cases: its headers compile as C99 and give the
records the layout the rows say, and its dump names every exception."""

import os
import shutil
import subprocess
import tempfile
import unittest

HERE = os.path.dirname(os.path.abspath(__file__))
ROOT = os.path.join(HERE, "..", "..")
FIXTURE = os.path.join(HERE, "fixtures", "corners.toml")
GENERATE = os.path.join(ROOT, "codegen", "generate.py")

PROBE = r"""
#include <stddef.h>
#include <stdio.h>
#include "corvin_switch/pd.h"
#define AT(t, m) printf(#t "." #m " %u\n", (unsigned)offsetof(t, m))
int main(void) {
  AT(p4_pd_corvin_switch_ordered_match_spec_t, meta_port);
  AT(p4_pd_corvin_switch_ordered_match_spec_t, meta_port_mask);
  AT(p4_pd_corvin_switch_ordered_match_spec_t, meta_color);
  AT(p4_pd_corvin_switch_ordered_match_spec_t, hdr_valid);
  AT(p4_pd_corvin_switch_ordered_match_spec_t, hdr_valid_mask);
  AT(p4_pd_corvin_switch_wide_match_spec_t, ip_dst);
  AT(p4_pd_corvin_switch_wide_match_spec_t, ip_dst_prefix_length);
  printf("wide %u\n", (unsigned)sizeof(p4_pd_corvin_switch_wide_match_spec_t));
  printf("ordered %u\n", (unsigned)sizeof(p4_pd_corvin_switch_ordered_match_spec_t));
  printf("hit %u\n", (unsigned)sizeof(p4_pd_corvin_switch_hit_action_spec_t));
  return 0;
}
"""


class Fixture(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.out = tempfile.mkdtemp()
        subprocess.run(["python3", GENERATE, FIXTURE, cls.out, "--no-figures"], check=True)

    @classmethod
    def tearDownClass(cls):
        shutil.rmtree(cls.out)

    def test_records_have_the_rows_layout_in_c99(self):
        probe = os.path.join(self.out, "probe.c")
        with open(probe, "w") as f:
            f.write(PROBE)
        exe = os.path.join(self.out, "probe")
        subprocess.run(["cc", "-std=c99", "-Wall", "-Werror", "-I", os.path.join(self.out, "include"),
                        "-I", os.path.join(ROOT, "include"), "-I", os.path.join(ROOT, "platform", "include"),
                        probe, "-o", exe], check=True)
        got = dict(line.rsplit(" ", 1) for line in subprocess.run([exe], capture_output=True, text=True,
                                                                   check=True).stdout.splitlines())
        t = "p4_pd_corvin_switch_ordered_match_spec_t."
        self.assertEqual(got[t + "meta_port"], "0")         # record order, not key order
        self.assertEqual(got[t + "meta_port_mask"], "4")
        self.assertEqual(got[t + "meta_color"], "12")       # 3 reserved bytes, then a 32-bit member
        self.assertEqual(got[t + "hdr_valid"], "16")
        self.assertEqual(got[t + "hdr_valid_mask"], "17")
        self.assertEqual(got["p4_pd_corvin_switch_wide_match_spec_t.ip_dst"], "2")
        self.assertEqual(got["p4_pd_corvin_switch_wide_match_spec_t.ip_dst_prefix_length"], "18")
        self.assertEqual(got["wide"], "20")
        self.assertEqual(got["hit"], "8")

    def test_exports_follow_the_naming_rules(self):
        with open(os.path.join(self.out, "include", "corvin_switch", "pd_tables.h")) as f:
            h = f.read()
        self.assertIn("p4_pd_corvin_switch_ordered_hdr_width(void)", h)   # `_valid` dropped
        self.assertNotIn("ordered_hdr_valid_width", h)
        self.assertIn("p4_pd_corvin_switch_keyless_set_default_action_miss(", h)
        self.assertNotIn("keyless_table_add", h)
        self.assertNotIn("keyless_table_delete", h)
        self.assertNotIn("wide_table_add_with_hit(p4_pd_sess_hdl_t sess_hdl, p4_pd_dev_target_t dev_tgt, "
                         "p4_pd_corvin_switch_wide_match_spec_t *match_spec, uint32_t priority", h)
        self.assertIn("p4_pd_corvin_switch_ordered_table_add_with_hit(p4_pd_sess_hdl_t sess_hdl, "
                      "p4_pd_dev_target_t dev_tgt, p4_pd_corvin_switch_ordered_match_spec_t *match_spec, "
                      "uint32_t priority, p4_pd_corvin_switch_hit_action_spec_t *action_spec, "
                      "p4_pd_entry_hdl_t *entry_hdl)", h)

    def test_descriptors_carry_the_exceptions(self):
        with open(os.path.join(self.out, "src", "catalog_desc.h")) as f:
            d = f.read()
        self.assertIn(".match = Match::exact, .partition = true, .image_off = 0,", d)  # the partition field
        self.assertIn("a_metered = {.number = 2, .data_bits = 32, .data_bytes = 4, "
                      ".record_size = sizeof(p4_pd_corvin_switch_metered_action_spec_t), .nparams = 1, "
                      ".params = p_metered, .index_param = 0, .index_in_image = false, "
                      ".index_resource = 0x5000001}", d)           # index-bearing, image zero
        self.assertIn("u_ordered__miss = {.handle = 0x20000007, .action = &a_miss, .tag = 2, .default_tag = 2}", d)
        self.assertIn("prof_prof = {.adt_handle = 0x2000010, .sel_handle = 0x3000001, .index = 0, "
                      ".nmembers = 2, .members = pm_prof}", d)

    def test_profile_families_follow_the_naming_rules(self):
        with open(os.path.join(self.out, "include", "corvin_switch", "pd_profiles.h")) as f:
            h = f.read()
        p = "p4_pd_corvin_switch_"
        self.assertIn(p + "prof_add_member_with_hit(p4_pd_sess_hdl_t sess_hdl, p4_pd_dev_target_t dev_tgt, "
                      + p + "hit_action_spec_t *action_spec, p4_pd_mbr_hdl_t *mbr_hdl)", h)
        self.assertIn(p + "prof_add_member_with_miss(p4_pd_sess_hdl_t sess_hdl, p4_pd_dev_target_t dev_tgt, "
                      "p4_pd_mbr_hdl_t *mbr_hdl)", h)      # no record for an action without parameters
        self.assertIn(p + "bound_add_entry_with_selector(p4_pd_sess_hdl_t sess_hdl, p4_pd_dev_target_t dev_tgt, "
                      + p + "bound_match_spec_t *match_spec, uint32_t priority, p4_pd_grp_hdl_t grp_hdl, "
                      "p4_pd_entry_hdl_t *entry_hdl)", h)  # a ternary table's priority
        self.assertIn(p + "bound_set_default_entry(p4_pd_sess_hdl_t sess_hdl, p4_pd_dev_target_t dev_tgt, "
                      "p4_pd_mbr_hdl_t mbr_hdl, p4_pd_entry_hdl_t *entry_hdl)", h)  # no key, no priority
        self.assertIn(p + "prof_sel_track_updates(uint32_t dev_id, p4_pd_sel_tbl_update_cb cb, void *cookie)", h)
        with open(os.path.join(self.out, "include", "corvin_switch", "pd_tables.h")) as f:
            t = f.read()
        self.assertNotIn("bound_table_add_with", t)
        self.assertIn(p + "bound_get_entry(p4_pd_sess_hdl_t sess_hdl, uint32_t dev_id, p4_pd_entry_hdl_t entry_hdl, "
                      "uint8_t read_from_hw, " + p + "bound_match_spec_t *match_spec, uint32_t *priority, "
                      "uint8_t *is_member, uint8_t *is_group, p4_pd_grp_hdl_t *grp_hdl, p4_pd_mbr_hdl_t *mbr_hdl, "
                      "uint8_t *is_default_entry)", t)

    def test_glue_is_spread_over_the_files_asked_for(self):
        out = tempfile.mkdtemp()
        try:
            subprocess.run(["python3", GENERATE, FIXTURE, out, "--no-figures", "--glue-files", "3"], check=True)
            glue = sorted(f for f in os.listdir(os.path.join(out, "src")) if f.startswith("glue_"))
            self.assertEqual(glue, ["glue_0.cpp", "glue_1.cpp", "glue_2.cpp"])
            bodies = []
            for g in glue:
                with open(os.path.join(out, "src", g)) as f:
                    bodies.append(f.read())
            # Each export once, in one file: the subjects spread, none is split.
            for name in ("wide_table_add_with_hit(", "prof_del_group(", "bound_add_entry("):
                self.assertEqual(sum(b.count(name) for b in bodies), 1, name)
        finally:
            shutil.rmtree(out)

    def test_dump_names_the_exceptions(self):
        out = subprocess.run(["python3", GENERATE, FIXTURE, "--no-figures", "--dump", "ordered"],
                             capture_output=True, text=True, check=True).stdout
        self.assertIn("member reserved uint8_t reserved1[3]", out)
        self.assertIn("member field    uint32_t meta_color", out)


if __name__ == "__main__":
    unittest.main()
