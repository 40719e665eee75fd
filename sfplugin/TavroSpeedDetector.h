// Playback speed and content frame-rate detection behind the buffer channel's fast-forward watch:
// a plain unit without locks, clocks or platform calls. The channel feeds it one sample per
// rendered or discarded frame under its own lock and writes the component's parameters from its
// decisions.
//
// Model. Every frame leaves a sample (pts, render time, system time, all in ms). The newest sample
// is compared with the one kSpan frames before it: kSpan x 1000 / (difference) is the rate in
// frames per second over that span, for the content (pts), the display (render) and the wall
// clock (sys). A speed ratio is the display or wall rate over the content rate, so 2 means the
// content advances twice as fast as it is shown. A discarded frame has render time 0 and no render
// ratio; the wall-clock ratio carries it.
//
// Entering fast mode is quick and leaving it slow. Fast-forward (a seek bar dragged, a 2x button)
// makes the post-processing engine fall behind within frames, so three spans (20 frames after the
// first ten) that all run fast are enough to switch it to its fast path. Each switch reconfigures
// the engine's pipeline, so coming back needs five consecutive normal spans (40 frames): a short
// normal stretch inside a fast-forward, or timing jitter, must not flip the mode back and forth.
// A restarted history (flush, seek, loop) in fast mode leaves at once: whatever ran fast is over.
//
// Why 1.2x: players offer 1.25x as their first speed above normal, and a span measured in whole
// milliseconds reads up to a few percent off, so 1.25x must land above the line with margin.
// Below it lies what is not fast-forward: frame-pacing jitter, and the 1.05x to 1.1x catch-up that
// live players use, which the engine keeps up with.
#pragma once

#include <stddef.h>
#include <stdint.h>

#include <array>

namespace android {

// The detector's thresholds; every count is derived from the span and the numbers of spans.
struct TavroSpeedThresholds {
    static constexpr size_t kSpan = 10;                       // frames per rate measurement
    static constexpr double kRateNumerator = kSpan * 1000.0;  // kSpan frames over a ms difference
    static constexpr float kFastSpeed = 1.2f;     // a ratio of 1.2 or more is fast (see above)
    static constexpr double kZeroSpeed = 0.0001;  // a ratio at or below this carries no information
    static constexpr float kFileFpsChange = 1.0f;  // a content rate must move by more than this
    static constexpr size_t kEnterSpans = 3;       // newest, -10, -20 all fast: enter
    static constexpr size_t kLeaveSpans = 5;       // newest, -10, ... -40 all normal: leave

    // A walked sample needs a sample kSpan before it: entering needs 31 samples, leaving 51.
    static constexpr size_t kEnterSamples = kEnterSpans * kSpan + 1;
    static constexpr size_t kLeaveSamples = kLeaveSpans * kSpan + 1;
    // The history holds exactly what leaving walks; older samples are never looked at.
    static constexpr size_t kHistorySize = kLeaveSamples;
    // In fast mode, a history shorter than entering needs was restarted: leave.
    static constexpr size_t kResetMaxSamples = kEnterSamples - 1;
    static constexpr size_t kMaxWalked = kEnterSpans > kLeaveSpans ? kEnterSpans : kLeaveSpans;
};

// One render-time sample. The five rates stay 0 until the sample is compared with an older one.
struct cRenderTimeInfo {
    uint64_t pts = 0;      // presentation time, ms
    uint64_t render = 0;   // render time, ms; 0 for a discarded frame
    uint64_t sys = 0;      // monotonic time of the sample, ms
    float renderUnit = 0;  // 10000 / render difference over the span
    float ptsUnit = 0;     // 10000 / pts difference over the span: the content frame rate
    float sysUnit = 0;     // 10000 / sys difference over the span
    float speed = 0;       // renderUnit / ptsUnit
    float speed2 = 0;      // sysUnit / ptsUnit
};

// The speed ratios of one sample a decision walked.
struct TavroSpeedRatios {
    float speed = 0;
    float speed2 = 0;
};

// What one sample decided.
struct TavroSpeedDecision {
    bool fileFpsChanged = false;  // the content rate moved: fileFps is the new one
    float fileFps = 0;
    bool speedChanged = false;  // enter (in normal mode) or leave (in fast mode)
    bool reset = false;         // the leave is a restarted history (historySize says how short)
    bool fastMode = false;      // the mode the decision was made in
    size_t historySize = 0;
    // The samples the speed test looked at, newest first, those without any ratio left out.
    size_t walkedCount = 0;
    std::array<TavroSpeedRatios, TavroSpeedThresholds::kMaxWalked> walked;
};

class TavroSpeedDetector {
  public:
    using T = TavroSpeedThresholds;

    // One frame: records the sample, then tests the content rate and the speed in the current
    // mode. `sysMs` is the monotonic time now. A pts of 0 empties the history first; timestamps
    // that do not advance over the span (a seek, a loop, a clock jump) restart the history with
    // this sample rather than produce a rate. Constant work, no allocation.
    TavroSpeedDecision onSample(uint64_t ptsMs, uint64_t renderMs, uint64_t sysMs);

    // The pieces of onSample.
    void addSample(uint64_t ptsMs, uint64_t renderMs, uint64_t sysMs);
    // True, with fileFps() updated, when kSpan + 1 samples are held and the newest content rate
    // differs from the last one reported by more than kFileFpsChange. The first rate counts.
    bool checkFileFps();
    // The speed test alone (fills the speed fields of a decision). Enter: kEnterSamples or more,
    // and each of the last kEnterSpans spans has a ratio of kFastSpeed or more. Leave: a full
    // history whose last kLeaveSpans spans all have a ratio and none above kFastSpeed, or
    // kResetMaxSamples or fewer (reset). Exactly 1.2 is fast both ways.
    TavroSpeedDecision decideSpeed() const;
    // The content-rate test, then the speed test: the whole decision on the samples held.
    TavroSpeedDecision decide();

    // The component's mode as the caller last switched it; decisions are made against it.
    void setFastMode(bool fast) { mFastMode = fast; }
    bool fastMode() const { return mFastMode; }
    // Empties the history (flush); the mode and the last content rate stay.
    void clear() { mHead = 0, mCount = 0; }
    size_t size() const { return mCount; }
    // The newest sample; size() must be at least 1.
    const cRenderTimeInfo& newest() const { return at(mCount - 1); }
    float fileFps() const { return mFileFps; }

  private:
    // Index 0 is the oldest sample held; i < kHistorySize. Both terms are below the ring's size,
    // so one subtraction wraps the sum: no division on the per-frame path.
    static size_t wrap(size_t i) { return i >= T::kHistorySize ? i - T::kHistorySize : i; }
    cRenderTimeInfo& at(size_t i) { return mSamples[wrap(mHead + i)]; }
    const cRenderTimeInfo& at(size_t i) const { return mSamples[wrap(mHead + i)]; }
    void push(uint64_t ptsMs, uint64_t renderMs, uint64_t sysMs);
    // Walks `spans` samples a span apart, newest first, into d->walked. False when one of them
    // has no ratio or `decisive` holds for one (which ends the walk).
    bool walkSpans(size_t spans, bool (*decisive)(const cRenderTimeInfo&),
                   TavroSpeedDecision* d) const;

    // A fixed ring holding the newest kHistorySize samples, so that a frame never allocates.
    std::array<cRenderTimeInfo, T::kHistorySize> mSamples;
    size_t mHead = 0;
    size_t mCount = 0;
    float mFileFps = 0;
    bool mFastMode = false;
};

}  // namespace android
