#!/usr/bin/env bash
# Builds each leg (tools/build.sh: x86_64, i386, asan, tsan) and runs its tests (ctest): all of
# them, except on the tsan leg, which builds and runs only the tests labelled `threads` (the stress
# test and the platform's threads tests), any ThreadSanitizer report failing its test. The fuzz leg
# is tools/fuzz.sh: the fuzz targets built with clang, each run briefly (CV_FUZZ_SECONDS). Then it
# builds the reference documentation once (tools/docs.sh, into <build dir>/docs). A leg that fails
# to build or to pass does not stop the others; the script then names each failed leg (or docs) and
# exits non-zero. CV_LEGS, CV_BUILD_DIR and CV_JOBS as for tools/build.sh.
set -uo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
dir=${CV_BUILD_DIR:-$root/build}
jobs=${CV_JOBS:-$(nproc)}
failed=()
for leg in ${CV_LEGS:-x86_64 i386 asan tsan fuzz}; do
  start=$SECONDS
  # The fuzz leg: the fuzz targets built with clang and each run briefly on its seed corpus.
  if [ "$leg" = fuzz ]; then
    if ! CV_JOBS=$jobs "$root/tools/fuzz.sh"; then
      echo "== fuzz: FAILED" >&2
      failed+=("fuzz")
    fi
    echo "== fuzz: $((SECONDS - start)) s"
    continue
  fi
  select=()
  if [ "$leg" = tsan ]; then select=(-L threads); fi
  if ! CV_LEGS=$leg "$root/tools/build.sh"; then
    echo "== $leg: build FAILED" >&2
    failed+=("$leg (build)")
    continue
  fi
  echo "== tests, $leg"
  # A ThreadSanitizer report ends its process at once (exit code 66), with both stacks of a
  # lock-order inversion.
  if ! TSAN_OPTIONS=${TSAN_OPTIONS:-halt_on_error=1:second_deadlock_stack=1} \
       ctest --test-dir "$dir/$leg" --output-on-failure -j "$jobs" "${select[@]}"; then
    echo "== $leg: tests FAILED" >&2
    failed+=("$leg (tests)")
  fi
  echo "== $leg: $((SECONDS - start)) s"
done
# The reference documentation, once: Doxygen warnings are errors (tools/docs.sh).
echo "== docs"
if ! CV_DOCS_DIR=${CV_DOCS_DIR:-$dir/docs} "$root/tools/docs.sh"; then
  echo "== docs: FAILED" >&2
  failed+=("docs")
fi
if [ ${#failed[@]} -ne 0 ]; then
  echo "FAILED legs: ${failed[*]}" >&2
  exit 1
fi
echo "all legs passed: ${CV_LEGS:-x86_64 i386 asan tsan}"
