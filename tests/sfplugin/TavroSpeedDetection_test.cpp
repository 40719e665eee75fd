// Playback speed, fast-forward and content frame-rate detection of the buffer channel, driven by
// generated clips through the render and discard paths.
#include <gtest/gtest.h>

#include <stdio.h>

#include <atomic>
#include <string>
#include <thread>
#include <vector>

#include "sfplugin/ClipGenerator.h"

namespace android {
namespace test {
namespace {

// Content rate written for a span of `ms` milliseconds over 10 frames.
float rateOfSpan(uint64_t ms) {
    return static_cast<float>(10000.0 / static_cast<double>(ms));
}

// A compact view of a clip's writes for comparisons: "event:VppMode=1", "event:FileFps=30.03",
// "event:(empty)".
std::vector<std::string> describe(const std::vector<ClipWrite>& writes) {
    std::vector<std::string> out;
    for (const ClipWrite& w : writes) {
        std::string text = std::to_string(w.event) + ":";
        if (w.records.empty()) text += "(empty)";
        for (size_t i = 0; i < w.records.size(); ++i) {
            const VendorRecord& r = w.records[i];
            char item[64];
            if (r.index == kVppModeParamIndex) {
                snprintf(item, sizeof(item), "VppMode=%u", r.value);
            } else if (r.index == kFileFpsParamIndex) {
                snprintf(item, sizeof(item), "FileFps=%.4f", r.asFloat());
            } else {
                snprintf(item, sizeof(item), "0x%08X=%u", r.index, r.value);
            }
            text += (i > 0 ? "," : "") + std::string(item);
        }
        out.push_back(text);
    }
    return out;
}

std::string fileFps(size_t event, float fps) {
    char text[64];
    snprintf(text, sizeof(text), "%zu:FileFps=%.4f", event, fps);
    return text;
}

std::string vppMode(size_t event, uint32_t mode) {
    return std::to_string(event) + ":VppMode=" + std::to_string(mode);
}

// A channel watching playback speed on progressive content.
void track(ChannelRig& rig) {
    rig.channel->cheekFFModeStatus(true, 0);
    rig.analysis->setVideoScanTypeForTesting(1);
}

class SpeedDetectionTest : public ::testing::Test {
  protected:
    void SetUp() override { track(rig); }

