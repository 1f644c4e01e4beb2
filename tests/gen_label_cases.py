#!/usr/bin/env python3
"""Writes the cases of the counter labels: for every table with a counter label, key records (all
zero, all ones, masks all 0, and random ones leaning on the values and masks where the forms turn)
with the labels they must give, and an entry added through the library with the label of its key
as read back. Expected labels come from the catalog's [[counter_label]] rows and the label rules
written here, not from the generator; each table's longest possible label is computed here too.

    gen_label_cases.py CATALOG OUT.cpp
"""

import os
import random
import socket
import sys
import tomllib

sys.path.insert(0, os.path.dirname(os.path.abspath(__file__)))
import gen_add_cases as ref  # noqa: E402
import gen_table_cases  # noqa: E402

P = "p4_pd_corvin_switch_"
RANDOM_CASES = 24
WHOLE = 0xFFFFFFFF


# ---- The label rules ----

def slice_of(f):
    return f.get("slice", (1 << f["width"]) - 1)


def digits(s):
    return max(1, (s.bit_length() + 3) // 4)


def whole_mask(s):
    return (1 << bin(s).count("1")) - 1


def masked(label, v, m, s):
    if m == 0:
        return ""
    if m == whole_mask(s):
        return "%s 0x%0*x " % (label, digits(s), v & s)
    return "%s & 0x%x 0x%0*x " % (label, m, digits(s), v & s)


def v6(b):
    return socket.inet_ntop(socket.AF_INET6, bytes(b))


def mac(oui, station):
    return "%02x%02x.%02x%02x.%02x%02x" % tuple(x >> k & 255 for x in (oui, station) for k in (16, 8, 0))


def fragment(fr, key, rec):
    f, label, form = key[fr["field"]], fr.get("label"), fr["form"]
    v, m = rec[f["field"]], rec.get(f["field"] + "_mask", 0)
    s = slice_of(f)
    if form == "number":
        return "%s 0x%0*x " % (label, digits(s), v & s)
    if form == "masked":
        return masked(label, v, m, s)
    if form == "flag":
        return "" if not m & 1 else ("%s " if v & m & 1 else "!%s ") % label
    if form == "named":
        decide = fr.get("mask_and", WHOLE)
        names = {n["value"]: n["text"] for n in fr["names"]}
        if m & decide and v & m & decide in names:
            return names[v & m & decide]
        return masked(label, v, m, s)
    if form == "v4_ternary":
        if m == 0:
            return ""
        prefix = next((n for n in range(32) if not m >> (31 - n) & 1), 32)
        return "%s %d.%d.%d.%d/%d " % (label, v >> 24, v >> 16 & 255, v >> 8 & 255, v & 255, prefix)
    if form == "v6_exact":
        return "%s %s" % (label, v6(v))
    if form == "v6_ternary":
        return "%s %s/%s " % (label, v6(v), v6(m)) if any(m) else ""
    if form == "mac_ternary":
        sv, sm = rec[fr["station"]], rec[fr["station"] + "_mask"]
        if m & 0xFFFFFF == 0xFFFFFF and sm & 0xFFFFFF == 0xFFFFFF:
            return "%s %s " % (label, mac(v, sv))
        if m & 0xFFFFFF == 0 and sm & 0xFFFFFF == 0:
            return ""
        return "%s %s/%s " % (label, mac(v, sv), mac(m, sm))
    assert form == "hidden", form
    return ""


def label_of(lab, key, rec):
    return "".join(fragment(fr, key, rec) for fr in lab["fragments"])


def longest(fr, key):
    """The most characters a fragment can have."""
    f, n, form = key[fr["field"]], len(fr.get("label") or ""), fr["form"]
    d = digits(slice_of(f))
    number = n + 4 + d
    mask_digits = 2 * member_bytes(f)
    if form == "number":
        return number
    if form == "masked":
        return number + 5 + mask_digits
    if form == "named":
        return max([number + 5 + mask_digits] + [len(x["text"]) for x in fr["names"]])
    return {"flag": n + 2, "v4_ternary": n + 20, "v6_exact": n + 46, "v6_ternary": n + 93, "mac_ternary": n + 31,
            "hidden": 0}[form]


# ---- Records ----

def member_bytes(f):
    w = f.get("member_bits") or f["width"]
    return 1 if w <= 8 else 2 if w <= 16 else 4 if w <= 32 else w // 8


def wide_value(rng):
    """16 address bytes: zero, all ones, an IPv4-mapped address, a prefix of ones, or random."""
    k = rng.randrange(6)
    if k == 0:
        return bytes(16)
    if k == 1:
        return b"\xff" * 16
    if k == 2:
        return bytes(10) + b"\xff\xff" + bytes(rng.randrange(256) for _ in range(4))
    if k == 3:
        n = rng.randrange(129)
        return (((1 << n) - 1) << (128 - n)).to_bytes(16, "big")
    return bytes(rng.randrange(256) for _ in range(16))


def word_value(rng, f, fr):
    top = (1 << 8 * member_bytes(f)) - 1
    s = slice_of(f)
    choices = [0, top, s, whole_mask(s), 1, rng.randrange(top + 1), rng.randrange(top + 1)]
    if fr["form"] == "named":
        decide = fr.get("mask_and", WHOLE)
        n = rng.choice(fr["names"])["value"]
        choices += [n, n | (rng.randrange(top + 1) & ~decide & top), decide & top]
    if fr["form"] == "mac_ternary":
        choices += [0xFFFFFF, 0xFFFF00, 0x1000000 & top]
    return rng.choice(choices)


def random_record(rng, lab, key):
    rec = {}
    for fr in lab["fragments"]:
        fields = [key[fr["field"]]] + ([key[fr["station"]]] if "station" in fr else [])
        for f in fields:
            for name in [f["field"]] + ([f["field"] + "_mask"] if f.get("match") == "ternary" else []):
                rec[name] = wide_value(rng) if f["width"] == 128 else word_value(rng, f, fr)
    return rec


def uniform_record(key, value, mask):
    """Every value member `value` and every mask member `mask` (each cut to its member)."""
    rec = {}
    for f in key.values():
        for name, x in [(f["field"], value)] + ([(f["field"] + "_mask", mask)] if f.get("match") == "ternary" else []):
            rec[name] = (b"\xff" if x else b"\0") * 16 if f["width"] == 128 else x & ((1 << 8 * member_bytes(f)) - 1)
    return rec


# ---- Output ----

def c_string(s):
    return '"' + s.replace("\\", "\\\\").replace('"', '\\"') + '"'


def fill(rtype, rec):
    s = "  %s r;\n  std::memset(&r, 0, sizeof r);\n" % rtype
    for name, v in rec.items():
        if isinstance(v, (bytes, bytearray)):
            s += "  { const uint8_t b[] = {%s}; std::memcpy(r.%s, b, sizeof b); }\n" % (
                ", ".join("0x%02x" % x for x in v), name)
        else:
            s += "  r.%s = 0x%xu;\n" % (name, v)
    return s


def main(argv):
    with open(argv[0], "rb") as f:
        raw = tomllib.load(f)
    cat = ref.cat_mod.load(argv[0])
    rng = random.Random(20261124)
    tables = {t["name"]: t for t in raw["table"]}
    o = ["// Generated by tests/gen_label_cases.py from the catalog. Do not edit.\n",
         "#include <cstring>\n\n#include \"label_cases.h\"\n\n"]
    cases, counted = [], []
    for lab in raw["counter_label"]:
        t = tables[lab["table"]]
        key = {f["field"]: f for f in t["key"]}
        rtype = "%s%s_match_spec_t" % (P, t["name"])
        ternary = all(f.get("match") == "ternary" for f in t["key"])
        records = [("zero", uniform_record(key, 0, 0)), ("ones", uniform_record(key, WHOLE, WHOLE)),
                   ("masks 0", uniform_record(key, WHOLE, 0))]
        records += [("random %d" % k, random_record(rng, lab, key)) for k in range(RANDOM_CASES)]
        for what, rec in records:
            want = label_of(lab, key, rec)
            if what == "masks 0" and ternary:
                assert want == "", (t["name"], want)  # a ternary key that matches anything has no label
            fn = "label_%d" % len(cases)
            o.append("static int %s(char *buf) {\n%s  return %s%s_match_spec_stringify_for_counter(&r, buf);\n}\n\n"
                     % (fn, fill(rtype, rec), P, t["name"]))
            cases.append('  {"%s %s", %s, %s},\n' % (t["name"], what, fn, c_string(want)))
        # An entry added with the table's first entry action, and the label of the key read back.
        ct = cat.table(t["name"])
        ta = next(a for a in ct.actions if a.entry)
        case = ref.make_case(rng, ct, ta, 0)
        body, _ = ref.emit_case(len(counted), ct, ta, case)
        o.append(body.replace("static uint32_t call_", "static uint32_t add_") + "\n")
        entry_label = label_of(lab, key, gen_table_cases.decoded_key(ct, case[0]))
        bound = sum(longest(fr, key) for fr in lab["fragments"])
        counted.append('  {"%s", 0x%xu, sizeof(%s), [](const void *k, char *buf) {\n'
                       '     return %s%s_match_spec_stringify_for_counter(static_cast<const %s *>(k), buf);\n'
                       '   }, %d, add_%d, %s},\n' % (t["name"], t["handle"], rtype, P, t["name"], rtype, bound,
                                                     len(counted), c_string(entry_label)))
    o.append("const LabelCase kLabelCases[] = {\n%s};\nconst size_t kLabelCaseCount = %d;\n\n" % (
        "".join(cases), len(cases)))
    o.append("const CountedTable kCountedTables[] = {\n%s};\nconst size_t kCountedTableCount = %d;\n" % (
        "".join(counted), len(counted)))
    os.makedirs(os.path.dirname(os.path.abspath(argv[1])), exist_ok=True)
    with open(argv[1], "w") as f:
        f.write("".join(o))
    return 0


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
