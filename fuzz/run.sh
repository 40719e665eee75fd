#!/usr/bin/env bash
# Builds the libFuzzer targets (clang, ASan + UBSan) and runs each, then prints per target the
# inputs executed, the rate, the coverage reached (libFuzzer's cov: edges and ft: features), the
# corpus size, the resident set at the first and last status line, and whether it crashed. New
# inputs collect in BUILD/fuzz-corpus/<input>/, next to the seed corpus fuzz/corpus/<input>/ (which
# is only read); logs and crash inputs land in BUILD/fuzz-runs/<date>/.
#
#   fuzz/run.sh [SECONDS] [TARGET...]        each target for SECONDS (default 60)
#   fuzz/run.sh --runs N [TARGET...]         each target until it has executed N inputs
#   fuzz/run.sh --long [TARGET...]           the long run: --runs 10000000
#   fuzz/run.sh --merge [TARGET...]          adds to fuzz/corpus/<input>/ the inputs of
#                                            BUILD/fuzz-corpus/<input>/ that reach anything new
#
# e.g.  fuzz/run.sh 600     fuzz/run.sh 30 parcel_fuzzer     TAVRO_FUZZ_JOBS=2 fuzz/run.sh --long
#
# TAVRO_FUZZ_JOBS=N runs N targets at once (default 1); TAVRO_FUZZ_BUILD picks the build tree
# (default build-fuzz). Exit status 1 when any target crashed.
set -euo pipefail
root="$(cd "$(dirname "$0")/.." && pwd)"
build="${TAVRO_FUZZ_BUILD:-$root/build-fuzz}"
jobs="${TAVRO_FUZZ_JOBS:-1}"

mode=time
seconds=60
runs=0
case "${1:-}" in
    --runs)
        mode=runs
        runs="${2:?--runs needs a count}"
        shift 2
        ;;
    --long)
        mode=runs
        runs=10000000
        shift
        ;;
    --merge)
        mode=merge
        shift
        ;;
    [0-9]*)
        seconds="$1"
        shift
        ;;
esac

generator=()
command -v ninja >/dev/null 2>&1 && generator=(-G Ninja)
CC=clang CXX=clang++ cmake -S "$root" -B "$build" "${generator[@]}" -DTAVRO_BUILD_FUZZ=ON \
    -DTAVRO_BUILD_TESTS=OFF -DTAVRO_BUILD_TOOLS=OFF -DTAVRO_SANITIZE=none >/dev/null
cmake --build "$build" --target tavro_fuzzers --parallel "$(nproc)" >/dev/null

targets=("$@")
if [ ${#targets[@]} -eq 0 ]; then
    for source in "$root"/fuzz/*_fuzzer.cpp; do targets+=("$(basename "$source" .cpp)"); done
fi

export ASAN_OPTIONS="${ASAN_OPTIONS:-detect_leaks=1:abort_on_error=1}"
export UBSAN_OPTIONS="${UBSAN_OPTIONS:-print_stacktrace=1:halt_on_error=1}"

if [ "$mode" = merge ]; then
    # Only what adds coverage to the committed corpus is copied in, under libFuzzer's hash names.
    for name in "${targets[@]}"; do
        input="${name%_fuzzer}"
        found="$build/fuzz-corpus/$input"
        before="$(ls "$root/fuzz/corpus/$input" | wc -l)"
        if [ -d "$found" ]; then
            "$build/fuzz/$name" -merge=1 -max_len=2048 "$root/fuzz/corpus/$input" "$found" \
                >"$build/fuzz-merge-$input.log" 2>&1
        fi
        echo "$input: $before -> $(ls "$root/fuzz/corpus/$input" | wc -l) inputs"
    done
    exit 0
fi

log_dir="$build/fuzz-runs/$(date +%Y%m%d-%H%M%S)"
mkdir -p "$log_dir"

run_one() {
    local name="$1" input="${1%_fuzzer}"
    local corpus="$build/fuzz-corpus/$input"
    local limit=(-max_total_time="$seconds")
    [ "$mode" = runs ] && limit=(-runs="$runs")
    mkdir -p "$corpus"
    set +e
    # The CPU time too: on a shared machine the wall-clock rate says as much about the neighbours.
    /usr/bin/time -f '%U %S' -o "$log_dir/$input.cpu" \
        "$build/fuzz/$name" "${limit[@]}" -max_len=2048 -print_final_stats=1 \
        -artifact_prefix="$log_dir/$input-" "$corpus" "$root/fuzz/corpus/$input" \
        >"$log_dir/$input.log" 2>&1
    echo $? >"$log_dir/$input.rc"
    set -e
}

if [ "$mode" = runs ]; then
    echo "fuzzing ${#targets[@]} targets to $runs inputs each, $jobs at a time; logs in $log_dir"
else
    echo "fuzzing ${#targets[@]} targets for ${seconds}s each, $jobs at a time; logs in $log_dir"
fi
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
printf '%-12s %12s %8s %9s %6s %6s %7s %13s %s\n' target executions exec/s exec/cpu-s cov ft \
    corpus 'rss MB first' 'last  result'
for name in "${targets[@]}"; do
    input="${name%_fuzzer}"
    log="$log_dir/$input.log"
    stat() { grep -o "stat::$1: *[0-9]*" "$log" | tail -1 | awk '{print $2}' || true; }
    execs="$(stat number_of_executed_units)"
    rate="$(stat average_exec_per_sec)"
    status="$(grep -E '^#[0-9]+.*cov: [0-9]+' "$log" || true)"
    last="$(tail -1 <<<"$status")"
    field() { sed -n "s/.*$1: \([0-9]*\).*/\1/p" <<<"$2"; }
    rss_first="$(grep -E '^#[0-9]+[[:space:]]+INITED' "$log" | sed -n 's/.*rss: \([0-9]*\)Mb.*/\1/p' || true)"
    cpu="$(awk 'END { print $1 + $2 }' "$log_dir/$input.cpu" 2>/dev/null || true)"
    per_cpu="$(awk -v n="${execs:-0}" -v c="${cpu:-0}" 'BEGIN { if (c > 0) printf "%d", n / c; else print "?" }')"
    rss_last="$(stat peak_rss_mb)"
    rc="$(cat "$log_dir/$input.rc")"
    result=ok
    if [ "$rc" != 0 ] || ls "$log_dir/$input-"* >/dev/null 2>&1; then
        result="CRASH (rc $rc, see $log)"
        failed=1
    fi
    printf '%-12s %12s %8s %9s %6s %6s %7s %6s %6s  %s\n' "$input" "${execs:-?}" "${rate:-?}" "$per_cpu" \
        "$(field cov "$last")" "$(field ft "$last")" "$(field corp "$last")" "${rss_first:-?}" \
        "${rss_last:-?}" "$result"
done
exit "$failed"
