#!/usr/bin/env bash
# Builds both ABIs from one tree: build/x86_64 (native) and build/i386 (the target ABI, -m32).
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
jobs=$(nproc)
cmake -S "$root" -B "$root/build/x86_64" -DCMAKE_BUILD_TYPE=RelWithDebInfo >/dev/null
cmake --build "$root/build/x86_64" -j "$jobs"
cmake -S "$root" -B "$root/build/i386" -DCMAKE_BUILD_TYPE=RelWithDebInfo \
  -DCMAKE_TOOLCHAIN_FILE="$root/cmake/i386.cmake" >/dev/null
cmake --build "$root/build/i386" -j "$jobs"
