// TavroCCodecBufferChannel: the maker's buffer channel, created by TavroCCodec in place of the
// platform channel. Each override feeds the frame-rate analysis object and the codec's private
// callback, then forwards to the platform; on top it stamps first input/output/render, reports
// stream corruption, stutter and super-resolution events from work results, tracks playback speed
// and fast-forward, and keeps the HDR bit set.
//
// Threads: the platform calls the overrides from its input, render and work-completion threads,
// which may overlap. mLock guards only the speed detector (the render-time history, the content
// rate and the fast-forward mode; GUARDED_BY, checked by clang's -Wthread-safety) and is held
// across the platform flush; every other field is an atomic written by the path named next to it.
#pragma once

#include <stdint.h>

#include <atomic>
#include <list>
#include <memory>

#include <C2Config.h>
#include <C2Work.h>
#include <codec2/sfplugin/CCodecBufferChannel.h>
#include <codec2/sfplugin/TavroCCodecCallback.h>
#include <media/MediaCodecBuffer.h>
#include <media/stagefright/foundation/AMessage.h>
#include <utils/Errors.h>
#include <utils/Mutex.h>
#include <utils/RefBase.h>

#include "sfplugin/TavroHdrInfo.h"
#include "sfplugin/TavroSpeedDetector.h"

namespace android {

class TavroAnalysisFPS;
class TavroSessionRecorder;

// ---- Vendor parameters written to the component: 12-byte records (size 12, index, value) ----
constexpr uint32_t kVppInputDelayParamIndex = 0xC0008605;  // uint32: platform input delay
constexpr uint32_t kVppModeParamIndex = 0xC0008600;        // uint32: 1 = fast-forward / forced
constexpr uint32_t kFileFpsParamIndex = 0xC2002000;        // float: content frame rate
constexpr uint32_t kTavroVendorParamSize = 12;

// ---- Parameters read from the component's work results ----
// Stutter text: from byte 8 to its terminator or the record's end, once the stream-id bits are
// cleared. A record of the header alone carries an empty text.
constexpr uint32_t kVppStutterInfoIndex = 0xA0018602;
constexpr uint32_t kVppStutterInfoMask = 0xFE0FFFFF;
constexpr uint32_t kVppStutterInfoCore = 0x18602;
// Super-resolution status: int32 at byte 8, once the direction and stream-id bits are cleared.
constexpr uint32_t kSrStatusInfoIndex = 0xC0008604;
constexpr uint32_t kSrStatusInfoMask = 0xCE0FFFFF;
constexpr uint32_t kSrStatusInfoCore = 0x8604;
constexpr uint32_t kParamCoreMask = 0x1FFFF;
constexpr uint32_t kParamDirMask = 0x30000000;
constexpr uint32_t kParamDirGlobal = 0x20000000;
constexpr uint32_t kParamStreamFlag = 0x02000000;
constexpr uint32_t kParamStreamIdMask = 0x01F00000;
constexpr uint32_t kParamStreamIdMax = 0x01E00000;

// Codec2 output flags the channel tests (C2FrameData::flags_t values).
constexpr uint32_t kWorkFlagDropFrame = 1;
constexpr uint32_t kWorkFlagDiscardFrame = 4;
constexpr uint32_t kWorkFlagIncomplete = 8;

// ---- Keys, values and log texts ----
constexpr char kKeyFirstInputTime[] = "first-input-time";
constexpr char kKeyFirstOutputTime[] = "first-output-time";
constexpr char kKeyTimeUs[] = "timeUs";
constexpr char kDataCorruptStart[] = "START";
constexpr char kDataCorruptStop[] = "STOP";
constexpr char kPeltoEventWechatSr[] = "pelto_event_video_wechat_sr";
constexpr char kPeltoEventOn[] = "on";
constexpr char kLogDataCorruptStart[] = "onWorkDone: stream data corrupt start";
constexpr char kLogDataCorruptStop[] = "onWorkDone: stream data corrupt stop";
constexpr char kLogSetWechatSr[] = "set PELTO_EVENT_PELTOSERVICE_WECHAT_SR";
constexpr char kLogStutterInfo[] = "[onWorkDone:L464] C2VppStutterInfo:%s";
constexpr char kLogScanType[] = "mVideoScanType is: %d";
constexpr char kLogFFModeStatus[] =
        "[cheekFFModeStatus:L416] bFFModeStatus:%d, iVppWhiteListValue:%d";
constexpr char kLogRenderSample[] =
        "laster: pts:%lld, render:%lld, sys:%lld unit[pts:%f render:%f sys:%f] speed:%f - %f";
constexpr char kLogFFChanged[] =
        "[setFFmode:L227]isChanged:FileFps:%d Speed:%d old:FileFps:%f FF:%d";
// The speed decision: "oldFF:<mode> ", then "[speed speed2] " per sample walked, or for a restarted
// history "listSize:<samples>".
constexpr char kLogSpeedDecisionMode[] = "oldFF:%u ";
constexpr char kLogSpeedDecisionRatios[] = "[%f %f] ";
constexpr char kLogSpeedDecisionReset[] = "listSize:%zu";

class TavroCCodecBufferChannel : public CCodecBufferChannel {
  public:
    // `baseCallback` goes to the platform channel; the channel keeps `tavroCallback` and one strong
    // reference to `analysis`. Either may be null: the calls to it are then skipped.
    TavroCCodecBufferChannel(const std::shared_ptr<CCodecCallback>& baseCallback,
                             const std::shared_ptr<TavroCCodecCallback>& tavroCallback,
                             const sp<TavroAnalysisFPS>& analysis);
    ~TavroCCodecBufferChannel() override;

