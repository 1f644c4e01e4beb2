"""Entries written by name and read back through the value texts, in every table.

A random entry goes into every table that takes entries without a profile, its key and parameters
typed in the forms a user types them (numbers, hexadecimal and decimal texts, dotted IPv4, IPv6,
MAC addresses and halves, VALUE&&&MASK, ADDRESS/LEN, or a mask or prefix length by its own name),
and comes back field by field as the device keeps it: a ternary value ANDed with its mask, an lpm
address cut to its prefix, a field of up to 32 bits shown within the table's slice of it."""

import ipaddress
import os
import random

from corvin_switch_pd.schema import mac_pairs

from . import support

SEED = int(os.environ.get("CV_CLIENT_SEED", "20261123"))


def shown(f, v):
    return v & f.slice if f.width <= 32 else v


def cut(v, width, prefix):
    return v & (((1 << prefix) - 1) << (width - prefix))


def mac_text(v, octets, rng):
    sep = rng.choice(":-") if octets == 6 else ":"
    return sep.join("%02x" % (v >> (8 * i) & 0xFF) for i in reversed(range(octets)))


def render(v, width, rng):
    """One of the forms a user may type a value of this width in."""
    forms = [v, hex(v), str(v)]
    if width == 32:
        forms.append(str(ipaddress.IPv4Address(v)))
    if width == 128:
        forms += [str(ipaddress.IPv6Address(v))] * 3
    if width == 24:
        forms.append(mac_text(v, 3, rng))
    return rng.choice(forms)


def random_key(t, rng):
    """(key as typed, the key columns the device should show)."""
    key, want = {}, {}
    pairs = {p.oui: p for p in t.mac_pairs}
    done = set()
    for f in t.key:
        if f.name in done:
            continue
        pair = pairs.get(f.name)
        if pair and t.field(pair.station).match == f.match and f.match != "lpm" and rng.random() < 0.6:
            st = t.field(pair.station)
            v, m = rng.getrandbits(48), rng.getrandbits(48)
            if f.match == "ternary":
                key[pair.name] = rng.choice(["%s&&&%s" % (mac_text(v, 6, rng), mac_text(m, 6, rng)), (v, m)])
                v &= m
                want.update({f.mask: shown(f, m >> 24), st.mask: shown(st, m & 0xFFFFFF)})
            else:
                key[pair.name] = rng.choice([mac_text(v, 6, rng), v])
            want.update({f.name: shown(f, v >> 24), st.name: shown(st, v & 0xFFFFFF)})
            done.add(st.name)
            continue
        name = rng.choice([f.name, f.field])
        v = rng.getrandbits(f.width)
        if f.match == "exact":
            key[name] = render(v, f.width, rng)
            want[f.name] = shown(f, v)
        elif f.match == "ternary":
            m = rng.getrandbits(f.width)
            form = rng.randrange(5)
            if form == 0:
                key[name] = "%s&&&%s" % (render(v, f.width, rng), render(m, f.width, rng))
            elif form == 1:
                key[name] = (render(v, f.width, rng), m)
            elif form == 2:
                key[name], key[f.mask] = render(v, f.width, rng), render(m, f.width, rng)
            elif form == 3:
                key[name], m = render(v, f.width, rng), f.full  # a value alone matches exactly
            else:
                v = m = 0  # left out: matches anything
            want[f.name], want[f.mask] = shown(f, v & m), shown(f, m)
        else:
            p = rng.randint(0, f.width)
            form = rng.randrange(4)
            if form == 0:
                key[name] = "%s/%d" % (render(v, f.width, rng), p)
            elif form == 1:
                key[name] = (v, p)
            elif form == 2:
                key[name], key[f.prefix] = render(v, f.width, rng), p
            else:
                key[name], p = render(v, f.width, rng), f.width  # a whole-width prefix
            want[f.name], want[f.prefix] = shown(f, cut(v, f.width, p)), p
    return key, {c.name: want[c.name] for c in t.columns}


def random_params(action, info, rng):
    """(parameters as typed, the parameters the device should show). An index parameter of an added
    entry takes 16 bits."""
    params, want = {}, {}
    pairs = {p.oui: p for p in mac_pairs([(q.name, q.hint, q.width) for q in action.params])}
    done = set()
    for p in action.params:
        if p.name in done:
            continue
        if p.name in pairs and rng.random() < 0.6:
            pair = pairs[p.name]
            v = rng.getrandbits(48)
            params[pair.name] = rng.choice([mac_text(v, 6, rng), v])
            want[pair.oui], want[pair.station] = v >> 24, v & 0xFFFFFF
            done.add(pair.station)
            continue
        width = 16 if info["index"] and info["index"]["param"] == p.name else p.width
        v = rng.getrandbits(width)
        params[rng.choice([p.name, p.member])] = render(v, p.width, rng)
        want[p.name] = v
    return params, {p.name: want[p.name] for p in action.params}


