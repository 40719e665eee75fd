// What the frames of a session say over time, for the timeline (TavroTraceTimeline): how many
// were queued, output, rendered and dropped in each second of the scenario clock, and the HDR type
// the codec takes from its first outputs.
//
// The codec keeps the HDR type to itself until it is destroyed (the HDR playback feedback), and a
// timeline wants the moment it was found. So it is worked out here from the same outputs, with
// the library's own constants and classifiers; TavroTraceTimeline_test holds it to the codec's
// feedback. Runs on the playing thread, one frame at a time, in the order the player hands them
// to the codec.
#pragma once

#include <stdint.h>

#include <array>
#include <functional>
#include <string>

#include "tools/sim/TavroScenario.h"

namespace android {

class TavroTimelineFrames {
  public:
    enum class Series {
        kQueued,    // frames per second of the clock: queued inputs
        kOutput,    // finished works
        kRendered,  // rendered outputs
        kDropped,   // discarded outputs
        kHdrType,   // 0 none, 1 HDR10, 2 HLG, 3 HDR10+, 4 HDR Vivid, 5 Dolby Vision
    };
    // A series takes `value` at `timeUs`. Per-second counts are reported when their second is
    // over (at its start, so a report may be older than the frame that closed it), and only when
    // they change; the HDR type when it changes.
    using Report = std::function<void(Series series, int64_t timeUs, double value)>;

    explicit TavroTimelineFrames(Report report) : mReport(std::move(report)) {}

    // A configure at `timeUs` with the app's format `given`: what the codec knows for its HDR
    // check.
    void configure(int64_t timeUs, const TavroTypedMap& given);

    void queued(int64_t timeUs);
    // A finished work; `hdr` is what its output buffer carries (null: nothing).
    void output(int64_t timeUs, bool hasBuffer, const TavroHdrDescription* hdr);
    void rendered(int64_t timeUs) { count(timeUs, Series::kRendered); }
    void dropped(int64_t timeUs) { count(timeUs, Series::kDropped); }

    // Reports the counts of the last second and zero after it (at `endUs` when the session ends
    // inside that second).
    void finish(int64_t endUs);

  private:
    void count(int64_t timeUs, Series series);
    void closeSecondsBefore(int64_t second);
    void setHdrType(int64_t timeUs, int32_t type);

    Report mReport;

    // Per-second counts: the second being counted and its counts, the values last reported.
    int64_t mSecond = -1;
    std::array<int64_t, 4> mCounts{};
    std::array<int64_t, 4> mShown{};

    // The HDR check: what the codec knows from its configures, and what it found.
    std::string mMime;
    bool mIsVideo = false;
    bool mIsEncoder = false;
    bool mIsThumbnail = false;
    int32_t mHdrType = 0;
    int32_t mHdrCheckedWorks = 0;
    bool mHdrShown = false;
};

}  // namespace android
