#!/usr/bin/env python3
"""Writes the fuzz targets' view of the pipeline, the rows that fuzz_catalog.h declares: every table,
action, profile and hash of the catalog with the layout of its records, its counter label's
fragments, and thunks of one shape per family over the library's exports, so that a target picks a
row by index.

The counter label bound of a table is the longest label its fragments can make, by the label
grammar (a fragment's longest text per form), plus the terminator.

    gen_fuzz_catalog.py CATALOG OUT.cpp
"""

import os
import sys
import tomllib

sys.path.insert(0, os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "codegen"))
import catalog as cat_mod  # noqa: E402

P = "p4_pd_corvin_switch_"
MATCH = {"exact": "Match::exact", "ternary": "Match::ternary", "lpm": "Match::lpm"}
KIND = {"exact": "Kind::exact", "ternary": "Kind::ternary", "lpm": "Kind::lpm", "keyless": "Kind::keyless"}


def member_bytes(f):
    base, n = cat_mod.member_ctype(f.member_bits or f.width)
    return n if n else {"uint8_t": 1, "uint16_t": 2, "uint32_t": 4}[base]


def hex_digits(v):
    d = 1
    while d < 8 and v >> (4 * d):
        d += 1
    return d


def label_bound(t, frags):
    """The longest label of a table's fragments, and its terminator."""
    fields = {f.field: f for f in t.key}
    total = 0
    for fr in frags:
        if fr.form == "hidden":
            continue
        f = fields[fr.field]
        lab = len(fr.label)
        sl = f.slice if f.slice is not None else (1 << f.width) - 1
        d = hex_digits(sl)
        mask_digits = 2 * member_bytes(f)
        masked = lab + len(" & 0x") + mask_digits + len(" 0x") + d + 1
        n = {
            "number": lab + len(" 0x") + d + 1,
            "masked": masked,
            "flag": lab + 2,
            "named": max([masked] + [len(text) for _, text in fr.names]),
            "v4_ternary": lab + len(" 255.255.255.255/32 "),
            "v6_exact": lab + 1 + 45,
            "v6_ternary": lab + 1 + 45 + 1 + 45 + 1,
            "mac_ternary": lab + 1 + 14 + 1 + 14 + 1,
        }[fr.form]
        total += n
    return total + 1


def c_str(s):
    return '"%s"' % s if s is not None else "nullptr"


