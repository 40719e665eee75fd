#!/usr/bin/env bash
# Writes a tavro-sim scenario of N explicit frame events to stdout, as a recorded session would
# have them: allocate, configure, start, then input, output and render of one frame after another
# (33333 us apart), N events in all. bench/run.sh times tavro-sim on it.
#
#   bash bench/tavro_sim_scenario.sh N > file.json
set -euo pipefail
n="${1:?usage: tavro_sim_scenario.sh N}"
awk -v n="$n" 'BEGIN {
    print "{\"comment\": \"" n " explicit frame events (bench/tavro_sim_scenario.sh)\","
    print " \"process\": {\"name\": \"com.tavro.video\", \"pid\": 4321, \"uid\": 10123},"
    print " \"properties\": {\"ro.hardware\": \"qcom\", \"ro.build.device_family\": \"QXSM8550\","
    print "                \"ro.boot.prjname\": \"22001\"},"
    print " \"lists\": {\"media-sched-boost\": [{\"uid\": 10123, \"value\": \"isVideo=1,schedVideo=2\"}]},"
    print " \"component\": \"c2.qti.avc.decoder\","
    print " \"events\": ["
    print "  {\"event\": \"allocate\"},"
    print "  {\"event\": \"configure\", \"format\": {\"mime\": \"video/avc\", \"width\": 1920, \"height\": 1080}},"
    printf "  {\"event\": \"start\"}"
    split("input output render", kinds, " ")
    for (i = 0; i < n; i++) {
        printf ",\n  {\"event\": \"%s\", \"time_us\": %d}", kinds[i % 3 + 1], int(i / 3) * 33333
    }
    print "\n ]}"
}'
