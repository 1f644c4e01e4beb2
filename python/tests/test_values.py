"""The value forms a user types, and the one clear exception each wrong request raises before
anything reaches the driver."""

import ipaddress

import corvin_switch_pd as cs

from . import support

MAC = "00:11:22:33:44:55"


class Forms(support.DeviceTest):
    def test_a_mac_address_fills_its_oui_and_station_fields(self):
        h = self.dev.add("l2Lookup", "l2LookupKnownUcast", key={"dmac": MAC, "egrL2Domain": "0x123"},
                         params={"egrL2Aintf": "7"})
        e = self.dev.get("l2Lookup", handle=h)
        self.assertEqual(e.key, {"dmacOui": 0x001122, "dmacStation": 0x334455, "egrL2Domain": 0x123})
        self.assertIn("dmac=" + MAC, str(e))
        # The halves by their own names, as numbers or as three octets, name the same entry.
        self.assertEqual(self.dev.find("l2Lookup", {"dmacOui": "00:11:22", "egrMd_dmacStation": 0x334455,
                                                    "egrL2Domain": 291}), h)

    def test_a_ternary_mac_address_takes_a_mask_for_both_halves(self):
        h = self.dev.add("l2SmacCheck", "setIllegalSmac", key={"smac": "00:11:22:33:44:55&&&ff:ff:ff:00:00:00"},
                         priority=7)
        e = self.dev.get("l2SmacCheck", handle=h)
        self.assertEqual(e.key, {"smacOui": 0x001122, "smacOuiMask": 0xFFFFFF, "smacStation": 0, "smacStationMask": 0})
        self.assertEqual(e.priority, 7)
        self.assertIn("smac=00:11:22:00:00:00&&&ff:ff:ff:00:00:00", str(e))

    def test_ipv4_and_ipv6_addresses_exact_ternary_and_by_prefix(self):
        v4 = int(ipaddress.IPv4Address("10.1.2.3"))
        h = self.dev.add("ipv4Host", "setNextHop", key={"vrfId": 1, "dip": "10.1.2.3"}, params={"nextHop": 9})
        self.assertEqual(self.dev.get("ipv4Host", handle=h).key["dip"], v4)
        h = self.dev.add("ipv6Host", "setNextHop", key={"vrfId": 1, "dip": "2001:db8::1"}, params={"nextHop": 9})
        self.assertEqual(self.dev.get("ipv6Host", handle=h).key["dip"], int(ipaddress.IPv6Address("2001:db8::1")))
        h = self.dev.add("appFilterSipV4", "NoAction", key={"sip": "10.1.0.0&&&255.255.0.0"}, priority=1)
        self.assertEqual(self.dev.get("appFilterSipV4", handle=h).key, {"sip": 0x0A010000, "sipMask": 0xFFFF0000})
        h = self.dev.add("appFilterSipV6", "NoAction", key={"sip": "2001:db8::&&&ffff:ffff::"}, priority=1)
        e = self.dev.get("appFilterSipV6", handle=h)
        self.assertEqual((e.key["sip"] >> 96, e.key["sipMask"] >> 96), (0x20010DB8, 0xFFFFFFFF))
        self.assertIn("sip=2001:db8::&&&ffff:ffff::", str(e))
        h = self.dev.add("ipv6ShortMaskLpm", "setFibMiss", key={"vrfId": 2, "dip": "2001:db8::/32"})
        e = self.dev.get("ipv6ShortMaskLpm", handle=h)
        self.assertEqual((e.key["dip"] >> 96, e.key["dipPrefixLength"]), (0x20010DB8, 32))
        # An address with bits past its prefix is kept cut to the prefix, and found by either form.
        h = self.dev.add("ipv4Host", "onMiss", key={"vrfId": 3, "dip": 0x0A000001})
        h = self.dev.add("ipv4ShortMaskLpm", "setEcmp", key={"vrfId": 1, "dip": "10.9.9.9/8"}, params={"ecmpGroup": 1})
        e = self.dev.get("ipv4ShortMaskLpm", key={"vrfId": 1, "dip": ("10.0.0.0", 8)})
        self.assertEqual((e.handle, e.key["dip"], e.key["dipPrefixLength"]), (h, 0x0A000000, 8))
        self.assertIn("dip=10.0.0.0/8", str(e))

    def test_numbers_in_decimal_hexadecimal_and_binary_texts(self):
        for text in ("291", "0x123", "0X123", "0b100100011", " 0x0123 "):
            h = self.dev.add("l2Lookup", "onMiss", key={"dmac": 1, "egrL2Domain": text})
            self.assertEqual(self.dev.get("l2Lookup", handle=h).key["egrL2Domain"], 0x123, text)
            self.dev.delete("l2Lookup", handle=h)

    def test_a_mac_pair_among_parameters(self):
        t, a = next((t, a) for t in self.lib.tables.values() for a in t.actions.values()
                    if not t.selector and any(q.name == "oui" for q in a.params)
                    and any(x["name"] == a.name and x["default"] for x in self.layout.tables[t.name]["actions"]))
        params = {q.name: 1 for q in a.params if q.name not in ("oui", "station")}
        params["mac"] = MAC
        self.dev.set_default(t.name, a.name, params)
        e = self.dev.default_entry(t.name)
        self.assertEqual((e.params["oui"], e.params["station"]), (0x001122, 0x334455))


