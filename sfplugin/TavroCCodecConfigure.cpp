#define LOG_NDEBUG 0
#define LOG_TAG "TavroCCodec"
#include "sfplugin/TavroCCodecConfigure.h"

#include <strings.h>
#include <sys/types.h>
#include <unistd.h>

#include <cstring>
#include <mutex>

#include <binder/IPCThreadState.h>
#include <cutils/properties.h>
#include <media/stagefright/foundation/AMessage.h>
#include <media/stagefright/foundation/AString.h>
#include <tavro/ListServiceUtils.h>
#include <tavro/TavroAnalysisFPS.h>
#include <tavro/TavroFeedbackInfo.h>
#include <tavro/TavroListUtils.h>
#include <utils/Timers.h>

#include "common/TavroLog.h"
#include "common/TavroNumber.h"
#include "sfplugin/TavroCCodec.h"
#include "sfplugin/TavroCCodecBufferChannel.h"
#include "whitelist/TavroSystemProbe.h"

namespace android {

namespace {

// Chips whose MediaTek decoders convert colour inside the decoder, and those that convert on
// output. "mt6877" is in both and gets both keys.
constexpr const char* kMtkForceCcChips[] = {"mt6893", "mt6877", "mt6779"};
constexpr const char* kMtkForceOutputCcChips[] = {"mt6835", "mt6768", "mt6877"};
// Chips whose Dolby Vision path honours the black-list and YUV-output keys.
constexpr const char* kDolbyVisionChips[] = {"mt6989", "mt6991"};

template <size_t N>
bool isOneOf(const String8& name, const char* const (&names)[N]) {
    for (const char* candidate : names) {
        if (strcmp(name.c_str(), candidate) == 0) return true;
    }
    return false;
}

bool listValue(bool answered, const char* buffer, String8* out) {
    // The service may fill the whole buffer without a terminator: never read past it.
    *out = answered ? String8(buffer, strnlen(buffer, kListValueSize)) : String8();
    return answered;
}

int64_t binderCallingUid() {
    return static_cast<int64_t>(IPCThreadState::self()->getCallingUid());
}

int64_t binderCallingPid() {
    return static_cast<int64_t>(IPCThreadState::self()->getCallingPid());
}

bool inListByUid(const char* list, int64_t uid) {
    return ListServiceUtils::getInstance()->checkInListByUid(list, uid, 0);
}

// A step's result, for tracing a configure at the most detailed log level.
void traceStep(const char* step, status_t status) {
    TAVRO_LOGV(kTavroLogDetail, "configure step %s: %d", step, status);
}

}  // namespace

bool tavroListValueByUid(const char* list, int64_t uid, String8* out) {
    char buffer[kListValueSize] = {};
    bool answered =
            ListServiceUtils::getInstance()->getListValueByUid(list, uid, buffer, sizeof(buffer));
    return listValue(answered, buffer, out);
}

bool tavroListValueByTopActivity(const char* list, int32_t pid, String8* out) {
    char buffer[kListValueSize] = {};
    bool answered = ListServiceUtils::getInstance()->getListValueByTopActivity(list, pid, buffer,
                                                                               sizeof(buffer));
    return listValue(answered, buffer, out);
}

String8 tavroProperty(const char* key, const char* defaultValue) {
    char value[PROPERTY_VALUE_MAX] = {};
    property_get(key, value, defaultValue);
    return String8(value, strnlen(value, sizeof(value)));
}

bool tavroStartsWithIgnoreCase(const char* text, const char* prefix) {
    return text != nullptr && prefix != nullptr && strncasecmp(text, prefix, strlen(prefix)) == 0;
}

void TavroCCodec::initiateConfigureComponent(const sp<AMessage>& msg) {
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
    }

    // The rules and steps below run in this fixed order: later ones read keys earlier ones
    // wrote (the bitrate passes through three of them). Each decides for itself whether it
    // applies; none can fail the configure.
    configureEncoderOverrides(msg);

    traceStep("setGopAndBitrate", setGopAndBitrate(msg));
    traceStep("setBFrame", setBFrame(msg));
    traceStep("configEncoderPriority", configEncoderPriority(msg));
    traceStep("configDecoderPriority", configDecoderPriority(msg));

    configureDolbyVision(msg);

    int32_t disableWcg = 0;
    if (msg->findInt32(kKeyDisableWcg, &disableWcg) && disableWcg == 1) {
        tavroChannel()->setDisableWCG(true);
    }

