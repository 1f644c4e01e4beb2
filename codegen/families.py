"""The library's exported families, as data.

A family is one entry of FAMILIES: the pattern of its exports' names, the catalog rows it runs
over, its arguments by name, the engine function its glue calls and the descriptors it hands that
function. Arguments are words of one vocabulary, ARGS, which says once for each its C type and
name, on which rows it stands in the prototype, and what the engine receives where it does not.
Every glue function calls its engine with all of the family's arguments, in the family's order, so
an engine function's parameter list is the family's argument list.

Adding a family is adding an entry here and its engine function in src/pd; see codegen/README.md.
"""

from dataclasses import dataclass
from typing import Callable, Optional, Union

from catalog import PREFIX

Text = Union[str, Callable]  # a text, or a function of the row that gives it


def _text(t, row):
    return t(row) if callable(t) else t


def key_record(t):
    return PREFIX + t.name + "_match_spec_t"


def param_record(a):
    return PREFIX + a.name + "_action_spec_t"


@dataclass(frozen=True)
class Arg:
    """One argument word: its C type and name in a prototype, the rows on which it stands there
    (all, when `when` is None), what the engine receives in its place on other rows, and how the
    engine receives it when it stands (its name, unless `passed` says otherwise)."""

    ctype: Optional[Text]
    name: Text
    when: Optional[Callable] = None
    absent: str = "nullptr"
    passed: Optional[str] = None
    engine_only: bool = False

    def present(self, row):
        return not self.engine_only and (self.when is None or bool(self.when(row)))

    def param(self, row):
        return (_text(self.ctype, row), _text(self.name, row))

    def engine_value(self, row):
        if self.engine_only:
            return _text(self.name, row)
        if not self.present(row):
            return self.absent
        return self.passed if self.passed is not None else _text(self.name, row)


def _has_params(row):
    return bool(row.act.params)


