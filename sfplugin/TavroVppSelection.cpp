#define LOG_NDEBUG 0
#define LOG_TAG "TavroCCodec"
#include "sfplugin/TavroVppSelection.h"

#include <sys/types.h>
#include <unistd.h>

#include <cstring>
#include <vector>

#include <media/stagefright/foundation/AMessage.h>
#include <tavro/TavroAnalysisFPS.h>
#include <tavro/TavroListUtils.h>

#include "common/TavroLog.h"
#include "common/TavroNumber.h"
#include "sfplugin/TavroCCodecConfigure.h"
#include "sfplugin/TavroConfigureHelpers.h"
#include "sfplugin/TavroConfigureSteps.h"
#include "whitelist/TavroSystemProbe.h"

namespace android {

namespace {

// The read-only property wins over the persistent one, which wins over "default".
String8 vppListType() {
    const String8 persisted = tavroProperty(kPropVppListTypePersist, kVppListTypeDefault);
    return tavroProperty(kPropVppListType, persisted.c_str());
}

// The white-list value of a list entry, which lists write in hexadecimal.
int32_t hexValue(const String8& text) {
    return tavroStrtol32(text.c_str(), 16);
}

// Looks `package` up in the ODM table "name#value#name#value...". Names match when they begin
// with the package name. False without a usable hit: an odd or short table, no matching name, or
// an empty value on the first matching name.
bool odmValue(const String8& table, const String8& package, int32_t* value) {
    std::vector<String8> items;
    if (!getListFromStr(table.c_str(), items, kOdmSeparator) || items.size() < 2 ||
        items.size() % 2 != 0) {
        return false;
    }
    for (size_t i = 0; i < items.size(); i += 2) {
        if (strncmp(package.c_str(), items[i].c_str(), package.length()) != 0) continue;
        const String8& text = items[i + 1];
        if (text.isEmpty()) return false;
        const String8 copy(text.c_str(),
                           text.length() < kOdmValueMax ? text.length() : kOdmValueMax);
        *value = hexValue(copy);
        TAVRO_LOGD(kLogVppOdmValue, copy.c_str(), *value);
        return true;
    }
    return false;
}

}  // namespace

const char* tavroVppListName(const char* listType) {
    for (const TavroVppListName& entry : kVppListNames) {
        if (strcmp(entry.type, listType) == 0) return entry.list;
    }
    return "";
}

status_t configTavroVppType(const TavroConfigureContext& ctx, const sp<AMessage>& format,
                            TavroConfigureOut* out) {
    if (ctx.isEncoder || !ctx.isVideo)
        return tavroNoChange(out, OK, "no change: not a video decoder");
    const String8 listType = vppListType();
    const char* listName = tavroVppListName(listType.c_str());
    TAVRO_LOGV(kTavroLogDetail, kLogVppWhiteList, listName);

    int32_t value = 0;
    String8 text;
    bool engineOn = false;
    if (tavroListValue(ctx, listName, TavroListKey::kBinderUid, &text) && !text.isEmpty()) {
        // Low memory switches the whole selection off, V2 included.
        if (getSystemAvailMem() < kVppLowMemoryKb) {
            TAVRO_LOGD("lowmem disable vpp");
            return tavroNoChange(out, OK, "no change: low memory switches post-processing off");
        }
        // Older lists hold decimal client types, newer ones hexadecimal.
        value = tavroStrtol32(text.c_str(), 10);
        if (value == 0) value = hexValue(text);
        engineOn = (value & 3) != 0;
    }
    if (!engineOn) {
        const String8 debug = tavroProperty(kPropSrDebug, "0");
        const int32_t debugType = tavroAtoi(debug.c_str());
        if (!debug.isEmpty() && debugType != 0) {
            TAVRO_LOGV(kTavroLogDetail, "debug enabled , debugType :%d", debugType);
            engineOn = true;
        }
    }
    if (engineOn) {
        // Written whatever the component's vendor: other engines ignore the keys.
        format->setInt32(kKeyVppEngineFeatureOn, 1);
        format->setInt32(kKeyVppEngineClientType, value);
        TAVRO_LOGV(kTavroLogDetail, "configTavroVppType app type:%d, 0x%x", value,
                   static_cast<unsigned>(value));
    }
    return configTavroVppTypeV2(ctx, format, out);
}

status_t configTavroVppTypeV2(const TavroConfigureContext& ctx, const sp<AMessage>& format,
                              TavroConfigureOut* out) {
    const String8 listType = vppListType();
    const char* listName = tavroVppListName(listType.c_str());
    TAVRO_LOGV(kTavroLogDetail, kLogVppWhiteListV2, listName);

    const String8 odmPersisted = tavroProperty(kPropVppOdmValuePersist, "");
    const String8 odmTable = tavroProperty(kPropVppOdmValue, odmPersisted.c_str());
    int32_t value = 0;
    bool odmHit = false;
    const bool odmDevice = strncmp(listType.c_str(), kVppListTypeOdm, kVppListTypePrefix) == 0 ||
                           strncmp(listType.c_str(), kVppListTypeNew, kVppListTypePrefix) == 0;
    const String8 package(ctx.processName);
    if (odmDevice && !odmTable.isEmpty() && !package.isEmpty()) {
        odmHit = odmValue(odmTable, package, &value);
    }

    String8 text;
    auto whiteListByUid = [&]() {
        if (tavroListValue(ctx, listName, TavroListKey::kBinderUid, &text) && !text.isEmpty()) {
            value = hexValue(text);
        }
    };
    const String8 control = tavroProperty(kPropVppControlByApp, "1");
    if (tavroStrtol32(control.c_str(), 16) >= 1) {
        if (!tavroListValue(ctx, kListSrControlByApp, TavroListKey::kBinderUid, &text)) {
            whiteListByUid();
        } else if (!text.isEmpty()) {
            value = hexValue(text);
            TAVRO_LOGD("Get %s value:0x%x", kListSrControlByApp, static_cast<unsigned>(value));
        }
    } else if (!odmHit) {
        whiteListByUid();
    }

    if (value == 0) {
        if (tavroListValue(ctx, listName, TavroListKey::kTopActivity, &text) && !text.isEmpty()) {
            value = hexValue(text);
            TAVRO_LOGD("getListValueByTopActivity 0x%x.", static_cast<unsigned>(value));
        } else {
            value = 0;
        }
    }

    const char* mime = ctx.mime;
    const bool decoder = !ctx.isEncoder;
    // Interlaced H.264 needs its scan type known before it is post-processed.
    if (tavroStartsWithIgnoreCase(mime, kMimeAvcPrefix) && decoder && value != 0) {
        ctx.analysis->checkScanType();
    }

    if ((tavroStartsWithIgnoreCase(mime, kMimeAv1Prefix) ||
         tavroStartsWithIgnoreCase(mime, kMimeVp9Prefix)) &&
        tavroChipMatches(TavroChipMatch::kSocBeginsWith, kSocNoOutputFence) && value != 0) {
        format->setInt32(kKeyQtiOutputFenceEnable, 0);
    }

    if (tavroStartsWithIgnoreCase(mime, kMimeDolbyVision)) {
        TAVRO_LOGD(kLogVppDolbyVision);
        value = 0;
    }

    // The app's own value overrides every rule above, the Dolby Vision one included.
    int64_t appValue = 0;
    if (format->findAsInt64(kKeyVppWhiteListValue, &appValue)) {
        TAVRO_LOGD(kLogVppAppValue, static_cast<long long>(appValue));
        value = static_cast<int32_t>(static_cast<uint32_t>(static_cast<uint64_t>(appValue)));
    }
    format->setInt64(kKeyVppWhiteListValue, static_cast<int64_t>(value));

    if (tavroStartsWith(mime, kMimeVideoPrefix) && decoder && value != 0) {
        const String8 hardware = tavroProperty(kPropHardware, kUnknownValue);
        if (tavroStartsWithIgnoreCase(hardware.c_str(), kHardwareQcomPrefix)) {
            format->setInt32(kKeyInputDelay, 0);
        }
        out->fastForwardWatch = TavroFastForwardWatch{true, value};
    } else {
        out->fastForwardWatch = TavroFastForwardWatch{false, value};
    }

    configTavroVppSwitchByApp(ctx, format, out);
    return OK;
}

status_t configTavroVppSwitchByApp(const TavroConfigureContext& /*ctx*/, const sp<AMessage>& format,
                                   TavroConfigureOut* /*out*/) {
    // A sub-step: it leaves the reason to the step that runs it.
    int32_t enable = 0;
    if (!format->findInt32(kKeySrEnable, &enable)) return OK;
    TAVRO_LOGD(kLogVppSwitchByApp, static_cast<long long>(enable));
    const int32_t switchValue = enable >= 1   ? kSwitchByAppOn
                                : enable == 0 ? kSwitchByAppOff
                                              : kSwitchByAppInvalid;
    format->setInt32(kKeySwitchByApp, switchValue);
    return OK;
}

status_t checkHandleByActivity(const TavroConfigureContext& ctx, const sp<AMessage>& format,
                               TavroConfigureOut* out) {
    if (tavroAtoi(tavroProperty(kPropTonemapFilter, "0").c_str()) != 1) {
        return tavroNoChange(out, OK, "no change: the tone-mapping filter is off");
    }
    String8 text;
    if (!tavroListValue(ctx, kListEnableTonemapActivity, TavroListKey::kTopActivity, &text)) {
        return tavroNoChange(out, OK, "no change: top activity not on enable-tonemap-activity");
    }
    // Listed activities do their own tone mapping: the app's request is dropped.
    if (!format->contains(kKeyColorTransferRequest)) {
        return tavroNoChange(out, OK, "no change: no color-transfer-request");
    }
    format->setInt32(kKeyColorTransferRequest, 0);
    return OK;
}

}  // namespace android