    configureThumbnail(msg);

    traceStep("setUsageFlag", setUsageFlag(msg));
    traceStep("configEncoderBitrateSavings", configEncoderBitrateSavings(msg));
    traceStep("configEncoderFilter", configEncoderFilter(msg));
    traceStep("configEncoderScene", configEncoderScene(msg));
    configEncoderQpRange(msg);

    configureInitialQp(msg);

    // Without a surface the Dolby Vision decoder must hand out byte buffers.
    if (strncmp(mMime.c_str(), kMimeDolbyVision, strlen(kMimeDolbyVision)) == 0 &&
        !msg->contains(kKeyNativeWindow)) {
        msg->setInt32(kKeyByteBufferMode, 1);
    }

    traceStep("configureTonemapFilter", configureTonemapFilter(msg));

    configureFeedback(msg);
    if (mIsVideo.load()) mAnalysisFPS->setupVideoStutter(mComponentName, msg);

    traceStep("configTavroVppType", configTavroVppType(msg));

    // The channel reports corrupt data and stutter under the decoder's feedback id.
    if (mIsVideo.load() && !mIsEncoder.load() && mFeedbackID != 0) {
        tavroChannel()->setFeedbackId(mFeedbackID);
    }

    configureMtkColorConvert(msg);
    configureBoostThreads(msg);

    traceStep("setExtParam", setExtParam(msg));
    traceStep("setQtiExtParam", setQtiExtParam(msg));
    traceStep("configureInputDelay", configureInputDelay(msg));
    traceStep("configureSWInputDelay", configureSWInputDelay(msg));

    configureBatchMode(msg);

    CCodec::initiateConfigureComponent(msg);
}

void TavroCCodec::configureEncoderOverrides(const sp<AMessage>& msg) {
    if (!mIsVideo.load() || !mIsEncoder.load()) return;
    const int64_t uid = binderCallingUid();
    String8 value;

    // Constant-quality requests without a quality level take the mode listed for the app.
    int32_t mode = 0, quality = 0;
    if (msg->findInt32(kKeyBitrateMode, &mode) && mode == 0 &&
        !msg->findInt32(kKeyQuality, &quality)) {
        if (tavroListValueByUid(kListEncoderBitrateMode, uid, &value) && !value.isEmpty()) {
            int32_t listed = tavroAtoi(value.c_str());
            TAVRO_LOGD("bitrateMode is %d", listed);
            msg->setInt32(kKeyBitrateMode, listed);
        }
    }

    if (tavroListValueByUid(kListCodec2OutputDelay, uid, &value) && !value.isEmpty()) {
        msg->setInt32(kKeyOutputDelay, tavroAtoi(value.c_str()));
    }
}

void TavroCCodec::configureDolbyVision(const sp<AMessage>& msg) {
    if (mMime.find(kDolbyVisionTag) >= 0) {
        TAVRO_LOGD("current is dolby-vision video stream");
        mHdrType.store(kHdrTypeDolbyVision);
    }
    const String8 hardware = tavroProperty(kPropHardware, kUnknownValue);
    if (mHdrType.load() != kHdrTypeDolbyVision || !isOneOf(hardware, kDolbyVisionChips)) return;
    const int64_t uid = binderCallingUid();
    if (inListByUid(kListDolbyDownscaleBlackList, uid)) {
        msg->setInt64(kKeyDolbyBlackList, 1);
    }
    if (inListByUid(kListDolbyOutputYuv, uid)) {
        msg->setInt64(kKeyDolbyOutputYuv, 1);
    }
}

void TavroCCodec::configureThumbnail(const sp<AMessage>& msg) {
    // The MediaTek key, when the app gave it, decides alone.
    int32_t mode = 0;
    if ((msg->findInt32(kKeyMtkThumbnailMode, &mode) || msg->findInt32(kKeyThumbnailMode, &mode)) &&
        mode == 1) {
        isThumbnail.store(true);
    }
}

void TavroCCodec::configureInitialQp(const sp<AMessage>& msg) {
    // Deliberately blind to the component's vendor: the list names Qualcomm apps only.
    if (!mIsEncoder.load() || !inListByUid(kListQcomEncodeOptimization, binderCallingUid())) {
        return;
    }
    TAVRO_LOGI("set init qp");
    msg->setInt32(kKeyInitQpIEnable, 1);
    msg->setInt32(kKeyInitQpI, kInitialQp);
    msg->setInt32(kKeyInitQpPEnable, 1);
    msg->setInt32(kKeyInitQpP, kInitialQp);
    msg->setInt32(kKeyInitQpBEnable, 1);
    msg->setInt32(kKeyInitQpB, kInitialQp);
}

