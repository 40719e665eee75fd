// HDR metadata readers (bit reader, HDR Vivid signature, colour aspects) and the codec's HDR
// check on its first output works, observed end to end through the playback feedback.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include <C2Buffer.h>
#include <C2Work.h>
#include <host/HostC2.h>
#include <host/HostEvents.h>

#include "sfplugin/TavroHdrInfo.h"
#include "support/CodecTestHarness.h"

namespace android {
namespace {

using test::CodecHarness;
using test::makeFormat;

// ---- Bit reader ------------------------------------------------------------------------------

struct Read {
    uint32_t nbits;
    uint32_t value;
    uint32_t bytePos, bitPos;  // after the read
};

TEST(TavroHdrInfoTest, BitReaderReadsMsbFirstAndStopsAtTheLength) {
    struct Case {
        const char* name;
        std::vector<uint8_t> data;
        uint32_t length;
        uint32_t startByte, startBit;
        std::vector<Read> reads;
    };
    const Case kCases[] = {
            {"nibble, byte across the boundary, nibble",
             {0xAB, 0xCD},
             2,
             0,
             7,
             {{4, 0xA, 0, 3}, {8, 0xBC, 1, 3}, {4, 0xD, 2, 7}, {8, 0, 2, 7}}},
            // The 4 bits left are returned as they are, not moved up to the top of 16.
            {"short read keeps the bits unshifted", {0x00, 0x5A}, 2, 1, 3, {{16, 0xA, 2, 7}}},
            {"32 bits from the last 3 bytes", {0x12, 0x34, 0x56}, 3, 0, 7, {{32, 0x123456, 3, 7}}},
            {"32 bits exactly", {0xDE, 0xAD, 0xBE, 0xEF}, 4, 0, 7, {{32, 0xDEADBEEF, 4, 7}}},
            {"nbits 0 reads nothing", {0xFF}, 1, 0, 7, {{0, 0, 0, 7}}},
            {"single bits", {0xA0}, 1, 0, 7, {{1, 1, 0, 6}, {1, 0, 0, 5}, {1, 1, 0, 4}}},
            {"length 0", {0xFF}, 0, 0, 7, {{8, 0, 0, 7}}},
            // Bytes after the declared length are never read.
            {"declared length shorter than the data", {0x12, 0x34}, 1, 0, 7, {{16, 0x12, 1, 7}}},
            {"bit position above 7 reads as 7", {0x81}, 1, 0, 40, {{8, 0x81, 1, 7}}},
    };
    for (const Case& c : kCases) {
        SCOPED_TRACE(c.name);
        uint32_t length = c.length;
        uint32_t bytePos = c.startByte;
        uint32_t bitPos = c.startBit;
        for (size_t i = 0; i < c.reads.size(); ++i) {
            SCOPED_TRACE(i);
            const Read& r = c.reads[i];
            EXPECT_EQ(getValueFromByteArray(c.data.data(), &length, &bytePos, &bitPos, r.nbits),
                      r.value);
            EXPECT_EQ(bytePos, r.bytePos);
            EXPECT_EQ(bitPos, r.bitPos);
        }
        EXPECT_EQ(length, c.length);
    }
}

TEST(TavroHdrInfoTest, BitReaderToleratesNullArguments) {
    const uint8_t data[] = {0xFF};
    uint32_t length = 1, bytePos = 0, bitPos = 7;
    EXPECT_EQ(getValueFromByteArray(nullptr, &length, &bytePos, &bitPos, 8), 0u);
    EXPECT_EQ(getValueFromByteArray(data, nullptr, &bytePos, &bitPos, 8), 0u);
    EXPECT_EQ(getValueFromByteArray(data, &length, nullptr, &bitPos, 8), 0u);
    EXPECT_EQ(getValueFromByteArray(data, &length, &bytePos, nullptr, 8), 0u);
    EXPECT_EQ(bytePos, 0u);
    EXPECT_EQ(bitPos, 7u);
}

// ---- Dynamic metadata and colour aspects ---------------------------------------------------

const std::vector<uint8_t> kVividPayload = {0x26, 0x00, 0x04, 0x00, 0x05, 0x01, 0x00};

TEST(TavroHdrInfoTest, DynamicMetadataClassification) {
    struct Case {
        const char* name;
        std::vector<uint8_t> payload;
        int64_t sizeField;  // -1: 8 + payload size
        bool vivid;
    };
    std::vector<Case> cases = {
            {"HDR Vivid", kVividPayload, -1, true},
            {"signature alone", {0x26, 0x00, 0x04, 0x00, 0x05}, -1, true},
            {"HDR10+ (country 0xB5, provider 0x3C)",
             {0xB5, 0x00, 0x3C, 0x00, 0x01, 0x04},
             -1,
             false},
            {"wrong provider-oriented code", {0x26, 0x00, 0x04, 0x00, 0x06}, -1, false},
            // The size field says 12: four payload bytes; the fifth (0x05) must not be read.
            {"size field cuts the signature", kVividPayload, 12, false},
            {"size field 0 with a payload behind it", kVividPayload, 0, false},
    };
    // Records of 0 to 7 bytes (size field as the whole record) carry no payload at all.
    for (uint32_t size = 0; size <= 7; ++size) {
        cases.push_back({"record shorter than its header", kVividPayload, size, false});
    }
    for (const Case& c : cases) {
        SCOPED_TRACE(std::string(c.name) + " size " + std::to_string(c.sizeField));
        auto info = c.sizeField < 0 ? host::makeC2Info(kHdr10PlusInfoIndex, c.payload)
                                    : host::makeC2Info(kHdr10PlusInfoIndex, c.payload,
                                                       static_cast<uint32_t>(c.sizeField));
        EXPECT_EQ(isHDRVivid(info), c.vivid);
        int32_t type = 0;
        checkHdr10PlusInfo(info, &type);
        EXPECT_EQ(type, c.vivid ? kHdrInfoHdrVivid : kHdrInfoHdr10Plus);
    }

    int32_t untouched = 7;
    checkHdr10PlusInfo(nullptr, &untouched);
    EXPECT_EQ(untouched, 7);
    EXPECT_FALSE(isHDRVivid(nullptr));
}

std::vector<uint8_t> aspects(uint32_t range, uint32_t primaries, uint32_t transfer,
                             uint32_t matrix) {
    std::vector<uint8_t> bytes;
    for (uint32_t v : {range, primaries, transfer, matrix}) {
        for (int b = 0; b < 4; ++b) bytes.push_back(static_cast<uint8_t>(v >> (8 * b)));
    }
    return bytes;
}

TEST(TavroHdrInfoTest, ColourAspectsRule) {
    struct Case {
        const char* name;
        uint32_t primaries, transfer;
        int64_t sizeField;
        int32_t before, after;
    };
    const Case kCases[] = {
            {"BT.2020 + PQ is HDR10", 6, 6, -1, 0, 1},
            {"BT.2020 + HLG is HLG", 6, 7, -1, 0, 2},
            {"BT.709 + HLG is HLG", 1, 7, -1, 0, 2},
            {"BT.709 + PQ is nothing", 1, 6, -1, 0, 0},
            {"BT.2020 + SDR transfer is nothing", 6, 3, -1, 0, 0},
            {"no match keeps the earlier value", 1, 1, -1, 3, 3},
            {"record shorter than its layout", 6, 6, 20, 0, 0},
    };
    for (const Case& c : kCases) {
        SCOPED_TRACE(c.name);
        auto payload = aspects(1, c.primaries, c.transfer, 9);
        auto info = c.sizeField < 0 ? host::makeC2Info(kColorAspectsInfoIndex, payload)
                                    : host::makeC2Info(kColorAspectsInfoIndex, payload,
                                                       static_cast<uint32_t>(c.sizeField));
        int32_t type = c.before;
        checkColorAspectsInfo(info, &type);
        EXPECT_EQ(type, c.after);
    }
}

// ---- The codec's check, seen in the playback feedback at destruction ----------------------

struct InfoRecord {
    uint32_t index;
    std::vector<uint8_t> payload;
};

std::unique_ptr<C2Work> outputWork(const std::vector<InfoRecord>& infos, bool withBuffer = true) {
    auto work = std::make_unique<C2Work>();
    auto worklet = std::make_unique<C2Worklet>();
    if (withBuffer) {
        auto buffer = std::make_shared<C2Buffer>();
        for (const InfoRecord& r : infos) buffer->setInfo(host::makeC2Info(r.index, r.payload));
        worklet->output.buffers.push_back(buffer);
    }
    work->worklets.push_back(std::move(worklet));
    return work;
}

class CodecHdrTest : public ::testing::Test {
  protected:
    void SetUp() override { test::resetHostWorld(); }