ARGS = {
    # The exported function's own name, for the assertion path.
    "func": Arg(None, "__func__", engine_only=True),
    "sess": Arg("p4_pd_sess_hdl_t", "sess_hdl"),
    "tgt": Arg("p4_pd_dev_target_t", "dev_tgt"),
    "dev": Arg("uint32_t", "dev_id"),
    # Keys and what goes with them.
    "key": Arg(lambda r: key_record(r.table) + " *", "match_spec", when=lambda r: r.table.key),
    "priority": Arg("uint32_t", "priority", when=lambda r: r.table.priority, absent="0"),
    "priority_out": Arg("uint32_t *", "priority", when=lambda r: r.table.priority),
    "ttl": Arg("uint32_t", "ttl", when=lambda r: r.table.ttl_argument, absent="0"),
    # Actions.
    "action_spec": Arg(lambda r: param_record(r.act) + " *", "action_spec", when=_has_params),
    "meter_spec": Arg("p4_pd_meter_spec_t *", lambda r: r.table.resource.name + "_spec",
                      when=lambda r: r.table.meter_spec_argument),
    "tagged_spec_out": Arg("p4_pd_corvin_switch_action_spec_t *", "action_spec"),
    "action_name_out": Arg("char *", "action_name"),
    "action_data_out": Arg("void *", "action_data"),
    "action_number_out": Arg("p4_pd_corvin_switch_action_enum_t *", "action"),
    # Entries.
    "entry_hdl": Arg("p4_pd_entry_hdl_t", "entry_hdl"),
    "entry_hdl_out": Arg("p4_pd_entry_hdl_t *", "entry_hdl"),
    "next_entry_hdls": Arg("p4_pd_entry_hdl_t *", "next_entry_handles"),
    "read_from_hw": Arg("uint8_t", "read_from_hw"),
    "is_default_out": Arg("uint8_t *", "is_default_entry"),
    "n": Arg("int", "n"),
    "count_out": Arg("uint32_t *", "count"),
    # Members and groups.
    "mbr_hdl": Arg("p4_pd_mbr_hdl_t", "mbr_hdl"),
    "mbr_hdl_out": Arg("p4_pd_mbr_hdl_t *", "mbr_hdl"),
    "next_mbr_hdls": Arg("p4_pd_mbr_hdl_t *", "next_mbr_hdls"),
    "grp_hdl": Arg("p4_pd_grp_hdl_t", "grp_hdl"),
    "grp_hdl_out": Arg("p4_pd_grp_hdl_t *", "grp_hdl"),
    "next_grp_hdls": Arg("p4_pd_grp_hdl_t *", "next_grp_hdls"),
    "is_member_out": Arg("uint8_t *", "is_member"),
    "is_group_out": Arg("uint8_t *", "is_group"),
    "max_grp_size": Arg("uint32_t", "max_grp_size"),
    "mbr_state": Arg("p4_pd_grp_mbr_state_e", "mbr_state"),
    "mbr_state_out": Arg("p4_pd_grp_mbr_state_e *", "mbr_state"),
    "hash": Arg("uint8_t *", "hash"),
    "hash_len": Arg("uint32_t", "hash_len"),
    "word_index": Arg("uint32_t", "word_index"),
    "word_count": Arg("uint32_t", "count"),
    "active_mbr_hdls": Arg("p4_pd_mbr_hdl_t *", "mbr_hdls"),
    # Table accessors and callbacks.
    "property": Arg("p4_pd_tbl_prop_type_t", "property"),
    "property_value": Arg("p4_pd_tbl_prop_value_t", "value"),
    "property_args": Arg("p4_pd_tbl_prop_args_t", "args"),
    "property_value_out": Arg("p4_pd_tbl_prop_value_t *", "value"),
    "property_args_out": Arg("p4_pd_tbl_prop_args_t *", "args"),
    "table_handle_out": Arg("uint32_t *", "table_handle"),
    "mat_update_cb": Arg("p4_pd_mat_update_cb", "cb"),
    "sel_tbl_update_cb": Arg("p4_pd_sel_tbl_update_cb", "cb"),
    "adt_update_cb": Arg("p4_pd_adt_update_cb", "cb"),
    "sel_update_cb": Arg("p4_pd_sel_update_cb", "cb"),
    "cookie": Arg("void *", "cookie"),
    # Decoders: the driver's records in, the caller's records out.
    "pipe_match_spec": Arg("pipe_tbl_match_spec_t *", "pipe_match_spec", passed="*pipe_match_spec"),
    "key_record_out": Arg(lambda r: key_record(r.table) + " *", "match_spec"),
    "pipe_action_data_spec": Arg("pipe_action_data_spec_t *", "pipe_action_data_spec",
                                 passed="*pipe_action_data_spec"),
    "res_spec": Arg("p4_pd_res_spec_t *", "res_spec"),
    "res_count": Arg("int", "res_count"),
    "params_out": Arg(lambda r: param_record(r.act) + " *", "action_spec"),
    # Resources: a cell is addressed by its entry (direct) or by an index (indirect).
    "cell": Arg(lambda r: "p4_pd_entry_hdl_t" if r.res.binding == "direct" else "uint32_t",
                lambda r: "entry_hdl" if r.res.binding == "direct" else "index"),
    "index": Arg("uint32_t", "index"),
    "count": Arg("uint32_t", "count"),
    "read_flags": Arg("uint32_t", "flags"),
    "counter_value": Arg("p4_pd_counter_value_t", "counter_value"),
    "counter_value_out": Arg("p4_pd_counter_value_t *", "counter_value"),
    "stat_sync_cb": Arg("p4_pd_stat_sync_cb", "cb"),
    "meter_spec_in": Arg("p4_pd_meter_spec_t *", "meter_spec"),
    "meter_spec_out": Arg("p4_pd_meter_spec_t *", "meter_spec"),
    "bytecount": Arg("int32_t", "bytecount"),
    "bytecount_out": Arg("int32_t *", "bytecount"),
    "register_value": Arg("uint8_t *", "register_value"),
    "register_values": Arg("uint8_t *", "register_values"),
    "value_count_out": Arg("int *", "value_count"),
    "num_read_out": Arg("uint32_t *", "num_actually_read"),
    "register_sync_cb": Arg("p4_pd_register_sync_cb", "cb"),
    # Idle time.
    "idle_params": Arg("p4_pd_idle_time_params_t", "params"),
    "idle_params_out": Arg("p4_pd_idle_time_params_t *", "params"),
    "idle_tmo_cb": Arg("p4_pd_idle_tmo_expiry_cb", "cb"),
    "hit_state_cb": Arg("p4_pd_idle_tmo_update_complete_cb", "cb"),
    "ttl_value": Arg("uint32_t", "ttl"),
    "ttl_out": Arg("uint32_t *", "ttl"),
    "hit_state_out": Arg("p4_pd_idle_time_hit_state_e *", "hit_state"),
    # Digests.
    "dev8": Arg("uint8_t", "dev_id"),
    "digest_cb": Arg("p4_pd_digest_notify_cb", "cb"),
    "digest_msg": Arg("p4_pd_digest_msg_t *", "msg"),
    # Parser value sets.
    "pvs_property": Arg("p4_pd_pvs_prop_type_t", "property"),
    "pvs_value": Arg("p4_pd_pvs_prop_value_t", "value"),
    "pvs_value_out": Arg("p4_pd_pvs_prop_value_t *", "value"),
    "pvs_args": Arg("p4_pd_pvs_prop_args_t", "args"),
    "gress": Arg("p4_pd_pvs_gress_t", "gress"),
    "pipe": Arg("uint32_t", "pipe_id"),
    "parser_id": Arg("uint8_t", "parser_id"),
    "pvs_entry_value": Arg("uint32_t", "value"),
    "pvs_entry_mask": Arg("uint32_t", "mask"),
    "pvs_entry_value_out": Arg("uint32_t *", "value"),
    "pvs_entry_mask_out": Arg("uint32_t *", "mask"),
    "pvs_hdl": Arg("p4_pd_pvs_hdl_t", "pvs_entry_handle"),
    "pvs_hdl_out": Arg("p4_pd_pvs_hdl_t *", "pvs_entry_handle"),
    "next_pvs_hdls": Arg("p4_pd_pvs_hdl_t *", "next_pvs_entry_handles"),
    "read_from_hw_flag": Arg("uint8_t", "read_from_hw"),
    # Dynamic hashes.
    "hash_input": Arg("p4_pd_hash_calc_input_t", "input"),
    "hash_input_out": Arg("p4_pd_hash_calc_input_t *", "input"),
    "hash_algorithm": Arg("p4_pd_hash_calc_algorithm_t", "algorithm"),
    "hash_algorithm_out": Arg("p4_pd_hash_calc_algorithm_t *", "algorithm"),
    "seed": Arg("uint64_t", "seed"),
    "seed_out": Arg("uint64_t *", "seed"),
    "attr_count": Arg("uint32_t", "attr_count"),
    "attr_count_out": Arg("uint32_t *", "attr_count"),
    "max_attr_count": Arg("uint32_t", "max_attr_count"),
    "attr_list": Arg("p4_pd_hash_calc_input_field_attribute_t *", "attr_list"),
    "num_attr_filled_out": Arg("uint32_t *", "num_attr_filled"),
    "attr_sizes": Arg("uint32_t *", "attr_sizes"),
    "hash_out": Arg("uint8_t *", "hash"),
    "hash_out_len": Arg("uint32_t", "hash_len"),
    # Text.
    "text_buf": Arg("char *", "buf"),
    "fd": Arg("int", "fd"),
    "key_a": Arg(lambda r: key_record(r.table) + " *", "match_spec1"),
    "key_b": Arg(lambda r: key_record(r.table) + " *", "match_spec2"),
    "params_a": Arg(lambda r: param_record(r.act) + " *", "action_spec1"),
    "params_b": Arg(lambda r: param_record(r.act) + " *", "action_spec2"),
    "indent": Arg("int", "indent"),
    "key_in": Arg(lambda r: "const " + key_record(r.table) + " *", "match_spec"),
    # Placement data.
    "plcmt_list_out": Arg("void **", "plcmt_data"),
    "plcmt_data": Arg("void *", "plcmt_data"),
    "spec_if_actions_out": Arg("p4_pd_corvin_switch_action_spec_t *", "action_spec", when=lambda r: not r.profile),
    "mbr_hdl_if_bound_out": Arg("p4_pd_mbr_hdl_t *", "mbr_hdl", when=lambda r: r.profile),
    "grp_hdl_if_bound_out": Arg("p4_pd_grp_hdl_t *", "grp_hdl", when=lambda r: r.profile),
    "is_member_if_bound_out": Arg("uint8_t *", "is_member", when=lambda r: r.profile),
    "is_group_if_bound_out": Arg("uint8_t *", "is_group", when=lambda r: r.profile),
    "tbl_hdl": Arg("uint32_t", "tbl_hdl"),
}


