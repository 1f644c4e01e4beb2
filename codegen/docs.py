#!/usr/bin/env python3
"""Writes the reference pages of the exported families, as Markdown pages for Doxygen.

    docs.py CATALOG PROSE_DIR OUTDIR

One page per group of sibling families (GROUPS below), one for the dispatchers by handle, an index
of the families and an index of the catalog's rows. What a page says of its families' members (the
name patterns, how many members each has, the rows they run over, the arguments with their C types
and where each stands, example prototypes) comes from `families.FAMILIES` and `families.DISPATCHERS`
over the catalog, as the headers do. What the families do, their statuses and an example are
written by hand in PROSE_DIR/<group>.md, around a line `<!-- members -->` where the generated part
goes.

Every family and every dispatcher must belong to exactly one group, every group must have its page
of prose and every page of prose its group: a new family without documentation stops the run.
"""

import argparse
import os
import sys
from dataclasses import dataclass

import catalog as cat_mod
import families
from catalog import PREFIX
from families import key_record, param_record

MARKER = "<!-- members -->"


@dataclass(frozen=True)
class Group:
    key: str  # the page's label is families_<key>; its prose is PROSE_DIR/<key>.md
    title: str
    section: str
    patterns: tuple  # the families' name patterns, less the library prefix


def G(key, title, section, patterns):
    return Group(key, title, section, tuple(patterns.split()))


SECTIONS = [
    ("tables", "Match tables"),
    ("profiles", "Action profiles"),
    ("resources", "Resources"),
    ("reflection", "Reflection"),
]

