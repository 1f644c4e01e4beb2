#!/usr/bin/env python3
"""A client's view of the library's texts: every schema text, value texts of random records of every
key and action, and the value text of an entry of every table, read from the driver and from its
placement datum (printed by text_dump), evaluated with ast.literal_eval. Each must have the shape a
client unpacks, return its own length, and a value text must pair position by position
with its schema, each number within its field's width (and slice), each action with its name.

    text_eval_test.py TEXT_DUMP
"""

import ast
import subprocess
import sys


BINDINGS = ("setMbrHdl", "setGrpHdl")


def entry_body_pairs(texts, name, body):
    """An entry's key and action (or a selector table's binding, which may be absent) pair with the
    table's schemas."""
    key, action = body[0], body[1] if len(body) > 1 else None
    ks = texts.get(("key_schema", name), [()])[0]
    if key != () and not (len(key) == len(ks) and all(
            0 <= n < (1 << f[2]) and (f[2] > 32 or n & ~f[3] == 0) for n, f in zip(key, ks))):
        return False
    if action is None or action[0] in BINDINGS:
        return len(body) == 1 or (len(action[1]) == 1 and isinstance(action[1][0], int))
    if action[0] not in {a[0] for a in texts[("table", name)][0][2]}:
        return False
    schema = texts[("action_schema", action[0])][0]
    return len(action[1]) == len(schema[1]) and all(0 <= n < (1 << p[2]) for n, p in zip(action[1], schema[1]))


def main(argv):
    out = subprocess.run([argv[0]], check=True, capture_output=True, text=True).stdout
    texts = {}
    failures = []
    counts = {}
    text_of = {}
    for line in out.splitlines():
        kind, name, length, text = line.split("\t", 3)
        counts[kind] = counts.get(kind, 0) + 1
        text_of[(kind, name)] = text
        if length != "-" and int(length) != len(text):
            failures.append("%s %s: returned %s for %d characters" % (kind, name, length, len(text)))
        try:
            value = ast.literal_eval(text)
        except (ValueError, SyntaxError) as e:
            failures.append("%s %s does not evaluate: %s" % (kind, name, e))
            continue
        if kind in ("key_value", "action_value"):
            # A record's text ends in the comma that joins it into an entry: a tuple of one.
            if not (isinstance(value, tuple) and len(value) == 1):
                failures.append("%s %s: not one element and its comma: %r" % (kind, name, value))
                continue
            value = value[0]
        texts.setdefault((kind, name), []).append(value)

    for (kind, name), values in texts.items():
        for v in values:
            if kind == "key_schema":
                ok = all(len(f) == 7 and isinstance(f[2], int) and isinstance(f[3], int) and f[5] is None
                         and f[6] is None for f in v)
            elif kind == "action_schema":
                ok = v[0] == name and all(len(p) == 4 and isinstance(p[2], int) for p in v[1])
            elif kind == "key_value":
                schema = texts[("key_schema", name)][0]
                ok = len(v) == len(schema) and all(
                    0 <= n < (1 << f[2]) and (f[2] > 32 or n & ~f[3] == 0) for n, f in zip(v, schema))
            elif kind == "action_value":
                schema = texts[("action_schema", name)][0]
                ok = v[0] == name and len(v[1]) == len(schema[1]) and all(
                    0 <= n < (1 << p[2]) for n, p in zip(v[1], schema[1]))
            elif kind in ("entry", "plcmt"):
                if kind == "entry":
                    body, tail = v
                    ok = tail[1] is True and isinstance(tail[0], int)
                    if ok and len(text_of[(kind, name)]) > 345:
                        failures.append("entry %s: longer than any entry text may be" % name)
                else:
                    # A placement datum's text is the body of the entry's text read from the driver.
                    body = v
                    ok = texts[("entry", name)][0][0] == body
                ok = ok and entry_body_pairs(texts, name, body)
            else:  # table or profile
                ok = isinstance(v, tuple)
                if ok and len(v) == 3 and isinstance(v[0], tuple) and v[0][1:2] == ("mat",):
                    ok = v[0][0] == name and (v[1] == () or v[1] == texts[("key_schema", name)][0])
            if not ok:
                failures.append("%s %s: shape or pairing: %r" % (kind, name, v))
                break

    for f in failures[:20]:
        print(f)
    print(", ".join("%d %s" % (n, k) for k, n in sorted(counts.items())))
    print("%d passed, %d failed" % (0 if failures else 1, len(failures)))
    return 1 if failures else 0


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
