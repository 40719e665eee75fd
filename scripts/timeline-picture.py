#!/usr/bin/env python3
"""Draws a tavro-sim --timeline file as a picture: one row per track, slices as bars, instants as
ticks, counters as step lines (counters of one unit share a scale, its top given in the legend).

    python3 scripts/timeline-picture.py out/default.timeline.json docs/default-timeline.png

Needs matplotlib (Debian: apt-get install -y python3-matplotlib). The README's picture of the
default scenario is made this way, from the file scripts/run-demo.sh writes.
"""
import json
import sys

import matplotlib

matplotlib.use("Agg")
import matplotlib.pyplot as plt  # noqa: E402  (the backend is chosen first)


def load(path):
    with open(path) as f:
        doc = json.load(f)
    names, tracks = {}, {}
    for e in doc["traceEvents"]:
        if e["ph"] == "M":
            if e["name"] == "thread_name":
                names[e["tid"]] = e["args"]["name"]
            continue
        tracks.setdefault(e["tid"], []).append(e)
    end_us = doc.get("metadata", {}).get("end_us") or max(
        e["ts"] + e.get("dur", 0) for events in tracks.values() for e in events)
    title = "%s (pid %s): %s" % (doc["metadata"].get("process", ""), doc["metadata"].get("pid", ""),
                                 doc["metadata"].get("scenario", path))
    return [(names.get(tid, str(tid)), tracks[tid]) for tid in sorted(tracks)], end_us / 1e6, title


def lanes(slices):
    """Stacks slices that overlap in time: each gets the first lane free at its start."""
    ends, placed = [], []
    for e in sorted(slices, key=lambda e: e["ts"]):
        lane = next((i for i, end in enumerate(ends) if end <= e["ts"]), len(ends))
        if lane == len(ends):
            ends.append(0)
        ends[lane] = e["ts"] + e["dur"]
        placed.append((lane, e))
    return placed, max(len(ends), 1)


def draw_track(ax, name, events, end_s):
    colours = plt.rcParams["axes.prop_cycle"].by_key()["color"]
    placed, count = lanes([e for e in events if e["ph"] == "X"])
    height = 0.45 / count
    slice_colours = {}
    for lane, e in placed:
        y = 0.05 + lane * height
        colour = slice_colours.setdefault(e["name"], colours[len(slice_colours) % len(colours)])
        ax.broken_barh([(e["ts"] / 1e6, max(e["dur"] / 1e6, end_s / 500))], (y, height * 0.9),
                       color=colour, alpha=0.6)
        ax.text(e["ts"] / 1e6, y + height * 0.45, " " + e["name"], va="center", fontsize=7,
                clip_on=True)
    instants = sorted({e["ts"] / 1e6 for e in events if e["ph"] == "i"})
    if instants:
        ax.vlines(instants, 0.52, 0.58, color="black", linewidth=0.6)
    # Counters with the same unit (their args key) share a scale: the largest value among them.
    series, tops = {}, {}
    for e in events:
        if e["ph"] == "C":
            (unit, value), = e["args"].items()
            series.setdefault((e["name"], unit), []).append((e["ts"] / 1e6, value))
            tops[unit] = max(tops.get(unit, 0), abs(value))
    for i, ((counter, unit), points) in enumerate(sorted(series.items())):
        top = tops[unit] or 1
        xs = [t for t, _ in points] + [end_s]
        ys = [0.6 + 0.38 * v / top for _, v in points]
        ax.step(xs, ys + ys[-1:], where="post", linewidth=2.2 - 0.5 * (i % 3),
                linestyle=("-", "--", ":")[i % 3], color=colours[i % len(colours)],
                label="%s (%s, top %g)" % (counter, unit, top))
    if series:
        ax.legend(loc="upper left", bbox_to_anchor=(1.005, 1.02), fontsize=6, frameon=False)
    ax.set_ylim(0, 1)
    ax.set_yticks([])
    ax.set_ylabel(name, rotation=0, ha="right", va="center", fontsize=8)


def main(argv):
    if len(argv) != 3:
        sys.stderr.write(__doc__)
        return 2
    tracks, end_s, title = load(argv[1])
    fig, axes = plt.subplots(len(tracks), 1, sharex=True, figsize=(13, 1.0 * len(tracks) + 0.8))
    for ax, (name, events) in zip(axes, tracks):
        draw_track(ax, name, events, end_s)
    axes[-1].set_xlim(0, end_s)
    axes[-1].set_xlabel("seconds of the scenario clock")
    fig.suptitle(title, fontsize=9)
    fig.tight_layout()
    fig.savefig(argv[2], dpi=110)
    return 0


if __name__ == "__main__":
    sys.exit(main(sys.argv))
