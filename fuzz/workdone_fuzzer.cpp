// A work's configUpdate records through the buffer channel's onWorkDone: stutter texts with or
// without their terminator, super-resolution statuses, records whose size field lies, null
// records and worklets, any output flags and frame indices, with a feedback id set or not and the
// channel stopping or not. Every work must reach the platform untouched in number.
#include <list>
#include <memory>

#include <C2Work.h>
#include <codec2/sfplugin/CCodecBufferChannel.h>
#include <codec2/sfplugin/TavroCCodecCallback.h>
#include <media/stagefright/foundation/AMessage.h>
#include <tavro/TavroAnalysisFPS.h>

#include "FuzzCodec2.h"
#include "FuzzWorld.h"
#include "sfplugin/TavroCCodecBufferChannel.h"

using namespace android;

namespace {

class QuietCodecCallback : public CCodecCallback {
  public:
    void onError(status_t, enum ActionCode) override {}
    void onOutputFramesRendered(int64_t, nsecs_t) override {}
    void onOutputBuffersChanged() override {}
    void onFirstTunnelFrameReady() override {}
};

class CountingTavroCallback : public TavroCCodecCallback {
  public:
    void onQueueInputBuffer() override {}
    void onWorkDone(const sp<AMessage>&) override { ++worksDone; }
    void renderOutputBuffer(const sp<MediaCodecBuffer>&, int64_t) override {}
    uint64_t worksDone = 0;
};

constexpr uint32_t kKnownIndices[] = {
        kVppStutterInfoIndex,
        kVppStutterInfoIndex | kParamStreamFlag,
        kVppStutterInfoIndex | kParamStreamFlag | kParamStreamIdMax,
        kSrStatusInfoIndex,
        kSrStatusInfoIndex | kParamStreamFlag | 0x00100000u,
        kSrStatusInfoIndex | kParamDirGlobal,
        kVppModeParamIndex,
        kFileFpsParamIndex,
};

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    fuzz::initFuzzWorld();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    FuzzedDataProvider fdp(data, size);
    const fuzz::FuzzInput input(fdp, false);

    auto tavroCallback = std::make_shared<CountingTavroCallback>();
    sp<TavroAnalysisFPS> analysis = fdp.ConsumeBool() ? new TavroAnalysisFPS() : nullptr;
    auto channel = std::make_shared<TavroCCodecBufferChannel>(
            std::make_shared<QuietCodecCallback>(), tavroCallback, analysis);
    channel->setFeedbackId(fdp.ConsumeBool() ? fdp.ConsumeIntegral<int64_t>() : 0);
    sp<AMessage> outputFormat = fdp.ConsumeBool() ? new AMessage() : nullptr;

    uint64_t handed = 0;
    while (fdp.remaining_bytes() > 0 && handed < 16) {
        channel->setStoppingForTesting(fdp.ConsumeBool());
        std::unique_ptr<C2Work> work;
        if (fdp.ConsumeIntegralInRange<int>(0, 15) != 0) {
            work = std::make_unique<C2Work>();
            work->input.ordinal.frameIndex = fdp.ConsumeIntegral<uint64_t>();
            fuzz::consumeSome(fdp, 2, work->worklets, [&fdp] {
                auto worklet = std::make_unique<C2Worklet>();
                worklet->output.flags = static_cast<C2FrameData::flags_t>(
                        fdp.ConsumeIntegralInRange<uint32_t>(0, 31));
                worklet->output.ordinal.frameIndex = fdp.ConsumeIntegral<uint64_t>();
                fuzz::consumeSome(fdp, 4, worklet->output.configUpdate, [&fdp] {
                    return fuzz::consumeParam(fdp, fuzz::consumeIndex(fdp, kKnownIndices), 48);
                });
                return worklet;
            });
        }
        channel->onWorkDone(std::move(work), outputFormat, nullptr);
        ++handed;
    }
    fuzz::check(
            tavroCallback->worksDone == handed && channel->countersForTesting().worksDone == handed,
            "a work handed over did not reach both the callback and the platform");
    return 0;
}