class RoundTrips(support.DeviceTest):
    def entry_actions(self, t):
        return [a["name"] for a in self.layout.tables[t.name]["actions"] if a["entry"]]

    def test_a_random_entry_of_every_table_round_trips_by_name(self):
        rng = random.Random(SEED)
        tables = [t for t in self.lib.tables.values() if self.entry_actions(t) and not t.selector]
        self.assertEqual(len(tables), 204)
        for t in tables:
            with self.subTest(table=t.name, seed=SEED):
                key, want_key = random_key(t, rng)
                a = t.actions[rng.choice(self.entry_actions(t))]
                params, want_params = random_params(a, self.layout.actions[a.name], rng)
                priority = rng.getrandbits(32) if t.priority else None
                h = self.dev.add(t.name, a.name, key=key, params=params, priority=priority)

                e = self.dev.get(t.name, handle=h)
                self.assertEqual(list(e.key.items()), list(want_key.items()))
                self.assertEqual((e.action, e.params), (a.name, want_params))
                self.assertEqual(e.priority, priority or 0)
                self.assertFalse(e.default)
                self.assertEqual(self.dev.find(t.name, key, priority), h)
                self.assertEqual(self.dev.entries(t.name), [e])

                # Another action, by handle or by key, read back the same way.
                b = t.actions[rng.choice(self.entry_actions(t))]
                params, want_params = random_params(b, self.layout.actions[b.name], rng)
                if rng.random() < 0.5:
                    self.dev.modify(t.name, b.name, params, handle=h)
                else:
                    self.dev.modify(t.name, b.name, params, key=key, priority=priority)
                e = self.dev.get(t.name, key=key, priority=priority)
                self.assertEqual((e.handle, e.action, e.params), (h, b.name, want_params))
                self.assertEqual(list(e.key.items()), list(want_key.items()))

                self.dev.delete(t.name, key=key, priority=priority)
                self.assertEqual(self.dev.entries(t.name), [])

    def test_a_random_default_entry_of_every_table_round_trips_by_name(self):
        rng = random.Random(SEED + 1)
        count = 0
        for t in self.lib.tables.values():
            defaults = [a["name"] for a in self.layout.tables[t.name]["actions"] if a["default"]]
            if not defaults:
                continue
            count += 1
            with self.subTest(table=t.name, seed=SEED):
                self.assertIsNone(self.dev.default_entry(t.name))
                a = t.actions[rng.choice(defaults)]
                params, want = random_params(a, self.layout.actions[a.name], rng)
                h = self.dev.set_default(t.name, a.name, params)
                e = self.dev.default_entry(t.name)
                self.assertEqual((e.handle, e.default, e.key, e.action, e.params, e.priority),
                                 (h, True, {}, a.name, want, 0))
                self.assertEqual(self.dev.entries(t.name), [])  # a default entry is no entry
                self.dev.reset_default(t.name)
                self.assertIsNone(self.dev.default_entry(t.name))
        self.assertEqual(count, 219)

    def test_members_and_the_entries_bound_to_them_round_trip(self):
        rng = random.Random(SEED + 2)
        for p in self.lib.profiles.values():
            with self.subTest(profile=p.name):
                made = {}
                for a in p.actions.values():
                    params, want = random_params(a, self.layout.actions[a.name], rng)
                    made[self.dev.add_member(p.name, a.name, params)] = (a.name, want)
                got = self.dev.members(p.name)
                self.assertEqual({m.handle: (m.action, m.params) for m in got}, made)
                t = self.lib.table(p.table)
                member = next(iter(made))
                key, want_key = random_key(t, rng)
                priority = rng.getrandbits(32) if t.priority else None
                h = self.dev.add(t.name, key=key, priority=priority, member=member)
                e = self.dev.get(t.name, handle=h)
                self.assertEqual((e.key, e.member, e.group, e.action), (want_key, member, None, None))
                group = self.dev.create_group(p.name, 4)
                self.dev.add_to_group(p.name, group, member)
                self.dev.modify(t.name, handle=h, group=group)
                e = self.dev.get(t.name, key=key, priority=priority)
                self.assertEqual((e.member, e.group), (None, group))
                self.dev.delete(t.name, handle=h)
                self.dev.remove_from_group(p.name, group, member)
                self.dev.delete_group(p.name, group)
                for m in made:
                    self.dev.delete_member(p.name, m)
                self.assertEqual(self.dev.members(p.name), [])