    // Input thread. Stamps the first input (and writes the input delay when the post-processing
    // white-list value is set), counts the bytes, forwards; a failed platform queue is returned
    // as it is with nothing further done. While the analysis object wants it, probes the
    // bitstream for the scan type and forces post-processing mode when it settles progressive.
    status_t queueInputBuffer(const sp<MediaCodecBuffer>& buffer) override;
    // As queueInputBuffer, without the input-delay write and without the scan-type probe.
    status_t queueSecureInputBuffer(const sp<MediaCodecBuffer>& buffer, bool secure,
                                    const uint8_t* key, const uint8_t* iv, CryptoPlugin::Mode mode,
                                    CryptoPlugin::Pattern pattern,
                                    const CryptoPlugin::SubSample* subSamples, size_t numSubSamples,
                                    AString* errorDetailMsg) override;
    // Render thread. `timestampNs` is the display time in ns. With tracking on, the buffer's
    // "timeUs" meta (0 when absent) and the render time feed the speed detection. The first call
    // reports the first-frame time whatever the platform returns.
    status_t renderOutputBuffer(const sp<MediaCodecBuffer>& buffer, int64_t timestampNs) override;
    // A dropped frame: counted, and with tracking on recorded with render time 0.
    status_t discardBuffer(const sp<MediaCodecBuffer>& buffer) override;
    // Empties the render-time history and flushes the platform, under mLock.
    void flush(const std::list<std::unique_ptr<C2Work>>& flushedWork) override EXCLUDES(mLock);
    // Work-completion thread. Counts the output, opens or closes the corrupt-data span (while a
    // feedback id is set), acts on the first stutter or super-resolution record of the work's
    // configUpdate, stamps the first output, then hands the work to the platform. Records are
    // read only within their size field; a null work or worklet is passed on untouched.
    void onWorkDone(std::unique_ptr<C2Work> work, const sp<AMessage>& outputFormat,
                    const C2StreamInitDataInfo::output* initData) override;

    // Maker operations.
    // 0 stops feedback collection (and with it the corrupt-data reports).
    void setFeedbackId(int64_t id) override;
    // Merges `msg` into the analysis statistics; NO_INIT without an analysis object.
    status_t sendFeedbackInfo(const sp<AMessage>& msg) override;
    // Enables fast-forward tracking and stores the post-processing white-list value (configure
    // time). The name is the one the platform side calls; it is kept as it is.
    void cheekFFModeStatus(bool enable, int32_t vppWhiteListValue) override;
    void setInputMetEos(bool eos) override;
    // ORs `type` into the HDR bit set; on a change logs the kind and hands `type` (not the set)
    // to the analysis object.
    void setHdrType(int32_t type) override;
    // 16 when `data` starts with the HDR Vivid dynamic-metadata header (T.35 country 0x26,
    // provider 4, provider code 5, version 1) and holds at least 10 bytes; 0 otherwise.
    int32_t parserDynamicMetaData(const uint8_t* data, int32_t size) override;

