#!/usr/bin/env bash
# Installs what the build needs on a Debian machine: the compiler with its 32-bit multilib, CMake,
# Python, and cJSON, GoogleTest and Google Benchmark for both x86-64 and i386.
set -euo pipefail
SUDO=""
[ "$(id -u)" -eq 0 ] || SUDO="sudo"
export DEBIAN_FRONTEND=noninteractive
if ! dpkg --print-foreign-architectures | grep -qx i386; then
  $SUDO dpkg --add-architecture i386
fi
$SUDO apt-get update -qq
$SUDO apt-get install -y -qq --no-install-recommends \
  build-essential g++-multilib cmake python3 binutils \
  libcjson-dev libgtest-dev libbenchmark-dev \
  libcjson-dev:i386 libgtest-dev:i386 libbenchmark-dev:i386 >/dev/null
