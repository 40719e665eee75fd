// tavro-sim --timeline: the session in the Trace Event Format (JSON object form), which Perfetto
// UI and chrome://tracing open as it is. One process (the scenario's name and pid) whose threads
// are the tracks, timestamps in µs of the scenario clock:
//   codec                lifecycle slices (allocated, configured, running, flushed, shut down);
//                        configure and set_parameters instants with the keys the pipeline
//                        changed (and the configure steps that declined); reports to the
//                        client; the codec's own platform calls
//   frames               per-second counts of queued, output, rendered and dropped frames; clip
//                        slices; corrupt-data, stutter and super-resolution instants
//   detection            content frame rate (FileFpsParam writes), speed ratios (the channel's
//                        per-frame log line) and HDR type counters; fast-forward slices
//                        (VppModeParam 1 to 0); other vendor parameters
//   boost                task boosts and releases; the operating rate the platform was given
//   boost thread part,   one slice per part of a boost request while it is held, each part on a
//   boost cluster part   track of its own since the two are sent and released independently
//   timers, services     the codec's private messages; feedback, statistics, event upload and
//                        analysis calls (a run of identical calls is one instant with a count)
// Ids and names are the trace's (the scenario's pid, "codec" for the feedback record, ...).
//
// The sink takes every entry unmerged, keeps events per track (counters are sampled per second
// or on change, never per frame) and writes the file when flushed: slices still open close at
// the time of the last entry. Playing thread only.
#pragma once

#include <stdint.h>

#include <memory>
#include <ostream>
#include <string>
#include <vector>

#include "tools/sim/TavroScenario.h"
#include "tools/sim/TavroTimelineFrames.h"
#include "tools/sim/TavroTrace.h"

namespace android {

class TavroTraceTimeline : public TavroTraceSink {
  public:
    // The tracks in their order (the thread ids are 1, 2, ... in this order).
    enum Track {
        kCodec,
        kFrames,
        kDetection,
        kBoost,
        kBoostThread,
        kBoostCluster,
        kTimers,
        kServices
    };
    static const std::vector<std::string>& trackNames();

    // `scenario` (for the process identity and the frames it describes) must outlive the sink;
    // the file goes to `out` on the first flush.
    TavroTraceTimeline(const TavroScenario& scenario, std::ostream& out);
    ~TavroTraceTimeline() override;

    void add(const TavroTraceEntry& entry) override;
    // A library log line at `timeUs` (TavroSimOptions::onLibraryLog): the channel's per-frame
    // speed line gives the speed ratios; other lines are ignored.
    void libraryLog(int64_t timeUs, const std::string& message);
    void flush() override;

  private:
    struct State;
    std::unique_ptr<State> mState;
};

// A speed ratio as the timeline shows it: to one decimal.
double tavroTimelineRatio(double ratio);

}  // namespace android
