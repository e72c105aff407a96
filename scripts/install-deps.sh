#!/usr/bin/env bash
# Installs the Debian packages the builds need. Safe to run again: it only
# calls apt when a package is missing, and says nothing when all is there.
#
# Host builds: g++, GoogleTest, Benchmark, liblog, libcutils, aidl; valgrind
#   (callgrind and its client-request header for the pair-cost measurement).
# Device preset: clang, lld, libc++ and libc++abi (GoogleTest is built from the
#   sources of Debian's googletest package against libc++).
# AArch64 cross build: the cross toolchain, qemu-user, and the arm64 packages of
#   liblog, libcutils and GoogleTest (multiarch; adds the arm64 architecture).
set -euo pipefail

packages=(
    g++ make cmake ninja-build binutils python3
    libgtest-dev libgmock-dev libbenchmark-dev googletest
    android-liblog-dev android-libcutils-dev
    aidl valgrind
    clang-14 libclang-rt-14-dev
    libcli11-dev nlohmann-json3-dev
    clang lld libc++-14-dev libc++abi-14-dev
    g++-aarch64-linux-gnu qemu-user-static
    libc6:arm64 libstdc++6:arm64
    android-liblog-dev:arm64 android-libcutils-dev:arm64
    libgtest-dev:arm64 libgmock-dev:arm64
)

missing=()
for pkg in "${packages[@]}"; do
    if ! dpkg-query -W -f='${Status}' "$pkg" 2>/dev/null | grep -q 'install ok installed'; then
        missing+=("$pkg")
    fi
done
[ ${#missing[@]} -eq 0 ] && exit 0

sudo=""
if [ "$(id -u)" -ne 0 ]; then sudo="sudo"; fi
echo "install-deps: installing ${missing[*]}"
if ! dpkg --print-foreign-architectures | grep -qx arm64; then
    $sudo dpkg --add-architecture arm64
fi
export DEBIAN_FRONTEND=noninteractive
$sudo apt-get update -qq
$sudo apt-get install -y -qq --no-install-recommends "${missing[@]}" >/dev/null
