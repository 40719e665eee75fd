// The maker's frame-rate analysis object: collects timing, frame-rate, stutter and HDR statistics
// of one codec. Closed on a device; on host it counts per-frame calls and records the others as
// "analysis" events (host/HostEvents.h), with settable answers for the queries it serves.
#pragma once

#include <stdint.h>

#include <atomic>
#include <mutex>

#include <media/MediaCodecBuffer.h>
#include <media/stagefright/foundation/ABuffer.h>
#include <media/stagefright/foundation/AMessage.h>
#include <media/stagefright/foundation/AString.h>
#include <utils/Errors.h>
#include <utils/RefBase.h>
#include <utils/String8.h>

namespace android {

class TavroAnalysisFPS : public RefBase {
  public:
    TavroAnalysisFPS();

    // Statistics input.
    virtual status_t updateParameters(const sp<AMessage>& msg);
    virtual void statsBufferSize(int64_t bytes);
    virtual void inputBuffer(const sp<MediaCodecBuffer>& buffer);
    virtual void renderBuffer(int64_t timestampNs);
    virtual void reportFirstFrameTime(int64_t timeNs);
    virtual void discardBuffer();
    virtual void outputBuffer();
    virtual void setDataCorruptState(const String8& state);
    virtual void setVppStutter(const String8& info);
    virtual void setInputMetEos(bool eos);
    virtual void setHdrType(int32_t type);
    virtual void setPlayingStatus();
    virtual void setupVideoStutter(const AString& componentName, const sp<AMessage>& format);
    virtual void reportOverLoadInfo();
    virtual void sendFPSInfo();
    virtual void resetFPS();
    virtual void signalNewPlay();
    virtual void signalFlush();
    virtual void checkScanType();

    // Bitstream probe: true once the scan type is settled; the kind is then getVideoScanType().
    virtual bool scanTypeExtractor(const sp<ABuffer>& buffer);

    // Queries.
    virtual int64_t getTotalFpsUseCnt();
    virtual int64_t getOutputBufCntTotal();
    virtual int64_t getInputBufCntTotal();
    // The object's public fields on a device: the scan type found (0 = progressive / unknown)
    // and whether it wants the input bitstream probed for the scan type.
    virtual int32_t getVideoScanType();
    virtual int32_t getNeedCheckScanType();

    // ---- Host only -------------------------------------------------------------------------
    struct Counters {
        int64_t inputBuffers = 0;
        int64_t renderedBuffers = 0;
        int64_t discardedBuffers = 0;
        int64_t outputBuffers = 0;
        int64_t bufferBytes = 0;
        int64_t scanProbes = 0;
    };
    Counters countersForTesting() const;
    void setVideoScanTypeForTesting(int32_t type) { mVideoScanType.store(type); }
    void setNeedCheckScanTypeForTesting(int32_t need) { mNeedCheckScanType.store(need); }
    // scanTypeExtractor answers true from the n-th probe on (n >= 1); 0 = never.
    void setScanTypeSettlesAfterForTesting(int32_t probes) { mSettleAfter.store(probes); }
    void setTotalFpsUseCntForTesting(int64_t count) { mTotalFpsUseCnt.store(count); }
    // The most recently constructed object (tests reach a codec's analysis object this way).
    static sp<TavroAnalysisFPS> lastCreatedForTesting();

  protected:
    ~TavroAnalysisFPS() override;
    // Publishes the object for lastCreatedForTesting once a strong reference holds it, so a
    // promotion from another thread can never become the object's first (and last) owner.
    void onFirstRef() override;

  private:
    void event(const char* name, const char* key = nullptr, const std::string& value = "");

    std::atomic<int64_t> mInput{0}, mRendered{0}, mDiscarded{0}, mOutput{0}, mBytes{0};
    std::atomic<int64_t> mProbes{0};
    std::atomic<int32_t> mVideoScanType{0};
    std::atomic<int32_t> mNeedCheckScanType{0};
    std::atomic<int32_t> mSettleAfter{0};
    std::atomic<int64_t> mTotalFpsUseCnt{0};
};

}  // namespace android
