#define LOG_NDEBUG 0
#define LOG_TAG "TavroCCodec"
// TavroCCodec::initiateConfigureComponent: reads who the client is and what the stream is, walks
// kConfigureSteps, applies what each step hands back, keeps the outcomes, and hands the enriched
// format to the base.
#include "sfplugin/TavroCCodecConfigure.h"

#include <sys/types.h>
#include <unistd.h>

#include <binder/IPCThreadState.h>
#include <media/stagefright/foundation/AMessage.h>
#include <media/stagefright/foundation/AString.h>
#include <tavro/TavroListUtils.h>
#include <utils/Timers.h>

#include "common/TavroLog.h"
#include "common/TavroRecordTap.h"
#include "sfplugin/TavroCCodec.h"
#include "sfplugin/TavroCCodecBufferChannel.h"
#include "sfplugin/TavroConfigureHelpers.h"
#include "sfplugin/TavroConfigureSteps.h"
#include "sfplugin/TavroSessionRecorder.h"

namespace android {

void TavroCCodec::initiateConfigureComponent(const sp<AMessage>& msg) {
    // The format as the client gave it, before any step changed it.
    TavroRecordScope recordScope(mRecorder.get());
    if (mRecorder) mRecorder->onConfigure(msg);
    // Configure timing for the analysis object, before any step runs.
    updateAnalysis(kKeyCodecConfigIn, systemTime(SYSTEM_TIME_MONOTONIC));

    // Who the client is and what the stream is.
    AString mime;
    if (msg->findString(kKeyMime, &mime)) {
        mMime = mime;
        mIsVideo.store(tavroStartsWithIgnoreCase(mime.c_str(), kMimeVideoPrefix));
    }
    // Presence alone marks an encoder: the framework sets the key only for encoders.
    if (msg->contains(kKeyEncoder)) mIsEncoder.store(true);
    int64_t id = 0;
    mCallingPid = msg->findInt64(kKeyCallingPid, &id) ? id : static_cast<int64_t>(getpid());
    mCallingUid = msg->findInt64(kKeyCallingUid, &id) ? id : static_cast<int64_t>(getuid());
    AString packageName;
    if (msg->findString(kKeyPkgName, &packageName)) {
        mProcessName = String8(packageName.c_str());
    } else {
        mProcessName = getProcessName(getpid());
        if (TavroRecordTap* tap = tavroRecordTap()) {
            tap->onProcessName(static_cast<int32_t>(getpid()), !mProcessName.isEmpty(),
                               mProcessName.c_str());
        }
    }

    TavroConfigureContext ctx = configureContext();
    std::array<TavroConfigureStepResult, kConfigureStepCount> results;
    for (size_t i = 0; i < kConfigureStepCount; ++i) {
        const TavroConfigureStep& row = kConfigureSteps[i];
        TavroConfigureOut out;
        const status_t status = row.step(ctx, msg, &out);
        applyConfigureOut(&out, &ctx);
        results[i] = {row.name, status, out.reason};
        TAVRO_LOGV(kTavroLogDetail, kLogConfigureStep, row.name, status,
                   out.reason != nullptr ? out.reason : "");
    }
    {
        Mutex::Autolock lock(mConfigureResultsLock);
        mConfigureResults = results;
        mConfigured = true;
    }

    CCodec::initiateConfigureComponent(msg);
}

TavroConfigureContext TavroCCodec::configureContext() const {
    TavroConfigureContext ctx;
    ctx.isVideo = mIsVideo.load();
    ctx.isEncoder = mIsEncoder.load();
    ctx.mime = mMime.c_str();
    ctx.component = &mComponentName;
    ctx.processName = mProcessName.c_str();
    ctx.appUid = mCallingUid;
    ctx.appPid = mCallingPid;
    ctx.binderUid = static_cast<int64_t>(IPCThreadState::self()->getCallingUid());
    ctx.binderPid = static_cast<int64_t>(IPCThreadState::self()->getCallingPid());
    if (mRecorder) mRecorder->onCaller(ctx.binderUid, ctx.binderPid);
    ctx.ownPid = static_cast<int32_t>(getpid());
    ctx.ownTid = static_cast<int32_t>(gettid());
    ctx.codecAddress = static_cast<int64_t>(reinterpret_cast<intptr_t>(this));
    ctx.hdrType = mHdrType.load();
    ctx.feedbackId = mFeedbackID;
    ctx.analysis = mAnalysisFPS.get();
    return ctx;
}

void TavroCCodec::applyConfigureOut(TavroConfigureOut* out, TavroConfigureContext* ctx) {
    if (out->hdrType) {
        mHdrType.store(*out->hdrType);
        ctx->hdrType = *out->hdrType;
    }
    if (out->thumbnail) isThumbnail.store(true);
    if (out->disableWcg) tavroChannel()->setDisableWCG(true);
    if (out->feedbackId) {
        mFeedbackID = *out->feedbackId;
        ctx->feedbackId = *out->feedbackId;
    }
    if (out->channelFeedbackId) tavroChannel()->setFeedbackId(*out->channelFeedbackId);
    if (out->fastForwardWatch) {
        tavroChannel()->cheekFFModeStatus(out->fastForwardWatch->enable,
                                          out->fastForwardWatch->vppWhiteListValue);
    }
    if (out->restoreOperatingRate) {
        // A new restore must be posted again after the next first render.
        if (*out->restoreOperatingRate != 0) mOperatingRateRestored.store(false);
        mRestoreOperatingRate.store(*out->restoreOperatingRate);
    }
    if (out->boostTids) {
        Mutex::Autolock lock(mBoostLock);
        mBoost.tids = std::move(*out->boostTids);
    }
}

std::vector<TavroConfigureStepResult> TavroCCodec::lastConfigureResults() const {
    Mutex::Autolock lock(mConfigureResultsLock);
    if (!mConfigured) return {};
    return std::vector<TavroConfigureStepResult>(mConfigureResults.begin(),
                                                 mConfigureResults.end());
}

}  // namespace android
