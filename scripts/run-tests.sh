#!/usr/bin/env bash
# Sets everything up and runs every test: a format check (C++ files, and Android.bp through bpfmt),
# a normal build, an ASan+UBSan build, a TSan build of the suites that exercise threads (names
# containing "Thread", and the session recording's round trip and faults), and a short run of every
# fuzz target.
set -euo pipefail
root="$(cd "$(dirname "$0")/.." && pwd)"
cd "$root"
bash scripts/bootstrap.sh

jobs="$(nproc)"
echo "== format"
bash scripts/check-format.sh

echo "== normal build"
bash scripts/build.sh build none
ctest --test-dir build --output-on-failure -j "$jobs"

echo "== ASan + UBSan build"
bash scripts/build.sh build-asan address -DCMAKE_BUILD_TYPE=Debug -DTAVRO_BUILD_TOOLS=ON
ASAN_OPTIONS=detect_leaks=1:abort_on_error=1 UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1 \
    ctest --test-dir build-asan --output-on-failure -j "$jobs"

echo "== TSan build (thread suites, and the session recording's writer thread)"
bash scripts/build.sh build-tsan thread -DCMAKE_BUILD_TYPE=Debug -DTAVRO_BUILD_TOOLS=ON
TSAN_OPTIONS=halt_on_error=1:second_deadlock_stack=1 \
    ctest --test-dir build-tsan --output-on-failure -j "$jobs" -R "Thread|TavroSessionRecording"

echo "== fuzz smoke (clang, ASan + UBSan; seed corpus plus a fixed number of inputs per target)"
CC=clang CXX=clang++ bash scripts/build.sh build-fuzz none -DTAVRO_BUILD_FUZZ=ON \
    -DTAVRO_BUILD_TESTS=OFF -DTAVRO_BUILD_TOOLS=OFF
ctest --test-dir build-fuzz/fuzz --output-on-failure -j "$jobs"
