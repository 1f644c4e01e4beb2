#!/usr/bin/env bash
# Sets up, builds both ABIs and runs the demonstration on the target ABI.
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
"$root/tools/setup.sh"
"$root/tools/build.sh"
"$root/build/i386/examples/l2_demo"
