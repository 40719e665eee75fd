// Callback bridges from the buffer path back to TavroCCodec:
//  - CCodecCallbackImpl: the platform CCodecCallback of the buffer channel; forwards to the
//    codec's client callback and writes an error statistic.
//  - TavroCCodecCallbackImpl: the channel's private callback; arms the frame-rate, watchdog and
//    operating-rate-restore timers and counts encoder works.
//  - TavroCodecCallbackImpl: installed on an input surface; reports each buffer the surface
//    fills. It holds the codec weakly, so a surface outliving the codec does no harm.
// All three run on the buffer path's threads, concurrently with the codec's looper.
#pragma once

#include <stdint.h>

#include <codec2/sfplugin/CCodecBufferChannel.h>
#include <codec2/sfplugin/InputSurfaceWrapper.h>
#include <codec2/sfplugin/TavroCCodecCallback.h>
#include <media/MediaCodecBuffer.h>
#include <media/stagefright/foundation/AMessage.h>
#include <utils/RefBase.h>
#include <utils/Timers.h>

namespace android {

class TavroCCodec;

// Statistics atom written for each codec error other than UNKNOWN_ERROR.
constexpr int32_t kCodecErrorAtomId = 100168;
// The error line: the operation, then (filled in) its source line, the codec and the error.
constexpr char kLogCallbackError[] = "onError [%d]: (%p) err=%d actionCode=%d";

class CCodecCallbackImpl : public CCodecCallback {
  public:
    explicit CCodecCallbackImpl(TavroCCodec* codec) : mCodec(codec) {}
    ~CCodecCallbackImpl() override = default;

    void onError(status_t err, enum ActionCode actionCode) override;
    void onOutputFramesRendered(int64_t mediaTimeUs, nsecs_t renderTimeNs) override;
    void onOutputBuffersChanged() override;
    void onFirstTunnelFrameReady() override;

  private:
    TavroCCodec* mCodec;  // the owner; outlives the channel that holds this bridge
};

class TavroCCodecCallbackImpl : public TavroCCodecCallback {
  public:
    explicit TavroCCodecCallbackImpl(TavroCCodec* codec) : mCodec(codec) {}
    ~TavroCCodecCallbackImpl() override = default;

    void onQueueInputBuffer() override;
    void onWorkDone(const sp<AMessage>& outputFormat) override;
    void renderOutputBuffer(const sp<MediaCodecBuffer>& buffer, int64_t timestampNs) override;

  private:
    TavroCCodec* mCodec;
};

class TavroCodecCallbackImpl : public TavroCodecCallback {
  public:
    explicit TavroCodecCallbackImpl(const wp<TavroCCodec>& codec) : mCodec(codec) {}
    ~TavroCodecCallbackImpl() override = default;

    void onEmptyBuffer(int64_t timestamp) override;

  private:
    wp<TavroCCodec> mCodec;
};

}  // namespace android
