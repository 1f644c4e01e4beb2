"""The catalog's validation: the real catalog passes, and each kind of wrong row fails the build."""

import copy
import os
import tomllib
import unittest

import catalog

HERE = os.path.dirname(os.path.abspath(__file__))
CATALOG = os.path.join(HERE, "..", "..", "catalog", "corvin_switch.toml")

with open(CATALOG, "rb") as f:
    RAW = tomllib.load(f)


def table(raw, name):
    return next(t for t in raw["table"] if t["name"] == name)


class RealCatalog(unittest.TestCase):
    def test_rows_meet_the_program_figures(self):
        c = catalog.build(copy.deepcopy(RAW))
        catalog.validate_figures(c)
        self.assertEqual(len(c.entry_pairs()), 589)

    def test_key_words_follow_from_the_fields(self):
        c = catalog.build(copy.deepcopy(RAW))
        self.assertEqual(c.table("l2Lookup").key_word, 0x8003D)
        self.assertEqual(c.table("l2LookupMiss").key_word, 0xA0046)
        self.assertEqual(c.table("ipv6ShortMaskLpm").key_word, 0x12008A)
        self.assertEqual(c.table("ipv4FinalResolve0").key_word, 0x60030)

    def test_record_layout_exceptions(self):
        c = catalog.build(copy.deepcopy(RAW))
        members = c.table("ingressMirrorResult").record_members()
        self.assertIn(("field", "ingMirrorMd_mirrorColor", "uint32_t", None), members)
        order = [m[1] for m in c.table("l2LookupMiss").record_members()]
        self.assertEqual(order[0], "egrMd_dmacOui")
        self.assertEqual(order[-1], "ig_intr_md_ingress_port_mask")
        reserved = [m for m in c.table("finalDropControl").record_members() if m[0] == "reserved"]
        self.assertEqual([m[3] for m in reserved], [14, 4, 2, 4])


class WrongRows(unittest.TestCase):
    def assertRejected(self, mutate, figures=False):
        raw = copy.deepcopy(RAW)
        mutate(raw)
        with self.assertRaises(catalog.CatalogError):
            c = catalog.build(raw)
            if figures:
                catalog.validate_figures(c)

    def test_key_word_that_disagrees_with_the_fields(self):
        self.assertRejected(lambda r: table(r, "l2Lookup").update(key_bits=60))

    def test_kind_that_disagrees_with_the_fields(self):
        self.assertRejected(lambda r: table(r, "l2Lookup").update(kind="ternary"))

    def test_priority_on_an_exact_table(self):
        self.assertRejected(lambda r: table(r, "l2Lookup").update(priority=True))

    def test_unknown_action(self):
        self.assertRejected(lambda r: table(r, "l2Lookup")["actions"][0].update(action="noSuchAction"))

    def test_gap_in_the_action_numbers(self):
        self.assertRejected(lambda r: r["action"][10].update(number=999))

    def test_lpm_field_not_last(self):
        self.assertRejected(lambda r: table(r, "ipv4Partition0")["key"].reverse())

    def test_record_order_missing_a_field(self):
        self.assertRejected(lambda r: table(r, "l2LookupMiss")["record_order"].pop())

    def test_partition_field_not_first(self):
        def mutate(r):
            k = table(r, "ipv4FinalResolve0")["key"]
            k[0].pop("partition")
            k[1]["partition"] = True
        self.assertRejected(mutate)

    def test_action_without_a_resource_tag(self):
        self.assertRejected(lambda r: table(r, "ingL3AintfMeter")["bound"].update(tag2=[]))

    def test_handle_outside_its_group(self):
        self.assertRejected(lambda r: table(r, "l2Lookup").update(handle=0x21010003), figures=True)

    def test_handle_of_a_number_no_table_has(self):
        self.assertRejected(lambda r: table(r, "l2Lookup").update(handle=0x1000002), figures=True)

    def test_profile_handle_in_the_other_pipelines_space(self):
        self.assertRejected(lambda r: next(p for p in r["profile"] if p["name"] == "ecmpMemberActionProfile")
                            .update(action_data_table=0x200000e))

    def test_figures_are_the_catalogs_own(self):
        self.assertRejected(lambda r: r["figures"].update(key_fields=637), figures=True)

    def test_snapshot_fields_that_overlap(self):
        self.assertRejected(lambda r: r["snapshot"]["ingress_u16"].insert(1, 4))

    def test_snapshot_field_past_the_record(self):
        self.assertRejected(lambda r: r["snapshot"]["egress_u32"].append(806))

    def test_a_missing_snapshot_field_breaks_the_figures(self):
        self.assertRejected(lambda r: r["snapshot"]["egress_u16"].pop(), figures=True)

    def test_a_missing_entry_action_breaks_the_figures(self):
        self.assertRejected(lambda r: table(r, "l2Lookup")["actions"].pop(0), figures=True)


if __name__ == "__main__":
    unittest.main()
