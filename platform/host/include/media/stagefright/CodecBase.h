// The framework's view of a codec: an AHandler driven by initiate*/signal* calls that reports
// back through a CodecCallback, with a buffer channel for the data path.
#pragma once

#include <stdint.h>

#include <list>
#include <memory>

#include <media/stagefright/foundation/AHandler.h>
#include <media/stagefright/foundation/AMessage.h>
#include <media/stagefright/foundation/AString.h>
#include <utils/Errors.h>
#include <utils/RefBase.h>

namespace android {

// Output and persistent input surfaces: opaque to the plug-in, which only passes them on.
class Surface : public RefBase {};
class PersistentSurface : public RefBase {};

enum ActionCode {
    ACTION_CODE_FATAL = 0,
    ACTION_CODE_TRANSIENT = 1,
    ACTION_CODE_RECOVERABLE = 2,
};

struct RenderedFrameInfo {
    RenderedFrameInfo(int64_t mediaTimeUs, int64_t renderTimeNs)
        : mMediaTimeUs(mediaTimeUs), mRenderTimeNs(renderTimeNs) {}
    int64_t getMediaTimeUs() const { return mMediaTimeUs; }
    int64_t getRenderTimeNs() const { return mRenderTimeNs; }

  private:
    int64_t mMediaTimeUs;
    int64_t mRenderTimeNs;
};

// Base of every buffer channel (the data path between MediaCodec and the component).
class BufferChannelBase {
  public:
    virtual ~BufferChannelBase() = default;
};

struct CodecBase : public AHandler {
    // Reports from the codec to MediaCodec.
    struct CodecCallback {
        virtual ~CodecCallback() = default;
        virtual void onError(status_t err, enum ActionCode actionCode) = 0;
        virtual void onComponentAllocated(const char* componentName) = 0;
        virtual void onComponentConfigured(const sp<AMessage>& inputFormat,
                                           const sp<AMessage>& outputFormat) = 0;
        virtual void onStartCompleted() = 0;
        virtual void onStopCompleted() = 0;
        virtual void onReleaseCompleted() = 0;
        virtual void onFlushCompleted() = 0;
        virtual void onOutputFramesRendered(const std::list<RenderedFrameInfo>& done) = 0;
        virtual void onOutputBuffersChanged() = 0;
        virtual void onFirstTunnelFrameReady() = 0;
        // Device build: stop shaping this codec's video traffic when `disable` is true.
        virtual void onDisableVideoShaper(bool disable) = 0;
    };

    void setCallback(std::unique_ptr<CodecCallback> callback) { mCallback = std::move(callback); }

    virtual std::shared_ptr<BufferChannelBase> getBufferChannel() = 0;
    virtual void initiateAllocateComponent(const sp<AMessage>& msg) = 0;
    virtual void initiateConfigureComponent(const sp<AMessage>& msg) = 0;
    virtual void initiateCreateInputSurface() = 0;
    virtual void initiateSetInputSurface(const sp<PersistentSurface>& surface) = 0;
    virtual void initiateStart() = 0;
    virtual void initiateShutdown(bool keepComponentAllocated = false) = 0;
    virtual status_t setSurface(const sp<Surface>& surface, uint32_t generation) = 0;
    virtual void signalFlush() = 0;
    virtual void signalResume() = 0;
    virtual void signalRequestIDRFrame() = 0;
    virtual void signalSetParameters(const sp<AMessage>& params) = 0;
    virtual void signalEndOfInputStream() = 0;

  protected:
    CodecBase() = default;
    ~CodecBase() override = default;

    std::unique_ptr<CodecCallback> mCallback;
};

}  // namespace android
