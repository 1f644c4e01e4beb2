#!/usr/bin/env python3
"""Writes the cases of the fault-injection test: for every export of the catalog that reaches the
driver (every family of codegen/families.py whose engine calls it, the dispatchers by handle, and
the functions written by hand), a call with valid arguments on a world set up for it, and what a
refused driver call or a failed allocation inside it must give.

The arguments come from the family's argument words (families.ARGS): an input word gets a value
that the world makes valid (an entry, member or group made in the set-up, a key that is or is not
there), an output word a slot of the test's output area. The worlds are made per subject (a table,
a profile and its bound table, a resource) by the library's own exports where there is one.

    gen_fault_cases.py CATALOG OUT_DIR PARTS
writes OUT_DIR/fault_cases_<i>.cpp for i below PARTS, OUT_DIR/fault_world.cpp (the set-ups) and
OUT_DIR/fault_index.cpp.
"""

import os
import sys

HERE = os.path.dirname(os.path.abspath(__file__))
sys.path.insert(0, os.path.join(HERE, "..", "codegen"))
import catalog as cat_mod  # noqa: E402
import families as fam_mod  # noqa: E402
from output import write  # noqa: E402

P = "p4_pd_corvin_switch_"
INJECTED_PRINT = "cannot decode plcmt_data for " + P

# ---- What a refusal gives, by engine ----
#
# Every rule not written here is the status convention: the driver's status unchanged, no driver
# call after the refused one, every output as it was, the device and the member-selector state as
# they were, nothing allocated left over, nothing logged.


def W(slot, kind, value=0, text=None):
    return (slot, kind, value, text)


RULES = {
    # Both outputs read all ones on a refusal.
    "get_property": {None: dict(writes=[W("property_value_out", "u32", 0xFFFFFFFF),
                                        W("property_args_out", "u32", 0xFFFFFFFF)])},
    # The caller's word is written whatever the driver answers.
    "get_hit_state": {None: dict(writes=[W("hit_state_out", "any")])},
    "pvs_get_property": {None: dict(writes=[W("pvs_value_out", "u32", 0xFFFFFFFF)])},
    # A handle not read back is status 3, whatever the driver said.
    "hash_input_get": {None: dict(status=("fixed", 3))},
    "hash_algorithm_get": {None: dict(status=("fixed", 3))},
    # The input read back first is not looked at for its status; the count is zeroed first.
    "hash_input_field_attribute_count_get": {
        "pipe_mgr_hash_calc_input_get": dict(status=("dropped", 0), writes=[W("attr_count_out", "u32", 0)]),
        None: dict(writes=[W("attr_count_out", "u32", 0)])},
    "hash_input_field_attribute_get": {
        "pipe_mgr_hash_calc_input_get": dict(status=("dropped", 0), writes=[W("num_attr_filled_out", "u32", 0)]),
        None: dict(writes=[W("num_attr_filled_out", "u32", 0)])},
    # Parameters set by the first call stay set when the enable is refused.
    "idle_tmo_enable": {"pipe_mgr_idle_tmo_set_enable": dict(state=True)},
    # The number of captures is zeroed first; a refused capture still has its buffer copied out.
    # The sizes' status is not looked at: the capture goes on with what the sizes left, a buffer of
    # none. No driver refuses the sizes of a snapshot and serves its capture, which has no size to
    # keep to, so the capture is refused with them.
    "snapshot_capture_data_get": {
        "bf_snapshot_capture_phv_fields_dict_size": dict(status=("paired", 0), writes=[
            W("num_captures", "u32", 0), W("capture", "any")]),
        "bf_snapshot_capture_get": dict(writes=[W("num_captures", "u32", 0), W("capture", "any")]),
        None: dict(writes=[W("num_captures", "u32", 0)])},
    # The member decoders dispatch on the handle the driver left, whatever it answered.
    "get_member_from_plcmt_data": {None: dict(writes=[W("tagged_spec_out", "any")])},
    "get_full_member_info_from_plcmt_data": {None: dict(writes=[W("tagged_spec_out", "any")])},
    # Printers report a failed decoding on their descriptor and return its status.
    "plcmt_data_print": {None: dict(fd_text=INJECTED_PRINT + "{subject}\n")},
    "adt_plcmt_data_print": {None: dict(fd_text=INJECTED_PRINT + "{subject}_adt_plcmt_data_print\n")},
    # Texts: a failed read is the length 0, the buffer untouched, the driver's status dropped.
    "table_value": {None: dict(status=("fixed", 0))},
    "stringify_counter_match_spec": {None: dict(status=("fixed", 0))},
    "plcmt_data_value": {None: dict(status=("fixed", 0))},
    "profile_plcmt_data_value": {None: dict(status=("fixed", 0))},
    # A datum that does not decode stops the process; a failed read of the entry is the answer
    # "different", with its text.
    "plcmt_data_eq_to_hw": {
        "pipe_mgr_plcmt_mat_data_get_entry": dict(status=("stop", 0)),
        None: dict(status=("fixed", 0), writes=[W("text_buf", "text", 0, P + "{subject}_get_entry failed")])},
    # Registration with the driver failing stops the process; the callbacks' status is not looked at.
    "init": {"bf_drv_register": dict(status=("stop", 0)),
             "bf_drv_client_register_callbacks": dict(status=("dropped", 0))},
}

# Allocation sites whose failure is status 2 with nothing done; the others (the resource lists of
# read-back, which out of memory reads as empty) give what the call gives without the failure.
ALLOC_TWO = {
    "del_group": [],
    "register_read": [],
    "register_range_read": [],
    "hash_input_field_attribute_set": [],
    "hash_input_field_attribute_get": [W("num_attr_filled_out", "u32", 0)],
    "hash_calculate_hash_value": [],
    "snapshot_capture_data_get": [W("num_captures", "u32", 0)],
}

# Comparisons of a datum with the device: a failed allocation in one of the two reads loses its
# resource list, which can show as a difference.
ALLOC_COMPARE = {"plcmt_data_eq_to_hw"}

# What a call gives on its world where that is not status 0: a text's length, an equal comparison.
BASE = {"table_value": "kPositive", "stringify_counter_match_spec": "kPositive", "plcmt_data_value": "kPositive",
        "profile_plcmt_data_value": "kPositive", "plcmt_data_eq_to_hw": 1}

