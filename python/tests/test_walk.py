"""A device walked by handle: every table by its match-table handle and every profile by its action
data handle, through the dispatchers, entries read through their value texts."""

import corvin_switch_pd as cs
from corvin_switch_pd.client import Library
from corvin_switch_pd.native import Native

from . import support


class Walks(support.DeviceTest):
    def populate(self):
        d = self.dev
        made = {}
        made["l2Lookup"] = [d.add("l2Lookup", "l2LookupKnownUcast", key={"dmac": "00:00:00:00:00:%02x" % i,
                                                                         "egrL2Domain": i}, params={"egrL2Aintf": i})
                            for i in range(3)]
        made["l2SmacCheck"] = [d.add("l2SmacCheck", "setIllegalSmac", key={"smacOui": i}, priority=100 - i)
                               for i in range(2)]
        made["vxlanArp"] = [d.set_default("vxlanArp", "cancelVxlanDecap")]
        made["l2Lookup"].insert(0, d.set_default("l2Lookup", "onMiss"))
        p = "ecmpMemberActionProfile"
        members = [d.add_member(p, "setEcmpNextHop", {"nextHopTable": 1, "nextHop": i}) for i in range(2)]
        group = d.create_group(p, 2)
        d.add_to_group(p, group, members[1])
        made["ecmpGroup"] = [d.add("ecmpGroup", key={"nextHop": 1}, member=members[0]),
                             d.add("ecmpGroup", key={"nextHop": 2}, group=group)]
        made[p] = members
        return made

    def test_an_empty_device_walks_as_nothing(self):
        self.assertEqual(self.dev.walk(), {})

    def test_a_walk_finds_exactly_what_was_written_in_handle_order(self):
        made = self.populate()
        walked = self.dev.walk()
        tables = [t for t in self.lib.tables if t in made]
        self.assertEqual(list(walked), tables + ["ecmpMemberActionProfile"])
        self.assertEqual({n: [x.handle for x in v] for n, v in walked.items()}, made)
        l2 = walked["l2Lookup"]
        self.assertEqual([(e.default, e.action) for e in l2], [(True, "onMiss")] + [(False, "l2LookupKnownUcast")] * 3)
        self.assertEqual([e.params["egrL2Aintf"] for e in l2[1:]], [0, 1, 2])
        self.assertEqual([e.priority for e in walked["l2SmacCheck"]], [100, 99])
        self.assertEqual([(e.member, e.group) for e in walked["ecmpGroup"]],
                         [(made["ecmpMemberActionProfile"][0], None), (None, walked["ecmpGroup"][1].group)])
        self.assertEqual([m.params["nextHop"] for m in walked["ecmpMemberActionProfile"]], [0, 1])
        # Each entry of the walk is the one read by its handle.
        for name, held in walked.items():
            if name in self.lib.tables:
                for e in held:
                    again = self.dev.default_entry(name) if e.default else self.dev.get(name, handle=e.handle)
                    self.assertEqual(e, again)

        self.dev.delete("l2Lookup", handle=made["l2Lookup"][2])
        self.dev.reset_default("vxlanArp")
        walked = self.dev.walk()
        self.assertNotIn("vxlanArp", walked)
        self.assertEqual([e.handle for e in walked["l2Lookup"]], [made["l2Lookup"][i] for i in (0, 1, 3)])

    def test_walks_page_through_many_handles(self):
        hs = [self.dev.add("ipv4Host", "setNextHop", key={"vrfId": 1, "dip": "10.0.0.%d" % i},
                           params={"nextHop": i}) for i in range(11)]
        for batch in (1, 3, 11, 64):
            self.assertEqual(self.dev.handles("ipv4Host", batch=batch), hs)
        self.assertEqual(self.dev.count("ipv4Host"), 11)
        ms = [self.dev.add_member("lagPortActionProfile", "setLagPort", {"egrL2AintfPort": i})
              for i in range(5)]
        self.assertEqual(self.dev.member_handles("lagPortActionProfile", batch=2), ms)

    def test_a_device_reads_by_name_with_the_library_alone(self):
        """Without the layout file: tables and profiles by probing the handle spaces, entries and
        default entries by their texts; a profile is named by its handle."""
        made = self.populate()
        bare = Library(Native(self.lib.native.library_path, [], None), start=False)
        self.assertEqual(list(bare.tables), list(self.lib.tables))
        self.assertEqual(sorted(p.handle for p in bare.profiles.values()),
                         sorted(p.handle for p in self.lib.profiles.values()))
        self.assertIn("profile_0x%x" % self.lib.profile("ecmpMemberActionProfile").handle, bare.profiles)
        dev = bare.device(0, session=1)
        for name in ("l2Lookup", "l2SmacCheck", "ecmpGroup"):
            self.assertEqual(dev.entries(name), self.dev.entries(name))
        self.assertEqual(dev.default_entry("vxlanArp"), self.dev.default_entry("vxlanArp"))
        self.assertEqual(dev.member_handles("profile_0x%x" % self.lib.profile("ecmpMemberActionProfile").handle),
                         made["ecmpMemberActionProfile"])
        with self.assertRaises(cs.LoadError):
            dev.add("l2Lookup", "onMiss", key={"dmac": 1, "egrL2Domain": 1})
