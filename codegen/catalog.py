"""The pipeline catalog as the generator sees it: loading, derived facts, and validation.

A wrong row must fail the build, not a user: `load` checks every row against the catalog's own
invariants and against the program's published figures before anything is generated.
"""

import tomllib
from dataclasses import dataclass, field
from typing import Optional

PREFIX = "p4_pd_corvin_switch_"

HINTS = {"mac", "v4addr", "v6addr", "port", "vport", "dec"}


class CatalogError(Exception):
    pass


def image_bytes(width):
    return (width + 7) // 8


def member_ctype(width):
    """C type of a record member holding a field of this width (arrays as (base, count))."""
    if width <= 8:
        return ("uint8_t", None)
    if width <= 16:
        return ("uint16_t", None)
    if width <= 32:
        return ("uint32_t", None)
    return ("uint8_t", width // 8)


@dataclass
class Param:
    name: str
    width: int
    hint: Optional[str] = None


@dataclass
class Action:
    number: int
    name: str
    params: list

    @property
    def data_bits(self):
        return sum(p.width for p in self.params)

    @property
    def data_bytes(self):
        return sum(image_bytes(p.width) for p in self.params)


@dataclass
class KeyField:
    field: str
    width: int
    match: str = "exact"
    label: Optional[str] = None
    slice: Optional[int] = None
    hint: Optional[str] = None
    partition: bool = False
    member_bits: Optional[int] = None
    image_offset: int = 0

    @property
    def short_name(self):
        # The field name less its first word; a name of one word is its own short name.
        return self.label or (self.field.split("_", 1)[1] if "_" in self.field else self.field)

    @property
    def width_export(self):
        """Name part of the field's `_width` export: a `_valid` field drops that word."""
        return self.field[: -len("_valid")] if self.field.endswith("_valid") else self.field


@dataclass
class TableAction:
    action: Action
    handle: int
    entry: bool
    default: bool
    tag: int = 0          # resource tag on add and modify (0: no resource record)
    default_tag: int = 0  # resource tag on a default entry set without a meter spec


@dataclass
class Resource:
    kind: str           # "counter" or "meter"
    name: str
    handle: int
    binding: str        # "direct" or "indirect"
    table: str
    unit: Optional[str] = None
    index_action: Optional[str] = None
    index_param: Optional[str] = None
    index_in_image: bool = False


@dataclass
class Table:
    name: str
    handle: int
    group: str
    block: str
    kind: str
    priority: bool
    sentence: str
    key: list
    key_bits: int = 0
    key_bytes: int = 0
    idle_time: bool = False
    ttl_argument: bool = False
    profile: Optional[str] = None
    actions: list = field(default_factory=list)
    record_order: Optional[list] = None
    reserved: list = field(default_factory=list)
    resource: Optional[Resource] = None
    resource_in_entries: bool = False
    meter_spec_argument: bool = False

    @property
    def key_word(self):
        return (self.key_bytes << 16) + self.key_bits

    @property
    def partition_field(self):
        return next((f for f in self.key if f.partition), None)

    def record_members(self):
        """Key record layout: [(kind, name, ctype, array_len)], kind 'field'|'mask'|'prefix'|'reserved'."""
        by_name = {f.field: f for f in self.key}
        order = [by_name[n] for n in self.record_order] if self.record_order else self.key
        reserved = {r["before"]: r["bytes"] for r in self.reserved}
        out = []
        for i, f in enumerate(order):
            if f.field in reserved:
                out.append(("reserved", "reserved%d" % i, "uint8_t", reserved[f.field]))
            base, n = member_ctype(f.member_bits or f.width)
            out.append(("field", f.field, base, n))
            if f.match == "ternary":
                out.append(("mask", f.field + "_mask", base, n))
            elif f.match == "lpm":
                out.append(("prefix", f.field + "_prefix_length", "uint16_t", None))
        return out


@dataclass
class LabelFragment:
    """One fragment of a counter label: a key field (the OUI half of a mac_ternary pair, `station`
    the other half), its form and leading words; a named form's values with texts of their own,
    and the mask bits that let them apply (None: every bit)."""
    field: str
    form: str
    label: Optional[str] = None
    station: Optional[str] = None
    mask_and: Optional[int] = None
    names: tuple = ()  # ((value, text), ...)


LABEL_FORMS = {"number", "masked", "flag", "named", "v4_ternary", "v6_exact", "v6_ternary", "mac_ternary", "hidden"}
LABEL_COLUMNS = {"field", "form", "label", "station", "mask_and", "names"}
# The key fields each form fits (a hidden field may be any): match kind, and width.
LABEL_FIELDS = {"number": ("exact", "up to", 32), "masked": ("ternary", "up to", 32),
                "named": ("ternary", "up to", 32), "flag": ("ternary", "up to", 32),
                "v4_ternary": ("ternary", "of", 32), "v6_exact": ("exact", "of", 128),
                "v6_ternary": ("ternary", "of", 128), "mac_ternary": ("ternary", "of", 24)}


@dataclass
class Profile:
    name: str
    action_data_table: int
    selector: int
    table: str
    block: str
    sentence: str
    members: list  # [(Action, handle)]


@dataclass
class Group:
    name: str
    pipeline: str
    first: int
    last: int


class HandleSpaces:
    """The catalog's handle spaces: the high 16 bits each kind of handle may have."""

    def __init__(self, raw):
        self.raw = raw

    def highs(self, kind, pipeline=None):
        """The high words a handle of this kind may have: of one pipeline, or of any."""
        space = self.raw.get(kind, {})
        if pipeline is not None and pipeline in space:
            return {space[pipeline]}
        return set(space.values())

    def holds(self, kind, handle, pipeline=None):
        return handle >> 16 in self.highs(kind, pipeline)

    def last_action(self, pipeline):
        return self.raw["last_action"][pipeline]

    def unused_table_numbers(self, pipeline):
        return set(self.raw["unused_table_numbers"].get(pipeline, []))

    def value_set_numbers(self):
        lo, hi = self.raw["value_set_numbers"]
        return range(lo, hi + 1)


@dataclass
class Snapshot:
    """The snapshot record: its size, the most stages a capture gives, and per form (ingress,
    egress) the offsets of its 2-byte and 4-byte fields."""
    record_bytes: int
    max_stages: int
    forms: dict  # form -> {2: [offsets], 4: [offsets]}

    def swaps(self, form):
        """(offset, width in bytes) of the multi-byte fields of a form, in record order."""
        return sorted([(o, w) for w, offs in self.forms[form].items() for o in offs])


@dataclass
class Catalog:
    program: str
    figures: dict
    groups: dict
    spaces: HandleSpaces
    tables: list
    actions: list
    profiles: list
    counters: list
    meters: list
    registers: list
    digests: list
    value_sets: list
    hashes: list
    snapshot: Optional[Snapshot] = None
    labels: dict = field(default_factory=dict)  # table name -> [LabelFragment], the counter labels

    def table(self, name):
        return self._tables[name]

    def pipeline(self, t):
        """The pipeline of a table, by its group."""
        return self.groups[t.group].pipeline

    def action(self, name):
        return self._actions[name]

    def entry_pairs(self):
        return [(t, a) for t in self.tables for a in t.actions if a.entry]

    def default_pairs(self):
        return [(t, a) for t in self.tables for a in t.actions if a.default]


def _check(cond, msg):
    if not cond:
        raise CatalogError(msg)


def load(path):
    with open(path, "rb") as f:
        raw = tomllib.load(f)
    return build(raw)


def build(raw):
    actions = [Action(a["number"], a["name"], [Param(p["name"], p["width"], p.get("hint"))
                                               for p in a.get("params", [])])
               for a in raw.get("action", [])]
    by_action = {}
    for a in actions:
        _check(a.name not in by_action, "action %s listed twice" % a.name)
        by_action[a.name] = a
    resources = {}
    counters, meters = [], []
    for kind, rows, dest in (("counter", raw.get("counter", []), counters), ("meter", raw.get("meter", []), meters)):
        for r in rows:
            idx = r.get("index")
            res = Resource(kind, r["name"], r["handle"], r["binding"], r["table"], r.get("unit"),
                           idx["action"] if idx else None, idx["param"] if idx else None,
                           bool(idx) and idx["image"] == "value")
            _check(res.name not in resources, "resource %s listed twice" % res.name)
            resources[res.name] = res
            dest.append(res)
    tables = []
    for t in raw.get("table", []):
        key = [KeyField(f["field"], f["width"], f.get("match", "exact"), f.get("label"), f.get("slice"),
                        f.get("hint"), f.get("partition", False), f.get("member_bits")) for f in t.get("key", [])]
        off = 0
        for f in key:
            f.image_offset = off
            off += image_bytes(f.width)
        tbl = Table(t["name"], t["handle"], t["group"], t["block"], t["kind"], t["priority"], t["sentence"], key,
                    t.get("key_bits", 0), t.get("key_bytes", 0), t.get("idle_time", False),
                    t.get("ttl_argument", False), t.get("profile"), [], t.get("record_order"),
                    t.get("reserved", []))
        bound = t.get("bound")
        if bound:
            _check(bound["resource"] in resources, "%s: unknown resource %s" % (tbl.name, bound["resource"]))
            tbl.resource = resources[bound["resource"]]
            tbl.resource_in_entries = "tag1" in bound
            tbl.meter_spec_argument = bound.get("spec_argument", False)
        for a in t.get("actions", []):
            _check(a["action"] in by_action, "%s: unknown action %s" % (tbl.name, a["action"]))
            _check(a["use"] in ("E", "D", "ED"), "%s: use of %s" % (tbl.name, a["action"]))
            ta = TableAction(by_action[a["action"]], a["handle"], "E" in a["use"], "D" in a["use"])
            if tbl.resource_in_entries:
                tag1, tag2 = bound["tag1"], bound.get("tag2", [])
                if tag1 == "all" or ta.action.name in tag1:
                    ta.tag = 1
                elif ta.action.name in tag2:
                    ta.tag = 2
                else:
                    raise CatalogError("%s: action %s has no resource tag" % (tbl.name, ta.action.name))
                ta.default_tag = bound.get("default_tag", {}).get(ta.action.name, ta.tag)
            tbl.actions.append(ta)
        tables.append(tbl)
    profiles = [Profile(p["name"], p["action_data_table"], p["selector"], p["table"], p["block"], p["sentence"],
                        [(by_action[m["action"]], m["handle"]) for m in p["members"]])
                for p in raw.get("profile", [])]
    groups = {g["name"]: Group(g["name"], g["pipeline"], g["first"], g["last"]) for g in raw.get("group", [])}
    cat = Catalog(raw["program"], raw.get("figures", {}), groups, HandleSpaces(raw.get("handle_space", {})), tables, sorted(actions, key=lambda a: a.number), profiles, counters, meters,
                  raw.get("register", []), raw.get("digest", []), raw.get("value_set", []), raw.get("hash", []))
    snap = raw.get("snapshot")
    if snap:
        cat.snapshot = Snapshot(snap["record_bytes"], snap["max_stages"],
                                {form: {2: snap.get(form + "_u16", []), 4: snap.get(form + "_u32", [])}
                                 for form in ("ingress", "egress")})
    cat._tables = {t.name: t for t in tables}
    cat._actions = by_action
    for lab in raw.get("counter_label", []):
        _check(lab["table"] not in cat.labels, "counter label of %s given twice" % lab["table"])
        frags = []
        for fr in lab["fragments"]:
            extra = set(fr) - LABEL_COLUMNS
            _check("field" in fr and "form" in fr,
                   "counter label of %s: a fragment without field or form" % lab["table"])
            _check(not extra, "counter label of %s, %s: unknown columns %s" % (lab["table"], fr.get("field"),
                                                                              sorted(extra)))
            frags.append(LabelFragment(fr["field"], fr["form"], fr.get("label"), fr.get("station"),
                                       fr.get("mask_and"), tuple((n["value"], n["text"]) for n in fr.get("names", []))))
        cat.labels[lab["table"]] = frags
    validate_rows(cat)
    return cat


def validate_snapshot(snap):
    """Each form's fields lie in the record, in order, without overlapping."""
    _check(0 < snap.max_stages, "snapshot: max_stages")
    for form in snap.forms:
        for w, offs in snap.forms[form].items():
            _check(offs == sorted(offs), "snapshot %s: %d-byte offsets out of order" % (form, w))
        end = 0
        for off, w in snap.swaps(form):
            _check(off >= end, "snapshot %s: field at %d overlaps the one before" % (form, off))
            _check(off + w <= snap.record_bytes, "snapshot %s: field at %d runs past the record" % (form, off))
            end = off + w


def validate_rows(cat):
    """Invariants every row must meet, whatever the program."""
    if cat.snapshot:
        validate_snapshot(cat.snapshot)
    names = set()
    handles = set()
    for t in cat.tables:
        _check(t.name not in names, "table %s listed twice" % t.name)
        names.add(t.name)
        _check(t.handle not in handles, "%s: table handle 0x%x used twice" % (t.name, t.handle))
        handles.add(t.handle)
        _check(t.group in cat.groups, "%s: unknown group %r" % (t.name, t.group))
        kinds = {f.match for f in t.key}
        _check(kinds <= {"exact", "ternary", "lpm"}, "%s: unknown match kind" % t.name)
        kind = ("keyless" if not t.key else "ternary" if "ternary" in kinds
                else "lpm" if "lpm" in kinds else "exact")
        _check(kind == t.kind, "%s: kind %s, but its key makes it %s" % (t.name, t.kind, kind))
        _check(t.priority == (kind == "ternary"), "%s: priority goes with ternary tables alone" % t.name)
        bits = sum(f.width for f in t.key)
        nbytes = sum(image_bytes(f.width) for f in t.key)
        _check((bits, nbytes) == (t.key_bits, t.key_bytes),
               "%s: key is %d bits in %d bytes, row says %d in %d" % (t.name, bits, nbytes, t.key_bits, t.key_bytes))
        fields = [f.field for f in t.key]
        _check(len(set(fields)) == len(fields), "%s: a key field appears twice" % t.name)
        for f in t.key:
            _check(1 <= f.width <= 32 or f.width == 128, "%s: width %d of %s" % (t.name, f.width, f.field))
            _check(f.hint is None or f.hint in HINTS, "%s: hint %s" % (t.name, f.hint))
            _check(f.slice is None or 0 < f.slice < (1 << f.width), "%s: slice of %s" % (t.name, f.field))
            _check(f.member_bits is None or f.member_bits in (8, 16, 32) and f.member_bits >= f.width,
                   "%s: member_bits of %s" % (t.name, f.field))
        if kind == "lpm":
            lpm = [i for i, f in enumerate(t.key) if f.match == "lpm"]
            _check(lpm == [len(t.key) - 1], "%s: one lpm field, the last" % t.name)
            _check(t.key[-1].width % 8 == 0, "%s: lpm field width not whole bytes" % t.name)
        parts = [i for i, f in enumerate(t.key) if f.partition]
        if parts:
            _check(parts == [0] and kind == "lpm" and t.key[0].width == 16 and t.key[0].match == "exact",
                   "%s: a partition field is the first, exact, 16 bits, of an lpm table" % t.name)
        if t.record_order is not None:
            _check(sorted(t.record_order) == sorted(fields), "%s: record_order is not a permutation of the key" % t.name)
        for r in t.reserved:
            _check(r["before"] in fields and r["bytes"] > 0, "%s: reserved bytes before %s" % (t.name, r["before"]))
        if t.profile:
            _check(not t.actions, "%s: a profile-bound table has no actions of its own" % t.name)
        elif kind == "keyless":
            _check(len(t.actions) == 1 and not t.actions[0].entry and t.actions[0].default,
                   "%s: a keyless table has one default action" % t.name)
        else:
            _check(any(a.entry for a in t.actions), "%s: a keyed table takes entries" % t.name)
        seen = set()
        for a in t.actions:
            _check(a.action.name not in seen, "%s: action %s twice" % (t.name, a.action.name))
            seen.add(a.action.name)
            _check(a.handle >> 16 == 0x2000, "%s: action handle 0x%x outside the action space" % (t.name, a.handle))
        _check(not t.ttl_argument or t.idle_time, "%s: a TTL argument needs idle time" % t.name)
        if t.resource:
            r = t.resource
            _check(r.table == t.name, "%s: resource %s belongs to %s" % (t.name, r.name, r.table))
            _check(not t.meter_spec_argument or (r.kind == "meter" and r.binding == "direct"),
                   "%s: only a direct meter takes a spec argument" % t.name)
            if r.index_action:
                ta = next((a for a in t.actions if a.action.name == r.index_action), None)
                _check(ta is not None and ta.entry and not ta.default,
                       "%s: index action %s is an entry action only" % (t.name, r.index_action))
                p = [p for p in ta.action.params if p.name == r.index_param]
                _check(len(p) == 1 and p[0].width == 32, "%s: index parameter %s" % (t.name, r.index_param))
    for r in cat.counters + cat.meters:
        if r.index_action:
            users = [t.name for t in cat.tables if any(a.action.name == r.index_action for a in t.actions)]
            _check(users == [r.table], "index-bearing action %s belongs to %s alone, not %s" % (
                r.index_action, r.table, users))
    nums = [a.number for a in cat.actions]
    _check(nums == list(range(len(nums))), "actions must be numbered from 0 without a gap")
    for p in cat.profiles:
        _check(p.table in cat._tables and cat._tables[p.table].profile == p.name,
               "profile %s: table %s is not bound to it" % (p.name, p.table))
    validate_handles(cat)
    validate_labels(cat)


def counted(t):
    """Whether a table's entries carry a counter of their own: the tables with counter labels."""
    return t.resource is not None and t.resource.kind == "counter" and t.resource.binding == "direct"


def _printable(text):
    return bool(text) and all(" " <= ch <= "~" for ch in text)


def validate_labels(cat):
    """Every table with a direct counter has a counter label and no other table has one; a label has
    one fragment per key field, in key order, each of a form that fits the field's match kind and
    width."""
    for name, frags in cat.labels.items():
        _check(name in cat._tables, "counter label of %s: no such table" % name)
        t = cat.table(name)
        _check(counted(t), "counter label of %s: the table has no direct counter" % name)
        position = {f.field: i for i, f in enumerate(t.key)}
        covered = []
        for fr in frags:
            where = "counter label of %s, %s" % (name, fr.field)
            _check(fr.form in LABEL_FORMS, "%s: unknown form %r" % (where, fr.form))
            _check(fr.field in position, "%s: not a key field of the table" % where)
            f = t.key[position[fr.field]]
            fields = [f]
            if fr.form == "mac_ternary":
                _check(fr.station in position and position[fr.station] == position[fr.field] + 1,
                       "%s: the station half must be the key field after the OUI half" % where)
                fields.append(t.key[position[fr.station]])
            else:
                _check(fr.station is None, "%s: a station half belongs to mac_ternary alone" % where)
            for g in fields:
                i = position[g.field]
                _check(i not in covered, "counter label of %s: %s has two fragments" % (name, g.field))
                _check(not covered or i > covered[-1], "counter label of %s: %s out of key order" % (name, g.field))
                covered.append(i)
            if fr.form in LABEL_FIELDS:
                kind, how, bits = LABEL_FIELDS[fr.form]
                for g in fields:
                    _check(g.match == kind and (g.width <= bits if how == "up to" else g.width == bits),
                           "%s: form %s is for %s fields %s %d bits; this one is %s, %d bits" % (
                               where, fr.form, kind, how, bits, g.match, g.width))
            if fr.form == "flag":
                s = f.slice if f.slice is not None else (1 << f.width) - 1
                _check(s == 1, "%s: a flag is a field of one bit, at bit 0" % where)
            if fr.form == "hidden":
                _check(fr.label is None, "%s: a hidden field has no label" % where)
            else:
                _check(fr.label is not None and _printable(fr.label), "%s: a label of printable characters" % where)
            if fr.form == "named":
                decide = fr.mask_and if fr.mask_and is not None else (1 << f.width) - 1
                _check(0 < decide < 1 << f.width, "%s: mask_and outside the field" % where)
                values = [v for v, _ in fr.names]
                _check(values and len(set(values)) == len(values), "%s: names of distinct values" % where)
                for v, text in fr.names:
                    _check(v & ~decide == 0, "%s: value 0x%x has bits outside mask_and" % (where, v))
                    _check(_printable(text), "%s: the text of 0x%x, of printable characters" % (where, v))
            else:
                _check(fr.mask_and is None and not fr.names, "%s: names belong to the named form alone" % where)
        missing = [f.field for i, f in enumerate(t.key) if i not in covered]
        _check(not missing, "counter label of %s: key fields without a fragment: %s" % (name, ", ".join(missing)))
    unlabelled = [t.name for t in cat.tables if counted(t) and t.name not in cat.labels]
    _check(not unlabelled, "tables with a direct counter but no counter label: %s" % ", ".join(unlabelled))


def validate_figures(cat, fig=None):
    """The rows must add up to the program's figures, and its handles lie in their spaces."""
    def eq(what, got, want):
        _check(got == want, "%s: the rows give %r, the program has %r" % (what, got, want))

    fig = fig if fig is not None else cat.figures

    T = cat.tables
    eq("tables", len(T), fig["tables"])
    eq("tables by kind", {k: sum(1 for t in T if t.kind == k) for k in fig["kinds"]}, fig["kinds"])
    eq("tables by group", {g: sum(1 for t in T if t.group == g) for g in fig["groups"]}, fig["groups"])
    eq("tables that take entries", sum(1 for t in T if any(a.entry for a in t.actions)), fig["entry_tables"])
    eq("profile-bound tables", sum(1 for t in T if t.profile), fig["profile_tables"])
    eq("key fields", sum(len(t.key) for t in T), fig["key_fields"])
    eq("ternary fields", sum(1 for t in T for f in t.key if f.match == "ternary"), fig["ternary_fields"])
    eq("lpm fields", sum(1 for t in T for f in t.key if f.match == "lpm"), fig["lpm_fields"])
    eq("partition tables", sum(1 for t in T if t.partition_field), fig["partition_tables"])
    eq("actions", len(cat.actions), fig["actions"])
    eq("actions with parameters", sum(1 for a in cat.actions if a.params), fig["actions_with_params"])
    eq("actions of tables", len({a.action.name for t in T for a in t.actions}), fig["actions_of_tables"])
    eq("table and action pairs", sum(len(t.actions) for t in T), fig["pairs"])
    eq("entry pairs", len(cat.entry_pairs()), fig["entry_pairs"])
    eq("default pairs", len(cat.default_pairs()), fig["default_pairs"])
    eq("tables with a default action", sum(1 for t in T if any(a.default for a in t.actions)), fig["default_tables"])
    eq("profiles", len(cat.profiles), fig["profiles"])
    eq("profile member actions", sum(len(p.members) for p in cat.profiles), fig["profile_member_actions"])
    member_only = {a.name for p in cat.profiles for a, _ in p.members} - {a.action.name for t in T for a in t.actions}
    eq("actions of profile members only", len(member_only), fig["actions"] - fig["actions_of_tables"])
    eq("counters", {b: sum(1 for c in cat.counters if c.binding == b) for b in fig["counters"]}, fig["counters"])
    eq("meters", {b: sum(1 for c in cat.meters if c.binding == b) for b in fig["meters"]}, fig["meters"])
    eq("meter units", {u: sum(1 for c in cat.meters if c.unit == u) for u in fig["meter_units"]}, fig["meter_units"])
    eq("registers", len(cat.registers), fig["registers"])
    eq("idle-time tables", sum(1 for t in T if t.idle_time), fig["idle_time_tables"])
    eq("digests", len(cat.digests), fig["digests"])
    eq("parser value sets", len(cat.value_sets), fig["value_sets"])
    eq("dynamic hashes", len(cat.hashes), fig["hashes"])
    eq("snapshot fields converted", {f: len(cat.snapshot.swaps(f)) for f in fig["snapshot_fields"]},
       fig["snapshot_fields"])
    eq("key records in their own order", sum(1 for t in T if t.record_order), fig["record_order_tables"])
    eq("key records with reserved bytes", sum(1 for t in T if t.reserved), fig["reserved_tables"])
    eq("index-bearing actions", sum(1 for r in cat.counters + cat.meters if r.index_action), fig["index_actions"])


def validate_handles(cat):
    """Every handle lies in its space: the kind and pipeline its high bits say, a table's within its
    group's range and not a number that no table has."""
    sp = cat.spaces
    for t in cat.tables:
        g = cat.groups[t.group]
        _check(g.first <= t.handle <= g.last, "%s: handle 0x%x outside %s" % (t.name, t.handle, t.group))
        _check(sp.holds("table", t.handle, g.pipeline), "%s: handle 0x%x outside the table space" % (t.name, t.handle))
        _check(t.handle & 0xFFFF not in sp.unused_table_numbers(g.pipeline),
               "%s: handle 0x%x is a number no table has" % (t.name, t.handle))
        for a in t.actions:
            _check(sp.holds("action", a.handle) and a.handle <= sp.last_action(g.pipeline),
                   "%s: action handle 0x%x outside the action space" % (t.name, a.handle))
    for p in cat.profiles:
        pipe = cat.pipeline(cat.table(p.table))
        _check(sp.holds("action_data_table", p.action_data_table, pipe), "%s: action data table handle" % p.name)
        _check(sp.holds("selector", p.selector, pipe), "%s: selector handle" % p.name)
        for a, h in p.members:
            _check(sp.holds("action", h) and h <= sp.last_action(pipe), "%s: member action handle 0x%x" % (p.name, h))
    for r in cat.counters + cat.meters:
        _check(sp.holds(r.kind, r.handle, cat.pipeline(cat.table(r.table))),
               "%s: handle 0x%x outside its space" % (r.name, r.handle))
    for r in cat.registers:
        _check(sp.holds("register", r["handle"]), "%s: register handle" % r["name"])
    for h in cat.hashes:
        _check(sp.holds("hash", h["handle"]) and sp.holds("hash_input", h["input"])
               and sp.holds("hash_algorithm", h["algorithm"]), "%s: hash handles" % h["name"])
    for d in cat.digests:
        _check(sp.holds("digest", d["handle"]), "%s: digest handle" % d["name"])
        _check(sum(f["bytes"] for f in d["fields"]) == d["entry_bytes"], "%s: entry size" % d["name"])
    for v in cat.value_sets:
        _check(sp.holds("value_set", v["handle"]) and v["handle"] & 0xFFFF in sp.value_set_numbers(),
               "%s: value set handle" % v["name"])
