#!/usr/bin/env bash
# Builds both ABIs and runs every test of each.
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
"$root/tools/build.sh"
status=0
for abi in x86_64 i386; do
  echo "== tests, $abi"
  ctest --test-dir "$root/build/$abi" --output-on-failure -j "$(nproc)" || status=1
done
exit $status
