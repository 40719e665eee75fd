// Device build: the extra callback through which the buffer channel reports queued input,
// finished works and rendered output back to the maker's codec front-end.
#pragma once

#include <stdint.h>

#include <media/MediaCodecBuffer.h>
#include <media/stagefright/foundation/AMessage.h>
#include <utils/RefBase.h>

namespace android {

class TavroCCodecCallback {
  public:
    virtual ~TavroCCodecCallback() = default;
    virtual void onQueueInputBuffer() = 0;
    virtual void onWorkDone(const sp<AMessage>& outputFormat) = 0;
    virtual void renderOutputBuffer(const sp<MediaCodecBuffer>& buffer, int64_t timestampNs) = 0;
};

}  // namespace android
