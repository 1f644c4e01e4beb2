#!/usr/bin/env python3
"""The library's dynamic symbol table holds exactly the exports the catalog makes exist, family by
family: no family member missing, nothing of the engine or the C++ runtime leaking. The expected
names come from the raw catalog rows by the families' patterns, not from the generator's lists;
the counts per family are printed.

    exports_test.py CATALOG LIBRARY
"""

import re
import subprocess
import sys
import tomllib

P = "p4_pd_corvin_switch_"


def expected(cat):
    """{family: names}: each family's members, named by pattern over the raw catalog rows."""
    tables, actions, profiles = cat["table"], cat["action"], cat["profile"]
    keyed = [t for t in tables if t.get("key")]
    masked = [t for t in keyed if any(f.get("match") in ("ternary", "lpm") for f in t["key"])]
    bound = [t for t in tables if t.get("profile")]
    with_params = [a for a in actions if a.get("params")]
    counted = sorted({c["table"] for c in cat["counter"] if c["binding"] == "direct"})
    fam = {}

    def each(pattern, rows):
        """A family with one member per row; the pattern names the row by one <placeholder>."""
        fam[pattern] = {P + re.sub(r"<[a-z_]+>", r["name"] if isinstance(r, dict) else r, pattern) for r in rows}

    def single(*names):
        for n in names:
            fam[n] = {n if n == "bf_drv_hdl" else P + n}

    single("init", "cleanup", "device_state_cleanup", "action_enum_to_string", "action_string_to_enum",
           "action_name_strings", "bf_drv_hdl")
    # Entries of match tables, per entry or default action a table allows.
    for op, use in (("table_add_with", "E"), ("table_modify_with", "E"), ("set_default_action", "D")):
        fam["<table>_%s_<action>" % op] = {"%s%s_%s_%s" % (P, t["name"], op, a["action"])
                                           for t in tables for a in t.get("actions", []) if use in a["use"]}
    fam["<table>_table_modify_with_<action>_by_match_spec"] = {
        "%s%s_table_modify_with_%s_by_match_spec" % (P, t["name"], a["action"])
        for t in tables for a in t.get("actions", []) if "E" in a["use"]}
    for s in ("table_reset_default_entry", "table_get_default_entry_handle", "table_get_default_entry", "get_entry",
              "get_first_entry_handle", "get_next_entry_handles", "get_entry_count", "set_property", "get_property",
              "register_mat_update_cb", "get_mat_table_handle", "supports_entry_priority", "get_plcmt_data",
              "get_entry_from_plcmt_data", "plcmt_data_print", "plcmt_data_value", "plcmt_data_eq_to_hw", "value",
              "schema"):
        each("<table>_" + s, tables)
    for s in ("table_delete", "table_delete_by_match_spec", "match_spec_to_entry_hdl", "match_spec_schema",
              "match_spec_value", "match_spec_print", "match_specs_are_equal"):
        each("<table>_" + s, keyed)
    fam["<table>_<field>_width"] = {
        "%s%s_%s_width" % (P, t["name"], f["field"][:-len("_valid")] if f["field"].endswith("_valid") else f["field"])
        for t in keyed for f in t["key"]}
    fam["unbuild_key_<table>"] = {"unbuild_key_" + t["name"] for t in keyed}
    fam["unbuild_mask_<table>"] = {"unbuild_mask_" + t["name"] for t in masked}
    fam["unbuild_action_spec_<action>"] = {"unbuild_action_spec_" + a["name"] for a in with_params}
    # Actions.
    each("<action>_schema", actions)
    each("<action>_value", actions)
    for s in ("print", "action_specs_are_equal"):
        each("<action>_" + s, with_params)
    # Action profiles and their bound tables.
    fam["<profile>_add_member_with_<action>"] = {"%s%s_add_member_with_%s" % (P, p["name"], m["action"])
                                                 for p in profiles for m in p["members"]}
    fam["<profile>_modify_member_with_<action>"] = {"%s%s_modify_member_with_%s" % (P, p["name"], m["action"])
                                                    for p in profiles for m in p["members"]}
    for s in ("del_member", "register_callback", "create_group", "del_group", "add_member_to_group",
              "del_member_from_group", "group_member_state_set", "group_member_state_get",
              "group_member_get_from_hash", "set_dynamic_action_selection_fallback_member",
              "reset_dynamic_action_selection_fallback_member", "sel_track_updates", "get_member",
              "get_first_member", "get_next_members", "get_first_group", "get_next_groups", "get_first_group_member",
              "get_next_group_members", "get_act_prof_entry_count", "get_selector_group_count",
              "get_selector_group_member_count", "get_word_llp_active_member_count", "get_word_llp_active_members",
              "register_adt_update_cb", "register_sel_update_cb", "get_adt_table_handle", "get_sel_table_handle",
              "get_plcmt_data", "sel_get_plcmt_data", "get_member_from_plcmt_data",
              "get_full_member_info_from_plcmt_data", "adt_plcmt_data_print", "plcmt_data_value", "schema"):
        fam["<profile>_" + s] = {P + p["name"] + "_" + s for p in profiles}
    for s in ("add_entry", "add_entry_with_selector", "modify_entry", "modify_entry_with_selector",
              "modify_entry_by_match_spec", "modify_entry_with_selector_by_match_spec", "set_default_entry",
              "set_default_entry_with_selector"):
        each("<table>_" + s, bound)
    single("restore_virtual_dev_state", "ha_restore_state_from_adt_sel")
    # Resources.
    for op in ("counter_read_", "counter_write_", "counter_hw_sync_"):
        each(op + "<counter>", cat["counter"])
    for op in ("meter_set_", "meter_read_", "meter_bytecount_adjust_set_", "meter_bytecount_adjust_get_"):
        each(op + "<meter>", cat["meter"])
    for op in ("read", "write", "write_all", "reset_all", "range_reset", "range_read", "hw_sync"):
        each("register_%s_<register>" % op, cat["register"])
    for s in ("idle_tmo_enable", "idle_tmo_disable", "idle_register_tmo_cb", "idle_params_get", "set_ttl", "get_ttl",
              "reset_ttl", "update_hit_state", "get_hit_state"):
        each("<table>_" + s, [t for t in tables if t.get("idle_time")])
    for s in ("register", "deregister", "notify_ack"):
        each("<digest>_" + s, cat["digest"])
    for op in ("set_property", "get_property", "entry_add", "entry_modify", "entry_delete", "entry_get",
               "entry_handle_get", "entry_get_first_entry_handle", "entry_get_next_entry_handles", "entry_get_count"):
        each("pvs_<value_set>_" + op, cat["value_set"])
    for op in ("input_set", "input_get", "algorithm_set", "algorithm_get", "seed_set", "seed_get",
               "input_field_attribute_set", "input_field_attribute_count_get", "input_field_attribute_get",
               "calculate_hash_value"):
        each("hash_calc_<hash>_" + op, cat["hash"])
    single(*("register_" + op for op in ("read_direct", "write_direct", "read_indirect", "write_indirect",
                                         "hw_sync_direct", "hw_sync_indirect", "reset_all_indirect",
                                         "range_reset_indirect", "write_all_indirect")))
    single("packets_meter_set", "packets_meter_read", "bytes_meter_set", "bytes_meter_read", "wred_set",
           "get_digest_entry_field", "get_digest_entry_size", "set_learning_timeout", "snapshot_create",
           "snapshot_delete", "snapshot_capture_trigger_set", "snapshot_capture_data_get")
    # Counter labels: two for each table with a direct counter, and the address formatters.
    for s in ("match_spec_stringify_for_counter", "stringify_counter_match_spec"):
        each("<table>_" + s, counted)
    single(*("_print_%s_%s" % (a, k) for a in ("v4addr", "v6addr") for k in ("exact", "lpm", "ternary")))
    single("_print_mac_exact", "_print_mac_ternary")
    # Dispatch by handle.
    single("entry_hdl_first", "entry_hdl_next", "entry_hdl_default", "member_hdl_first", "member_hdl_next",
           "entry_value", "cli_schema", "plcmt_data_print", "adt_plcmt_data_print", "plcmt_data_value",
           "adt_plcmt_data_value", "plcmt_data_eq_to_hw", "stringify_counter_matchspec")
    return fam