@dataclass(frozen=True)
class Family:
    """One family: exports named by `pattern` (with {table}, {action}, {profile}, {field}, or a
    resource kind: {counter}, {meter}, {register}, {digest}, {value_set}, {hash}), one per row of
    `rows`, each calling `engine` with the row's descriptors `templates` (with {T} table, {U} table
    action, {A} action, {P} profile, {M} profile member, {I} key field position, {R} resource; in
    the reflection layer {X} table, {Y} action, {Z} profile; the row's names, {table} and the like,
    may stand there too) and every argument of `args`."""

    pattern: str
    rows: str
    args: tuple
    engine: str
    templates: str = "{T}"
    ret: str = "p4_pd_status_t"
    header: str = "tables"
    layer: str = "pd"  # "pd", the driver-facing engine, or "pd_corvin", the reflection layer


def F(pattern, rows, args, engine, templates="{T}", ret="p4_pd_status_t", header="tables", layer="pd"):
    return Family(pattern, rows, tuple(args.split()), engine, templates, ret, header, layer)


def RES(pattern, rows, args, engine, templates="{R}"):
    """A family of the resources header, by default over the row's resource descriptor."""
    return F(pattern, rows, args, engine, templates, header="resources")


def R(pattern, rows, args, engine, templates, ret):
    """A family of the reflection layer."""
    return F(pattern, rows, args, engine, templates, ret, header="reflection", layer="pd_corvin")


TU = "{T}, {U}"
TP = "{T}, {P}"
PM = "{P}, {M}"
P = PREFIX

