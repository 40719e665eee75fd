#define LOG_NDEBUG 0
#define LOG_TAG "TavroCCodec"
#include "sfplugin/TavroCCodec.h"

#include <sys/types.h>
#include <unistd.h>

#include <cinttypes>
#include <string>

#include <binder/IPCThreadState.h>
#include <media/MediaCodecInfo.h>
#include <media/stagefright/foundation/ADebug.h>
#include <tavro/PeltoEventUploadUtils.h>
#include <tavro/TavroAnalysisFPS.h>
#include <tavro/TavroFeedbackInfo.h>
#include <tavro/TavroVideoBoost.h>
#include <utils/Timers.h>

#include "common/TavroLog.h"
#include "common/TavroNumber.h"
#include "common/TavroRecordTap.h"
#include "sfplugin/TavroCCodecBufferChannel.h"
#include "sfplugin/TavroCCodecCallbacks.h"
#include "sfplugin/TavroConfigureHelpers.h"
#include "sfplugin/TavroSessionRecorder.h"
#include "sfplugin/TavroVideoBoostParams.h"
#include "whitelist/TavroBoostInfo.h"

namespace android {

namespace {

// Interval the event-upload client may refresh the top activity at.
constexpr int32_t kTopActivityIntervalMs = 500;

String8 decimal(int64_t value) {
    return String8::format("%" PRId64, value);
}

}  // namespace

TavroCCodec::TavroCCodec() : mRecorder(TavroSessionRecorder::createFromProperties()) {
    PeltoEventUploadUtils::getInstance()->updateTopActivity(kTopActivityIntervalMs);
    mAnalysisFPS = new TavroAnalysisFPS();
    auto baseCallback = std::make_shared<CCodecCallbackImpl>(this);
    auto tavroCallback = std::make_shared<TavroCCodecCallbackImpl>(this);
    mChannel =
            std::make_shared<TavroCCodecBufferChannel>(baseCallback, tavroCallback, mAnalysisFPS);
    if (mRecorder) tavroChannel()->setSessionRecorder(mRecorder);
    updateAnalysis(kKeyCodecCreateTime, systemTime(SYSTEM_TIME_MONOTONIC));
}

TavroCCodec::~TavroCCodec() {
    TavroRecordScope recordScope(mRecorder.get());
    TAVRO_LOGV(kTavroLogDetail, kLogDestroy, __LINE__, this);
    if (mFeedbackID != 0 && mIsVideo.load()) {
        bool deleteId = true;
        if (mIsEncoder.load()) {
            if (tavroInListByUid(kListVideoEncoderStatistics, mCallingUid)) {
                TavroFeedbackInfo::pushFeedbackInfo(mFeedbackID, String8(kFeedbackOutputCount),
                                                    decimal(mAnalysisFPS->getOutputBufCntTotal()),
                                                    0);
                TavroFeedbackInfo::sendFeedbackInfo(mFeedbackID);
            } else {
                TAVRO_LOGV(kTavroLogVerbose, kLogDestroyEncoderNotUploaded, __LINE__);
                // An encoder outside the statistics list never registered its id.
                deleteId = false;
            }
        } else {
            int32_t hdrType = mHdrType.load();
            if (!isThumbnail.load() && hdrType >= kHdrTypeHdr10) {
                TavroFeedbackInfo::sendFeedbackHdrPlaybackInfo(mFeedbackID,
                                                               kFeedbackHdrPlaybackEvent, hdrType);
            }
            if (tavroInListByUid(kListVideoStatistics, mCallingUid)) {
                TavroFeedbackInfo::pushFeedbackInfo(mFeedbackID, String8(kFeedbackInputCount),
                                                    decimal(mAnalysisFPS->getInputBufCntTotal()),
                                                    0);
                TavroFeedbackInfo::sendFeedbackInfo(mFeedbackID);
            }
        }
        if (deleteId) TavroFeedbackInfo::deleteFeedbackId(mFeedbackID);
    }
    if (mChannel) mChannel->setFeedbackId(0);
    if (mRecorder) mRecorder->onDestroy();
}

TavroCCodecBufferChannel* TavroCCodec::tavroChannel() const {
    // The constructor installs a TavroCCodecBufferChannel and nothing replaces it.
    return static_cast<TavroCCodecBufferChannel*>(mChannel.get());
}

void TavroCCodec::postSelf(uint32_t what, int64_t delayUs) {
    sp<AMessage> msg = new AMessage(what, this);
    msg->post(delayUs);
}

void TavroCCodec::updateAnalysis(const char* key, int64_t value) {
    sp<AMessage> telemetry = new AMessage();
    telemetry->setInt64(key, value);
    mAnalysisFPS->updateParameters(telemetry);
}

void TavroCCodec::onMessageReceived(const sp<AMessage>& msg) {
    TavroRecordScope recordScope(mRecorder.get());
    switch (msg->what()) {
        case kWhatBoostApp:
            handleBoostApp(msg);
            return;
        case kWhatResetOperatingRate: {
            int32_t rate = mRestoreOperatingRate.load();
            sp<AMessage> params = new AMessage();
            params->setFloat(kKeyOperatingRate, static_cast<float>(rate));
            CCodec::signalSetParameters(params);
            TAVRO_LOGD("setExtParam: Reset operating-rate(%d)", rate);
            return;
        }
        case kWhatCheckOperatingRate:
            if (!mIsVideo.load() || !mFpsCheckPosted.load()) return;
            checkOperatingRate();
            postSelf(kWhatCheckOperatingRate, kTavroCheckPeriodUs);
            return;
        case kWhatCheckFps:
            if (!mIsVideo.load() || !mFpsCheckPosted.load()) return;
            mAnalysisFPS->sendFPSInfo();
            postSelf(kWhatCheckFps, kTavroCheckPeriodUs);
            return;
        default:
            break;
    }

    const uint32_t what = msg->what();
    if (what == kWhatConfigure) {
        sp<AMessage> format;
        if (mIsVideo.load() && msg->findMessage(kKeyFormat, &format)) {
            Mutex::Autolock lock(mBoostLock);
            mBoost.tids.push_back(static_cast<int32_t>(gettid()));
        }
        getBoostParams(msg);
    }

    if (what == kWhatStart && mRecorder) mRecorder->onStart();
    sp<AMessage> telemetry = new AMessage();
    if (what == kWhatStart)
        telemetry->setInt64(kKeyCodecStartIn, systemTime(SYSTEM_TIME_MONOTONIC));

    CCodec::onMessageReceived(msg);

    const char* outKey = nullptr;
    switch (what) {
        case kWhatAllocate:
            outKey = kKeyCodecAllocateOut;
            break;
        case kWhatConfigure:
            outKey = kKeyCodecConfigOut;
            break;
        case kWhatStart:
            outKey = kKeyCodecStartOut;
            break;
        default:
            break;
    }
    if (outKey != nullptr) {
        telemetry->setInt64(outKey, systemTime(SYSTEM_TIME_MONOTONIC));
        mAnalysisFPS->updateParameters(telemetry);
    }

    if (what == kWhatStart) {
        Mutexed<State>::Locked state(mState);
        if (state->get() == State::RUNNING) startMediaBoost();
    }
}

void TavroCCodec::initiateAllocateComponent(const sp<AMessage>& msg) {
    sp<RefBase> codecInfo;
    CHECK(msg->findObject("codecInfo", &codecInfo));
    mComponentName = static_cast<MediaCodecInfo*>(codecInfo.get())->getCodecName();
    TavroRecordScope recordScope(mRecorder.get());
    if (mRecorder) mRecorder->onAllocate(mComponentName.c_str());

    if (mComponentName.find("encoder") >= 0 &&
        (mComponentName.find("c2.qti") >= 0 || mComponentName.find("c2.mtk") >= 0)) {
        const int64_t uid = static_cast<int64_t>(IPCThreadState::self()->getCallingUid());
        if (mRecorder) mRecorder->onCaller(uid, IPCThreadState::self()->getCallingPid());
        if (tavroInListByUid(kListDisableVideoShaper, uid)) {
            if (mCallback) mCallback->onDisableVideoShaper(true);
            TAVRO_LOGI("disable video shaper by list");
        }
    }
    CCodec::initiateAllocateComponent(msg);
}

void TavroCCodec::initiateShutdown(bool keepComponentAllocated) {
    TAVRO_LOGV(kTavroLogDetail, kLogShutdown, __LINE__, this, keepComponentAllocated);
    if (mRecorder) mRecorder->onShutdown(keepComponentAllocated);
    if (!keepComponentAllocated) {
        mAnalysisFPS->resetFPS();
        if (mFeedbackID != 0 && mIsVideo.load()) {
            const int64_t uses = mAnalysisFPS->getTotalFpsUseCnt();
            if (mRecorder) mRecorder->onFpsUseCount(uses);
            TavroFeedbackInfo::pushFeedbackInfo(mFeedbackID, String8(kFeedbackTimeUsage),
                                                decimal(uses), 1);
        }
    }
    // Stops both periodic checks at their next firing.
    mFpsCheckPosted.store(false);
    CCodec::initiateShutdown(keepComponentAllocated);
}

status_t TavroCCodec::setSurface(const sp<Surface>& surface, uint32_t generation) {
    TAVRO_LOGV(kTavroLogDetail, kLogSetSurface, __LINE__, this);
    mAnalysisFPS->signalNewPlay();
    return CCodec::setSurface(surface, generation);
}

void TavroCCodec::signalFlush() {
    TAVRO_LOGD(kLogSignalFlush, __LINE__, this);
    if (mRecorder) mRecorder->onFlush();
    mAnalysisFPS->signalFlush();
    CCodec::signalFlush();
}

void TavroCCodec::signalResume() {
    if (mRecorder) mRecorder->onResume();
    CCodec::signalResume();
}

void TavroCCodec::signalSetParameters(const sp<AMessage>& params) {
    TavroRecordScope recordScope(mRecorder.get());
    if (mRecorder) mRecorder->onSetParameters(params);
    TAVRO_LOGD(kLogSignalSetParameters, __LINE__, this);
    float rate = 0.0f;
    if (params->findFloat(kKeyOperatingRate, &rate)) {
        mOperatingRate.store(tavroFloatToInt32(rate));
        TAVRO_LOGD("operating-rate[%d] is set", mOperatingRate.load());
        checkOperatingRate();
    }
    if (params->contains(kKeyTavroBoostInfo)) {
        // A boost message is ours alone: the platform never sees it, not even its other keys.
        boostAppKeyThread(params);
        return;
    }
    mAnalysisFPS->updateParameters(params);
    TavroConfigureOut unused;
    configTavroVppSwitchByApp(configureContext(), params, &unused);
    CCodec::signalSetParameters(params);
}

void TavroCCodec::reportOverLoadInfo() {
    mAnalysisFPS->reportOverLoadInfo();
}

void TavroCCodec::onWorkDone(std::list<std::unique_ptr<C2Work>>& works) {
    TavroSessionRecorder* recorder = mRecorder.get();
    std::shared_ptr<const C2Info> color;
    std::shared_ptr<const C2Info> dynamic;
    checkHDRType(works, recorder != nullptr ? &color : nullptr,
                 recorder != nullptr ? &dynamic : nullptr);
    if (recorder != nullptr) {
        // Each work is an output of its own in the recording; the HDR infos belong to the first,
        // the only one the check reads.
        bool first = true;
        for (const std::unique_ptr<C2Work>& work : works) {
            if (work != nullptr) {
                recorder->onOutput(*work, first ? color.get() : nullptr,
                                   first ? dynamic.get() : nullptr);
            }
            first = false;
        }
    }
    CCodec::onWorkDone(works);
}

void TavroCCodec::setupInputSurface(const std::shared_ptr<InputSurfaceWrapper>& surface) {
    if (surface) {
        surface->mEmptyBufferCallback =
                std::make_shared<TavroCodecCallbackImpl>(wp<TavroCCodec>(this));
    }
    CCodec::setupInputSurface(surface);
}

}  // namespace android
