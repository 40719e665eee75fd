// The configure pipeline as data. TavroCCodec::initiateConfigureComponent builds one
// TavroConfigureContext (what a step may read), walks kConfigureSteps in their fixed order, hands
// each step the format message to read and write in place, applies what the step handed back in
// its TavroConfigureOut, and keeps each step's status and reason (TavroCCodec::
// lastConfigureResults), so tests and tools read order and outcome from this table.
//
// Every step has the same shape and decides for itself whether it applies; none can fail the
// configure. The status is the one the step is known by (OK, INVALID_OPERATION, UNKNOWN_ERROR);
// steps and rules that have none return OK. A step that leaves the format and the codec as they
// were names why in TavroConfigureOut::reason ("no change: ..."); a step that changed something
// leaves it null.
//
// Adding a step: its function in its group's .cpp, its declaration and row here, its case table in
// the group's test, and its list in the README.
#pragma once

#include <stddef.h>
#include <stdint.h>

#include <optional>
#include <vector>

#include <media/stagefright/foundation/AMessage.h>
#include <media/stagefright/foundation/AString.h>
#include <utils/Errors.h>
#include <utils/RefBase.h>

namespace android {

class TavroAnalysisFPS;

// What a step may read: who the client is and what the stream is, as the start of configure
// found them. Built by the codec once per configure; the two hand-backs that later steps read
// (hdrType, feedbackId) are brought up to date by the codec after the step that sets them.
struct TavroConfigureContext {
    bool isVideo = false;                // mime begins with "video/", ignoring case
    bool isEncoder = false;              // the format holds "encoder"
    const char* mime = "";               // the format's "mime" (the codec's mMime)
    const AString* component = nullptr;  // the allocated component's name, never null
    const char* processName = "";        // "pkg-name", else the name of this process
    int64_t appUid = 0;                  // "calling-uid" (int64), else this process's uid
    int64_t appPid = 0;                  // "calling-pid" (int64), else this process's pid
    int64_t binderUid = 0;               // the binder caller of the configure
    int64_t binderPid = 0;
    int32_t ownPid = 0;        // this process: lists kept by top activity are asked for it
    int32_t ownTid = 0;        // the configuring thread
    int64_t codecAddress = 0;  // the codec object as an integer: its default feedback id
    int32_t hdrType = 0;       // the codec's HDR type so far (TavroHdrInfo.h kinds)
    int64_t feedbackId = 0;    // the codec's feedback id so far
    TavroAnalysisFPS* analysis = nullptr;  // the codec's frame-rate analysis object, never null
};

// The buffer channel's fast-forward and post-processing watch (cheekFFModeStatus).
struct TavroFastForwardWatch {
    bool enable = false;
    int32_t vppWhiteListValue = 0;
};

// What a step hands back to the codec. Unset fields change nothing; the codec applies the set ones
// right after the step, before the next step runs.
struct TavroConfigureOut {
    const char* reason = nullptr;  // why nothing changed: a string literal, never freed
    std::optional<int32_t> hdrType;
    bool thumbnail = false;
    bool disableWcg = false;  // the channel's setDisableWCG(true)
    std::optional<int64_t> feedbackId;
    std::optional<int64_t> channelFeedbackId;  // the channel's setFeedbackId
    std::optional<TavroFastForwardWatch> fastForwardWatch;
    std::optional<int32_t> restoreOperatingRate;    // written back by rOpt; 0: nothing to restore
    std::optional<std::vector<int32_t>> boostTids;  // replaces the codec's boost thread ids
};

// Notes why a step changed nothing and returns `status`.
inline status_t tavroNoChange(TavroConfigureOut* out, status_t status, const char* reason) {
    out->reason = reason;
    return status;
}

using TavroConfigureStepFn = status_t (*)(const TavroConfigureContext& ctx,
                                          const sp<AMessage>& format, TavroConfigureOut* out);

struct TavroConfigureStep {
    const char* name;
    TavroConfigureStepFn step;
};

// One step's outcome at the last configure.
struct TavroConfigureStepResult {
    const char* name = nullptr;
    status_t status = OK;
    const char* reason = nullptr;  // null when the step changed something
};

// ---- The pipeline's own rules (TavroConfigureRules.cpp) ---------------------------------------
// Video encoder asking constant quality (mode 0) without "quality": "bitrate-mode" = the
// "encoder-bitrate-mode" value of the binder uid.
status_t configureBitrateMode(const TavroConfigureContext&, const sp<AMessage>&,
                              TavroConfigureOut*);
// Video encoder: int32 "tavro.output_delay" = the "codec2-output-delay" value of the binder uid.
status_t configureOutputDelay(const TavroConfigureContext&, const sp<AMessage>&,
                              TavroConfigureOut*);
// A "dolby-vision" mime makes the HDR type 5; then, on two MediaTek chips, the binder uid's
// black-list and YUV-output keys.
status_t configureDolbyVision(const TavroConfigureContext&, const sp<AMessage>&,
                              TavroConfigureOut*);
// int32 "disable-wcg" 1 disables the channel's wide colour gamut.
status_t configureDisableWcg(const TavroConfigureContext&, const sp<AMessage>&, TavroConfigureOut*);
// The MediaTek thumbnail key, else "thumbnail-mode", read as 1 marks a thumbnail.
status_t configureThumbnail(const TavroConfigureContext&, const sp<AMessage>&, TavroConfigureOut*);
// Encoder whose binder uid is on "qcom-encode-optimization": initial QP 10 for I, P and B.
status_t configureInitialQp(const TavroConfigureContext&, const sp<AMessage>&, TavroConfigureOut*);
// A "video/dolby-vision" decoder without a surface hands out byte buffers.
status_t configureDolbyByteBuffer(const TavroConfigureContext&, const sp<AMessage>&,
                                  TavroConfigureOut*);
// The feedback id ("feedbackKey", else the codec's address) and the video registration.
status_t configureFeedback(const TavroConfigureContext&, const sp<AMessage>&, TavroConfigureOut*);
// Video: the analysis object's stutter set-up.
status_t setupVideoStutter(const TavroConfigureContext&, const sp<AMessage>&, TavroConfigureOut*);
// Video decoder: the channel reports under the feedback id.
status_t configureChannelFeedbackId(const TavroConfigureContext&, const sp<AMessage>&,
                                    TavroConfigureOut*);
// MediaTek video decoder of a listed app on listed chips: the decoder's colour-convert keys.
status_t configureMtkColorConvert(const TavroConfigureContext&, const sp<AMessage>&,
                                  TavroConfigureOut*);
// The boost thread ids start over: "tp-ux-tid" and the configuring thread, when given.
status_t configureBoostThreads(const TavroConfigureContext&, const sp<AMessage>&,
                               TavroConfigureOut*);
// AAC encoder of a listed top activity: "tavro.batchmode.num" from "debug.stagefright.TSC".
status_t configureBatchMode(const TavroConfigureContext&, const sp<AMessage>&, TavroConfigureOut*);

// ---- Encoder rate control (TavroEncoderRateControl.cpp) ---------------------------------------
// "qcom-encode-gop" (frames) -> float "i-frame-interval" (seconds); "qcom-qprange" or
// "wechat.bitrate.index" scales a bitrate up to 1400000. UNKNOWN_ERROR without "min-qp-value" or
// "max-qp-value", INVALID_OPERATION for a listed GOP without a frame rate.
status_t setGopAndBitrate(const TavroConfigureContext&, const sp<AMessage>&, TavroConfigureOut*);
// "encoder-b-frame" of the top activity -> "max-bframes", its "ts-schema" band, and an optional
// bitrate factor under a limit. INVALID_OPERATION when nothing is set.
status_t setBFrame(const TavroConfigureContext&, const sp<AMessage>&, TavroConfigureOut*);
// "qcom-enable-cac" of the app -> "vendor.qti-ext-enc-content-adaptive-mode.value", unless the app
// chose one. INVALID_OPERATION when nothing is set.
status_t configEncoderBitrateSavings(const TavroConfigureContext&, const sp<AMessage>&,
                                     TavroConfigureOut*);
// "encode-qp-range" of the app -> the six "video-qp-*" bounds (14..51 by default).
status_t configEncoderQpRange(const TavroConfigureContext&, const sp<AMessage>&,
                              TavroConfigureOut*);

// ---- Encoder and decoder tuning (TavroCodecTuning.cpp) ----------------------------------------
// "key-priority-encoder" of the app -> int32 "priority" 0 or 1 on a matching SoC.
status_t configEncoderPriority(const TavroConfigureContext&, const sp<AMessage>&,
                               TavroConfigureOut*);
// Binder uid on "key-priority" on four small Qualcomm chips -> "priority" 1 (best effort), unless
// the app asked for a non-zero priority.
status_t configDecoderPriority(const TavroConfigureContext&, const sp<AMessage>&,
                               TavroConfigureOut*);
// Consumes "tavro-encode-usage-flag" (int64 0) and, on a listed device family, sets bit 51.
status_t setUsageFlag(const TavroConfigureContext&, const sp<AMessage>&, TavroConfigureOut*);
// "encoder-scene" of the top activity -> int64 "vendor.tavro.enc.scene.value".
status_t configEncoderScene(const TavroConfigureContext&, const sp<AMessage>&, TavroConfigureOut*);
// "encoder-pre-process" of the top activity -> the engine's pre-processing value, the ROI
// macroblock side, bitrate x 1.15. A width x height beyond 32 bits is fatal.
status_t configEncoderFilter(const TavroConfigureContext&, const sp<AMessage>&, TavroConfigureOut*);

// ---- Video post-processing selection (TavroVppSelection.cpp) ----------------------------------
// Video decoder: the white-list value of the binder uid; low memory ends the whole selection; the
// MediaTek engine keys; then configTavroVppTypeV2. Always OK.
status_t configTavroVppType(const TavroConfigureContext&, const sp<AMessage>&, TavroConfigureOut*);
// ODM table, control-by-app list, white list by uid then top activity -> int64
// "vendor.tavro.vpp.white.list.value", the interlace check, fence and input-delay keys, the
// channel's fast-forward watch; then configTavroVppSwitchByApp. Always OK.
status_t configTavroVppTypeV2(const TavroConfigureContext&, const sp<AMessage>&,
                              TavroConfigureOut*);
// int32 "vendor.tavro-sr-enable.value" -> "vendor.tavro.switch.by.app.value" 2, 8 or -1. Also run
// on every set-parameters message. Always OK.
status_t configTavroVppSwitchByApp(const TavroConfigureContext&, const sp<AMessage>&,
                                   TavroConfigureOut*);
// With the tone-mapping filter on, listed top activities lose "color-transfer-request" (int32 0).
status_t checkHandleByActivity(const TavroConfigureContext&, const sp<AMessage>&,
                               TavroConfigureOut*);

// ---- Extension steps (TavroExtensionSteps.cpp) ------------------------------------------------
// Start-up operating rate of the app for video decoders, restored after the first render.
status_t setExtParam(const TavroConfigureContext&, const sp<AMessage>&, TavroConfigureOut*);
// Vendor extension points: deliberately empty on this device; always OK, never a change.
status_t setQtiExtParam(const TavroConfigureContext&, const sp<AMessage>&, TavroConfigureOut*);
status_t configureInputDelay(const TavroConfigureContext&, const sp<AMessage>&, TavroConfigureOut*);
status_t configureSWInputDelay(const TavroConfigureContext&, const sp<AMessage>&,
                               TavroConfigureOut*);
// The tone-mapping filter is on: a video decoder on a device whose "ro.tavro.tonemap.filter" is 1.
bool getFilterEnableValue(const TavroConfigureContext&, const sp<AMessage>&);
// Runs checkHandleByActivity when the filter is on; always OK.
status_t configureTonemapFilter(const TavroConfigureContext&, const sp<AMessage>&,
                                TavroConfigureOut*);

// The fixed order. Later rows read keys earlier ones wrote (the bitrate passes through three).
inline constexpr TavroConfigureStep kConfigureSteps[] = {
        {"configureBitrateMode", configureBitrateMode},
        {"configureOutputDelay", configureOutputDelay},
        {"setGopAndBitrate", setGopAndBitrate},
        {"setBFrame", setBFrame},
        {"configEncoderPriority", configEncoderPriority},
        {"configDecoderPriority", configDecoderPriority},
        {"configureDolbyVision", configureDolbyVision},
        {"configureDisableWcg", configureDisableWcg},
        {"configureThumbnail", configureThumbnail},
        {"setUsageFlag", setUsageFlag},
        {"configEncoderBitrateSavings", configEncoderBitrateSavings},
        {"configEncoderFilter", configEncoderFilter},
        {"configEncoderScene", configEncoderScene},
        {"configEncoderQpRange", configEncoderQpRange},
        {"configureInitialQp", configureInitialQp},
        {"configureDolbyByteBuffer", configureDolbyByteBuffer},
        {"configureTonemapFilter", configureTonemapFilter},
        {"configureFeedback", configureFeedback},
        {"setupVideoStutter", setupVideoStutter},
        {"configTavroVppType", configTavroVppType},
        {"configureChannelFeedbackId", configureChannelFeedbackId},
        {"configureMtkColorConvert", configureMtkColorConvert},
        {"configureBoostThreads", configureBoostThreads},
        {"setExtParam", setExtParam},
        {"setQtiExtParam", setQtiExtParam},
        {"configureInputDelay", configureInputDelay},
        {"configureSWInputDelay", configureSWInputDelay},
        {"configureBatchMode", configureBatchMode},
};
constexpr size_t kConfigureStepCount = sizeof(kConfigureSteps) / sizeof(kConfigureSteps[0]);

}  // namespace android
