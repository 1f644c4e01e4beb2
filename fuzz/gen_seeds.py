#!/usr/bin/env python3
"""Writes the seed corpora of the fuzz targets (fuzz/corpus/<target>/): for the catalog-driven
targets one input per row of each mode, so that even a short run reaches every table, action,
profile and hash, with record bytes from a fixed pseudo-random sequence; for the JSON restore,
records of the layer's form and near misses of it. The files are committed; run this again after
a change of the catalog or of an input layout, and commit what changes.

    gen_seeds.py CATALOG CORPUS_DIR
"""

import json
import os
import random
import sys
import tomllib

sys.path.insert(0, os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "codegen"))
import catalog as cat_mod  # noqa: E402


def u16(v):
    return bytes([v & 0xFF, v >> 8 & 0xFF])


class Writer:
    def __init__(self, root, target):
        self.dir = os.path.join(root, target)
        os.makedirs(self.dir, exist_ok=True)
        for f in os.listdir(self.dir):
            os.remove(os.path.join(self.dir, f))

    def put(self, name, data):
        with open(os.path.join(self.dir, name), "wb") as f:
            f.write(data)


def roundtrip(root, cat, rng):
    w = Writer(root, "fuzz_roundtrip")
    entry = cat.entry_pairs()
    dflt = cat.default_pairs()
    members = [(p, a) for p in cat.profiles for a in p.members]
    bound = [t for t in cat.tables if t.profile]
    keyed = [t for t in cat.tables if t.key]
    for i, (t, a) in enumerate(entry):
        w.put("entry_%s_%s" % (t.name, a.action.name), bytes([0]) + u16(i) + rng.randbytes(128))
    for i, (t, a) in enumerate(dflt):
        w.put("default_%s_%s" % (t.name, a.action.name), bytes([1]) + u16(i) + rng.randbytes(48))
    for i, (p, (a, _)) in enumerate(members):
        w.put("member_%s_%s" % (p.name, a.name), bytes([2]) + u16(i) + rng.randbytes(24))
    for i, t in enumerate(bound):
        for group in (0, 1):
            w.put("bound_%s_%s" % (t.name, "group" if group else "member"),
                  bytes([3]) + u16(i) + bytes([i]) + rng.randbytes(t.key_bytes * 2 + 12) + bytes([group, 3, 0]))
    for i, t in enumerate(keyed):
        w.put("unbuild_key_%s" % t.name, bytes([4, 1]) + u16(i) + rng.randbytes(2 * t.key_bytes + 8))
    for a in cat.actions:
        if a.params:
            w.put("unbuild_action_%s" % a.name, bytes([4, 0]) + u16(a.number) + rng.randbytes(a.data_bytes + 20))


def text(root, cat, rng):
    w = Writer(root, "fuzz_text")
    keyed = [t for t in cat.tables if t.key]
    labelled = [t for t in cat.tables if t.name in cat.labels]
    for i, t in enumerate(keyed):
        w.put("key_value_%s" % t.name, bytes([0]) + u16(i) + rng.randbytes(64))
        w.put("print_key_%s" % t.name, bytes([2, i % 41, 1]) + u16(i) + rng.randbytes(64))
        w.put("compare_key_%s" % t.name, bytes([3, 1]) + u16(i) + rng.randbytes(64) + bytes([1, i, 1]))
    for a in cat.actions:
        w.put("action_value_%s" % a.name, bytes([1]) + u16(a.number) + rng.randbytes(16))
        if a.params:
            w.put("print_action_%s" % a.name, bytes([2, a.number % 41, 0]) + u16(a.number) + rng.randbytes(16))
            w.put("compare_action_%s" % a.name, bytes([3, 0]) + u16(a.number) + rng.randbytes(16) + bytes([1, 0, 4]))
    for i, t in enumerate(labelled):
        w.put("label_%s" % t.name, bytes([4, 1]) + u16(i) + rng.randbytes(64))
    for k in range(8):
        w.put("formatter_%d" % k, bytes([4, 0, 12]) + b"label words " + rng.randbytes(50) + bytes([k]))
    for k in range(4):
        w.put("schema_%d" % k, bytes([5]) + rng.randbytes(4) + bytes([k, 3]))
    seen = set()
    for i, (t, a) in enumerate(cat.entry_pairs()):
        if t.name not in seen:
            seen.add(t.name)
            w.put("entry_%s" % t.name, bytes([6, 0]) + u16(i) + rng.randbytes(96))
    for i, (t, a) in enumerate(cat.default_pairs()):
        w.put("default_%s_%s" % (t.name, a.action.name), bytes([6, 1]) + u16(i) + rng.randbytes(40))
    for i, t in enumerate([t for t in cat.tables if t.profile]):
        for group in (0, 1):
            w.put("bound_%s_%d" % (t.name, group), bytes([6, 2]) + u16(i) + bytes([i]) +
                  rng.randbytes(t.key_bytes * 2 + 12) + bytes([group]))