GROUPS = [
    G("table_add", "Entry addition", "tables", "{table}_table_add_with_{action}"),
    G("table_modify", "Entry change and deletion", "tables",
      "{table}_table_modify_with_{action} {table}_table_modify_with_{action}_by_match_spec "
      "{table}_table_delete {table}_table_delete_by_match_spec"),
    G("table_default", "Default entries", "tables",
      "{table}_set_default_action_{action} {table}_table_reset_default_entry "
      "{table}_table_get_default_entry_handle {table}_table_get_default_entry"),
    G("table_read", "Entry read-back", "tables", "{table}_get_entry {table}_match_spec_to_entry_hdl"),
    G("table_walk", "Walks and counts of entries", "tables",
      "{table}_get_first_entry_handle {table}_get_next_entry_handles {table}_get_entry_count"),
    G("table_accessors", "Table accessors", "tables",
      "{table}_set_property {table}_get_property {table}_register_mat_update_cb {table}_get_mat_table_handle "
      "{table}_supports_entry_priority {table}_{field}_width"),
    G("placement", "Placement data", "tables",
      "{table}_get_plcmt_data {table}_get_entry_from_plcmt_data {profile}_get_plcmt_data "
      "{profile}_sel_get_plcmt_data {profile}_get_member_from_plcmt_data "
      "{profile}_get_full_member_info_from_plcmt_data"),
    G("decoders", "Decoders", "tables", "unbuild_key_{table} unbuild_mask_{table} unbuild_action_spec_{action}"),
    G("profile_members", "Profile members", "profiles",
      "{profile}_add_member_with_{action} {profile}_modify_member_with_{action} {profile}_del_member"),
    G("profile_groups", "Selector groups", "profiles",
      "{profile}_create_group {profile}_del_group {profile}_add_member_to_group {profile}_del_member_from_group "
      "{profile}_group_member_state_set {profile}_group_member_state_get {profile}_group_member_get_from_hash "
      "{profile}_set_dynamic_action_selection_fallback_member "
      "{profile}_reset_dynamic_action_selection_fallback_member"),
    G("profile_entries", "Entries bound to a member or a group", "profiles",
      "{table}_add_entry {table}_add_entry_with_selector {table}_modify_entry {table}_modify_entry_with_selector "
      "{table}_modify_entry_by_match_spec {table}_modify_entry_with_selector_by_match_spec "
      "{table}_set_default_entry {table}_set_default_entry_with_selector"),
    G("profile_read", "Profile read-back, walks and counts", "profiles",
      "{profile}_get_member {profile}_get_first_member {profile}_get_next_members {profile}_get_first_group "
      "{profile}_get_next_groups {profile}_get_first_group_member {profile}_get_next_group_members "
      "{profile}_get_act_prof_entry_count {profile}_get_selector_group_count "
      "{profile}_get_selector_group_member_count {profile}_get_word_llp_active_member_count "
      "{profile}_get_word_llp_active_members"),
    G("profile_callbacks", "Profile callbacks and table handles", "profiles",
      "{profile}_register_callback {profile}_sel_track_updates {profile}_register_adt_update_cb "
      "{profile}_register_sel_update_cb {profile}_get_adt_table_handle {profile}_get_sel_table_handle"),
    G("counters", "Counters", "resources",
      "counter_read_{counter} counter_write_{counter} counter_hw_sync_{counter}"),
    G("meters", "Meters", "resources",
      "meter_set_{meter} meter_read_{meter} meter_bytecount_adjust_set_{meter} meter_bytecount_adjust_get_{meter}"),
    G("registers", "Registers", "resources",
      "register_read_{register} register_write_{register} register_write_all_{register} "
      "register_reset_all_{register} register_range_reset_{register} register_range_read_{register} "
      "register_hw_sync_{register}"),
    G("idle_time", "Idle time", "resources",
      "{table}_idle_tmo_enable {table}_idle_tmo_disable {table}_idle_register_tmo_cb {table}_idle_params_get "
      "{table}_set_ttl {table}_get_ttl {table}_reset_ttl {table}_update_hit_state {table}_get_hit_state"),
    G("digests", "Learning digests", "resources", "{digest}_register {digest}_deregister {digest}_notify_ack"),
    G("value_sets", "Parser value sets", "resources",
      "pvs_{value_set}_set_property pvs_{value_set}_get_property pvs_{value_set}_entry_add "
      "pvs_{value_set}_entry_modify pvs_{value_set}_entry_delete pvs_{value_set}_entry_get "
      "pvs_{value_set}_entry_handle_get pvs_{value_set}_entry_get_first_entry_handle "
      "pvs_{value_set}_entry_get_next_entry_handles pvs_{value_set}_entry_get_count"),
    G("hashes", "Dynamic hashes", "resources",
      "hash_calc_{hash}_input_set hash_calc_{hash}_input_get hash_calc_{hash}_algorithm_set "
      "hash_calc_{hash}_algorithm_get hash_calc_{hash}_seed_set hash_calc_{hash}_seed_get "
      "hash_calc_{hash}_input_field_attribute_set hash_calc_{hash}_input_field_attribute_count_get "
      "hash_calc_{hash}_input_field_attribute_get hash_calc_{hash}_calculate_hash_value"),
    G("schemas", "Schema texts", "reflection",
      "{table}_match_spec_schema {action}_schema {table}_schema {profile}_schema"),
    G("value_texts", "Value texts and printers", "reflection",
      "{table}_match_spec_value {action}_value {table}_match_spec_print {action}_print {table}_value"),
    G("comparisons", "Comparisons of records", "reflection",
      "{table}_match_specs_are_equal {action}_action_specs_are_equal"),
    G("counter_labels", "Counter labels", "reflection",
      "{table}_match_spec_stringify_for_counter {table}_stringify_counter_match_spec"),
    G("placement_texts", "Placement data as text", "reflection",
      "{table}_plcmt_data_print {profile}_adt_plcmt_data_print {table}_plcmt_data_value "
      "{profile}_plcmt_data_value {table}_plcmt_data_eq_to_hw"),
]
# The dispatchers by handle: one page of their own, after the groups of its section.
DISPATCH = Group("dispatch", "Dispatch by handle", "reflection", ())

# What each row set of families.ROWS is, and what one of its rows is called.
ROW_TEXT = {
    "tables": ("every match table", "table"),
    "direct_tables": ("every table not bound to an action profile", "table"),
    "bound_tables": ("every table bound to an action profile", "table"),
    "tables_with_profiles": ("every table, with its action profile where it is bound to one", "table"),
    "keyed_tables": ("every table with a key", "table"),
    "masked_tables": ("every ternary or lpm table", "table"),
    "entry_pairs": ("every action a table takes for its entries, table by table", "(table, action) pair"),
    "default_pairs": ("every action a table takes as its default, table by table", "(table, action) pair"),
    "key_fields": ("every key field of every table", "key field"),
    "actions_with_params": ("every action with parameters", "action"),
    "actions": ("every action of the program", "action"),
    "profiles": ("every action profile", "profile"),
    "profile_members": ("every member action of every action profile", "(profile, action) pair"),
    "idle_tables": ("every table with idle time", "table"),
    "counted_tables": ("every table with a direct counter, which has a counter label", "table"),
    "counters": ("every counter", "counter"),
    "meters": ("every meter", "meter"),
    "registers": ("every register", "register"),
    "digests": ("every learning digest", "digest"),
    "value_sets": ("every parser value set", "value set"),
    "hashes": ("every dynamic hash", "hash"),
}