# The engines that make no driver call and allocate nothing.
PURE = {"get_mat_table_handle", "supports_entry_priority", "key_field_width", "unbuild_key", "unbuild_mask",
        "unbuild_action_spec", "get_adt_table_handle", "get_sel_table_handle", "match_spec_schema", "action_schema",
        "table_schema", "profile_schema", "match_spec_value", "action_value", "match_spec_print", "action_print",
        "match_specs_are_equal", "action_specs_are_equal", "match_spec_stringify_for_counter"}

# Output argument words, and the input words that are outputs in some engines.
OUT_WORDS = {
    "priority_out", "tagged_spec_out", "action_name_out", "action_data_out", "action_number_out", "entry_hdl_out",
    "next_entry_hdls", "is_default_out", "count_out", "mbr_hdl_out", "next_mbr_hdls", "grp_hdl_out",
    "next_grp_hdls", "is_member_out", "is_group_out", "mbr_state_out", "active_mbr_hdls", "property_value_out",
    "property_args_out", "table_handle_out", "plcmt_list_out", "spec_if_actions_out", "mbr_hdl_if_bound_out",
    "grp_hdl_if_bound_out", "is_member_if_bound_out", "is_group_if_bound_out", "counter_value_out",
    "meter_spec_out", "bytecount_out", "register_values", "value_count_out", "num_read_out", "idle_params_out",
    "ttl_out", "hit_state_out", "pvs_value_out", "pvs_entry_value_out", "pvs_entry_mask_out", "pvs_hdl_out",
    "next_pvs_hdls", "hash_input_out", "hash_algorithm_out", "seed_out", "attr_count_out", "num_attr_filled_out",
    "hash_out", "text_buf"}
OUT_IN_ENGINE = {("get_entry", "key"), ("profile_get_entry", "key"), ("get_entry_from_plcmt_data", "key"),
                 ("hash_input_field_attribute_get", "attr_list")}
# Elements of an output array slot.
OUT_COUNT = {"next_entry_hdls": 4, "next_mbr_hdls": 4, "next_grp_hdls": 4, "active_mbr_hdls": 4, "next_pvs_hdls": 4,
             "register_values": 64, "hash_out": 8, "text_buf": 8192, "action_name_out": 256, "action_data_out": 256,
             "attr_list": 4}


def rget(r, key):
    """A column of a resource row, whether the catalog's table or a family row's view of it."""
    return r[key] if isinstance(r, dict) else getattr(r, key)


def c_str(s):
    return '"%s"' % s.replace("\\", "\\\\").replace('"', '\\"').replace("\n", "\\n")


# ---- Keys ----

def key_fill(t, which, ind="  "):
    """Statements filling `key` with the key of entry `which` (1, 2 or 3): every field that value
    (a byte string of it), every mask all ones, every prefix the whole field. Ternary keys differ
    by priority too, so that no two of them meet under a mask."""
    return "".join(ind + line + "\n" for line in _key_lines(t, which))


def _key_lines(t, which):
    s = "%s%s_match_spec_t key;\nstd::memset(&key, 0, sizeof key);\n" % (P, t.name)
    widths = {f.field: f.width for f in t.key}
    for kind, name, base, n in t.record_members():
        if kind == "reserved":
            continue
        if kind == "prefix":
            s += "key.%s = %d;\n" % (name, widths[name[: -len("_prefix_length")]])
        elif n:
            s += "std::memset(key.%s, %s, sizeof key.%s);\n" % (name, "0xFF" if kind == "mask" else which, name)
        else:
            s += "key.%s = %s;\n" % (name, "%s(~0u)" % base if kind == "mask" else "%s(%d)" % (base, which))
    return s.splitlines()


def priority_of(which):
    return "%du" % which


# ---- Worlds ----

