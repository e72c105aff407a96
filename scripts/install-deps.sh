#!/usr/bin/env bash
# Installs the Debian packages the host build needs. Safe to run again: it
# only calls apt when a package is missing, and says nothing when all is there.
set -euo pipefail

packages=(
    g++ make cmake ninja-build binutils
    libgtest-dev libgmock-dev libbenchmark-dev
    android-liblog-dev android-libcutils-dev
    aidl
    clang-14 libclang-rt-14-dev
    libcli11-dev nlohmann-json3-dev
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
export DEBIAN_FRONTEND=noninteractive
$sudo apt-get update -qq
$sudo apt-get install -y -qq --no-install-recommends "${missing[@]}" >/dev/null