# Where an argument that does not stand on every row of its family stands (ARGS' `when`).
ARG_WHEN = {
    "key": "tables with a key",
    "priority": "ternary tables",
    "priority_out": "ternary tables",
    "ttl": "idle-time tables whose entries take a TTL",
    "action_spec": "actions with parameters",
    "meter_spec": "tables whose direct meter takes a spec",
    "spec_if_actions_out": "tables not bound to an action profile",
    "mbr_hdl_if_bound_out": "tables bound to an action profile",
    "grp_hdl_if_bound_out": "tables bound to an action profile",
    "is_member_if_bound_out": "tables bound to an action profile",
    "is_group_if_bound_out": "tables bound to an action profile",
}
# Arguments whose C type or name differs from row to row.
ARG_VARIES = {
    "cell": "the entry handle for a direct resource, the index for an indirect one",
}

HEADER_FILE = {
    "tables": "pd_tables.h", "decoders": "pd_decoders.h", "profiles": "pd_profiles.h",
    "resources": "pd_resources.h", "reflection": "pd_reflection.h",
}


class DocError(Exception):
    pass


def short(pattern):
    return pattern[len(PREFIX):] if pattern.startswith(PREFIX) else pattern


def placeholder(pattern):
    """A family's pattern as the pages write it: {table} as <table>."""
    return pattern.replace("{", "<").replace("}", ">")


def code(text):
    return "`%s`" % text


def general_param(row, ctype, name):
    """A parameter with the row's own names replaced by placeholders."""
    if row.table is not None:
        ctype = ctype.replace(key_record(row.table), PREFIX + "<table>_match_spec_t")
    if row.act is not None:
        ctype = ctype.replace(param_record(row.act), PREFIX + "<action>_action_spec_t")
    res = getattr(row.table, "resource", None) if row.table is not None else None
    if res is not None and name == res.name + "_spec":
        name = "<meter>_spec"
    return ctype, name


def wrapped(export):
    """An export's prototype, one parameter a line."""
    params = [decl(t, n) for t, n in export.params]
    if not params:
        return "%s %s(void);" % (export.family.ret, export.name)
    return "%s %s(\n    %s);" % (export.family.ret, export.name, ",\n    ".join(params))


def decl(ctype, name):
    return "%s%s%s" % (ctype, "" if ctype.endswith("*") else " ", name)


def plural(n, word):
    if n == 1:
        return "1 " + word
    if word.endswith("y"):
        return "%d %sies" % (n, word[:-1])
    return "%d %s" % (n, word + ("es" if word.endswith(("h", "s")) else "s"))


def subjects(rows):
    """The distinct subjects (tables, profiles, resources) of a row set, in order."""
    seen = []
    for r in rows:
        if r.subject not in seen:
            seen.append(r.subject)
    return seen