class Gen:
    def __init__(self, cat):
        self.cat = cat
        self.setups = {}  # name -> body
        self.by_table = {t.name: t for t in cat.tables}
        self.by_profile = {p.name: p for p in cat.profiles}

    def table_action_call(self, t, ta, which, out):
        """The add of `ta` with key `which`, its handle into `out`."""
        args = ["kSess", "kTgt", "&key"]
        if t.priority:
            args.append(priority_of(which))
        pre = ""
        if ta.action.params:
            pre += "    %s%s_action_spec_t act;\n    std::memset(&act, 0, sizeof act);\n" % (P, ta.action.name)
            args.append("&act")
        if t.meter_spec_argument:
            args.append("&meter")
        if t.ttl_argument:
            args.append("1000u")
        args.append(out)
        return "  {\n" + key_fill(t, which, "    ") + pre + \
            "    must(\"add\", %s%s_table_add_with_%s(%s));\n  }\n" % (P, t.name, ta.action.name, ", ".join(args))

    def table_setup(self, t):
        name = "setup_table_" + t.name
        if name in self.setups:
            return name
        s = "void %s(World &w) {\n" % name
        s += "  p4_pd_meter_spec_t meter = {1, 2, 3, 4, 1};\n  (void)meter;\n"
        entry = next((a for a in t.actions if a.entry), None)
        if t.key and entry:
            s += self.table_action_call(t, entry, 1, "&w.e1")
            s += self.table_action_call(t, entry, 3, "&w.e2")
        dflt = next((a for a in t.actions if a.default), None)
        if dflt:
            args = ["kSess", "kTgt"]
            if dflt.action.params:
                s += "  %s%s_action_spec_t dact;\n  std::memset(&dact, 0, sizeof dact);\n" % (P, dflt.action.name)
                args.append("&dact")
            if t.meter_spec_argument:
                args.append("&meter")
            s += "  must(\"default\", %s%s_set_default_action_%s(%s, &w.dflt));\n" % (
                P, t.name, dflt.action.name, ", ".join(args))
        else:
            a = t.actions[0]
            s += "  static uint8_t image[64];\n  pipe_action_spec_t as;\n  std::memset(&as, 0, sizeof as);\n"
            s += "  as.action_data_type = PIPE_ACTION_DATA_TYPE;\n"
            s += "  as.act_data.num_action_data_bytes = %d;\n  as.act_data.num_valid_action_data_bits = %d;\n" % (
                a.action.data_bytes, a.action.data_bits)
            s += "  as.act_data.action_data_bytes = image;\n"
            s += "  must(\"initial default\", drvm_set_initial_default(kDev, 0x%x, 0x%x, &as));\n" % (t.handle, a.handle)
            s += "  must(\"default handle\", pipe_mgr_table_get_default_entry_handle(kSess, {kDev, 0xFFFF}, 0x%x, " \
                 "&w.dflt));\n" % t.handle
        s += self.common_table_setup(t)
        s += "}\n\n"
        self.setups[name] = s
        return name

    def common_table_setup(self, t):
        s = "  must(\"property\", pipe_mgr_tbl_set_property(kSess, kDev, 0x%x, 1, 2, 3, 0));\n" % t.handle
        s += "  must(\"placement\", pipe_mgr_plcmt_mat_data_get(kDev, &w.list, 0x%x));\n" % t.handle
        s += "  w.datum = pipe_mgr_plcmt_list_datum(w.list, 0, nullptr);\n"
        if t.idle_time:
            s += "  pipe_idle_time_params_t ip{};\n  ip.mode = 1;\n  ip.ttl_query_interval = 10;\n  ip.max_ttl = 1000;\n"
            s += "  ip.min_ttl = 10;\n  ip.callback_fn = &cb_idle;\n  ip.client_data = &w.cookie;\n"
            s += "  must(\"idle\", pipe_mgr_idle_set_params(kSess, kDev, 0x%x, ip));\n" % t.handle
        return s

    def member_with_params(self, p):
        return next((i for i, (a, h) in enumerate(p.members) if a.params), 0)

    def profile_setup(self, p):
        name = "setup_profile_" + p.name
        if name in self.setups:
            return name
        t = self.by_table[p.table]
        s = "void %s(World &w) {\n" % name
        s += "  must(\"profile\", drvm_set_profile(0x%x, 0x%x, 0x%x));\n" % (p.action_data_table, p.selector, t.handle)

        def add_member(a, out):
            args = ["kSess", "kTgt"]
            pre = ""
            if a.params:
                pre = "    %s%s_action_spec_t act;\n    std::memset(&act, 0, sizeof act);\n" % (P, a.name)
                args.append("&act")
            return "  {\n%s    must(\"member\", %s%s_add_member_with_%s(%s, %s));\n  }\n" % (
                pre, P, p.name, a.name, ", ".join(args), out)

        for i, (a, h) in enumerate(p.members):
            s += add_member(a, "&w.mbr[%d]" % i)
        a0 = p.members[0][0]
        s += add_member(a0, "&w.mbr_free")
        s += add_member(a0, "&w.mbr_x")
        for g in ("grp_bound", "grp_del"):
            s += "  must(\"group\", %s%s_create_group(kSess, kTgt, 8, &w.%s));\n" % (P, p.name, g)
            for i in (0, 1):
                s += "  must(\"join\", %s%s_add_member_to_group(kSess, kDev, w.%s, w.mbr[%d]));\n" % (P, p.name, g, i)
        for which, out, form, hdl in ((1, "&w.e1", "add_entry", "w.mbr[0]"),
                                      (3, "&w.e2", "add_entry_with_selector", "w.grp_bound")):
            args = ["kSess", "kTgt", "&key"] + ([priority_of(which)] if t.priority else []) + [hdl, out]
            s += "  {\n" + key_fill(t, which, "    ")
            s += "    must(\"bound entry\", %s%s_%s(%s));\n  }\n" % (P, t.name, form, ", ".join(args))
        s += "  must(\"bound default\", %s%s_set_default_entry(kSess, kTgt, w.mbr[0], &w.dflt));\n" % (P, t.name)
        s += "  must(\"fallback\", %s%s_set_dynamic_action_selection_fallback_member(kSess, kTgt, w.mbr[1]));\n" % (
            P, p.name)
        s += self.common_table_setup(t)
        s += "  must(\"member placement\", pipe_mgr_plcmt_adt_data_get(kDev, &w.mlist, 0x%x));\n" % p.action_data_table
        s += "  for (uint32_t i = 0, h = 0; i < pipe_mgr_plcmt_list_count(w.mlist); ++i) {\n"
        s += "    void *d = pipe_mgr_plcmt_list_datum(w.mlist, i, &h);\n"
        s += "    if (h == w.mbr[%d]) w.mdatum = d;\n  }\n" % self.member_with_params(p)
        s += "}\n\n"
        self.setups[name] = s
        return name

    def resource_setup(self, kind, r):
        name = "setup_%s_%s" % (kind, rget(r, "name") if isinstance(r, dict) else r.name)
        if name in self.setups:
            return name
        s = "void %s(World &w) {\n" % name
        if kind == "digest":
            h = rget(r, "handle")
            s += "  must(\"register\", pipe_mgr_lrn_digest_notification_register(kSess, kDev, 0x%x, &cb_digest, " \
                 "&w.cookie));\n" % h
            s += "  must(\"timeout\", pipe_mgr_flow_lrn_set_timeout(kSess, kDev, 0));\n"
            s += "  static const uint8_t record[%d] = {1};\n" % rget(r, "entry_bytes")
            s += "  must(\"learn\", drvm_learn(kDev, 0, 0x%x, record, 1));\n" % h
            s += "  w.msg = const_cast<pipe_flow_lrn_msg_t *>(drvm_learn_outstanding(kDev, 0x%x, 0));\n" % h
        elif kind == "value_set":
            for i, v in ((1, 1), (2, 2)):
                s += "  must(\"pvs entry\", pipe_mgr_pvs_entry_add(kSess, kDev, 0x%x, 0xFF, 0xFFFF, 0xFF, %d, " \
                     "0xFFFFFFFFu, &w.pvs%d));\n" % (rget(r, "handle"), v, i)
        elif kind == "hash":
            s += "  p4_pd_hash_calc_input_field_attribute_t attrs[2] = {};\n"
            s += "  attrs[0].input_field = 0;\n  attrs[0].type = 1;\n  attrs[0].value.val = 5;\n"
            s += "  attrs[1].input_field = 1;\n  attrs[1].type = 1;\n  attrs[1].value.val = 6;\n"
            s += "  must(\"attributes\", %shash_calc_%s_input_field_attribute_set(kSess, kDev, 0, 2, attrs));\n" % (
                P, rget(r, "name"))
        elif kind == "snapshot":
            s += "  must(\"snapshot\", bf_snapshot_create(kDev, 0xFFFF, 0, 3, BF_SNAPSHOT_DIR_INGRESS, &w.snap));\n"
        elif kind == "lifecycle":
            s += "  p4_pd_corvin_switch_init();\n"
        s += "  (void)w;\n}\n\n"
        self.setups[name] = s
        return name


