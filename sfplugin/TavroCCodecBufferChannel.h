// TavroCCodecBufferChannel: the maker's buffer channel, created by TavroCCodec in place of the
// platform channel. Each override feeds the frame-rate analysis object and the codec's private
// callback, then forwards to the platform; on top it stamps first input/output/render, reports
// stream corruption, stutter and super-resolution events from work results, tracks playback speed
// and fast-forward, and keeps the HDR bit set.
#pragma once

#include <stdint.h>

#include <list>
#include <memory>
#include <mutex>

#include <C2Config.h>
#include <C2Work.h>
#include <codec2/sfplugin/CCodecBufferChannel.h>
#include <codec2/sfplugin/TavroCCodecCallback.h>
#include <media/MediaCodecBuffer.h>
#include <media/stagefright/foundation/AMessage.h>
#include <utils/Errors.h>
#include <utils/RefBase.h>

namespace android {

class TavroAnalysisFPS;

class TavroCCodecBufferChannel : public CCodecBufferChannel {
public:
    // `baseCallback` goes to the platform channel; the channel keeps `tavroCallback` and one strong
    // reference to `analysis` (which may be null).
    TavroCCodecBufferChannel(const std::shared_ptr<CCodecCallback>& baseCallback,
                             const std::shared_ptr<TavroCCodecCallback>& tavroCallback,
                             const sp<TavroAnalysisFPS>& analysis);
    ~TavroCCodecBufferChannel() override;

    status_t queueInputBuffer(const sp<MediaCodecBuffer>& buffer) override;
    status_t queueSecureInputBuffer(const sp<MediaCodecBuffer>& buffer, bool secure,
                                    const uint8_t* key, const uint8_t* iv, CryptoPlugin::Mode mode,
                                    CryptoPlugin::Pattern pattern,
                                    const CryptoPlugin::SubSample* subSamples, size_t numSubSamples,
                                    AString* errorDetailMsg) override;
    status_t renderOutputBuffer(const sp<MediaCodecBuffer>& buffer, int64_t timestampNs) override;
    status_t discardBuffer(const sp<MediaCodecBuffer>& buffer) override;
    void flush(const std::list<std::unique_ptr<C2Work>>& flushedWork) override;
    void onWorkDone(std::unique_ptr<C2Work> work, const sp<AMessage>& outputFormat,
                    const C2StreamInitDataInfo::output* initData) override;

    // Maker operations.
    void setFeedbackId(int64_t id) override;
    status_t sendFeedbackInfo(const sp<AMessage>& msg) override;
    // Enables fast-forward tracking and stores the post-processing white-list value. The name is
    // the one the platform side calls; it is kept as it is.
    void cheekFFModeStatus(bool enable, int32_t vppWhiteListValue) override;
    void setInputMetEos(bool eos) override;
    void setHdrType(int32_t type) override;
    int32_t parserDynamicMetaData(const uint8_t* data, int32_t size) override;

    bool getDisableWCG() const;
    void setDisableWCG(bool disable);

    // Playback speed and fast-forward detection (called after every render and discard while
    // tracking is on): `pts` and `render` in milliseconds, render 0 for a dropped frame.
    void pushRenderTimeInfo(uint64_t pts, uint64_t render);
    void setFFmode();
    bool isSpeedChanged();
    bool isFileFpsChanged();

    // TODO(channel helper): private state (see the data model of the channel).
};

}  // namespace android
