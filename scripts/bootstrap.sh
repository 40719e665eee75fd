#!/usr/bin/env bash
# Installs what the build, the tools and the tests need on a Debian machine, only when missing.
set -euo pipefail

# The android-lib*-dev packages are Debian's host builds of the Android platform libraries the
# library is written against; blueprint-tools brings bpfmt, the Android.bp formatter.
packages=(cmake ninja-build g++ make pkg-config libgtest-dev libgmock-dev libbenchmark-dev
          nlohmann-json3-dev libcli11-dev clang libclang-rt-14-dev clang-format
          android-libutils-dev android-liblog-dev android-libcutils-dev android-libbase-dev
          blueprint-tools python3-jsonschema time)
missing=()
for p in "${packages[@]}"; do
    dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed" || missing+=("$p")
done
if [ "${#missing[@]}" -gt 0 ]; then
    echo "bootstrap: installing ${missing[*]}" >&2
    SUDO=""
    [ "$(id -u)" -ne 0 ] && SUDO="sudo"
    export DEBIAN_FRONTEND=noninteractive
    $SUDO apt-get update -qq
    $SUDO apt-get install -y -qq --no-install-recommends "${missing[@]}" >&2
fi