# ---- Arguments ----

def slot_type(ctype):
    base = ctype.strip()
    assert base.endswith("*"), ctype
    base = base[:-1].strip()
    return "uint8_t" if base == "void" else base


class CaseWriter:
    def __init__(self, gen):
        self.gen = gen
        self.cases = []  # (entry text, body text)
        self.n = 0

    def value(self, engine, word, row, fam_name, pre):
        """The C expression of an input word, adding what it needs to `pre`."""
        t = row.table if row else None
        add = engine in ("table_add", "add_entry")
        which = 2 if add else 1
        keyless = t is not None and not t.key
        if word == "sess":
            return "kSess"
        if word == "tgt":
            return "kTgt"
        if word == "dev":
            return "kDev"
        if word == "dev8":
            return "uint8_t(kDev)"
        if word == "key":
            pre.append(key_fill(t, which))
            return "&key"
        if word == "priority":
            return priority_of(which)
        if word == "ttl":
            return "1000u"
        if word == "action_spec":
            a = row.act
            # Not the set-up's zeros: a change of parameters shows on the device.
            pre.append("  %s%s_action_spec_t act;\n  std::memset(&act, 1, sizeof act);\n" % (P, a.name))
            return "&act"
        if word in ("meter_spec", "meter_spec_in"):
            pre.append("  p4_pd_meter_spec_t meter = {1, 2, 3, 4, 1};\n")
            return "&meter"
        if word == "entry_hdl":
            return "w.dflt" if keyless else "w.e1"
        if word == "mbr_hdl":
            p = row.profile
            if engine == "modify_member":
                return "w.mbr[%d]" % [a.name for a, h in p.members].index(row.act.name)
            if engine == "del_member":
                return "w.mbr_free"
            if engine == "add_member_to_group":
                return "w.mbr_x"
            if engine in ("get_member", "get_full_member_info_from_plcmt_data"):
                return "w.mbr[%d]" % self.gen.member_with_params(p)
            if engine in ("modify_entry", "modify_entry_by_match_spec", "set_default_entry"):
                return "w.mbr[1]"  # the set-up bound the entries and the default to the first
            return "w.mbr[0]"
        if word == "grp_hdl":
            if engine in ("add_entry", "modify_entry", "modify_entry_by_match_spec", "set_default_entry",
                          "get_next_groups"):
                return "w.grp_bound"
            return "w.grp_del"
        if word == "read_from_hw":
            return "1"
        if word == "n":
            return "4"
        if word == "max_grp_size":
            return "8u"
        if word == "mbr_state":
            return "1u"
        if word == "hash":
            pre.append("  uint8_t hash_bytes[4] = {1, 2, 3, 4};\n")
            return "hash_bytes"
        if word == "hash_len":
            return "4u"
        if word == "word_index":
            return "0u"
        if word == "word_count":
            return "4u"
        if word == "property":
            return "1u"
        if word == "property_value":
            return "2u"
        if word == "property_args":
            return "3u"
        if word == "mat_update_cb":
            return "&cb_mat"
        if word == "sel_tbl_update_cb":
            return "&cb_sel_tbl"
        if word == "adt_update_cb":
            return "&cb_adt"
        if word == "sel_update_cb":
            return "&cb_sel"
        if word == "cookie":
            return "&w.cookie"
        if word == "plcmt_data":
            return "w.mdatum" if engine in ("get_member_from_plcmt_data", "get_full_member_info_from_plcmt_data",
                                            "adt_plcmt_data_print", "profile_plcmt_data_value") else "w.datum"
        if word == "cell":
            return "w.e1" if row.res.binding == "direct" else "5u"
        if word == "index":
            return "3u"
        if word == "count":
            return "4u"
        if word == "read_flags":
            return "1u"
        if word == "counter_value":
            return "p4_pd_counter_value_t{1, 2}"
        if word in ("stat_sync_cb", "register_sync_cb", "hit_state_cb"):
            return "&cb_sync"
        if word == "bytecount":
            return "5"
        if word == "register_value":
            pre.append("  uint8_t reg_value = 1;\n")
            return "&reg_value"
        if word == "idle_params":
            pre.append("  p4_pd_idle_time_params_t idle{};\n  idle.mode = 1;\n  idle.ttl_query_interval = 20;\n"
                       "  idle.max_ttl = 2000;\n  idle.min_ttl = 20;\n  idle.callback = &cb_idle;\n"
                       "  idle.cookie = &w.cookie;\n")
            return "idle"
        if word == "idle_tmo_cb":
            return "&cb_idle"
        if word == "ttl_value":
            return "500u"
        if word == "digest_cb":
            return "&cb_digest"
        if word == "digest_msg":
            return "w.msg"
        if word == "pvs_property":
            return "0u"
        if word == "pvs_value":
            return "1u"
        if word == "pvs_args":
            return "0u"
        if word == "gress":
            return "0xFFu"
        if word == "pipe":
            return "0xFFFFu"
        if word == "parser_id":
            return "uint8_t(0xFF)"
        if word == "pvs_entry_value":
            return {"pvs_entry_add": "3u", "pvs_entry_handle_get": "1u", "pvs_entry_modify": "5u"}[engine]
        if word == "pvs_entry_mask":
            return "0xFFFFFFFFu"
        if word == "pvs_hdl":
            return "w.pvs1"
        if word == "read_from_hw_flag":
            return "uint8_t(0)"
        if word in ("hash_input", "hash_algorithm"):
            return "0u"
        if word == "seed":
            return "uint64_t(0x1234)"
        if word == "attr_count":
            return "2u"
        if word == "max_attr_count":
            return "4u"
        if word == "attr_list":
            pre.append("  p4_pd_hash_calc_input_field_attribute_t attrs[2] = {};\n  attrs[0].input_field = 0;\n"
                       "  attrs[0].type = 1;\n  attrs[0].value.val = 0x12;\n  attrs[1].input_field = 1;\n"
                       "  attrs[1].type = 1;\n  attrs[1].value.val = 0x3456;\n")
            return "attrs"
        if word == "attr_sizes":
            pre.append("  uint32_t sizes[2] = {8, 16};\n")
            return "sizes"
        if word == "hash_out_len":
            return "8u"
        if word == "fd":
            return "w.fd"
        if word == "indent":
            return "2"
        if word == "tbl_hdl":
            return "0x%xu" % t.handle
        raise KeyError("no value for argument word %s of %s" % (word, fam_name))

    def add(self, name, family, text_name, subject, setup, call_body, engine, prep=None, after=None,
            int_result=False, base=0):
        i = self.n
        self.n += 1
        body = "static int64_t call_%d(World &w, Outs &o) {\n  (void)w;\n  (void)o;\n%s}\n" % (i, call_body)
        if prep:
            body += "static void prep_%d(World &w) {\n  (void)w;\n%s}\n" % (i, prep)
        if after:
            body += "static void after_%d(World &w, Outs &o, int64_t r) {\n  (void)w;\n%s}\n" % (i, after)
        rules = "kRules_%s" % (engine if engine in RULES else "default")
        alloc = ("Status::fixed", "kAlloc_%s" % engine) if engine in ALLOC_TWO else ("Status::same", "nullptr")
        nalloc = "sizeof kAlloc_%s / sizeof kAlloc_%s[0]" % (engine, engine) if engine in ALLOC_TWO and \
            ALLOC_TWO[engine] else "0"
        if engine in ALLOC_TWO and not ALLOC_TWO[engine]:
            alloc = ("Status::fixed", "nullptr")
        if engine in ALLOC_COMPARE:
            alloc = ("Status::dropped", "nullptr")
        base = BASE.get(engine, base)
        entry = "  {%s, %s, %s, %s, &%s, %s, &call_%d, %s, %s, %s, sizeof %s / sizeof %s[0], %s, %s, %s, %s},\n" % (
            c_str(name), c_str(family), c_str(text_name), subject, setup, "&prep_%d" % i if prep else "nullptr", i,
            "&after_%d" % i if after else "nullptr", "true" if int_result else "false", rules, rules, rules,
            alloc[0], alloc[1], nalloc, base)
        self.cases.append((entry, body))

    def family_case(self, fam, ex):
        row = ex.row
        engine = fam.engine
        words = [w for w in fam.args if fam_mod.ARGS[w].present(row)]
        pre, args, outs = [], [], []
        for word, (ctype, pname) in zip(words, ex.params):
            if word in OUT_WORDS or (engine, word) in OUT_IN_ENGINE:
                n = OUT_COUNT.get(word, 1)
                outs.append("  auto *%s = o.get<%s>(%s, %d);\n" % ("o_" + word, slot_type(ctype), c_str(word), n))
                args.append("o_" + word)
            else:
                args.append(self.value(engine, word, row, fam.pattern, pre))
        call = "".join(pre) + "".join(outs)
        call += "  return int64_t(%s(%s));\n" % (ex.name, ", ".join(args))
        subject, setup = self.subject_of(engine, row)
        prep = after = None
        base = 0
        if engine == "digest_register":
            prep = "  must(\"deregister\", pipe_mgr_lrn_digest_notification_deregister(kSess, kDev, 0x%x));\n" % \
                rget(row.res, "handle")
        if engine in ("get_plcmt_data", "adt_get_plcmt_data", "sel_get_plcmt_data"):
            after = "  if (r == 0) pipe_mgr_plcmt_list_destroy(*o.get_existing<void *>(\"plcmt_list_out\"));\n"
        t = row.table
        if t is not None and not t.key and engine in ("get_first_entry_handle",):
            base = 10  # a keyless table has no entry to walk
        if t is not None and not t.key and engine in ("get_next_entry_handles",):
            base = 6  # nor one to start a walk from
        text_name = row.table.name if row.table else row.profile.name if row.profile else rget(row.res, "name")
        self.add(ex.name, fam.pattern, text_name, subject, setup, call, engine, prep=prep, after=after,
                 int_result=fam.ret == "int", base=base)

    def subject_of(self, engine, row):
        g = self.gen
        if row.res_kind:
            r = row.res
            kind = row.res_kind
            if kind in ("counter", "meter"):
                if r.binding == "direct":
                    t = g.by_table[r.table]
                    return self.table_subject("table", t, res=r.handle), g.table_setup(t)
                return "{Kind::%s, %s, 0, 0, 0, 0x%x, 5}" % (kind, c_str(r.name), r.handle), \
                    "setup_nothing"
            if kind == "register":
                return "{Kind::reg, %s, 0, 0, 0, 0x%x, 3}" % (c_str(rget(r, "name")), rget(r, "handle")), "setup_nothing"
            if kind == "digest":
                return "{Kind::digest, %s, 0, 0, 0, 0x%x, 0}" % (c_str(rget(r, "name")), rget(r, "handle")), \
                    g.resource_setup("digest", r)
            if kind == "value_set":
                return "{Kind::value_set, %s, 0, 0, 0, 0x%x, 0}" % (c_str(rget(r, "name")), rget(r, "handle")), \
                    g.resource_setup("value_set", r)
            if kind == "hash":
                return "{Kind::hash, %s, 0, 0, 0, 0x%x, 0}" % (c_str(rget(r, "name")), rget(r, "handle")), \
                    g.resource_setup("hash", r)
            raise KeyError(kind)
        if row.profile is not None:
            p = row.profile
            return self.profile_subject(p), g.profile_setup(p)
        t = row.table
        if t.profile:
            p = g.by_profile[t.profile]
            return self.profile_subject(p), g.profile_setup(p)
        return self.table_subject("table", t), g.table_setup(t)

    def table_subject(self, kind, t, res=0):
        res = res or (t.resource.handle if t.resource else 0)
        return "{Kind::%s, %s, 0x%x, 0, 0, 0x%x, 0}" % (kind, c_str(t.name), t.handle, res)

    def profile_subject(self, p):
        t = self.gen.by_table[p.table]
        return "{Kind::profile, %s, 0x%x, 0x%x, 0x%x, 0, 0}" % (c_str(p.name), t.handle, p.action_data_table,
                                                               p.selector)


