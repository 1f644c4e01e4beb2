#!/usr/bin/env python3
"""The rate of table_add from a script: N lines adding distinct l2Lookup entries, run by the console
on the driver model (recording on, as it runs by default), then checked by table_num_entries.

    table_add_rate.py CONSOLE [N] [--no-record]

Prints the lines per second, the best of three runs; fails only if an add fails or the count is not
N (the rate depends on the machine and is reported, not held to a bound).
"""

import os
import subprocess
import sys
import tempfile
import time


def main(argv):
    flags = [a for a in argv if a.startswith("--")]
    args = [a for a in argv if not a.startswith("--")]
    if not args:
        print(__doc__, file=sys.stderr)
        return 2
    console, n = args[0], int(args[1]) if len(args) > 1 else 100000
    with tempfile.TemporaryDirectory() as tmp:
        script = os.path.join(tmp, "adds.cli")
        with open(script, "w") as f:
            for i in range(n):
                f.write("table_add l2Lookup l2LookupKnownUcast 00:11:%02x:%02x:%02x:%02x %d => %d\n" % (
                    i >> 24 & 255, i >> 16 & 255, i >> 8 & 255, i & 255, i % 8192, i % 0x200000))
            f.write("table_num_entries l2Lookup\n")
        best = None
        for _ in range(3):
            start = time.perf_counter()
            run = subprocess.run([console, *flags, script], stdout=subprocess.PIPE, stderr=subprocess.PIPE,
                                 timeout=600)
            elapsed = time.perf_counter() - start
            out = run.stdout.decode().splitlines()
            if run.returncode != 0 or len(out) != n + 1 or out[-1] != str(n):
                print("the run failed: exit status %d, %d lines of output, last %r; %s" % (
                    run.returncode, len(out), out[-1] if out else None, run.stderr.decode()[:500]))
                return 1
            best = elapsed if best is None else min(best, elapsed)
    print("table_add: %d lines in %.3f s: %.0f lines/s%s" % (n, best, n / best, " " + " ".join(flags) if flags else ""))
    return 0


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