def family_section(fam, rows):
    """The generated description of one family."""
    if not rows:
        raise DocError("family %s runs over no row" % fam.pattern)
    if fam.rows not in ROW_TEXT or fam.header not in HEADER_FILE:
        raise DocError("family %s: say what its rows (%s) and its header (%s) are in codegen/docs.py"
                       % (fam.pattern, fam.rows, fam.header))
    exports = [families.Export(fam, r) for r in rows]
    what, unit = ROW_TEXT[fam.rows]
    out = ["### %s" % code(placeholder(fam.pattern)), ""]
    subs = subjects(rows)
    over = ""
    if fam.rows in ("entry_pairs", "default_pairs", "key_fields"):
        over = ", over %s" % plural(len(subs), "table")
    elif fam.rows == "profile_members":
        over = ", over %s" % plural(len(subs), "profile")
    out += ["| | |", "|---|---|",
            "| Members | %d: one per row |" % len(exports),
            "| Rows | `%s`: %s (%s%s) |" % (fam.rows, what, plural(len(rows), unit), over),
            "| Returns | %s |" % code(fam.ret),
            "| Header | `corvin_switch/%s` |" % HEADER_FILE[fam.header],
            "| Layer | %s |" % ("the reflection layer (`src/pd_corvin`)" if fam.layer == "pd_corvin"
                                else "the engine (`src/pd`)"),
            "| Engine | `%s` |" % fam.engine,
            ""]
    # Arguments, in prototype order, with where each stands and its forms.
    words = [w for w in fam.args if not families.ARGS[w].engine_only]
    if words:
        out += ["| Argument | C type | Stands |", "|---|---|---|"]
        for w in words:
            arg = families.ARGS[w]
            forms = {}
            for r in rows:
                if arg.present(r):
                    form = general_param(r, *arg.param(r))
                    forms[form] = forms.get(form, 0) + 1
            present = sum(forms.values())
            if present == 0:
                continue
            if present == len(rows):
                where = "always"
            else:
                if w not in ARG_WHEN:
                    raise DocError("argument %s of %s stands on some rows only: say where in ARG_WHEN"
                                   % (w, fam.pattern))
                where = "on %s: %d of %d" % (ARG_WHEN[w], present, len(rows))
            if len(forms) > 1:
                if w not in ARG_VARIES:
                    raise DocError("argument %s of %s has several forms: say which in ARG_VARIES"
                                   % (w, fam.pattern))
                where += "; %s" % ARG_VARIES[w]
            for (ctype, name), n in forms.items():
                count = "" if len(forms) == 1 else " (%d)" % n
                out.append("| %s | %s | %s%s |" % (code(name), code(ctype), where, count))
        out.append("")
    else:
        out += ["No arguments.", ""]
    # Example prototypes: the member with the most arguments, more until every argument has stood in
    # one, and the member with the fewest.
    def standing(e):
        return {w for w in words if families.ARGS[w].present(e.row)}
    chosen = [max(exports, key=lambda e: len(e.params))]
    missing = set().union(*(standing(e) for e in exports)) - standing(chosen[0])
    while missing:
        best = max(exports, key=lambda e: len(standing(e) & missing))
        chosen.append(best)
        missing -= standing(best)
    bare = min(exports, key=lambda e: len(e.params))
    if all(len(bare.params) != len(e.params) for e in chosen):
        chosen.append(bare)
    out += ["```c"] + [wrapped(e) for e in chosen] + ["```", ""]
    # The members themselves: all of them for a small family, the first few otherwise.
    names = [e.name for e in exports]
    if len(names) <= 16:
        out.append("Members: " + ", ".join(code(n) for n in names) + ".")
    else:
        out.append("Members, the first of %d: %s, ..." % (len(names), ", ".join(code(n) for n in names[:4])))
    out.append("")
    return out


def group_families(cat):
    """The families of each group, in the order of FAMILIES; every family in exactly one group."""
    by_group = {g.key: [] for g in GROUPS}
    owner = {}
    for g in GROUPS:
        for p in g.patterns:
            if p in owner:
                raise DocError("pattern %s is in groups %s and %s" % (p, owner[p], g.key))
            owner[p] = g.key
    used = set()
    for fam in families.FAMILIES:
        p = short(fam.pattern)
        if p not in owner:
            raise DocError("family %s belongs to no group of codegen/docs.py" % fam.pattern)
        by_group[owner[p]].append(fam)
        used.add(p)
    for p, g in owner.items():
        if p not in used:
            raise DocError("group %s names %s, which is no family" % (g, p))
    return by_group


def read_prose(prose_dir, key):
    path = os.path.join(prose_dir, key + ".md")
    try:
        with open(path) as f:
            text = f.read()
    except FileNotFoundError:
        raise DocError("%s is missing: every group of families has a page of prose" % path)
    if text.count(MARKER) != 1:
        raise DocError("%s: one line %s marks where the members go" % (path, MARKER))
    return text


def page(group, prose, generated):
    head = "# %s {#families_%s}\n\n" % (group.title, group.key)
    before, after = prose.split(MARKER)
    return head + before.rstrip() + "\n\n" + "\n".join(generated).rstrip() + "\n\n" + after.lstrip()


def group_page(cat, group, fams, prose):
    total = 0
    gen = ["## Members", ""]
    for fam in fams:
        rows = families.ROWS[fam.rows](cat)
        total += len(rows)
        gen += family_section(fam, rows)
    summary = "%s, %d exports in all." % (plural(len(fams), "family"), total)
    gen.insert(2, summary)
    gen.insert(3, "")
    return page(group, prose, gen), total