void TavroCCodec::configureFeedback(const sp<AMessage>& msg) {
    int64_t feedbackKey = 0;
    // Without a key the object's own address names the record, so it is never 0.
    mFeedbackID = msg->findInt64(kKeyFeedbackKey, &feedbackKey)
                          ? feedbackKey
                          : static_cast<int64_t>(reinterpret_cast<intptr_t>(this));
    TAVRO_LOGV(kTavroLogDetail, "[%s:L%d] TavroFeedbackInfo  mFeedbackID:%lld", __func__, __LINE__,
               static_cast<long long>(mFeedbackID));

    if (mFeedbackID == 0 || !mIsVideo.load()) return;
    if (!mIsEncoder.load()) {
        TavroFeedbackInfo::pushFeedbackInfoAtCodec(mFeedbackID, true, false, mComponentName, msg);
    } else if (inListByUid(kListVideoEncoderStatistics, mCallingUid)) {
        TavroFeedbackInfo::pushFeedbackInfoAtCodec(mFeedbackID, mIsVideo.load(), mIsEncoder.load(),
                                                   mComponentName, msg);
    } else {
        TAVRO_LOGV(kTavroLogVerbose, "[%s:L%d] IsNotUploadEncoderInfo ", __func__, __LINE__);
    }
}

void TavroCCodec::configureMtkColorConvert(const sp<AMessage>& msg) {
    if (!mIsVideo.load() || mIsEncoder.load()) return;
    int32_t width = 0, height = 0;
    if (!msg->findInt32(kKeyWidth, &width) || width < 1 || !msg->findInt32(kKeyHeight, &height) ||
        height < 1) {
        return;
    }
    if (strncmp(mComponentName.c_str(), kMtkComponentPrefix, strlen(kMtkComponentPrefix)) != 0) {
        return;
    }

    int64_t uid = 0;
    if (!msg->findInt64(kKeyCallingUid, &uid) || uid == 0) uid = binderCallingUid();
    if (!inListByUid(kListMtkColorConvert, uid)) {
        int64_t pid = 0;
        if (!msg->findInt64(kKeyCallingPid, &pid) || pid == 0) pid = binderCallingPid();
        if (!ListServiceUtils::getInstance()->checkInListByPid(kListMtkColorConvert, pid, 0)) {
            return;
        }
    }

    const String8 hardware = tavroProperty(kPropHardware, kUnknownValue);
    if (isOneOf(hardware, kMtkForceCcChips)) {
        TAVRO_LOGD("set force mtk vdec color convert, uid:%ld", static_cast<long>(uid));
        msg->setInt32(kKeyMtkForceCc, 1);
    }
    if (isOneOf(hardware, kMtkForceOutputCcChips)) {
        TAVRO_LOGD("set force mtk vdec color convert, uid:%ld", static_cast<long>(uid));
        msg->setInt32(kKeyMtkForceOutputCc, 1);
    }
}

void TavroCCodec::configureBoostThreads(const sp<AMessage>& msg) {
    // The looper thread joins later, when the configure message is handled.
    std::lock_guard<std::mutex> lock(mBoostLock);
    mBoostTids.clear();
    int32_t tid = 0;
    if (msg->findInt32(kKeyTpUxTid, &tid)) {
        mBoostTids.push_back(tid);
        mBoostTids.push_back(static_cast<int32_t>(gettid()));
    }
}

void TavroCCodec::configureBatchMode(const sp<AMessage>& msg) {
    if (mComponentName.find(kAacEncoderTag) < 0) return;
    String8 value;
    if (!tavroListValueByTopActivity(kListCodecBatchMode, static_cast<int32_t>(getpid()), &value)) {
        return;
    }
    const int32_t slots = property_get_int32(kPropBatchModeSlots, kBatchModeSlotsDefault);
    msg->setInt32(kKeyBatchModeNum, slots);
    TAVRO_LOGI("[%s:L%d] component:%s, set BMSlotCount:%d", __func__, __LINE__,
               mComponentName.c_str(), slots);
}

}  // namespace android
