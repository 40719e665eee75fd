// Shared fixture pieces for codec-level tests: resets every process-wide host store, plays a
// TavroCCodec on a manual looper driven by the controllable clock, makes frames and works, and
// decodes what reached the video boost service.
#pragma once

#include <stdint.h>

#include <list>
#include <memory>
#include <string>
#include <vector>

#include <C2Work.h>

#include <codec2/sfplugin/CCodec.h>
#include <host/HostEvents.h>
#include <media/MediaCodecBuffer.h>
#include <media/stagefright/foundation/ALooper.h>
#include <media/stagefright/foundation/AMessage.h>
#include <tavro/TavroAnalysisFPS.h>
#include <tavro/TavroVideoBoost.h>
#include <utils/RefBase.h>

#include "sfplugin/TavroCCodec.h"
#include "sfplugin/TavroCCodecBufferChannel.h"
#include "sfplugin/TavroVideoBoostParams.h"
#include "sfplugin/TavroVideoTaskBoost.h"

namespace android {
namespace test {

// Properties, list service, log sink, host events, boost requests, white-list cache, /proc root,
// calling identity and the clock (manual) back to a blank state.
void resetHostWorld();
// The platform triple the boost entries of the codec suites are written for: hardware "qcom",
// family `family`, project `project`.
void setDevice(const char* project, const char* family = "SM8550");
// The calling thread's kernel id.
int32_t ownTid();

// A format message for a codec: mime plus the given int32 keys.
sp<AMessage> makeFormat(const std::string& mime,
                        std::vector<std::pair<std::string, int32_t>> ints = {});

// A buffer of `size` bytes of 0x11 whose meta holds "timeUs" (none when `timeUs` is negative).
sp<MediaCodecBuffer> makeFrame(int64_t timeUs = -1, size_t size = 32);
// A work with one worklet: output flags and frame index, input frame index.
std::unique_ptr<C2Work> makeWork(uint32_t outFlags = 0, int64_t outIndex = 1, int64_t inIndex = 1);
// A list holding one such work for frame `index` (input and output), as the codec receives it.
std::list<std::unique_ptr<C2Work>> oneWork(int64_t index);

// A request the video boost service received, decoded from its parcel.
struct SentBoost {
    TavroVideoBoost::Request::Kind kind = TavroVideoBoost::Request::kBoost;
    TavroVideoBoostParams params;  // kBoost
    TavroVideoTaskBoost task;      // kBoostTask
    uint32_t flags = 0;            // kUnboost
    bool readable = true;          // the parcel read back
    // One letter per request: T thread part, C cluster part, W whole request (threads and
    // cluster), R cluster release, A release all, K key-thread task, ? unreadable.
    char letter() const;
};
SentBoost decodeBoost(const TavroVideoBoost::Request& request);
// Every request so far, in order; each parcel must read back (a test failure otherwise).
std::vector<SentBoost> sentBoosts();

// One TavroCCodec on a manual looper, with a recording client callback.
class CodecHarness {
  public:
    CodecHarness();
    ~CodecHarness();

    // allocate → the base handles it; configure → the pipeline then the base; start.
    void allocate(const std::string& componentName);
    void configure(const sp<AMessage>& format);
    void start();
    // Advances the clock and runs every message due by then.
    void advanceUs(int64_t us);
    void runPending();
    // Drops the harness's reference: the codec is destroyed when nothing else holds it.
    void destroy();

    const sp<TavroCCodec>& codec() const { return mCodec; }
    TavroCCodecBufferChannel* channel() const;
    sp<TavroAnalysisFPS> analysis() const { return mAnalysis; }
    // The format the platform base received at its last configure.
    sp<AMessage> configuredFormat() const;

  private:
    sp<ALooper> mLooper;
    sp<TavroCCodec> mCodec;
    sp<TavroAnalysisFPS> mAnalysis;
};

}  // namespace test
}  // namespace android
