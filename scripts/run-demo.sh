#!/usr/bin/env bash
# Sets everything up, builds the scenario runner, and plays the bundled default scenario:
#   bash scripts/run-demo.sh            the readable trace
#   bash scripts/run-demo.sh --json     one JSON object per line
# Either way the session's timeline goes to out/default.timeline.json (open it in Perfetto UI,
# https://ui.perfetto.dev, or chrome://tracing: drag the file into the page).
# TAVRO_DEMO_BUILD_DIR picks the build directory (default: build).
set -euo pipefail
root="$(cd "$(dirname "$0")/.." && pwd)"
cd "$root"
dir="${TAVRO_DEMO_BUILD_DIR:-build}"
bash scripts/bootstrap.sh >&2
generator=()
command -v ninja >/dev/null 2>&1 && generator=(-G Ninja)
if [ ! -f "$dir/CMakeCache.txt" ]; then
    cmake -S "$root" -B "$root/$dir" "${generator[@]}" -DTAVRO_SANITIZE=none >&2
fi
cmake --build "$root/$dir" --parallel "$(nproc)" --target tavro-sim tavro-boostinfo >&2
mkdir -p out
status=0
"$dir/tools/tavro-sim" --timeline out/default.timeline.json scenarios/default.json "$@" || status=$?
if [ "$status" -eq 0 ]; then
    echo "timeline: out/default.timeline.json (drag it into https://ui.perfetto.dev or" \
        "chrome://tracing)" >&2
fi
exit "$status"
