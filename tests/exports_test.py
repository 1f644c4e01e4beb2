#!/usr/bin/env python3
"""The library's dynamic symbol table holds exactly the exports the catalog makes exist for the
families built so far: no family member missing, nothing of the engine or the C++ runtime leaking.

    exports_test.py CATALOG LIBRARY
"""

import subprocess
import sys
import tomllib

P = "p4_pd_corvin_switch_"


def expected(cat):
    names = {P + "init", P + "cleanup", P + "device_state_cleanup",
             P + "action_enum_to_string", P + "action_string_to_enum",
             P + "action_name_strings", "bf_drv_hdl"}
    for t in cat["table"]:
        n = P + t["name"]
        for a in t.get("actions", []):
            if "E" in a["use"]:
                names |= {"%s_table_add_with_%s" % (n, a["action"]), "%s_table_modify_with_%s" % (n, a["action"]),
                          "%s_table_modify_with_%s_by_match_spec" % (n, a["action"])}
            if "D" in a["use"]:
                names.add("%s_set_default_action_%s" % (n, a["action"]))
        names |= {n + s for s in ("_table_reset_default_entry", "_table_get_default_entry_handle",
                                  "_table_get_default_entry", "_get_entry", "_get_first_entry_handle",
                                  "_get_next_entry_handles", "_get_entry_count", "_set_property", "_get_property",
                                  "_register_mat_update_cb", "_get_mat_table_handle", "_supports_entry_priority")}
        key = t.get("key", [])
        if key:
            names |= {n + "_table_delete", n + "_table_delete_by_match_spec", n + "_match_spec_to_entry_hdl",
                      "unbuild_key_" + t["name"]}
            if any(f.get("match") in ("ternary", "lpm") for f in key):
                names.add("unbuild_mask_" + t["name"])
        for f in key:
            field = f["field"][:-len("_valid")] if f["field"].endswith("_valid") else f["field"]
            names.add("%s_%s_width" % (n, field))
    for a in cat["action"]:
        if a.get("params"):
            names.add("unbuild_action_spec_" + a["name"])
    names |= {P + "restore_virtual_dev_state", P + "ha_restore_state_from_adt_sel"}
    for p in cat["profile"]:
        n = P + p["name"]
        for m in p["members"]:
            names |= {"%s_add_member_with_%s" % (n, m["action"]), "%s_modify_member_with_%s" % (n, m["action"])}
        names |= {n + s for s in (
            "_del_member", "_register_callback", "_create_group", "_del_group", "_add_member_to_group",
            "_del_member_from_group", "_group_member_state_set", "_group_member_state_get",
            "_group_member_get_from_hash", "_set_dynamic_action_selection_fallback_member",
            "_reset_dynamic_action_selection_fallback_member", "_sel_track_updates", "_get_member",
            "_get_first_member", "_get_next_members", "_get_first_group", "_get_next_groups",
            "_get_first_group_member", "_get_next_group_members", "_get_act_prof_entry_count",
            "_get_selector_group_count", "_get_selector_group_member_count", "_get_word_llp_active_member_count",
            "_get_word_llp_active_members", "_register_adt_update_cb", "_register_sel_update_cb",
            "_get_adt_table_handle", "_get_sel_table_handle")}
    for t in cat["table"]:
        if t.get("profile"):
            n = P + t["name"]
            names |= {n + s for s in (
                "_add_entry", "_add_entry_with_selector", "_modify_entry", "_modify_entry_with_selector",
                "_modify_entry_by_match_spec", "_modify_entry_with_selector_by_match_spec", "_set_default_entry",
                "_set_default_entry_with_selector")}
    for c in cat["counter"]:
        names |= {P + op + c["name"] for op in ("counter_read_", "counter_write_", "counter_hw_sync_")}
    for m in cat["meter"]:
        names |= {P + op + m["name"] for op in ("meter_set_", "meter_read_", "meter_bytecount_adjust_set_",
                                                 "meter_bytecount_adjust_get_")}
    for r in cat["register"]:
        names |= {P + "register_%s_%s" % (op, r["name"]) for op in (
            "read", "write", "write_all", "reset_all", "range_reset", "range_read", "hw_sync")}
    for t in cat["table"]:
        if t.get("idle_time"):
            names |= {P + t["name"] + s for s in (
                "_idle_tmo_enable", "_idle_tmo_disable", "_idle_register_tmo_cb", "_idle_params_get", "_set_ttl",
                "_get_ttl", "_reset_ttl", "_update_hit_state", "_get_hit_state")}
    for d in cat["digest"]:
        names |= {P + d["name"] + s for s in ("_register", "_deregister", "_notify_ack")}
    for v in cat["value_set"]:
        names |= {P + "pvs_%s_%s" % (v["name"], op) for op in (
            "set_property", "get_property", "entry_add", "entry_modify", "entry_delete", "entry_get",
            "entry_handle_get", "entry_get_first_entry_handle", "entry_get_next_entry_handles", "entry_get_count")}
    for h in cat["hash"]:
        names |= {P + "hash_calc_%s_%s" % (h["name"], op) for op in (
            "input_set", "input_get", "algorithm_set", "algorithm_get", "seed_set", "seed_get",
            "input_field_attribute_set", "input_field_attribute_count_get", "input_field_attribute_get",
            "calculate_hash_value")}
    names |= {P + "register_" + op for op in (
        "read_direct", "write_direct", "read_indirect", "write_indirect", "hw_sync_direct", "hw_sync_indirect",
        "reset_all_indirect", "range_reset_indirect", "write_all_indirect")}
    names |= {P + n for n in ("packets_meter_set", "packets_meter_read", "bytes_meter_set", "bytes_meter_read",
                              "wred_set", "get_digest_entry_field", "get_digest_entry_size", "set_learning_timeout",
                              "snapshot_create", "snapshot_delete", "snapshot_capture_trigger_set",
                              "snapshot_capture_data_get")}
    # Schema texts: every key, action, table and profile.
    names |= {P + t["name"] + "_match_spec_schema" for t in cat["table"] if t.get("key")}
    names |= {P + a["name"] + "_schema" for a in cat["action"]}
    names |= {P + t["name"] + "_schema" for t in cat["table"] + cat["profile"]}
    # Value texts and printers of records.
    names |= {P + t["name"] + s for t in cat["table"] if t.get("key") for s in ("_match_spec_value", "_match_spec_print")}
    names |= {P + a["name"] + "_value" for a in cat["action"]}
    names |= {P + a["name"] + "_print" for a in cat["action"] if a.get("params")}
    names |= {P + t["name"] + "_value" for t in cat["table"]}
    # Comparisons of records.
    names |= {P + t["name"] + "_match_specs_are_equal" for t in cat["table"] if t.get("key")}
    names |= {P + a["name"] + "_action_specs_are_equal" for a in cat["action"] if a.get("params")}
    # Dispatch by handle.
    names |= {P + n for n in ("entry_hdl_first", "entry_hdl_next", "entry_hdl_default", "member_hdl_first",
                              "member_hdl_next", "entry_value", "cli_schema")}
    # Counter labels: two for each table with a direct counter, the address formatters, a dispatcher.
    names |= {P + c["table"] + s for c in cat["counter"] if c["binding"] == "direct"
              for s in ("_match_spec_stringify_for_counter", "_stringify_counter_match_spec")}
    names |= {P + "_print_%s_%s" % (a, k) for a in ("v4addr", "v6addr") for k in ("exact", "lpm", "ternary")}
    names |= {P + "_print_mac_exact", P + "_print_mac_ternary", P + "stringify_counter_matchspec"}
    # Placement data: getters, decoders, printers, value texts and the hardware check.
    names |= {P + t["name"] + s for t in cat["table"] for s in (
        "_get_plcmt_data", "_get_entry_from_plcmt_data", "_plcmt_data_print", "_plcmt_data_value",
        "_plcmt_data_eq_to_hw")}
    names |= {P + p["name"] + s for p in cat["profile"] for s in (
        "_get_plcmt_data", "_sel_get_plcmt_data", "_get_member_from_plcmt_data",
        "_get_full_member_info_from_plcmt_data", "_adt_plcmt_data_print", "_plcmt_data_value")}
    names |= {P + n for n in ("plcmt_data_print", "adt_plcmt_data_print", "plcmt_data_value", "adt_plcmt_data_value",
                              "plcmt_data_eq_to_hw")}
    return names


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
    want, got = expected(cat), exported(argv[1])
    missing, extra = sorted(want - got), sorted(got - want)
    for n in missing[:20]:
        print("missing export:", n)
    for n in extra[:20]:
        print("unexpected export:", n)
    adds = sum(1 for n in want if "_table_add_with_" in n)
    print("%d exports expected (%d entry adds), %d found" % (len(want), adds, len(got)))
    ok = not missing and not extra
    print("%d passed, %d failed" % (1 if ok else 0, 0 if ok else 1))
    return 0 if ok else 1


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
