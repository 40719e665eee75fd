// The playback speed detector on its own: samples in, decisions out, no channel and no clock.
#include <gtest/gtest.h>

#include <limits>
#include <vector>

#include "sfplugin/TavroSpeedDetector.h"

namespace android {
namespace {

using T = TavroSpeedThresholds;

float rateOfSpan(uint64_t ms) {
    return static_cast<float>(10000.0 / static_cast<double>(ms));
}

// Plays frames into a detector: content steps `ptsMs`, display and wall clock step `shownMs`
// (render time 0 for a dropped frame). Returns the last decision.
struct Player {
    TavroSpeedDetector detector;
    uint64_t pts = 1000;
    uint64_t render = 5000;
    uint64_t sys = 1000000;

    TavroSpeedDecision play(int frames, uint64_t ptsMs, uint64_t shownMs, bool dropped = false) {
        TavroSpeedDecision d;
        for (int i = 0; i < frames; ++i) {
            pts += ptsMs, render += shownMs, sys += shownMs;
            d = detector.onSample(pts, dropped ? 0 : render, sys);
        }
        return d;
    }
};

TEST(TavroSpeedDetectorTest, DecisionsAtTheirThresholds) {
    struct Case {
        const char* name;
        bool fast;  // the mode the component is in
        int frames;
        uint64_t ptsMs, shownMs;
        bool dropped;
        bool changed, reset;
        size_t walked;  // samples the speed test looked at
    };
    // clang-format off
    const Case kCases[] = {
        // Entering needs kEnterSamples (31) samples whose last three spans are fast.
        {"30 samples at 2x stay normal", false, 30, 33, 16, false, false, false, 0},
        {"the 31st at 2x enters", false, 31, 33, 16, false, true, false, 3},
        {"exactly 1.2 is fast", false, 31, 120, 100, false, true, false, 3},
        {"1.19 is not", false, 31, 119, 100, false, false, false, 1},
        {"dropped frames enter on the wall clock", false, 31, 33, 16, true, true, false, 3},
        // In fast mode a short history means it was restarted: leave at once.
        {"fast, 30 samples: reset", true, 30, 33, 33, false, true, true, 0},
        {"fast, 31 samples: hold", true, 31, 33, 33, false, false, false, 0},
        {"fast, 50 samples: hold", true, 50, 33, 33, false, false, false, 0},
        // Leaving walks five spans of a full history; 1.2 does not stop it, more does.
        {"fast, 51 normal samples leave", true, 51, 33, 33, false, true, false, 5},
        {"fast, exactly 1.2 still leaves", true, 51, 120, 100, false, true, false, 5},
        {"fast, 1.3 stays", true, 51, 130, 100, false, false, false, 1},
    };
    // clang-format on
    for (const Case& c : kCases) {
        SCOPED_TRACE(c.name);
        Player p;
        p.detector.setFastMode(c.fast);
        const TavroSpeedDecision d = p.play(c.frames, c.ptsMs, c.shownMs, c.dropped);
        EXPECT_EQ(d.speedChanged, c.changed);
        EXPECT_EQ(d.reset, c.reset);
        EXPECT_EQ(d.fastMode, c.fast);
        EXPECT_EQ(d.historySize, static_cast<size_t>(c.frames));
        EXPECT_EQ(d.walkedCount, c.walked);
    }
}

TEST(TavroSpeedDetectorTest, DecisionCarriesTheRatiosItWalked) {
    Player p;
    const TavroSpeedDecision d = p.play(T::kEnterSamples, 40, 20);
    ASSERT_TRUE(d.speedChanged);
    ASSERT_EQ(d.walkedCount, T::kEnterSpans);
    for (size_t j = 0; j < d.walkedCount; ++j) {
        EXPECT_FLOAT_EQ(d.walked[j].speed, 2.0f);
        EXPECT_FLOAT_EQ(d.walked[j].speed2, 2.0f);
    }
    // A dropped frame has no render ratio: only the wall-clock one speaks for it.
    const TavroSpeedDecision dropped = p.play(1, 40, 20, true);
    EXPECT_EQ(p.detector.newest().speed, 0.0f);
    EXPECT_FLOAT_EQ(p.detector.newest().speed2, 2.0f);
    EXPECT_TRUE(dropped.speedChanged);  // still normal mode: the caller has not switched
    // The history never grows past what leaving walks.
    p.play(100, 40, 20);
    EXPECT_EQ(p.detector.size(), T::kHistorySize);
}

TEST(TavroSpeedDetectorTest, SampleCarriesRatesOverTenIntervals) {
    // Differences are taken before conversion, so they stay exact at any magnitude.
    for (uint64_t start : {uint64_t{1000}, std::numeric_limits<uint64_t>::max() - 10'000}) {
        SCOPED_TRACE(start);
        TavroSpeedDetector detector;
        TavroSpeedDecision d;
        for (uint64_t i = 0; i < 11; ++i) {
            d = detector.onSample(start + i * 33, start + 4000 + i * 33, 1'000'000 + (i + 1) * 33);
        }
        const cRenderTimeInfo& s = detector.newest();
        EXPECT_EQ(s.pts, start + 330);
        EXPECT_EQ(s.render, start + 4330);
        EXPECT_EQ(s.sys, 1'000'000u + 11 * 33);
        EXPECT_FLOAT_EQ(s.ptsUnit, rateOfSpan(330));
        EXPECT_FLOAT_EQ(s.renderUnit, rateOfSpan(330));
        EXPECT_FLOAT_EQ(s.sysUnit, rateOfSpan(330));
        EXPECT_FLOAT_EQ(s.speed, 1.0f);
        EXPECT_FLOAT_EQ(s.speed2, 1.0f);
        // The first content rate counts as a change.
        EXPECT_TRUE(d.fileFpsChanged);
        EXPECT_FLOAT_EQ(d.fileFps, rateOfSpan(330));
    }
}

TEST(TavroSpeedDetectorTest, BadTimestampsRestartTheHistory) {
    const uint64_t kHuge = std::numeric_limits<uint64_t>::max();
    struct Case {
        const char* name;
        // Ten samples first: pts 1000, render 5000, both stepping 33 ms, the clock moving
        // `prefixClockMs` before each. Then the sample under test, `clockMs` later.
        uint64_t prefixClockMs;
        uint64_t pts, render;
        uint64_t clockMs;
        bool restarted;
    };
    const Case kCases[] = {
            {"steady", 33, 1330, 5330, 33, false},
            {"render jumps back", 33, 1330, 4000, 33, true},
            {"render repeats the sample 10 before", 33, 1330, 5000, 33, true},
            {"pts jumps back", 33, 900, 5330, 33, true},
            {"pts repeats the sample 10 before", 33, 1000, 5330, 33, true},
            {"one still clock tick is fine", 33, 1330, 5330, 0, false},
            {"clock stands still over the span", 0, 1330, 5330, 0, true},
            {"pts near 2^64", 33, kHuge - 5, 5330, 33, false},
            {"render near 2^64", 33, 1330, kHuge, 33, false},
            {"dropped frame", 33, 1330, 0, 33, false},
    };
    for (const Case& c : kCases) {
        SCOPED_TRACE(c.name);
        TavroSpeedDetector detector;
        uint64_t sys = 1'000'000;
        for (uint64_t i = 0; i < 10; ++i) {
            sys += c.prefixClockMs;
            detector.addSample(1000 + i * 33, 5000 + i * 33, sys);
        }
        detector.addSample(c.pts, c.render, sys + c.clockMs);
        EXPECT_FALSE(detector.decideSpeed().speedChanged);
        const cRenderTimeInfo& s = detector.newest();
        EXPECT_EQ(s.pts, c.pts);
        EXPECT_EQ(s.render, c.render);
        // A restarted history holds this one sample, without rates.
        EXPECT_EQ(detector.size(), c.restarted ? 1u : 11u);
        EXPECT_EQ(s.sysUnit > 0, !c.restarted);
        EXPECT_EQ(detector.checkFileFps(), !c.restarted && c.pts == 1330);
        if (c.render == 0 || c.restarted) {
            EXPECT_EQ(s.speed, 0.0f);
        }
    }
    // pts 0 (a loop to the start) empties the history before the sample is added.
    TavroSpeedDetector detector;
    for (uint64_t i = 1; i <= 20; ++i) detector.addSample(i * 33, i * 33, i * 33);
    detector.addSample(0, 700, 700);
    EXPECT_EQ(detector.size(), 1u);
}

TEST(TavroSpeedDetectorTest, ContentRateMustMoveByMoreThanOneFps) {
    // 5 fps spans 2000 ms, 4 fps 2500 ms: exactly 1.0 apart, which is no change.
    Player p;
    EXPECT_TRUE(p.play(11, 200, 200).fileFpsChanged);
    EXPECT_FLOAT_EQ(p.detector.fileFps(), 5.0f);
    for (int i = 0; i < 30; ++i) EXPECT_FALSE(p.play(1, 250, 250).fileFpsChanged);
    // One 256 ms interval in the span (2506 ms: 3.99 fps) is more than 1 fps below 5.
    EXPECT_TRUE(p.play(1, 256, 256).fileFpsChanged);
    EXPECT_FLOAT_EQ(p.detector.fileFps(), rateOfSpan(2506));
}

}  // namespace
}  // namespace android
