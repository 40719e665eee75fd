// The bundled scenarios, each played through the library: the key lines of their traces.
#include <set>
#include <string>
#include <tuple>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tools/ToolsTestSupport.h"
#include "tools/sim/TavroScenarioLoader.h"
#include "tools/sim/TavroScenarioPlayer.h"

namespace android {
namespace {

using test::indexOf;
using test::named;
using test::texts;
using ::testing::Contains;
using Lines = std::vector<std::string>;

TavroTrace play(const std::string& name, TavroSimOptions options = {}) {
    TavroScenario scenario = loadTavroScenarioFile(test::toolsSourceDir() + "/scenarios/" + name);
    TavroTrace trace;
    std::string error;
    EXPECT_TRUE(playTavroScenario(scenario, options, &trace, &error)) << error;
    return trace;
}

TEST(TavroScenariosTest, DefaultShowsEverySubsystem) {
    const TavroTrace trace = play("default.json");

    // Configure: post-processing selected by the white list, start-up operating rate.
    EXPECT_EQ(texts(trace, "format"),
              (Lines{"+ vendor.mtk.ext.vdec.tavro.vpp.engine.feature-on (int32) = 1",
                     "+ vendor.mtk.ext.vdec.tavro.vpp.engine.client-type (int32) = 1",
                     "+ vendor.tavro.vpp.white.list.value (int64) = 1",
                     "+ tavro.input_delay (int32) = 0", "+ operating-rate (float) = 120",
                     "set_parameters: passed to the platform unchanged"}));

    // Start: the whole boost at once, since the start-up rate is above limitOpRate.
    const std::vector<TavroTraceEntry> boosts = trace.ofKind("boost");
    ASSERT_EQ(boosts.size(), 1u);
    const nlohmann::ordered_json& boost = boosts[0].fields;
    EXPECT_EQ(boost["sched"], 2);
    EXPECT_EQ(boost["needVendorBoost"], false);
    EXPECT_EQ(boost["clusterParams"],
              nlohmann::ordered_json::parse(R"([{"opcode": "0x40c04000", "value": 1},
                  {"opcode": "0x40800110", "value": 1200},
                  {"opcode": "0x40800120", "value": 1500}])"));
    EXPECT_EQ(boost["uclampThreads"],
              nlohmann::ordered_json::parse(R"([{"tid": 4400, "minUclamp": 512}])"));
    // Named threads, the app's tp-ux-tid, and the configuring and looper threads (the playing
    // thread, shown as the process). Order follows the directory listing, so compare as a set.
    std::multiset<std::tuple<int, int, int>> threads;
    for (const auto& t : boost["threads"]) {
        threads.insert({t["pid"].get<int>(), t["tid"].get<int>(), t["sched"].get<int>()});
    }
    const std::multiset<std::tuple<int, int, int>> expectedThreads = {
            {4321, 4400, 2}, {4321, 4401, 2}, {4321, 4400, 2}, {4321, 4321, 2}, {4321, 4321, 2}};
    EXPECT_EQ(threads, expectedThreads);

    // First render: the operating rate goes back to the app's own.
    const int rOpt = indexOf(trace, "timer", "rOpt (restore operating rate)");
    ASSERT_GE(rOpt, 0);
    EXPECT_EQ(trace.entries()[rOpt + 1].text, "signalSetParameters operating-rate=30");

    // bApp a second after configure boosts the app's key threads.
    const int bApp = indexOf(trace, "timer", "bApp (boost app key threads)");
    ASSERT_GE(bApp, 0);
    EXPECT_EQ(trace.entries()[bApp].timeUs, 1000000);
    EXPECT_EQ(trace.entries()[bApp + 1].text,
              "pid=4321 sched=2 threadNames=[RenderThread GLThread]");

    // Vendor parameters: input delay, content frame rate, then fast mode on (during the 2x clip,
    // timed by the timeline's test) and off again once the flush restarted the history.
    EXPECT_EQ(texts(trace, "param"), (Lines{"VppInputDelayParam (0xc0008605) = 0, status 0",
                                            "FileFpsParam (0xc2002000) = 30.03003, status 0",
                                            "VppModeParam (0xc0008600) = 1, status 0",
                                            "VppModeParam (0xc0008600) = 0, status 0"}));
    const int flush = indexOf(trace, "step", "flush");
    ASSERT_GE(flush, 0);
    EXPECT_GT(indexOf(trace, "param", "VppModeParam (0xc0008600) = 0, status 0"), flush);

    // The run-time rate falls below limitOpRate: the cluster part is released.
    const int setParams = indexOf(trace, "step", "set_parameters {operating-rate=30f}");
    ASSERT_GE(setParams, 0);
    EXPECT_EQ(trace.entries()[setParams + 1].text, "flags=0x20 (cluster part)");
    EXPECT_EQ(trace.entries()[flush + 1].text, "signalFlush");

    // cFps fires every second while playing and once more after shutdown, when it stops.
    const std::vector<TavroTraceEntry> cfps = named(trace, "timer", "cFps");
    ASSERT_EQ(cfps.size(), 8u);
    EXPECT_EQ(cfps.front().timeUs, 1000000);
    EXPECT_EQ(cfps.back().timeUs, 8000000);
    EXPECT_EQ(named(trace, "analysis", "sendFPSInfo").size(), 7u);

    // Shutdown and destruction: feedback with the HDR10 kind seen on the first output.
    EXPECT_EQ(texts(trace, "feedback"),
              (Lines{"pushFeedbackInfoAtCodec id=codec isVideo=1 isEncoder=0 "
                     "componentName=c2.qti.avc.decoder format={...}",
                     "pushFeedbackInfo id=codec key=timeUsage value=4 flag=1",
                     "sendFeedbackHdrPlaybackInfo id=codec eventId=21004 hdrType=1",
                     "pushFeedbackInfo id=codec key=inPutCount value=271 flag=0",
                     "sendFeedbackInfo id=codec", "deleteFeedbackId id=codec"}));
    EXPECT_THAT(texts(trace, "step"),
                Contains("clip done: 60 queued, 60 output, 54 rendered, 6 dropped"));
}

TEST(TavroScenariosTest, EncoderRateControlFromLists) {
    const TavroTrace trace = play("encoder-rate-control.json");
    // 1200000 x 1.2 (qcom-qprange), then x 1.1 (encoder-b-frame, under its limit).
    EXPECT_EQ(texts(trace, "format"),
              (Lines{"~ bitrate (int32) 1200000 -> 1584000", "+ i-frame-interval (float) = 2",
                     "+ ts-schema (string) = \"android.generic.1+1\"",
                     "+ android._prefer-b-frames (int32) = 1",
                     "+ vendor.qti-ext-cvp-filter-explicit-disable.value (int32) = 1",
                     "+ max-bframes (int32) = 2",
                     "+ vendor.qti-ext-enc-content-adaptive-mode.value (int32) = 1",
                     "+ video-qp-i-min (int32) = 20", "+ video-qp-p-min (int32) = 20",
                     "+ video-qp-b-min (int32) = 20", "+ video-qp-i-max (int32) = 40",
                     "+ video-qp-p-max (int32) = 40", "+ video-qp-b-max (int32) = 40",
                     "+ vendor.qti-ext-enc-initial-qp.qp-i-enable (int32) = 1",
                     "+ vendor.qti-ext-enc-initial-qp.qp-i (int32) = 10",
                     "+ vendor.qti-ext-enc-initial-qp.qp-p-enable (int32) = 1",
                     "+ vendor.qti-ext-enc-initial-qp.qp-p (int32) = 10",
                     "+ vendor.qti-ext-enc-initial-qp.qp-b-enable (int32) = 1",
                     "+ vendor.qti-ext-enc-initial-qp.qp-b (int32) = 10"}));
    const std::vector<TavroTraceEntry> bitrate = trace.ofKind("format");
    ASSERT_FALSE(bitrate.empty());
    EXPECT_EQ(bitrate[0].fields["change"], "changed");
    EXPECT_EQ(bitrate[0].fields["old_value"], 1200000);
    EXPECT_EQ(bitrate[0].fields["value"], 1584000);
    EXPECT_EQ(bitrate[1].fields["type"], "float");
    EXPECT_EQ(bitrate[1].fields["value"], 2.0);
    // An encoder in video-encoder-statistics reports its output count at destruction.
    EXPECT_THAT(texts(trace, "feedback"),
                Contains("pushFeedbackInfo id=codec key=outPutCount value=30 flag=0"));
    EXPECT_TRUE(trace.ofKind("boost").empty());
    EXPECT_TRUE(trace.ofKind("param").empty());
}

TEST(TavroScenariosTest, MediaserverFallsBackToTheGenericEntry) {
    const TavroTrace trace = play("mediaserver-whitelist.json");
    const std::vector<TavroTraceEntry> boosts = trace.ofKind("boost");
    ASSERT_EQ(boosts.size(), 1u);
    // '#generic_hevc' (sched 3, MediaCodec_loop, cluster 1): the client has no entry of its own
    // and '#generic_audio' does not fit a video codec.
    EXPECT_EQ(boosts[0].text,
              "sched=3 needVendorBoost=0 ddrFreq=0 threads=[1000/1100:3 1000/1000:3] "
              "clusterParams=[0x40800110=1400]");
    // A decoder never sees tp-ux-tid here, so only the named thread and the looper thread.
    EXPECT_EQ(boosts[0].fields["threads"].size(), 2u);
}

TEST(TavroScenariosTest, DolbyVisionOnMediaTek) {
    const TavroTrace trace = play("dolby-vision-mtk.json");
    EXPECT_EQ(texts(trace, "format"),
              (Lines{"+ vendor.tavro.dolby.black.list.value (int64) = 1",
                     "+ vendor.tavro.dolby.output.yuv.value (int64) = 1",
                     "+ vendor.ext-dec-bytebuffer-mode.value (int32) = 1",
                     "+ vendor.mtk.ext.vdec.tavro.vpp.engine.feature-on (int32) = 1",
                     "+ vendor.mtk.ext.vdec.tavro.vpp.engine.client-type (int32) = 1",
                     // The white list said 1; Dolby Vision is never post-processed.
                     "+ vendor.tavro.vpp.white.list.value (int64) = 0"}));
    EXPECT_THAT(texts(trace, "feedback"),
                Contains("sendFeedbackHdrPlaybackInfo id=codec eventId=21004 hdrType=5"));
    EXPECT_TRUE(trace.ofKind("param").empty());
}

TEST(TavroScenariosTest, AudioCodecBoostsItsThreadsAndRunsNoTimers) {
    const TavroTrace trace = play("audio-codec.json");
    EXPECT_EQ(texts(trace, "format"), Lines{"+ tavro.batchmode.num (int32) = 8"});
    const std::vector<TavroTraceEntry> boosts = trace.ofKind("boost");
    ASSERT_EQ(boosts.size(), 1u);
    EXPECT_EQ(boosts[0].text,
              "sched=3 needVendorBoost=0 ddrFreq=0 threads=[6200/6300:3] swThreads=[aac_enc "
              "resampler]");
    EXPECT_EQ(boosts[0].fields["swThreads"],
              nlohmann::ordered_json::parse(R"(["aac_enc", "resampler"])"));
    EXPECT_TRUE(trace.ofKind("timer").empty());  // 3 s advanced: an audio codec arms none
    EXPECT_TRUE(trace.ofKind("feedback").empty());
}

TEST(TavroScenariosTest, LowMemorySwitchesPostProcessingOff) {
    TavroSimOptions options;
    options.hasLogLevel = true;
    options.logLevel = 5;
    const TavroTrace trace = play("low-memory.json", options);
    EXPECT_EQ(texts(trace, "format"), Lines{"configure: passed to the platform unchanged"});
    EXPECT_TRUE(trace.ofKind("param").empty());  // 2x playback, but no fast-forward tracking
    EXPECT_THAT(texts(trace, "log"), Contains("D/TavroCCodec: lowmem disable vpp"));
    EXPECT_THAT(texts(trace, "log"),
                Contains("D/TavroCCodec: getSystemAvailMem, MemAvailable:524288"));
}

TEST(TavroScenariosTest, WorkResultsReachAnalysisAndEventUpload) {
    const TavroTrace trace = play("work-results.json");
    const int stutter = indexOf(trace, "analysis", "setVppStutter info=stutter 42ms");
    ASSERT_GE(stutter, 0);
    EXPECT_GE(
            indexOf(trace, "pelto", "setEvent name=pelto_event_video_wechat_sr value=on", stutter),
            0);
    // Two dropped frames open the corrupt-data span (each reports it), the next frame closes it.
    const int start = indexOf(trace, "analysis", "setDataCorruptState state=START");
    ASSERT_GE(start, 0);
    EXPECT_EQ(trace.entries()[start].repeat, 1);
    const int again = indexOf(trace, "analysis", "setDataCorruptState state=START", start + 1);
    ASSERT_GT(again, start);
    EXPECT_GT(indexOf(trace, "analysis", "setDataCorruptState state=STOP", again), again);
    // HDR Vivid dynamic metadata on the first output.
    EXPECT_THAT(texts(trace, "feedback"),
                Contains("sendFeedbackHdrPlaybackInfo id=codec eventId=21004 hdrType=4"));
}

TEST(TavroScenariosTest, NothingHappensAndTheUnusedSectionSaysWhy) {
    const TavroTrace trace = play("nothing-happens.json");
    EXPECT_TRUE(trace.ofKind("boost").empty());
    EXPECT_EQ(texts(trace, "unused"),
              (Lines{"list media-sched-boost: entry by activity com.tavro.video/.PlayerActivity "
                     "never asked; asked by uid 10123",
                     "list venc-cpu-boost: entry by uid 10123 never asked; the list was never "
                     "asked",
                     "property ro.tavro.vpplist.odm.values: set, never read"}));
    const std::vector<TavroTraceEntry> unused = trace.ofKind("unused");
    ASSERT_EQ(unused.size(), 3u);
    EXPECT_EQ(unused[0].fields, nlohmann::ordered_json::parse(R"({"what": "list_entry",
        "list": "media-sched-boost", "key": "activity", "id": "com.tavro.video/.PlayerActivity",
        "asked": [{"key": "uid", "id": 10123}]})"));
    // After everything the library did.
    EXPECT_EQ(trace.entries().back().kind, "unused");
}

}  // namespace
}  // namespace android
