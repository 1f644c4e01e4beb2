#!/usr/bin/env bash
# Builds the fuzz targets of fuzz/ with clang (libFuzzer, AddressSanitizer, UndefinedBehaviorSanitizer,
# warnings as errors) in ${CV_BUILD_DIR:-build}/fuzz, then runs each on a scratch copy of its seed
# corpus (fuzz/corpus/<target>/) for CV_FUZZ_SECONDS seconds (default 30; 0 builds only), and prints
# each target's executions, speed and coverage. Fails if a target does not build, or crashes, leaks,
# hangs or breaks one of its checks; the input that did it is kept in <build>/fuzz/artifacts/.
#   CV_FUZZ_TARGETS   the targets to run (default: all four)
#   CV_JOBS           build parallelism (default: the number of cores)
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
dir=${CV_BUILD_DIR:-$root/build}/fuzz
jobs=${CV_JOBS:-$(nproc)}
seconds=${CV_FUZZ_SECONDS:-30}
targets=(${CV_FUZZ_TARGETS:-fuzz_roundtrip fuzz_text fuzz_ms_json fuzz_hash})

echo "== fuzz: build ($dir)"
start=$SECONDS
# Debug keeps the platform's own assert()s on; -O1 and line tables as in the sanitizer leg.
cmake -S "$root" -B "$dir" -DCMAKE_C_COMPILER=clang -DCMAKE_CXX_COMPILER=clang++ \
  -DCMAKE_BUILD_TYPE=Debug "-DCMAKE_C_FLAGS_DEBUG=-O1 -g1" "-DCMAKE_CXX_FLAGS_DEBUG=-O1 -g1" \
  -DCV_WERROR=ON -DCV_FUZZ=ON -DCV_SANITIZE=address,undefined -DCV_BUILD_TESTS=OFF -DCV_BUILD_BENCH=OFF >/dev/null
cmake --build "$dir" -j "$jobs" --target "${targets[@]}"
echo "== fuzz: built in $((SECONDS - start)) s"
[ "$seconds" -gt 0 ] || exit 0

rm -rf "$dir/artifacts"
scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT
export ASAN_OPTIONS="detect_leaks=1:strict_string_checks=1"
export UBSAN_OPTIONS="halt_on_error=1:print_stacktrace=1"
failed=()
for t in "${targets[@]}"; do
  mkdir -p "$scratch/$t" "$dir/artifacts/$t"
  cp -r "$root/fuzz/corpus/$t/." "$scratch/$t/"
  log="$dir/artifacts/$t.log"
  # -timeout: an input that runs five seconds is a hang here (they take microseconds).
  if "$dir/fuzz/$t" -max_total_time="$seconds" -timeout=5 -rss_limit_mb=2048 -print_final_stats=1 \
       -artifact_prefix="$dir/artifacts/$t/" "$scratch/$t" >"$log" 2>&1; then
    status=ok
  else
    status=FAILED
    failed+=("$t")
  fi
  execs=$(sed -n 's/^stat::number_of_executed_units: *//p' "$log")
  speed=$(sed -n 's/^stat::average_exec_per_sec: *//p' "$log")
  cov=$(grep -oE 'cov: [0-9]+ ft: [0-9]+ corp: [0-9]+/[0-9a-zA-Z]+' "$log" | tail -1)
  printf '%-16s %-6s %10s execs %7s exec/s  %s\n' "$t" "$status" "${execs:-?}" "${speed:-?}" "${cov:-?}"
  if [ "$status" != ok ]; then
    grep -E 'ERROR|fuzz check failed|runtime error|SUMMARY|Test unit written' "$log" | head -20 >&2 || true
    echo "   full log: $log" >&2
  fi
done
if [ ${#failed[@]} -gt 0 ]; then
  echo "fuzz: failed: ${failed[*]}" >&2
  exit 1
fi
echo "== fuzz: all passed in $((SECONDS - start)) s"
