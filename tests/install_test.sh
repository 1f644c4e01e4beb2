#!/usr/bin/env bash
# What a control-plane team does with the library: install it into a prefix, compile every public
# header on its own (C99 and C++17, warnings as errors), and build a small control plane in C
# (examples/consumer) against the installed package alone, once with pkg-config and once with
# find_package, and run it on the driver model.
#
#   install_test.sh BUILD_DIR SOURCE_DIR CC CXX "FLAGS" [TOOLCHAIN_FILE]
#
# FLAGS go to every compile and link (-m32 for the target ABI, the sanitizers of a sanitizer build).
set -euo pipefail
build=$1 src=$2 cc=$3 cxx=$4 flags=$5 toolchain=${6:-}
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
prefix=$work/prefix
failed=0
fail() { echo "FAILED: $*"; failed=$((failed + 1)); }

cmake --install "$build" --prefix "$prefix" >/dev/null
pcdir=$(dirname "$(find "$prefix" -name corvin_switch_pd.pc)")
libdir=$(dirname "$pcdir")

# The library: versioned, with its SONAME, and naming neither stand-in: a production build links the
# real driver instead.
lib=$libdir/libcv_bf_pd_qent_tofino2.so
[ -L "$lib" ] || fail "no development link $lib"
soname=$(readelf -d "$lib" | sed -n 's/.*(SONAME).*\[\(.*\)\]/\1/p')
[ "$soname" = "libcv_bf_pd_qent_tofino2.so.1" ] || fail "SONAME is '$soname'"
[ -f "$libdir/libcv_bf_pd_qent_tofino2.so.1.0.0" ] || fail "no versioned library"
if readelf -d "$lib" | grep -E "NEEDED.*(cv_drvmodel|cv_pdms)"; then fail "the library needs a stand-in"; fi
export PKG_CONFIG_PATH=$pcdir
case " $(pkg-config --libs corvin_switch_pd) " in
  *cv_drvmodel*|*cv_pdms*) fail "the library's pkg-config file names a stand-in" ;;
esac

# Each public header on its own.
headers=$(cd "$prefix/include" && ls corvin_switch/*.h drv/*.h)
n=0
for h in $headers; do
  printf '#include "%s"\n' "$h" > "$work/one.c"
  cp "$work/one.c" "$work/one.cpp"
  $cc $flags -std=c99 -Wall -Wextra -pedantic -Werror -fsyntax-only -I"$prefix/include" "$work/one.c" ||
    fail "$h as C99"
  $cxx $flags -std=c++17 -Wall -Wextra -pedantic -Werror -fsyntax-only -I"$prefix/include" "$work/one.cpp" ||
    fail "$h as C++17"
  n=$((n + 1))
done
echo "$n public headers compile on their own as C99 and as C++17"

# The control plane, with pkg-config.
# shellcheck disable=SC2046
$cc $flags -std=c99 -Wall -Wextra -pedantic -Werror "$src/examples/consumer/consumer.c" -o "$work/consumer_pc" \
  $(pkg-config --cflags --libs corvin_switch_pd cv_pdms) || fail "build with pkg-config"
LD_LIBRARY_PATH=$libdir "$work/consumer_pc" || fail "run of the pkg-config build"

# The control plane, with find_package.
args=(-S "$src/examples/consumer" -B "$work/consumer" -DCMAKE_PREFIX_PATH="$prefix" -DCMAKE_C_COMPILER="$cc"
      -DCMAKE_C_FLAGS="$flags" -DCMAKE_EXE_LINKER_FLAGS="$flags")
[ -n "$toolchain" ] && args+=(-DCMAKE_TOOLCHAIN_FILE="$toolchain")
if cmake "${args[@]}" >/dev/null && cmake --build "$work/consumer" >/dev/null; then
  LD_LIBRARY_PATH=$libdir "$work/consumer/consumer" || fail "run of the find_package build"
else
  fail "build with find_package"
fi

echo "$((failed == 0 ? 1 : 0)) passed, $failed failed"
[ "$failed" -eq 0 ]
