#define LOG_NDEBUG 0
#define LOG_TAG "TavroCCodec"
#include "sfplugin/TavroVppSelection.h"

#include <sys/types.h>
#include <unistd.h>

#include <cstring>
#include <vector>

#include <binder/IPCThreadState.h>
#include <media/stagefright/foundation/AMessage.h>
#include <tavro/TavroAnalysisFPS.h>
#include <tavro/TavroListUtils.h>

#include "common/TavroLog.h"
#include "common/TavroNumber.h"
#include "sfplugin/TavroCCodec.h"
#include "sfplugin/TavroCCodecBufferChannel.h"
#include "sfplugin/TavroCCodecConfigure.h"
#include "whitelist/TavroSystemProbe.h"

namespace android {

namespace {

// The read-only property wins over the persistent one, which wins over "default".
String8 vppListType() {
    const String8 persisted = tavroProperty(kPropVppListTypePersist, kVppListTypeDefault);
    return tavroProperty(kPropVppListType, persisted.c_str());
}

int64_t binderCallingUid() {
    return static_cast<int64_t>(IPCThreadState::self()->getCallingUid());
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
        TAVRO_LOGD("[%s:L%d] odm value:%s  - %d", "configTavroVppTypeV2", 745, copy.c_str(),
                   *value);
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

status_t TavroCCodec::configTavroVppType(const sp<AMessage>& format) {
    if (mIsEncoder.load() || !mIsVideo.load()) return OK;
    const String8 listType = vppListType();
    const char* listName = tavroVppListName(listType.c_str());
    TAVRO_LOGV(kTavroLogDetail, "[%s:L%d] whitelist:%s", "configTavroVppType", 897, listName);

    int32_t value = 0;
    String8 text;
    bool engineOn = false;
    if (tavroListValueByUid(listName, binderCallingUid(), &text) && !text.isEmpty()) {
        // Low memory switches the whole selection off, V2 included.
        if (getSystemAvailMem() < kVppLowMemoryKb) {
            TAVRO_LOGD("lowmem disable vpp");
            return OK;
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
    return configTavroVppTypeV2(format);
}

status_t TavroCCodec::configTavroVppTypeV2(const sp<AMessage>& format) {
    const String8 listType = vppListType();
    const char* listName = tavroVppListName(listType.c_str());
    TAVRO_LOGV(kTavroLogDetail, "[%s:L%d] whitelist:%s", "configTavroVppTypeV2", 718, listName);

    const String8 odmPersisted = tavroProperty(kPropVppOdmValuePersist, "");
    const String8 odmTable = tavroProperty(kPropVppOdmValue, odmPersisted.c_str());
    int32_t value = 0;
    bool odmHit = false;
    const bool odmDevice = strncmp(listType.c_str(), kVppListTypeOdm, kVppListTypePrefix) == 0 ||
                           strncmp(listType.c_str(), kVppListTypeNew, kVppListTypePrefix) == 0;
    if (odmDevice && !odmTable.isEmpty() && !mProcessName.isEmpty()) {
        odmHit = odmValue(odmTable, mProcessName, &value);
    }

    const int64_t uid = binderCallingUid();
    String8 text;
    auto whiteListByUid = [&]() {
        if (tavroListValueByUid(listName, uid, &text) && !text.isEmpty()) value = hexValue(text);
    };
    const String8 control = tavroProperty(kPropVppControlByApp, "1");
    if (tavroStrtol32(control.c_str(), 16) >= 1) {
        if (!tavroListValueByUid(kListSrControlByApp, uid, &text)) {
            whiteListByUid();
        } else if (!text.isEmpty()) {
            value = hexValue(text);
            TAVRO_LOGD("Get %s value:0x%x", kListSrControlByApp, static_cast<unsigned>(value));
        }
    } else if (!odmHit) {
        whiteListByUid();
    }

    if (value == 0) {
        if (tavroListValueByTopActivity(listName, static_cast<int32_t>(getpid()), &text) &&
            !text.isEmpty()) {
            value = hexValue(text);
            TAVRO_LOGD("getListValueByTopActivity 0x%x.", static_cast<unsigned>(value));
        } else {
            value = 0;
        }
    }

    const char* mime = mMime.c_str();
    const bool decoder = !mIsEncoder.load();
    // Interlaced H.264 needs its scan type known before it is post-processed.
    if (tavroStartsWithIgnoreCase(mime, kMimeAvcPrefix) && decoder && value != 0) {
        mAnalysisFPS->checkScanType();
    }

    const String8 soc = tavroProperty(kPropSocModel, kUnknownValue);
    if ((tavroStartsWithIgnoreCase(mime, kMimeAv1Prefix) ||
         tavroStartsWithIgnoreCase(mime, kMimeVp9Prefix)) &&
        tavroStartsWithIgnoreCase(soc.c_str(), kSocNoOutputFence) && value != 0) {
        format->setInt32(kKeyQtiOutputFenceEnable, 0);
    }

    if (tavroStartsWithIgnoreCase(mime, kMimeDolbyVision)) {
        TAVRO_LOGD("[%s:L%d] dolby-vision set iVppWhiteListValue = %d", "configTavroVppTypeV2", 802,
                   0);
        value = 0;
    }

    // The app's own value overrides every rule above, the Dolby Vision one included.
    int64_t appValue = 0;
    if (format->findAsInt64(kKeyVppWhiteListValue, &appValue)) {
        TAVRO_LOGD("[%s:L%d] iDefaultWhiteListValue = %lld", "configTavroVppTypeV2", 807,
                   static_cast<long long>(appValue));
        value = static_cast<int32_t>(static_cast<uint32_t>(static_cast<uint64_t>(appValue)));
    }
    format->setInt64(kKeyVppWhiteListValue, static_cast<int64_t>(value));

    if (strncmp(mime, kMimeVideoPrefix, strlen(kMimeVideoPrefix)) == 0 && decoder && value != 0) {
        const String8 hardware = tavroProperty(kPropHardware, kUnknownValue);
        if (tavroStartsWithIgnoreCase(hardware.c_str(), kHardwareQcomPrefix)) {
            format->setInt32(kKeyInputDelay, 0);
        }
        tavroChannel()->cheekFFModeStatus(true, value);
    } else {
        tavroChannel()->cheekFFModeStatus(false, value);
    }

    configTavroVppSwitchByApp(format);
    return OK;
}

status_t TavroCCodec::configTavroVppSwitchByApp(const sp<AMessage>& format) {
    int32_t enable = 0;
    if (!format->findInt32(kKeySrEnable, &enable)) return OK;
    TAVRO_LOGD("[%s:L%d] iSrEnableValue = %lld", "configTavroVppSwitchByApp", 841,
               static_cast<long long>(enable));
    const int32_t switchValue = enable >= 1   ? kSwitchByAppOn
                                : enable == 0 ? kSwitchByAppOff
                                              : kSwitchByAppInvalid;
    format->setInt32(kKeySwitchByApp, switchValue);
    return OK;
}

status_t TavroCCodec::checkHandleByActivity(const sp<AMessage>& format) {
    if (tavroAtoi(tavroProperty(kPropTonemapFilter, "0").c_str()) != 1) return OK;
    String8 text;
    if (!tavroListValueByTopActivity(kListEnableTonemapActivity, static_cast<int32_t>(getpid()),
                                     &text)) {
        return OK;
    }
    // Listed activities do their own tone mapping: the app's request is dropped.
    if (format->contains(kKeyColorTransferRequest)) {
        format->setInt32(kKeyColorTransferRequest, 0);
    }
    return OK;
}

}  // namespace android
