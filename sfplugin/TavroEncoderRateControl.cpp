#define LOG_NDEBUG 0
#define LOG_TAG "TavroCCodec"
#include "sfplugin/TavroEncoderRateControl.h"

#include <strings.h>
#include <sys/types.h>
#include <unistd.h>

#include <cstring>

#include <binder/IPCThreadState.h>
#include <cutils/properties.h>
#include <media/stagefright/foundation/AMessage.h>
#include <tavro/TavroListUtils.h>

#include "common/TavroLog.h"
#include "common/TavroNumber.h"
#include "sfplugin/TavroCCodec.h"
#include "sfplugin/TavroCCodecConfigure.h"
#include "whitelist/TavroSystemProbe.h"

namespace android {

namespace {

// The value of pair `key`, or `fallback` when the pair is absent.
String8 pairOr(const TavroKeyValueMap& pairs, const char* key, const char* fallback) {
    auto it = pairs.find(String8(key));
    return it == pairs.end() ? String8(fallback) : it->second;
}

// factor × bitrate in single precision, truncated toward zero (pinned where a cast would be
// undefined: NaN reads 0, out-of-range products saturate).
int32_t scaleBitrate(float factor, int32_t bitrate) {
    return tavroFloatToInt32(factor * static_cast<float>(bitrate));
}

}  // namespace

status_t TavroCCodec::setGopAndBitrate(const sp<AMessage>& format) {
    if (!mIsVideo.load() || !mIsEncoder.load()) return OK;
    // Only encoders the app configured with a QP bound are tuned here; the values do not matter.
    int32_t qp = 0;
    if (!format->findInt32(kKeyMinQpValue, &qp) && !format->findInt32(kKeyMaxQpValue, &qp)) {
        TAVRO_LOGD("Can't get min/max qp value.");
        return UNKNOWN_ERROR;
    }

    const int64_t uid = static_cast<int64_t>(IPCThreadState::self()->getCallingUid());
    String8 value;
    if (!tavroListValueByUid(kListQcomEncodeGop, uid, &value) || value.isEmpty()) {
        TAVRO_LOGV(kTavroLogVerbose, "no qcom-encode-gop");
    } else {
        const int32_t gop = tavroAtoi(value.c_str());
        float frameRate = 0.0f;
        int32_t intFrameRate = 0;
        if (!format->findFloat(kKeyFrameRate, &frameRate)) {
            if (!format->findInt32(kKeyFrameRate, &intFrameRate)) return INVALID_OPERATION;
            frameRate = static_cast<float>(intFrameRate);
        }
        TAVRO_LOGV(kTavroLogVerbose, "qcom-encode-gop:%s", value.c_str());
        if (gop >= 1 && static_cast<double>(frameRate) > kMinFrameRate) {
            // The list counts frames; the component wants seconds.
            const float interval = static_cast<float>(gop) / frameRate;
            format->setFloat(kKeyIFrameInterval, interval);
            TAVRO_LOGV(kTavroLogVerbose, "reset i-frame-interval to %.3f",
                       static_cast<double>(interval));
        }
    }

    // The property, when set, overrides the list's factor; the lookup's answer does not matter.
    tavroListValueByUid(kListQcomQpRange, uid, &value);
    const String8 factorText = tavroProperty(kPropBitrateIndex, value.c_str());
    const float factor = static_cast<float>(tavroAtof(factorText.c_str()));
    int32_t bitrate = 0;
    // Not zero rather than positive: a negative factor is applied as listed.
    if (format->findInt32(kKeyBitrate, &bitrate) && bitrate <= kQpRangeMaxBitrate &&
        factor != 0.0f) {
        const int32_t newBitrate = scaleBitrate(factor, bitrate);
        TAVRO_LOGV(kTavroLogVerbose, "change bitrate to %d", newBitrate);
        format->setInt32(kKeyBitrate, newBitrate);
    }
    return OK;
}

status_t TavroCCodec::setBFrame(const sp<AMessage>& format) {
    if (!mIsVideo.load() || !mIsEncoder.load()) return OK;
    String8 value;
    const bool found =
            tavroListValueByTopActivity(kListEncoderBFrame, static_cast<int32_t>(getpid()), &value);
    TAVRO_LOGI("encoder-b-frame Ret: %d, value: %s.", found ? 1 : 0, value.c_str());
    if (!found || value.isEmpty()) {
        TAVRO_LOGD("no setting encoder-b-frame");
        return INVALID_OPERATION;
    }
    TAVRO_LOGD("setBFrame: [value:%s] size:%zu", value.c_str(), value.length());
    TavroKeyValueMap pairs;
    if (!parseKeyValuePairFromStr(value.c_str(), pairs)) {
        TAVRO_LOGV(kTavroLogVerbose, "parseKeyValuePairFromStr failed");
        return INVALID_OPERATION;
    }

    const String8 family = tavroProperty(kPropDeviceFamily, kUnknownValue);
    const String8 cpu = pairOr(pairs, kPairCpu, "");
    if (!cpu.isEmpty() && strstr(cpu.c_str(), family.c_str()) == nullptr) {
        TAVRO_LOGV(kTavroLogVerbose, "device %s not match", family.c_str());
        return INVALID_OPERATION;
    }

    const int32_t maxB = getIntValueFromKeyValuePair(pairs, kPairMaxBFrames, 0);
    if (maxB <= 0) {
        TAVRO_LOGV(kTavroLogVerbose, "setting bframe is 0 or invalid");
        return INVALID_OPERATION;
    }
    const char* schema = maxB <= 2 ? kTsSchemaOneB : maxB <= 6 ? kTsSchemaTwoB : kTsSchemaThreeB;
    format->setString(kKeyTsSchema, schema);
    // B-frames and the vendor's CVP filter are not used together, whatever the vendor.
    format->setInt32(kKeyPreferBFrames, 1);
    format->setInt32(kKeyCvpFilterDisable, 1);
    TAVRO_LOGD("change max_bframes to %d", maxB);
    format->setInt32(kKeyMaxBFrames, maxB);

    // Without "limitBitrate" only bitrates <= 0 qualify: a factor needs its limit.
    const String8 factorText = pairOr(pairs, kPairBitrateFactor, "");
    const int32_t limit = getIntValueFromKeyValuePair(pairs, kPairLimitBitrate, 0);
    const float factor = static_cast<float>(tavroAtof(factorText.c_str()));
    int32_t bitrate = 0;
    if (format->findInt32(kKeyBitrate, &bitrate) && bitrate <= limit && factor > 0.0f) {
        const int32_t newBitrate = scaleBitrate(factor, bitrate);
        TAVRO_LOGV(kTavroLogVerbose, "change bitrate to %d", newBitrate);
        format->setInt32(kKeyBitrate, newBitrate);
    }
    return OK;
}

status_t TavroCCodec::configEncoderBitrateSavings(const sp<AMessage>& format) {
    if (!mIsVideo.load() || !mIsEncoder.load()) return INVALID_OPERATION;
    // The app's own choice of content-adaptive mode wins.
    int32_t mode = 0;
    if (format->findInt32(kKeyContentAdaptiveMode, &mode)) return INVALID_OPERATION;

    String8 value;
    if (!tavroListValueByUid(kListQcomEnableCac, mCallingUid, &value)) return INVALID_OPERATION;
    TavroKeyValueMap pairs;
    if (!parseKeyValuePairFromStr(value.c_str(), pairs)) return INVALID_OPERATION;

    const String8 soc = tavroProperty(kPropSocModel, kUnknownValue);
    const String8 cpu = pairOr(pairs, kPairCpu, "");
    mode = getIntValueFromKeyValuePair(pairs, kPairValue, kNoContentAdaptiveMode);
    if (!cpu.isEmpty() && strstr(cpu.c_str(), soc.c_str()) == nullptr) return INVALID_OPERATION;
    if (mode == kNoContentAdaptiveMode) return INVALID_OPERATION;

    format->setInt32(kKeyContentAdaptiveMode, mode);
    return OK;
}

void TavroCCodec::configEncoderQpRange(const sp<AMessage>& format) {
    if (!mIsVideo.load() || !mIsEncoder.load()) return;
    String8 value;
    if (!tavroListValueByUid(kListEncodeQpRange, mCallingUid, &value) || value.isEmpty()) return;
    TavroKeyValueMap pairs;
    if (!parseKeyValuePairFromStr(value.c_str(), pairs)) {
        TAVRO_LOGV(kTavroLogVerbose, "encode-qp-range parameter is parsed fail");
        return;
    }

    // Without a "cpu" pair the value is meant only for devices that do not name their SoC.
    const String8 soc = tavroProperty(kPropSocModel, kUnknownValue);
    const String8 cpu = pairOr(pairs, kPairCpu, kUnknownValue);
    if (strncasecmp(soc.c_str(), cpu.c_str(), cpu.length()) != 0) return;

    // Taken as listed: no clamping, and min is not checked against max.
    const int32_t minQp = getIntValueFromKeyValuePair(pairs, kPairMin, kDefaultMinQp);
    const int32_t maxQp = getIntValueFromKeyValuePair(pairs, kPairMax, kDefaultMaxQp);
    format->setInt32(kKeyQpIMin, minQp);
    format->setInt32(kKeyQpPMin, minQp);
    format->setInt32(kKeyQpBMin, minQp);
    format->setInt32(kKeyQpIMax, maxQp);
    format->setInt32(kKeyQpPMax, maxQp);
    format->setInt32(kKeyQpBMax, maxQp);
    TAVRO_LOGV(kTavroLogVerbose, "[%s:L%d] set video encoder qp %d~%d", "configEncoderQpRange",
               1142, minQp, maxQp);
}

}  // namespace android
