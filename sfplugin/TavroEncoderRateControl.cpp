#define LOG_NDEBUG 0
#define LOG_TAG "TavroCCodec"
#include "sfplugin/TavroEncoderRateControl.h"

#include <string.h>

#include <media/stagefright/foundation/AMessage.h>

#include "common/TavroLog.h"
#include "common/TavroNumber.h"
#include "sfplugin/TavroCCodecConfigure.h"
#include "sfplugin/TavroConfigureHelpers.h"
#include "sfplugin/TavroConfigureSteps.h"
#include "whitelist/TavroSystemProbe.h"

namespace android {

namespace {

// factor × bitrate in single precision, truncated toward zero (pinned where a cast would be
// undefined: NaN reads 0, out-of-range products saturate).
int32_t scaleBitrate(float factor, int32_t bitrate) {
    return tavroFloatToInt32(factor * static_cast<float>(bitrate));
}

constexpr char kNotVideoEncoder[] = "no change: not a video encoder";

}  // namespace

status_t setGopAndBitrate(const TavroConfigureContext& ctx, const sp<AMessage>& format,
                          TavroConfigureOut* out) {
    if (!ctx.isVideo || !ctx.isEncoder) return tavroNoChange(out, OK, kNotVideoEncoder);
    // Only encoders the app configured with a QP bound are tuned here; the values do not matter.
    int32_t qp = 0;
    if (!format->findInt32(kKeyMinQpValue, &qp) && !format->findInt32(kKeyMaxQpValue, &qp)) {
        TAVRO_LOGD("Can't get min/max qp value.");
        return tavroNoChange(out, UNKNOWN_ERROR,
                             "no change: the format has no min-qp-value or max-qp-value");
    }

    bool changed = false;
    String8 value;
    if (!tavroListValue(ctx, kListQcomEncodeGop, TavroListKey::kBinderUid, &value) ||
        value.isEmpty()) {
        TAVRO_LOGV(kTavroLogVerbose, "no qcom-encode-gop");
    } else {
        const int32_t gop = tavroAtoi(value.c_str());
        float frameRate = 0.0f;
        int32_t intFrameRate = 0;
        if (!format->findFloat(kKeyFrameRate, &frameRate)) {
            if (!format->findInt32(kKeyFrameRate, &intFrameRate)) {
                return tavroNoChange(out, INVALID_OPERATION,
                                     "no change: a GOP is listed but the format has no frame-rate");
            }
            frameRate = static_cast<float>(intFrameRate);
        }
        TAVRO_LOGV(kTavroLogVerbose, "qcom-encode-gop:%s", value.c_str());
        if (gop >= 1 && static_cast<double>(frameRate) > kMinFrameRate) {
            // The list counts frames; the component wants seconds.
            const float interval = static_cast<float>(gop) / frameRate;
            format->setFloat(kKeyIFrameInterval, interval);
            TAVRO_LOGV(kTavroLogVerbose, "reset i-frame-interval to %.3f",
                       static_cast<double>(interval));
            changed = true;
        }
    }

    // The property, when set, overrides the list's factor; the lookup's answer does not matter.
    tavroListValue(ctx, kListQcomQpRange, TavroListKey::kBinderUid, &value);
    const String8 factorText = tavroProperty(kPropBitrateIndex, value.c_str());
    const float factor = static_cast<float>(tavroAtof(factorText.c_str()));
    int32_t bitrate = 0;
    // Not zero rather than positive: a negative factor is applied as listed.
    if (format->findInt32(kKeyBitrate, &bitrate) && bitrate <= kQpRangeMaxBitrate &&
        factor != 0.0f) {
        const int32_t newBitrate = scaleBitrate(factor, bitrate);
        TAVRO_LOGV(kTavroLogVerbose, "change bitrate to %d", newBitrate);
        format->setInt32(kKeyBitrate, newBitrate);
        changed = true;
    }
    if (!changed)
        out->reason = "no change: no usable GOP, and no factor for a bitrate up to 1400000";
    return OK;
}

status_t setBFrame(const TavroConfigureContext& ctx, const sp<AMessage>& format,
                   TavroConfigureOut* out) {
    if (!ctx.isVideo || !ctx.isEncoder) return tavroNoChange(out, OK, kNotVideoEncoder);
    String8 value;
    const bool found = tavroListValue(ctx, kListEncoderBFrame, TavroListKey::kTopActivity, &value);
    TAVRO_LOGI("encoder-b-frame Ret: %d, value: %s.", found ? 1 : 0, value.c_str());
    if (!found || value.isEmpty()) {
        TAVRO_LOGD("no setting encoder-b-frame");
        return tavroNoChange(out, INVALID_OPERATION,
                             "no change: no encoder-b-frame for the top activity");
    }
    TAVRO_LOGD("setBFrame: [value:%s] size:%zu", value.c_str(), value.length());
    TavroListPairs pairs;
    if (!pairs.parse(value)) {
        TAVRO_LOGV(kTavroLogVerbose, "parseKeyValuePairFromStr failed");
        return tavroNoChange(out, INVALID_OPERATION, "no change: encoder-b-frame has no pairs");
    }

    // A missing or empty "cpu" matches every device.
    const String8 cpu = pairs.text(kPairCpu);
    if (!cpu.isEmpty() && !tavroChipMatches(TavroChipMatch::kFamilyInCpu, cpu.c_str())) {
        TAVRO_LOGV(kTavroLogVerbose, "device %s not match",
                   tavroProperty(kPropDeviceFamily, kUnknownValue).c_str());
        return tavroNoChange(out, INVALID_OPERATION,
                             "no change: cpu does not name the device family");
    }

    const int32_t maxB = pairs.integer(kPairMaxBFrames, 0);
    if (maxB <= 0) {
        TAVRO_LOGV(kTavroLogVerbose, "setting bframe is 0 or invalid");
        return tavroNoChange(out, INVALID_OPERATION, "no change: maxBframes is not positive");
    }
    const char* schema = maxB <= 2 ? kTsSchemaOneB : maxB <= 6 ? kTsSchemaTwoB : kTsSchemaThreeB;
    format->setString(kKeyTsSchema, schema);
    // B-frames and the vendor's CVP filter are not used together, whatever the vendor.
    format->setInt32(kKeyPreferBFrames, 1);
    format->setInt32(kKeyCvpFilterDisable, 1);
    TAVRO_LOGD("change max_bframes to %d", maxB);
    format->setInt32(kKeyMaxBFrames, maxB);

    // Without "limitBitrate" only bitrates <= 0 qualify: a factor needs its limit.
    const int32_t limit = pairs.integer(kPairLimitBitrate, 0);
    const float factor = static_cast<float>(tavroAtof(pairs.text(kPairBitrateFactor).c_str()));
    int32_t bitrate = 0;
    if (format->findInt32(kKeyBitrate, &bitrate) && bitrate <= limit && factor > 0.0f) {
        const int32_t newBitrate = scaleBitrate(factor, bitrate);
        TAVRO_LOGV(kTavroLogVerbose, "change bitrate to %d", newBitrate);
        format->setInt32(kKeyBitrate, newBitrate);
    }
    return OK;
}

status_t configEncoderBitrateSavings(const TavroConfigureContext& ctx, const sp<AMessage>& format,
                                     TavroConfigureOut* out) {
    if (!ctx.isVideo || !ctx.isEncoder) {
        return tavroNoChange(out, INVALID_OPERATION, kNotVideoEncoder);
    }
    // The app's own choice of content-adaptive mode wins.
    int32_t mode = 0;
    if (format->findInt32(kKeyContentAdaptiveMode, &mode)) {
        return tavroNoChange(out, INVALID_OPERATION,
                             "no change: the app chose its content-adaptive mode");
    }

    String8 value;
    TavroListPairs pairs;
    if (!tavroListValue(ctx, kListQcomEnableCac, TavroListKey::kAppUid, &value)) {
        return tavroNoChange(out, INVALID_OPERATION, "no change: no qcom-enable-cac for the app");
    }
    if (!pairs.parse(value)) {
        return tavroNoChange(out, INVALID_OPERATION, "no change: qcom-enable-cac has no pairs");
    }
    const String8 cpu = pairs.text(kPairCpu);
    mode = pairs.integer(kPairValue, kNoContentAdaptiveMode);
    if (!cpu.isEmpty() && !tavroChipMatches(TavroChipMatch::kSocInCpu, cpu.c_str())) {
        return tavroNoChange(out, INVALID_OPERATION, "no change: cpu does not name the SoC");
    }
    if (mode == kNoContentAdaptiveMode) {
        return tavroNoChange(out, INVALID_OPERATION, "no change: qcom-enable-cac has no value");
    }
    format->setInt32(kKeyContentAdaptiveMode, mode);
    return OK;
}

status_t configEncoderQpRange(const TavroConfigureContext& ctx, const sp<AMessage>& format,
                              TavroConfigureOut* out) {
    if (!ctx.isVideo || !ctx.isEncoder) return tavroNoChange(out, OK, kNotVideoEncoder);
    String8 value;
    if (!tavroListValue(ctx, kListEncodeQpRange, TavroListKey::kAppUid, &value) ||
        value.isEmpty()) {
        return tavroNoChange(out, OK, "no change: no encode-qp-range for the app");
    }
    TavroListPairs pairs;
    if (!pairs.parse(value)) {
        TAVRO_LOGV(kTavroLogVerbose, "encode-qp-range parameter is parsed fail");
        return tavroNoChange(out, OK, "no change: encode-qp-range has no pairs");
    }
    // Without a "cpu" pair the value is meant only for devices that do not name their SoC.
    if (!tavroChipMatches(TavroChipMatch::kSocBeginsWith,
                          pairs.text(kPairCpu, kUnknownValue).c_str())) {
        return tavroNoChange(out, OK, "no change: the SoC does not begin with cpu");
    }

    // Taken as listed: no clamping, and min is not checked against max.
    const int32_t minQp = pairs.integer(kPairMin, kDefaultMinQp);
    const int32_t maxQp = pairs.integer(kPairMax, kDefaultMaxQp);
    format->setInt32(kKeyQpIMin, minQp);
    format->setInt32(kKeyQpPMin, minQp);
    format->setInt32(kKeyQpBMin, minQp);
    format->setInt32(kKeyQpIMax, maxQp);
    format->setInt32(kKeyQpPMax, maxQp);
    format->setInt32(kKeyQpBMax, maxQp);
    TAVRO_LOGV(kTavroLogVerbose, kLogQpRange, minQp, maxQp);
    return OK;
}

}  // namespace android
