#define LOG_NDEBUG 0
#define LOG_TAG "TavroCCodec"
#include "sfplugin/TavroCodecTuning.h"

#include <strings.h>
#include <sys/types.h>
#include <unistd.h>

#include <cstring>

#include <binder/IPCThreadState.h>
#include <media/stagefright/foundation/AMessage.h>
#include <tavro/ListServiceUtils.h>
#include <tavro/TavroListUtils.h>
#include <utils/Log.h>

#include "common/TavroLog.h"
#include "common/TavroNumber.h"
#include "sfplugin/TavroCCodec.h"
#include "sfplugin/TavroCCodecConfigure.h"
#include "whitelist/TavroSystemProbe.h"

namespace android {

namespace {

String8 pairOr(const TavroKeyValueMap& pairs, const char* key, const char* fallback) {
    auto it = pairs.find(String8(key));
    return it == pairs.end() ? String8(fallback) : it->second;
}

bool startsWith(const char* text, const char* prefix) {
    return strncmp(text, prefix, strlen(prefix)) == 0;
}

}  // namespace

status_t TavroCCodec::configEncoderPriority(const sp<AMessage>& format) {
    if (!mIsVideo.load() || !mIsEncoder.load()) return INVALID_OPERATION;
    const String8 soc = tavroProperty(kPropSocModel, kUnknownValue);
    String8 value;
    if (!tavroListValueByUid(kListKeyPriorityEncoder, mCallingUid, &value)) {
        return INVALID_OPERATION;
    }
    TavroKeyValueMap pairs;
    if (!parseKeyValuePairFromStr(value.c_str(), pairs)) return INVALID_OPERATION;

    const String8 cpu = pairOr(pairs, kPairCpu, kUnknownValue);
    const String8 priority = pairOr(pairs, kPairPriority, kDefaultEncoderPriority);
    // The first six characters name the chip; variants (SM8650P) share its setting.
    if (strncasecmp(soc.c_str(), cpu.c_str(), kPriorityChipPrefix) != 0 || priority.isEmpty()) {
        return INVALID_OPERATION;
    }
    // Only real time (0) and best effort (1); negatives are refused by the unsigned compare.
    const int32_t n = tavroAtoi(priority.c_str());
    if (static_cast<uint32_t>(n) > 1u) return INVALID_OPERATION;
    format->setInt32(kKeyPriority, n);
    return OK;
}

status_t TavroCCodec::configDecoderPriority(const sp<AMessage>& format) {
    if (!mIsVideo.load() || mIsEncoder.load()) return INVALID_OPERATION;
    // An app that asked for non-real-time already has what this step would give.
    int32_t priority = 0;
    if (format->findInt32(kKeyPriority, &priority) && priority != 0) return INVALID_OPERATION;

    const String8 soc = tavroProperty(kPropSocModel, kUnknownValue);
    bool listedChip = false;
    for (const char* chip : kBestEffortDecoderChips) {
        listedChip = listedChip || tavroStartsWithIgnoreCase(soc.c_str(), chip);
    }
    if (!listedChip) return INVALID_OPERATION;

    const int64_t uid = static_cast<int64_t>(IPCThreadState::self()->getCallingUid());
    if (!ListServiceUtils::getInstance()->checkInListByUid(kListKeyPriority, uid, 0)) {
        return INVALID_OPERATION;
    }
    format->setInt32(kKeyPriority, 1);
    return OK;
}

status_t TavroCCodec::setUsageFlag(const sp<AMessage>& format) {
    if (!mIsVideo.load() || !mIsEncoder.load()) return OK;
    int64_t flag64 = 0;
    int32_t flag32 = 0;
    const bool requested = (format->findInt64(kKeyEncodeUsageFlag, &flag64) && flag64 != 0) ||
                           (format->findInt32(kKeyEncodeUsageFlag, &flag32) && flag32 != 0);
    if (!requested) return OK;
    // The request is ours, not the component's: consumed whatever follows.
    format->setInt64(kKeyEncodeUsageFlag, 0);

    String8 value;
    if (!tavroListValueByUid(kListEncodeUsageFlag, mCallingUid, &value) || value.isEmpty()) {
        return INVALID_OPERATION;
    }
    TavroKeyValueMap pairs;
    if (!parseKeyValuePairFromStr(value.c_str(), pairs)) return INVALID_OPERATION;

    const String8 family = tavroProperty(kPropDeviceFamily, kUnknownValue);
    const String8 cpu = pairOr(pairs, kPairCpu, "");
    if (strstr(cpu.c_str(), family.c_str()) != nullptr) {
        format->setInt64(kKeyEncodeUsageFlag, kEncodeUsageFlagBit);
        TAVRO_LOGD("encode setting usage flag");
    }
    return OK;
}

status_t TavroCCodec::configEncoderScene(const sp<AMessage>& format) {
    if (!mIsVideo.load() || !mIsEncoder.load()) return INVALID_OPERATION;
    String8 value;
    const bool found =
            tavroListValueByTopActivity(kListEncoderScene, static_cast<int32_t>(getpid()), &value);
    if (!found || value.isEmpty()) {
        ALOGW("Ext activity return: %d, value: %s.", found ? 1 : 0, value.c_str());
        return INVALID_OPERATION;
    }
    TavroKeyValueMap pairs;
    if (!parseKeyValuePairFromStr(value.c_str(), pairs)) return INVALID_OPERATION;

    const int32_t scene = getIntValueFromKeyValuePair(pairs, kPairScene, 0);
    if (scene == 0) {
        ALOGW("Encoder scene value[%d] invalid.", scene);
        return INVALID_OPERATION;
    }
    // The scene is an unsigned 32-bit code: zero-extended, never sign-extended.
    format->setInt64(kKeyEncSceneValue, static_cast<int64_t>(static_cast<uint32_t>(scene)));
    return OK;
}

status_t TavroCCodec::configEncoderFilter(const sp<AMessage>& format) {
    TAVRO_LOGI("configEncoderFilter enter, mIsEncoder: %d", mIsEncoder.load() ? 1 : 0);
    if (!mIsVideo.load() || !mIsEncoder.load()) return INVALID_OPERATION;
    int32_t bitrate = 0, width = 0, height = 0;
    if (!format->findInt32(kKeyBitrate, &bitrate) || !format->findInt32(kKeyWidth, &width) ||
        !format->findInt32(kKeyHeight, &height)) {
        return INVALID_OPERATION;
    }

    String8 value;
    const bool found = tavroListValueByTopActivity(kListEncoderPreProcess,
                                                   static_cast<int32_t>(getpid()), &value);
    TAVRO_LOGI("Ext activity return: %d, value: %s.", found ? 1 : 0, value.c_str());
    if (!found || value.isEmpty()) return INVALID_OPERATION;
    TavroKeyValueMap pairs;
    if (!parseKeyValuePairFromStr(value.c_str(), pairs)) return INVALID_OPERATION;

    const String8 type = pairOr(pairs, kPairType, "");
    int64_t preProcess = 0;
    int32_t mbSide = 0;
    const char* limitKey = nullptr;
    if (startsWith(mMime.c_str(), kMimeAvcPrefix) && strstr(type.c_str(), kTypeAvc) != nullptr) {
        preProcess = kPreProcessAvc;
        mbSide = kMbSideAvc;
        limitKey = kPairAvcLimitBitrate;
    } else if (startsWith(mMime.c_str(), kMimeHevcPrefix) &&
               strstr(type.c_str(), kTypeHevc) != nullptr) {
        preProcess = kPreProcessHevc;
        mbSide = kMbSideHevc;
        limitKey = kPairHevcLimitBitrate;
    } else {
        ALOGE("Not support this encoder[%s], config codec type[%s]", mMime.c_str(), type.c_str());
        return INVALID_OPERATION;
    }

    // A missing limit means no bitrate limit.
    const int32_t limit = getIntValueFromKeyValuePair(pairs, limitKey, 0);
    if (limit != 0 && bitrate > limit) {
        ALOGW("Bitrate[%d] > limitBitrate[%d]", bitrate, limit);
        return INVALID_OPERATION;
    }

    const int32_t limitWidth = getIntValueFromKeyValuePair(pairs, kPairLimitWidth, 0);
    const int32_t limitHeight = getIntValueFromKeyValuePair(pairs, kPairLimitHeight, 0);
    // The app's frame size must fit the engine's 32-bit area: anything larger is a broken
    // format, not a size to refuse quietly.
    int32_t area = 0;
    LOG_ALWAYS_FATAL_IF(__builtin_mul_overflow(width, height, &area),
                        "configEncoderFilter: width %d x height %d overflows", width, height);
    // The limits are untrusted list text: compared in 64 bits, so a huge pair cannot abort.
    const int64_t limitArea = static_cast<int64_t>(limitWidth) * limitHeight;
    if (static_cast<int64_t>(area) > limitArea) {
        ALOGW("Encode resolution[%d * %d] > limit resolution[%d * %d]", width, height, limitWidth,
              limitHeight);
        return INVALID_OPERATION;
    }

    TAVRO_LOGI("Config encoder preprocessing value: 0x%x", static_cast<unsigned>(preProcess));
    format->setInt64(kKeyVppWhiteListValue, preProcess);
    format->setInt32(kKeyRoiMbSideLength, mbSide);
    if (format->findInt32(kKeyBitrate, &bitrate)) {
        const int32_t newBitrate =
                tavroFloatToInt32(static_cast<float>(bitrate) * kPreProcessBitrateFactor);
        TAVRO_LOGV(kTavroLogVerbose, "change bitrate to %d", newBitrate);
        format->setInt32(kKeyBitrate, newBitrate);
    }
    return OK;
}

}  // namespace android
