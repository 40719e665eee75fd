#define LOG_NDEBUG 0
#define LOG_TAG "TavroCCodec"
#include "sfplugin/TavroExtensionSteps.h"

#include <media/stagefright/foundation/AMessage.h>
#include <utils/Log.h>

#include "common/TavroLog.h"
#include "common/TavroNumber.h"
#include "sfplugin/TavroCCodec.h"
#include "sfplugin/TavroCCodecConfigure.h"
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

}  // namespace

status_t TavroCCodec::setExtParam(const sp<AMessage>& format) {
    // Every configure decides afresh; a previous stream's restore must not leak into this one.
    mRestoreOperatingRate.store(0);
    if (!mIsVideo.load() || mIsEncoder.load()) return OK;

    String8 value;
    if (!tavroListValueByUid(kListStartupOperatingRate, mCallingUid, &value) || value.isEmpty()) {
        return OK;
    }
    const int32_t startupRate = tavroAtoi(value.c_str());
    if (startupRate < 1) {
        ALOGW("setExtParam: start-up operating rate '%s' ignored", value.c_str());
        return OK;
    }
    int32_t ownRate = rateOf(format, kKeyOperatingRate);
    if (ownRate < 1) ownRate = rateOf(format, kKeyFrameRate);
    // Without a rate of its own there is nothing to go back to: the app keeps its format.
    if (ownRate < 1 || ownRate >= startupRate) return OK;

    format->setFloat(kKeyOperatingRate, static_cast<float>(startupRate));
    mOperatingRateRestored.store(false);
    mRestoreOperatingRate.store(ownRate);
    TAVRO_LOGD("setExtParam: start-up operating-rate(%d), restore %d", startupRate, ownRate);
    return OK;
}

status_t TavroCCodec::setQtiExtParam(const sp<AMessage>& /*format*/) {
    return OK;
}

status_t TavroCCodec::configureInputDelay(const sp<AMessage>& /*format*/) {
    return OK;
}

status_t TavroCCodec::configureSWInputDelay(const sp<AMessage>& /*format*/) {
    return OK;
}

bool TavroCCodec::getFilterEnableValue(const sp<AMessage>& /*format*/) {
    // The filter works on decoded pictures only.
    if (!mIsVideo.load() || mIsEncoder.load()) return false;
    return tavroAtoi(tavroProperty(kPropTonemapFilter, "0").c_str()) == 1;
}

status_t TavroCCodec::configureTonemapFilter(const sp<AMessage>& format) {
    if (getFilterEnableValue(format)) checkHandleByActivity(format);
    return OK;
}

}  // namespace android