def dispatch_page(cat, prose):
    gen = ["## Members", "", "%s, each one export." % plural(len(families.DISPATCHERS), "dispatcher"), ""]
    for d in families.DISPATCHERS:
        covered = families.dispatch_rows(cat, d)
        kind = {"tables": "table", "profiles": "profile", "tables_and_profiles": "table or profile",
                "counted_tables": "table with a counter label"}[d.rows]
        gen += ["### %s" % code(d.name), "",
                "| | |", "|---|---|",
                "| Covers | %s, by `%s` |" % (plural(len(covered), kind), d.handle),
                "| Calls | %s |" % code(placeholder(d.target)),
                "| Returns | %s |" % code(d.ret),
                "| Header | `corvin_switch/pd_reflection.h` |", "",
                "```c", d.prototype() + ";", "```", "",
                "For a handle that none covers, the body runs:", "",
                "```c", d.miss, "```", ""]
    return page(DISPATCH, prose, gen), len(families.DISPATCHERS)


def index_page(cat, counts):
    out = ["# Exported families {#families}", "",
           "The library's exports come in families: one function per catalog row of a kind, named by a",
           "pattern. The prototypes are in the generated headers under",
           "`build/<abi>/generated/include/corvin_switch/`; the pages below describe each family once,",
           "with its members, rows, arguments, statuses and an example. Every count here is the catalog's",
           "(`catalog/corvin_switch.toml`), as `codegen/families.py` instantiates it.", ""]
    grand = 0
    for section, title in SECTIONS:
        groups = [g for g in GROUPS if g.section == section] + ([DISPATCH] if section == DISPATCH.section else [])
        out += ["## %s" % title, "", "| Page | Families | Exports |", "|---|---|---|"]
        for g in groups:
            nfam, nexp = counts[g.key]
            grand += nexp
            out.append("| \\ref families_%s \"%s\" | %d | %d |" % (g.key, g.title, nfam, nexp))
        out.append("")
    out += ["In all, %d exports from %d families and %d dispatchers." % (
        grand, len(families.FAMILIES), len(families.DISPATCHERS)), "",
        "The functions that are one of a kind, not a family over rows, are declared in the hand-written",
        "headers and documented there: pd.h (start, stop and the hitless restore), pd_generic.h (registers,",
        "meters and WRED by handle, the learning timeout, digest records by name, snapshots) and",
        "pd_labels.h (the address formatters of the counter labels); the action numbers and their names",
        "are on \\ref catalog_actions \"their own page\".", ""]
    return "\n".join(out)


def catalog_page(cat):
    """The catalog's tables, profiles and resources: the rows the families run over."""
    out = ["# Catalog rows {#catalog_rows}", "",
           "What the families run over, from `catalog/corvin_switch.toml`: %s, %s, %s, %s, %s, %s,"
           % (plural(len(cat.tables), "table"), plural(len(cat.profiles), "action profile"),
              plural(len(cat.counters), "counter"), plural(len(cat.meters), "meter"),
              plural(len(cat.registers), "register"), plural(len(cat.digests), "learning digest")),
           "%s and %s. `codegen/generate.py catalog/corvin_switch.toml --dump <name>` prints what the"
           % (plural(len(cat.value_sets), "parser value set"), plural(len(cat.hashes), "dynamic hash")),
           "generator knows of one of them, with the prototypes of its exports.", "",
           "## Tables", "",
           "| Table | Handle | Kind | Key | Entry actions | Default actions | Also | What it does |",
           "|---|---|---|---|---|---|---|---|"]
    for t in cat.tables:
        key = ", ".join("%s %d%s" % (f.field, f.width, "" if f.match == "exact" else " " + f.match) for f in t.key)
        entry = ", ".join(a.action.name for a in t.actions if a.entry)
        default = ", ".join(a.action.name for a in t.actions if a.default)
        also = []
        if t.profile:
            also.append("profile %s" % t.profile)
        if t.resource is not None:
            also.append("%s %s %s" % (t.resource.binding, t.resource.kind, t.resource.name))
        if t.idle_time:
            also.append("idle time")
        out.append("| %s | 0x%08x | %s | %s | %s | %s | %s | %s |" % (
            t.name, t.handle, t.kind, key or "none", entry or "none", default or "none", "; ".join(also),
            t.sentence))
    out += ["", "## Action profiles", "",
            "| Profile | Action data table | Selector | Bound table | Member actions | What it does |",
            "|---|---|---|---|---|---|"]
    for p in cat.profiles:
        out.append("| %s | 0x%08x | 0x%08x | %s | %s | %s |" % (
            p.name, p.action_data_table, p.selector, p.table, ", ".join(a.name for a, _ in p.members),
            p.sentence))
    out += ["", "## Resources", "", "| Kind | Name | Handle | On |", "|---|---|---|---|"]
    for kind, rows in (("counter", cat.counters), ("meter", cat.meters)):
        for r in rows:
            out.append("| %s %s | %s | 0x%08x | %s |" % (r.binding, kind, r.name, r.handle,
                                                         r.table if r.binding == "direct" else ""))
    for kind, rows in (("register", cat.registers), ("digest", cat.digests), ("value set", cat.value_sets),
                       ("hash", cat.hashes)):
        for r in rows:
            out.append("| %s | %s | 0x%08x | |" % (kind, r["name"], r["handle"]))
    out.append("")
    return "\n".join(out)


