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


def label(raw, name):
    return next(lab for lab in raw["counter_label"] if lab["table"] == name)


def fragment(raw, name, field):
    return next(f for f in label(raw, name)["fragments"] if f["field"] == field)


class WrongLabels(unittest.TestCase):
    """Counter labels: each wrong row is refused with a message that names it."""

    def assertRejected(self, mutate, words):
        raw = copy.deepcopy(RAW)
        mutate(raw)
        with self.assertRaises(catalog.CatalogError) as e:
            catalog.build(raw)
        self.assertIn(words, str(e.exception))

    def test_every_counted_table_has_one(self):
        c = catalog.build(copy.deepcopy(RAW))
        self.assertEqual(len(c.labels), 26)
        self.assertEqual(set(c.labels), {t.name for t in c.tables if catalog.counted(t)})

    def test_a_table_without_a_direct_counter(self):
        self.assertRejected(lambda r: r["counter_label"].append(
            {"table": "l2Lookup", "fragments": [{"field": "egrMd_dmacOui", "form": "number", "label": "x"}]}),
            "l2Lookup: the table has no direct counter")

    def test_a_table_that_does_not_exist(self):
        self.assertRejected(lambda r: label(r, "arpCount").update(table="arpCounts"), "arpCounts: no such table")

    def test_a_counted_table_without_a_label(self):
        self.assertRejected(lambda r: r["counter_label"].remove(label(r, "trapToCpu")),
                            "no counter label: trapToCpu")

    def test_a_table_labelled_twice(self):
        self.assertRejected(lambda r: r["counter_label"].append(copy.deepcopy(label(r, "arpCount"))),
                            "arpCount given twice")

    def test_an_unknown_form(self):
        self.assertRejected(lambda r: fragment(r, "arpCount", "arpHdr_opcode").update(form="decimal"),
                            "unknown form 'decimal'")

    def test_an_unknown_column(self):
        self.assertRejected(lambda r: fragment(r, "trapToCpu", "egrMd_decapType").update(mask=7),
                            "egrMd_decapType: unknown columns ['mask']")

    def test_a_field_not_in_the_key(self):
        self.assertRejected(lambda r: fragment(r, "arpCount", "arpHdr_opcode").update(field="arpHdr_op"),
                            "arpHdr_op: not a key field")

    def test_fragments_out_of_key_order(self):
        self.assertRejected(lambda r: label(r, "arpCount")["fragments"].reverse(), "ingMd_ingL3Aintf out of key order")

    def test_a_field_labelled_twice(self):
        def mutate(r):
            frags = label(r, "cpuTxCount")["fragments"]
            frags[2] = dict(frags[1])
        self.assertRejected(mutate, "vlanHdr0VlanId has two fragments")

    def test_a_field_without_a_fragment(self):
        self.assertRejected(lambda r: label(r, "trapToCpu")["fragments"].pop(10), "without a fragment: arpHdr_valid")

    def test_a_form_of_the_other_match_kind(self):
        self.assertRejected(lambda r: fragment(r, "tcamRaclBank1", "ingMd_srcPort").update(form="number"),
                            "form number is for exact fields up to 32 bits; this one is ternary, 16 bits")
        self.assertRejected(lambda r: fragment(r, "arpCount", "arpHdr_opcode").update(form="masked"),
                            "form masked is for ternary fields up to 32 bits; this one is exact, 16 bits")

    def test_an_address_form_on_a_field_of_another_width(self):
        self.assertRejected(lambda r: fragment(r, "egressSflowCacheIpv4", "outerIpv4Hdr_dip").update(form="v6_exact"),
                            "form v6_exact is for exact fields of 128 bits; this one is exact, 32 bits")

    def test_a_flag_of_several_bits(self):
        self.assertRejected(lambda r: fragment(r, "trapToCpu", "ingMd_l4Attr").update(form="flag"),
                            "a flag is a field of one bit")

    def test_a_named_value_outside_its_mask(self):
        self.assertRejected(lambda r: fragment(r, "trapToCpu", "egrMd_decapType")["names"].append(
            {"value": 8, "text": "x "}), "value 0x8 has bits outside mask_and")

    def test_names_on_another_form(self):
        self.assertRejected(lambda r: fragment(r, "trapToCpu", "ingMd_l4Attr").update(
            names=[{"value": 1, "text": "x"}]), "names belong to the named form alone")

    def test_a_mac_whose_station_half_is_not_next(self):
        def mutate(r):
            frags = label(r, "l2DmacClassify")["fragments"]
            frags[1]["station"] = "ig_intr_md_ingress_port"
        self.assertRejected(mutate, "the station half must be the key field after the OUI half")

    def test_a_hidden_field_with_a_label(self):
        self.assertRejected(lambda r: fragment(r, "trapToCpu", "arpHdr_valid").update(label="arp"),
                            "a hidden field has no label")

    def test_a_label_that_is_not_text(self):
        self.assertRejected(lambda r: fragment(r, "arpCount", "arpHdr_opcode").update(label="op\n"),
                            "a label of printable characters")


if __name__ == "__main__":
    unittest.main()
