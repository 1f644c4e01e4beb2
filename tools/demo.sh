#!/usr/bin/env bash
# Sets up, builds both ABIs (Release, warnings as errors) and runs the demonstration on the target ABI.
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
"$root/tools/setup.sh"
CV_LEGS="x86_64 i386" "$root/tools/build.sh"
"${CV_BUILD_DIR:-$root/build}/i386/examples/l2_demo"
