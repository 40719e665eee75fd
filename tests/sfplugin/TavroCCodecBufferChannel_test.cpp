// The buffer channel's hooks: first-time stamps, input delay and scan-type writes, the
// corrupt-data span, the work-result scan, the maker operations and the HDR bit set.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include <C2Work.h>
#include <host/HostC2.h>

#include "sfplugin/ClipGenerator.h"
#include "support/CodecTestHarness.h"

namespace android {
namespace test {
namespace {

constexpr int64_t kClockStartNs = host::HostClock::kDefaultManualStartNs;

std::vector<uint8_t> textBytes(const std::string& text, bool terminate = true) {
    std::vector<uint8_t> bytes(text.begin(), text.end());
    if (terminate) bytes.push_back(0);
    return bytes;
}

std::vector<uint8_t> int32Bytes(int32_t value) {
    std::vector<uint8_t> bytes(4);
    for (size_t b = 0; b < 4; ++b)
        bytes[b] = static_cast<uint8_t>(static_cast<uint32_t>(value) >> (8 * b));
    return bytes;
}

std::vector<std::string> fieldValues(const std::vector<host::HostEvent>& events,
                                     const std::string& key) {
    std::vector<std::string> out;
    for (const auto& e : events) out.push_back(e.field(key));
    return out;
}

class BufferChannelTest : public ::testing::Test {
  protected:
    ChannelRig rig;
};

// ---- Input ---------------------------------------------------------------------------------

TEST_F(BufferChannelTest, FirstInputIsStampedOnceAndWritesTheInputDelay) {
    struct Case {
        const char* name;
        int32_t vppWhiteListValue;
        size_t expectedWrites;
    };
    const Case kCases[] = {{"no white-list value", 0, 0}, {"white-list value 3", 3, 1}};
    for (const Case& c : kCases) {
        SCOPED_TRACE(c.name);
        ChannelRig local;
        local.channel->cheekFFModeStatus(false, c.vppWhiteListValue);
        local.channel->setInputDelayForTesting(4);
        host::HostClock::advance(1234);
        EXPECT_EQ(local.channel->queueInputBuffer(makeFrame(-1, 100)), OK);
        host::HostClock::advance(1000);
        EXPECT_EQ(local.channel->queueInputBuffer(makeFrame(-1, 50)), OK);

        auto stamps = local.analysisEvents("updateParameters");
        ASSERT_EQ(stamps.size(), 1u);
        ASSERT_EQ(stamps[0].fields.size(), 1u);
        EXPECT_EQ(stamps[0].fields[0].first, kKeyFirstInputTime);
        EXPECT_EQ(stamps[0].fields[0].second, std::to_string(kClockStartNs + 1234));

        const auto written = local.channel->writtenParamsForTesting();
        ASSERT_EQ(written.size(), c.expectedWrites);
        if (c.expectedWrites == 1) {
            EXPECT_EQ(written[0], (std::vector<std::vector<uint8_t>>{
                                          {0x0C, 0, 0, 0, 0x05, 0x86, 0x00, 0xC0, 4, 0, 0, 0}}));
        }
        const auto counters = local.analysis->countersForTesting();
        EXPECT_EQ(counters.bufferBytes, 150);
        EXPECT_EQ(counters.inputBuffers, 2);
        EXPECT_EQ(local.tavroCallback->queued, 2);
        EXPECT_EQ(local.channel->countersForTesting().queued, 2u);
    }
}

TEST_F(BufferChannelTest, FailedQueueStopsAfterThePlatformCall) {
    rig.channel->cheekFFModeStatus(false, 1);
    rig.analysis->setNeedCheckScanTypeForTesting(1);
    rig.analysis->setScanTypeSettlesAfterForTesting(1);
    rig.channel->setQueueStatusForTesting(INVALID_OPERATION);
    EXPECT_EQ(rig.channel->queueInputBuffer(makeFrame(-1, 64)), INVALID_OPERATION);

    const auto counters = rig.analysis->countersForTesting();
    EXPECT_EQ(counters.bufferBytes, 64);  // counted before the platform call
    EXPECT_EQ(counters.inputBuffers, 0);
    EXPECT_EQ(counters.scanProbes, 0);
    EXPECT_EQ(rig.tavroCallback->queued, 1);
    EXPECT_EQ(rig.analysisEvents("updateParameters").size(), 1u);  // the first-input stamp
    // Only the input delay went out (value 0 here); no scan-type write.
    const auto writes = rig.writes();
    ASSERT_EQ(writes.size(), 1u);
    EXPECT_EQ(writes[0][0].index, kVppInputDelayParamIndex);
}

TEST_F(BufferChannelTest, ScanTypeProbeRunsUntilSettled) {
    struct Case {
        const char* name;
        int32_t needCheck;
        int32_t settleAfter;
        int32_t scanType;
        int64_t expectedProbes;
        size_t expectedModeWrites;
    };
    const Case kCases[] = {
            {"not wanted", 0, 1, 0, 0, 0},
            {"settles progressive on the 2nd probe", 1, 2, 0, 2, 1},
            {"settles interlaced: nothing to force", 1, 2, 1, 2, 0},
            {"never settles", 1, 0, 0, 5, 0},
    };
    for (const Case& c : kCases) {
        SCOPED_TRACE(c.name);
        ChannelRig local;
        ChannelRig::setLogLevel("6");
        local.analysis->setNeedCheckScanTypeForTesting(c.needCheck);
        local.analysis->setScanTypeSettlesAfterForTesting(c.settleAfter);
        local.analysis->setVideoScanTypeForTesting(c.scanType);
        for (int i = 0; i < 5; ++i) {
            EXPECT_EQ(local.channel->queueInputBuffer(makeFrame()), OK);
        }
        EXPECT_EQ(local.analysis->countersForTesting().scanProbes, c.expectedProbes);
        EXPECT_EQ(local.analysis->countersForTesting().inputBuffers, 5);
        const auto writes = local.writes();
        ASSERT_EQ(writes.size(), c.expectedModeWrites);
        if (c.expectedModeWrites == 1) {
            ASSERT_EQ(writes[0].size(), 1u);
            EXPECT_EQ(writes[0][0].size, 12u);
            EXPECT_EQ(writes[0][0].index, kVppModeParamIndex);
            EXPECT_EQ(writes[0][0].value, 1u);
        }
        const std::string line = "mVideoScanType is: " + std::to_string(c.scanType);
        EXPECT_EQ(host::HostLog::count(line), static_cast<size_t>(c.expectedProbes));
    }
}

TEST_F(BufferChannelTest, SecureQueueNeitherProbesNorWrites) {
    rig.channel->cheekFFModeStatus(false, 5);
    rig.analysis->setNeedCheckScanTypeForTesting(1);
    rig.analysis->setScanTypeSettlesAfterForTesting(1);
    AString error;
    for (int i = 0; i < 3; ++i) {
        EXPECT_EQ(rig.channel->queueSecureInputBuffer(makeFrame(-1, 10), true, nullptr, nullptr,
                                                      CryptoPlugin::kMode_AES_CTR,
                                                      CryptoPlugin::Pattern(), nullptr, 0, &error),
                  OK);
    }
    EXPECT_TRUE(rig.writes().empty());
    EXPECT_EQ(rig.analysis->countersForTesting().scanProbes, 0);
    EXPECT_EQ(rig.analysis->countersForTesting().inputBuffers, 3);
    EXPECT_EQ(rig.analysis->countersForTesting().bufferBytes, 30);
    EXPECT_EQ(rig.channel->countersForTesting().secureQueued, 3u);
    EXPECT_EQ(rig.analysisEvents("updateParameters").size(), 1u);

    rig.channel->setQueueStatusForTesting(UNKNOWN_ERROR);
    EXPECT_EQ(rig.channel->queueSecureInputBuffer(makeFrame(), false, nullptr, nullptr,
                                                  CryptoPlugin::kMode_Unencrypted,
                                                  CryptoPlugin::Pattern(), nullptr, 0, &error),
              UNKNOWN_ERROR);
    EXPECT_EQ(rig.analysis->countersForTesting().inputBuffers, 3);
}

// ---- Output --------------------------------------------------------------------------------

TEST_F(BufferChannelTest, OutputHooksReportAndForwardThePlatformStatus) {
    ChannelRig::setLogLevel("6");
    // The first render is reported even when the platform fails it.
    rig.channel->setRenderStatusForTesting(INVALID_OPERATION);
    host::HostClock::advance(77);
    EXPECT_EQ(rig.channel->renderOutputBuffer(makeFrame(0), 42), INVALID_OPERATION);
    rig.channel->setRenderStatusForTesting(OK);
    EXPECT_EQ(rig.channel->renderOutputBuffer(makeFrame(33333), 43), OK);
    EXPECT_EQ(fieldValues(rig.analysisEvents("reportFirstFrameTime"), "timeNs"),
              (std::vector<std::string>{std::to_string(kClockStartNs + 77)}));
    EXPECT_EQ(rig.tavroCallback->renderTimestamps, (std::vector<int64_t>{42, 43}));
    EXPECT_EQ(rig.analysis->countersForTesting().renderedBuffers, 2);
    EXPECT_EQ(rig.channel->countersForTesting().rendered, 2u);

    rig.channel->setDiscardStatusForTesting(BAD_VALUE);
    EXPECT_EQ(rig.channel->discardBuffer(makeFrame(1)), BAD_VALUE);
    EXPECT_EQ(rig.analysis->countersForTesting().discardedBuffers, 1);
    rig.channel->flush({});
    EXPECT_EQ(rig.channel->countersForTesting().discarded, 1u);
    EXPECT_EQ(rig.channel->countersForTesting().flushes, 1u);
    EXPECT_EQ(host::HostLog::count("flush", "TavroCCodecBufferChannel"), 1u);
}

TEST_F(BufferChannelTest, WorkDoneCountsOutputs) {
    struct Case {
        const char* name;
        std::unique_ptr<C2Work> (*make)();
        int64_t outputs;
    };
    const Case kCases[] = {
            {"plain", [] { return makeWork(0); }, 1},
            {"drop frame", [] { return makeWork(kWorkFlagDropFrame); }, 1},
            {"discard frame", [] { return makeWork(kWorkFlagDiscardFrame); }, 0},
            {"discard and drop", [] { return makeWork(kWorkFlagDiscardFrame | 1); }, 1},
            {"incomplete", [] { return makeWork(kWorkFlagIncomplete); }, 1},
            {"negative frame index", [] { return makeWork(0, -1); }, 0},
            {"no worklet", [] { return std::make_unique<C2Work>(); }, 0},
            {"null worklet",
             [] {
                 auto work = std::make_unique<C2Work>();
                 work->worklets.push_back(nullptr);
                 return work;
             },
             0},
            {"null work", [] { return std::unique_ptr<C2Work>(); }, 0},
    };
    for (const Case& c : kCases) {
        SCOPED_TRACE(c.name);
        ChannelRig local;
        local.channel->setFeedbackId(9);
        sp<AMessage> format = new AMessage();
        local.channel->onWorkDone(c.make(), format, nullptr);
        EXPECT_EQ(local.analysis->countersForTesting().outputBuffers, c.outputs);
        EXPECT_EQ(local.tavroCallback->worksDone, 1);
        EXPECT_EQ(local.tavroCallback->lastOutputFormat, format);
        EXPECT_EQ(local.channel->countersForTesting().worksDone, 1u);
    }
}

TEST_F(BufferChannelTest, FirstOutputSkipsIncompleteWorks) {
    host::HostClock::advance(5);
    rig.channel->onWorkDone(std::make_unique<C2Work>(), nullptr, nullptr);
    rig.channel->onWorkDone(makeWork(kWorkFlagIncomplete), nullptr, nullptr);
    EXPECT_TRUE(rig.analysisEvents("updateParameters").empty());
    host::HostClock::advance(5);
    rig.channel->onWorkDone(makeWork(kWorkFlagIncomplete | kWorkFlagDropFrame), nullptr, nullptr);
    host::HostClock::advance(5);
    rig.channel->onWorkDone(makeWork(0), nullptr, nullptr);
    auto stamps = rig.analysisEvents("updateParameters");
    ASSERT_EQ(stamps.size(), 1u);
    EXPECT_EQ(stamps[0].fields,
              (std::vector<std::pair<std::string, std::string>>{
                      {kKeyFirstOutputTime, std::to_string(kClockStartNs + 10)}}));
}

TEST_F(BufferChannelTest, CorruptSpanFollowsDroppedFrames) {
    struct Step {
        uint32_t flags;
        int64_t inFrameIndex;
        bool stopping;
    };
    struct Case {
        const char* name;
        int64_t feedbackId;
        std::vector<Step> steps;
        std::vector<std::string> states;
    };
    // clang-format off
    const Case kCases[] = {
        {"no feedback id", 0, {{1, 1, false}, {0, 1, false}}, {}},
        // Each dropped frame reports a start; the first clean work closes the span.
        {"drop, drop, clean, clean", 5,
         {{1, 1, false}, {1, 2, false}, {0, 3, false}, {0, 4, false}}, {"START", "START", "STOP"}},
        {"stopping channel closes instead", 5, {{1, 1, false}, {1, 2, true}}, {"START", "STOP"}},
        {"negative input index", 5, {{1, -1, false}, {0, 1, false}}, {}},
        {"other flags do not start", 5, {{kWorkFlagIncomplete | 2, 1, false}}, {}},
    };
    // clang-format on
    for (const Case& c : kCases) {
        SCOPED_TRACE(c.name);
        ChannelRig local;
        local.channel->setFeedbackId(c.feedbackId);
        for (const Step& s : c.steps) {
            local.channel->setStoppingForTesting(s.stopping);
            local.channel->onWorkDone(makeWork(s.flags, 1, s.inFrameIndex), nullptr, nullptr);
        }
        EXPECT_EQ(fieldValues(local.analysisEvents("setDataCorruptState"), "state"), c.states);
        size_t starts = 0;
        for (const auto& s : c.states) starts += s == "START";
        EXPECT_EQ(host::HostLog::count(kLogDataCorruptStart, "TavroCCodecBufferChannel"), starts);
        EXPECT_EQ(host::HostLog::count(kLogDataCorruptStop, "TavroCCodecBufferChannel"),
                  c.states.size() - starts);
    }
}

// ---- Work results --------------------------------------------------------------------------

struct Record {
    uint32_t index;
    std::vector<uint8_t> payload;
    int64_t sizeField = -1;  // -1: 8 + payload size
};

TEST_F(BufferChannelTest, WorkResultScanActsOnTheFirstMatchOnly) {
    const Record kSrOn{kSrStatusInfoIndex, int32Bytes(1)};
    struct Case {
        const char* name;
        std::vector<Record> records;
        bool withNull;
        std::vector<std::string> stutter;  // setVppStutter texts
        size_t srEvents;
    };
    const std::vector<uint8_t> on = int32Bytes(1);
    // clang-format off
    const Case kCases[] = {
        {"stutter text", {{kVppStutterInfoIndex, textBytes("jank:3")}, kSrOn}, false, {"jank:3"},
         0},
        // A stream-flagged stutter record is a candidate, but the stream flag survives the kind
        // mask: it ends the scan without being acted on.
        {"stutter on stream 1 ends the scan", {{0xA2118602, textBytes("s1")}, kSrOn}, false, {}, 0},
        {"super resolution on stream 1", {{0xC2108604, on}}, false, {}, 0},
        {"stream id without the stream flag is skipped", {{0xA0118602, textBytes("x")}, kSrOn},
         false, {}, 1},
        {"stream id above 0x01E00000 is skipped", {{0xA3F18602, textBytes("x")}, kSrOn}, false, {},
         1},
        {"stutter of size 4 ends the scan", {{kVppStutterInfoIndex, textBytes("abc"), 4}, kSrOn},
         false, {}, 0},
        // The text ends at its terminator or at the record's end, whichever comes first.
        {"stutter without terminator ends at the record's end",
         {{kVppStutterInfoIndex, textBytes("abcd"), 12}, kSrOn}, false, {"abcd"}, 0},
        {"stutter terminated inside the record",
         {{kVppStutterInfoIndex, textBytes(std::string("ab\0cd", 5))}},
         false, {"ab"}, 0},
        {"stutter of size 8 has an empty text", {{kVppStutterInfoIndex, {}, 8}, kSrOn}, false,
         {""}, 0},
        {"stutter of size 0 is no match", {{kVppStutterInfoIndex, {}, 0}, kSrOn}, false, {}, 1},
        {"undefined direction is no match", {{0xB0018602, textBytes("x")}, kSrOn}, false, {}, 1},
        {"other stutter kind ends the scan", {{0x80018602, textBytes("x")}, kSrOn}, false, {}, 0},
        {"super resolution on", {kSrOn}, false, {}, 1},
        {"super resolution on, output direction", {{0xD0008604, int32Bytes(2)}}, false, {}, 1},
        {"super resolution global is ignored",
         {{0xE0008604, on}, {kVppStutterInfoIndex, textBytes("y")}}, false, {}, 0},
        {"super resolution off", {{kSrStatusInfoIndex, int32Bytes(0)}}, false, {}, 0},
        {"super resolution of size 11", {{kSrStatusInfoIndex, on, 11}}, false, {}, 0},
        {"null entries are skipped", {kSrOn}, true, {}, 1},
        {"unrelated records are skipped", {{0xC0008605, on}, {0x12345678, {}}, kSrOn}, false, {},
         1},
    };
    // clang-format on
    for (const Case& c : kCases) {
        SCOPED_TRACE(c.name);
        ChannelRig local;
        auto work = makeWork(0);
        auto& updates = work->worklets.front()->output.configUpdate;
        if (c.withNull) updates.push_back(nullptr);
        for (const Record& r : c.records) {
            updates.push_back(r.sizeField < 0
                                      ? host::makeC2Param(r.index, r.payload)
                                      : host::makeC2Param(r.index, r.payload,
                                                          static_cast<uint32_t>(r.sizeField)));
        }
        local.channel->onWorkDone(std::move(work), nullptr, nullptr);
        EXPECT_EQ(fieldValues(local.analysisEvents("setVppStutter"), "info"), c.stutter);
        auto pelto = host::HostEvents::named("pelto", "setEvent");
        ASSERT_EQ(pelto.size(), c.srEvents);
        for (const auto& e : pelto) {
            EXPECT_EQ(e.field("name"), kPeltoEventWechatSr);
            EXPECT_EQ(e.field("value"), kPeltoEventOn);
        }
        EXPECT_EQ(host::HostLog::count(kLogSetWechatSr), c.srEvents);
        for (const auto& text : c.stutter) {
            EXPECT_EQ(host::HostLog::count("[onWorkDone:L464] C2VppStutterInfo:" + text), 1u);
        }
    }
}

// ---- Maker operations --------------------------------------------------------------------------

TEST_F(BufferChannelTest, MakerOperations) {
    ChannelRig::setLogLevel("6");
    rig.channel->cheekFFModeStatus(true, 7);
    EXPECT_EQ(
            host::HostLog::count("[cheekFFModeStatus:L416] bFFModeStatus:1, iVppWhiteListValue:7"),
            1u);

    rig.channel->setInputMetEos(true);
    EXPECT_EQ(fieldValues(rig.analysisEvents("setInputMetEos"), "eos"),
              (std::vector<std::string>{"1"}));

    sp<AMessage> feedback = new AMessage();
    feedback->setInt32("video-feedback", 3);
    EXPECT_EQ(rig.channel->sendFeedbackInfo(feedback), OK);
    EXPECT_EQ(fieldValues(rig.analysisEvents("updateParameters"), "video-feedback"),
              (std::vector<std::string>{"3"}));
    // The analysis object's own answer comes back as it is.
    EXPECT_EQ(rig.channel->sendFeedbackInfo(nullptr), BAD_VALUE);
}

TEST_F(BufferChannelTest, WithoutAnalysisOrCallbackOnlyThePlatformIsReached) {
    auto channel = std::make_shared<TavroCCodecBufferChannel>(rig.baseCallback, nullptr, nullptr);
    channel->cheekFFModeStatus(true, 1);
    channel->setFeedbackId(3);
    EXPECT_EQ(channel->queueInputBuffer(makeFrame()), OK);
    EXPECT_EQ(channel->renderOutputBuffer(makeFrame(1000), 1), OK);
    EXPECT_EQ(channel->discardBuffer(makeFrame(2000)), OK);
    channel->onWorkDone(makeWork(1), nullptr, nullptr);
    channel->setHdrType(4);
    channel->setInputMetEos(true);
    EXPECT_EQ(channel->sendFeedbackInfo(new AMessage()), NO_INIT);
    const auto counters = channel->countersForTesting();
    EXPECT_EQ(counters.queued, 1u);
    EXPECT_EQ(counters.rendered, 1u);
    EXPECT_EQ(counters.discarded, 1u);
    EXPECT_EQ(counters.worksDone, 1u);
    // The input delay (white-list value 1) still reaches the component.
    EXPECT_EQ(channel->writtenParamsForTesting().size(), 1u);
    EXPECT_EQ(host::HostLog::count(kLogDataCorruptStart), 1u);
}

TEST_F(BufferChannelTest, HdrTypeAccumulatesAndLogsChanges) {
    struct Case {
        const char* name;
        std::vector<int32_t> types;
        std::vector<std::string> logs;
        std::vector<std::string> forwarded;
    };
    // clang-format off
    const Case kCases[] = {
        {"zero on a fresh channel", {0}, {}, {}},
        {"HDR10+ then Vivid", {4, 16}, {"HdrType Hdr10+ 4", "HdrType HdrVivid 16"}, {"4", "16"}},
        {"Vivid stays Vivid", {16, 4}, {"HdrType HdrVivid 16", "HdrType HdrVivid 4"}, {"16", "4"}},
        {"repeat is no change", {1, 1, 0}, {"HdrType HDR10 or HLG 1"}, {"1"}},
        {"HDR10 then HLG", {1, 2}, {"HdrType HDR10 or HLG 1", "HdrType HDR10 or HLG 2"},
         {"1", "2"}},
    };
    // clang-format on
    for (const Case& c : kCases) {
        SCOPED_TRACE(c.name);
        ChannelRig local;
        for (int32_t type : c.types) local.channel->setHdrType(type);
        std::vector<std::string> logs;
        for (const auto& r : host::HostLog::find("HdrType ", "TavroCCodecBufferChannel")) {
            EXPECT_EQ(r.priority, ANDROID_LOG_DEBUG);
            logs.push_back(r.message);
        }
        EXPECT_EQ(logs, c.logs);
        EXPECT_EQ(fieldValues(local.analysisEvents("setHdrType"), "type"), c.forwarded);
        EXPECT_EQ(local.analysisEvents("setPlayingStatus").size(), c.forwarded.size());
    }
}

TEST_F(BufferChannelTest, DynamicMetaDataHeader) {
    const std::vector<uint8_t> kVivid = {0x26, 0x00, 0x04, 0x00, 0x05, 0x01, 0, 0, 0, 0};
    struct Case {
        const char* name;
        std::vector<uint8_t> bytes;
        int32_t size;
        bool nullData;
        int32_t expected;
    };
    std::vector<uint8_t> version2 = kVivid;
    version2[5] = 2;
    std::vector<uint8_t> otherProvider = kVivid;
    otherProvider[2] = 0x3C;
    const Case kCases[] = {
            {"HDR Vivid, 10 bytes", kVivid, 10, false, 16},
            {"HDR Vivid, 9 bytes", kVivid, 9, false, 0},
            {"version 2", version2, 10, false, 0},
            {"other provider", otherProvider, 10, false, 0},
            {"null data", kVivid, 10, true, 0},
            {"negative size", kVivid, -1, false, 0},
    };
    for (const Case& c : kCases) {
        SCOPED_TRACE(c.name);
        EXPECT_EQ(rig.channel->parserDynamicMetaData(c.nullData ? nullptr : c.bytes.data(), c.size),
                  c.expected);
    }
}

}  // namespace
}  // namespace test
}  // namespace android
