#!/usr/bin/env python3
"""The console and the Python client agree: the same requests, by name, give the same entries, and
the same refusals read the same.

    client_agreement.py CONSOLE BUILD_DIR

Each case is added by the client (python/corvin_switch_pd, on its own driver model in this
process) and typed into the console (on its own, in another), as NAME=VALUE tokens in the same
order. A request both accept must give the same dumps: the console's table_dump lines are the
client's str(entry). A request both refuse must give the same text after the console's
"table_add: "; where the client adds the reason of Python's address parser in brackets, the
console's text is the client's up to it.
"""

import os
import subprocess
import sys

HERE = os.path.dirname(os.path.abspath(__file__))
sys.path.insert(0, os.path.join(HERE, "..", "..", "python"))

import corvin_switch_pd as cs  # noqa: E402

MAC = "00:11:22:33:44:55"
# (table, action, key, params, priority): key and params as {name: text}, in the order typed.
CASES = [
    ("l2Lookup", "l2LookupKnownUcast", {"dmac": MAC, "egrL2Domain": "0x123"}, {"egrL2Aintf": "7"}, None),
    ("l2Lookup", "l2LookupKnownUcast", {"dmac": MAC, "egrL2Domain": "0x123"}, {"egrL2Aintf": "8"}, None),
    ("l2Lookup", "l2LookupKnownUcastTunnel", {"dmacOui": "00:11:22", "dmacStation": "0x334456",
                                              "egrL2Domain": "291"}, {"egrL2Aintf": "0x10", "tunnelNextHop": "3"}, None),
    ("l2Lookup", "l2LookupDrop", {"egrMd_dmacOui": "0x1122", "egrMd_dmacStation": "0b1", "egrL2Domain": "0o17"}, {},
     None),
    ("l2Lookup", "l2LookupKnownUcast", {"dmac": MAC, "egrL2Domain": "0x2000"}, {"egrL2Aintf": "7"}, None),
    ("l2Lookup", "l2LookupKnownUcast", {"dmac": MAC, "egrL2Domain": "-1"}, {"egrL2Aintf": "7"}, None),
    ("l2Lookup", "l2LookupKnownUcast", {"dmac": MAC, "egrL2Domain": "0123"}, {"egrL2Aintf": "7"}, None),
    ("l2Lookup", "l2LookupKnownUcast", {"dmac": MAC, "egrL2Domain": "10.0.0.1"}, {"egrL2Aintf": "7"}, None),
    ("l2Lookup", "l2LookupKnownUcast", {"dmac": "00:11:22:33:44", "egrL2Domain": "1"}, {"egrL2Aintf": "7"}, None),
    ("l2Lookup", "l2LookupKnownUcast", {"dmac": MAC}, {"egrL2Aintf": "7"}, None),
    ("l2Lookup", "l2LookupKnownUcast", {"dmx": MAC, "egrL2Domain": "1"}, {"egrL2Aintf": "7"}, None),
    ("l2Lookup", "l2LookupKnownUcast", {"dmac": MAC, "dmacOui": "1", "egrL2Domain": "1"}, {"egrL2Aintf": "7"}, None),
    ("l2Lookup", "l2LookupKnownUcast", {"dmac": MAC, "egrL2Domain": "2"}, {"egrL2Aint": "7"}, None),
    ("l2Lookup", "l2LookupKnownUcast", {"dmac": MAC, "egrL2Domain": "2"}, {}, None),
    ("l2Lookup", "l2LookupKnownUcast", {"dmac": MAC, "egrL2Domain": "2"}, {"egrL2Aintf": MAC}, None),
    ("l2Lookup", "l2LookupKnownUcast", {"dmac": MAC, "egrL2Domain": "2"}, {"egrL2Aintf": "0x200000"}, None),
    ("l2Lookup", "l2LookupKnownUcast", {"dmac": MAC, "egrL2Domain": "0x123&&&0xfff"}, {"egrL2Aintf": "7"}, None),
    ("l2SmacCheck", "setIllegalSmac", {"smac": "00:11:22:00:00:00&&&ff:ff:ff:00:00:00"}, {}, "10"),
    ("l2SmacCheck", "setIllegalSmac", {"smacOui": "00:aa:bb"}, {}, "20"),
    ("l2SmacCheck", "setIllegalSmac", {"smac": "00:11:22:00:00:00&&&"}, {}, "5"),
    ("l2SmacCheck", "setIllegalSmac", {"smacOui": "00:aa:cc"}, {}, "0x100000000"),
    ("l2SmacCheck", "NoAction", {}, {}, None),
    ("trapToCpu", "trapPacket", {"etherType": "0x806&&&0xffff", "ingIpv4Dip": "10.0.0.1&&&255.255.255.0",
                                 "ingIpv6DipMask": "ffff::"}, {"cpuReasonCode": "5"}, "100"),
    ("trapToCpu", "copyPacket", {"protocol": "17", "ingIpv6Dip": "2001:db8::1"}, {"cpuReasonCode": "6", "llm": "1"},
     "7"),
    ("ipv4ShortMaskLpm", "setEcmp", {"vrfId": "1", "dip": "10.0.0.0/8"}, {"ecmpGroup": "4"}, None),
    ("ipv4ShortMaskLpm", "setEcmp", {"vrfId": "2", "dip": "10.0.0.0", "dipPrefixLength": "12"}, {"ecmpGroup": "4"},
     None),
    ("ipv4ShortMaskLpm", "setNextHop", {"vrfId": "3", "dip": "172.16.0.0"}, {"nextHop": "0x1234"}, None),
    ("ipv4ShortMaskLpm", "setEcmp", {"vrfId": "1", "dip": "10.0.0.300/8"}, {"ecmpGroup": "4"}, None),
    ("ipv4ShortMaskLpm", "setEcmp", {"vrfId": "1", "dip": "10.0.0.0/33"}, {"ecmpGroup": "4"}, None),
    ("ipv4ShortMaskLpm", "setEcmp", {"vrfId": "1", "dip": "10.0.0.0/x"}, {"ecmpGroup": "4"}, None),
    ("ipv4ShortMaskLpm", "setEcmp", {"vrfId": "1", "dip": "10.0.0.0&&&255.0.0.0"}, {"ecmpGroup": "4"}, None),
    ("ipv6ShortMaskLpm", "setEcmp", {"vrfId": "1", "dip": "2001:db8::/32"}, {"ecmpGroup": "4"}, None),
    ("ipv6ShortMaskLpm", "setEcmp", {"vrfId": "1", "dip": "2001:db8:::1/32"}, {"ecmpGroup": "4"}, None),
    ("ipv6ShortMaskLpm", "setEcmp", {"vrfId": "1", "dip": "10.0.0.1"}, {"ecmpGroup": "4"}, None),
    ("nextHop0", "setNextHopDetails", {"nextHop": "5"}, {"dmac": MAC, "domain": "9"}, None),
    ("nextHop0", "setNextHopDetails", {"nextHop": "6"}, {"dmacOui": "00:11:22", "dmacStation": "1", "domain": "9"},
     None),
    ("nextHop0", "setNextHopDetails", {"nextHop": "7"}, {"dmac": MAC, "dmacOui": "1", "domain": "9"}, None),
    ("nextHop0", "setNextHopDetails", {"nextHop": "8"}, {"domain": "9"}, None),
]