def exported(lib):
    out = subprocess.run(["nm", "-D", "--defined-only", lib], check=True, capture_output=True, text=True).stdout
    names = set()
    for line in out.splitlines():
        parts = line.split()
        if len(parts) == 3 and parts[1] in "TDBRVW":
            names.add(parts[2])
    # Under AddressSanitizer the compiler gives each global variable the library exports a one-byte
    # marker of its own, "__odr_asan.<variable>", exported beside it. Those markers are not the
    # library's; a marker without its variable still counts as an unexpected export.
    odr = "__odr_asan."
    return {n for n in names if not (n.startswith(odr) and n[len(odr):] in names)}


def main(argv):
    with open(argv[0], "rb") as f:
        cat = tomllib.load(f)
    fam = expected(cat)
    want, got = set().union(*fam.values()), exported(argv[1])
    # Every family's members are its own: no name is counted twice.
    overlap = sum(len(v) for v in fam.values()) - len(want)
    missing, extra = sorted(want - got), sorted(got - want)
    for n in missing[:20]:
        print("missing export:", n)
    for n in extra[:20]:
        print("unexpected export:", n)
    singles = sorted(k for k, v in fam.items() if len(v) == 1)
    for k, v in sorted(fam.items(), key=lambda kv: (-len(kv[1]), kv[0])):
        if len(v) > 1:
            print("%6d  %s" % (len(v), k))
    print("%6d  single exports: %s" % (len(singles), ", ".join(singles)))
    data = {P + "action_name_strings", "bf_drv_hdl"}
    print("%d exports expected (%d functions and %d data objects) in %d families, %d found" % (
        len(want), len(want - data), len(data), len(fam), len(got)))
    ok = not missing and not extra and overlap == 0
    if overlap:
        print("%d names stand in two families" % overlap)
    print("%d passed, %d failed" % (1 if ok else 0, 0 if ok else 1))
    return 0 if ok else 1


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
