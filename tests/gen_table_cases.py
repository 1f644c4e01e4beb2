#!/usr/bin/env python3
"""Writes the catalog-driven round trips of the match-table families: for every entry action of
every table, add an entry with a random key and parameters, read it back, find it by key, change
its action, read it again and delete it; for every default action of every table, set it and read
it back. What read-back must give comes from the reference encoder of gen_add_cases.py and the
decoding rules written here, independently of the library.

    gen_table_cases.py CATALOG OUT.cpp
"""

import os
import random
import sys

sys.path.insert(0, os.path.dirname(os.path.abspath(__file__)))
import gen_add_cases as ref  # noqa: E402

cat_mod = ref.cat_mod
PREFIX = ref.PREFIX


def image_int(b):
    return int.from_bytes(b, "big")


def decoded_key(t, rec):
    """The key record read-back gives for an entry added with `rec`."""
    value, mask, _, _ = ref.encode_key(t, rec, 0)
    out = {}
    for f in t.key:
        o, n = f.image_offset, (f.width + 7) // 8
        if f.partition:
            out[f.field] = rec[f.field] & 0xFFFF
        else:
            out[f.field] = bytes(value[o:o + n]) if f.width > 32 else image_int(value[o:o + n])
        if f.match == "ternary":
            out[f.field + "_mask"] = bytes(mask[o:o + n]) if f.width > 32 else image_int(mask[o:o + n])
        elif f.match == "lpm":
            bits = image_int(mask[o:o + n])
            p = f.width
            while p > 0 and not (bits >> (f.width - p)) & 1:
                p -= 1
            out[f.field + "_prefix_length"] = p
    return out