def table_code(i, t, labels, profile_index):
    n = P + t.name
    kt = n + "_match_spec_t"
    keyed = bool(t.key)
    bound = t.profile is not None
    o = []
    # Record layout and key fields.
    if keyed:
        mem = []
        for kind, name, base, cnt in t.record_members():
            size = {"uint8_t": 1, "uint16_t": 2, "uint32_t": 4}[base] * (cnt or 1)
            mem.append("{%s, offsetof(%s, %s), %d}" % (c_str(None if kind == "reserved" else name), kt, name, size))
        o.append("const Member m_%d[] = {%s};\n" % (i, ", ".join(mem)))
        fl = []
        for f in t.key:
            aux = {"ternary": f.field + "_mask", "lpm": f.field + "_prefix_length"}.get(f.match)
            sl = f.slice if f.slice is not None else (1 << f.width) - 1
            fl.append("{%s, %d, %s, %s, %d, offsetof(%s, %s), %s, %d, 0x%xu}" % (
                c_str(f.field), f.width, MATCH[f.match], "true" if f.partition else "false", f.image_offset, kt,
                f.field, "offsetof(%s, %s)" % (kt, aux) if aux else "0", member_bytes(f),
                sl & 0xFFFFFFFF if f.width <= 32 else 0))
        o.append("const Field f_%d[] = {%s};\n" % (i, ", ".join(fl)))
    prio_p = "uint32_t prio" if t.priority else "uint32_t"
    prio_a = ", prio" if t.priority else ""
    key_a = "(%s *)key, " % kt if keyed else ""
    key_p = "const void *key" if keyed else "const void *"
    # Table actions.
    tas = []
    r = t.resource if t.resource_in_entries else None
    for j, ta in enumerate(t.actions):
        a = ta.action
        at = P + a.name + "_action_spec_t"
        pa = ", (%s *)params" % at if a.params else ""
        pp = "const void *params" if a.params else "const void *"
        ma = ", meter" if t.meter_spec_argument else ""
        mp = "p4_pd_meter_spec_t *meter" if t.meter_spec_argument else "p4_pd_meter_spec_t *"
        add = mod = mbk = dflt = "nullptr"
        if ta.entry:
            ttl_p = "uint32_t ttl" if t.ttl_argument else "uint32_t"
            ttl_a = ", ttl" if t.ttl_argument else ""
            o.append("p4_pd_status_t add_%d_%d(%s, %s, %s, %s, %s, p4_pd_entry_hdl_t *h) {\n"
                     "  return %s_table_add_with_%s(kSess, kTgt, (%s *)key%s%s%s%s, h);\n}\n"
                     % (i, j, key_p, prio_p, pp, mp, ttl_p, n, a.name, kt, prio_a, pa, ma, ttl_a))
            o.append("p4_pd_status_t mod_%d_%d(p4_pd_entry_hdl_t h, %s, %s) {\n"
                     "  return %s_table_modify_with_%s(kSess, kDev, h%s%s);\n}\n" % (i, j, pp, mp, n, a.name, pa, ma))
            o.append("p4_pd_status_t mbk_%d_%d(%s, %s, %s, %s) {\n"
                     "  return %s_table_modify_with_%s_by_match_spec(kSess, kTgt, (%s *)key%s%s%s);\n}\n"
                     % (i, j, key_p, prio_p, pp, mp, n, a.name, kt, prio_a, pa, ma))
            add, mod = "add_%d_%d" % (i, j), "mod_%d_%d" % (i, j)
            mbk = "mbk_%d_%d" % (i, j)
        if ta.default:
            o.append("p4_pd_status_t def_%d_%d(%s, %s, p4_pd_entry_hdl_t *h) {\n"
                     "  return %s_set_default_action_%s(kSess, kTgt%s%s, h);\n}\n" % (i, j, pp, mp, n, a.name, pa, ma))
            dflt = "def_%d_%d" % (i, j)
        idx = -1
        in_image = False
        if r and r.index_action == a.name:
            idx = [p.name for p in a.params].index(r.index_param)
            in_image = r.index_in_image
        tas.append("{&kActions[%d], 0x%xu, %s, %s, %d, %s, %s, %s, %s, %s}" % (
            a.number, ta.handle, "true" if ta.entry else "false", "true" if ta.default else "false", idx,
            "true" if in_image else "false", add, mod, mbk, dflt))
    if tas:
        o.append("const TableAction a_%d[] = {%s};\n" % (i, ", ".join(tas)))
    # Read-back, walk and delete.
    fns = {}
    if bound:
        o.append("p4_pd_status_t gb_%d(p4_pd_entry_hdl_t h, uint8_t hw, void *key, uint32_t *%s, uint8_t *is_mbr, "
                 "uint8_t *is_grp, p4_pd_grp_hdl_t *grp, p4_pd_mbr_hdl_t *mbr, uint8_t *dflt) {\n"
                 "  return %s_get_entry(kSess, kDev, h, hw, (%s *)key%s, is_mbr, is_grp, grp, mbr, dflt);\n}\n"
                 % (i, "prio" if t.priority else "", n, kt, prio_a))
        o.append("p4_pd_status_t ab_%d(const void *key, %s, uint32_t x, bool group, p4_pd_entry_hdl_t *h) {\n"
                 "  return group ? %s_add_entry_with_selector(kSess, kTgt, (%s *)key%s, x, h)\n"
                 "               : %s_add_entry(kSess, kTgt, (%s *)key%s, x, h);\n}\n"
                 % (i, prio_p, n, kt, prio_a, n, kt, prio_a))
        fns["get_bound_entry"], fns["add_bound"] = "gb_%d" % i, "ab_%d" % i
    else:
        o.append("p4_pd_status_t ge_%d(p4_pd_entry_hdl_t h, uint8_t hw, void *%s, uint32_t *%s, char *name, "
                 "void *params, p4_pd_corvin_switch_action_enum_t *act, uint8_t *dflt) {\n"
                 "  return %s_get_entry(kSess, kDev, h, hw, %s%sname, params, act, dflt);\n}\n"
                 % (i, "key" if keyed else "", "prio" if t.priority else "", n, key_a, "prio, " if t.priority else ""))
        fns["get_entry"] = "ge_%d" % i
        o.append("p4_pd_status_t gd_%d(p4_pd_corvin_switch_action_spec_t *spec) {\n"
                 "  return %s_table_get_default_entry(kSess, kTgt, 0, spec);\n}\n" % (i, n))
        fns["get_default"] = "gd_%d" % i
    if keyed:
        o.append("p4_pd_status_t fd_%d(const void *key, %s, p4_pd_entry_hdl_t *h) {\n"
                 "  return %s_match_spec_to_entry_hdl(kSess, kTgt, (%s *)key%s, h);\n}\n" % (i, prio_p, n, kt, prio_a))
        o.append("p4_pd_status_t dk_%d(const void *key, %s) {\n"
                 "  return %s_table_delete_by_match_spec(kSess, kTgt, (%s *)key%s);\n}\n" % (i, prio_p, n, kt, prio_a))
        o.append("p4_pd_status_t dl_%d(p4_pd_entry_hdl_t h) { return %s_table_delete(kSess, kDev, h); }\n" % (i, n))
        o.append("void uk_%d(pipe_tbl_match_spec_t *ms, void *key) { unbuild_key_%s(ms, (%s *)key); }\n" % (i, t.name, kt))
        fns.update(find="fd_%d" % i, del_by_key="dk_%d" % i, **{"del": "dl_%d" % i}, unbuild_key="uk_%d" % i)
        if t.kind in ("ternary", "lpm"):
            o.append("void um_%d(pipe_tbl_match_spec_t *ms, void *key) { unbuild_mask_%s(ms, (%s *)key); }\n"
                     % (i, t.name, kt))
            fns["unbuild_mask"] = "um_%d" % i
        o.append("int kv_%d(const void *key, char *buf) { return %s_match_spec_value((%s *)key, buf); }\n" % (i, n, kt))
        o.append("int kp_%d(int fd, int indent, const void *key) { return %s_match_spec_print(fd, indent, (%s *)key); }\n"
                 % (i, n, kt))
        o.append("int ke_%d(const void *a, const void *b, char *buf) {\n"
                 "  return %s_match_specs_are_equal((%s *)a, (%s *)b, buf);\n}\n" % (i, n, kt, kt))
        fns.update(key_value="kv_%d" % i, key_print="kp_%d" % i, key_equal="ke_%d" % i, key_schema=n + "_match_spec_schema")
        if t.name in labels:
            o.append("int lb_%d(const void *key, char *buf) {\n"
                     "  return %s_match_spec_stringify_for_counter((%s *)key, buf);\n}\n" % (i, n, kt))
            fns["label"] = "lb_%d" % i
    o.append("p4_pd_status_t ct_%d(uint32_t *c) { return %s_get_entry_count(kSess, kTgt, c); }\n" % (i, n))
    o.append("p4_pd_status_t rd_%d() { return %s_table_reset_default_entry(kSess, kTgt); }\n" % (i, n))
    fns.update(count="ct_%d" % i, reset_default="rd_%d" % i)
    lb = label_bound(t, labels[t.name]) if t.name in labels else 0
    nfrag = 0
    if t.name in labels:
        index = {f.field: k for k, f in enumerate(t.key)}
        frs = []
        for k, fr in enumerate(labels[t.name]):
            if fr.names:
                o.append("const LabelName ln_%d_%d[] = {%s};\n" % (i, k, ", ".join(
                    "{0x%xu, %s}" % (v, c_str(text)) for v, text in fr.names)))
            frs.append("{LabelForm::%s, %d, %d, %s, 0x%xu, %d, %s}" % (
                fr.form, index[fr.field], index[fr.station] if fr.station else -1, c_str(fr.label),
                0xFFFFFFFF if fr.mask_and is None else fr.mask_and, len(fr.names),
                ("ln_%d_%d" % (i, k)) if fr.names else "nullptr"))
        o.append("const LabelFragment lf_%d[] = {%s};\n" % (i, ", ".join(frs)))
        nfrag = len(frs)

    def fn(k):
        return fns.get(k, "nullptr")

    row = "{\n    %s, 0x%xu, %s, %s, %s, %s,\n    %d, %d, %s,\n    %d, %s, %d, %s, %d, %s,\n    %s, 0x%xu,\n" % (
        c_str(t.name), t.handle, KIND[t.kind], "true" if t.priority else "false",
        "true" if t.meter_spec_argument else "false", "true" if t.ttl_argument else "false",
        t.key_bits, t.key_bytes, ("sizeof(%s)" % kt) if keyed else "0",
        len(t.key), ("f_%d" % i) if keyed else "nullptr",
        len(t.record_members()) if keyed else 0, ("m_%d" % i) if keyed else "nullptr",
        len(t.actions), ("a_%d" % i) if tas else "nullptr",
        ("&kProfiles[%d]" % profile_index[t.profile]) if bound else "nullptr",
        r.handle if r else 0)
    row += "    %s,\n    %s, %s,\n    %s, %s, %s, %s,\n    %s, %s,\n    %s, %s,\n    %s, %s, %s, %s, %d,\n" % (
        fn("get_entry"), fn("get_bound_entry"), fn("add_bound"), fn("find"), fn("del"), fn("del_by_key"), fn("count"),
        fn("get_default"), fn("reset_default"), fn("unbuild_key"), fn("unbuild_mask"), fn("key_value"),
        fn("key_print"), fn("key_equal"), fn("label"), lb)
    row += "    %d, %s,\n" % (nfrag, ("lf_%d" % i) if nfrag else "nullptr")
    row += "    %s, %s_schema, %s_get_plcmt_data}" % (fn("key_schema"), n, n)
    return "".join(o), row