def console_line(table, action, key, params, priority):
    words = ["table_add", table, action] + ["%s=%s" % kv for kv in key.items()] + ["=>"]
    words += ["%s=%s" % kv for kv in params.items()]
    if priority is not None:
        words.append("priority=" + priority)
    return " ".join(words)


def main(argv):
    if len(argv) != 2:
        print(__doc__, file=sys.stderr)
        return 2
    console, build = argv
    lib = cs.load(build)
    dev = lib.device(0)
    client = []
    for table, action, key, params, priority in CASES:
        try:
            h = dev.add(table, action, key=key, params=params, priority=priority)
            client.append("Entry has been added with handle 0x%x" % h)
        except cs.ClientError as e:
            client.append(str(e))
    tables = sorted({c[0] for c in CASES})
    script = "\n".join([console_line(*c) for c in CASES] + ["table_dump " + t for t in tables]) + "\n"
    run = subprocess.run([console, "--keep-going", "-"], input=script.encode(), stdout=subprocess.PIPE,
                         stderr=subprocess.STDOUT, timeout=60)
    lines = run.stdout.decode().splitlines()
    failed = 0
    for i, case in enumerate(CASES):
        got = lines[i] if i < len(lines) else "<nothing>"
        prefix = "<stdin>:%d: table_add: " % (i + 1)
        text = got[len(prefix):] if got.startswith(prefix) else got
        want = client[i]
        if text != want and not want.startswith(text + " ("):
            failed += 1
            print("case %d: %s\n  console: %s\n  client:  %s" % (i + 1, console_line(*case), got, want))
    dumps = [line for line in lines[len(CASES):] if not line.endswith(" entries") and not line.endswith(" entry")
             and not line.endswith("no default entry")]
    entries = [str(e) for t in tables for e in dev.entries(t)]
    if dumps != entries:
        failed += 1
        print("the dumps differ:\n  console:\n    %s\n  client:\n    %s" % ("\n    ".join(dumps), "\n    ".join(entries)))
    print("%d cases, %d entries: %s" % (len(CASES), len(entries), "the console and the client agree" if not failed
                                        else "%d differences" % failed))
    return 1 if failed else 0


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
