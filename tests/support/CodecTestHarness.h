// Shared fixture pieces for codec-level tests: resets every process-wide host store, and plays a
// TavroCCodec on a manual looper driven by the controllable clock.
#pragma once

#include <stdint.h>

#include <memory>
#include <string>
#include <vector>

#include <codec2/sfplugin/CCodec.h>
#include <host/HostEvents.h>
#include <media/stagefright/foundation/ALooper.h>
#include <media/stagefright/foundation/AMessage.h>
#include <tavro/TavroAnalysisFPS.h>
#include <utils/RefBase.h>

#include "sfplugin/TavroCCodec.h"
#include "sfplugin/TavroCCodecBufferChannel.h"

namespace android {
namespace test {

// Properties, list service, log sink, host events, boost requests, white-list cache, /proc root,
// calling identity and the clock (manual) back to a blank state.
void resetHostWorld();

// A format message for a codec: mime plus the given int32 keys.
sp<AMessage> makeFormat(const std::string& mime,
                        std::vector<std::pair<std::string, int32_t>> ints = {});

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
    // Events of `kind` (and `name`, when given) in order.
    static std::vector<host::HostEvent> events(const std::string& kind,
                                               const std::string& name = "");

  private:
    sp<ALooper> mLooper;
    sp<TavroCCodec> mCodec;
    sp<TavroAnalysisFPS> mAnalysis;
};

}  // namespace test
}  // namespace android