    // Plays a codec through configure, hands it `works` one list at a time, destroys it and
    // returns the HDR types the feedback received.
    std::vector<std::string> play(const sp<AMessage>& format, const char* component,
                                  std::vector<std::unique_ptr<C2Work>> works) {
        auto h = std::make_unique<CodecHarness>();
        h->allocate(component);
        format->setInt64("feedbackKey", 4242);
        h->configure(format);
        for (auto& work : works) {
            std::list<std::unique_ptr<C2Work>> list;
            list.push_back(std::move(work));
            h->codec()->onWorkDone(list);
        }
        host::HostEvents::clear();
        h->destroy();
        h.reset();
        std::vector<std::string> types;
        for (const auto& e : host::HostEvents::named("feedback", "sendFeedbackHdrPlaybackInfo")) {
            EXPECT_EQ(e.field("id"), "4242");
            EXPECT_EQ(e.field("eventId"), "21004");
            types.push_back(e.field("hdrType"));
        }
        return types;
    }
};

TEST_F(CodecHdrTest, InfoRecordsGiveTheType) {
    const InfoRecord kHdr10{kColorAspectsInfoIndex, aspects(1, 6, 6, 9)};
    const InfoRecord kHlg{kColorAspectsInfoIndex, aspects(1, 6, 7, 9)};
    const InfoRecord kSdr{kColorAspectsInfoIndex, aspects(1, 1, 3, 1)};
    const InfoRecord kVivid{kHdr10PlusInfoIndex, kVividPayload};
    const InfoRecord kPlus{kHdr10PlusInfoIndex, {0xB5, 0x00, 0x3C, 0x00, 0x01}};
    const InfoRecord kEmptyPlus{kHdr10PlusInfoIndex, {}};
    struct Case {
        const char* name;
        std::vector<InfoRecord> infos;
        std::vector<std::string> feedback;
    };
    const Case kCases[] = {
            {"HDR10", {kHdr10}, {"1"}},
            {"HLG", {kHlg}, {"2"}},
            {"SDR", {kSdr}, {}},
            {"no info", {}, {}},
            {"HDR10+", {kPlus}, {"3"}},
            {"empty dynamic metadata counts as HDR10+", {kEmptyPlus}, {"3"}},
            {"HDR Vivid", {kVivid}, {"4"}},
            // Dynamic metadata overrides the static answer.
            {"HDR10 with HDR Vivid", {kHdr10, kVivid}, {"4"}},
            {"HLG with HDR10+", {kHlg, kPlus}, {"3"}},
    };
    for (const Case& c : kCases) {
        SCOPED_TRACE(c.name);
        test::resetHostWorld();
        std::vector<std::unique_ptr<C2Work>> works;
        works.push_back(outputWork(c.infos));
        EXPECT_EQ(play(makeFormat("video/hevc"), "c2.qti.hevc.decoder", std::move(works)),
                  c.feedback);
    }
}

TEST_F(CodecHdrTest, AtMostTwoOutputWorksWithBuffersAreExamined) {
    const InfoRecord kHlg{kColorAspectsInfoIndex, aspects(1, 9, 7, 9)};
    const InfoRecord kSdr{kColorAspectsInfoIndex, aspects(1, 1, 3, 1)};
    struct Case {
        const char* name;
        std::vector<int> plan;  // 0: work without buffer, 1: SDR buffer, 2: HLG buffer
        std::vector<std::string> feedback;
    };
    const Case kCases[] = {
            {"HLG on the second work", {1, 2}, {"2"}},
            {"HLG on the third work is too late", {1, 1, 2}, {}},
            {"works without buffers do not count", {0, 0, 1, 0, 2}, {"2"}},
            {"the first type found stays", {2, 1}, {"2"}},
    };
    for (const Case& c : kCases) {
        SCOPED_TRACE(c.name);
        test::resetHostWorld();
        std::vector<std::unique_ptr<C2Work>> works;
        for (int step : c.plan) {
            works.push_back(step == 0   ? outputWork({}, false)
                            : step == 1 ? outputWork({kSdr})
                                        : outputWork({kHlg}));
        }
        EXPECT_EQ(play(makeFormat("video/hevc"), "c2.qti.hevc.decoder", std::move(works)),
                  c.feedback);
    }
}

TEST_F(CodecHdrTest, OnlyPlainVideoDecodersAreChecked) {
    const InfoRecord kVivid{kHdr10PlusInfoIndex, kVividPayload};
    sp<AMessage> thumbnail = makeFormat("video/hevc", {{"thumbnail-mode", 1}});
    struct Case {
        const char* name;
        sp<AMessage> format;
        const char* component;
        std::vector<std::string> feedback;
    };
    sp<AMessage> encoder = makeFormat("video/hevc");
    encoder->setInt32("encoder", 1);
    const Case kCases[] = {
            {"decoder", makeFormat("video/hevc"), "c2.qti.hevc.decoder", {"4"}},
            // Dolby Vision is known from configure and reported as such; buffers cannot change it.
            {"dolby vision", makeFormat("video/dolby-vision"), "c2.qti.dv.decoder", {"5"}},
            {"thumbnail", thumbnail, "c2.qti.hevc.decoder", {}},
            {"encoder", encoder, "c2.qti.hevc.encoder", {}},
            {"audio", makeFormat("audio/mp4a-latm"), "c2.android.aac.decoder", {}},
    };
    for (const Case& c : kCases) {
        SCOPED_TRACE(c.name);
        test::resetHostWorld();
        std::vector<std::unique_ptr<C2Work>> works;
        works.push_back(outputWork({kVivid}));
        EXPECT_EQ(play(c.format, c.component, std::move(works)), c.feedback);
    }
}

TEST_F(CodecHdrTest, EmptyOrMalformedWorkListsAreSkipped) {
    auto h = std::make_unique<CodecHarness>();
    h->allocate("c2.qti.hevc.decoder");
    sp<AMessage> format = makeFormat("video/hevc");
    format->setInt64("feedbackKey", 9);
    h->configure(format);
    std::list<std::unique_ptr<C2Work>> empty;
    h->codec()->onWorkDone(empty);
    std::list<std::unique_ptr<C2Work>> nullWork;
    nullWork.push_back(nullptr);
    h->codec()->onWorkDone(nullWork);
    std::list<std::unique_ptr<C2Work>> nullBuffer;
    nullBuffer.push_back(outputWork({}, false));
    nullBuffer.front()->worklets.front()->output.buffers.push_back(nullptr);
    h->codec()->onWorkDone(nullBuffer);
    // The null buffer used up one of the two looks; the next work is still examined.
    std::list<std::unique_ptr<C2Work>> hlg;
    hlg.push_back(outputWork({{kColorAspectsInfoIndex, aspects(1, 1, 7, 1)}}));
    h->codec()->onWorkDone(hlg);
    host::HostEvents::clear();
    h->destroy();
    h.reset();
    auto sent = host::HostEvents::named("feedback", "sendFeedbackHdrPlaybackInfo");
    ASSERT_EQ(sent.size(), 1u);
    EXPECT_EQ(sent[0].field("hdrType"), "2");
}

}  // namespace
}  // namespace android