FAMILIES = [
    # ---- Match tables: entries ----
    F(P + "{table}_table_add_with_{action}", "entry_pairs",
      "func sess tgt key priority action_spec meter_spec ttl entry_hdl_out", "table_add", TU),
    F(P + "{table}_table_modify_with_{action}", "entry_pairs",
      "func sess dev entry_hdl action_spec meter_spec", "table_modify", TU),
    F(P + "{table}_table_modify_with_{action}_by_match_spec", "entry_pairs",
      "func sess tgt key priority action_spec meter_spec", "table_modify_by_match_spec", TU),
    F(P + "{table}_set_default_action_{action}", "default_pairs",
      "func sess tgt action_spec meter_spec entry_hdl_out", "set_default_action", TU),
    F(P + "{table}_table_delete", "keyed_tables", "sess dev entry_hdl", "table_delete"),
    F(P + "{table}_table_delete_by_match_spec", "keyed_tables", "sess tgt key priority",
      "table_delete_by_match_spec"),
    F(P + "{table}_match_spec_to_entry_hdl", "keyed_tables", "sess tgt key priority entry_hdl_out",
      "match_spec_to_entry_hdl"),
    # ---- Match tables: default entries and read-back ----
    F(P + "{table}_table_reset_default_entry", "tables", "sess tgt", "table_reset_default_entry"),
    F(P + "{table}_table_get_default_entry_handle", "tables", "sess tgt entry_hdl_out",
      "table_get_default_entry_handle"),
    F(P + "{table}_table_get_default_entry", "direct_tables", "sess tgt read_from_hw tagged_spec_out",
      "table_get_default_entry"),
    F(P + "{table}_table_get_default_entry", "bound_tables",
      "sess tgt read_from_hw is_member_out is_group_out grp_hdl_out mbr_hdl_out",
      "profile_table_get_default_entry"),
    F(P + "{table}_get_entry", "direct_tables",
      "func sess dev entry_hdl read_from_hw key priority_out action_name_out action_data_out "
      "action_number_out is_default_out", "get_entry"),
    F(P + "{table}_get_entry", "bound_tables",
      "sess dev entry_hdl read_from_hw key priority_out is_member_out is_group_out grp_hdl_out "
      "mbr_hdl_out is_default_out", "profile_get_entry"),
    # ---- Match tables: walks and accessors ----
    F(P + "{table}_get_first_entry_handle", "tables", "sess tgt entry_hdl_out", "get_first_entry_handle"),
    F(P + "{table}_get_next_entry_handles", "tables", "sess tgt entry_hdl n next_entry_hdls",
      "get_next_entry_handles"),
    F(P + "{table}_get_entry_count", "tables", "sess tgt count_out", "get_entry_count"),
    F(P + "{table}_set_property", "tables", "sess dev property property_value property_args", "set_property"),
    F(P + "{table}_get_property", "tables", "sess dev property property_value_out property_args_out",
      "get_property"),
    F(P + "{table}_register_mat_update_cb", "tables", "sess dev mat_update_cb cookie", "register_mat_update_cb"),
    F(P + "{table}_get_mat_table_handle", "tables", "table_handle_out", "get_mat_table_handle"),
    F(P + "{table}_supports_entry_priority", "tables", "", "supports_entry_priority", ret="int"),
    F(P + "{table}_{field}_width", "key_fields", "", "key_field_width", "{T}, {I}", ret="int"),
    # ---- Placement data ----
    F(P + "{table}_get_plcmt_data", "tables", "dev plcmt_list_out", "get_plcmt_data"),
    F(P + "{table}_get_entry_from_plcmt_data", "tables_with_profiles",
      "func plcmt_data key priority_out spec_if_actions_out mbr_hdl_if_bound_out grp_hdl_if_bound_out "
      "is_member_if_bound_out is_group_if_bound_out is_default_out", "get_entry_from_plcmt_data"),
    F(P + "{profile}_get_plcmt_data", "profiles", "dev plcmt_list_out", "adt_get_plcmt_data", "{P}",
      header="profiles"),
    F(P + "{profile}_sel_get_plcmt_data", "profiles", "dev plcmt_list_out", "sel_get_plcmt_data", "{P}",
      header="profiles"),
    F(P + "{profile}_get_member_from_plcmt_data", "profiles", "func plcmt_data tagged_spec_out",
      "get_member_from_plcmt_data", "{P}", header="profiles"),
    F(P + "{profile}_get_full_member_info_from_plcmt_data", "profiles", "func dev mbr_hdl plcmt_data tagged_spec_out",
      "get_full_member_info_from_plcmt_data", "{P}", header="profiles"),
    # ---- Decoders ----
    F("unbuild_key_{table}", "keyed_tables", "pipe_match_spec key_record_out", "unbuild_key", ret="void",
      header="decoders"),
    F("unbuild_mask_{table}", "masked_tables", "pipe_match_spec key_record_out", "unbuild_mask", ret="void",
      header="decoders"),
    F("unbuild_action_spec_{action}", "actions_with_params",
      "pipe_action_data_spec res_spec res_count params_out", "unbuild_action_spec", "{A}", ret="void",
      header="decoders"),
    # ---- Profile members ----
    F(P + "{profile}_add_member_with_{action}", "profile_members", "sess tgt action_spec mbr_hdl_out",
      "add_member", PM, header="profiles"),
    F(P + "{profile}_modify_member_with_{action}", "profile_members", "sess dev mbr_hdl action_spec",
      "modify_member", PM, header="profiles"),
    F(P + "{profile}_del_member", "profiles", "sess dev mbr_hdl", "del_member", "{P}", header="profiles"),
    F(P + "{profile}_register_callback", "profiles", "sess dev sel_tbl_update_cb cookie", "register_callback",
      "{P}", header="profiles"),
    # ---- Selector groups ----
    F(P + "{profile}_create_group", "profiles", "sess tgt max_grp_size grp_hdl_out", "create_group", "{P}",
      header="profiles"),
    F(P + "{profile}_del_group", "profiles", "sess dev grp_hdl", "del_group", "{P}", header="profiles"),
    F(P + "{profile}_add_member_to_group", "profiles", "sess dev grp_hdl mbr_hdl", "add_member_to_group", "{P}",
      header="profiles"),
    F(P + "{profile}_del_member_from_group", "profiles", "sess dev grp_hdl mbr_hdl", "del_member_from_group",
      "{P}", header="profiles"),
    F(P + "{profile}_group_member_state_set", "profiles", "func sess dev grp_hdl mbr_hdl mbr_state",
      "group_member_state_set", "{P}", header="profiles"),
    F(P + "{profile}_group_member_state_get", "profiles", "sess dev grp_hdl mbr_hdl mbr_state_out",
      "group_member_state_get", "{P}", header="profiles"),
    F(P + "{profile}_group_member_get_from_hash", "profiles", "sess dev grp_hdl hash hash_len mbr_hdl_out",
      "group_member_get_from_hash", "{P}", header="profiles"),
    F(P + "{profile}_set_dynamic_action_selection_fallback_member", "profiles", "sess tgt mbr_hdl",
      "set_fallback_member", "{P}", header="profiles"),
    F(P + "{profile}_reset_dynamic_action_selection_fallback_member", "profiles", "sess tgt",
      "reset_fallback_member", "{P}", header="profiles"),
    F(P + "{profile}_sel_track_updates", "profiles", "dev sel_tbl_update_cb cookie", "sel_track_updates", "{P}",
      header="profiles"),
    # ---- Entries bound to a profile ----
    F(P + "{table}_add_entry", "bound_tables", "sess tgt key priority mbr_hdl entry_hdl_out", "add_entry",
      TP + ", Bind::member", header="profiles"),
    F(P + "{table}_add_entry_with_selector", "bound_tables", "sess tgt key priority grp_hdl entry_hdl_out",
      "add_entry", TP + ", Bind::group", header="profiles"),
    F(P + "{table}_modify_entry", "bound_tables", "sess dev entry_hdl mbr_hdl", "modify_entry",
      TP + ", Bind::member", header="profiles"),
    F(P + "{table}_modify_entry_with_selector", "bound_tables", "sess dev entry_hdl grp_hdl", "modify_entry",
      TP + ", Bind::group", header="profiles"),
    F(P + "{table}_modify_entry_by_match_spec", "bound_tables", "sess tgt key priority mbr_hdl",
      "modify_entry_by_match_spec", TP + ", Bind::member", header="profiles"),
    F(P + "{table}_modify_entry_with_selector_by_match_spec", "bound_tables", "sess tgt key priority grp_hdl",
      "modify_entry_by_match_spec", TP + ", Bind::group", header="profiles"),
    F(P + "{table}_set_default_entry", "bound_tables", "sess tgt mbr_hdl entry_hdl_out", "set_default_entry",
      TP + ", Bind::member", header="profiles"),
    F(P + "{table}_set_default_entry_with_selector", "bound_tables", "sess tgt grp_hdl entry_hdl_out",
      "set_default_entry", TP + ", Bind::group", header="profiles"),
    # ---- Profile read-back, walks and accessors ----
    F(P + "{profile}_get_member", "profiles", "func sess dev mbr_hdl read_from_hw tagged_spec_out", "get_member",
      "{P}", header="profiles"),
    F(P + "{profile}_get_first_member", "profiles", "sess tgt mbr_hdl_out", "get_first_member", "{P}",
      header="profiles"),
    F(P + "{profile}_get_next_members", "profiles", "sess tgt mbr_hdl n next_mbr_hdls", "get_next_members", "{P}",
      header="profiles"),
    F(P + "{profile}_get_first_group", "profiles", "sess tgt grp_hdl_out", "get_first_group", "{P}",
      header="profiles"),
    F(P + "{profile}_get_next_groups", "profiles", "sess tgt grp_hdl n next_grp_hdls", "get_next_groups", "{P}",
      header="profiles"),
    F(P + "{profile}_get_first_group_member", "profiles", "sess dev grp_hdl mbr_hdl_out", "get_first_group_member",
      "{P}", header="profiles"),
    F(P + "{profile}_get_next_group_members", "profiles", "sess dev grp_hdl mbr_hdl n next_mbr_hdls",
      "get_next_group_members", "{P}", header="profiles"),
    F(P + "{profile}_get_act_prof_entry_count", "profiles", "sess tgt count_out", "get_act_prof_entry_count", "{P}",
      header="profiles"),
    F(P + "{profile}_get_selector_group_count", "profiles", "sess tgt count_out", "get_selector_group_count",
      "{P}", header="profiles"),
    F(P + "{profile}_get_selector_group_member_count", "profiles", "sess dev grp_hdl count_out",
      "get_selector_group_member_count", "{P}", header="profiles"),
    F(P + "{profile}_get_word_llp_active_member_count", "profiles", "sess tgt word_index count_out",
      "get_word_llp_active_member_count", "{P}", header="profiles"),
    F(P + "{profile}_get_word_llp_active_members", "profiles", "sess tgt word_index word_count active_mbr_hdls",
      "get_word_llp_active_members", "{P}", header="profiles"),
    F(P + "{profile}_register_adt_update_cb", "profiles", "sess dev adt_update_cb cookie", "register_adt_update_cb",
      "{P}", header="profiles"),
    F(P + "{profile}_register_sel_update_cb", "profiles", "sess dev sel_update_cb cookie", "register_sel_update_cb",
      "{P}", header="profiles"),
    F(P + "{profile}_get_adt_table_handle", "profiles", "table_handle_out", "get_adt_table_handle", "{P}",
      header="profiles"),
    F(P + "{profile}_get_sel_table_handle", "profiles", "table_handle_out", "get_sel_table_handle", "{P}",
      header="profiles"),
    # ---- Counters ----
    RES(P + "counter_read_{counter}", "counters", "sess tgt cell read_flags counter_value_out", "counter_read"),
    RES(P + "counter_write_{counter}", "counters", "sess tgt cell counter_value", "counter_write"),
    RES(P + "counter_hw_sync_{counter}", "counters", "sess tgt stat_sync_cb cookie", "counter_hw_sync"),
    # ---- Meters ----
    RES(P + "meter_set_{meter}", "meters", "func sess tgt cell meter_spec_in", "meter_set"),
    RES(P + "meter_read_{meter}", "meters", "sess tgt cell meter_spec_out", "meter_read"),
    RES(P + "meter_bytecount_adjust_set_{meter}", "meters", "sess tgt bytecount", "meter_bytecount_adjust_set"),
    RES(P + "meter_bytecount_adjust_get_{meter}", "meters", "sess tgt bytecount_out", "meter_bytecount_adjust_get"),
    # ---- Registers ----
    RES(P + "register_read_{register}", "registers", "sess tgt index read_flags register_values value_count_out",
        "register_read"),
    RES(P + "register_write_{register}", "registers", "sess tgt index register_value", "register_write"),
    RES(P + "register_write_all_{register}", "registers", "sess tgt register_value", "register_write_all"),
    RES(P + "register_reset_all_{register}", "registers", "sess tgt", "register_reset_all"),
    RES(P + "register_range_reset_{register}", "registers", "sess tgt index count", "register_range_reset"),
    RES(P + "register_range_read_{register}", "registers",
        "sess tgt index count read_flags num_read_out register_values value_count_out", "register_range_read"),
    RES(P + "register_hw_sync_{register}", "registers", "sess tgt register_sync_cb cookie", "register_hw_sync"),
    # ---- Idle time ----
    RES(P + "{table}_idle_tmo_enable", "idle_tables", "sess dev idle_params", "idle_tmo_enable", "{T}"),
    RES(P + "{table}_idle_tmo_disable", "idle_tables", "sess dev", "idle_tmo_disable", "{T}"),
    RES(P + "{table}_idle_register_tmo_cb", "idle_tables", "sess dev idle_tmo_cb cookie", "idle_register_tmo_cb",
        "{T}"),
    RES(P + "{table}_idle_params_get", "idle_tables", "sess dev idle_params_out", "idle_params_get", "{T}"),
    RES(P + "{table}_set_ttl", "idle_tables", "sess dev entry_hdl ttl_value", "set_ttl", "{T}"),
    RES(P + "{table}_get_ttl", "idle_tables", "sess dev entry_hdl ttl_out", "get_ttl", "{T}"),
    RES(P + "{table}_reset_ttl", "idle_tables", "sess dev entry_hdl", "reset_ttl", "{T}"),
    RES(P + "{table}_update_hit_state", "idle_tables", "sess dev hit_state_cb cookie", "update_hit_state", "{T}"),
    RES(P + "{table}_get_hit_state", "idle_tables", "sess dev entry_hdl hit_state_out", "get_hit_state", "{T}"),
    # ---- Learning digests ----
    RES(P + "{digest}_register", "digests", "sess dev8 digest_cb cookie", "digest_register"),
    RES(P + "{digest}_deregister", "digests", "sess dev8", "digest_deregister"),
    RES(P + "{digest}_notify_ack", "digests", "sess digest_msg", "digest_notify_ack"),
    # ---- Parser value sets ----
    RES(P + "pvs_{value_set}_set_property", "value_sets", "sess dev pvs_property pvs_value pvs_args",
        "pvs_set_property"),
    RES(P + "pvs_{value_set}_get_property", "value_sets", "sess dev pvs_property pvs_value_out pvs_args",
        "pvs_get_property"),
    RES(P + "pvs_{value_set}_entry_add", "value_sets",
        "sess dev gress pipe parser_id pvs_entry_value pvs_entry_mask pvs_hdl_out", "pvs_entry_add"),
    RES(P + "pvs_{value_set}_entry_modify", "value_sets", "sess dev pvs_hdl pvs_entry_value pvs_entry_mask",
        "pvs_entry_modify"),
    RES(P + "pvs_{value_set}_entry_delete", "value_sets", "sess dev pvs_hdl", "pvs_entry_delete"),
    RES(P + "pvs_{value_set}_entry_get", "value_sets", "sess dev pvs_hdl pvs_entry_value_out pvs_entry_mask_out",
        "pvs_entry_get"),
    RES(P + "pvs_{value_set}_entry_handle_get", "value_sets",
        "sess dev gress pipe parser_id pvs_entry_value pvs_entry_mask pvs_hdl_out", "pvs_entry_handle_get"),
    RES(P + "pvs_{value_set}_entry_get_first_entry_handle", "value_sets", "sess dev gress pipe parser_id pvs_hdl_out",
        "pvs_entry_get_first"),
    RES(P + "pvs_{value_set}_entry_get_next_entry_handles", "value_sets",
        "sess dev gress pipe parser_id pvs_hdl n next_pvs_hdls", "pvs_entry_get_next"),
    RES(P + "pvs_{value_set}_entry_get_count", "value_sets",
        "sess dev gress pipe parser_id read_from_hw_flag count_out", "pvs_entry_get_count"),
    # ---- Dynamic hashes ----
    RES(P + "hash_calc_{hash}_input_set", "hashes", "sess dev hash_input", "hash_input_set"),
    RES(P + "hash_calc_{hash}_input_get", "hashes", "sess dev hash_input_out", "hash_input_get"),
    RES(P + "hash_calc_{hash}_algorithm_set", "hashes", "sess dev hash_algorithm", "hash_algorithm_set"),
    RES(P + "hash_calc_{hash}_algorithm_get", "hashes", "sess dev hash_algorithm_out", "hash_algorithm_get"),
    RES(P + "hash_calc_{hash}_seed_set", "hashes", "sess dev seed", "hash_seed_set"),
    RES(P + "hash_calc_{hash}_seed_get", "hashes", "sess dev seed_out", "hash_seed_get"),
    RES(P + "hash_calc_{hash}_input_field_attribute_set", "hashes", "sess dev hash_input attr_count attr_list",
        "hash_input_field_attribute_set"),
    RES(P + "hash_calc_{hash}_input_field_attribute_count_get", "hashes", "sess dev hash_input attr_count_out",
        "hash_input_field_attribute_count_get"),
    RES(P + "hash_calc_{hash}_input_field_attribute_get", "hashes",
        "sess dev hash_input max_attr_count attr_list num_attr_filled_out", "hash_input_field_attribute_get"),
    RES(P + "hash_calc_{hash}_calculate_hash_value", "hashes",
        "sess dev attr_count attr_list attr_sizes hash_out hash_out_len", "hash_calculate_hash_value"),
    # ---- Schema texts ----
    R(P + "{table}_match_spec_schema", "keyed_tables", "", "match_spec_schema", "{X}", "const char *"),
    R(P + "{action}_schema", "actions", "", "action_schema", "{Y}", "const char *"),
    R(P + "{table}_schema", "tables", "text_buf", "table_schema", "{X}", "int"),
    R(P + "{profile}_schema", "profiles", "text_buf", "profile_schema", "{Z}", "int"),
    # ---- Value texts and printers of records ----
    R(P + "{table}_match_spec_value", "keyed_tables", "key text_buf", "match_spec_value", "{X}", "int"),
    R(P + "{action}_value", "actions", "action_spec text_buf", "action_value", "{Y}", "int"),
    R(P + "{table}_match_spec_print", "keyed_tables", "fd indent key", "match_spec_print", "{X}", "int"),
    R(P + "{action}_print", "actions_with_params", "fd indent action_spec", "action_print", "{Y}", "int"),
    # ---- Comparisons of records ----
    R(P + "{table}_match_specs_are_equal", "keyed_tables", "key_a key_b text_buf", "match_specs_are_equal", "{X}",
      "int"),
    R(P + "{action}_action_specs_are_equal", "actions_with_params", "params_a params_b text_buf",
      "action_specs_are_equal", "{Y}", "int"),
    # ---- Entries read from the driver as value texts ----
    R(P + "{table}_value", "tables", "func sess dev8 entry_hdl read_from_hw text_buf", "table_value",
      "{X}, &" + P + "{table}_get_entry", "int"),
    # ---- Counter labels: the keys of the tables with a direct counter, in words ----
    R(P + "{table}_match_spec_stringify_for_counter", "counted_tables", "key_in text_buf",
      "match_spec_stringify_for_counter", "desc::xl_{table}", "int"),
    R(P + "{table}_stringify_counter_match_spec", "counted_tables", "sess dev8 entry_hdl text_buf",
      "stringify_counter_match_spec", "{X}, desc::xl_{table}, &" + P + "{table}_get_entry", "int"),
    # ---- Placement data as text, and against the device ----
    R(P + "{table}_plcmt_data_print", "tables", "func fd indent plcmt_data", "plcmt_data_print",
      "{X}, &" + P + "{table}_get_entry_from_plcmt_data", "int"),
    R(P + "{profile}_adt_plcmt_data_print", "profiles", "func fd indent plcmt_data", "adt_plcmt_data_print",
      "{Z}, &" + P + "{profile}_get_member_from_plcmt_data", "int"),
    R(P + "{table}_plcmt_data_value", "tables", "func plcmt_data text_buf", "plcmt_data_value",
      "{X}, &" + P + "{table}_get_entry_from_plcmt_data", "int"),
    R(P + "{profile}_plcmt_data_value", "profiles", "func plcmt_data text_buf", "profile_plcmt_data_value",
      "{Z}, &" + P + "{profile}_get_member_from_plcmt_data", "int"),
    R(P + "{table}_plcmt_data_eq_to_hw", "tables", "func sess dev8 tbl_hdl entry_hdl plcmt_data text_buf",
      "plcmt_data_eq_to_hw", "{X}, &%s{table}_get_entry_from_plcmt_data, &%s{table}_get_entry" % (P, P), "int"),
]