def action_code(a):
    n = P + a.name
    at = n + "_action_spec_t"
    o = []
    if a.params:
        o.append("const Param p_%d[] = {%s};\n" % (a.number, ", ".join(
            "{%s, %d, offsetof(%s, action_%s), %d}" % (c_str(p.name), p.width, at, p.name,
                                                       {"uint8_t": 1, "uint16_t": 2, "uint32_t": 4}[
                                                           cat_mod.member_ctype(p.width)[0]])
            for p in a.params)))
        o.append("int av_%d(const void *params, char *buf) { return %s_value((%s *)params, buf); }\n" % (a.number, n, at))
        o.append("int ap_%d(int fd, int indent, const void *params) { return %s_print(fd, indent, (%s *)params); }\n"
                 % (a.number, n, at))
        o.append("int ae_%d(const void *a, const void *b, char *buf) {\n"
                 "  return %s_action_specs_are_equal((%s *)a, (%s *)b, buf);\n}\n" % (a.number, n, at, at))
        o.append("void au_%d(pipe_action_data_spec_t *d, p4_pd_res_spec_t *r, int nr, void *params) {\n"
                 "  unbuild_action_spec_%s(d, r, nr, (%s *)params);\n}\n" % (a.number, a.name, at))
        row = "{%s, %d, sizeof(%s), %d, p_%d, av_%d, ap_%d, ae_%d, au_%d, %s_schema}" % (
            c_str(a.name), a.number, at, len(a.params), a.number, a.number, a.number, a.number, a.number, n)
    else:
        o.append("int av_%d(const void *, char *buf) { return %s_value(buf); }\n" % (a.number, n))
        row = "{%s, %d, 0, 0, nullptr, av_%d, nullptr, nullptr, nullptr, %s_schema}" % (
            c_str(a.name), a.number, a.number, n)
    return "".join(o), row


