#!/usr/bin/env bash
# Builds the team's legs, all with warnings as errors (CV_WERROR=ON):
#   x86_64  native, Release                                                  build/x86_64
#   i386    the target ABI (-m32, cmake/i386.cmake), Release                 build/i386
#   asan    native, Debug at -O1 -g1, AddressSanitizer (leaks included) and
#           UndefinedBehaviorSanitizer (CV_SANITIZE); no benchmarks          build/asan
#   tsan    native, Debug at -O1 -g1, ThreadSanitizer (CV_SANITIZE=thread); only what the threaded
#           tests need (stress_test, platform_threads_tests, pd_ms_tests)   build/tsan
# CV_LEGS chooses the legs (default: all four, e.g. CV_LEGS="x86_64 i386"); CV_BUILD_DIR moves the
# build directories (default: build/), CV_JOBS the parallelism (default: the number of cores).
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
dir=${CV_BUILD_DIR:-$root/build}
jobs=${CV_JOBS:-$(nproc)}
for leg in ${CV_LEGS:-x86_64 i386 asan tsan}; do
  targets=()
  case $leg in
    x86_64) args=(-DCMAKE_BUILD_TYPE=Release) ;;
    i386) args=(-DCMAKE_BUILD_TYPE=Release -DCMAKE_TOOLCHAIN_FILE="$root/cmake/i386.cmake") ;;
    # Debug keeps the platform's own assert()s on; -O1 keeps the instrumented tests quick, and line
    # tables (-g1) are all a report needs: a minute less to build than -g on two cores.
    asan) args=(-DCMAKE_BUILD_TYPE=Debug "-DCMAKE_C_FLAGS_DEBUG=-O1 -g1" "-DCMAKE_CXX_FLAGS_DEBUG=-O1 -g1"
                -DCV_SANITIZE=address,undefined -DCV_BUILD_BENCH=OFF) ;;
    # The threaded tests alone (ctest label `threads`, tools/test.sh), so that the leg stays short.
    tsan) args=(-DCMAKE_BUILD_TYPE=Debug "-DCMAKE_C_FLAGS_DEBUG=-O1 -g1" "-DCMAKE_CXX_FLAGS_DEBUG=-O1 -g1"
                -DCV_SANITIZE=thread -DCV_BUILD_BENCH=OFF)
          targets=(--target stress_test platform_threads_tests pd_ms_tests) ;;
    *) echo "unknown leg: $leg" >&2; exit 2 ;;
  esac
  echo "== build, $leg"
  cmake -S "$root" -B "$dir/$leg" -DCV_WERROR=ON "${args[@]}" >/dev/null
  cmake --build "$dir/$leg" -j "$jobs" "${targets[@]}"
done
