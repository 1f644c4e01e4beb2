#!/usr/bin/env python3
"""Writes the catalog-driven cases of the action-profile families.

For every member action of every profile: add a member with random parameters, check the record
the driver got, read it back, change its parameters, read again, try the profile's other actions
(refused), delete it. For every table bound to a profile: bind an entry to a member, read it back,
rebind it to a group and to another member, by handle and by key, set the default entry both ways,
and read each back. Expected images and read-backs come from the reference encoder of
gen_add_cases.py and the decoding rules written here, independently of the library.

    gen_profile_cases.py CATALOG OUT.cpp
"""

import os
import random
import sys
from types import SimpleNamespace

sys.path.insert(0, os.path.dirname(os.path.abspath(__file__)))
import gen_add_cases as ref  # noqa: E402
import gen_table_cases as tref  # noqa: E402

PREFIX = ref.PREFIX


def params_of(rng, a, style):
    return {p.name: ref.rand_member(rng, ref.member_bits(p.width), style) for p in a.params}


def image_of(a, params):
    return b"".join(ref.field_image(p.width, params[p.name]) for p in a.params)


def read_back(a, params):
    """A member's parameters as read back: what its image kept of each."""
    return {p.name: params[p.name] & ((1 << (8 * ((p.width + 7) // 8))) - 1) for p in a.params}


def record(var, a, params):
    return tref.fill(var, "%s%s_action_spec_t" % (PREFIX, a.name), params, "action_")


def member_args(a, var):
    return ["&" + var] if a.params else []


def check_member(prof, a, params, label):
    """get_member gives the tag and the parameters; stale bytes of the record go."""
    n = PREFIX + prof.name
    s = "  {\n    SCOPED_TRACE(\"%s\");\n" % label
    s += "    p4_pd_corvin_switch_action_spec_t got;\n    std::memset(&got, 0xA5, sizeof got);\n"
    s += "    ASSERT_EQ(%s_get_member(kSess, kTgt.device_id, m, 0, &got), 0u);\n" % n
    s += "    EXPECT_EQ(got.name, %d);\n" % a.number
    if a.params:
        s += "    const auto &p = got.u.%s%s;\n" % (PREFIX, a.name)
        for name, v in read_back(a, params).items():
            s += "    EXPECT_EQ(p.action_%s, 0x%xu);\n" % (name, v)
    else:
        s += "    EXPECT_EQ(reinterpret_cast<uint8_t *>(&got.u)[0], 0xA5) << \"no parameters: only the tag\";\n"
    s += "  }\n"
    return s


def check_member_record(fn, prof, handle, a, params):
    s = "  {\n    const drvm_call_t &c = *drvm_last_call(\"%s\");\n" % fn
    s += "    EXPECT_EQ(c.tbl_hdl, 0x%xu);\n    EXPECT_EQ(c.act_fn_hdl, 0x%xu);\n" % (prof.action_data_table, handle)
    s += "    EXPECT_EQ(c.action.action_data_type, 0) << \"a member's record has no type\";\n"
    s += "    EXPECT_EQ(c.action.resource_count, 0);\n"
    s += "    EXPECT_EQ(c.action.act_data.num_valid_action_data_bits, %d);\n" % a.data_bits
    s += "    EXPECT_EQ(c.action.act_data.num_action_data_bytes, %d);\n" % a.data_bytes
    s += "    EXPECT_NE(c.action.act_data.action_data_bytes, nullptr) << \"set also without parameters\";\n"
    s += "    EXPECT_EQ(cvtest::image_of(c), \"%s\");\n" % image_of(a, params).hex()
    s += "    EXPECT_EQ(c.action.member_hdl, 0u);\n    EXPECT_EQ(c.action.group_hdl, 0u);\n"
    s += "    EXPECT_EQ(c.flags, 0u);\n  }\n"
    return s


def member_case(i, rng, prof, a, handle):
    n = PREFIX + prof.name
    p1 = params_of(rng, a, "ones" if i % 2 else "random")
    p2 = params_of(rng, a, "random")
    s = "static void member_%d() {\n" % i
    if a.params:
        s += record("a", a, p1) + record("b", a, p2)
    s += "  uint32_t m = 0;\n"
    s += "  ASSERT_EQ(%s_add_member_with_%s(%s), 0u);\n" % (
        n, a.name, ", ".join(["kSess", "kTgt"] + member_args(a, "a") + ["&m"]))
    s += check_member_record("pipe_mgr_adt_ent_add", prof, handle, a, p1)
    s += check_member(prof, a, p1, "after add")
    s += "  ASSERT_EQ(%s_modify_member_with_%s(%s), 0u);\n" % (
        n, a.name, ", ".join(["kSess", "kTgt.device_id", "m"] + member_args(a, "b")))
    s += check_member_record("pipe_mgr_adt_ent_set", prof, handle, a, p2)
    s += check_member(prof, a, p2, "after modify")
    # Every other action of the profile is refused: a member keeps its action for life.
    for other, _ in prof.members:
        if other.name == a.name:
            continue
        if other.params:
            s += "  {\n  " + record("o", other, params_of(rng, other, "random")).replace("\n  ", "\n    ")
        else:
            s += "  {\n"
        s += "    size_t sets = drvm_count_calls(\"pipe_mgr_adt_ent_set\");\n"
        s += "    EXPECT_EQ(%s_modify_member_with_%s(%s), 0xFFFFFFFFu);\n" % (
            n, other.name, ", ".join(["kSess", "kTgt.device_id", "m"] + member_args(other, "o")))
        s += "    EXPECT_EQ(drvm_count_calls(\"pipe_mgr_adt_ent_set\"), sets) << \"the driver is not asked\";\n  }\n"
    s += check_member(prof, a, p2, "after refused changes")
    s += "  ASSERT_EQ(%s_del_member(kSess, kTgt.device_id, m), 0u);\n" % n
    s += "  EXPECT_EQ(drvm_last_call(\"pipe_mgr_adt_ent_del\")->ent_hdl, m);\n"
    s += "  p4_pd_corvin_switch_action_spec_t gone;\n"
    s += "  EXPECT_NE(%s_get_member(kSess, kTgt.device_id, m, 0, &gone), 0u);\n" % n
    s += "  uint32_t count = 1;\n  ASSERT_EQ(%s_get_act_prof_entry_count(kSess, kTgt, &count), 0u);\n" % n
    s += "  EXPECT_EQ(count, 0u);\n}\n\n"
    return s, '  {"%s/%s", member_%d},\n' % (prof.name, a.name, i)


def check_binding(t, key_want, prio, is_mbr, var, label, handle_expr):
    """get_entry of an entry bound to a member or a group."""
    n = PREFIX + t.name
    s = "  {\n    SCOPED_TRACE(\"%s\");\n" % label
    s += "    %s_match_spec_t got;\n    std::memset(&got, 0xA5, sizeof got);\n" % n
    if t.priority:
        s += "    uint32_t prio = 0xA5A5A5A5u;\n"
    s += "    uint8_t is_mbr = 9, is_grp = 9, dflt = 9;\n"
    s += "    uint32_t mbr = 0xA5A5A5A5u, grp = 0xA5A5A5A5u;\n"
    args = ["kSess", "kTgt.device_id", var, "0", "&got"] + (["&prio"] if t.priority else []) + \
           ["&is_mbr", "&is_grp", "&grp", "&mbr", "&dflt"]
    s += "    ASSERT_EQ(%s_get_entry(%s), 0u);\n" % (n, ", ".join(args))
    s += "    EXPECT_EQ(is_mbr, %d);\n    EXPECT_EQ(is_grp, %d);\n" % (1 if is_mbr else 0, 0 if is_mbr else 1)
    if is_mbr:
        s += "    EXPECT_EQ(mbr, %s);\n    EXPECT_EQ(grp, 0xA5A5A5A5u) << \"the group handle is not written\";\n" % handle_expr
    else:
        s += "    EXPECT_EQ(grp, %s);\n    EXPECT_EQ(mbr, 0xA5A5A5A5u) << \"the member handle is not written\";\n" % handle_expr
    if key_want is None:
        s += "    EXPECT_EQ(dflt, 1);\n"
        s += "    %s_match_spec_t zero;\n    std::memset(&zero, 0, sizeof zero);\n" % n
        s += "    EXPECT_EQ(std::memcmp(&got, &zero, sizeof got), 0) << \"a default entry clears the key\";\n"
    else:
        s += "    EXPECT_EQ(dflt, 0);\n"
        s += "  " + tref.fill("want", "%s_match_spec_t" % n, key_want).replace("\n  ", "\n    ")
        s += "    EXPECT_EQ(cvtest::hex(reinterpret_cast<uint8_t *>(&got), sizeof got), " \
             "cvtest::hex(reinterpret_cast<uint8_t *>(&want), sizeof want));\n"
        if t.priority:
            s += "    EXPECT_EQ(prio, 0x%xu);\n" % prio
    # The value text from the driver: the key, then the binding, no comma behind it.
    key_text = "()," if key_want is None else tref.value_text_key(t, key_want)
    s += "    char vw[400], vt[400];\n"
    s += "    std::snprintf(vw, sizeof vw, \"((%%s('%%s',(0x%%x,))),(%%d,True))\", \"%s\", \"%s\", %s, %s);\n" % (
        key_text, "setMbrHdl" if is_mbr else "setGrpHdl", handle_expr, "int(prio)" if t.priority else "0")
    s += "    EXPECT_EQ(%s_value(kSess, uint8_t(kTgt.device_id), %s, 0, vt), int(std::strlen(vw)));\n" % (n, var)
    s += "    EXPECT_STREQ(vt, vw);\n"
    s += "  }\n"
    return s


def check_bind_record(fn, t, act_expr, is_mbr, handle_expr, value=None, mask=None, prio=None):
    s = "  {\n    const drvm_call_t &c = *drvm_last_call(\"%s\");\n" % fn
    s += "    EXPECT_EQ(c.tbl_hdl, 0x%xu);\n    EXPECT_EQ(c.act_fn_hdl, %s);\n" % (t.handle, act_expr)
    s += "    EXPECT_EQ(c.action.action_data_type, %d);\n" % (2 if is_mbr else 4)
    s += "    EXPECT_EQ(c.action.%s, %s);\n" % ("member_hdl" if is_mbr else "group_hdl", handle_expr)
    s += "    EXPECT_EQ(c.action.%s, 0u);\n" % ("group_hdl" if is_mbr else "member_hdl")
    s += "    EXPECT_EQ(c.action.resource_count, 0) << \"no resource of the state is merged\";\n"
    s += "    EXPECT_EQ(c.action.act_data.num_action_data_bytes, 0);\n"
    s += "    EXPECT_EQ(c.action.act_data.num_valid_action_data_bits, 0);\n"
    s += "    EXPECT_EQ(c.flags, 0u);\n"
    if value is not None:
        s += "    EXPECT_EQ(cvtest::value_of(c), \"%s\");\n    EXPECT_EQ(cvtest::mask_of(c), \"%s\");\n" % (
            value.hex(), mask.hex())
        s += "    EXPECT_EQ(c.match.priority, 0x%xu);\n" % prio
        s += "    EXPECT_EQ((uint32_t(c.match.num_match_bytes) << 16) + c.match.num_valid_match_bits, 0x%xu);\n" % (
            t.key_word)
    s += "  }\n"
    return s


def bound_case(i, rng, t, prof):
    n, pn = PREFIX + t.name, PREFIX + prof.name
    (a1, h1), (a2, h2) = prof.members[-1], prof.members[0]
    rec, _, prio, _, _ = ref.make_case(rng, t, NO_ACTION, i % 3)
    value, mask, eprio, _ = ref.encode_key(t, rec, prio)
    want = tref.decoded_key(t, rec)
    s = "static void bound_%d() {\n" % i
    s += tref.fill("k", "%s_match_spec_t" % n, rec)
    for var, a in (("a1", a1), ("a2", a2)):
        if a.params:
            s += record(var, a, params_of(rng, a, "random"))
    s += "  uint32_t m1 = 0, m2 = 0, g = 0, h = 0;\n"
    s += "  ASSERT_EQ(%s_add_member_with_%s(%s), 0u);\n" % (pn, a1.name, ", ".join(
        ["kSess", "kTgt"] + member_args(a1, "a1") + ["&m1"]))
    s += "  ASSERT_EQ(%s_add_member_with_%s(%s), 0u);\n" % (pn, a2.name, ", ".join(
        ["kSess", "kTgt"] + member_args(a2, "a2") + ["&m2"]))
    s += "  ASSERT_EQ(%s_create_group(kSess, kTgt, 4, &g), 0u);\n" % pn
    s += "  ASSERT_EQ(%s_add_member_to_group(kSess, kTgt.device_id, g, m2), 0u);\n" % pn
    s += "  ASSERT_EQ(%s_add_member_to_group(kSess, kTgt.device_id, g, m1), 0u);\n" % pn
    kp = ["kSess", "kTgt", "&k"] + (["0x%xu" % prio] if t.priority else [])
    # Bound to a member.
    s += "  ASSERT_EQ(%s_add_entry(%s), 0u);\n" % (n, ", ".join(kp + ["m2", "&h"]))
    s += check_bind_record("pipe_mgr_mat_ent_add", t, "0x%xu" % h2, True, "m2", value, mask, eprio)
    s += check_binding(t, want, prio, True, "h", "bound to a member", "m2")
    # To the group, by handle: the group's action is that of the member added last.
    s += "  ASSERT_EQ(%s_modify_entry_with_selector(kSess, kTgt.device_id, h, g), 0u);\n" % n
    s += check_bind_record("pipe_mgr_mat_ent_set_action", t, "0x%xu" % h1, False, "g")
    s += check_binding(t, want, prio, False, "h", "rebound to the group", "g")
    # Back to a member, by key; then to the group by key.
    s += "  ASSERT_EQ(%s_modify_entry_by_match_spec(%s), 0u);\n" % (n, ", ".join(kp + ["m1"]))
    s += check_bind_record("pipe_mgr_mat_ent_set_action_by_match_spec", t, "0x%xu" % h1, True, "m1", value, mask,
                           eprio)
    s += check_binding(t, want, prio, True, "h", "rebound to a member by key", "m1")
    s += "  ASSERT_EQ(%s_modify_entry_with_selector_by_match_spec(%s), 0u);\n" % (n, ", ".join(kp + ["g"]))
    s += check_binding(t, want, prio, False, "h", "rebound to the group by key", "g")
    s += "  ASSERT_EQ(%s_modify_entry(kSess, kTgt.device_id, h, m2), 0u);\n" % n
    s += check_binding(t, want, prio, True, "h", "rebound to a member by handle", "m2")
    # A second entry bound to the group from the start: another priority of the same key, or another key.
    s += "  {\n    %s_match_spec_t k2 = k;\n" % n
    if t.priority:
        args2 = ["kSess", "kTgt", "&k2", "0x%xu" % ((prio + 1) & 0xFFFFFFFF)]
    else:
        f = t.key[0]
        s += "    k2.%s ^= 1;\n" % f.field
        args2 = ["kSess", "kTgt", "&k2"]
    s += "    uint32_t h2 = 0;\n    ASSERT_EQ(%s_add_entry_with_selector(%s), 0u);\n" % (n, ", ".join(args2 + ["g", "&h2"]))
    s += "    EXPECT_EQ(drvm_last_call(\"pipe_mgr_mat_ent_add\")->act_fn_hdl, 0x%xu);\n" % h1
    s += check_binding(t, want, (prio + 1) & 0xFFFFFFFF, False, "h2", "bound to the group at add",
                       "g").replace("\n  ", "\n    ") if t.priority else ""
    s += "    ASSERT_EQ(%s_table_delete(kSess, kTgt.device_id, h2), 0u);\n  }\n" % n
    # Default entries, both ways; the default entry has no key and no priority.
    s += "  uint32_t d = 0;\n"
    s += "  ASSERT_EQ(%s_set_default_entry(kSess, kTgt, m1, &d), 0u);\n" % n
    s += check_bind_record("pipe_mgr_mat_default_entry_set", t, "0x%xu" % h1, True, "m1")
    s += check_binding(t, None, 0, True, "d", "default entry on a member", "m1")
    s += "  {\n    uint8_t is_mbr = 9, is_grp = 9;\n    uint32_t mbr = 0, grp = 0;\n"
    s += "    ASSERT_EQ(%s_table_get_default_entry(kSess, kTgt, 0, &is_mbr, &is_grp, &grp, &mbr), 0u);\n" % n
    s += "    EXPECT_EQ(is_mbr, 1);\n    EXPECT_EQ(is_grp, 0);\n    EXPECT_EQ(mbr, m1);\n  }\n"
    s += "  ASSERT_EQ(%s_set_default_entry_with_selector(kSess, kTgt, g, &d), 0u);\n" % n
    s += check_bind_record("pipe_mgr_mat_default_entry_set", t, "0x%xu" % h1, False, "g")
    s += "  {\n    uint8_t is_mbr = 9, is_grp = 9;\n    uint32_t mbr = 0, grp = 0;\n"
    s += "    ASSERT_EQ(%s_table_get_default_entry(kSess, kTgt, 0, &is_mbr, &is_grp, &grp, &mbr), 0u);\n" % n
    s += "    EXPECT_EQ(is_mbr, 0);\n    EXPECT_EQ(is_grp, 1);\n    EXPECT_EQ(grp, g);\n  }\n"
    s += "  ASSERT_EQ(%s_table_delete(kSess, kTgt.device_id, h), 0u);\n" % n
    s += "  uint32_t count = 1;\n  ASSERT_EQ(%s_get_entry_count(kSess, kTgt, &count), 0u);\n" % n
    s += "  EXPECT_EQ(count, 0u);\n}\n\n"
    return s, '  {"%s", bound_%d},\n' % (t.name, i)


# make_case draws a key for a table action; a bound entry has no action of its own.
NO_ACTION = SimpleNamespace(action=SimpleNamespace(params=[]))


def main(argv):
    c = ref.cat_mod.load(argv[0])
    rng = random.Random(20261124)
    out = ["// Generated by tests/gen_profile_cases.py from the catalog. Do not edit.\n",
           "#include \"table_cases.h\"\n#include \"test_support.h\"\n\n",
           "namespace {\nconstexpr p4_pd_sess_hdl_t kSess = 3;\nconstexpr p4_pd_dev_target_t kTgt = {0, 0xFFFF};\n"]
    members, bounds = [], []
    i = 0
    for prof in c.profiles:
        for a, h in prof.members:
            body, e = member_case(i, rng, prof, a, h)
            out.append(body)
            members.append(e)
            i += 1
    for prof in c.profiles:
        body, e = bound_case(i, rng, c.table(prof.table), prof)
        out.append(body)
        bounds.append(e)
        i += 1
    out.append("}  // namespace\n\nconst TableCase kMemberCases[] = {\n")
    out += members
    out.append("};\nconst size_t kMemberCaseCount = %d;\n\nconst TableCase kBoundCases[] = {\n" % len(members))
    out += bounds
    out.append("};\nconst size_t kBoundCaseCount = %d;\n" % len(bounds))
    os.makedirs(os.path.dirname(os.path.abspath(argv[1])), exist_ok=True)
    with open(argv[1], "w") as f:
        f.write("".join(out))
    return 0


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
