#!/usr/bin/env bash
# Builds the benchmark programs in Release (build-bench/), runs every bench/*_benchmark program
# and tavro-sim on generated sessions of 10 k, 100 k and 1 M frame events, and prints one table:
# each benchmark's time and heap allocations per operation (per event for tavro-sim, with its peak
# memory), its baseline from the same run, the ratio and the target it is held to.
#
#   bash bench/run.sh [--reps N] [--min-time S] [--no-build] [--filter REGEX] [PROGRAM...]
#   bash bench/run.sh --report      (prints the table of the last run again)
#
# --reps N       repetitions per benchmark (default 3); the table shows their medians
# --min-time S   --benchmark_min_time for every program (default: the library's own)
# --no-build     run what build-bench/ already holds
# --filter REGEX passed to every program as --benchmark_filter
# --report       no build, no run: the table of the results kept from the last run
# PROGRAM        run only these programs (e.g. log_benchmark, tavro-sim); default: all of them
#
# Times are CPU time per operation (the machine may be shared; wall time would count the time
# other processes ran). The raw JSON of each program is kept in build-bench/results/.
# tavro-sim rows: user + system time of the whole process divided by the events, and its peak
# memory (maximum resident set size), both from /usr/bin/time; the scenarios come from
# bench/tavro_sim_scenario.sh.
# Exit status 1 when a target is missed, a benchmark reports an error or a program fails.
set -euo pipefail

root="$(cd "$(dirname "$0")/.." && pwd)"
build="$root/build-bench"
reps=3
min_time=""
do_build=1
do_run=1
filter=""
programs=()
while [ $# -gt 0 ]; do
    case "$1" in
        --reps) reps="$2"; shift 2 ;;
        --min-time) min_time="$2"; shift 2 ;;
        --no-build) do_build=0; shift ;;
        --report) do_build=0; do_run=0; shift ;;
        --filter) filter="$2"; shift 2 ;;
        -h|--help) sed -n '2,23p' "$0" | sed 's/^# \{0,1\}//'; exit 0 ;;
        -*) echo "run.sh: unknown option $1" >&2; exit 2 ;;
        *) programs+=("$1"); shift ;;
    esac
done

