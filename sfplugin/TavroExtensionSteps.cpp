#define LOG_NDEBUG 0
#define LOG_TAG "TavroCCodec"
#include "sfplugin/TavroExtensionSteps.h"

#include <media/stagefright/foundation/AMessage.h>
#include <utils/Log.h>

#include "common/TavroLog.h"
#include "common/TavroNumber.h"
#include "sfplugin/TavroCCodec.h"
#include "sfplugin/TavroCCodecConfigure.h"
#include "sfplugin/TavroConfigureHelpers.h"
#include "sfplugin/TavroConfigureSteps.h"
#include "sfplugin/TavroVppSelection.h"

namespace android {

namespace {

// A rate key given as float or int32, truncated toward zero; 0 when absent.
int32_t rateOf(const sp<AMessage>& format, const char* key) {
    float rate = 0.0f;
    if (format->findFloat(key, &rate)) return tavroFloatToInt32(rate);
    int32_t intRate = 0;
    return format->findInt32(key, &intRate) ? intRate : 0;
}

// What the vendor extension points answer on this device (see the header).
constexpr char kExtensionPoint[] = "no change: extension point, empty on this device";

}  // namespace

status_t setExtParam(const TavroConfigureContext& ctx, const sp<AMessage>& format,
                     TavroConfigureOut* out) {
    // Every configure decides afresh; a previous stream's restore must not leak into this one.
    out->restoreOperatingRate = 0;
    if (!ctx.isVideo || ctx.isEncoder)
        return tavroNoChange(out, OK, "no restore: not a video decoder");

    String8 value;
    if (!tavroListValue(ctx, kListStartupOperatingRate, TavroListKey::kAppUid, &value) ||
        value.isEmpty()) {
        return tavroNoChange(out, OK, "no restore: no decoder-startup-operating-rate for the app");
    }
    const int32_t startupRate = tavroAtoi(value.c_str());
    if (startupRate < 1) {
        ALOGW("setExtParam: start-up operating rate '%s' ignored", value.c_str());
        return tavroNoChange(out, OK, "no restore: the start-up rate is not positive");
    }
    int32_t ownRate = rateOf(format, kKeyOperatingRate);
    if (ownRate < 1) ownRate = rateOf(format, kKeyFrameRate);
    // Without a rate of its own there is nothing to go back to: the app keeps its format.
    if (ownRate < 1) return tavroNoChange(out, OK, "no restore: the format gives no rate");
    if (ownRate >= startupRate) {
        return tavroNoChange(out, OK, "no restore: the app's rate is not below the start-up rate");
    }

    format->setFloat(kKeyOperatingRate, static_cast<float>(startupRate));
    out->restoreOperatingRate = ownRate;
    TAVRO_LOGD("setExtParam: start-up operating-rate(%d), restore %d", startupRate, ownRate);
    return OK;
}

status_t setQtiExtParam(const TavroConfigureContext& /*ctx*/, const sp<AMessage>& /*format*/,
                        TavroConfigureOut* out) {
    return tavroNoChange(out, OK, kExtensionPoint);
}

status_t configureInputDelay(const TavroConfigureContext& /*ctx*/, const sp<AMessage>& /*format*/,
                             TavroConfigureOut* out) {
    return tavroNoChange(out, OK, kExtensionPoint);
}

status_t configureSWInputDelay(const TavroConfigureContext& /*ctx*/, const sp<AMessage>& /*format*/,
                               TavroConfigureOut* out) {
    return tavroNoChange(out, OK, kExtensionPoint);
}

bool getFilterEnableValue(const TavroConfigureContext& ctx, const sp<AMessage>& /*format*/) {
    // The filter works on decoded pictures only.
    if (!ctx.isVideo || ctx.isEncoder) return false;
    return tavroAtoi(tavroProperty(kPropTonemapFilter, "0").c_str()) == 1;
}

status_t configureTonemapFilter(const TavroConfigureContext& ctx, const sp<AMessage>& format,
                                TavroConfigureOut* out) {
    if (!getFilterEnableValue(ctx, format)) {
        return tavroNoChange(out, OK, "no change: the tone-mapping filter is off here");
    }
    checkHandleByActivity(ctx, format, out);
    return OK;
}

}  // namespace android
