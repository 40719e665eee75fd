#define LOG_NDEBUG 0
#define LOG_TAG "TavroCCodec"
#include "sfplugin/TavroMediaBoost.h"

#include <sys/types.h>
#include <unistd.h>

#include <cstring>
#include <memory>
#include <set>
#include <string>

#include <tavro/TavroVideoBoost.h>

#include "common/TavroLog.h"
#include "common/TavroNumber.h"
#include "sfplugin/TavroCCodec.h"
#include "sfplugin/TavroCCodecConfigure.h"
#include "sfplugin/TavroVideoBoostParams.h"
#include "sfplugin/TavroVideoTaskBoost.h"
#include "whitelist/TavroBoostInfo.h"
#include "whitelist/TavroMediaInfo.h"
#include "whitelist/TavroWhiteListCacheMgr.h"

namespace android {

namespace {

// 90% of a rate, without overflowing for any int32 rate.
int32_t ninetyPercent(int32_t rate) {
    return static_cast<int32_t>(static_cast<int64_t>(rate) * 9 / 10);
}

}  // namespace

void TavroCCodec::handleBoostApp(const sp<AMessage>& msg) {
    Mutexed<State>::Locked state(mState);
    if (state->get() != State::RUNNING) return;
    AString appThreads;
    int32_t sched = 0;
    if (!msg->findString(kKeyAppThreads, &appThreads) || !msg->findInt32(kKeySched, &sched) ||
        sched < 1) {
        return;
    }
    TavroVideoTaskBoost task;
    task.pid = static_cast<int32_t>(getpid());
    task.sched = static_cast<uint32_t>(sched);
    parseStrByDelim(appThreads.c_str(), kAppThreadSeparator, task.threadNames);
    TAVRO_LOGV(kTavroLogVerbose, "kWhatBoostApp, appThreads: %s", appThreads.c_str());
    // Handed over with the base's state lock and mBoostLock held, like every request that changes
    // what the service does for this codec: one at a time, never beside a start or a release.
    Mutex::Autolock boostLock(mBoostLock);
    if (mBoost.service != nullptr) mBoost.service->boostTask(task);
}

void TavroCCodec::checkOperatingRate() {
    int32_t limit = 0;
    bool countFps = false;
    bool active = false;
    {
        Mutex::Autolock lock(mBoostLock);
        if (mBoost.phase == TavroBoostPhase::kUnavailable || mClusterInfo == nullptr) return;
        limit = mClusterInfo->limitOpRate;
        countFps = mClusterInfo->countFps;
        active = mBoost.clusterSent;
    }
    if (!mIsVideo.load() || limit == 0) return;

    int32_t lowBoundary = limit;
    if (countFps) {
        mOperatingRate.store(mCountedFps.load());
        lowBoundary = ninetyPercent(mCountedFps.load());
    }
    if (mIsEncoder.load()) {
        int32_t frames = mEncodedFrames.exchange(0);
        TAVRO_LOGV(kTavroLogVerbose, "Encoder fps: %d", frames);
        mOperatingRate.store(frames);
        lowBoundary = ninetyPercent(frames);
    }

    const int32_t rate = mOperatingRate.load();
    if (active) {
        // For an encoder the boundary is 90% of the very rate it is compared with, so the
        // release never fires there; the rule is kept as it is.
        if (rate < lowBoundary) {
            TAVRO_LOGV(kTavroLogVerbose, "mOperatingRate: %d < lowBoundary: %d", rate, lowBoundary);
            executeMediaBoost(kBoostReleaseCluster);
        }
    } else if (rate >= limit) {
        TAVRO_LOGV(kTavroLogVerbose, "mOperatingRate: %d > limitOpRate: %d", rate, limit);
        executeMediaBoost(kBoostSendCluster);
    }
}

bool TavroCCodec::initVideoBoostParams() {
    mOperatingRate.store(0);
    mEncodedFrames.store(0);
    // The client lookup is the service's business, not ours to hold the lock over.
    sp<TavroVideoBoost> service = TavroVideoBoost::getInstance();
    {
        Mutex::Autolock lock(mBoostLock);
        mCountedFps.store(0);
        mBoost.phase = TavroBoostPhase::kUnavailable;
        mBoost.clusterSent = false;
        mBoost.request = std::make_shared<TavroVideoBoostParams>();
        std::atomic_store(&mClusterInfo, std::make_shared<TavroClusterInfo>());
        mBoost.service = service;
    }
    if (service == nullptr) {
        ALOGE("videoboost: fail to get TavroVideoBoost::getInstance()");
        return false;
    }
    return true;
}

void TavroCCodec::getBoostParams(const sp<AMessage>& msg) {
    if (!initVideoBoostParams()) {
        ALOGE("Failed to init video boost params.");
        return;
    }
    TavroMediaInfo info;
    if (!getMediaInfo(msg, info)) return;
    parseBoostInfo(info);

    const TavroVideoBoost* service = nullptr;
    {
        Mutex::Autolock lock(mBoostLock);
        if (mBoost.request->isEmpty()) return;  // no boost possible: the phase stays unavailable
        mBoost.phase = TavroBoostPhase::kArmed;
        service = mBoost.service.get();
    }
    TAVRO_LOGV(kTavroLogVerbose, "Boost instance[0x%p]", service);
}

bool TavroCCodec::getMediaInfo(const sp<AMessage>& msg, TavroMediaInfo& info) {
    sp<AMessage> format;
    if (!msg->findMessage(kKeyFormat, &format)) {
        ALOGE("No format information.");
        return false;
    }
    info.mime = mMime.c_str();
    info.component = mComponentName.c_str();
    info.isVideo = mIsVideo.load() ? 1 : 0;
    info.isEncoder = mIsEncoder.load() ? 1 : 0;
    if (info.isVideo) {
        format->findInt32(kKeyWidth, &info.width);
        format->findInt32(kKeyHeight, &info.height);
    } else {
        format->findInt32(kKeySampleRate, &info.sampleRate);
        format->findInt32(kKeyBitsPerSample, &info.sampleBits);
        format->findInt32(kKeyChannelCount, &info.channelCount);
    }
    float rate = 0.0f;
    if (format->findFloat(kKeyOperatingRate, &rate)) mOperatingRate.store(tavroFloatToInt32(rate));
    format->findInt32(kKeyCodecId, &info.codecId);
    format->findInt32(kKeyBitrate, &info.bitrate);
    return true;
}

bool TavroCCodec::parseBoostInfo(const TavroMediaInfo& info) {
    // The request and the cluster record are built privately and published under mBoostLock,
    // so the buffer path and set-parameters never see a half-filled record.
    TavroUxInfo ux;
    auto cluster = std::make_shared<TavroClusterInfo>();
    auto params = std::make_shared<TavroVideoBoostParams>();
    TavroWhiteListCacheMgr* manager = TavroWhiteListCacheMgr::getInstance();
    manager->getBoostInfo(static_cast<int32_t>(mCallingPid), info, ux, cluster);
    parseClusterInfo(*cluster, params->clusterParams);

    int32_t sched;
    const bool video = mIsVideo.load();
    if (video) {
        params->needVendorBoost = ux.needVendorBoost;
        sched = ux.schedVideo;
        params->sched = sched;
        if (info.component.find(kSecureComponentMark) != std::string::npos) {
            params->ddrFreq = ux.ddrFreq;
            TAVRO_LOGV(kTavroLogVerbose, "DRM video, DDR boost");
        }
    } else {
        params->swThreads = ux.swThreads;
        sched = ux.schedAudio;
        params->sched = sched;
    }

    std::vector<int32_t> boostTids;
    {
        Mutex::Autolock lock(mBoostLock);
        boostTids = mBoost.tids;
    }
    const int32_t pid = static_cast<int32_t>(getpid());
    if (sched >= 1) {
        ux.tids.insert(ux.tids.end(), boostTids.begin(), boostTids.end());
        for (int32_t tid : ux.tids) {
            params->threads.insert(params->threads.end(), {pid, tid, sched});
        }
    }
    if (cluster->minUclamp != 0) {
        for (int32_t index : cluster->uclampIndex) {
            if (index < 0 || static_cast<size_t>(index) >= boostTids.size()) continue;
            params->uclampThreads.insert(params->uclampThreads.end(),
                                         {boostTids[index], cluster->minUclamp});
            TAVRO_LOGV(kTavroLogVerbose, "Set uclamp tid: %d, minClamp: %d", boostTids[index],
                       cluster->minUclamp);
        }
    }
    {
        Mutex::Autolock lock(mBoostLock);
        mBoost.request = params;
        std::atomic_store(&mClusterInfo, cluster);
    }

    if (video && !ux.appThreads.empty()) {
        sp<AMessage> boostApp = new AMessage(kWhatBoostApp, this);
        boostApp->setString(kKeyAppThreads, ux.appThreads.c_str());
        boostApp->setInt32(kKeySched, sched);
        boostApp->post(kTavroCheckPeriodUs);
    }
    return true;
}

void TavroCCodec::startMediaBoost() {
    int32_t limit = 0;
    bool countFps = false;
    {
        Mutex::Autolock lock(mBoostLock);
        if (mBoost.phase == TavroBoostPhase::kUnavailable || mClusterInfo == nullptr) return;
        countFps = mClusterInfo->countFps;
        limit = mClusterInfo->limitOpRate;
    }
    TAVRO_LOGV(kTavroLogVerbose, "TavroCCodec::startMediaBoost start");
    const int32_t rate = mOperatingRate.load();
    if (limit >= 1 && rate < limit) {
        // The cluster part waits for the watchdog to see the rate reach the limit.
        TAVRO_LOGV(kTavroLogVerbose, "Operating rate[%d] < mClusterInfo->limitOpRate[%d]", rate,
                   limit);
        // Posted whether or not a chain already runs: the firing keeps going only while the
        // periodic checks are on (mFpsCheckPosted), and a doubled chain is harmless.
        if (countFps && mIsVideo.load() && !mIsEncoder.load()) {
            postSelf(kWhatCheckOperatingRate, kTavroCheckPeriodUs);
        }
        executeMediaBoost(kBoostSendThreads);
        return;
    }
    executeMediaBoost(kBoostSendAll);
    TAVRO_LOGV(kTavroLogVerbose, "TavroCCodec::startMediaBoost end");
}

void TavroCCodec::executeMediaBoost(uint32_t flags) {
    Mutex::Autolock lock(mBoostLock);
    executeMediaBoost_l(flags);
}

void TavroCCodec::executeMediaBoost_l(uint32_t flags) {
    TAVRO_LOGV(kTavroLogVerbose, "Execute media boost, state[0x%x], flags[0x%x]", mBoost.word(),
               flags);
    if (mBoost.phase == TavroBoostPhase::kUnavailable || mBoost.request == nullptr ||
        mBoost.service == nullptr) {
        TAVRO_LOGI("Media boost is not initialized or no boost info.");
        return;
    }
    // The service is called with mBoostLock held, so that requests and releases reach it one at a
    // time per codec and in the order the state changes.
    const TavroVideoBoostParams& whole = *mBoost.request;
    switch (flags) {
        case kBoostSendThreads: {
            if (whole.needVendorBoost || !whole.threads.empty()) {
                TavroVideoBoostParams request;
                request.needVendorBoost = whole.needVendorBoost;
                request.sched = whole.sched;
                request.threads = whole.threads;
                mBoost.service->boost(request);
            }
            // Set whether or not anything was sent; a cluster part sent before start is
            // forgotten, as the state word of the protocol has it.
            mBoost.phase = TavroBoostPhase::kThreadsSent;
            mBoost.clusterSent = false;
            break;
        }
        case kBoostSendCluster:
            if (!mBoost.clusterSent && !whole.clusterParams.empty()) {
                TavroVideoBoostParams request;
                request.clusterParams = whole.clusterParams;
                mBoost.service->boost(request);
                mBoost.clusterSent = true;
            }
            break;
        case kBoostSendAll:
            mBoost.service->boost(whole);
            mBoost.phase = TavroBoostPhase::kThreadsSent;
            mBoost.clusterSent = true;
            break;
        case kBoostReleaseCluster:
            if (mBoost.clusterSent) {
                mBoost.service->unboost(kBoostReleaseCluster);
                mBoost.clusterSent = false;
            }
            break;
        case kBoostReleaseAll:
            mBoost.service->unboost(kBoostReleaseAll);
            mBoost.phase = TavroBoostPhase::kArmed;
            mBoost.clusterSent = false;
            break;
        default:
            break;
    }
}

void TavroCCodec::boostAppKeyThread(const sp<AMessage>& params) {
    // The whole exchange runs under mBoostLock, the request to the service included: it must not
    // interleave with a start or a release of the same codec.
    Mutex::Autolock lock(mBoostLock);
    AString text;
    if (mBoost.service == nullptr || mBoost.request == nullptr || mBoost.request->sched < 1 ||
        !params->findString(kKeyTavroBoostInfo, &text)) {
        return;
    }
    TAVRO_LOGD("App key thread: %s", text.c_str());

    std::vector<std::string> tokens;
    parseStrByDelim(text.c_str(), kBoostInfoTidSeparator, tokens);
    std::set<int32_t> ids;  // ascending, without duplicates
    for (const std::string& token : tokens) {
        int32_t tid = 0;
        if (!tavroParseInt32(token, &tid)) {
            ALOGE("App key thread: '%s' is not a thread id, skipped", token.c_str());
            continue;
        }
        bool known = false;
        for (int32_t boosted : mBoost.tids) known = known || boosted == tid;
        if (!known) ids.insert(tid);
    }
    if (ids.empty() && !mBoost.request->needVendorBoost) return;

    TavroVideoBoostParams request;
    request.sched = mBoost.request->sched;
    const int32_t pid = static_cast<int32_t>(getpid());
    for (int32_t tid : ids)
        request.threads.insert(request.threads.end(), {pid, tid, request.sched});
    mBoost.service->boost(request);
}

}  // namespace android
