#!/usr/bin/env bash
# Line coverage of the library by each fuzz target's committed corpus: builds the targets with
# clang's source-based coverage (TAVRO_FUZZ_COVERAGE=ON, no sanitizers) in BUILD, replays
# fuzz/corpus/<input>/ with -runs=0, and prints per target every library file (sfplugin/,
# whitelist/, common/) the corpus executes at least one line of, with its line coverage.
#
#   fuzz/coverage.sh [TARGET...]      e.g.  fuzz/coverage.sh     fuzz/coverage.sh proc_fuzzer
#
# TAVRO_FUZZ_COV_BUILD picks the build tree (default build-fuzz-cov). The per-line report of a
# target: llvm-cov show BUILD/fuzz/<target> -instr-profile=BUILD/cov/<input>.profdata FILE
set -euo pipefail
root="$(cd "$(dirname "$0")/.." && pwd)"
build="${TAVRO_FUZZ_COV_BUILD:-$root/build-fuzz-cov}"

# The clang the targets are built with and the llvm tools that read its profiles must agree.
version="$(clang --version | sed -n 's/.*clang version \([0-9]*\).*/\1/p' | head -1)"
profdata="$(command -v "llvm-profdata-$version" || command -v llvm-profdata)"
cov="$(command -v "llvm-cov-$version" || command -v llvm-cov)"

generator=()
command -v ninja >/dev/null 2>&1 && generator=(-G Ninja)
CC=clang CXX=clang++ cmake -S "$root" -B "$build" "${generator[@]}" -DTAVRO_BUILD_FUZZ=ON \
    -DTAVRO_FUZZ_COVERAGE=ON -DTAVRO_BUILD_TESTS=OFF -DTAVRO_BUILD_TOOLS=OFF \
    -DTAVRO_SANITIZE=none >/dev/null
cmake --build "$build" --target tavro_fuzzers --parallel "$(nproc)" >/dev/null

targets=("$@")
if [ ${#targets[@]} -eq 0 ]; then
    for source in "$root"/fuzz/*_fuzzer.cpp; do targets+=("$(basename "$source" .cpp)"); done
fi

mkdir -p "$build/cov"
for name in "${targets[@]}"; do
    input="${name%_fuzzer}"
    rm -f "$build/cov/$input".*
    LLVM_PROFILE_FILE="$build/cov/$input.profraw" "$build/fuzz/$name" -runs=0 \
        "$root/fuzz/corpus/$input" >"$build/cov/$input.log" 2>&1
    "$profdata" merge -sparse "$build/cov/$input.profraw" -o "$build/cov/$input.profdata"
    echo "== $name ($(ls "$root/fuzz/corpus/$input" | wc -l) inputs)"
    # Columns of the report: file, regions, missed, cover, functions, missed, executed, lines,
    # missed lines, line cover, branches, missed, cover.
    "$cov" report "$build/fuzz/$name" -instr-profile="$build/cov/$input.profdata" \
        "$root/sfplugin" "$root/whitelist" "$root/common" |
        awk -v root="$root/" '
            $1 ~ /\.(cpp|h)$/ && $8 > 0 && $9 < $8 {
                sub(root, "", $1); printf "  %-40s %5d/%5d lines  %s\n", $1, $8 - $9, $8, $10 }
            $1 ~ /\.(cpp|h)$/ && $8 > 0 && $9 == $8 { untouched++ }
            END { printf "  (%d more library files with no line executed)\n", untouched }'
done