# ---- Dispatchers by handle ----

DISPATCH_ENGINE = {
    "entry_hdl_first": "get_first_entry_handle", "entry_hdl_next": "get_next_entry_handles",
    "entry_hdl_default": "table_get_default_entry_handle", "member_hdl_first": "get_first_member",
    "member_hdl_next": "get_next_members", "entry_value": "table_value", "plcmt_data_print": "plcmt_data_print",
    "adt_plcmt_data_print": "adt_plcmt_data_print", "plcmt_data_value": "plcmt_data_value",
    "adt_plcmt_data_value": "profile_plcmt_data_value", "plcmt_data_eq_to_hw": "plcmt_data_eq_to_hw",
    "stringify_counter_matchspec": "stringify_counter_match_spec",
}
DISPATCH_SLOT = {"buf": "text_buf", "entry_hdl": "entry_hdl_out", "next_entry_handles": "next_entry_hdls",
                 "mbr_hdl": "mbr_hdl_out", "next_mbr_hdls": "next_mbr_hdls"}


def dispatcher_cases(cw, cat):
    g = cw.gen
    for d in fam_mod.DISPATCHERS:
        short = d.name[len(P):]
        if short not in DISPATCH_ENGINE:
            continue  # the schema dispatcher: no driver
        engine = DISPATCH_ENGINE[short]
        for handle, subject in fam_mod.dispatch_rows(cat, d):
            t = g.by_table.get(subject)
            p = g.by_profile.get(subject)
            args, outs = [], []
            for ctype, pname in d.params:
                if pname == d.handle:
                    args.append("0x%xu" % handle)
                elif ctype.endswith("*") and pname in DISPATCH_SLOT:
                    slot = DISPATCH_SLOT[pname]
                    n = OUT_COUNT.get(slot, 1)
                    outs.append("  auto *o_%s = o.get<%s>(%s, %d);\n" % (slot, slot_type(ctype), c_str(slot), n))
                    args.append("o_" + slot)
                elif pname == "sess_hdl":
                    args.append("kSess")
                elif pname == "dev_tgt":
                    args.append("kTgt")
                elif pname == "dev_id":
                    args.append("uint8_t(kDev)")
                elif pname == "entry_hdl":
                    args.append("w.dflt" if t is not None and not t.key else "w.e1")
                elif pname == "mbr_hdl":
                    args.append("w.mbr[0]")
                elif pname == "n":
                    args.append("4")
                elif pname == "read_from_hw":
                    args.append("1")
                elif pname == "fd":
                    args.append("w.fd")
                elif pname == "indent":
                    args.append("2")
                elif pname == "plcmt_data":
                    args.append("w.mdatum" if p is not None else "w.datum")
                elif pname == "ignored":
                    args.append("0u")
                else:
                    raise KeyError("dispatcher %s argument %s" % (d.name, pname))
            call = "".join(outs) + "  return int64_t(%s(%s));\n" % (d.name, ", ".join(args))
            if p is not None:
                subj, setup = cw.profile_subject(p), g.profile_setup(p)
            elif t.profile:
                pp = g.by_profile[t.profile]
                subj, setup = cw.profile_subject(pp), g.profile_setup(pp)
            else:
                subj, setup = cw.table_subject("table", t), g.table_setup(t)
            base = 0
            if t is not None and not t.key and engine == "get_first_entry_handle":
                base = 10
            if t is not None and not t.key and engine == "get_next_entry_handles":
                base = 6
            cw.add("%s(%s)" % (d.name, subject), d.name, subject, subj, setup, call, engine, int_result=d.ret == "int",
                   base=base)