@dataclass(frozen=True)
class Dispatcher:
    """One export that takes a numeric handle, finds the table or profile of it by direct comparison
    and calls that one's member of another family, `target`, with `args`; `miss` is the C body for
    a handle that none has. `rows`: "tables" (by match table handle), "profiles" (by action data
    handle), "tables_and_profiles", or "counted_tables" (the tables with counter labels)."""

    name: str
    ret: str
    params: tuple  # (C type, name), in prototype order
    handle: str  # the parameter holding the handle
    rows: str
    target: str  # pattern of the called export: {table} or {profile}, and for both {subject}
    args: str
    miss: str

    def prototype(self):
        return "%s %s(%s)" % (self.ret, self.name, ", ".join(
            "%s%s%s" % (t, "" if t.endswith("*") else " ", n) for t, n in self.params))


def _params(text):
    """ "type name, type *name" as (type, name) pairs."""
    out = []
    for p in text.split(","):
        p = p.strip()
        cut = max(p.rfind(" "), p.rfind("*"))
        out.append((p[:cut + 1].strip(), p[cut + 1:]))
    return tuple(out)


SESS_TGT = "p4_pd_sess_hdl_t sess_hdl, p4_pd_dev_target_t dev_tgt"
DISPATCHERS = [
    Dispatcher(P + "entry_hdl_first", "p4_pd_status_t",
               _params(SESS_TGT + ", uint32_t tbl_hdl, p4_pd_entry_hdl_t *entry_hdl"), "tbl_hdl", "tables",
               P + "{table}_get_first_entry_handle", "sess_hdl, dev_tgt, entry_hdl",
               "*entry_hdl = 0xFFFFFFFFu;\n  return 0;"),
    Dispatcher(P + "entry_hdl_next", "p4_pd_status_t",
               _params(SESS_TGT + ", uint32_t tbl_hdl, p4_pd_entry_hdl_t entry_hdl, int n, "
                       "p4_pd_entry_hdl_t *next_entry_handles"), "tbl_hdl", "tables",
               P + "{table}_get_next_entry_handles", "sess_hdl, dev_tgt, entry_hdl, n, next_entry_handles",
               "next_entry_handles[0] = 0xFFFFFFFFu;\n  return 0;"),
    Dispatcher(P + "entry_hdl_default", "p4_pd_status_t",
               _params(SESS_TGT + ", uint32_t tbl_hdl, p4_pd_entry_hdl_t *entry_hdl"), "tbl_hdl", "tables",
               P + "{table}_table_get_default_entry_handle", "sess_hdl, dev_tgt, entry_hdl",
               "*entry_hdl = 0xFFFFFFFFu;\n  return 0;"),
    Dispatcher(P + "member_hdl_first", "p4_pd_status_t",
               _params(SESS_TGT + ", uint32_t adt_hdl, p4_pd_mbr_hdl_t *mbr_hdl"), "adt_hdl", "profiles",
               P + "{profile}_get_first_member", "sess_hdl, dev_tgt, mbr_hdl",
               "*mbr_hdl = 0xFFFFFFFFu;\n  return 0xFFFFFFFFu;"),
    Dispatcher(P + "member_hdl_next", "p4_pd_status_t",
               _params(SESS_TGT + ", uint32_t adt_hdl, p4_pd_mbr_hdl_t mbr_hdl, int n, p4_pd_mbr_hdl_t *next_mbr_hdls"),
               "adt_hdl", "profiles", P + "{profile}_get_next_members", "sess_hdl, dev_tgt, mbr_hdl, n, next_mbr_hdls",
               "next_mbr_hdls[0] = 0xFFFFFFFFu;\n  return 0xFFFFFFFFu;"),
    Dispatcher(P + "entry_value", "int",
               _params("p4_pd_sess_hdl_t sess_hdl, uint8_t dev_id, uint32_t tbl_hdl, p4_pd_entry_hdl_t entry_hdl, "
                       "uint8_t read_from_hw, char *buf"), "tbl_hdl", "tables", P + "{table}_value",
               "sess_hdl, dev_id, entry_hdl, read_from_hw, buf", "return 0;"),
    Dispatcher(P + "plcmt_data_print", "int", _params("int fd, int indent, uint32_t tbl_hdl, void *plcmt_data"),
               "tbl_hdl", "tables", P + "{table}_plcmt_data_print", "fd, indent, plcmt_data",
               'return dprintf(fd, "0x%08x table not found\\n", tbl_hdl);'),
    Dispatcher(P + "adt_plcmt_data_print", "int", _params("int fd, int indent, uint32_t adt_hdl, void *plcmt_data"),
               "adt_hdl", "profiles", P + "{profile}_adt_plcmt_data_print", "fd, indent, plcmt_data",
               'return dprintf(fd, "0x%08x table not found\\n", adt_hdl);'),
    Dispatcher(P + "plcmt_data_value", "int", _params("uint32_t tbl_hdl, void *plcmt_data, char *buf"), "tbl_hdl",
               "tables", P + "{table}_plcmt_data_value", "plcmt_data, buf", "return 0;"),
    Dispatcher(P + "adt_plcmt_data_value", "int", _params("uint32_t adt_hdl, void *plcmt_data, char *buf"),
               "adt_hdl", "profiles", P + "{profile}_plcmt_data_value", "plcmt_data, buf", "return 0;"),
    Dispatcher(P + "plcmt_data_eq_to_hw", "int",
               _params("p4_pd_sess_hdl_t sess_hdl, uint8_t dev_id, uint32_t tbl_hdl, p4_pd_entry_hdl_t entry_hdl, "
                       "void *plcmt_data, uint32_t ignored, char *buf"), "tbl_hdl", "tables",
               P + "{table}_plcmt_data_eq_to_hw", "sess_hdl, dev_id, tbl_hdl, entry_hdl, plcmt_data, buf",
               '(void)ignored;\n  CV_HARD_ASSERT("false && \\"unknown table\\"", __func__);'),
    Dispatcher(P + "cli_schema", "int", _params("uint32_t handle, char *buf"), "handle", "tables_and_profiles",
               P + "{subject}_schema", "buf", "buf[0] = '(';\n  buf[1] = ')';\n  buf[2] = '\\0';\n  return 2;"),
    Dispatcher(P + "stringify_counter_matchspec", "int",
               _params("p4_pd_sess_hdl_t sess_hdl, uint8_t dev_id, uint32_t tbl_hdl, p4_pd_entry_hdl_t entry_hdl, "
                       "char *buf"), "tbl_hdl", "counted_tables", P + "{table}_stringify_counter_match_spec",
               "sess_hdl, dev_id, entry_hdl, buf", "return 0;"),
]


