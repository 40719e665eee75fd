// The platform's Codec2 buffer channel (host stand-in): the data path between MediaCodec and the
// component. The host version forwards nothing to a real component; it counts and records every
// call with its arguments, returns statuses a test chooses, and keeps the device build's extra
// virtual operations so the maker's channel can override them.
#pragma once

#include <stdint.h>

#include <atomic>
#include <list>
#include <memory>
#include <mutex>
#include <vector>

#include <C2Config.h>
#include <C2Param.h>
#include <C2Work.h>
#include <media/MediaCodecBuffer.h>
#include <media/hardware/CryptoAPI.h>
#include <media/stagefright/CodecBase.h>
#include <media/stagefright/foundation/AMessage.h>
#include <media/stagefright/foundation/AString.h>
#include <utils/Errors.h>
#include <utils/Timers.h>

namespace android {

// Reports from the buffer channel to its codec.
class CCodecCallback {
  public:
    virtual ~CCodecCallback() = default;
    virtual void onError(status_t err, enum ActionCode actionCode) = 0;
    virtual void onOutputFramesRendered(int64_t mediaTimeUs, nsecs_t renderTimeNs) = 0;
    virtual void onOutputBuffersChanged() = 0;
    virtual void onFirstTunnelFrameReady() = 0;
};

class CCodecBufferChannel : public BufferChannelBase,
                            public std::enable_shared_from_this<CCodecBufferChannel> {
  public:
    explicit CCodecBufferChannel(const std::shared_ptr<CCodecCallback>& callback);
    ~CCodecBufferChannel() override;

    virtual status_t queueInputBuffer(const sp<MediaCodecBuffer>& buffer);
    virtual status_t queueSecureInputBuffer(const sp<MediaCodecBuffer>& buffer, bool secure,
                                            const uint8_t* key, const uint8_t* iv,
                                            CryptoPlugin::Mode mode, CryptoPlugin::Pattern pattern,
                                            const CryptoPlugin::SubSample* subSamples,
                                            size_t numSubSamples, AString* errorDetailMsg);
    virtual status_t renderOutputBuffer(const sp<MediaCodecBuffer>& buffer, int64_t timestampNs);
    virtual status_t discardBuffer(const sp<MediaCodecBuffer>& buffer);
    virtual void flush(const std::list<std::unique_ptr<C2Work>>& flushedWork);
    virtual void onWorkDone(std::unique_ptr<C2Work> work, const sp<AMessage>& outputFormat,
                            const C2StreamInitDataInfo::output* initData);

    // Device build: the maker's operations, declared by the platform channel so that the codec
    // and the platform reach them through a base pointer. The platform's own versions do nothing.
    virtual void setFeedbackId(int64_t id);
    virtual status_t sendFeedbackInfo(const sp<AMessage>& msg);
    virtual void cheekFFModeStatus(bool enable, int32_t vppWhiteListValue);
    virtual uint32_t getInputDelay();
    virtual void setInputMetEos(bool eos);
    virtual void setHdrType(int32_t type);
    virtual int32_t parserDynamicMetaData(const uint8_t* data, int32_t size);

    // Writes parameters to the component; 0 (OK) on success. The vector is left as it was.
    status_t setParameters(std::vector<std::unique_ptr<C2Param>>& params);

    // Device build: the channel is stopping or stopped (read atomically).
    bool isStopping() const { return mStopping.load(std::memory_order_acquire); }

    // ---- Host only -------------------------------------------------------------------------
    struct Counters {
        uint64_t queued = 0;         // queueInputBuffer calls
        uint64_t secureQueued = 0;   // queueSecureInputBuffer calls
        uint64_t rendered = 0;       // renderOutputBuffer calls
        uint64_t discarded = 0;      // discardBuffer calls
        uint64_t flushes = 0;        // flush calls
        uint64_t worksDone = 0;      // onWorkDone calls
        uint64_t setParameters = 0;  // setParameters calls
    };
    Counters countersForTesting() const;
    // Bytes of every record of every setParameters call, in order (one inner list per call).
    std::vector<std::vector<std::vector<uint8_t>>> writtenParamsForTesting() const;
    // Works handed to onWorkDone, kept so tests can inspect what reached the platform.
    size_t finishedWorkCountForTesting() const;
    std::unique_ptr<C2Work> takeFinishedWorkForTesting(size_t index);
    void setKeepFinishedWorksForTesting(bool keep);  // default false: works are dropped

    void setQueueStatusForTesting(status_t status) { mQueueStatus.store(status); }
    void setRenderStatusForTesting(status_t status) { mRenderStatus.store(status); }
    void setDiscardStatusForTesting(status_t status) { mDiscardStatus.store(status); }
    void setParametersStatusForTesting(status_t status) { mSetParametersStatus.store(status); }
    void setInputDelayForTesting(uint32_t delay) { mInputDelay.store(delay); }
    void setStoppingForTesting(bool stopping) { mStopping.store(stopping); }
    // The platform callback the channel was built with (what the component's events reach).
    std::shared_ptr<CCodecCallback> baseCallbackForTesting() const { return mCCodecCallback; }

  protected:
    std::shared_ptr<CCodecCallback> mCCodecCallback;

  private:
    std::atomic<bool> mStopping{false};
    std::atomic<status_t> mQueueStatus{OK};
    std::atomic<status_t> mRenderStatus{OK};
    std::atomic<status_t> mDiscardStatus{OK};
    std::atomic<status_t> mSetParametersStatus{OK};
    std::atomic<uint32_t> mInputDelay{0};

    std::atomic<uint64_t> mQueued{0}, mSecureQueued{0}, mRendered{0}, mDiscarded{0};
    std::atomic<uint64_t> mFlushes{0}, mWorksDone{0}, mSetParameterCalls{0};

    mutable std::mutex mRecordLock;
    std::vector<std::vector<std::vector<uint8_t>>> mWrittenParams;
    bool mKeepFinishedWorks = false;
    std::vector<std::unique_ptr<C2Work>> mFinishedWorks;
};

}  // namespace android
