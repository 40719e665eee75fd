#define LOG_NDEBUG 0
#define LOG_TAG "TavroCCodecBufferChannel"
#include "sfplugin/TavroCCodecBufferChannel.h"

#include <inttypes.h>
#include <math.h>
#include <stdio.h>
#include <string.h>

#include <algorithm>
#include <vector>

#include <C2Param.h>
#include <media/stagefright/foundation/ABuffer.h>
#include <tavro/PeltoEventUploadUtils.h>
#include <tavro/TavroAnalysisFPS.h>
#include <utils/String8.h>
#include <utils/Timers.h>

#include "common/TavroClaim.h"
#include "common/TavroLog.h"
#include "sfplugin/TavroSessionRecorder.h"

namespace android {

namespace {

// The vendor records the channel writes: the 8-byte header, then one 32-bit value.
struct TavroU32Param : public C2Param {
    TavroU32Param(uint32_t index, uint32_t v) : C2Param(kTavroVendorParamSize, index), value(v) {}
    uint32_t value;
};

struct TavroFloatParam : public C2Param {
    TavroFloatParam(uint32_t index, float v) : C2Param(kTavroVendorParamSize, index), value(v) {}
    float value;
};

static_assert(sizeof(TavroU32Param) == kTavroVendorParamSize, "vendor record must be 12 bytes");
static_assert(sizeof(TavroFloatParam) == kTavroVendorParamSize, "vendor record must be 12 bytes");

// Monotonic time in ms, as the history keeps it: seconds x 1000 plus ns / 1e6, in double.
uint64_t monotonicMs() {
    const nsecs_t now = systemTime(SYSTEM_TIME_MONOTONIC);
    if (now <= 0) return 0;
    const int64_t seconds = now / 1000000000;
    const int64_t nanos = now % 1000000000;
    return static_cast<uint64_t>(static_cast<double>(seconds) * 1000.0 +
                                 static_cast<double>(nanos) / 1e6);
}

// The first worklet of a work, or null.
C2Worklet* firstWorklet(const std::unique_ptr<C2Work>& work) {
    if (work == nullptr || work->worklets.empty()) return nullptr;
    return work->worklets.front().get();
}

}  // namespace

TavroCCodecBufferChannel::TavroCCodecBufferChannel(
        const std::shared_ptr<CCodecCallback>& baseCallback,
        const std::shared_ptr<TavroCCodecCallback>& tavroCallback,
        const sp<TavroAnalysisFPS>& analysis)
    : CCodecBufferChannel(baseCallback), mTavroCallback(tavroCallback), mAnalysisFPS(analysis) {}

TavroCCodecBufferChannel::~TavroCCodecBufferChannel() = default;

// ---- Buffer hooks ----------------------------------------------------------------------------

status_t TavroCCodecBufferChannel::queueInputBuffer(const sp<MediaCodecBuffer>& buffer) {
    if (TavroSessionRecorder* recorder = mRecorder.load(std::memory_order_relaxed)) {
        recorder->onInput(metaTimeUs(buffer),
                          buffer != nullptr ? static_cast<int32_t>(buffer->size()) : 0, false);
    }
    if (tavroClaimOnce(mFirstInputDone)) {
        if (mAnalysisFPS != nullptr) {
            sp<AMessage> msg = new AMessage();
            msg->setInt64(kKeyFirstInputTime, systemTime(SYSTEM_TIME_MONOTONIC));
            mAnalysisFPS->updateParameters(msg);
        }
        if (mVppWhiteListValue.load(std::memory_order_relaxed) != 0) {
            // The component sizes its post-processing queue from it; a refusal changes nothing.
            (void)writeVendorParamU32(kVppInputDelayParamIndex, getInputDelay());
        }
    }
    if (buffer != nullptr && mAnalysisFPS != nullptr) {
        mAnalysisFPS->statsBufferSize(static_cast<int64_t>(buffer->size()));
    }
    if (mTavroCallback != nullptr) mTavroCallback->onQueueInputBuffer();

    const status_t err = CCodecBufferChannel::queueInputBuffer(buffer);
    if (err != OK) return err;

    if (mAnalysisFPS != nullptr && buffer != nullptr &&
        !mScanTypeFound.load(std::memory_order_relaxed) &&
        mAnalysisFPS->getNeedCheckScanType() != 0) {
        sp<ABuffer> bytes = new ABuffer(buffer->data(), buffer->size());
        const bool found = mAnalysisFPS->scanTypeExtractor(bytes);
        mScanTypeFound.store(found, std::memory_order_relaxed);
        const int32_t scanType = mAnalysisFPS->getVideoScanType();
        if (TavroSessionRecorder* recorder = mRecorder.load(std::memory_order_relaxed)) {
            recorder->onScanType(scanType);
        }
        TAVRO_LOGV(kTavroLogVerbose, kLogScanType, scanType);
        if (found && scanType == 0) {
            // Progressive content: post-processing runs in its fast path from the start.
            (void)writeVendorParamU32(kVppModeParamIndex, 1);
        }
    }
    if (mAnalysisFPS != nullptr) mAnalysisFPS->inputBuffer(buffer);
    return err;
}

status_t TavroCCodecBufferChannel::queueSecureInputBuffer(
        const sp<MediaCodecBuffer>& buffer, bool secure, const uint8_t* key, const uint8_t* iv,
        CryptoPlugin::Mode mode, CryptoPlugin::Pattern pattern,
        const CryptoPlugin::SubSample* subSamples, size_t numSubSamples, AString* errorDetailMsg) {
    if (TavroSessionRecorder* recorder = mRecorder.load(std::memory_order_relaxed)) {
        recorder->onInput(metaTimeUs(buffer),
                          buffer != nullptr ? static_cast<int32_t>(buffer->size()) : 0, true);
    }
    if (tavroClaimOnce(mFirstInputDone) && mAnalysisFPS != nullptr) {
        sp<AMessage> msg = new AMessage();
        msg->setInt64(kKeyFirstInputTime, systemTime(SYSTEM_TIME_MONOTONIC));
        mAnalysisFPS->updateParameters(msg);
    }
    if (buffer != nullptr && mAnalysisFPS != nullptr) {
        mAnalysisFPS->statsBufferSize(static_cast<int64_t>(buffer->size()));
    }
    if (mTavroCallback != nullptr) mTavroCallback->onQueueInputBuffer();

    const status_t err = CCodecBufferChannel::queueSecureInputBuffer(
            buffer, secure, key, iv, mode, pattern, subSamples, numSubSamples, errorDetailMsg);
    if (err != OK) return err;
    if (mAnalysisFPS != nullptr) mAnalysisFPS->inputBuffer(buffer);
    return err;
}

int64_t TavroCCodecBufferChannel::metaTimeUs(const sp<MediaCodecBuffer>& buffer) {
    int64_t timeUs = 0;
    if (buffer != nullptr) {
        sp<AMessage> meta = buffer->meta();
        if (meta == nullptr || !meta->findInt64(kKeyTimeUs, &timeUs)) timeUs = 0;
    }
    return timeUs;
}

status_t TavroCCodecBufferChannel::renderOutputBuffer(const sp<MediaCodecBuffer>& buffer,
                                                      int64_t timestampNs) {
    TavroSessionRecorder* recorder = mRecorder.load(std::memory_order_relaxed);
    const bool watchSpeed = mFFModeStatus.load(std::memory_order_relaxed);
    // The buffer's time is read once per frame, and only when someone uses it.
    const int64_t timeUs = recorder != nullptr || watchSpeed ? metaTimeUs(buffer) : 0;
    if (recorder != nullptr) recorder->onRender(timeUs, timestampNs);
    if (mAnalysisFPS != nullptr) mAnalysisFPS->renderBuffer(timestampNs);
    if (mTavroCallback != nullptr) mTavroCallback->renderOutputBuffer(buffer, timestampNs);
    if (watchSpeed) {
        // Both truncate toward zero; a negative time wraps, which the history treats as a jump.
        onRenderSample(static_cast<uint64_t>(timeUs / 1000),
                       static_cast<uint64_t>(timestampNs / 1000000));
    }
    const status_t err = CCodecBufferChannel::renderOutputBuffer(buffer, timestampNs);
    if (tavroClaimOnce(mFirstFrameRendered) && mAnalysisFPS != nullptr) {
        mAnalysisFPS->reportFirstFrameTime(systemTime(SYSTEM_TIME_MONOTONIC));
    }
    return err;
}

status_t TavroCCodecBufferChannel::discardBuffer(const sp<MediaCodecBuffer>& buffer) {
    TavroSessionRecorder* recorder = mRecorder.load(std::memory_order_relaxed);
    const bool watchSpeed = mFFModeStatus.load(std::memory_order_relaxed);
    const int64_t timeUs = recorder != nullptr || watchSpeed ? metaTimeUs(buffer) : 0;
    if (recorder != nullptr) recorder->onDiscard(timeUs);
    if (mAnalysisFPS != nullptr) mAnalysisFPS->discardBuffer();
    // Render time 0 marks the frame as dropped.
    if (watchSpeed) onRenderSample(static_cast<uint64_t>(timeUs / 1000), 0);
    return CCodecBufferChannel::discardBuffer(buffer);
}

void TavroCCodecBufferChannel::flush(const std::list<std::unique_ptr<C2Work>>& flushedWork) {
    TAVRO_LOGV(kTavroLogVerbose, "flush");
    Mutex::Autolock lock(mLock);
    mDetector.clear();
    // The platform flush is called with mLock held: emptying the history and dropping the
    // platform's buffers are one step that no render or discard sample interleaves with.
    CCodecBufferChannel::flush(flushedWork);
}

void TavroCCodecBufferChannel::onWorkDone(std::unique_ptr<C2Work> work,
                                          const sp<AMessage>& outputFormat,
                                          const C2StreamInitDataInfo::output* initData) {
    const C2Worklet* worklet = firstWorklet(work);
    const uint32_t outFlags =
            worklet != nullptr ? static_cast<uint32_t>(worklet->output.flags) : 0u;

    if (worklet != nullptr && outFlags != kWorkFlagDiscardFrame &&
        worklet->output.ordinal.frameIndex.peekll() >= 0 && mAnalysisFPS != nullptr) {
        mAnalysisFPS->outputBuffer();
    }
    if (mTavroCallback != nullptr) mTavroCallback->onWorkDone(outputFormat);

    if (worklet != nullptr && mFeedbackID.load(std::memory_order_relaxed) != 0) {
        if ((outFlags & kWorkFlagDropFrame) != 0 && !isStopping() &&
            work->input.ordinal.frameIndex.peekll() >= 0) {
            TAVRO_LOGI(kLogDataCorruptStart);
            if (mAnalysisFPS != nullptr)
                mAnalysisFPS->setDataCorruptState(String8(kDataCorruptStart));
            mDataCorrupt.store(true, std::memory_order_relaxed);
        } else if (mDataCorrupt.load(std::memory_order_relaxed)) {
            TAVRO_LOGI(kLogDataCorruptStop);
            if (mAnalysisFPS != nullptr)
                mAnalysisFPS->setDataCorruptState(String8(kDataCorruptStop));
            mDataCorrupt.store(false, std::memory_order_relaxed);
        }
    }

    if (worklet != nullptr) scanWorkResults(*worklet);

    if (worklet != nullptr && outFlags != kWorkFlagIncomplete && tavroClaimOnce(mFirstOutputDone) &&
        mAnalysisFPS != nullptr) {
        sp<AMessage> msg = new AMessage();
        msg->setInt64(kKeyFirstOutputTime, systemTime(SYSTEM_TIME_MONOTONIC));
        mAnalysisFPS->updateParameters(msg);
    }

    CCodecBufferChannel::onWorkDone(std::move(work), outputFormat, initData);
}

void TavroCCodecBufferChannel::scanWorkResults(const C2Worklet& worklet) {
    for (const std::unique_ptr<C2Param>& param : worklet.output.configUpdate) {
        if (param == nullptr) continue;
        const uint32_t index = param->index();
        const size_t size = param->size();
        const uint32_t streamId = index & kParamStreamIdMask;
        const bool candidate =
                streamId == 0 || ((index & kParamStreamFlag) != 0 && streamId <= kParamStreamIdMax);
        if (!candidate || (index & kParamDirMask) >= kParamDirMask || size == 0) continue;
        const uint8_t* bytes = reinterpret_cast<const uint8_t*>(param.get());
        const uint32_t core = index & kParamCoreMask;

        if (core == kVppStutterInfoCore) {
            // The first stutter record ends the scan, whether or not it is usable.
            if ((index & kVppStutterInfoMask) != kVppStutterInfoIndex ||
                size < kC2ParamHeaderSize) {
                return;
            }
            // The text ends at its terminator or at the record's end, whichever comes first; a
            // record of the header alone carries an empty one.
            const char* chars = reinterpret_cast<const char*>(bytes + kC2ParamHeaderSize);
            const String8 text(chars, strnlen(chars, size - kC2ParamHeaderSize));
            TAVRO_LOGD(kLogStutterInfo, text.c_str());
            if (mAnalysisFPS != nullptr) mAnalysisFPS->setVppStutter(text);
            return;
        }
        if (core == kSrStatusInfoCore) {
            if ((index & kSrStatusInfoMask) != kSrStatusInfoIndex ||
                (index & kParamDirMask) == kParamDirGlobal ||
                size < kC2ParamHeaderSize + sizeof(int32_t)) {
                return;
            }
            int32_t status;
            memcpy(&status, bytes + kC2ParamHeaderSize, sizeof(status));
            if (status >= 1) {
                PeltoEventUploadUtils::getInstance()->setEvent(String8(kPeltoEventWechatSr),
                                                               String8(kPeltoEventOn));
                TAVRO_LOGD(kLogSetWechatSr);
            }
            return;
        }
    }
}

// ---- Maker operations ------------------------------------------------------------------------

void TavroCCodecBufferChannel::setFeedbackId(int64_t id) {
    mFeedbackID.store(id, std::memory_order_relaxed);
}

status_t TavroCCodecBufferChannel::sendFeedbackInfo(const sp<AMessage>& msg) {
    if (mAnalysisFPS == nullptr) return NO_INIT;
    return mAnalysisFPS->updateParameters(msg);
}

void TavroCCodecBufferChannel::cheekFFModeStatus(bool enable, int32_t vppWhiteListValue) {
    mFFModeStatus.store(enable, std::memory_order_relaxed);
    mVppWhiteListValue.store(vppWhiteListValue, std::memory_order_relaxed);
    TAVRO_LOGV(kTavroLogVerbose, kLogFFModeStatus, enable, vppWhiteListValue);
}

void TavroCCodecBufferChannel::setInputMetEos(bool eos) {
    if (mAnalysisFPS != nullptr) mAnalysisFPS->setInputMetEos(eos);
}

bool TavroCCodecBufferChannel::getDisableWCG() const {
    return mDisableWCG.load(std::memory_order_relaxed);
}

void TavroCCodecBufferChannel::setSessionRecorder(
        const std::shared_ptr<TavroSessionRecorder>& recorder) {
    mRecorderOwner = recorder;
    mRecorder.store(recorder.get(), std::memory_order_relaxed);
}

void TavroCCodecBufferChannel::setDisableWCG(bool disable) {
    mDisableWCG.store(disable, std::memory_order_relaxed);
}

void TavroCCodecBufferChannel::setHdrType(int32_t type) {
    const uint32_t oldType = mHdrType.fetch_or(static_cast<uint32_t>(type));
    const uint32_t newType = oldType | static_cast<uint32_t>(type);
    if (newType == oldType) return;
    if ((newType & kChannelHdrVivid) != 0) {
        TAVRO_LOGD(kLogChannelHdrVivid, type);
    } else if ((newType & kChannelHdr10Plus) != 0) {
        TAVRO_LOGD(kLogChannelHdr10Plus, type);
    } else if (oldType != 0 || type != 0) {
        TAVRO_LOGD(kLogChannelHdr10OrHlg, type);
    }
    if (mAnalysisFPS != nullptr) {
        // The analysis object keeps its own view: it gets the kind just seen, not the set.
        mAnalysisFPS->setHdrType(type);
        mAnalysisFPS->setPlayingStatus();
    }
}

int32_t TavroCCodecBufferChannel::parserDynamicMetaData(const uint8_t* data, int32_t size) {
    // T.35 country 0x26, provider 0x0004, provider-oriented code 0x0005, then version 1.
    static constexpr uint8_t kHeader[] = {0x26, 0x00, 0x04, 0x00, 0x05, 0x01};
    if (data == nullptr || size < 10) return 0;
    return memcmp(data, kHeader, sizeof(kHeader)) == 0 ? static_cast<int32_t>(kChannelHdrVivid) : 0;
}

// ---- Playback speed and fast-forward detection -----------------------------------------------

status_t TavroCCodecBufferChannel::writeVendorParamU32(uint32_t index, uint32_t value) {
    std::vector<std::unique_ptr<C2Param>> params;
    params.push_back(std::make_unique<TavroU32Param>(index, value));
    return setParameters(params);
}

void TavroCCodecBufferChannel::logSample(const cRenderTimeInfo& s) {
    TAVRO_LOGV(kTavroLogVerbose, kLogRenderSample, static_cast<long long>(s.pts),
               static_cast<long long>(s.render), static_cast<long long>(s.sys), s.ptsUnit,
               s.renderUnit, s.sysUnit, s.speed, s.speed2);
}

void TavroCCodecBufferChannel::logSpeedDecision(const TavroSpeedDecision& d) {
    // Only a decision that changes the mode is logged, and the text is built only then.
    if (!d.speedChanged || !tavroLogOn(kTavroLogDebug, kTavroLogDefaultOn)) return;
    char text[1024];  // five pairs of the widest floats fit
    size_t used = 0;
    auto append = [&](int n) {
        if (n > 0) used = std::min(sizeof(text) - 1, used + static_cast<size_t>(n));
    };
    append(snprintf(text, sizeof(text), kLogSpeedDecisionMode, d.fastMode ? 1u : 0u));
    for (size_t j = 0; j < d.walkedCount; ++j) {
        append(snprintf(text + used, sizeof(text) - used, kLogSpeedDecisionRatios,
                        static_cast<double>(d.walked[j].speed),
                        static_cast<double>(d.walked[j].speed2)));
    }
    if (d.reset) {
        append(snprintf(text + used, sizeof(text) - used, kLogSpeedDecisionReset, d.historySize));
    }
    ALOGD("%s", text);
}

void TavroCCodecBufferChannel::pushRenderTimeInfo(uint64_t pts, uint64_t render) {
    const uint64_t sys = monotonicMs();
    cRenderTimeInfo newest;
    {
        Mutex::Autolock lock(mLock);
        mDetector.addSample(pts, render, sys);
        newest = mDetector.newest();
    }
    logSample(newest);
}

bool TavroCCodecBufferChannel::isSpeedChanged() {
    TavroSpeedDecision d;
    {
        Mutex::Autolock lock(mLock);
        d = mDetector.decideSpeed();
    }
    logSpeedDecision(d);
    return d.speedChanged;
}

bool TavroCCodecBufferChannel::isFileFpsChanged() {
    Mutex::Autolock lock(mLock);
    return mDetector.checkFileFps();
}

void TavroCCodecBufferChannel::setFFmode() {
    TavroSpeedDecision d;
    {
        Mutex::Autolock lock(mLock);
        d = mDetector.decide();
    }
    logSpeedDecision(d);
    actOnDecision(d);
}

void TavroCCodecBufferChannel::onRenderSample(uint64_t pts, uint64_t render) {
    const uint64_t sys = monotonicMs();
    TavroSpeedDecision d;
    cRenderTimeInfo newest;
    {
        Mutex::Autolock lock(mLock);
        d = mDetector.onSample(pts, render, sys);
        newest = mDetector.newest();
    }
    logSample(newest);
    logSpeedDecision(d);
    actOnDecision(d);
}

void TavroCCodecBufferChannel::actOnDecision(const TavroSpeedDecision& d) {
    if (d.fileFpsChanged || d.speedChanged) {
        TAVRO_LOGD(kLogFFChanged, d.fileFpsChanged, d.speedChanged, static_cast<double>(d.fileFps),
                   d.fastMode ? 1 : 0);
        std::vector<std::unique_ptr<C2Param>> params;
        // Without a known scan type the component cannot switch modes: the decision is dropped.
        bool scanTypeKnown = false;
        if (d.speedChanged && mAnalysisFPS != nullptr) {
            const int32_t scanType = mAnalysisFPS->getVideoScanType();
            if (TavroSessionRecorder* recorder = mRecorder.load(std::memory_order_relaxed)) {
                recorder->onScanType(scanType);
            }
            scanTypeKnown = scanType != 0;
        }
        if (scanTypeKnown) {
            uint32_t newFF;
            {
                Mutex::Autolock lock(mLock);
                newFF = mDetector.fastMode() ? 0 : 1;
                mDetector.setFastMode(newFF != 0);
            }
            params.push_back(std::make_unique<TavroU32Param>(kVppModeParamIndex, newFF));
        }
        if (d.fileFpsChanged) {
            params.push_back(std::make_unique<TavroFloatParam>(kFileFpsParamIndex, d.fileFps));
        }
        mLastSetParamStatus.store(setParameters(params), std::memory_order_relaxed);
    } else if (mLastSetParamStatus.load(std::memory_order_relaxed) != OK) {
        // The component refused the last write: the mode must not stay out of step with it.
        uint32_t mode;
        {
            Mutex::Autolock lock(mLock);
            mode = mDetector.fastMode() ? 1 : 0;
        }
        mLastSetParamStatus.store(writeVendorParamU32(kVppModeParamIndex, mode),
                                  std::memory_order_relaxed);
    }
}

}  // namespace android
