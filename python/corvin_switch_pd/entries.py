"""Entries and members as records with names, made from the library's value texts.

An entry's text, as p4_pd_corvin_switch_entry_value writes it, evaluates to

    ((KEY, ACTION), (PRIORITY, True))

KEY is one number per column of the table's key schema, in its order; it is () for a default entry
and for a keyless table. ACTION is (name, (parameter numbers in schema order)), or in a selector's
table the binding ('setMbrHdl', (member,)) or ('setGrpHdl', (group,)), which may be absent. The
priority is written as a signed 32-bit number.
"""

import ast
from dataclasses import dataclass, field
from typing import Optional

from .errors import ClientError
from .values import show, show_mac

BINDINGS = {"setMbrHdl": "member", "setGrpHdl": "group"}


class TextError(ClientError):
    """A value text that does not pair with its schema."""


@dataclass
class Entry:
    """One entry of a table as read from the device."""
    table: str
    handle: int
    key: dict                 # column short name -> number, in schema order (masks and prefix lengths too)
    action: Optional[str]     # None in a selector's table
    params: dict              # parameter name -> number, in record order
    priority: int             # 0 where the table has no priorities
    default: bool = False     # the table's default entry
    member: Optional[int] = None   # a selector's table: the member bound, or None
    group: Optional[int] = None    # ... or the group bound
    text: str = field(default="", repr=False, compare=False)
    schema: object = field(default=None, repr=False, compare=False)

    def __str__(self):
        return describe(self)


@dataclass
class Member:
    """One member of an action profile."""
    profile: str
    handle: int
    action: str
    params: dict

    def __str__(self):
        return "%s member 0x%x: %s(%s)" % (self.profile, self.handle, self.action,
                                           ", ".join("%s=0x%x" % kv for kv in self.params.items()))


def evaluate(text, what):
    try:
        return ast.literal_eval(text)
    except (ValueError, SyntaxError) as e:
        raise TextError("%s: %r does not evaluate: %s" % (what, text, e)) from None


def parse_entry(table, handle, text, default=False):
    """The Entry of a value text of `table` (a schema.Table)."""
    what = "entry 0x%x of %s" % (handle, table.name)
    v = evaluate(text, what)
    if not (isinstance(v, tuple) and len(v) == 2 and isinstance(v[0], tuple) and isinstance(v[1], tuple)
            and len(v[1]) == 2 and isinstance(v[1][0], int)):
        raise TextError("%s: not an entry text: %r" % (what, text))
    body, (priority, _) = v
    if not body or not isinstance(body[0], tuple):
        raise TextError("%s: no key in %r" % (what, text))
    key_values, action = body[0], body[1] if len(body) > 1 else None
    key = {}
    if key_values:
        if len(key_values) != len(table.columns):
            raise TextError("%s: %d key numbers for %d schema columns" % (what, len(key_values), len(table.columns)))
        key = {c.name: n for c, n in zip(table.columns, key_values)}
    else:
        default = True  # a keyed table's default entry, or a keyless table's only entry
    e = Entry(table.name, handle, key, None, {}, priority & 0xFFFFFFFF, default, text=text, schema=table)
    if action is None:
        return e
    if not (isinstance(action, tuple) and len(action) == 2 and isinstance(action[1], tuple)):
        raise TextError("%s: not an action text: %r" % (what, action))
    name, numbers = action
    if table.selector and name in BINDINGS:
        setattr(e, BINDINGS[name], numbers[0])
        return e
    schema = table.actions.get(name)
    if schema is None or len(schema.params) != len(numbers):
        raise TextError("%s: action %r does not pair with the table's schema" % (what, name))
    e.action = name
    e.params = {p.name: n for p, n in zip(schema.params, numbers)}
    return e


def describe(e):
    """An entry in a user's words: addresses by their hints, MAC pairs joined."""
    t = e.schema
    parts = []
    if t is not None and e.key:
        pairs = {p.oui: p for p in t.mac_pairs}
        skip = {p.station for p in t.mac_pairs}
        for f in t.key:
            if f.name in skip:
                continue
            v = e.key[f.name]
            mask = e.key.get(f.mask) if f.mask else None
            if f.name in pairs:
                p = pairs[f.name]
                text = show_mac(v, e.key[p.station])
                if mask is not None:
                    text += "&&&" + show_mac(mask, e.key[t.field(p.station).mask])
                parts.append("%s=%s" % (p.name, text))
                continue
            text = show(v, f.width, f.hint)
            if mask is not None:
                text += "&&&" + show(mask, f.width, None if f.hint in ("port", "vport", "dec") else f.hint)
            if f.prefix:
                text += "/%d" % e.key[f.prefix]
            parts.append("%s=%s" % (f.name, text))
    head = "%s 0x%x%s" % (e.table, e.handle, " (default)" if e.default else "")
    if t is not None and t.priority and not e.default:
        head += " priority %d" % e.priority
    if e.member is not None:
        what = "member 0x%x" % e.member
    elif e.group is not None:
        what = "group 0x%x" % e.group
    elif e.action is None:
        what = "no member or group"
    else:
        act = t.actions[e.action] if t is not None else None
        what = "%s(%s)" % (e.action, ", ".join(
            "%s=%s" % (p.name, show(e.params[p.name], p.width, p.hint)) for p in act.params) if act else
            ", ".join("%s=0x%x" % kv for kv in e.params.items()))
    return "%s: %s -> %s" % (head, " ".join(parts) or "()", what)