if [ "$do_build" -eq 1 ]; then
    bash "$root/scripts/bootstrap.sh"
    generator=()
    command -v ninja >/dev/null 2>&1 && generator=(-G Ninja)
    cmake -S "$root" -B "$build" "${generator[@]}" -DCMAKE_BUILD_TYPE=Release \
        -DTAVRO_BUILD_BENCH=ON -DTAVRO_BUILD_TESTS=OFF -DTAVRO_BUILD_TOOLS=ON >/dev/null
    targets=(--target tavro-sim)
    for source in "$root"/bench/*_benchmark.cpp; do targets+=(--target "$(basename "$source" .cpp)"); done
    cmake --build "$build" -j2 "${targets[@]}" >&2
fi

if [ "${#programs[@]}" -eq 0 ]; then
    for source in "$root"/bench/*_benchmark.cpp; do programs+=("$(basename "$source" .cpp)"); done
    programs+=(tavro-sim)
fi

results="$build/results"
mkdir -p "$results"
records="$results/records.tsv"
[ "$do_run" -eq 1 ] && : >"$records"
args=(--benchmark_format=json --benchmark_repetitions="$reps")
[ "$reps" -gt 1 ] && args+=(--benchmark_report_aggregates_only=true)
[ -n "$min_time" ] && args+=(--benchmark_min_time="$min_time")
[ -n "$filter" ] && args+=(--benchmark_filter="$filter")

# tavro-sim on generated sessions: one row per size, the median CPU time of the repetitions and
# the largest peak memory.
run_tavro_sim() {
    local exe="$build/tools/tavro-sim" n name file cpu rss status
    if [ ! -x "$exe" ]; then
        echo "run.sh: $exe is missing (build failed?)" >&2
        return 1
    fi
    for n in 10000 100000 1000000; do
        name="BM_TavroSim_Events/$n"
        if [ -n "$filter" ] && ! [[ "$name" =~ $filter ]]; then continue; fi
        file="$results/tavro-sim-$n.json"
        if [ ! -s "$file" ] || [ "$root/bench/tavro_sim_scenario.sh" -nt "$file" ]; then
            bash "$root/bench/tavro_sim_scenario.sh" "$n" >"$file"
        fi
        echo "run.sh: running tavro-sim on $n events" >&2
        : >"$results/tavro-sim-$n.times"
        status=0
        for _ in $(seq "$reps"); do
            # bash's time gives user and system time to the millisecond (GNU time's to 10 ms,
            # too coarse for the 10 k row); GNU time gives the peak resident set.
            if ! { TIMEFORMAT='%3U %3S' && time /usr/bin/time -f "%M" -o "$results/tavro-sim.rss" \
                    "$exe" "$file" >/dev/null 2>"$results/tavro-sim-$n.err"; } \
                    2>"$results/tavro-sim.cpu"; then
                status=1
            fi
            echo "$(cat "$results/tavro-sim.cpu") $(cat "$results/tavro-sim.rss")" \
                >>"$results/tavro-sim-$n.times"
        done
        if [ "$status" -ne 0 ]; then
            printf "tavro-sim\t%s\t\t-\tfailed (see %s)\t-\n" "$name" "$results/tavro-sim-$n.err"
            continue
        fi
        # CPU ns per event (median over the runs) and the peak resident set in MB (largest).
        cpu=$(awk -v n="$n" '{ printf "%.1f\n", ($1 + $2) * 1e9 / n }' "$results/tavro-sim-$n.times" |
              sort -n | awk '{ v[NR] = $1 } END { print v[int((NR + 1) / 2)] }')
        rss=$(awk '$3 > m { m = $3 } END { printf "%.1f", m / 1024 }' "$results/tavro-sim-$n.times")
        printf "tavro-sim\t%s\t%s\t-\t\t%s\n" "$name" "$cpu" "$rss"
    done >>"$records"
}

program_failed=0
[ "$do_run" -eq 1 ] || programs=()
for program in "${programs[@]}"; do
    if [ "$program" = "tavro-sim" ]; then
        run_tavro_sim || program_failed=1
        continue
    fi
    exe="$build/bench/$program"
    if [ ! -x "$exe" ]; then
        echo "run.sh: $exe is missing (build failed?)" >&2
        exit 1
    fi
    echo "run.sh: running $program" >&2
    if ! "$exe" "${args[@]}" >"$results/$program.json"; then
        echo "run.sh: $program exited with an error (see $results/$program.json)" >&2
        program_failed=1
    fi
    # The library's JSON writer puts one key per line; each benchmark is an object indented by
    # four spaces. Keep the median of the repetitions (or the single run).
    awk -v program="$program" -v reps="$reps" '
        function value(line) {
            sub(/^[^:]*: */, "", line); sub(/,$/, "", line); gsub(/"/, "", line); return line
        }
        /^    \{$/ { inrec = 1; name = ""; type = ""; agg = ""; cpu = ""; unit = "ns";
                     allocs = "-"; err = ""; next }
        inrec && /^      "run_name":/ { name = value($0) }
        inrec && /^      "run_type":/ { type = value($0) }
        inrec && /^      "aggregate_name":/ { agg = value($0) }
        inrec && /^      "cpu_time":/ { cpu = value($0) }
        inrec && /^      "time_unit":/ { unit = value($0) }
        inrec && /^      "allocs\/(op|frame)":/ { allocs = value($0) }
        inrec && /^      "error_message":/ { err = value($0) }
        inrec && /^    \}/ {
            inrec = 0
            if (reps > 1 && !(type == "aggregate" && agg == "median")) next
            if (reps <= 1 && type != "iteration") next
            scale = unit == "us" ? 1e3 : unit == "ms" ? 1e6 : unit == "s" ? 1e9 : 1
            ns = err != "" ? "" : cpu * scale
            printf "%s\t%s\t%s\t%s\t%s\t-\n", program, name, ns, allocs, err
        }
    ' "$results/$program.json" >>"$records"
done

# Baselines and targets. Columns: benchmark (a trailing * matches any suffix), baseline (- for
# none), target. A target is conditions joined by ',', all of which must hold:
#   ratio<=X      time / baseline time
#   added<X       time - baseline time, in ns
#   ns<X          time, in ns
#   addallocs<=X  allocations per op beyond the baseline's
#   allocs<=X     allocations per op
#   mb<X          peak memory of the process, in MB (tavro-sim rows)
# "info" reports the numbers without a pass/fail.
rules="$results/rules.tsv"
cat >"$rules" <<'EOF'
BM_TavroChannel_Steady30	BM_BareForward_Steady30	ratio<=2,added<1000,addallocs<=0
BM_TavroChannel_Speed2x	BM_BareForward_Speed2x	ratio<=2,added<1000,addallocs<=0
BM_TavroChannel_Speed2xDrops	BM_BareForward_Speed2xDrops	ratio<=2,added<1000,addallocs<=0
BM_TavroChannel_Steady30_NoopAnalysis	BM_BareForward_Steady30_NoopAnalysis	added<=50,addallocs<=0
BM_TavroChannel_Speed2x_NoopAnalysis	BM_BareForward_Speed2x_NoopAnalysis	added<=50,addallocs<=0
BM_TavroChannel_Speed2xDrops_NoopAnalysis	BM_BareForward_Speed2xDrops_NoopAnalysis	added<=50,addallocs<=0
BM_TavroChannel_Steady30_Recording	BM_TavroChannel_Steady30	info
BM_TavroChannel_Steady30_NoopAnalysis_Recording	BM_TavroChannel_Steady30_NoopAnalysis	info
BM_FrameRecordHookOff	BM_FrameLogGateOff	ratio<=1,allocs<=0
BM_LogVerboseOff	BM_EmptyCall	ratio<=5,allocs<=0
BM_LogDebugOff	BM_EmptyCall	ratio<=5,allocs<=0
BM_LogGateOtherDefault	BM_EmptyCall	ratio<=5,allocs<=0
BM_Configure_Decoder_Tavro	BM_Configure_Decoder_Base	added<50000
BM_Configure_Encoder_Tavro	BM_Configure_Encoder_Base	added<50000
BM_Configure_Decoder_Tavro_LogOff	BM_Configure_Decoder_Base	info
BM_Configure_Encoder_Tavro_LogOff	BM_Configure_Encoder_Base	info
BM_ParseBoostInfo_*	-	ns<1000
BM_GetBoostInfoWarm_*	-	ns<5000
BM_GetBoostInfo_App_Warm	-	ns<5000
BM_GetBoostInfo_Mediaserver_Warm	-	ns<5000
BM_GetBoostInfo_App_Cold*	BM_GetBoostInfo_App_Warm	info
BM_GetBoostInfo_Mediaserver_Cold*	BM_GetBoostInfo_Mediaserver_Warm	info
BM_TavroSim_Events/10000	-	info
BM_TavroSim_Events/100000	BM_TavroSim_Events/10000	ratio<=1.3,mb<600
BM_TavroSim_Events/1000000	BM_TavroSim_Events/10000	ratio<=1.3,ns<10000,mb<600
EOF

