#!/usr/bin/env bash
# The size and the cost of tavro-sim --timeline on a 10-minute session at 60 frames per second:
# the default scenario's world (its lists, properties and process) with 36000 frames, each an
# explicit input, output and render 16.667 ms apart on the clock (144000 events with the clock
# advances), content at 1x and 2x in turns of a minute, a flush every 2 minutes.
#
#   bash bench/tavro_sim_timeline.sh [--reps N] [BUILD_DIR]     (default: 3 repetitions, build)
#
# Prints the timeline file's size, and the CPU time (user + system, as bench/run.sh times
# tavro-sim) of playing the session without and with --timeline, the median of the repetitions;
# the difference is the time the timeline costs. Exit status 1 when the file is 2 MB or more.
set -euo pipefail
root="$(cd "$(dirname "$0")/.." && pwd)"
reps=3
if [ "${1:-}" = "--reps" ]; then
    reps="$2"
    shift 2
fi
build="${1:-$root/build}"
exe="$build/tools/tavro-sim"
[ -x "$exe" ] || { echo "tavro_sim_timeline.sh: $exe is missing" >&2; exit 2; }
work="$(mktemp -d)"
trap 'rm -rf "$work"' EXIT

python3 - "$root/scenarios/default.json" >"$work/ten-minutes.json" <<'EOF'
import json, sys
scenario = json.load(open(sys.argv[1]))
scenario["comment"] = "10 minutes at 60 fps (bench/tavro_sim_timeline.sh)"
events = [{"event": "allocate"},
          {"event": "configure", "format": {"mime": "video/avc", "width": 1920, "height": 1080,
                                            "frame-rate": {"float": 60}}},
          {"event": "start"}]
pts = 0
for i in range(36000):
    if i > 0 and i % 7200 == 0:
        events += [{"event": "flush"}, {"event": "resume"}]
    events += [{"event": "input", "time_us": pts}, {"event": "output", "time_us": pts},
               {"event": "render", "time_us": pts},
               {"event": "advance", "us": 16666 if i % 3 == 2 else 16667}]
    pts += 16667 if (i // 3600) % 2 == 0 else 33333
events += [{"event": "shutdown"}, {"event": "destroy"}]
scenario["events"] = events
json.dump(scenario, sys.stdout)
EOF

# CPU seconds (user + system) of one run of tavro-sim with the given options.
cpu() {
    local t
    t=$( { TIMEFORMAT='%3U %3S' && time "$exe" "$@" "$work/ten-minutes.json" >/dev/null; } 2>&1 )
    awk '{ printf "%.3f\n", $1 + $2 }' <<<"$t"
}
median() { sort -n | awk '{ v[NR] = $1 } END { print v[int((NR + 1) / 2)] }'; }

without=$(for _ in $(seq "$reps"); do cpu; done | median)
with=$(for _ in $(seq "$reps"); do cpu --timeline "$work/timeline.json"; done | median)
bytes=$(stat -c %s "$work/timeline.json")
events=$(python3 -c 'import json, sys; print(len(json.load(open(sys.argv[1]))["traceEvents"]))' \
    "$work/timeline.json")
printf "timeline file      %d bytes (%d events), limit 2000000\n" "$bytes" "$events"
printf "tavro-sim          %s s CPU without --timeline, %s s with (median of %d)\n" \
    "$without" "$with" "$reps"
printf "timeline export    %s s CPU\n" "$(awk -v a="$with" -v b="$without" 'BEGIN { printf "%.3f", a - b }')"
[ "$bytes" -lt 2000000 ]
