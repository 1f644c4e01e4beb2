#!/usr/bin/env bash
# Sets up, builds both ABIs (Release, warnings as errors) and runs the demonstrations: the C program
# examples/l2_demo.c on the target ABI, then the console's scenario examples/switch.cli, a small
# switch programmed on the driver model and read back.
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
dir=${CV_BUILD_DIR:-$root/build}
"$root/tools/setup.sh"
CV_LEGS="x86_64 i386" "$root/tools/build.sh"
"$dir/i386/examples/l2_demo"
echo
"$dir/x86_64/cli/corvin_switch_cli" --echo "$root/examples/switch.cli"
