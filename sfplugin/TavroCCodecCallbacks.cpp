#define LOG_NDEBUG 0
#define LOG_TAG "TavroCCodec"
#include "sfplugin/TavroCCodecCallbacks.h"

#include <cinttypes>
#include <cstdio>
#include <list>
#include <memory>

#include <tavro/TavroAnalysisFPS.h>
#include <tavro/TavroFramework.h>

#include "common/TavroClaim.h"
#include "common/TavroLog.h"
#include "sfplugin/TavroCCodec.h"
#include "whitelist/TavroBoostInfo.h"

namespace android {

void CCodecCallbackImpl::onError(status_t err, enum ActionCode actionCode) {
    if (mCodec->mCallback) mCodec->mCallback->onError(err, actionCode);
    ALOGE(kLogCallbackError, __LINE__, mCodec, err, actionCode);
    if (err == UNKNOWN_ERROR) return;
    char timeMs[32];
    snprintf(timeMs, sizeof(timeMs), "%" PRId64, ns2ms(systemTime(SYSTEM_TIME_MONOTONIC)));
    TavroFramework::stats_write(kCodecErrorAtomId, timeMs, mCodec->mCallingUid,
                                mCodec->mComponentName.c_str(), err);
}

void CCodecCallbackImpl::onOutputFramesRendered(int64_t mediaTimeUs, nsecs_t renderTimeNs) {
    std::list<RenderedFrameInfo> rendered;
    rendered.emplace_back(mediaTimeUs, renderTimeNs);
    if (mCodec->mCallback) mCodec->mCallback->onOutputFramesRendered(rendered);
}

void CCodecCallbackImpl::onOutputBuffersChanged() {
    if (mCodec->mCallback) mCodec->mCallback->onOutputBuffersChanged();
}

void CCodecCallbackImpl::onFirstTunnelFrameReady() {
    if (mCodec->mCallback) mCodec->mCallback->onFirstTunnelFrameReady();
}

void TavroCCodecCallbackImpl::onQueueInputBuffer() {
    // Armed once: only the caller that flips the flag posts.
    if (mCodec->mIsVideo.load() && tavroClaimOnce(mCodec->mFpsCheckPosted)) {
        TAVRO_LOGV(kTavroLogVerbose, "post check fps message");
        mCodec->postSelf(kWhatCheckFps, kTavroCheckPeriodUs);
    }
}

void TavroCCodecCallbackImpl::onWorkDone(const sp<AMessage>& outputFormat) {
    if (mCodec->mIsVideo.load()) {
        if (!mCodec->mFirstWorkDone.load()) mCodec->mFirstWorkDone.store(true);
        if (mCodec->mFpsCheckPosted.load()) mCodec->mAnalysisFPS->updateParameters(outputFormat);
    }
    if (!mCodec->mIsEncoder.load()) return;
    // Read without mBoostLock: a reconfigure publishes a new record atomically.
    std::shared_ptr<TavroClusterInfo> cluster = std::atomic_load(&mCodec->mClusterInfo);
    if (cluster && cluster->limitOpRate >= 1) {
        mCodec->mEncodedFrames.fetch_add(1);
        if (tavroClaimOnce(mCodec->mFpsCheckPosted)) {
            mCodec->postSelf(kWhatCheckOperatingRate, kTavroCheckPeriodUs);
        }
    }
}

void TavroCCodecCallbackImpl::renderOutputBuffer(const sp<MediaCodecBuffer>& /*buffer*/,
                                                 int64_t /*timestampNs*/) {
    if (mCodec->mIsVideo.load() && mCodec->mRestoreOperatingRate.load() != 0 &&
        tavroClaimOnce(mCodec->mOperatingRateRestored)) {
        mCodec->postSelf(kWhatResetOperatingRate, 0);
    }
}

void TavroCodecCallbackImpl::onEmptyBuffer(int64_t timestamp) {
    sp<TavroCCodec> codec = mCodec.promote();
    if (codec == nullptr) return;
    if (codec->mProcessName == kProcessNoSurfaceAnalysis) return;
    if (codec->mIsVideo.load() && tavroClaimOnce(codec->mFpsCheckPosted)) {
        TAVRO_LOGV(kTavroLogVerbose, "post check fps message");
        codec->postSelf(kWhatCheckFps, kTavroCheckPeriodUs);
    }
    TAVRO_LOGV(kTavroLogDetail, "%p onEmptyBuffer(ts=%lld)", codec.get(),
               static_cast<long long>(timestamp));
    // A surface input has no MediaCodecBuffer to hand over.
    codec->mAnalysisFPS->inputBuffer(nullptr);
}

}  // namespace android