awk -F'\t' -v rulesfile="$rules" '
    BEGIN {
        while ((getline line < rulesfile) > 0) {
            split(line, f, "\t"); nr++; rname[nr] = f[1]; rbase[nr] = f[2]; rtarget[nr] = f[3]
        }
    }
    function ruleFor(name,    i, p) {
        for (i = 1; i <= nr; i++) {
            p = rname[i]
            if (p ~ /\*$/) { if (index(name, substr(p, 1, length(p) - 1)) == 1) return i }
            else if (p == name) return i
        }
        return 0
    }
    function fmt(x) { return x == "" ? "-" : (x >= 100 ? sprintf("%.0f", x) : sprintf("%.2f", x)) }
    { n++; prog[n] = $1; name[n] = $2; ns[n] = $3; allocs[n] = $4; err[n] = $5; byname[$2] = n
      mb[n] = $6 == "" ? "-" : $6 }
    END {
        printf "%-24s %-42s %11s %10s %8s %11s %8s  %-34s %s\n", "program", "benchmark",
               "ns/op", "allocs/op", "peak MB", "base ns/op", "ratio", "target", "result"
        failures = 0
        for (i = 1; i <= n; i++) {
            r = ruleFor(name[i]); base = ""; ratio = ""; target = "-"; result = "-"
            if (r > 0) {
                target = rtarget[r]
                if (rbase[r] != "-" && (rbase[r] in byname)) base = byname[rbase[r]]
            }
            if (err[i] != "") { result = "ERROR: " err[i]; failures++ }
            else if (r > 0) {
                bns = base != "" ? ns[base] : ""
                if (bns != "" && bns > 0) ratio = ns[i] / bns
                if (target == "info") result = "info"
                else {
                    ok = 1; nobase = 0; m = split(target, conds, ",")
                    for (c = 1; c <= m; c++) {
                        cond = conds[c]
                        if (match(cond, /<=|</) == 0) { ok = 0; continue }
                        key = substr(cond, 1, RSTART - 1); op = substr(cond, RSTART, RLENGTH)
                        lim = substr(cond, RSTART + RLENGTH) + 0
                        if (key == "ratio") v = ratio
                        else if (key == "added") v = bns == "" ? "" : ns[i] - bns
                        else if (key == "ns") v = ns[i]
                        else if (key == "allocs") v = allocs[i] == "-" ? "" : allocs[i]
                        else if (key == "mb") v = mb[i] == "-" ? "" : mb[i]
                        else if (key == "addallocs") {
                            v = ""
                            if (allocs[i] != "-" && base != "" && allocs[base] != "-") {
                                v = allocs[i] - allocs[base]
                            }
                        } else v = ""
                        if (v == "") {
                            ok = 0; nobase = key != "ns" && key != "allocs" && key != "mb"; continue
                        }
                        if (op == "<=" ? !(v + 0 <= lim + 1e-9) : !(v + 0 < lim)) ok = 0
                    }
                    result = ok ? "pass" : nobase ? "FAIL (no baseline)" : "FAIL"
                    if (!ok) failures++
                }
            }
            printf "%-24s %-42s %11s %10s %8s %11s %8s  %-34s %s\n", prog[i], name[i], fmt(ns[i]),
                   allocs[i] == "-" ? "-" : sprintf("%.2f", allocs[i]), mb[i],
                   base != "" ? fmt(ns[base]) : "-", ratio == "" ? "-" : sprintf("%.2fx", ratio),
                   target, result
        }
        exit failures > 0 ? 1 : 0
    }
' "$records" || exit 1
exit "$program_failed"
