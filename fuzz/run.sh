#!/usr/bin/env bash
# Builds the libFuzzer targets (clang, ASan + UBSan) and runs each for SECONDS, then prints per
# target the inputs executed, the coverage reached (libFuzzer's cov: edges and ft: features) and
# whether it crashed. New inputs collect in BUILD/fuzz-corpus/<input>/, next to the seed corpus
# fuzz/corpus/<input>/ (which is only read); crash inputs land in BUILD/fuzz-runs/.
#
#   fuzz/run.sh [SECONDS] [TARGET...]      e.g.  fuzz/run.sh 600     fuzz/run.sh 30 parcel_fuzzer
#
# TAVRO_FUZZ_JOBS=N runs N targets at once (default 1); TAVRO_FUZZ_BUILD picks the build tree
# (default build-fuzz). Exit status 1 when any target crashed.
set -euo pipefail
root="$(cd "$(dirname "$0")/.." && pwd)"
seconds="${1:-60}"
[ $# -gt 0 ] && shift
build="${TAVRO_FUZZ_BUILD:-$root/build-fuzz}"
jobs="${TAVRO_FUZZ_JOBS:-1}"

generator=()
command -v ninja >/dev/null 2>&1 && generator=(-G Ninja)
CC=clang CXX=clang++ cmake -S "$root" -B "$build" "${generator[@]}" -DTAVRO_BUILD_FUZZ=ON \
    -DTAVRO_BUILD_TESTS=OFF -DTAVRO_BUILD_TOOLS=OFF -DTAVRO_SANITIZE=none >/dev/null
cmake --build "$build" --target tavro_fuzzers --parallel "$(nproc)" >/dev/null

targets=("$@")
if [ ${#targets[@]} -eq 0 ]; then
    for source in "$root"/fuzz/*_fuzzer.cpp; do targets+=("$(basename "$source" .cpp)"); done
fi

runs="$build/fuzz-runs/$(date +%Y%m%d-%H%M%S)"
mkdir -p "$runs"
export ASAN_OPTIONS="detect_leaks=1:abort_on_error=1"
export UBSAN_OPTIONS="print_stacktrace=1:halt_on_error=1"

run_one() {
    local name="$1" input="${1%_fuzzer}"
    local corpus="$build/fuzz-corpus/$input"
    mkdir -p "$corpus"
    set +e
    "$build/fuzz/$name" -max_total_time="$seconds" -max_len=2048 -print_final_stats=1 \
        -artifact_prefix="$runs/$input-" "$corpus" "$root/fuzz/corpus/$input" \
        >"$runs/$input.log" 2>&1
    echo $? >"$runs/$input.rc"
    set -e
}

echo "fuzzing ${#targets[@]} targets for ${seconds}s each, $jobs at a time; logs in $runs"
running=0
for name in "${targets[@]}"; do
    run_one "$name" &
    running=$((running + 1))
    if [ "$running" -ge "$jobs" ]; then
        wait -n
        running=$((running - 1))
    fi
done
wait

failed=0
printf '%-20s %12s %8s %8s %8s %s\n' target executions cov ft corpus result
for name in "${targets[@]}"; do
    input="${name%_fuzzer}"
    log="$runs/$input.log"
    execs="$(grep -o 'stat::number_of_executed_units: [0-9]*' "$log" | tail -1 | awk '{print $2}')"
    last="$(grep -E '^#[0-9]+.*cov: [0-9]+' "$log" | tail -1)"
    cov="$(sed -n 's/.*cov: \([0-9]*\).*/\1/p' <<<"$last")"
    ft="$(sed -n 's/.*ft: \([0-9]*\).*/\1/p' <<<"$last")"
    corp="$(sed -n 's/.*corp: \([0-9]*\).*/\1/p' <<<"$last")"
    rc="$(cat "$runs/$input.rc")"
    result=ok
    if [ "$rc" != 0 ] || ls "$runs/$input-"* >/dev/null 2>&1; then
        result="CRASH (rc $rc, see $log)"
        failed=1
    fi
    printf '%-20s %12s %8s %8s %8s %s\n' "$input" "${execs:-?}" "${cov:-?}" "${ft:-?}" \
        "${corp:-?}" "$result"
done
exit "$failed"
