// Key/value list values through the configure pipeline: the input writes the list service's store
// (per-uid and top-activity answers of every list the steps and the boost client read), a few
// platform properties and the app's format, then plays one codec through allocate, configure,
// start, set-parameters, timers and shutdown on a manual looper.
#include <string.h>
#include <unistd.h>

#include <string>

#include <cutils/properties.h>
#include <host/HostClock.h>
#include <host/HostListService.h>
#include <host/HostProperties.h>
#include <media/MediaCodecInfo.h>
#include <media/stagefright/foundation/ALooper.h>
#include <media/stagefright/foundation/AMessage.h>
#include <tavro/TavroListUtils.h>

#include "FuzzWorld.h"
#include "sfplugin/TavroCCodec.h"
#include "sfplugin/TavroCCodecConfigure.h"
#include "sfplugin/TavroCodecTuning.h"
#include "sfplugin/TavroEncoderRateControl.h"
#include "sfplugin/TavroExtensionSteps.h"
#include "sfplugin/TavroVppSelection.h"
#include "whitelist/TavroSystemProbe.h"
#include "whitelist/TavroWhiteListCacheMgr.h"

using namespace android;
using android::fuzz::pick;

namespace {

constexpr char kTopActivity[] = "fuzz.app/.PlayerActivity";

// One manual looper for the process: each input registers its codec, runs it and leaves the
// looper with no handler and nothing pending.
sp<ALooper> sLooper;

// Every list a configure step or the boost client reads.
const char* const kLists[] = {
        kListEncoderBitrateMode, kListCodec2OutputDelay, kListDolbyDownscaleBlackList,
        kListDolbyOutputYuv, kListQcomEncodeOptimization, kListMtkColorConvert, kListCodecBatchMode,
        kListKeyPriorityEncoder, kListKeyPriority, kListEncodeUsageFlag, kListEncoderScene,
        kListEncoderPreProcess, kListQcomEncodeGop, kListQcomQpRange, kListEncoderBFrame,
        kListQcomEnableCac, kListEncodeQpRange, kListStartupOperatingRate, kListSrControlByApp,
        kListEnableTonemapActivity, kListDisableVideoShaper, kListVideoStatistics,
        kListVideoEncoderStatistics, kListMediaSchedBoost, kListVencCpuBoost, kListVdecCpuBoost,
        // Post-processing white lists, one per list type.
        "sr-lumo-whitelist", "sr-lumo-whitelist-720p", "sr-lumo-whitelist-480p-V1",
        "sr-lumo-whitelist-new", "sr-lumo-whitelist-del-ugc"};

// Lists whose answers are boost-info strings (the white list matches their area limits).
bool holdsBoostInfo(const char* list) {
    return strcmp(list, kListMediaSchedBoost) == 0 || strcmp(list, kListVencCpuBoost) == 0 ||
           strcmp(list, kListVdecCpuBoost) == 0;
}

const char* const kProperties[] = {
        kPropHardware,           kPropDeviceFamily,  kPropSocModel,           kPropBatchModeSlots,
        kPropBitrateIndex,       kPropVppListType,   kPropVppListTypePersist, kPropVppOdmValue,
        kPropVppOdmValuePersist, kPropSrDebug,       kPropVppControlByApp,    kPropTonemapFilter,
        kPropDebugCodecUx,       kPropDebugCpuBoost,
};

// Values a device really has, so that the chip-specific branches are reached quickly.
const char* const kPropertyValues[] = {
        "qcom", "mt6877", "mt6893",  "mt6989", "mt6835", "SM8550", "SM8650", "QXSM8550", "odm",
        "new",  "720p",   "default", "1",      "0",      "25",     "3",      "a#b#c",    "1#2#3#4",
};

const char* const kMimes[] = {
        "video/avc",           "video/hevc",      "video/dolby-vision", "video/av01",
        "video/x-vnd.on2.vp9", "audio/mp4a-latm", "VIDEO/AVC",          "image/vnd.android.heic",
};

const char* const kComponents[] = {
        "c2.qti.avc.encoder",     "c2.qti.avc.decoder",  "c2.qti.hevc.decoder.secure",
        "c2.mtk.avc.decoder",     "c2.mtk.hevc.encoder", "c2.android.aac.encoder",
        "c2.android.aac.decoder", "c2.qti.dv.decoder",
};

// Format keys by type. Sizes stay within what a width x height area can hold: a larger one is
// the white list's named fatal check, not a fuzzing result.
struct IntKey {
    const char* key;
    int32_t lo;
    int32_t hi;
};
const IntKey kIntKeys[] = {
        {kKeyWidth, -46340, 46340},
        {kKeyHeight, -46340, 46340},
        {kKeyBitrate, INT32_MIN, INT32_MAX},
        {kKeyBitrateMode, -1, 3},
        {kKeyQuality, INT32_MIN, INT32_MAX},
        {kKeyPriority, -1, 2},
        {kKeyDisableWcg, 0, 1},
        {kKeyMtkThumbnailMode, 0, 1},
        {kKeyThumbnailMode, 0, 1},
        {kKeyTpUxTid, INT32_MIN, INT32_MAX},
        {kKeyMaxBFrames, -1, 8},
        {kKeyPreferBFrames, 0, 1},
        {kKeyMaxQpValue, 0, 64},
        {kKeyMinQpValue, 0, 64},
        {kKeyColorTransferRequest, 0, 7},
        {kKeyFrameRate, INT32_MIN, INT32_MAX},
};
const char* const kFloatKeys[] = {kKeyFrameRate, kKeyOperatingRate, kKeyIFrameInterval};
const char* const kInt64Keys[] = {kKeyFeedbackKey, kKeyVppWhiteListValue};

std::string boostInfoSafe(const std::string& text, size_t limit) {
    return fuzz::boostInfoAreaFits(fuzz::deliveredText(text, limit)) ? text : std::string();
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    fuzz::initFuzzWorld();
    sLooper = new ALooper();
    sLooper->setManualForTesting(true);
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    FuzzedDataProvider fdp(data, size);
    const fuzz::FuzzInput input(fdp, true);

    for (const char* key : kProperties) {
        switch (fdp.ConsumeIntegralInRange<int>(0, 2)) {
            case 0:
                break;
            case 1:
                host::HostProperties::set(fuzz::named(key),
                                          fuzz::named(pick(fdp, kPropertyValues)));
                break;
            default: {
                std::string value = fdp.ConsumeRandomLengthString(PROPERTY_VALUE_MAX);
                if (strcmp(key, kPropDebugCodecUx) == 0 || strcmp(key, kPropDebugCpuBoost) == 0) {
                    value = boostInfoSafe(value, PROPERTY_VALUE_MAX - 1);
                }
                host::HostProperties::set(fuzz::named(key), value);
            }
        }
    }
    // The platform triple must stay set for the white list to answer at all.
    if (fdp.ConsumeBool()) host::HostProperties::set(fuzz::named(kPropHardware), "qcom");

    const int64_t uid = static_cast<int64_t>(getuid());
    const std::string& topActivity = fuzz::named(kTopActivity);
    host::HostListService::setTopActivity(-1, topActivity);
    for (const char* list : kLists) {
        const int how = fdp.ConsumeIntegralInRange<int>(0, 3);
        if (how == 0) continue;
        std::string value = fdp.ConsumeRandomLengthString(300);
        if (holdsBoostInfo(list)) value = boostInfoSafe(value, kBoostInfoBufferSize - 1);
        const std::string& name = fuzz::named(list);
        if (how & 1) host::HostListService::setByUid(name, uid, value);
        if (how & 2) host::HostListService::setByActivity(name, topActivity, value);
        if (how == 3) host::HostListService::setByPid(name, static_cast<int64_t>(getpid()), value);
    }

    const char* mime = pick(fdp, kMimes);
    const char* component = pick(fdp, kComponents);
    sp<AMessage> format = new AMessage();
    format->setString(kKeyMime, mime);
    if (fdp.ConsumeBool()) format->setInt32(kKeyEncoder, 1);
    for (const IntKey& k : kIntKeys) {
        if (fdp.ConsumeBool()) format->setInt32(k.key, fdp.ConsumeIntegralInRange(k.lo, k.hi));
    }
    for (const char* key : kFloatKeys) {
        if (fdp.ConsumeBool()) format->setFloat(key, fdp.ConsumeFloatingPoint<float>());
    }
    for (const char* key : kInt64Keys) {
        if (fdp.ConsumeBool()) format->setInt64(key, fdp.ConsumeIntegral<int64_t>());
    }
    if (fdp.ConsumeBool())
        format->setString(kKeyPkgName, fdp.ConsumeRandomLengthString(64).c_str());

    const sp<ALooper>& looper = sLooper;
    sp<TavroCCodec> codec = new TavroCCodec();
    looper->registerHandler(codec);

    sp<AMessage> allocate = new AMessage();
    allocate->setObject(kKeyCodecInfo, new MediaCodecInfo(component));
    codec->initiateAllocateComponent(allocate);
    looper->runPendingForTesting();
    codec->initiateConfigureComponent(format);
    looper->runPendingForTesting();
    codec->initiateStart();
    looper->runPendingForTesting();

    const int rounds = fdp.ConsumeIntegralInRange<int>(0, 3);
    for (int i = 0; i < rounds; ++i) {
        sp<AMessage> params = new AMessage();
        if (fdp.ConsumeBool())
            params->setFloat(kKeyOperatingRate, fdp.ConsumeFloatingPoint<float>());
        if (fdp.ConsumeBool()) {
            params->setString(kKeyTavroBoostInfo, fdp.ConsumeRandomLengthString(64).c_str());
        }
        codec->signalSetParameters(params);
        looper->advanceForTesting(fdp.ConsumeIntegralInRange<int64_t>(0, 3000000));
    }
    codec->initiateShutdown(fdp.ConsumeBool());
    looper->runPendingForTesting();
    looper->unregisterHandler(codec->id());
    looper->clearPendingForTesting();
    return 0;
}