    // Frames go to `recorder` too (the codec's session recording). Set once by the codec's
    // constructor, before the channel is handed to anyone; null leaves recording off.
    void setSessionRecorder(const std::shared_ptr<TavroSessionRecorder>& recorder);

    bool getDisableWCG() const;
    void setDisableWCG(bool disable);

    // Playback speed and fast-forward detection (called after every render and discard while
    // tracking is on; render and discard paths only). `pts` and `render` in ms, render 0 for a
    // dropped frame; pts 0 empties the history first. Timestamps that do not advance restart the
    // history rather than produce a rate.
    void pushRenderTimeInfo(uint64_t pts, uint64_t render) EXCLUDES(mLock);
    // Writes FileFpsParam when the content rate moved by more than 1 fps, and flips VppModeParam
    // on a speed decision while the analysis object reports a non-zero scan type. A failed write
    // is retried (VppModeParam only) on every later call that sees no change.
    void setFFmode() EXCLUDES(mLock);
    // The detector's speed test in the current mode (TavroSpeedDetector::decideSpeed). Logs the
    // ratios it walked when it returns true.
    bool isSpeedChanged() EXCLUDES(mLock);
    // The detector's content-rate test: true (and the reported rate updated) when 11+ samples are
    // held and the newest content rate differs from the last one reported by more than 1 fps.
    bool isFileFpsChanged() EXCLUDES(mLock);

  private:
    // Render and discard paths: pushRenderTimeInfo then setFFmode under one hold of mLock.
    void onRenderSample(uint64_t pts, uint64_t render) EXCLUDES(mLock);
    // Logs a speed decision that changed, as isSpeedChanged does.
    static void logSpeedDecision(const TavroSpeedDecision& d);
    // Logs the newest sample at the verbose level.
    static void logSample(const cRenderTimeInfo& s);
    // Steps 3 to 5 of setFFmode: writes what `d` decided, or retries a failed mode write.
    void actOnDecision(const TavroSpeedDecision& d) EXCLUDES(mLock);
    // Writes one 12-byte record; returns the platform status.
    status_t writeVendorParamU32(uint32_t index, uint32_t value);
    // "timeUs" of the buffer's meta, 0 when absent.
    static int64_t metaTimeUs(const sp<MediaCodecBuffer>& buffer);
    void scanWorkResults(const C2Worklet& worklet);

    std::shared_ptr<TavroCCodecCallback> mTavroCallback;
    sp<TavroAnalysisFPS> mAnalysisFPS;
    std::atomic<uint32_t> mHdrType{0};              // setHdrType (platform side)
    std::atomic<int64_t> mFeedbackID{0};            // codec: configure and destruction
    std::atomic<status_t> mLastSetParamStatus{OK};  // render and discard paths
    Mutex mLock;
    TavroSpeedDetector mDetector GUARDED_BY(mLock);
    std::atomic<bool> mFFModeStatus{false};        // codec, configure time
    std::atomic<int32_t> mVppWhiteListValue{0};    // codec, configure time
    std::atomic<bool> mDataCorrupt{false};         // work-completion path
    std::atomic<bool> mScanTypeFound{false};       // input path
    std::atomic<bool> mFirstInputDone{false};      // input paths
    std::atomic<bool> mFirstOutputDone{false};     // work-completion path
    std::atomic<bool> mFirstFrameRendered{false};  // render path
    std::atomic<bool> mDisableWCG{false};          // codec, configure time
    // The session recording: the owner keeps it alive, the frame paths read the plain pointer
    // with one relaxed load (null: recording off). Both set by the codec's constructor.
    std::shared_ptr<TavroSessionRecorder> mRecorderOwner;
    std::atomic<TavroSessionRecorder*> mRecorder{nullptr};
};

}  // namespace android
