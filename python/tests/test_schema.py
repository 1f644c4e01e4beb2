"""Descriptions of every table and profile, made from the schema texts alone, held against the
layout file, which the generator writes from the catalog by another road: the two must tell the
same program."""

import ctypes
import unittest

import corvin_switch_pd as cs
from corvin_switch_pd import native

from . import support

MEMBER_BYTES = {1: (1, 8), 2: (9, 16), 4: (17, 32), 16: (33, 128)}


class Schemas(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.lib = support.library()
        cls.layout = cls.lib.layout

    def test_probing_the_handle_spaces_finds_every_table_and_profile_and_nothing_else(self):
        tables, profiles = self.lib.probe(exhaustive=True)
        self.assertEqual(len(tables) + len(profiles), 232)
        self.assertEqual({t.name: h for h, t in tables.items()},
                         {n: t["handle"] for n, t in self.layout.tables.items()})
        self.assertEqual({p.name: h for h, p in profiles.items()},
                         {n: p["action_data_table"] for n, p in self.layout.profiles.items()})
        # The ranges of the layout file's groups find the same (what load() probes).
        self.assertEqual(list(self.lib.tables), [t.name for _, t in sorted(tables.items())])
        self.assertTrue(all(self.lib.profile(p.name).text == p.text for p in profiles.values()))
        self.assertEqual(self.lib.schema_text(0x1000002), "()")  # a hole in the range
        self.assertEqual(self.lib.schema_text(0x23010003), "()")  # a selector is no table

    def test_match_kinds_read_from_the_columns_are_the_catalogs(self):
        kinds = {}
        for t in self.lib.tables.values():
            self.assertEqual(t.kind, self.layout.tables[t.name]["kind"], t.name)
            self.assertEqual(t.priority, self.layout.tables[t.name]["priority"], t.name)
            kinds[t.kind] = kinds.get(t.kind, 0) + 1
        self.assertEqual(kinds, {"exact": 131, "ternary": 49, "lpm": 30, "keyless": 16})

    def test_every_key_column_is_a_member_of_the_key_record_and_every_member_a_column(self):
        for t in self.lib.tables.values():
            record = self.layout.tables[t.name]["key_record"]
            if not t.key:
                self.assertIsNone(record, t.name)
                continue
            members = {m["name"]: m for m in self.layout.records[record]["members"] if m["kind"] != "reserved"}
            self.assertEqual(sorted(members), sorted(c.field for c in t.columns), t.name)
            for c in t.columns:
                m = members[c.field]
                self.assertEqual(m["kind"], {"value": "field", "mask": "mask", "prefix": "prefix"}[c.role], c.field)
                self.assertEqual(m["of"], t.field(c.of).field, c.field)
                if c.role == "prefix":
                    self.assertEqual((c.width, m["size"]), (16, 2), c.field)
                else:  # a member may be wider than its field needs, never narrower
                    self.assertLessEqual(c.width, MEMBER_BYTES[m["size"]][1], (t.name, c.field))
                if c.role != "prefix" and c.width <= 32:
                    self.assertEqual(c.slice & ~((1 << c.width) - 1), 0, c.field)

    def test_every_action_pairs_with_its_parameter_record(self):
        seen = {}
        for owner in list(self.lib.tables.values()) + list(self.lib.profiles.values()):
            if getattr(owner, "selector", False):
                continue
            for a in owner.actions.values():
                info = self.layout.actions[a.name]
                seen[a.name] = a
                if not a.params:
                    self.assertIsNone(info["record"], a.name)
                    continue
                members = self.layout.records[info["record"]]["members"]
                self.assertEqual([m["name"] for m in members], [p.member for p in a.params], a.name)
                for p, m in zip(a.params, members):
                    lo, hi = MEMBER_BYTES[m["size"]]
                    self.assertTrue(lo <= p.width <= hi, (a.name, p.name))
        self.assertEqual(len(seen), 375)

    def test_actions_of_tables_and_profiles_are_the_catalogs(self):
        for t in self.lib.tables.values():
            row = self.layout.tables[t.name]
            if t.selector:
                self.assertEqual(sorted(t.actions), ["setGrpHdl", "setMbrHdl"])
                self.assertEqual(t.profile, row["profile"])
                self.assertEqual(self.lib.profile(t.profile).table, t.name)
                continue
            self.assertEqual(sorted(t.actions), sorted(a["name"] for a in row["actions"]), t.name)
        for p in self.lib.profiles.values():
            self.assertEqual(sorted(p.actions), sorted(self.layout.profiles[p.name]["members"]), p.name)
        self.assertEqual(sum(1 for t in self.lib.tables.values() if t.selector), 6)

    def test_hinted_fields_take_their_value_forms(self):
        """Every 'mac' field is half of a pair the client joins; addresses have their widths."""
        for t in self.lib.tables.values():
            paired = {n for p in t.mac_pairs for n in (p.oui, p.station)}
            for f in t.key:
                if f.hint == "mac":
                    self.assertIn(f.name, paired, t.name)
                    self.assertEqual(t.field(f.name).match, t.field(next(
                        p for p in t.mac_pairs if f.name in (p.oui, p.station)).oui).match, t.name)
                self.assertEqual({"v4addr": 32, "v6addr": 128}.get(f.hint, f.width), f.width, (t.name, f.name))
        for owner in list(self.lib.tables.values()) + list(self.lib.profiles.values()):
            for a in owner.actions.values():
                paired = {n for p in cs.schema.mac_pairs([(q.name, q.hint, q.width) for q in a.params])
                          for n in (p.oui, p.station)}
                self.assertEqual(paired, {q.name for q in a.params if q.hint == "mac"}, a.name)

    def test_the_dispatchers_bound_without_the_layout_file_agree_with_it(self):
        sizes = {"uint32_t": 4, "uint8_t": 1, "int": 4, "p4_pd_sess_hdl_t": 4, "p4_pd_entry_hdl_t": 4,
                 "p4_pd_mbr_hdl_t": 4, "p4_pd_status_t": 4, "p4_pd_dev_target_t": 8}
        for name, (ret, args) in native.DISPATCHERS.items():
            spec = self.layout.functions[self.layout.prefix + name]
            want = [ctypes.sizeof(ctypes.c_void_p) if t.endswith("*") else sizes[t] for t, _ in spec["args"]]
            self.assertEqual([ctypes.sizeof(a) for a in args], want, name)
            self.assertEqual(ctypes.sizeof(ret), sizes[spec["ret"]], name)
        self.assertIs(self.lib.native.record_type("p4_pd_dev_target_t"), native.DevTarget)

    def test_a_table_description_reads_as_its_text_says(self):
        t = self.lib.table("l2SmacCheck")
        self.assertEqual([(c.name, c.field, c.role) for c in t.columns], [
            ("smacOui", "outerEthHdr_smacOui", "value"), ("smacOuiMask", "outerEthHdr_smacOui_mask", "mask"),
            ("smacStation", "outerEthHdr_smacStation", "value"),
            ("smacStationMask", "outerEthHdr_smacStation_mask", "mask")])
        self.assertEqual(t.mac_pairs, (cs.MacPair("smac", "smacOui", "smacStation"),))
        self.assertEqual(sorted(t.actions), ["NoAction", "setIllegalSmac"])
        lpm = self.lib.table("ipv4ShortMaskLpm")
        dip = lpm.field("ingIpv4_dip")
        self.assertEqual((dip.name, dip.match, dip.slice, dip.hint, dip.prefix),
                         ("dip", "lpm", 0xfff00000, "v4addr", "dipPrefixLength"))


if __name__ == "__main__":
    unittest.main()
