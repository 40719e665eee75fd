#!/usr/bin/env bash
# The many-codecs stress test, run longer than the test command does: scripts/stress.sh [ROUNDS]
# Each of TAVRO_STRESS_CODECS codecs (default 64) lives ROUNDS times (default 20) on threads of
# its own, playing TAVRO_STRESS_FRAMES frames (default 96) each time. Built and run under TSan by
# default; TAVRO_STRESS_SANITIZER=address or none picks another build. Exit status is the test's.
set -euo pipefail
root="$(cd "$(dirname "$0")/.." && pwd)"
cd "$root"
sanitizer="${TAVRO_STRESS_SANITIZER:-thread}"
case "$sanitizer" in
    thread) dir=build-tsan ;;
    address) dir=build-asan ;;
    none) dir=build ;;
    *) echo "TAVRO_STRESS_SANITIZER must be thread, address or none" >&2; exit 2 ;;
esac
bash scripts/bootstrap.sh
bash scripts/build.sh "$dir" "$sanitizer" -DCMAKE_BUILD_TYPE=Debug
export TAVRO_STRESS_ROUNDS="${1:-20}"
export TAVRO_STRESS_CODECS="${TAVRO_STRESS_CODECS:-64}"
export TAVRO_STRESS_FRAMES="${TAVRO_STRESS_FRAMES:-96}"
export TSAN_OPTIONS="halt_on_error=1:second_deadlock_stack=1"
export ASAN_OPTIONS="detect_leaks=1:abort_on_error=1"
export UBSAN_OPTIONS="print_stacktrace=1:halt_on_error=1"
echo "stress: $TAVRO_STRESS_CODECS codecs x $TAVRO_STRESS_ROUNDS rounds x $TAVRO_STRESS_FRAMES frames ($sanitizer)"
exec "$dir/tests/sfplugin_tests" --gtest_filter='TavroStressThreadTest.*'
