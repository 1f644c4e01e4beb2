#!/usr/bin/env python3
"""Writes the catalog-driven cases of the entry-add test: for every entry action of every table, a
few calls with random keys and parameters, and the driver records each call must produce.

The expected records come from a reference encoder written here, in Python, straight from the
encoding rules; it shares nothing with the library's engine but the catalog it reads.

    gen_add_cases.py CATALOG OUT.cpp
"""

import os
import random
import sys

sys.path.insert(0, os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "codegen"))
import catalog as cat_mod  # noqa: E402

PREFIX = "p4_pd_corvin_switch_"
CASES_PER_PAIR = 3


# ---- Reference encoder ----

def member_bits(width):
    return 8 if width <= 8 else 16 if width <= 16 else 32 if width <= 32 else width


def field_image(width, value):
    """Big-endian image of a member holding `value` (an int, or bytes for 128-bit fields)."""
    if width > 32:
        return bytes(value)
    n = (width + 7) // 8
    return (value & ((1 << (8 * n)) - 1)).to_bytes(n, "big")


def cut(width):
    return (1 << (width % 8)) - 1 if width % 8 else 0xFF


def encode_key(t, rec, priority_arg):
    """(value, mask, priority, partition_index) of a key record `rec` (member name -> value)."""
    value = bytearray()
    for f in t.key:
        value += bytes(2) if f.partition else field_image(f.width, rec[f.field])
    mask = bytearray(b"\xff" * len(value))
    priority, partition = 0, 0
    if t.kind == "ternary":
        priority = priority_arg
        for f in t.key:
            o, n = f.image_offset, (f.width + 7) // 8
            if f.match == "ternary":
                mask[o:o + n] = field_image(f.width, rec[f.field + "_mask"])
                for b in range(o, o + n):
                    value[b] &= mask[b]
            if f.width % 8:
                mask[o] &= cut(f.width)
    elif t.kind == "lpm":
        f = t.key[-1]
        w, p = f.width, rec[f.field + "_prefix_length"]
        if t.key[0].partition:
            partition = rec[t.key[0].field]
        if p <= w:
            priority = w - p
            bits = ((1 << w) - 1) ^ ((1 << (w - p)) - 1)
            lm = bits.to_bytes(w // 8, "big")
            o = f.image_offset
            for b in range(w // 8):
                mask[o + b] = lm[b]
                value[o + b] &= lm[b]
            for g in t.key[:-1]:
                if g.partition:
                    mask[g.image_offset:g.image_offset + 2] = b"\0\0"
                elif g.width % 8:
                    mask[g.image_offset] &= cut(g.width)
        else:
            priority = t.key_bits + 1
    return bytes(value), bytes(mask), priority, partition


def encode_action(t, ta, params):
    """(image, resource) of an add; resource is None or (handle, index, tag)."""
    r = t.resource if t.resource_in_entries else None
    index_param = r.index_param if r and r.index_action == ta.action.name else None
    image = bytearray()
    for p in ta.action.params:
        v = params[p.name]
        if p.name == index_param and not r.index_in_image:
            image += bytes((p.width + 7) // 8)
        else:
            image += field_image(p.width, v)
    res = None
    if r:
        res = (r.handle, params[index_param] & 0xFFFF if index_param else 0, ta.tag)
    return bytes(image), res


# ---- Case writer ----

def rand_member(rng, bits, style):
    if bits > 32:
        return bytes(0xFF if style == "ones" else rng.randrange(256) for _ in range(bits // 8))
    top = (1 << bits) - 1
    return top if style == "ones" else rng.randrange(top + 1)


def c_value(v):
    if isinstance(v, bytes):
        return None
    return "0x%xu" % v


def assign(var, name, v):
    if isinstance(v, bytes):
        return "  { const uint8_t b[] = {%s}; std::memcpy(%s.%s, b, sizeof b); }\n" % (
            ", ".join("0x%02x" % x for x in v), var, name)
    return "  %s.%s = %s;\n" % (var, name, c_value(v))


def make_case(rng, t, ta, k):
    style = "ones" if k == 1 else "random"
    rec = {}
    for kind, name, base, n in t.record_members():
        if kind == "reserved":
            continue
        bits = {"uint8_t": 8, "uint16_t": 16, "uint32_t": 32}[base] * (n or 1)
        if kind == "prefix":
            w = t.key[-1].width
            # a legal prefix, one past the width, then the edges and a prefix far out of range
            rec[name] = [rng.randrange(w + 1), w + 1, rng.choice([0, w, rng.randrange(w + 2, 0x10000)])][k]
        else:
            rec[name] = rand_member(rng, bits, style)
    params = {p.name: rand_member(rng, member_bits(p.width), style) for p in ta.action.params}
    priority = rng.randrange(1 << 32) if t.priority else 0
    meter = [rng.randrange(1 << 32) for _ in range(4)] + [k % 2] if t.meter_spec_argument else None
    ttl = rng.randrange(1 << 32) if t.ttl_argument else 0
    return rec, params, priority, meter, ttl


def emit_case(i, t, ta, case):
    rec, params, priority, meter, ttl = case
    body = "static uint32_t call_%d(uint32_t sess, p4_pd_dev_target_t tgt, uint32_t *hdl) {\n" % i
    body += "  %s%s_match_spec_t k;\n  std::memset(&k, 0, sizeof k);\n" % (PREFIX, t.name)
    for name, v in rec.items():
        body += assign("k", name, v)
    args = ["sess", "tgt", "&k"]
    if t.priority:
        args.append("0x%xu" % priority)
    if ta.action.params:
        body += "  %s%s_action_spec_t a;\n  std::memset(&a, 0, sizeof a);\n" % (PREFIX, ta.action.name)
        for p in ta.action.params:
            body += assign("a", "action_" + p.name, params[p.name])
        args.append("&a")
    if t.meter_spec_argument:
        body += "  p4_pd_meter_spec_t m = {%s};\n" % ", ".join("0x%xu" % x for x in meter)
        args.append("&m")
    if t.ttl_argument:
        args.append("0x%xu" % ttl)
    args.append("hdl")
    body += "  return %s%s_table_add_with_%s(%s);\n}\n" % (PREFIX, t.name, ta.action.name, ", ".join(args))
    value, mask, prio, part = encode_key(t, rec, priority)
    image, res = encode_action(t, ta, params)
    res_s = "{%s}" % (", ".join("0x%xu" % x for x in res) if res else "0, 0, 0")
    meter_s = "{%s}" % (", ".join("0x%xu" % x for x in [1] + meter[:4] + [meter[4]]) if meter else "0, 0, 0, 0, 0, 0")
    entry = ('  {"%s/%s#%d", call_%d, 0x%xu, 0x%xu, %d, %d, "%s", "%s", 0x%xu, 0x%xu, %d, %d, "%s", %d, %s, %s, 0x%xu},\n'
             % (t.name, ta.action.name, i, i, t.handle, ta.handle, t.key_bits, t.key_bytes, value.hex(), mask.hex(),
                prio, part, ta.action.data_bits, ta.action.data_bytes, image.hex(), 1 if res else 0, res_s, meter_s, ttl))
    return body, entry


def main(argv):
    c = cat_mod.load(argv[0])
    rng = random.Random(20261122)
    bodies, entries = [], []
    i = 0
    for t, ta in c.entry_pairs():
        for k in range(CASES_PER_PAIR):
            b, e = emit_case(i, t, ta, make_case(rng, t, ta, k))
            bodies.append(b)
            entries.append(e)
            i += 1
    out = ["// Generated by tests/gen_add_cases.py from the catalog. Do not edit.\n",
           "#include <cstring>\n\n#include \"add_cases.h\"\n\n"]
    out += bodies
    out.append("\nconst AddCase kAddCases[] = {\n")
    out += entries
    out.append("};\nconst size_t kAddCaseCount = %d;\nconst size_t kEntryPairCount = %d;\n" % (i, len(c.entry_pairs())))
    os.makedirs(os.path.dirname(os.path.abspath(argv[1])), exist_ok=True)
    with open(argv[1], "w") as f:
        f.write("".join(out))
    return 0


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