def ms_json(root):
    w = Writer(root, "fuzz_ms_json")
    good = {"members": [{"mbr_hdl": 1, "act_fn_hdl": 536871000, "res": [0, 0]},
                        {"mbr_hdl": 4294967295, "res": [7, 9]}],
            "groups": [{"grp_hdl": 0, "act_fn_hdl": 3, "res": [1, 2], "mbrs": [4294967295, 1]},
                       {"grp_hdl": 5, "res": [0, 0], "mbrs": []}]}
    records = {
        "empty": '{"members":[],"groups":[]}',
        "state": json.dumps(good),
        "other_keys": '{"name":"x","members":[],"groups":[],"act_profs":[]}',
        "missing_groups": '{"members":[]}',
        "members_twice": '{"members":[],"members":[],"groups":[]}',
        "not_array": '{"members":{},"groups":[]}',
        "negative": '{"members":[{"mbr_hdl":-1,"res":[0,0]}],"groups":[]}',
        "minus_zero": '{"members":[{"mbr_hdl":-0,"res":[0,0]}],"groups":[]}',
        "fraction": '{"members":[{"mbr_hdl":1.5,"res":[0,0]}],"groups":[]}',
        "too_big": '{"members":[{"mbr_hdl":4294967296,"res":[0,0]}],"groups":[]}',
        "exponent": '{"members":[{"mbr_hdl":1e3,"res":[0,1e400]}],"groups":[]}',
        "res_three": '{"members":[{"mbr_hdl":1,"res":[0,0,0]}],"groups":[]}',
        "key_twice": '{"members":[{"mbr_hdl":1,"mbr_hdl":2,"res":[0,0]}],"groups":[]}',
        "extra_key": '{"members":[{"mbr_hdl":1,"res":[0,0],"x":1}],"groups":[]}',
        "member_twice": '{"members":[{"mbr_hdl":1,"res":[0,0]},{"mbr_hdl":1,"res":[0,0]}],"groups":[]}',
        "unknown_member": '{"members":[],"groups":[{"grp_hdl":1,"res":[0,0],"mbrs":[3]}]}',
        "listed_twice": '{"members":[{"mbr_hdl":3,"res":[0,0]}],"groups":[{"grp_hdl":1,"res":[0,0],"mbrs":[3,3]}]}',
        "string_handle": '{"members":[{"mbr_hdl":"1","res":[0,0]}],"groups":[]}',
        "null_action": '{"members":[{"mbr_hdl":1,"act_fn_hdl":null,"res":[0,0]}],"groups":[]}',
        "not_object": '[1,2,3]',
        "broken": '{"members":[',
    }
    # Flags: device, transaction (8), abort (16), the library's hooks (128); then the state before.
    before = bytes([4, 0, 1, 1, 3, 2, 2, 1, 3, 0, 2, 9, 1])
    for k, (name, text_) in enumerate(sorted(records.items())):
        flags = k % 3 | (8 if k % 4 == 1 else 0) | (16 if k % 8 == 1 else 0)
        w.put("layer_" + name, bytes([flags]) + before + text_.encode())
    for k, name in enumerate(["empty", "state", "negative", "unknown_member"]):
        replay = bytes([3, 0, 0, 1, 0, 3, 1, 1, 1, 1, 5, 2, 0])
        names = bytes([2, 3, 3, 5])
        w.put("library_" + name, bytes([128 | k % 3]) + replay + names + records[name].encode())


def hashes(root, raw, rng):
    w = Writer(root, "fuzz_hash")
    for i, h in enumerate(raw.get("hash", [])):
        for algo in range(7):
            fields = rng.randrange(1, 9)
            data = bytes([i, algo]) + rng.randbytes(8) + bytes([rng.randrange(8), fields])
            for _ in range(fields):
                width = rng.choice([1, 3, 8, 9, 13, 16, 24, 32, 191])  # 191: 128 bits, by pointer
                data += bytes([width]) + (rng.randbytes(16) if width & 0x80 else rng.randbytes(4) + bytes([1]))
            w.put("hash_%s_%d" % (h["name"], algo), data)


def main(argv):
    with open(argv[0], "rb") as f:
        raw = tomllib.load(f)
    cat = cat_mod.load(argv[0])
    rng = random.Random(20240611)
    roundtrip(argv[1], cat, rng)
    text(argv[1], cat, rng)
    ms_json(argv[1])
    hashes(argv[1], raw, rng)
    return 0


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
