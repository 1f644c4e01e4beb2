#!/usr/bin/env bash
# Builds the reference documentation into build/docs/html (CV_DOCS_DIR moves it): the family pages
# from the catalog (codegen/docs.py), then Doxygen over them, the hand-written public headers, the
# platform stand-ins' headers and platform/README.md (docs/Doxyfile). Any Doxygen warning fails the
# run. DOXYGEN names the doxygen to run.
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
out=${CV_DOCS_DIR:-$root/build/docs}
doxygen=${DOXYGEN:-doxygen}
if ! command -v "$doxygen" >/dev/null; then
  echo "docs: $doxygen not found (tools/setup.sh installs it)" >&2
  exit 1
fi
# A header without a file comment would have its declarations left out, silently.
missing=$(grep -L '@file' "$root"/include/corvin_switch/*.h "$root"/platform/include/drv/*.h || true)
if [ -n "$missing" ]; then
  echo "docs: no @file comment in:" $missing >&2
  exit 1
fi
mkdir -p "$out"
out=$(cd "$out" && pwd)
python3 "$root/codegen/docs.py" "$root/catalog/corvin_switch.toml" "$root/docs/families" "$out/pages"
rm -rf "$out/html"
# Doxygen reads the two directories from the environment (docs/Doxyfile). Its warnings go to
# standard error and, with WARN_AS_ERROR = FAIL_ON_WARNINGS, make it exit non-zero.
(cd "$out" && CV_SOURCE_DIR="$root" CV_DOCS_DIR="$out" "$doxygen" "$root/docs/Doxyfile")
echo "docs: $out/html/index.html"