def profile_code(i, p):
    n = P + p.name
    o = []
    rows = []
    for j, (a, h) in enumerate(p.members):
        at = P + a.name + "_action_spec_t"
        if a.params:
            o.append("p4_pd_status_t pm_%d_%d(const void *params, p4_pd_mbr_hdl_t *m) {\n"
                     "  return %s_add_member_with_%s(kSess, kTgt, (%s *)params, m);\n}\n" % (i, j, n, a.name, at))
        else:
            o.append("p4_pd_status_t pm_%d_%d(const void *, p4_pd_mbr_hdl_t *m) {\n"
                     "  return %s_add_member_with_%s(kSess, kTgt, m);\n}\n" % (i, j, n, a.name))
        rows.append("{&kActions[%d], 0x%xu, pm_%d_%d}" % (a.number, h, i, j))
    o.append("const ProfileMember pmem_%d[] = {%s};\n" % (i, ", ".join(rows)))
    o.append("p4_pd_status_t pg_%d(p4_pd_mbr_hdl_t m, uint8_t hw, p4_pd_corvin_switch_action_spec_t *s) {\n"
             "  return %s_get_member(kSess, kDev, m, hw, s);\n}\n" % (i, n))
    o.append("p4_pd_status_t pd_%d(p4_pd_mbr_hdl_t m) { return %s_del_member(kSess, kDev, m); }\n" % (i, n))
    o.append("p4_pd_status_t pc_%d(uint32_t size, p4_pd_grp_hdl_t *g) { return %s_create_group(kSess, kTgt, size, g); }\n"
             % (i, n))
    o.append("p4_pd_status_t pa_%d(p4_pd_grp_hdl_t g, p4_pd_mbr_hdl_t m) {\n"
             "  return %s_add_member_to_group(kSess, kDev, g, m);\n}\n" % (i, n))
    o.append("p4_pd_status_t px_%d(p4_pd_grp_hdl_t g) { return %s_del_group(kSess, kDev, g); }\n" % (i, n))
    row = "{%s, 0x%xu, 0x%xu, %d, pmem_%d, pg_%d, pd_%d, pc_%d, pa_%d, px_%d, %s_schema, %s_get_plcmt_data}" % (
        c_str(p.name), p.action_data_table, p.selector, len(p.members), i, i, i, i, i, i, n, n)
    return "".join(o), row