# ---- Functions written by hand ----

def generic_cases(cw, cat):
    g = cw.gen
    keyed = next(t for t in cat.tables if t.key and not t.profile and any(a.entry for a in t.actions))
    reg = cat.registers[0]
    packets = next(m for m in cat.meters if m.binding == "indirect" and m.unit == "packets")
    byte_m = next(m for m in cat.meters if m.binding == "indirect" and m.unit != "packets")
    first_profile = cat.profiles[0]
    # The direct register the generic functions reach: the catalog has none, so the model is told
    # that the first keyed table has one, under the table's own handle.
    direct_setup = "setup_direct_register"
    g.setups[direct_setup] = (
        "void setup_direct_register(World &w) {\n  %s(w);\n"
        "  must(\"direct register\", drvm_declare_direct_register(0x%x, 0x%x, 2, 1));\n}\n\n" % (
            g.table_setup(keyed), keyed.handle, keyed.handle))
    direct = "{Kind::direct_register, %s, 0x%x, 0, 0, 0x%x, 0}" % (c_str(keyed.name), keyed.handle, keyed.handle)
    register = "{Kind::reg, %s, 0, 0, 0, 0x%x, 3}" % (c_str(reg["name"]), reg["handle"])
    query = ("  p4_pd_stful_mem_spec_t *cells = o.get<p4_pd_stful_mem_spec_t>(\"cells\", 4);\n"
             "  p4_pd_stful_mem_query_t q;\n  q.pipe_count = 4;\n  q.data = cells;\n")
    cell = "  p4_pd_stful_mem_spec_t cell{};\n  cell.bytes[0] = 1;\n"
    rh = "0x%xu" % reg["handle"]
    gen = [
        ("register_read_direct", direct, direct_setup,
         query + "  return int64_t(%sregister_read_direct(kSess, kTgt, 0x%xu, w.e1, 1u, &q));\n" % (P, keyed.handle)),
        ("register_write_direct", direct, direct_setup,
         "  uint8_t data[16] = {1};\n  return int64_t(%sregister_write_direct(kSess, uint8_t(kDev), 0x%xu, w.e1, "
         "data));\n" % (P, keyed.handle)),
        ("register_hw_sync_direct", direct, direct_setup,
         "  return int64_t(%sregister_hw_sync_direct(kSess, kTgt, 0x%xu, &cb_sync, &w.cookie));\n" % (P, keyed.handle)),
        ("register_read_indirect", register, "setup_nothing",
         query + "  return int64_t(%sregister_read_indirect(kSess, kTgt, %s, 3u, 1u, &q));\n" % (P, rh)),
        ("register_write_indirect", register, "setup_nothing",
         cell + "  return int64_t(%sregister_write_indirect(kSess, kTgt, %s, 3u, &cell));\n" % (P, rh)),
        ("register_hw_sync_indirect", register, "setup_nothing",
         "  return int64_t(%sregister_hw_sync_indirect(kSess, kTgt, %s, &cb_sync, &w.cookie));\n" % (P, rh)),
        ("register_reset_all_indirect", register, "setup_nothing",
         "  return int64_t(%sregister_reset_all_indirect(kSess, kTgt, %s));\n" % (P, rh)),
        ("register_range_reset_indirect", register, "setup_nothing",
         "  return int64_t(%sregister_range_reset_indirect(kSess, kTgt, %s, 0u, 4u));\n" % (P, rh)),
        ("register_write_all_indirect", register, "setup_nothing",
         cell + "  return int64_t(%sregister_write_all_indirect(kSess, kTgt, %s, &cell));\n" % (P, rh)),
    ]
    for fn, m in (("packets_meter", packets), ("bytes_meter", byte_m)):
        subj = "{Kind::meter, %s, 0, 0, 0, 0x%x, 5}" % (c_str(m.name), m.handle)
        gen.append((fn + "_set", subj, "setup_nothing",
                    "  p4_pd_meter_spec_t meter = {1, 2, 3, 4, 1};\n  return int64_t(%s%s_set(kSess, kTgt, 0x%xu, 5u, "
                    "&meter, 1));\n" % (P, fn, m.handle)))
        gen.append((fn + "_read", subj, "setup_nothing",
                    "  auto *o_meter_spec_out = o.get<p4_pd_meter_spec_t>(\"meter_spec_out\");\n"
                    "  return int64_t(%s%s_read(kSess, kTgt, 0x%xu, 5u, o_meter_spec_out));\n" % (P, fn, m.handle)))
    gen.append(("wred_set", "{Kind::wred, \"wred\", 0, 0, 0, kWred, 5}", "setup_nothing",
                "  p4_pd_wred_spec_t wred = {1, 2, 3, 4};\n  return int64_t(%swred_set(kSess, kTgt, kWred, 5u, &wred));\n"
                % P))
    gen.append(("set_learning_timeout", "{Kind::digest, \"timeout\", 0, 0, 0, 0x%x, 0}" % cat.digests[0]["handle"],
                "setup_nothing", "  return int64_t(%sset_learning_timeout(kSess, uint8_t(kDev), 1234u));\n" % P))
    snap = "{Kind::snapshot, \"snapshot\", 0, 0, 0, 0, 0}"
    snap_setup = g.resource_setup("snapshot", {"name": "snapshot"})
    gen += [
        ("snapshot_create", snap, snap_setup,
         "  auto *o_hdl = o.get<p4_pd_snapshot_hdl_t>(\"snapshot_hdl_out\");\n"
         "  return int64_t(%ssnapshot_create(kTgt, 0, 3, BF_SNAPSHOT_DIR_EGRESS, o_hdl));\n" % P),
        ("snapshot_delete", snap, snap_setup, "  return int64_t(%ssnapshot_delete(w.snap));\n" % P),
        ("snapshot_capture_trigger_set", snap, snap_setup,
         "  static %ssnapshot_trig_spec_t value, mask;\n  std::memset(&value, 1, sizeof value);\n"
         "  std::memset(&mask, 0xFF, sizeof mask);\n"
         "  return int64_t(%ssnapshot_capture_trigger_set(w.snap, &value, &mask));\n" % (P, P)),
        ("snapshot_capture_data_get", snap, snap_setup,
         "  auto *o_capture = o.get<%ssnapshot_capture_arr_t>(\"capture\");\n"
         "  auto *o_ctrl = o.get<p4_pd_snapshot_capture_ctrl_info_arr_t>(\"ctrl\");\n"
         "  auto *o_num = o.get<int>(\"num_captures\");\n"
         "  return int64_t(%ssnapshot_capture_data_get(w.snap, 0u, o_capture, o_ctrl, o_num));\n" % (P, P)),
    ]
    for name, subj, setup, body in gen:
        cw.add(P + name, P + name, name, subj, setup, body, name)
    life = g.resource_setup("lifecycle", {"name": "lifecycle"})
    none = "{Kind::none, \"lifecycle\", 0, 0, 0, 0, 0}"
    cw.add(P + "init", P + "init", "init", none, "setup_nothing", "  %sinit();\n  return 0;\n" % P, "init")
    cw.add(P + "cleanup", P + "cleanup", "cleanup", none, life, "  return int64_t(%scleanup());\n" % P, "cleanup")
    cw.add(P + "restore_virtual_dev_state", P + "restore_virtual_dev_state", first_profile.name,
           cw.profile_subject(first_profile),
           g.profile_setup(first_profile),
           "  return int64_t(%srestore_virtual_dev_state(kSess, kDev, 0xFFFFu, 0u, 0u));\n" % P,
           "restore_virtual_dev_state")


