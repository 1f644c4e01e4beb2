#!/usr/bin/env python3
"""A console session against its expected transcript, byte for byte.

    run_transcript.py CONSOLE SCRIPT EXPECTED STATUS [ARGUMENT...] [--update]

Runs `CONSOLE --echo ARGUMENT... -` with the script on standard input, standard output and standard
error in one stream (the console writes a refusal after the output before it), and compares that
stream with EXPECTED and the exit status with STATUS. --update rewrites EXPECTED instead.
"""

import difflib
import subprocess
import sys


def main(argv):
    update = "--update" in argv
    argv = [a for a in argv if a != "--update"]
    if len(argv) < 4:
        print(__doc__, file=sys.stderr)
        return 2
    console, script, expected_path, status = argv[:4]
    with open(script, "rb") as f:
        run = subprocess.run([console, "--echo", *argv[4:], "-"], stdin=f, stdout=subprocess.PIPE,
                             stderr=subprocess.STDOUT, timeout=120)
    got = run.stdout
    if update:
        with open(expected_path, "wb") as f:
            f.write(got)
        print("wrote %s (%d bytes), exit status %d" % (expected_path, len(got), run.returncode))
        return 0
    with open(expected_path, "rb") as f:
        want = f.read()
    ok = True
    if got != want:
        ok = False
        diff = difflib.unified_diff(want.decode(errors="replace").splitlines(True),
                                    got.decode(errors="replace").splitlines(True),
                                    expected_path, "console output")
        sys.stdout.writelines(diff)
        print("\nthe session's output differs from %s" % expected_path)
    if run.returncode != int(status):
        ok = False
        print("exit status %d, expected %s" % (run.returncode, status))
    if ok:
        print("%s: %d bytes as expected, exit status %d" % (script, len(got), run.returncode))
    return 0 if ok else 1


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
