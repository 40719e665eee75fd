#!/usr/bin/env bash
# Fails when any tracked C++ file differs from what .clang-format makes of it.
set -euo pipefail
cd "$(dirname "$0")/.."
git ls-files -z -- '*.h' '*.cpp' '*.cc' | xargs -0 clang-format --dry-run --Werror
echo "clang-format: $(git ls-files -- '*.h' '*.cpp' '*.cc' | wc -l) files clean"