# ---- Output ----

def rules_text():
    out = []

    def writes_array(name, writes):
        if not writes:
            return "nullptr", "0"
        items = ", ".join("{%s, Write::%s, 0x%xu, %s}" % (c_str(s), k, v, c_str(t) if t else "nullptr")
                          for s, k, v, t in writes)
        out.append("static const Written %s[] = {%s};\n" % (name, items))
        return name, "sizeof %s / sizeof %s[0]" % (name, name)

    def rule(engine_rules, engine):
        items = []
        keys = [k for k in engine_rules if k is not None] + [None]
        for j, fn in enumerate(keys):
            r = engine_rules.get(fn, {})
            st = r.get("status", ("injected", 0))
            wname, wcount = writes_array("kW_%s_%d" % (engine, j), r.get("writes", []))
            items.append("{%s, Status::%s, %du, %s, %s, %s, %s}" % (
                c_str(fn) if fn else "nullptr", st[0], st[1], "true" if r.get("state") else "false", wname, wcount,
                c_str(rget(r, "fd_text")) if r.get("fd_text") else "nullptr"))
        out.append("static const Rule kRules_%s[] = {%s};\n" % (engine, ",\n    ".join(items)))

    rule({}, "default")
    for engine, r in RULES.items():
        rule(r, engine)
    for engine, writes in ALLOC_TWO.items():
        if writes:
            items = ", ".join("{%s, Write::%s, 0x%xu, nullptr}" % (c_str(s), k, v) for s, k, v, t in writes)
            out.append("static const Written kAlloc_%s[] = {%s};\n" % (engine, items))
    return "".join(out)