class Refusals(support.DeviceTest):
    """Each wrong request raises one exception that says what is wrong, and no driver call is made."""

    def setUp(self):
        super().setUp()
        self.h = self.dev.add("l2Lookup", "l2LookupKnownUcast", key={"dmac": MAC, "egrL2Domain": 1},
                              params={"egrL2Aintf": 2})
        self.before = self.dev.walk()

    def tearDown(self):
        self.assertEqual(self.dev.walk(), self.before)

    def add(self, key=None, params=None, **kw):
        key = {"dmac": MAC, "egrL2Domain": 5} if key is None else key
        return lambda: self.dev.add("l2Lookup", kw.pop("action", "l2LookupKnownUcast"), key=key,
                                    params={"egrL2Aintf": 2} if params is None else params, **kw)

    def test_too_wide_for_the_field(self):
        self.assertUnchanged(self.add({"dmac": MAC, "egrL2Domain": "0x2000"}), cs.ValueTooWide,
                             "egrL2Domain", "13 bits")
        self.assertUnchanged(self.add({"dmac": MAC, "egrL2Domain": "10.0.0.1"}), cs.ValueTooWide, "32 bits")
        self.assertUnchanged(self.add({"dmac": MAC, "egrL2Domain": -1}), cs.ValueTooWide, "negative")
        self.assertUnchanged(self.add(params={"egrL2Aintf": 1 << 21}), cs.ValueTooWide, "egrL2Aintf", "21 bits")
        self.assertUnchanged(self.add({"dmac": "01:00:00:00:00:00:00", "egrL2Domain": 1}), cs.MalformedValue)
        self.assertUnchanged(self.add({"dmacOui": MAC, "dmacStation": 1, "egrL2Domain": 1}), cs.ValueTooWide,
                             "48 bits")
        self.assertUnchanged(lambda: self.dev.add("ipv4ShortMaskLpm", "setEcmp", key={"vrfId": 1, "dip": "10.0.0.0/33"},
                                                  params={"ecmpGroup": 1}), cs.ValueTooWide, "prefix length 33")
        self.assertUnchanged(lambda: self.dev.add("egressMirrorRate", "setEgressMirrorColor", key={"mirrorBufId": 1},
                                                  params={"meterIndex": 0x10000}), cs.ValueTooWide, "16 bits")

    def test_malformed_values(self):
        for key, what in (({"dmac": "00:11:22:33:44", "egrL2Domain": 1}, "MAC address"),
                          ({"dmac": "00:11:22:33:44:zz", "egrL2Domain": 1}, "MAC address"),
                          ({"dmac": MAC, "egrL2Domain": "twelve"}, "not a number"),
                          ({"dmac": MAC, "egrL2Domain": ""}, "empty"),
                          ({"dmac": MAC, "egrL2Domain": True}, "not a number"),
                          ({"dmac": MAC, "egrL2Domain": "5&&&7"}, "for a ternary field"),
                          ({"dmac": MAC, "egrL2Domain": "5/3"}, "for an lpm field"),
                          ({"dmac": MAC, "egrL2Domain": (5, 7)}, "this one is exact")):
            self.assertUnchanged(self.add(key), cs.MalformedValue, what)
        for dip, what in (("10.0.0.256", "not an IPv4 address"), ("10.0.0", "not an IPv4 address"),
                          ("10.0.0.0/8", "for an lpm field")):
            self.assertUnchanged(lambda: self.dev.add("ipv4Host", "onMiss", key={"vrfId": 1, "dip": dip}),
                                 cs.MalformedValue, what)
        for dip, what in (("2001:db8:::1", "not an IPv6 address"), ("10.0.0.1", "with colons"),
                          ("2001:db8::/x", "ADDRESS/LEN")):
            self.assertUnchanged(lambda: self.dev.add("ipv6ShortMaskLpm", "setFibMiss", key={"vrfId": 1, "dip": dip}),
                                 cs.MalformedValue, what)
        self.assertUnchanged(lambda: self.dev.add("l2SmacCheck", "NoAction", key={"smac": MAC + "&&&"}),
                             cs.MalformedValue, "both sides")

    def test_unknown_names_with_the_nearest(self):
        e = self.assertUnchanged(self.add({"dmc": MAC, "egrL2Domain": 1}), cs.UnknownName, "'dmc'", "dmac")
        self.assertIn("dmac", e.nearest)
        e = self.assertUnchanged(self.add(action="l2LookupKnownUcst"), cs.UnknownName, "l2LookupKnownUcast")
        self.assertEqual(e.nearest[0], "l2LookupKnownUcast")
        e = self.assertUnchanged(self.add(params={"egrL2Aint": 2}), cs.UnknownName, "egrL2Aintf")
        e = self.assertUnchanged(lambda: self.dev.add("l2Lookp", "onMiss"), cs.UnknownName, "nearest: l2Lookup")
        self.assertIsInstance(e, KeyError)
        self.assertUnchanged(lambda: self.dev.add_member("ecmpMemberActionProfile", "setEcmpNxtHop"),
                             cs.UnknownName, "setEcmpNextHop")
        self.assertUnchanged(lambda: self.dev.set_default("vxlanArp", "cancelVxlanDecap", {"x": 1}),
                             cs.UnknownName, "has none")

    def test_missing_fields_and_parameters(self):
        self.assertUnchanged(self.add({"dmac": MAC}), cs.MissingField, "egrL2Domain")
        self.assertUnchanged(self.add({"egrL2Domain": 1}), cs.MissingField, "dmacOui, dmacStation", "MAC pairs: dmac")
        self.assertUnchanged(self.add({"dmacOui": 1, "egrL2Domain": 1}), cs.MissingField, "dmacStation")
        self.assertUnchanged(self.add(params={}), cs.MissingField, "egrL2Aintf")
        self.assertUnchanged(lambda: self.dev.add("ipv4ShortMaskLpm", "setEcmp", key={"dip": "10.0.0.0/8"},
                                                  params={"ecmpGroup": 1}), cs.MissingField, "vrfId")
        self.assertUnchanged(lambda: self.dev.add("l2Lookup", key={"dmac": MAC, "egrL2Domain": 1}),
                             cs.MissingField, "which action")
        self.assertUnchanged(lambda: self.dev.add("ecmpGroup", key={"nextHop": 1}), cs.MissingField, "member=")

    def test_requests_the_table_does_not_take(self):
        self.assertUnchanged(self.add({"dmac": MAC, "dmacOui": 1, "egrL2Domain": 1}), cs.BadValue, "given twice")
        self.assertUnchanged(self.add(priority=3), cs.UnsupportedRequest, "no priority")
        self.assertUnchanged(self.add(ttl=3), cs.UnsupportedRequest, "no TTL")
        self.assertUnchanged(self.add(meter={"cir": 1}), cs.UnsupportedRequest, "no meter spec")
        self.assertUnchanged(self.add(member=1), cs.UnsupportedRequest, "member= and group=")
        self.assertUnchanged(lambda: self.dev.add("vxlanArp", "cancelVxlanDecap"), cs.UnsupportedRequest, "keyless")
        self.assertUnchanged(lambda: self.dev.set_default("ingressPortMapping", "setPhase0", {}),
                             cs.UnsupportedRequest, "never a default action")
        self.assertUnchanged(lambda: self.dev.modify("l2Lookup", "onMiss"), cs.MissingField, "handle= or by key=")

    def test_what_the_driver_refuses_is_a_driver_error_and_changes_nothing(self):
        with self.assertRaises(cs.DriverError) as cm:
            self.dev.add("l2Lookup", "onMiss", key={"dmac": MAC, "egrL2Domain": 1})
        self.assertEqual(cm.exception.status, 4)
        self.assertIn("BF_ALREADY_EXISTS", str(cm.exception))
        with self.assertRaises(cs.NoSuchEntry):
            self.dev.get("l2Lookup", key={"dmac": MAC, "egrL2Domain": 2})
        with self.assertRaises(cs.NoSuchEntry):
            self.dev.entry("l2Lookup", self.h + 100)
