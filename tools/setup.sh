#!/usr/bin/env bash
# Installs what the build needs on a Debian machine: the compiler with its 32-bit multilib, CMake,
# Python, Doxygen for the reference documentation, and cJSON, GoogleTest and Google Benchmark for
# both x86-64 and i386. The sanitizer runtimes of the sanitizer leg (libasan8, libubsan1, liblsan0)
# come with the compiler: gcc-12 needs libgcc-12-dev, which needs them. The fuzz targets (tools/fuzz.sh)
# need clang, its libFuzzer and sanitizer runtimes (libclang-rt-14-dev) and llvm-symbolizer (llvm).
set -euo pipefail
SUDO=""
[ "$(id -u)" -eq 0 ] || SUDO="sudo"
export DEBIAN_FRONTEND=noninteractive
packages=(build-essential g++-multilib cmake python3 python3-setuptools python3-wheel python3-venv binutils pkgconf doxygen libedit-dev
          libcjson-dev libgtest-dev libbenchmark-dev
          libcjson-dev:i386 libgtest-dev:i386 libbenchmark-dev:i386
          clang libclang-rt-14-dev llvm)
if ! dpkg --print-foreign-architectures | grep -qx i386; then
  $SUDO dpkg --add-architecture i386
fi
# A mirror in the middle of a sync can fail one index for a while: retry, and go on with what the
# other indexes say; the install below is what must succeed.
for attempt in 1 2 3; do
  if $SUDO apt-get update -qq; then break; fi
  echo "apt-get update failed (attempt $attempt)" >&2
  sleep $((attempt * 5))
done
for attempt in 1 2 3; do
  if $SUDO apt-get install -y -qq --no-install-recommends "${packages[@]}" >/dev/null; then exit 0; fi
  echo "apt-get install failed (attempt $attempt); retrying after a fresh update" >&2
  sleep $((attempt * 15))
  $SUDO apt-get update -qq || true
done
# The two architectures of a library must have one version. When one architecture's index lags
# (a security update seen for x86-64 only), take for both the version i386 can have.
v=$(apt-cache policy libcjson-dev:i386 | awk '/Candidate:/ {print $2}')
if [ -n "$v" ] && [ "$v" != "(none)" ]; then
  echo "installing cJSON $v for both architectures" >&2
  if $SUDO apt-get install -y -qq --no-install-recommends --allow-downgrades \
      "libcjson1:amd64=$v" "libcjson-dev:amd64=$v" "libcjson1:i386=$v" "libcjson-dev:i386=$v" >/dev/null &&
     $SUDO apt-get install -y -qq --no-install-recommends "${packages[@]}" >/dev/null; then
    exit 0
  fi
fi
echo "could not install: ${packages[*]}" >&2
exit 1