def declarations(cat):
    o = ["void declare_resources() {\n"]
    for c in cat.counters:
        if c.binding == "indirect":
            o.append("  must(\"counter\", drvm_declare_counter(0x%x, 64));\n" % c.handle)
    for m in cat.meters:
        if m.binding == "indirect":
            o.append("  must(\"meter\", drvm_declare_meter(0x%x, 64));\n" % m.handle)
        else:
            o.append("  must(\"direct meter\", drvm_declare_direct_meter(0x%x, 0x%x));\n" % (
                cat.table(m.table).handle, m.handle))
    for r in cat.registers:
        o.append("  must(\"register\", drvm_declare_register(0x%x, 64, 2, 1, nullptr));\n" % rget(r, "handle"))
    for t in cat.tables:
        if t.idle_time:
            o.append("  must(\"idle\", drvm_declare_idle_table(0x%x));\n" % t.handle)
    for d in cat.digests:
        o.append("  must(\"digest\", drvm_declare_digest(0x%x, %d));\n" % (d["handle"], d["entry_bytes"]))
    for v in cat.value_sets:
        o.append("  must(\"value set\", drvm_declare_value_set(0x%x, 16, 32));\n" % v["handle"])
    kinds = {}
    for h in cat.hashes:
        kinds.setdefault(h["algorithm"], "DRVM_HASH_CRC_32" if not kinds else "DRVM_HASH_CRC_32C")
    for a, k in sorted(kinds.items()):
        o.append("  must(\"algorithm\", drvm_declare_hash_algorithm(0x%x, %s));\n" % (a, k))
    for h in cat.hashes:
        o.append("  must(\"hash\", drvm_declare_hash(0x%x, 0x%x, 0x%x));\n" % (h["handle"], h["input"], h["algorithm"]))
    o.append("  must(\"wred\", drvm_declare_wred(kWred, 64));\n")
    o.append("}\n")
    return "".join(o)


HEAD = """// Generated by tests/gen_fault_cases.py from the catalog. Do not edit.
#include <cstring>

#include "fault_cases.h"

namespace fault {

// A WRED table for wred_set: the program declares none.
constexpr uint32_t kWred = 0x7000001;

"""


def main(argv):
    cat = cat_mod.load(argv[0])
    out_dir = argv[1]
    parts = int(argv[2])
    gen = Gen(cat)
    cw = CaseWriter(gen)
    pure = {}
    for fam in fam_mod.FAMILIES:
        rows = fam_mod.ROWS[fam.rows](cat)
        if fam.engine in PURE:
            pure[fam.pattern] = pure.get(fam.pattern, 0) + len(rows)
            continue
        for row in rows:
            cw.family_case(fam, fam_mod.Export(fam, row))
    dispatcher_cases(cw, cat)
    generic_cases(cw, cat)

    os.makedirs(out_dir, exist_ok=True)
    per = (len(cw.cases) + parts - 1) // parts
    rules = rules_text()
    names = sorted(gen.setups) + ["setup_nothing"]
    protos = "".join("void %s(World &w);\n" % n for n in names)
    world = [HEAD, protos, "\nvoid setup_nothing(World &) {}\n\n"] + [gen.setups[k] for k in sorted(gen.setups)]
    world.append(declarations(cat))
    world.append("\n}  // namespace fault\n")
    write(os.path.join(out_dir, "fault_world.cpp"), "".join(world))
    for i in range(parts):
        chunk = cw.cases[i * per:(i + 1) * per]
        text = [HEAD, protos, "\nnamespace {\n\n", rules, "".join(b for e, b in chunk), "\n}  // namespace\n\n"]
        text.append("extern const Case kCases_%d[];\nconst Case kCases_%d[] = {\n%s};\n" % (
            i, i, "".join(e for e, b in chunk)))
        text.append("extern const size_t kCaseCount_%d;\nconst size_t kCaseCount_%d = %d;\n" % (i, i, len(chunk)))
        text.append("\n}  // namespace fault\n")
        write(os.path.join(out_dir, "fault_cases_%d.cpp" % i), "".join(text))

    idx = ["// Generated by tests/gen_fault_cases.py from the catalog. Do not edit.\n",
           '#include "fault_cases.h"\n\nnamespace fault {\n\n']
    for i in range(parts):
        idx.append("extern const Case kCases_%d[];\nextern const size_t kCaseCount_%d;\n" % (i, i))
    idx.append("const Case *const kCaseParts[] = {%s};\n" % ", ".join("kCases_%d" % i for i in range(parts)))
    idx.append("const size_t kCasePartCounts[] = {%s};\n" % ", ".join("kCaseCount_%d" % i for i in range(parts)))
    idx.append("const size_t kCaseParts_n = %d;\n\n" % parts)
    idx.append("const uint32_t kAllTables[] = {%s};\nconst size_t kAllTableCount = %d;\n" % (
        ", ".join("0x%xu" % t.handle for t in cat.tables), len(cat.tables)))
    idx.append("const ProfileHandles kAllProfiles[] = {\n%s};\nconst size_t kAllProfileCount = %d;\n" % (
        "".join("  {%s, 0x%xu, 0x%xu, 0x%xu},\n" % (c_str(p.name), p.action_data_table, p.selector,
                                                  cat.table(p.table).handle) for p in cat.profiles), len(cat.profiles)))
    idx.append("const PureFamily kPureFamilies[] = {\n%s};\nconst size_t kPureFamilyCount = %d;\n" % (
        "".join("  {%s, %d},\n" % (c_str(k), v) for k, v in pure.items()), len(pure)))
    direct = [t for t in cat.tables if not t.profile]
    idx.append("const DirectTable kDirectTables[] = {\n%s};\nconst size_t kDirectTableCount = %d;\n" % (
        "".join("  {%s, 0x%xu, 0x%xu, &%s%s_table_get_default_entry},\n" % (
            c_str(t.name), t.handle, t.actions[0].handle, P, t.name) for t in direct), len(direct)))
    bound = [t for t in cat.tables if t.profile]
    idx.append("const BoundTable kBoundTables[] = {\n%s};\nconst size_t kBoundTableCount = %d;\n" % (
        "".join("  {%s, 0x%xu, &%s%s_table_get_default_entry},\n" % (c_str(t.name), t.handle, P, t.name)
                for t in bound), len(bound)))
    names = [e.name for e in fam_mod.exports(cat)] + [d.name for d in fam_mod.DISPATCHERS]
    idx.append("const char *const kExportNames[] = {\n%s};\nconst size_t kExportNameCount = %d;\n" % (
        "".join("  %s,\n" % c_str(n) for n in names), len(names)))
    idx.append("\n}  // namespace fault\n")
    write(os.path.join(out_dir, "fault_index.cpp"), "".join(idx))
    return 0


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