def dispatch_rows(cat, d):
    """(handle, subject name) of every table or profile a dispatcher covers."""
    rows = []
    if d.rows in ("tables", "tables_and_profiles"):
        rows += [(t.handle, t.name) for t in cat.tables]
    if d.rows in ("profiles", "tables_and_profiles"):
        rows += [(p.action_data_table, p.name) for p in cat.profiles]
    if d.rows == "counted_tables":
        rows += [(t.handle, t.name) for t in cat.tables if t.name in cat.labels]
    return rows


class Row:
    """One catalog row as a family sees it: the objects its names, descriptors and arguments come
    from. `subject` is the table or profile whose exports it makes."""

    def __init__(self, subject, table=None, table_action=None, act=None, profile=None, member=None, field=None,
                 field_index=None, res=None, res_kind=None):
        self.subject, self.table, self.table_action, self.act = subject, table, table_action, act
        self.profile, self.member, self.field, self.field_index = profile, member, field, field_index
        self.res, self.res_kind = res, res_kind  # a counter, meter, register, digest, value set or hash

    def names(self):
        n = {}
        if self.table:
            n["table"] = self.table.name
        if self.act:
            n["action"] = self.act.name
        if self.profile:
            n["profile"] = self.profile.name
        if self.field:
            n["field"] = self.field.width_export
        if self.res_kind:
            n[self.res_kind] = self.subject
        return n

    def descriptors(self):
        d = {}
        if self.table:
            d["T"] = "desc::t_" + self.table.name
        if self.table_action:
            d["U"] = "desc::u_%s__%s" % (self.table.name, self.act.name)
        if self.act:
            d["A"] = "desc::a_" + self.act.name
        if self.profile:
            d["P"] = "desc::prof_" + self.profile.name
        if self.member:
            d["M"] = "desc::m_%s__%s" % (self.profile.name, self.act.name)
        if self.field_index is not None:
            d["I"] = str(self.field_index)
        if self.res_kind:
            d["R"] = "desc::%s_%s" % (RESOURCE_DESC_PREFIX[self.res_kind], self.subject)
        # The reflection layer's descriptors (catalog_text.h).
        if self.table:
            d["X"] = "desc::xt_" + self.table.name
        if self.act:
            d["Y"] = "desc::xa_" + self.act.name
        if self.profile:
            d["Z"] = "desc::xp_" + self.profile.name
        return d


