// What the frames of a session say over time, for the timeline (TavroTraceTimeline): how many
// were queued, output, rendered and dropped in each second of the scenario clock, the playback
// speed ratios the buffer channel computes from them, and the HDR type the codec takes from its
// first outputs.
//
// The channel and the codec keep the last two to themselves: the ratios appear only in verbose
// log lines, the HDR type only in the feedback sent when the codec is destroyed. So they are
// worked out here from the same frames, by the same rules and with the library's own constants
// and classifiers; TavroTraceTimeline_test holds both to the library's report of them. Runs on
// the playing thread, one frame at a time, in the order the player hands them to the channel.
#pragma once

#include <stdint.h>

#include <array>
#include <functional>
#include <string>

#include "tools/sim/TavroScenario.h"

namespace android {

// The host clock in ns at `timeUs` of a scenario: the player runs the manual clock from its
// default start.
int64_t tavroSimClockNs(int64_t timeUs);

class TavroTimelineFrames {
  public:
    static constexpr size_t kSamples = 11;  // the speed history's newest samples kept

    enum class Series {
        kQueued,        // frames per second of the clock: queued inputs
        kOutput,        // finished works
        kRendered,      // rendered outputs
        kDropped,       // discarded outputs
        kSpeedDisplay,  // content rate over display rate (the channel's "speed")
        kSpeedWall,     // content rate over wall-clock rate ("speed2")
        kHdrType,       // 0 none, 1 HDR10, 2 HLG, 3 HDR10+, 4 HDR Vivid, 5 Dolby Vision
    };
    // A series takes `value` at `timeUs`. Per-second counts are reported when their second is
    // over (at its start, so a report may be older than the frame that closed it), and only when
    // they change; ratios for every sample the channel makes; the HDR type when it changes.
    using Report = std::function<void(Series series, int64_t timeUs, double value)>;

    explicit TavroTimelineFrames(Report report) : mReport(std::move(report)) {}

    // A configure at `timeUs`: `given` is the app's format; `vppValue` the post-processing
    // white-list value the platform received (0 when absent). Decides whether the channel tracks
    // speed (a video decoder with a non-zero value) and what the codec knows for its HDR check.
    void configure(int64_t timeUs, const TavroTypedMap& given, int64_t vppValue);

    void queued(int64_t timeUs);
    // A finished work; `hdr` is what its output buffer carries (null: nothing).
    void output(int64_t timeUs, bool hasBuffer, const TavroHdrDescription* hdr);
    // `renderNs` is the display time handed to the channel, on the host clock.
    void rendered(int64_t timeUs, int64_t ptsUs, int64_t renderNs);
    void dropped(int64_t timeUs, int64_t ptsUs);
    // The channel's flush empties its render-time history.
    void flushed() { mHistoryCount = 0; }

    // Reports the counts of the last second and zero after it (at `endUs` when the session ends
    // inside that second).
    void finish(int64_t endUs);

  private:
    struct Sample {
        uint64_t pts = 0;  // ms
        uint64_t render = 0;
        uint64_t sys = 0;
    };
    void count(int64_t timeUs, Series series);
    void closeSecondsBefore(int64_t second);
    void pushSample(int64_t timeUs, uint64_t pts, uint64_t render);
    void setHdrType(int64_t timeUs, int32_t type);

    Report mReport;

    // Per-second counts: the second being counted and its counts, the values last reported.
    int64_t mSecond = -1;
    std::array<int64_t, 4> mCounts{};
    std::array<int64_t, 4> mShown{};

    // Speed: the newest kRenderSpan + 1 samples, oldest first (all the ratios look at).
    bool mTracking = false;
    std::array<Sample, kSamples> mHistory{};
    size_t mHistoryCount = 0;

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
