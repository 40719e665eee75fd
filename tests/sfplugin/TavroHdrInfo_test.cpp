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
    // clang-format off
    const Case kCases[] = {
        {"nibble, byte across the boundary, nibble", {0xAB, 0xCD}, 2, 0, 7,
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
    // clang-format on
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
        EXPECT_EQ(type, c.vivid ? kHdrTypeHdrVivid : kHdrTypeHdr10Plus);
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
            {"other primaries + HLG is HLG", 9, 7, -1, 0, 2},
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

// One info record of an output buffer: 'S' SDR, 'H' HDR10 and 'L' HLG colour aspects; 'P' HDR10+,
// 'E' empty and 'V' HDR Vivid dynamic metadata.
std::shared_ptr<C2Info> infoRecord(char kind) {
    const uint32_t aspectsIndex = kColorAspectsInfoIndex;
    if (kind == 'S') return host::makeC2Info(aspectsIndex, aspects(1, 1, 3, 1));
    if (kind == 'H') return host::makeC2Info(aspectsIndex, aspects(1, 6, 6, 9));
    if (kind == 'L') return host::makeC2Info(aspectsIndex, aspects(1, 9, 7, 9));
    if (kind == 'P') return host::makeC2Info(kHdr10PlusInfoIndex, {0xB5, 0x00, 0x3C, 0x00, 0x01});
    if (kind == 'E') return host::makeC2Info(kHdr10PlusInfoIndex, {});
    if (kind == 'V') return host::makeC2Info(kHdr10PlusInfoIndex, kVividPayload);
    ADD_FAILURE() << "unknown record " << kind;
    return nullptr;
}

// One list handed to onWorkDone: "empty" (no work), "null" (a null work), or one work whose
// output is "nobuf" (no buffer), "nullbuf" (a null buffer) or one buffer with the records named.
std::list<std::unique_ptr<C2Work>> workList(const std::string& step) {
    std::list<std::unique_ptr<C2Work>> list;
    if (step == "empty") return list;
    if (step == "null") {
        list.push_back(nullptr);
        return list;
    }
    auto worklet = std::make_unique<C2Worklet>();
    if (step == "nullbuf") {
        worklet->output.buffers.push_back(nullptr);
    } else if (step != "nobuf") {
        auto buffer = std::make_shared<C2Buffer>();
        for (char kind : step) buffer->setInfo(infoRecord(kind));
        worklet->output.buffers.push_back(buffer);
    }
    list.push_back(std::make_unique<C2Work>());
    list.front()->worklets.push_back(std::move(worklet));
    return list;
}

enum Stream { kHevc, kDolbyVision, kThumbnail, kEncoder, kAudio };

// Plays a codec of `stream` through configure, hands it one list per step of `plan`, destroys it
// and returns the HDR types the playback feedback received.
std::vector<std::string> playAndCollectHdrTypes(Stream stream,
                                                const std::vector<std::string>& plan) {
    test::resetHostWorld();
    const char* const kComponents[] = {"c2.qti.hevc.decoder", "c2.qti.dv.decoder",
                                       "c2.qti.hevc.decoder", "c2.qti.hevc.encoder",
                                       "c2.android.aac.decoder"};
    sp<AMessage> format = makeFormat(stream == kDolbyVision ? "video/dolby-vision"
                                     : stream == kAudio     ? "audio/mp4a-latm"
                                                            : "video/hevc");
    if (stream == kThumbnail) format->setInt32("thumbnail-mode", 1);
    if (stream == kEncoder) format->setInt32("encoder", 1);
    format->setInt64("feedbackKey", 4242);
    auto h = std::make_unique<CodecHarness>();
    h->allocate(kComponents[stream]);
    h->configure(format);
    for (const std::string& step : plan) {
        std::list<std::unique_ptr<C2Work>> list = workList(step);
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

TEST(CodecHdrTest, FirstOutputWorksGiveTheType) {
    struct Case {
        const char* name;
        Stream stream;
        std::vector<std::string> plan;
        std::vector<std::string> feedback;
    };
    // clang-format off
    const Case kCases[] = {
        {"HDR10", kHevc, {"H"}, {"1"}},
        {"SDR", kHevc, {"S"}, {}},
        {"no info", kHevc, {""}, {}},
        {"empty dynamic metadata counts as HDR10+", kHevc, {"E"}, {"3"}},
        // Dynamic metadata overrides the static answer.
        {"HDR10 with HDR Vivid", kHevc, {"HV"}, {"4"}},
        {"HLG with HDR10+", kHevc, {"LP"}, {"3"}},
        // At most two output works with buffers are examined.
        {"HLG on the second work", kHevc, {"S", "L"}, {"2"}},
        {"HLG on the third work is too late", kHevc, {"S", "S", "L"}, {}},
        {"works without buffers do not count", kHevc, {"nobuf", "nobuf", "S", "nobuf", "L"}, {"2"}},
        {"the first type found stays", kHevc, {"L", "S"}, {"2"}},
        // The null buffer uses up one of the two looks; the next work is still examined.
        {"empty or malformed lists are skipped", kHevc, {"empty", "null", "nullbuf", "L"}, {"2"}},
        // Dolby Vision is known from configure and reported as such; buffers cannot change it.
        {"dolby vision", kDolbyVision, {"V"}, {"5"}},
        {"thumbnail", kThumbnail, {"V"}, {}},
        {"encoder", kEncoder, {"V"}, {}},
        {"audio", kAudio, {"V"}, {}},
    };
    // clang-format on
    for (const Case& c : kCases) {
        SCOPED_TRACE(c.name);
        EXPECT_EQ(playAndCollectHdrTypes(c.stream, c.plan), c.feedback);
    }
}

}  // namespace
}  // namespace android
