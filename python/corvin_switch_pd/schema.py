"""Table and profile descriptions, made from the library's schema texts.

A schema text is a Python literal. A table's reads

    ( ('<table>','mat',(<selector flag>,)),<key schema>,<actions>)

with one 7-tuple per key column, ( 'shortName','record_field',width,sliceMask,hint,None,None), a
ternary field followed by its mask column ('<short>Mask', '<field>_mask') and an lpm field by its
prefix-length column ('<short>PrefixLength', '<field>_prefix_length', width 16), and each action as
( ('<name>'),((param,hint,width,None),...)). A profile's text is its actions alone. The match kind
of a field is not written: it follows from the column after it.
"""

import ast
from dataclasses import dataclass, field
from typing import Optional

from .errors import ClientError, UnknownName

MAC_HINT = "mac"


class SchemaError(ClientError):
    """A schema text that does not have the form a client reads."""


@dataclass(frozen=True)
class Column:
    """One tuple of a key schema: a field's value, or its mask, or its prefix length. Value texts
    pair with these position by position."""
    name: str            # short name, shown to users
    field: str           # member name in the key record
    width: int
    slice: int           # the bits of the field the table matches on
    hint: Optional[str]
    role: str            # "value", "mask" or "prefix"
    of: str              # short name of the key field it belongs to


@dataclass(frozen=True)
class KeyField:
    name: str            # short name (schema position 0)
    field: str           # record member name (schema position 1)
    width: int           # width of the whole P4 field, in bits
    slice: int           # slice mask: all ones of the width when the table keys on the whole field
    hint: Optional[str]  # 'mac', 'v4addr', 'v6addr', 'port', 'vport', 'dec' or None
    match: str           # "exact", "ternary" or "lpm"
    mask: Optional[str] = None    # short name of the mask column of a ternary field
    prefix: Optional[str] = None  # short name of the prefix-length column of an lpm field

    @property
    def full(self):
        return (1 << self.width) - 1


@dataclass(frozen=True)
class Param:
    name: str
    hint: Optional[str]
    width: int

    @property
    def member(self):
        return "action_" + self.name


@dataclass(frozen=True)
class Action:
    name: str
    params: tuple  # of Param, in record order

    def param(self, name):
        for p in self.params:
            if p.name == name:
                return p
        raise UnknownName("parameter", name, "action %s" % self.name, [p.name for p in self.params])


@dataclass(frozen=True)
class MacPair:
    """A 48-bit MAC address held as two 24-bit fields or parameters with the hint 'mac': the OUI half
    (high 24 bits) and the station half. `name` is their common stem, or 'mac' where they are
    called plainly 'oui' and 'station'."""
    name: str
    oui: str
    station: str


def mac_pairs(items):
    """The MAC pairs among (name, hint, width) items."""
    names = {n for n, h, w in items if h == MAC_HINT and w == 24}
    pairs = []
    for n in sorted(names):
        if n.endswith("Oui") and n[:-3] + "Station" in names:
            pairs.append(MacPair(n[:-3], n, n[:-3] + "Station"))
        elif n == "oui" and "station" in names:
            pairs.append(MacPair("mac", "oui", "station"))
    return tuple(pairs)


@dataclass
class Table:
    name: str
    handle: int
    selector: bool             # entries bind to a member or group of a profile, not to an action
    key: tuple                 # of KeyField, in key order
    columns: tuple             # of Column, in schema order: what a key value text pairs with
    actions: dict              # name -> Action; for a selector's table the two binding forms
    text: str = field(repr=False, default="")
    profile: Optional[str] = None   # the profile of a selector's table, when the layout names it

    @property
    def kind(self):
        kinds = {f.match for f in self.key}
        return ("keyless" if not self.key else "ternary" if "ternary" in kinds
                else "lpm" if "lpm" in kinds else "exact")

    @property
    def priority(self):
        """Whether entries have a priority: the tables with ternary fields."""
        return self.kind == "ternary"

    @property
    def mac_pairs(self):
        return mac_pairs([(f.name, f.hint, f.width) for f in self.key])

    def field(self, name):
        for f in self.key:
            if name in (f.name, f.field):
                return f
        raise UnknownName("key field", name, "table %s" % self.name, [f.name for f in self.key])

    def action(self, name):
        try:
            return self.actions[name]
        except KeyError:
            raise UnknownName("action", name, "table %s" % self.name, list(self.actions)) from None


