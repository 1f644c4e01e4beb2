#!/usr/bin/env python3
"""The C layouts a client needs to call the library without a C compiler, as JSON.

A client binding the library through a foreign-function interface (the Python package in python/)
must build key and parameter records byte for byte and know each export's argument list. Neither is
in the reflection texts: they give fields in key order, while 24 key records have a member order of
their own and some carry reserved bytes. This module writes `share/corvin_switch/layout.json` into
the build tree from the same catalog rows and family list that write the headers:

    {"format": 1, "program": ..., "prefix": "p4_pd_corvin_switch_",
     "types":   {typedef: base type, ...},                      scalar typedefs of the arguments
     "records": {C record name: {"size", "align", "members": [  in record order
                   {"name", "ctype", "count" (array length or null), "offset", "size",
                    "kind" (field|mask|prefix|reserved|param|plain), "of" (key field or parameter)}]}},
     "tables":  {name: {"handle", "group", "kind", "priority", "profile", "key_record",
                        "actions": [{"name", "handle", "entry", "default"}]}},
     "actions": {name: {"number", "record", "index"}},          index: {"param", "in_image"} or null
     "profiles": {name: {"action_data_table", "selector", "table", "members": [action, ...]}},
     "handle_spaces": {"table": [{"group", "pipeline", "first", "last"}], "table_high": {...},
                       "action_data_table_high": {...}},
     "functions": {export name: {"family", "ret", "args": [[C type, name], ...]}}}

Offsets follow the C rules for the member types in use (uint8_t, uint16_t, uint32_t and byte
arrays): each member at the next multiple of its alignment, the record padded to its largest
alignment. They are the same on both ABIs. tests/layout_check.py turns this file back into C static
assertions (offsetof, sizeof, member types, every function's type) compiled against the generated
headers on each ABI, so that the file and the headers cannot drift apart.

    layout.py CATALOG OUT.json
"""

import json
import sys

import catalog as cat_mod
import families
from output import catalog_main
from catalog import PREFIX

FORMAT = 1

# Scalar C types: size and alignment in bytes.
SCALARS = {"uint8_t": 1, "uint16_t": 2, "uint32_t": 4}

# The typedefs that stand in the argument lists of the families below, with their base types. An
# enumeration is a 4-byte unsigned integer here (all its values are small and non-negative).
TYPES = {
    "p4_pd_status_t": "uint32_t",
    "p4_pd_sess_hdl_t": "uint32_t",
    "p4_pd_entry_hdl_t": "uint32_t",
    "p4_pd_mbr_hdl_t": "uint32_t",
    "p4_pd_grp_hdl_t": "uint32_t",
    "p4_pd_grp_mbr_state_e": "uint32_t",
    "p4_pd_corvin_switch_action_enum_t": "enum",
    "p4_pd_dev_target_t": "record",
    "p4_pd_meter_spec_t": "record",
}

# Records of the hand-written headers that the families below take (pd_types.h).
FIXED_RECORDS = {
    "p4_pd_dev_target_t": [("device_id", "uint32_t"), ("dev_pipe_id", "uint32_t")],
    "p4_pd_meter_spec_t": [("cir", "uint32_t"), ("cburst", "uint32_t"), ("pir", "uint32_t"),
                           ("pburst", "uint32_t"), ("meter_type", "uint32_t")],
}

# The families a client of entries, defaults, members and groups calls, by their name patterns.
CLIENT_FAMILIES = {
    PREFIX + p for p in (
        "{table}_table_add_with_{action}",
        "{table}_table_modify_with_{action}",
        "{table}_table_modify_with_{action}_by_match_spec",
        "{table}_set_default_action_{action}",
        "{table}_table_delete",
        "{table}_table_delete_by_match_spec",
        "{table}_match_spec_to_entry_hdl",
        "{table}_table_reset_default_entry",
        "{table}_table_get_default_entry_handle",
        "{table}_table_get_default_entry",
        "{table}_get_entry",
        "{table}_get_first_entry_handle",
        "{table}_get_next_entry_handles",
        "{table}_get_entry_count",
        "{table}_get_mat_table_handle",
        "{table}_add_entry",
        "{table}_add_entry_with_selector",
        "{table}_modify_entry",
        "{table}_modify_entry_with_selector",
        "{table}_modify_entry_by_match_spec",
        "{table}_modify_entry_with_selector_by_match_spec",
        "{table}_set_default_entry",
        "{table}_set_default_entry_with_selector",
        "{profile}_add_member_with_{action}",
        "{profile}_modify_member_with_{action}",
        "{profile}_del_member",
        "{profile}_get_member",
        "{profile}_get_first_member",
        "{profile}_get_next_members",
        "{profile}_get_act_prof_entry_count",
        "{profile}_create_group",
        "{profile}_del_group",
        "{profile}_add_member_to_group",
        "{profile}_del_member_from_group",
        "{profile}_get_first_group_member",
        "{profile}_get_next_group_members",
    )
}

# The dispatchers by handle a client walks a device with and reads it as text.
CLIENT_DISPATCHERS = {PREFIX + n for n in ("cli_schema", "entry_value", "entry_hdl_first", "entry_hdl_next",
                                           "entry_hdl_default", "member_hdl_first", "member_hdl_next")}


