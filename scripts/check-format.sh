#!/usr/bin/env bash
# Fails when any tracked C++ file differs from what .clang-format makes of it, or when Android.bp
# does not parse or differs from what bpfmt (the Blueprint parser and formatter) makes of it.
set -euo pipefail
cd "$(dirname "$0")/.."
git ls-files -z -- '*.h' '*.cpp' '*.cc' | xargs -0 clang-format --dry-run --Werror
echo "clang-format: $(git ls-files -- '*.h' '*.cpp' '*.cc' | wc -l) files clean"
bp_diff="$(bpfmt -d Android.bp)"
if [ -n "$bp_diff" ]; then
    printf '%s\n' "$bp_diff" >&2
    echo "bpfmt: Android.bp is not formatted as bpfmt writes it (bpfmt -w Android.bp)" >&2
    exit 1
fi
echo "bpfmt: Android.bp clean"