def decoded_params(t, ta, params, family):
    """The parameter record read-back gives for an action written with `params` by `family`."""
    r = t.resource if t.resource_in_entries else None
    out = {}
    for p in ta.action.params:
        width_mask = (1 << (8 * ((p.width + 7) // 8))) - 1
        v = params[p.name] & width_mask
        if r and r.index_action == ta.action.name and p.name == r.index_param and not r.index_in_image:
            v = params[p.name] & 0xFFFF if family == "add" else params[p.name]
        out[p.name] = v
    return out


def fill(var, rtype, values, prefix=""):
    s = "  %s %s;\n  std::memset(&%s, 0, sizeof %s);\n" % (rtype, var, var, var)
    for name, v in values.items():
        s += ref.assign(var, prefix + name, v)
    return s


def random_params(rng, ta):
    return {p.name: ref.rand_member(rng, ref.member_bits(p.width), "random") for p in ta.action.params}


def add_args(t, ta, prio, has_params, ttl):
    args = ["kSess", "kTgt", "&k"]
    if t.priority:
        args.append("0x%xu" % prio)
    if has_params:
        args.append("&a")
    if t.meter_spec_argument:
        args.append("&kMeter")
    if t.ttl_argument:
        args.append("0x%xu" % ttl)
    return args


def value_text_key(t, rec):
    """The key text of a key record read back: members cut to the slice, 128-bit fields whole."""
    s = "( "
    for f in t.key:
        full = (1 << f.width) - 1
        sl = f.slice if f.slice is not None else full
        for n in [f.field] + ([f.field + "_mask"] if f.match == "ternary" else []):
            v = rec[n]
            s += "0x%s," % "".join("%02X" % b for b in v) if f.width > 32 else "0x%0*x," % ((f.width + 3) // 4, v & sl)
        if f.match == "lpm":
            s += "0x%04x," % rec[f.field + "_prefix_length"]
    return s + "),"


def value_text_action(a, params):
    return "('%s',(%s))," % (a.name, "".join("0x%0*x," % ((p.width + 3) // 4, params[p.name] & ((1 << p.width) - 1))
                                             for p in a.params))


def check_value_text(t, handle, want):
    """The entry's value text from the driver, through get_entry."""
    s = "    char vt[400];\n    std::memset(vt, 0x7f, sizeof vt);\n"
    s += "    EXPECT_EQ(%s%s_value(kSess, uint8_t(kTgt.device_id), %s, 0, vt), %d);\n" % (PREFIX, t.name, handle, len(want))
    s += "    EXPECT_STREQ(vt, \"%s\");\n" % want
    return s


def read_and_check(t, ta, key_want, prio, params_want, label):
    n = PREFIX + t.name
    s = "  {\n    SCOPED_TRACE(\"%s\");\n" % label
    s += "    %s_match_spec_t got;\n    std::memset(&got, 0xA5, sizeof got);\n" % n
    if t.priority:
        s += "    uint32_t prio = 0xA5A5A5A5u;\n"
    s += "    char name[128] = \"\";\n    uint8_t data[256];\n"
    s += "    std::memset(data, 0xA5, sizeof data);\n"
    s += "    p4_pd_corvin_switch_action_enum_t number = p4_pd_corvin_switch_action_enum_none;\n    uint8_t dflt = 9;\n"
    args = ["kSess", "kTgt.device_id", "h", "0", "&got"] + (["&prio"] if t.priority else []) + \
           ["name", "data", "&number", "&dflt"]
    s += "    ASSERT_EQ(%s_get_entry(%s), 0u);\n" % (n, ", ".join(args))
    s += "    EXPECT_EQ(dflt, 0);\n    EXPECT_STREQ(name, \"%s%s\");\n" % (PREFIX, ta.action.name)
    s += "    EXPECT_EQ(number, %d);\n" % ta.action.number
    if t.priority:
        s += "    EXPECT_EQ(prio, 0x%xu);\n" % prio
    s += "  " + fill("want", "%s_match_spec_t" % n, key_want).replace("\n  ", "\n    ")
    s += "    EXPECT_EQ(cvtest::hex(reinterpret_cast<uint8_t *>(&got), sizeof got), " \
         "cvtest::hex(reinterpret_cast<uint8_t *>(&want), sizeof want));\n"
    if ta.action.params:
        s += "  " + fill("pwant", "%s%s_action_spec_t" % (PREFIX, ta.action.name), params_want, "action_").replace("\n  ", "\n    ")
        s += "    EXPECT_EQ(cvtest::hex(data, sizeof pwant), cvtest::hex(reinterpret_cast<uint8_t *>(&pwant), sizeof pwant));\n"
    else:
        s += "    EXPECT_EQ(data[0], 0xA5) << \"an action without parameters leaves the buffer alone\";\n"
    key_text = value_text_key(t, key_want) if t.key else "(),"
    # The priority goes through "%d": a 32-bit word above 2^31 shows as negative.
    p = (prio if t.priority else 0) & 0xFFFFFFFF
    s += check_value_text(t, "h", "((%s%s),(%d,True))" % (key_text, value_text_action(ta.action, params_want),
                                                          p - (1 << 32) if p >= 1 << 31 else p))
    s += "  }\n"
    return s


def entry_case(i, rng, t, ta, other):
    """Add with `ta`, read, find, modify to `other`, read, delete."""
    n = PREFIX + t.name
    rec, params, prio, _, ttl = ref.make_case(rng, t, ta, i % 2 * 2)  # a legal prefix, or one far out of range
    s = "static void entry_%d() {\n" % i
    s += fill("k", "%s_match_spec_t" % n, rec)
    if ta.action.params:
        s += fill("a", "%s%s_action_spec_t" % (PREFIX, ta.action.name), params, "action_")
    s += "  uint32_t h = 0;\n"
    s += "  ASSERT_EQ(%s_table_add_with_%s(%s), 0u);\n" % (
        n, ta.action.name, ", ".join(add_args(t, ta, prio, bool(ta.action.params), ttl) + ["&h"]))
    want = decoded_key(t, rec)
    s += read_and_check(t, ta, want, prio, decoded_params(t, ta, params, "add"), "after add")
    kp = ["kSess", "kTgt", "&k"] + (["0x%xu" % prio] if t.priority else [])
    s += "  uint32_t found = 0;\n  ASSERT_EQ(%s_match_spec_to_entry_hdl(%s, &found), 0u);\n  EXPECT_EQ(found, h);\n" % (
        n, ", ".join(kp))
    # Change the action, by handle or by key in turn.
    params2 = random_params(rng, other)
    if other.action.params:
        s += fill("b", "%s%s_action_spec_t" % (PREFIX, other.action.name), params2, "action_")
    extra = (["&b"] if other.action.params else []) + (["&kMeter"] if t.meter_spec_argument else [])
    if i % 2:
        s += "  ASSERT_EQ(%s_table_modify_with_%s(%s), 0u);\n" % (
            n, other.action.name, ", ".join(["kSess", "kTgt.device_id", "h"] + extra))
    else:
        s += "  ASSERT_EQ(%s_table_modify_with_%s_by_match_spec(%s), 0u);\n" % (
            n, other.action.name, ", ".join(kp + extra))
    s += read_and_check(t, other, want, prio, decoded_params(t, other, params2, "modify"), "after modify")
    if i % 2:
        s += "  ASSERT_EQ(%s_table_delete_by_match_spec(%s), 0u);\n" % (n, ", ".join(kp))
    else:
        s += "  ASSERT_EQ(%s_table_delete(kSess, kTgt.device_id, h), 0u);\n" % n
    s += "  uint32_t count = 1;\n  ASSERT_EQ(%s_get_entry_count(kSess, kTgt, &count), 0u);\n  EXPECT_EQ(count, 0u);\n" % n
    s += "}\n\n"
    return s, '  {"%s/%s", entry_%d},\n' % (t.name, ta.action.name, i)


def default_case(i, rng, t, ta):
    """Set `ta` as the default, read it back as a tagged record and as the default entry."""
    n = PREFIX + t.name
    params = random_params(rng, ta)
    s = "static void default_%d() {\n" % i
    if ta.action.params:
        s += fill("a", "%s%s_action_spec_t" % (PREFIX, ta.action.name), params, "action_")
    args = ["kSess", "kTgt"] + (["&a"] if ta.action.params else []) + (["&kMeter"] if t.meter_spec_argument else [])
    s += "  uint32_t h = 0;\n  ASSERT_EQ(%s_set_default_action_%s(%s, &h), 0u);\n" % (n, ta.action.name, ", ".join(args))
    s += "  p4_pd_corvin_switch_action_spec_t spec;\n  std::memset(&spec, 0xA5, sizeof spec);\n"
    s += "  ASSERT_EQ(%s_table_get_default_entry(kSess, kTgt, 0, &spec), 0u);\n" % n
    s += "  EXPECT_EQ(spec.name, %d);\n" % ta.action.number
    if ta.action.params:
        want = decoded_params(t, ta, params, "default")
        s += fill("pwant", "%s%s_action_spec_t" % (PREFIX, ta.action.name), want, "action_")
        s += "  EXPECT_EQ(cvtest::hex(reinterpret_cast<uint8_t *>(&spec.u), sizeof pwant), " \
             "cvtest::hex(reinterpret_cast<uint8_t *>(&pwant), sizeof pwant));\n"
    else:
        s += "  EXPECT_EQ(reinterpret_cast<uint8_t *>(&spec.u)[0], 0xA5) << \"no parameters: the union stays\";\n"
    s += "  uint32_t dh = 0;\n  ASSERT_EQ(%s_table_get_default_entry_handle(kSess, kTgt, &dh), 0u);\n  EXPECT_EQ(dh, h);\n" % n
    # The default entry read by its handle: flag 1 and a cleared key.
    key = []
    if t.key:
        s += "  %s_match_spec_t got;\n  std::memset(&got, 0xA5, sizeof got);\n" % n
        key = ["&got"]
    if t.priority:
        key.append("&prio")
        s += "  uint32_t prio = 0xA5A5A5A5u;\n"
    s += "  uint8_t data[256];\n  p4_pd_corvin_switch_action_enum_t number;\n  uint8_t dflt = 9;\n"
    s += "  ASSERT_EQ(%s_get_entry(%s), 0u);\n" % (
        n, ", ".join(["kSess", "kTgt.device_id", "dh", "0"] + key + ["nullptr", "data", "&number", "&dflt"]))
    s += "  EXPECT_EQ(dflt, 1);\n  EXPECT_EQ(number, %d);\n" % ta.action.number
    if t.key:
        s += "  %s_match_spec_t zero;\n  std::memset(&zero, 0, sizeof zero);\n" % n
        s += "  EXPECT_EQ(std::memcmp(&got, &zero, sizeof got), 0) << \"a default entry clears the key\";\n"
    if t.priority:
        s += "  EXPECT_EQ(prio, 0u) << \"the priority as the driver left it\";\n"
    params_want = decoded_params(t, ta, params, "default") if ta.action.params else {}
    s += check_value_text(t, "dh", "(((),%s),(0,True))" % value_text_action(ta.action, params_want))
    s += "}\n\n"
    return s, '  {"%s/%s", default_%d},\n' % (t.name, ta.action.name, i)


def main(argv):
    c = cat_mod.load(argv[0])
    rng = random.Random(20261123)
    out = ["// Generated by tests/gen_table_cases.py from the catalog. Do not edit.\n",
           "#include \"table_cases.h\"\n#include \"test_support.h\"\n\n",
           "namespace {\nconstexpr p4_pd_sess_hdl_t kSess = 3;\nconstexpr p4_pd_dev_target_t kTgt = {0, 0xFFFF};\n",
           "p4_pd_meter_spec_t kMeter = {1000, 2000, 3000, 4000, 1};\n"]
    entries, defaults = [], []
    i = 0
    for t in c.tables:
        acts = [a for a in t.actions if a.entry]
        for j, ta in enumerate(acts):
            body, e = entry_case(i, rng, t, ta, acts[(j + 1) % len(acts)])
            out.append(body)
            entries.append(e)
            i += 1
    for t in c.tables:
        for ta in t.actions:
            if ta.default:
                body, e = default_case(i, rng, t, ta)
                out.append(body)
                defaults.append(e)
                i += 1
    out.append("}  // namespace\n\nconst TableCase kEntryCases[] = {\n")
    out += entries
    out.append("};\nconst size_t kEntryCaseCount = %d;\n\nconst TableCase kDefaultCases[] = {\n" % len(entries))
    out += defaults
    out.append("};\nconst size_t kDefaultCaseCount = %d;\n" % len(defaults))
    os.makedirs(os.path.dirname(os.path.abspath(argv[1])), exist_ok=True)
    with open(argv[1], "w") as f:
        f.write("".join(out))
    return 0


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
