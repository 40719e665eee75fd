// HDR info blobs: the MSB-first bit reader over any bytes and any read widths, the colour-aspects
// and dynamic-metadata classifiers over records whose size fields may lie, the channel's HDR Vivid
// header test, and the codec's HDR check over output works carrying such records.

#include <list>
#include <memory>
#include <vector>

#include <C2Buffer.h>
#include <C2Work.h>
#include <media/stagefright/foundation/AMessage.h>
#include <tavro/TavroAnalysisFPS.h>

#include "FuzzCodec2.h"
#include "FuzzWorld.h"
#include "sfplugin/TavroCCodec.h"
#include "sfplugin/TavroCCodecBufferChannel.h"
#include "sfplugin/TavroCCodecConfigure.h"
#include "sfplugin/TavroHdrInfo.h"

using namespace android;

namespace {

constexpr uint32_t kKnownIndices[] = {kColorAspectsInfoIndex, kHdr10PlusInfoIndex};

void readBits(FuzzedDataProvider& fdp) {
    const int reads = fdp.ConsumeIntegralInRange<int>(0, 12);
    std::vector<uint32_t> widths;
    for (int i = 0; i < reads; ++i) widths.push_back(fdp.ConsumeIntegralInRange<uint32_t>(0, 40));
    uint32_t bitPos = fdp.ConsumeIntegralInRange<uint32_t>(0, 15);
    const fuzz::ExactBytes bytes = fuzz::consumeExactBytes(fdp, 64);
    uint32_t length = bytes.size;
    uint32_t bytePos = 0;
    for (uint32_t nbits : widths) {
        (void)getValueFromByteArray(bytes.data.get(), &length, &bytePos, &bitPos, nbits);
        fuzz::check(bytes.size == 0 || bytePos <= length, "byte position past the data");
        // A read of at least one bit normalises the position; a read of none leaves it alone.
        fuzz::check(bytes.size == 0 || nbits == 0 || bitPos <= 7, "bit position above 7");
    }
}

void classify(FuzzedDataProvider& fdp) {
    std::shared_ptr<C2Info> aspects = fuzz::consumeInfo(fdp, kColorAspectsInfoIndex, 24);
    std::shared_ptr<C2Info> dynamic = fuzz::consumeInfo(fdp, kHdr10PlusInfoIndex, 32);
    int32_t type = fdp.ConsumeIntegralInRange<int32_t>(0, 5);
    const int32_t before = type;
    checkColorAspectsInfo(aspects, &type);
    fuzz::check(type == before || type == kHdrTypeHdr10 || type == kHdrTypeHlg,
                "aspects gave a kind");
    const bool vivid = isHDRVivid(dynamic);
    checkHdr10PlusInfo(dynamic, &type);
    fuzz::check(type == (vivid ? kHdrTypeHdrVivid : kHdrTypeHdr10Plus), "dynamic metadata kind");
    checkColorAspectsInfo(nullptr, &type);
    checkHdr10PlusInfo(dynamic, nullptr);
}

void channelHeader(FuzzedDataProvider& fdp) {
    const fuzz::ExactBytes bytes = fuzz::consumeExactBytes(fdp, 16);
    TavroCCodecBufferChannel channel(nullptr, nullptr, nullptr);
    const int32_t kind =
            channel.parserDynamicMetaData(bytes.data.get(), static_cast<int32_t>(bytes.size));
    fuzz::check(kind == 0 || kind == static_cast<int32_t>(kChannelHdrVivid), "header kind");
}

// A decoder codec (configured without a looper: only its members matter here) and up to three
// output works whose first buffer carries fuzzed records.
void codecCheck(FuzzedDataProvider& fdp) {
    sp<TavroCCodec> codec = new TavroCCodec();
    sp<AMessage> format = new AMessage();
    format->setString(kKeyMime, fdp.ConsumeBool() ? "video/hevc" : "video/dolby-vision");
    if (fdp.ConsumeBool()) format->setInt32(kKeyThumbnailMode, 1);
    codec->initiateConfigureComponent(format);

    const int works = fdp.ConsumeIntegralInRange<int>(1, 3);
    for (int w = 0; w < works; ++w) {
        std::list<std::unique_ptr<C2Work>> list;
        auto work = std::make_unique<C2Work>();
        auto worklet = std::make_unique<C2Worklet>();
        fuzz::consumeSome(fdp, 2, worklet->output.buffers, [&fdp] {
            auto buffer = std::make_shared<C2Buffer>();
            for (int i = fdp.ConsumeIntegralInRange<int>(0, 3); i > 0; --i) {
                buffer->setInfo(fuzz::consumeInfo(fdp, fuzz::consumeIndex(fdp, kKnownIndices), 32));
            }
            return buffer;
        });
        work->worklets.push_back(std::move(worklet));
        list.push_back(std::move(work));
        codec->onWorkDone(list);
    }
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    fuzz::initFuzzWorld();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    FuzzedDataProvider fdp(data, size);
    const fuzz::FuzzInput input(fdp, false);
    readBits(fdp);
    classify(fdp);
    channelHeader(fdp);
    codecCheck(fdp);
    return 0;
}