    ChannelRig rig;
};

// 30 fps content: the first span (frames 0..10) is 333 ms.
const float k30Fps = rateOfSpan(333);

TEST_F(SpeedDetectionTest, ClipsWriteTheirRateAndModeChanges) {
    struct Case {
        const char* name;
        ClipGenerator clip;
        std::vector<std::string> expected;
    };
    const std::string fps30 = fileFps(10, k30Fps);
    // The thresholds, restarts on seeks and the history bound are the detector's own
    // (TavroSpeedDetector_test.cpp); these clips show what the channel writes, and when, as the
    // detector decides: entering at the 31st fast frame, leaving, and the flush it adds itself.
    // clang-format off
    const Case kCases[] = {
        // Truncation to ms makes a 30 fps span 333 or 334 ms (30.03 / 29.94): no rewrite either.
        {"steady 30 fps at normal speed", ClipGenerator().play(300, 30, 1.0), {fps30}},
        // Dropped frames reach the detector through the discard path, without a render time.
        {"2x with every frame dropped", ClipGenerator().play(31, 30, 2.0, 1),
         {fps30, vppMode(30, 1)}},
        // A span is still fast while it holds 4 or more of the 2x intervals (333 / 266 = 1.25),
        // so frame 66 is the first normal sample, and the walk over frames F, F-10, ..., F-40 is
        // all normal from F = 106 on.
        {"leaving needs forty normal frames", ClipGenerator().play(60, 30, 2.0).play(60, 30, 1.0),
         {fps30, vppMode(30, 1), vppMode(106, 0)}},
        // Event 40 is the flush; the next frame finds one sample in fast mode.
        {"flush resets", ClipGenerator().play(40, 30, 2.0).flush().play(35, 30, 2.0),
         {fps30, vppMode(30, 1), vppMode(41, 0), vppMode(71, 1)}},
        // A 31 fps span truncates to 322 ms (31.06 fps): 1.03 from 30.03, which is a change.
        {"30 to 31 fps after truncation", ClipGenerator().play(40, 30, 1.0).play(30, 31, 1.0),
         {fps30, fileFps(50, rateOfSpan(322))}},
    };
    // clang-format on
    for (const Case& c : kCases) {
        SCOPED_TRACE(c.name);
        ChannelRig local;
        track(local);
        EXPECT_EQ(describe(playClip(local, c.clip)), c.expected);
    }
}

TEST_F(SpeedDetectionTest, UnknownScanTypeDropsTheDecision) {
    // The decision is still made on every frame, and the (empty) write still goes out.
    rig.analysis->setVideoScanTypeForTesting(0);
    auto writes = playClip(rig, ClipGenerator().play(33, 30, 2.0));
    EXPECT_EQ(describe(writes), (std::vector<std::string>{fileFps(10, k30Fps), "30:(empty)",
                                                          "31:(empty)", "32:(empty)"}));
    char expected[96];
    snprintf(expected, sizeof(expected), "isChanged:FileFps:0 Speed:1 old:FileFps:%f FF:0", k30Fps);
    EXPECT_EQ(host::HostLog::count(expected), 3u);
}

TEST_F(SpeedDetectionTest, FailedWriteIsRetriedWithTheModeOnly) {
    // Every write fails until event 32. The content rate (event 10) is not retried; the mode is,
    // on every frame without a decision, first 0 and after the failed enter (event 30) 1.
    auto writes = playClip(rig, ClipGenerator().play(34, 30, 2.0), [&](size_t event) {
        rig.channel->setParametersStatusForTesting(event < 32 ? UNKNOWN_ERROR : OK);
    });
    std::vector<std::string> expected = {fileFps(10, k30Fps)};
    for (size_t event = 11; event <= 29; ++event) expected.push_back(vppMode(event, 0));
    for (size_t event = 30; event <= 32; ++event) expected.push_back(vppMode(event, 1));
    EXPECT_EQ(describe(writes), expected);
}

TEST_F(SpeedDetectionTest, TrackingOffOrMissingTimestampsRecordNothing) {
    rig.channel->cheekFFModeStatus(false, 0);
    auto writes = playClip(rig, ClipGenerator().play(60, 30, 2.0, 4));
    EXPECT_TRUE(writes.empty());
    EXPECT_EQ(rig.analysis->countersForTesting().renderedBuffers, 45);
    EXPECT_EQ(rig.analysis->countersForTesting().discardedBuffers, 15);
    EXPECT_FALSE(rig.channel->isFileFpsChanged());
    EXPECT_FALSE(rig.channel->isSpeedChanged());

    // Tracking on, but without "timeUs" every sample has pts 0 and empties the history: no rate,
    // no decision.
    rig.channel->cheekFFModeStatus(true, 0);
    for (int i = 0; i < 60; ++i) {
        host::HostClock::advance(16'666'666);
        rig.channel->renderOutputBuffer(makeFrame(), 5'000'000'000 + i * 16'666'666);
        rig.channel->discardBuffer(makeFrame());
    }
    rig.channel->renderOutputBuffer(nullptr, 7'000'000'000);
    rig.channel->discardBuffer(nullptr);
    EXPECT_TRUE(rig.writes().empty());
}

TEST_F(SpeedDetectionTest, EnteringWritesTwelveByteRecordsAndLogsTheRatiosWalked) {
    playClip(rig, ClipGenerator().play(31, 30, 2.0));
    const auto written = rig.channel->writtenParamsForTesting();
    ASSERT_EQ(written.size(), 2u);
    // Size 12, index, value, little-endian: the content rate 30.03f, then the mode 1.
    EXPECT_EQ(written[0], (std::vector<std::vector<uint8_t>>{{0x0C, 0, 0, 0, 0x00, 0x20, 0x00, 0xC2,
                                                              0x80, 0x3D, 0xF0, 0x41}}));
    EXPECT_EQ(written[1], (std::vector<std::vector<uint8_t>>{
                                  {0x0C, 0, 0, 0, 0x00, 0x86, 0x00, 0xC0, 1, 0, 0, 0}}));

    auto lines = host::HostLog::find("oldFF:", "TavroCCodecBufferChannel");
    ASSERT_EQ(lines.size(), 1u);
    EXPECT_EQ(lines[0].priority, ANDROID_LOG_DEBUG);
    // Samples 30, 20 and 10, each "[speed speed2] ".
    float speed = 0, speed2 = 0;
    EXPECT_EQ(sscanf(lines[0].message.c_str(), "oldFF:0 [%f %f] ", &speed, &speed2), 2);
    EXPECT_NEAR(speed, 2.0f, 0.02f);
    EXPECT_NEAR(speed2, 2.0f, 0.02f);
    size_t brackets = 0;
    for (char ch : lines[0].message) brackets += ch == '[';
    EXPECT_EQ(brackets, 3u);
    EXPECT_EQ(lines[0].message.back(), ' ');

    char changed[96];
    snprintf(changed, sizeof(changed),
             "[setFFmode:L227]isChanged:FileFps:0 Speed:1 old:FileFps:%f FF:0", k30Fps);
    EXPECT_EQ(host::HostLog::count(changed), 1u);

    // The reset decision names the history size instead.
    host::HostLog::clear();
    rig.channel->flush({});
    host::HostClock::advance(16'666'666);
    rig.channel->renderOutputBuffer(makeFrame(1'100'000), 6'000'000'000);
    EXPECT_EQ(host::HostLog::count("oldFF:1 listSize:1"), 1u);
}

TEST_F(SpeedDetectionTest, SpeedDecisionTextIsNotLoggedBelowTheLevel) {
    ChannelRig::setLogLevel("4");
    auto writes = playClip(rig, ClipGenerator().play(31, 30, 2.0));
    EXPECT_EQ(describe(writes), (std::vector<std::string>{fileFps(10, k30Fps), vppMode(30, 1)}));
    EXPECT_EQ(host::HostLog::count("oldFF:"), 0u);
    EXPECT_EQ(host::HostLog::count("isChanged:"), 0u);
}

// ---- The history through the channel, read through the per-sample trace ----------------------
// (The detector's own rules on rates and restarts are in TavroSpeedDetector_test.cpp.)

struct Sample {
    long long pts = 0, render = 0, sys = 0;
    float ptsUnit = 0, renderUnit = 0, sysUnit = 0, speed = 0, speed2 = 0;
};

// The newest sample as the level-6 trace printed it.
Sample lastTrace() {
    auto lines = host::HostLog::find("laster: ", "TavroCCodecBufferChannel");
    Sample s;
    if (lines.empty()) return s;
    sscanf(lines.back().message.c_str(),
           "laster: pts:%lld, render:%lld, sys:%lld unit[pts:%f render:%f sys:%f] speed:%f - %f",
           &s.pts, &s.render, &s.sys, &s.ptsUnit, &s.renderUnit, &s.sysUnit, &s.speed, &s.speed2);
    return s;
}

TEST_F(SpeedDetectionTest, NegativeRenderTimesWrapAndRestart) {
    // A render timestamp before 0 ns wraps to a huge render time; coming back to normal times
    // then fails the render test and restarts the history rather than producing a rate.
    ChannelRig::setLogLevel("6");
    for (int i = 0; i < 10; ++i) {
        host::HostClock::advance(33'000'000);
        rig.channel->renderOutputBuffer(makeFrame(100'000 + i * 33'000),
                                        -1'000'000'000 + i * 33'000'000);
    }
    host::HostClock::advance(33'000'000);
    rig.channel->renderOutputBuffer(makeFrame(430'000), 5'000'000'000);
    Sample s = lastTrace();
    EXPECT_EQ(s.render, 5000);
    EXPECT_EQ(s.ptsUnit, 0.0f);
    EXPECT_TRUE(rig.writes().empty());
}

// ---- Render and discard from two threads -------------------------------------------------------

TEST(SpeedDetectionThreadTest, RenderAndDiscardInterleaved) {
    ChannelRig rig;
    track(rig);
    constexpr int kFrames = 2000;
    std::atomic<int64_t> nextPtsUs{33'333};
    auto worker = [&](bool render) {
        for (int i = 0; i < kFrames; ++i) {
            host::HostClock::advance(8'000'000);
            const int64_t pts = nextPtsUs.fetch_add(33'333);
            if (render) {
                rig.channel->renderOutputBuffer(makeFrame(pts), pts * 500);
            } else {
                rig.channel->discardBuffer(makeFrame(pts));
            }
        }
    };
    std::thread renderer(worker, true);
    std::thread dropper(worker, false);
    renderer.join();
    dropper.join();
    EXPECT_EQ(rig.analysis->countersForTesting().renderedBuffers, kFrames);
    EXPECT_EQ(rig.analysis->countersForTesting().discardedBuffers, kFrames);
    EXPECT_EQ(rig.channel->countersForTesting().rendered, static_cast<uint64_t>(kFrames));
    EXPECT_EQ(rig.channel->countersForTesting().discarded, static_cast<uint64_t>(kFrames));
    // Every write is a well-formed 12-byte record of one of the two kinds.
    for (const auto& call : rig.writes()) {
        for (const VendorRecord& r : call) {
            EXPECT_EQ(r.size, 12u);
            EXPECT_TRUE(r.index == kVppModeParamIndex || r.index == kFileFpsParamIndex);
        }
    }
}

}  // namespace
}  // namespace test
}  // namespace android