# Descriptor names of the resources: desc::<prefix>_<name>.
RESOURCE_DESC_PREFIX = {"counter": "c", "meter": "mt", "register": "reg", "digest": "dg", "value_set": "vs",
                        "hash": "h"}


class Plain:
    """A resource row of the catalog that is a plain table of columns, seen as attributes."""

    def __init__(self, columns):
        self.__dict__.update(columns)


def _resources(rows, kind):
    return [Row(r.name, res=r, res_kind=kind) for r in (x if hasattr(x, "name") else Plain(x) for x in rows)]


def _profile_of(cat, t):
    return next(p for p in cat.profiles if p.name == t.profile)


ROWS = {
    "tables": lambda c: [Row(t.name, table=t) for t in c.tables],
    "direct_tables": lambda c: [Row(t.name, table=t) for t in c.tables if not t.profile],
    # Every table, with its profile where it is bound to one.
    "tables_with_profiles": lambda c: [Row(t.name, table=t, profile=_profile_of(c, t) if t.profile else None)
                                       for t in c.tables],
    "bound_tables": lambda c: [Row(t.name, table=t, profile=_profile_of(c, t)) for t in c.tables if t.profile],
    "keyed_tables": lambda c: [Row(t.name, table=t) for t in c.tables if t.key],
    "masked_tables": lambda c: [Row(t.name, table=t) for t in c.tables if t.kind in ("ternary", "lpm")],
    "entry_pairs": lambda c: [Row(t.name, table=t, table_action=a, act=a.action) for t, a in c.entry_pairs()],
    "default_pairs": lambda c: [Row(t.name, table=t, table_action=a, act=a.action) for t, a in c.default_pairs()],
    "key_fields": lambda c: [Row(t.name, table=t, field=f, field_index=i) for t in c.tables
                             for i, f in enumerate(t.key)],
    "actions_with_params": lambda c: [Row("actions", act=a) for a in c.actions if a.params],
    "actions": lambda c: [Row("actions", act=a) for a in c.actions],
    "profiles": lambda c: [Row(p.name, profile=p) for p in c.profiles],
    "profile_members": lambda c: [Row(p.name, profile=p, member=(a, h), act=a) for p in c.profiles
                                  for a, h in p.members],
    "idle_tables": lambda c: [Row(t.name, table=t) for t in c.tables if t.idle_time],
    # The tables with a direct counter, which have counter labels.
    "counted_tables": lambda c: [Row(t.name, table=t) for t in c.tables if t.name in c.labels],
    "counters": lambda c: _resources(c.counters, "counter"),
    "meters": lambda c: _resources(c.meters, "meter"),
    "registers": lambda c: _resources(c.registers, "register"),
    "digests": lambda c: _resources(c.digests, "digest"),
    "value_sets": lambda c: _resources(c.value_sets, "value_set"),
    "hashes": lambda c: _resources(c.hashes, "hash"),
}


class Export:
    """One exported function: its prototype and the engine call of its glue."""

    def __init__(self, family, row):
        self.family, self.row = family, row
        self.name = family.pattern.format(**row.names())
        self.subject = row.subject
        args = [ARGS[a] for a in family.args]
        self.params = [a.param(row) for a in args if a.present(row)]
        templates = family.templates.format(**row.descriptors(), **row.names())
        self.call = "%s<%s>(%s)" % (family.engine, templates, ", ".join(a.engine_value(row) for a in args))

    def prototype(self):
        args = ", ".join("%s%s%s" % (t, "" if t.endswith("*") else " ", n) for t, n in self.params) or "void"
        return "%s %s(%s)" % (self.family.ret, self.name, args)


def exports(cat, families=FAMILIES):
    """Every export of the catalog, family by family, row by row."""
    out = []
    for fam in families:
        out += [Export(fam, row) for row in ROWS[fam.rows](cat)]
    return out