@dataclass
class Profile:
    name: str
    handle: int                # the action data table's handle
    actions: dict              # name -> Action
    text: str = field(repr=False, default="")
    table: Optional[str] = None  # the table bound to it, when the layout names it

    def action(self, name):
        try:
            return self.actions[name]
        except KeyError:
            raise UnknownName("action", name, "profile %s" % self.name, list(self.actions)) from None


def evaluate(text, what):
    try:
        return ast.literal_eval(text)
    except (ValueError, SyntaxError) as e:
        raise SchemaError("%s: the text does not evaluate as a Python literal: %s" % (what, e)) from None


def parse_action(t, what):
    if not (isinstance(t, tuple) and len(t) == 2 and isinstance(t[0], str) and isinstance(t[1], tuple)):
        raise SchemaError("%s: not an action literal: %r" % (what, t))
    params = []
    for p in t[1]:
        if not (isinstance(p, tuple) and len(p) == 4 and isinstance(p[0], str) and isinstance(p[2], int)):
            raise SchemaError("%s: not a parameter literal in %s: %r" % (what, t[0], p))
        params.append(Param(p[0], p[1], p[2]))
    return Action(t[0], tuple(params))


def parse_key(columns_text, what):
    key, columns = [], []
    for c in columns_text:
        if not (isinstance(c, tuple) and len(c) == 7 and isinstance(c[0], str) and isinstance(c[1], str)
                and isinstance(c[2], int) and isinstance(c[3], int)):
            raise SchemaError("%s: not a key column: %r" % (what, c))
        short, name, width, mask, hint = c[:5]
        last = key[-1] if key else None
        if last and last.match == "exact" and name == last.field + "_mask" and short == last.name + "Mask":
            key[-1] = KeyField(last.name, last.field, last.width, last.slice, last.hint, "ternary", mask=short)
            columns.append(Column(short, name, width, mask, hint, "mask", last.name))
        elif (last and last.match == "exact" and name == last.field + "_prefix_length"
              and short == last.name + "PrefixLength"):
            key[-1] = KeyField(last.name, last.field, last.width, last.slice, last.hint, "lpm", prefix=short)
            columns.append(Column(short, name, width, mask, hint, "prefix", last.name))
        else:
            key.append(KeyField(short, name, width, mask, hint, "exact"))
            columns.append(Column(short, name, width, mask, hint, "value", short))
    return tuple(key), tuple(columns)


def parse_table(text, handle):
    what = "schema of table handle 0x%x" % handle
    v = evaluate(text, what)
    if not (isinstance(v, tuple) and len(v) == 3 and isinstance(v[0], tuple) and len(v[0]) == 3
            and v[0][1] == "mat"):
        raise SchemaError("%s: not a table schema: %.80s" % (what, text))
    name, _, flags = v[0]
    key, columns = parse_key(v[1], what)
    actions = {}
    for a in v[2]:
        act = parse_action(a, what)
        actions[act.name] = act
    return Table(name, handle, bool(flags[0]), key, columns, actions, text)


def parse_profile(text, handle, name=None):
    what = "schema of profile handle 0x%x" % handle
    v = evaluate(text, what)
    if not isinstance(v, tuple) or not v:
        raise SchemaError("%s: not a profile schema: %.80s" % (what, text))
    actions = {}
    for a in v:
        act = parse_action(a, what)
        actions[act.name] = act
    return Profile(name or "profile_0x%x" % handle, handle, actions, text)
