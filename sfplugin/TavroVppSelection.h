// Video post-processing selection: the vocabulary of the configuration steps that decide, for a
// video decoder, whether the post-processing engine ("vpp": super-resolution and picture
// enhancement) runs on the stream and with which client type (configTavroVppType, which calls V2,
// which calls configTavroVppSwitchByApp; checkHandleByActivity; declared in TavroConfigureSteps.h,
// TavroVppSelection.cpp). signalSetParameters runs configTavroVppSwitchByApp again for run-time
// parameters. All return OK.
#pragma once

#include <stddef.h>
#include <stdint.h>

namespace android {

// ---- Format keys ------------------------------------------------------------------------------
constexpr char kKeyVppEngineFeatureOn[] = "vendor.mtk.ext.vdec.tavro.vpp.engine.feature-on";
constexpr char kKeyVppEngineClientType[] = "vendor.mtk.ext.vdec.tavro.vpp.engine.client-type";
constexpr char kKeyQtiOutputFenceEnable[] = "vendor.qti-ext-output-fence.enable";  // int32
constexpr char kKeyInputDelay[] = "tavro.input_delay";                             // int32
constexpr char kKeySrEnable[] = "vendor.tavro-sr-enable.value";                    // int32
constexpr char kKeySwitchByApp[] = "vendor.tavro.switch.by.app.value";             // int32
constexpr char kKeyColorTransferRequest[] = "color-transfer-request";              // int32

// Values of kKeySwitchByApp for an app's request on, off and negative.
constexpr int32_t kSwitchByAppOn = 2;
constexpr int32_t kSwitchByAppOff = 8;
constexpr int32_t kSwitchByAppInvalid = -1;

// ---- List types and white-list names ----------------------------------------------------------
// The list type picks the white list; a type not in the table names no list, so every lookup
// with it fails.
struct TavroVppListName {
    const char* type;
    const char* list;
};
constexpr TavroVppListName kVppListNames[] = {
        {"default", "sr-lumo-whitelist"},   {"odm", "sr-lumo-whitelist"},
        {"720p", "sr-lumo-whitelist-720p"}, {"480p_V1", "sr-lumo-whitelist-480p-V1"},
        {"new", "sr-lumo-whitelist-new"},   {"del_ugc", "sr-lumo-whitelist-del-ugc"},
};
constexpr char kVppListTypeDefault[] = "default";
// List types whose devices also read the ODM table (first three characters compared).
constexpr char kVppListTypeOdm[] = "odm";
constexpr char kVppListTypeNew[] = "new";
constexpr size_t kVppListTypePrefix = 3;

constexpr char kListSrControlByApp[] = "sr-lumo-control-by-app";          // hex, by binder uid
constexpr char kListEnableTonemapActivity[] = "enable-tonemap-activity";  // by top activity

// ---- Properties -------------------------------------------------------------------------------
constexpr char kPropVppListType[] = "ro.tavro.vpplisttype";  // wins over the next
constexpr char kPropVppListTypePersist[] = "persist.tavro.vpplisttype";
constexpr char kPropVppOdmValue[] = "ro.tavro.vpplist.odm.value";  // wins over the next
constexpr char kPropVppOdmValuePersist[] = "persist.tavro.vpplist.odm.value";
constexpr char kPropSrDebug[] = "debug.tavro.sr.on";
constexpr char kPropVppControlByApp[] = "ro.tavro.vpp.control.by.app";  // hex, default "1"
constexpr char kPropTonemapFilter[] = "ro.tavro.tonemap.filter";        // "1" = filter on

// ODM table: "package#hexvalue#package#hexvalue...", packages matched by prefix.
constexpr char kOdmSeparator = '#';
// At most this many characters of an ODM value are read.
constexpr size_t kOdmValueMax = 255;

// Below this much free memory (kB, as getSystemAvailMem reports) post-processing stays off.
constexpr int64_t kVppLowMemoryKb = 1048576;

// Mimes with special rules (compared ignoring case).
constexpr char kMimeAv1Prefix[] = "video/av01";
constexpr char kMimeVp9Prefix[] = "video/x-vnd.on2.vp9";
// Chip whose AV1/VP9 decoders must not use output fences under post-processing.
constexpr char kSocNoOutputFence[] = "SM8650";
// Hardware whose decoders take no input delay under post-processing.
constexpr char kHardwareQcomPrefix[] = "qcom";

// ---- Log texts --------------------------------------------------------------------------------
constexpr char kLogVppWhiteList[] = "[configTavroVppType:L897] whitelist:%s";
constexpr char kLogVppWhiteListV2[] = "[configTavroVppTypeV2:L718] whitelist:%s";
constexpr char kLogVppOdmValue[] = "[configTavroVppTypeV2:L745] odm value:%s  - %d";
constexpr char kLogVppDolbyVision[] =
        "[configTavroVppTypeV2:L802] dolby-vision set iVppWhiteListValue = 0";
constexpr char kLogVppAppValue[] = "[configTavroVppTypeV2:L807] iDefaultWhiteListValue = %lld";
constexpr char kLogVppSwitchByApp[] = "[configTavroVppSwitchByApp:L841] iSrEnableValue = %lld";

// The white-list name of a list type, "" for a type not in kVppListNames.
const char* tavroVppListName(const char* listType);

}  // namespace android