def actions_page(cat):
    out = ["# Action numbers {#catalog_actions}", "",
           "`corvin_switch/pd_actions.h` numbers the program's %d actions, across all tables and profiles:"
           % len(cat.actions),
           "`p4_pd_corvin_switch_action_enum_t` has one enumerator `p4_pd_corvin_switch_<action>` per action",
           "and `p4_pd_corvin_switch_action_enum_none` (%d) after the last. The array" % len(cat.actions),
           "`p4_pd_corvin_switch_action_name_strings[%d]` holds each number's name text, the enumerator's"
           % len(cat.actions),
           "identifier, and two functions convert:", "",
           "```c",
           "const char *p4_pd_corvin_switch_action_enum_to_string(uint32_t action);",
           "p4_pd_corvin_switch_action_enum_t p4_pd_corvin_switch_action_string_to_enum(const char *name);",
           "```", "",
           "The first gives the array's text (null past the last number); the second searches the",
           "library's own copy of the texts for the whole enumerator name and gives",
           "`p4_pd_corvin_switch_action_enum_none` for a null or unknown one.", "",
           "The tagged action record `p4_pd_corvin_switch_action_spec_t` of `corvin_switch/pd_records.h`",
           "holds an action number (`name`) and, in the union `u`, the parameter record",
           "`p4_pd_corvin_switch_<action>_action_spec_t` of an action with parameters.", "",
           "| Number | Action | Parameters (bits) |", "|---|---|---|"]
    for a in cat.actions:
        params = ", ".join("action_%s %d" % (p.name, p.width) for p in a.params)
        out.append("| %d | %s | %s |" % (a.number, a.name, params or "none"))
    out.append("")
    return "\n".join(out)


def write(path, text):
    with open(path, "w") as f:
        f.write(text)


def main(argv):
    ap = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    ap.add_argument("catalog")
    ap.add_argument("prose_dir")
    ap.add_argument("outdir")
    args = ap.parse_args(argv)
    try:
        cat = cat_mod.load(args.catalog)
        by_group = group_families(cat)
        keys = {g.key for g in GROUPS} | {DISPATCH.key}
        for name in os.listdir(args.prose_dir):
            if name.endswith(".md") and name[:-3] not in keys:
                raise DocError("%s: no group of families has this page" % os.path.join(args.prose_dir, name))
        os.makedirs(args.outdir, exist_ok=True)
        for name in os.listdir(args.outdir):
            if name.endswith(".md"):
                os.remove(os.path.join(args.outdir, name))
        counts = {}
        for g in GROUPS:
            text, total = group_page(cat, g, by_group[g.key], read_prose(args.prose_dir, g.key))
            write(os.path.join(args.outdir, "families_%s.md" % g.key), text)
            counts[g.key] = (len(by_group[g.key]), total)
        text, total = dispatch_page(cat, read_prose(args.prose_dir, DISPATCH.key))
        write(os.path.join(args.outdir, "families_%s.md" % DISPATCH.key), text)
        counts[DISPATCH.key] = (len(families.DISPATCHERS), total)
        write(os.path.join(args.outdir, "families.md"), index_page(cat, counts))
        write(os.path.join(args.outdir, "catalog_rows.md"), catalog_page(cat))
        write(os.path.join(args.outdir, "catalog_actions.md"), actions_page(cat))
    except (cat_mod.CatalogError, DocError) as e:
        print("docs.py: %s" % e, file=sys.stderr)
        return 1
    return 0


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