def hash_code(i, h):
    n = P + "hash_calc_" + h["name"]
    o = ("p4_pd_status_t hc_%d(uint32_t c, p4_pd_hash_calc_input_field_attribute_t *a, uint32_t *w, uint8_t *out, "
         "uint32_t len) {\n  return %s_calculate_hash_value(kSess, kDev, c, a, w, out, len);\n}\n"
         "p4_pd_status_t hs_%d(uint64_t seed) { return %s_seed_set(kSess, kDev, seed); }\n" % (i, n, i, n))
    row = "{%s, 0x%xu, 0x%xu, 0x%xu, hc_%d, hs_%d}" % (c_str(h["name"]), h["handle"], h["input"], h["algorithm"], i, i)
    return o, row


def declarations(raw, cat):
    tables = {t.name: t for t in cat.tables}
    o = ["void declare_program(uint32_t (*algorithm_kind)(uint32_t)) {\n"]
    for c in raw.get("counter", []):
        if c["binding"] == "indirect":
            o.append("  drvm_declare_counter(0x%xu, 1024);\n" % c["handle"])
    for m in raw.get("meter", []):
        if m["binding"] == "indirect":
            o.append("  drvm_declare_meter(0x%xu, 1024);\n" % m["handle"])
        else:
            o.append("  drvm_declare_direct_meter(0x%xu, 0x%xu);\n" % (tables[m["table"]].handle, m["handle"]))
    for t in cat.tables:
        if t.idle_time:
            o.append("  drvm_declare_idle_table(0x%xu);\n" % t.handle)
    for a in sorted({h["algorithm"] for h in raw.get("hash", [])}):
        o.append("  drvm_declare_hash_algorithm(0x%xu, algorithm_kind(0x%xu));\n" % (a, a))
    for h in raw.get("hash", []):
        o.append("  drvm_declare_hash(0x%xu, 0x%xu, 0x%xu);\n" % (h["handle"], h["input"], h["algorithm"]))
    o.append("}\n")
    return "".join(o)


def main(argv):
    with open(argv[0], "rb") as f:
        raw = tomllib.load(f)
    cat = cat_mod.load(argv[0])
    profile_index = {p.name: i for i, p in enumerate(cat.profiles)}
    out = ["// Generated by fuzz/gen_fuzz_catalog.py from the catalog. Do not edit.\n",
           "#include <cstddef>\n\n#include \"fuzz_catalog.h\"\n\nnamespace fz {\n\n",
           "extern const Action kActions[];\nextern const Profile kProfiles[];\n\nnamespace {\n\n"]
    action_rows = []
    for a in cat.actions:
        code, row = action_code(a)
        out.append(code)
        action_rows.append(row)
    table_rows = []
    for i, t in enumerate(cat.tables):
        code, row = table_code(i, t, cat.labels, profile_index)
        out.append(code)
        table_rows.append(row)
    profile_rows = []
    for i, p in enumerate(cat.profiles):
        code, row = profile_code(i, p)
        out.append(code)
        profile_rows.append(row)
    hash_rows = []
    for i, h in enumerate(raw.get("hash", [])):
        code, row = hash_code(i, h)
        out.append(code)
        hash_rows.append(row)
    out.append("\n}  // namespace\n\n")
    out.append("const Action kActions[] = {\n  %s};\nconst size_t kActionCount = %d;\n\n" % (",\n  ".join(action_rows),
                                                                                          len(action_rows)))
    out.append("const Table kTables[] = {\n  %s};\nconst size_t kTableCount = %d;\n\n" % (",\n  ".join(table_rows),
                                                                                        len(table_rows)))
    out.append("const Profile kProfiles[] = {\n  %s};\nconst size_t kProfileCount = %d;\n\n" % (
        ",\n  ".join(profile_rows), len(profile_rows)))
    out.append("const Hash kHashes[] = {\n  %s};\nconst size_t kHashCount = %d;\n\n" % (",\n  ".join(hash_rows),
                                                                                      len(hash_rows)))
    out.append(declarations(raw, cat))
    out.append("\n}  // namespace fz\n")
    text = "".join(out)
    os.makedirs(os.path.dirname(os.path.abspath(argv[1])), exist_ok=True)
    try:
        with open(argv[1]) as f:
            if f.read() == text:
                return 0
    except OSError:
        pass
    with open(argv[1], "w") as f:
        f.write(text)
    return 0


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
