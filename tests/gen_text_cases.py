#!/usr/bin/env python3
"""Writes the cases of the record texts: for every table with a key, a random key record and one of
all ones, with the value text and the printed lines they must give; for every action, random
parameters with its value text and, for an action with parameters, its printed lines. Expected
texts come from the catalog file and the text rules written here, not from the generator. Members
are filled across their whole C type, so that bits beyond a field's width or slice show if the
library fails to cut them.

    gen_text_cases.py CATALOG OUT.cpp
"""

import os
import random
import sys
import tomllib

P = "p4_pd_corvin_switch_"


def member_bits(width):
    return 8 if width <= 8 else 16 if width <= 16 else 32 if width <= 32 else width


def digits(width):
    return (width + 3) // 4


def value_of(rng, bits, ones):
    if bits > 32:
        return bytes([0xFF] * (bits // 8)) if ones else bytes(rng.randrange(256) for _ in range(bits // 8))
    return (1 << bits) - 1 if ones else rng.randrange(1 << bits)


def key_members(rng, t, ones):
    """(member name, value) of every key member of the record."""
    out = {}
    for f in t["key"]:
        bits = member_bits(f.get("member_bits") or f["width"])
        out[f["field"]] = value_of(rng, bits, ones)
        if f.get("match") == "ternary":
            out[f["field"] + "_mask"] = value_of(rng, bits, ones)
        elif f.get("match") == "lpm":
            out[f["field"] + "_prefix_length"] = value_of(rng, 16, ones)
    return out


def wide(b):
    return "".join("%02X" % x for x in b)


def key_value(t, m):
    s = "( "
    for f in t["key"]:
        w, name = f["width"], f["field"]
        slice_ = f.get("slice", (1 << w) - 1)
        names = [name] + ([name + "_mask"] if f.get("match") == "ternary" else [])
        for n in names:
            s += "0x%s," % wide(m[n]) if w > 32 else "0x%0*x," % (digits(w), m[n] & slice_)
        if f.get("match") == "lpm":
            s += "0x%04x," % m[name + "_prefix_length"]
    return s + "),"


def key_lines(t, m, indent):
    pad = " " * max(indent, 1) + " "
    out = " " * indent + "%s%s_match_spec_t:\n" % (P, t["name"])
    for f in t["key"]:
        w, name = f["width"], f["field"]
        full = (1 << w) - 1
        slice_ = f.get("slice", full)
        names = [name] + ([name + "_mask"] if f.get("match") == "ternary" else [])
        for n in names:
            if w > 32:
                out += pad + "%s: 0x%s\n" % (n, wide(m[n]))
            elif slice_ != full:
                out += pad + "%s mask 0x%x: 0x%0*x\n" % (n, slice_, digits(w), m[n] & slice_)
            else:
                out += pad + "%s: 0x%0*x\n" % (n, digits(w), m[n] & slice_)
        if f.get("match") == "lpm":
            out += pad + "%s_prefix_length: 0x%04x\n" % (name, m[name + "_prefix_length"])
    return out


def action_value(a, m):
    return "('%s',(%s))," % (a["name"], "".join(
        "0x%0*x," % (digits(p["width"]), m[p["name"]] & ((1 << p["width"]) - 1)) for p in a.get("params", [])))


def action_lines(a, m, indent):
    pad = " " * max(indent, 1) + " "
    return "".join(pad + "action_%s: 0x%0*x\n" % (p["name"], digits(p["width"]), m[p["name"]] & ((1 << p["width"]) - 1))
                   for p in a.get("params", []))


def members_in_order(t):
    """(member, width, mask, wide) of a key's fields in schema order, as the comparison takes them."""
    out = []
    for f in t["key"]:
        w = f["width"]
        sl = f.get("slice", (1 << w) - 1)
        out.append((f["field"], w, sl, w > 32))
        if f.get("match") == "ternary":
            out.append((f["field"] + "_mask", w, sl, w > 32))
        elif f.get("match") == "lpm":
            out.append((f["field"] + "_prefix_length", 16, 0xFFFF, False))
    return out


def flipped(v, bit):
    if isinstance(v, bytes):  # bit 0 is the least significant of the last byte
        b = bytearray(v)
        b[len(b) - 1 - bit // 8] ^= 1 << (bit % 8)
        return bytes(b)
    return v ^ (1 << bit)


def compare_cases(rng, t):
    """Pairs of key records that differ in one member: inside its mask (the first difference, named,
    with masked values) or outside it (equal)."""
    base = key_members(rng, t, False)
    members = members_in_order(t)
    cases = []
    picks = {0, len(members) - 1, rng.randrange(len(members))}
    for i in sorted(picks):
        name, w, mask, wide = members[i]
        bits = [b for b in range(w) if mask >> b & 1]
        other = dict(base)
        other[name] = flipped(base[name], rng.choice(bits))
        if wide:
            text = "mspec %s differs" % name
        else:
            text = "mspec %s differs 0x%x vs 0x%x" % (name, base[name] & mask, other[name] & mask)
        cases.append((other, text))
    for name, w, mask, wide in members:
        member = member_bits(w) if not wide else w
        outside = [b for b in range(member) if not (mask >> b & 1)]
        if outside:
            other = dict(base)
            other[name] = flipped(base[name], rng.choice(outside))
            cases.append((other, None))
            break
    cases.append((dict(base), None))
    return base, cases


def c_string(s):
    return '"' + s.replace("\\", "\\\\").replace('"', '\\"').replace("\n", "\\n") + '"'


def fill(var, rtype, members, prefix=""):
    s = "  %s %s;\n  std::memset(&%s, 0, sizeof %s);\n" % (rtype, var, var, var)
    for name, v in members.items():
        if isinstance(v, bytes):
            s += "  { const uint8_t bytes[] = {%s}; std::memcpy(%s.%s%s, bytes, sizeof bytes); }\n" % (
                ", ".join("0x%02x" % x for x in v), var, prefix, name)
        else:
            s += "  %s.%s%s = 0x%xu;\n" % (var, prefix, name, v)
    return s


def main(argv):
    with open(argv[0], "rb") as f:
        cat = tomllib.load(f)
    rng = random.Random(20261123)
    o = ["// Generated by tests/gen_text_cases.py from the catalog. Do not edit.\n",
         "#include <cstring>\n\n#include \"text_cases.h\"\n\n"]
    names = []
    for t in cat["table"]:
        if not t.get("key"):
            continue
        for k, ones in enumerate((False, True)):
            m = key_members(rng, t, ones)
            indent = rng.randrange(0, 9)
            fn = "key_%s_%d" % (t["name"], k)
            names.append((fn, "%s %s" % (t["name"], "ones" if ones else "random")))
            o.append("static void %s(TextCheck &c) {\n" % fn)
            o.append(fill("r", "%s%s_match_spec_t" % (P, t["name"]), m))
            o.append("  c.value(%s%s_match_spec_value(&r, c.buf()), %s);\n" % (P, t["name"], c_string(key_value(t, m))))
            o.append("  c.print(%d, [&](int fd) { return %s%s_match_spec_print(fd, %d, &r); }, %s);\n}\n\n" % (
                indent, P, t["name"], indent, c_string(key_lines(t, m, indent))))
        base, cases = compare_cases(rng, t)
        fn = "cmp_" + t["name"]
        names.append((fn, "%s comparison" % t["name"]))
        o.append("static void %s(TextCheck &c) {\n" % fn)
        o.append(fill("a", "%s%s_match_spec_t" % (P, t["name"]), base))
        for j, (other, text) in enumerate(cases):
            o.append("  {\n" + fill("b", "%s%s_match_spec_t" % (P, t["name"]), other).replace("\n  ", "\n    "))
            o.append("    c.equal(%s%s_match_specs_are_equal(&a, &b, c.buf()), %s);\n  }\n" % (
                P, t["name"], c_string(text) if text else "nullptr"))
        o.append("}\n\n")
    for a in cat["action"]:
        params = a.get("params", [])
        m = {p["name"]: value_of(rng, member_bits(p["width"]), False) for p in params}
        indent = rng.randrange(0, 9)
        fn = "act_%s" % a["name"]
        names.append((fn, a["name"]))
        o.append("static void %s(TextCheck &c) {\n" % fn)
        if params:
            o.append(fill("r", "%s%s_action_spec_t" % (P, a["name"]), m, "action_"))
            o.append("  c.value(%s%s_value(&r, c.buf()), %s);\n" % (P, a["name"], c_string(action_value(a, m))))
            o.append("  c.print(%d, [&](int fd) { return %s%s_print(fd, %d, &r); }, %s);\n" % (
                indent, P, a["name"], indent, c_string(action_lines(a, m, indent))))
            # One parameter changed within its width: named, with the values cut to it; changed only
            # above its width: equal.
            p = rng.choice(params)
            w = p["width"]
            o2 = dict(m)
            o2[p["name"]] = m[p["name"]] ^ (1 << rng.randrange(w))
            full = (1 << w) - 1
            o.append("  {\n" + fill("b", "%s%s_action_spec_t" % (P, a["name"]), o2, "action_").replace("\n  ", "\n    "))
            o.append("    c.equal(%s%s_action_specs_are_equal(&r, &b, c.buf()), %s);\n  }\n" % (
                P, a["name"], c_string("aspec action_%s differs 0x%x vs 0x%x" % (p["name"], m[p["name"]] & full,
                                                                                o2[p["name"]] & full))))
            if member_bits(w) > w:
                o3 = dict(m)
                o3[p["name"]] = m[p["name"]] ^ (1 << rng.randrange(w, member_bits(w)))
                o.append("  {\n" + fill("b", "%s%s_action_spec_t" % (P, a["name"]), o3, "action_").replace("\n  ", "\n    "))
                o.append("    c.equal(%s%s_action_specs_are_equal(&r, &b, c.buf()), nullptr);\n  }\n" % (P, a["name"]))
        else:
            o.append("  c.value(%s%s_value(c.buf()), %s);\n" % (P, a["name"], c_string(action_value(a, m))))
        o.append("}\n\n")
    o.append("const TextCase kTextCases[] = {\n%s};\nconst size_t kTextCaseCount = %d;\n" % (
        ",\n".join('  {"%s", %s}' % (label, fn) for fn, label in names), len(names)))
    os.makedirs(os.path.dirname(os.path.abspath(argv[1])), exist_ok=True)
    with open(argv[1], "w") as f:
        f.write("".join(o))
    return 0


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
