"""A request's key and parameters, as a user gives them by name, turned into record members.

Names: a key field by its short name or its record name ('dmacOui', 'egrMd_dmacOui'), its mask or
prefix length by theirs ('etherTypeMask', 'dipPrefixLength'), and a MAC pair by its common name
('dmac' for dmacOui and dmacStation). Parameters by name, with or without 'action_'. An exact or
lpm field must be given; a ternary field left out matches anything (value and mask 0), and given
without a mask matches exactly (mask all ones); an lpm field without a length is a full-length
prefix.
"""

from .errors import BadValue, MissingField, UnknownName, ValueTooWide
from .schema import MacPair, mac_pairs
from .values import composite, mac48, number, split_prefix, split_ternary


def _prefix_length(value, f, what):
    n = number(value, 16, what + " prefix length")
    if n > f.width:
        raise ValueTooWide("%s: prefix length %d is longer than the field's %d bits" % (what, n, f.width))
    return n


def key_columns(table, key):
    """{column short name: number} for every column of the table's key schema, in its order."""
    where = "table %s" % table.name
    if not table.key:
        if key:
            raise UnknownName("key field", next(iter(key)), where + " (keyless)", [])
        return {}
    names = {}
    for p in table.mac_pairs:
        names[p.name] = p
    for c in table.columns:
        names[c.name] = c
        names[c.field] = c
    out, source = {}, {}

    def put(column, value, given):
        if column in out:
            raise BadValue("%s: %s is given twice, by %r and by %r" % (where, column, source[column], given))
        out[column] = value
        source[column] = given

    for name, value in (key or {}).items():
        target = names.get(name)
        what = "%s.%s" % (table.name, name)
        if target is None:
            raise UnknownName("key field", name, where, [c.name for c in table.columns] +
                              [p.name for p in table.mac_pairs])
        if isinstance(target, MacPair):
            oui, station = table.field(target.oui), table.field(target.station)
            composite(value, oui.match, what)
            v, m = split_ternary(value, what) if oui.match == "ternary" else (value, None)
            v = mac48(v, what)
            put(oui.name, v >> 24, name)
            put(station.name, v & 0xFFFFFF, name)
            if m is not None:
                m = mac48(m, what + " mask")
                put(oui.mask, m >> 24, name)
                put(station.mask, m & 0xFFFFFF, name)
            continue
        f = table.field(target.of)
        if target.role == "value":
            composite(value, f.match, what)
            if f.match == "ternary":
                v, m = split_ternary(value, what)
                put(f.name, number(v, f.width, what), name)
                if m is not None:
                    put(f.mask, number(m, f.width, what + " mask"), name)
            elif f.match == "lpm":
                v, n = split_prefix(value, what)
                put(f.name, number(v, f.width, what), name)
                if n is not None:
                    put(f.prefix, _prefix_length(n, f, what), name)
            else:
                put(f.name, number(value, f.width, what), name)
        elif target.role == "mask":
            put(target.name, number(value, f.width, what), name)
        else:
            put(target.name, _prefix_length(value, f, what), name)

    missing = []
    for f in table.key:
        if f.match == "ternary":
            if f.name not in out and f.mask not in out:
                out[f.name], out[f.mask] = 0, 0
            elif f.mask not in out:
                out[f.mask] = f.full
            elif f.name not in out:
                out[f.name] = 0
        elif f.name not in out:
            missing.append(f.name)
        elif f.match == "lpm" and f.prefix not in out:
            out[f.prefix] = f.width
    if missing:
        pairs = [p.name for p in table.mac_pairs if p.oui in missing and p.station in missing]
        hint = " (MAC pairs: %s)" % ", ".join(pairs) if pairs else ""
        raise MissingField("%s: the key needs %s%s" % (where, ", ".join(missing), hint))
    return {c.name: out[c.name] for c in table.columns}


def param_values(action, params, where):
    """{parameter name: number} for every parameter of an action, in record order."""
    where = "%s, action %s" % (where, action.name)
    names = {}
    for p in action.params:
        names[p.name] = p
        names[p.member] = p
    pairs = {}
    for pair in mac_pairs([(p.name, p.hint, p.width) for p in action.params]):
        if pair.name not in names:
            pairs[pair.name] = pair
    out, source = {}, {}

    def put(param, value, given):
        if param in out:
            raise BadValue("%s: %s is given twice, by %r and by %r" % (where, param, source[param], given))
        out[param] = value
        source[param] = given

    for name, value in (params or {}).items():
        what = "%s.%s" % (action.name, name)
        if name in pairs:
            v = mac48(value, what)
            put(pairs[name].oui, v >> 24, name)
            put(pairs[name].station, v & 0xFFFFFF, name)
            continue
        p = names.get(name)
        if p is None:
            raise UnknownName("parameter", name, where, [q.name for q in action.params] + list(pairs))
        put(p.name, number(value, p.width, what), name)
    missing = [p.name for p in action.params if p.name not in out]
    if missing:
        hint = [n for n, pr in pairs.items() if pr.oui in missing and pr.station in missing]
        raise MissingField("%s: the parameters need %s%s" % (
            where, ", ".join(missing), " (MAC pairs: %s)" % ", ".join(hint) if hint else ""))
    return {p.name: out[p.name] for p in action.params}