def record(members):
    """A C record of (name, C type, array length or None, kind, of) members in order: each member at
    the next multiple of its alignment, the record padded to its largest alignment."""
    out, offset, align = [], 0, 1
    for name, ctype, count, kind, of in members:
        a = SCALARS[ctype]
        size = a * (count or 1)
        offset = (offset + a - 1) // a * a
        out.append({"name": name, "ctype": ctype, "count": count, "offset": offset, "size": size,
                    "kind": kind, "of": of})
        offset += size
        align = max(align, a)
    return {"size": (offset + align - 1) // align * align, "align": align, "members": out}


def key_members(t):
    """The key record's members, with the key field each belongs to."""
    out = []
    for kind, name, ctype, count in t.record_members():
        of = {"field": name, "mask": name[: -len("_mask")],
              "prefix": name[: -len("_prefix_length")]}.get(kind)
        out.append((name, ctype, count, kind, of))
    return out


def param_members(a):
    return [("action_" + p.name, *cat_mod.member_ctype(p.width), "param", p.name) for p in a.params]


def tagged_record(records, c):
    """The tagged action record: the action number, then the union of every parameter record."""
    union = [records[families.param_record(a)] for a in c.actions if a.params]
    align = max([4] + [r["align"] for r in union])
    size = max(r["size"] for r in union)
    u_off = (4 + align - 1) // align * align
    total = (u_off + size + align - 1) // align * align
    return {"size": total, "align": align, "members": [
        {"name": "name", "ctype": "p4_pd_corvin_switch_action_enum_t", "count": None, "offset": 0, "size": 4,
         "kind": "plain", "of": None},
        {"name": "u", "ctype": "union", "count": None, "offset": u_off, "size": size, "kind": "plain", "of": None}]}


def index_of(c, a):
    for r in c.counters + c.meters:
        if r.index_action == a.name:
            return {"param": r.index_param, "in_image": r.index_in_image}
    return None


def build(c):
    records = {}
    for name, members in FIXED_RECORDS.items():
        records[name] = record([(m, t, None, "plain", None) for m, t in members])
    for t in c.tables:
        if t.key:
            records[families.key_record(t)] = record(key_members(t))
    for a in c.actions:
        if a.params:
            records[families.param_record(a)] = record(param_members(a))
    records[PREFIX + "action_spec_t"] = tagged_record(records, c)

    tables = {t.name: {
        "handle": t.handle, "group": t.group, "kind": t.kind, "priority": t.priority, "profile": t.profile,
        "key_record": families.key_record(t) if t.key else None,
        "actions": [{"name": a.action.name, "handle": a.handle, "entry": a.entry, "default": a.default}
                    for a in t.actions]} for t in c.tables}
    actions = {a.name: {"number": a.number, "record": families.param_record(a) if a.params else None,
                        "index": index_of(c, a)} for a in c.actions}
    profiles = {p.name: {"action_data_table": p.action_data_table, "selector": p.selector, "table": p.table,
                         "members": [a.name for a, _ in p.members]} for p in c.profiles}

    functions = {}
    for e in families.exports(c):
        if e.family.pattern in CLIENT_FAMILIES:
            functions[e.name] = {"family": e.family.pattern[len(PREFIX):], "ret": e.family.ret,
                                 "args": [list(p) for p in e.params]}
    for d in families.DISPATCHERS:
        if d.name in CLIENT_DISPATCHERS:
            functions[d.name] = {"family": d.name[len(PREFIX):], "ret": d.ret, "args": [list(p) for p in d.params]}

    spaces = c.spaces.raw
    return {
        "format": FORMAT,
        "program": c.program,
        "prefix": PREFIX,
        "types": TYPES,
        "records": records,
        "tables": tables,
        "actions": actions,
        "profiles": profiles,
        "handle_spaces": {
            "table": [{"group": g.name, "pipeline": g.pipeline, "first": g.first, "last": g.last}
                      for g in c.groups.values()],
            "table_high": spaces.get("table", {}),
            "action_data_table_high": spaces.get("action_data_table", {}),
        },
        "functions": functions,
    }


def text(c):
    """The file's text: one line per table, action, profile, record and function, sorted within
    each section, so that a change of the catalog reads as a small diff."""
    data = build(c)
    out = ["{"]
    sections = list(data.items())
    for i, (key, value) in enumerate(sections):
        tail = "," if i < len(sections) - 1 else ""
        if isinstance(value, dict) and key in ("records", "tables", "actions", "profiles", "functions", "types"):
            out.append("%s: {" % json.dumps(key))
            items = sorted(value.items())
            for k, (name, v) in enumerate(items):
                out.append("  %s: %s%s" % (json.dumps(name), json.dumps(v, separators=(",", ":")),
                                            "," if k < len(items) - 1 else ""))
            out.append("}" + tail)
        else:
            out.append("%s: %s%s" % (json.dumps(key), json.dumps(value, separators=(",", ":")), tail))
    out.append("}")
    return "\n".join(out) + "\n"


def main(argv):
    return catalog_main(argv, __doc__, text)


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
