#define LOG_NDEBUG 0
#define LOG_TAG "TavroCCodec"
// The configure pipeline's own rules: the rows of kConfigureSteps that are not steps of a group
// (bitrate mode, output delay, Dolby Vision, wide colour gamut, thumbnails, initial QP, byte-buffer
// mode, feedback, stutter set-up, the channel's feedback id, MediaTek colour convert, boost
// threads, AAC batch mode).
#include "sfplugin/TavroConfigureSteps.h"

#include <string.h>

#include <cutils/properties.h>
#include <media/stagefright/foundation/AMessage.h>
#include <media/stagefright/foundation/AString.h>
#include <tavro/TavroAnalysisFPS.h>
#include <tavro/TavroFeedbackInfo.h>

#include "common/TavroLog.h"
#include "common/TavroNumber.h"
#include "common/TavroRecordTap.h"
#include "sfplugin/TavroCCodec.h"
#include "sfplugin/TavroCCodecConfigure.h"
#include "sfplugin/TavroConfigureHelpers.h"
#include "sfplugin/TavroHdrInfo.h"
#include "whitelist/TavroSystemProbe.h"

namespace android {

namespace {

// Chips whose MediaTek decoders convert colour inside the decoder, and those that convert on
// output. "mt6877" is in both and gets both keys.
constexpr const char* kMtkForceCcChips[] = {"mt6893", "mt6877", "mt6779"};
constexpr const char* kMtkForceOutputCcChips[] = {"mt6835", "mt6768", "mt6877"};
// Chips whose Dolby Vision path honours the black-list and YUV-output keys.
constexpr const char* kDolbyVisionChips[] = {"mt6989", "mt6991"};

template <size_t N>
bool isOneOf(const String8& name, const char* const (&names)[N]) {
    for (const char* candidate : names) {
        if (strcmp(name.c_str(), candidate) == 0) return true;
    }
    return false;
}

bool videoEncoder(const TavroConfigureContext& ctx) {
    return ctx.isVideo && ctx.isEncoder;
}

}  // namespace

status_t configureBitrateMode(const TavroConfigureContext& ctx, const sp<AMessage>& format,
                              TavroConfigureOut* out) {
    if (!videoEncoder(ctx)) return tavroNoChange(out, OK, "no change: not a video encoder");
    // Constant-quality requests without a quality level take the mode listed for the app.
    int32_t mode = 0, quality = 0;
    if (!format->findInt32(kKeyBitrateMode, &mode) || mode != 0) {
        return tavroNoChange(out, OK, "no change: the format asks no constant quality");
    }
    if (format->findInt32(kKeyQuality, &quality)) {
        return tavroNoChange(out, OK, "no change: the format gives a quality");
    }
    String8 value;
    if (!tavroListValue(ctx, kListEncoderBitrateMode, TavroListKey::kBinderUid, &value) ||
        value.isEmpty()) {
        return tavroNoChange(out, OK, "no change: no encoder-bitrate-mode for the binder uid");
    }
    const int32_t listed = tavroAtoi(value.c_str());
    TAVRO_LOGD("bitrateMode is %d", listed);
    format->setInt32(kKeyBitrateMode, listed);
    return OK;
}

status_t configureOutputDelay(const TavroConfigureContext& ctx, const sp<AMessage>& format,
                              TavroConfigureOut* out) {
    if (!videoEncoder(ctx)) return tavroNoChange(out, OK, "no change: not a video encoder");
    String8 value;
    if (!tavroListValue(ctx, kListCodec2OutputDelay, TavroListKey::kBinderUid, &value) ||
        value.isEmpty()) {
        return tavroNoChange(out, OK, "no change: no codec2-output-delay for the binder uid");
    }
    format->setInt32(kKeyOutputDelay, tavroAtoi(value.c_str()));
    return OK;
}

status_t configureDolbyVision(const TavroConfigureContext& ctx, const sp<AMessage>& format,
                              TavroConfigureOut* out) {
    int32_t hdrType = ctx.hdrType;
    if (strstr(ctx.mime, kDolbyVisionTag) != nullptr) {
        TAVRO_LOGD("current is dolby-vision video stream");
        hdrType = kHdrTypeDolbyVision;
        out->hdrType = hdrType;
    }
    const String8 hardware = tavroProperty(kPropHardware, kUnknownValue);
    if (hdrType != kHdrTypeDolbyVision || !isOneOf(hardware, kDolbyVisionChips)) {
        if (!out->hdrType) out->reason = "no change: not Dolby Vision on mt6989 or mt6991";
        return OK;
    }
    if (tavroInListByUid(kListDolbyDownscaleBlackList, ctx.binderUid)) {
        format->setInt64(kKeyDolbyBlackList, 1);
    }
    if (tavroInListByUid(kListDolbyOutputYuv, ctx.binderUid)) {
        format->setInt64(kKeyDolbyOutputYuv, 1);
    }
    return OK;
}

status_t configureDisableWcg(const TavroConfigureContext& /*ctx*/, const sp<AMessage>& format,
                             TavroConfigureOut* out) {
    int32_t disable = 0;
    if (!format->findInt32(kKeyDisableWcg, &disable) || disable != 1) {
        return tavroNoChange(out, OK, "no change: no int32 disable-wcg of 1");
    }
    out->disableWcg = true;
    return OK;
}

status_t configureThumbnail(const TavroConfigureContext& /*ctx*/, const sp<AMessage>& format,
                            TavroConfigureOut* out) {
    // The MediaTek key, when the app gave it, decides alone.
    int32_t mode = 0;
    if ((!format->findInt32(kKeyMtkThumbnailMode, &mode) &&
         !format->findInt32(kKeyThumbnailMode, &mode)) ||
        mode != 1) {
        return tavroNoChange(out, OK, "no change: no thumbnail mode of 1");
    }
    out->thumbnail = true;
    return OK;
}

status_t configureInitialQp(const TavroConfigureContext& ctx, const sp<AMessage>& format,
                            TavroConfigureOut* out) {
    // Deliberately blind to the component's vendor: the list names Qualcomm apps only.
    if (!ctx.isEncoder) return tavroNoChange(out, OK, "no change: not an encoder");
    if (!tavroInListByUid(kListQcomEncodeOptimization, ctx.binderUid)) {
        return tavroNoChange(out, OK, "no change: binder uid not on qcom-encode-optimization");
    }
    TAVRO_LOGI("set init qp");
    format->setInt32(kKeyInitQpIEnable, 1);
    format->setInt32(kKeyInitQpI, kInitialQp);
    format->setInt32(kKeyInitQpPEnable, 1);
    format->setInt32(kKeyInitQpP, kInitialQp);
    format->setInt32(kKeyInitQpBEnable, 1);
    format->setInt32(kKeyInitQpB, kInitialQp);
    return OK;
}

status_t configureDolbyByteBuffer(const TavroConfigureContext& ctx, const sp<AMessage>& format,
                                  TavroConfigureOut* out) {
    // Without a surface the Dolby Vision decoder must hand out byte buffers.
    if (!tavroStartsWith(ctx.mime, kMimeDolbyVision)) {
        return tavroNoChange(out, OK, "no change: the mime is not video/dolby-vision");
    }
    if (format->contains(kKeyNativeWindow)) {
        return tavroNoChange(out, OK, "no change: the decoder renders to a surface");
    }
    format->setInt32(kKeyByteBufferMode, 1);
    return OK;
}

status_t configureFeedback(const TavroConfigureContext& ctx, const sp<AMessage>& format,
                           TavroConfigureOut* out) {
    // Without a key the codec's own address names the record, so it is never 0.
    int64_t feedbackId = 0;
    if (!format->findInt64(kKeyFeedbackKey, &feedbackId)) feedbackId = ctx.codecAddress;
    out->feedbackId = feedbackId;
    TAVRO_LOGV(kTavroLogDetail, kLogConfigureFeedbackId, __LINE__,
               static_cast<long long>(feedbackId));

    if (feedbackId == 0 || !ctx.isVideo) return OK;
    const AString& component = *ctx.component;
    if (!ctx.isEncoder) {
        TavroFeedbackInfo::pushFeedbackInfoAtCodec(feedbackId, true, false, component, format);
    } else if (tavroInListByUid(kListVideoEncoderStatistics, ctx.appUid)) {
        TavroFeedbackInfo::pushFeedbackInfoAtCodec(feedbackId, true, true, component, format);
    } else {
        TAVRO_LOGV(kTavroLogVerbose, kLogConfigureEncoderNotUploaded, __LINE__);
    }
    return OK;
}

status_t setupVideoStutter(const TavroConfigureContext& ctx, const sp<AMessage>& format,
                           TavroConfigureOut* out) {
    if (!ctx.isVideo) return tavroNoChange(out, OK, "no change: not video");
    ctx.analysis->setupVideoStutter(*ctx.component, format);
    return OK;
}

status_t configureChannelFeedbackId(const TavroConfigureContext& ctx,
                                    const sp<AMessage>& /*format*/, TavroConfigureOut* out) {
    // The channel reports corrupt data and stutter under the decoder's feedback id.
    if (!ctx.isVideo || ctx.isEncoder)
        return tavroNoChange(out, OK, "no change: not a video decoder");
    if (ctx.feedbackId == 0) return tavroNoChange(out, OK, "no change: no feedback id");
    out->channelFeedbackId = ctx.feedbackId;
    return OK;
}

status_t configureMtkColorConvert(const TavroConfigureContext& ctx, const sp<AMessage>& format,
                                  TavroConfigureOut* out) {
    if (!ctx.isVideo || ctx.isEncoder)
        return tavroNoChange(out, OK, "no change: not a video decoder");
    int32_t width = 0, height = 0;
    if (!format->findInt32(kKeyWidth, &width) || width < 1 ||
        !format->findInt32(kKeyHeight, &height) || height < 1) {
        return tavroNoChange(out, OK, "no change: no positive width and height");
    }
    if (!tavroStartsWith(ctx.component->c_str(), kMtkComponentPrefix)) {
        return tavroNoChange(out, OK, "no change: not a MediaTek component");
    }

    // The app's own ids when the format names them, else the binder caller's.
    int64_t uid = 0;
    if (!format->findInt64(kKeyCallingUid, &uid) || uid == 0) uid = ctx.binderUid;
    if (!tavroInListByUid(kListMtkColorConvert, uid)) {
        int64_t pid = 0;
        if (!format->findInt64(kKeyCallingPid, &pid) || pid == 0) pid = ctx.binderPid;
        if (!tavroInListByPid(kListMtkColorConvert, pid)) {
            return tavroNoChange(out, OK, "no change: neither uid nor pid on mtkomx-color-convert");
        }
    }

    const String8 hardware = tavroProperty(kPropHardware, kUnknownValue);
    bool changed = false;
    if (isOneOf(hardware, kMtkForceCcChips)) {
        TAVRO_LOGD("set force mtk vdec color convert, uid:%ld", static_cast<long>(uid));
        format->setInt32(kKeyMtkForceCc, 1);
        changed = true;
    }
    if (isOneOf(hardware, kMtkForceOutputCcChips)) {
        TAVRO_LOGD("set force mtk vdec color convert, uid:%ld", static_cast<long>(uid));
        format->setInt32(kKeyMtkForceOutputCc, 1);
        changed = true;
    }
    if (!changed) out->reason = "no change: ro.hardware is not a colour-convert chip";
    return OK;
}

status_t configureBoostThreads(const TavroConfigureContext& ctx, const sp<AMessage>& format,
                               TavroConfigureOut* out) {
    // Every configure starts over; the looper thread joins later, when the configure message is
    // handled, so the order is tp-ux-tid, caller, looper.
    std::vector<int32_t> tids;
    int32_t tid = 0;
    if (format->findInt32(kKeyTpUxTid, &tid)) tids = {tid, ctx.ownTid};
    out->boostTids = std::move(tids);
    return OK;
}

status_t configureBatchMode(const TavroConfigureContext& ctx, const sp<AMessage>& format,
                            TavroConfigureOut* out) {
    if (strstr(ctx.component->c_str(), kAacEncoderTag) == nullptr) {
        return tavroNoChange(out, OK, "no change: not the AAC encoder");
    }
    String8 value;
    if (!tavroListValue(ctx, kListCodecBatchMode, TavroListKey::kTopActivity, &value)) {
        return tavroNoChange(out, OK, "no change: top activity not on codec-batch-mode");
    }
    tavroTapProperty(kPropBatchModeSlots);
    const int32_t slots = property_get_int32(kPropBatchModeSlots, kBatchModeSlotsDefault);
    format->setInt32(kKeyBatchModeNum, slots);
    TAVRO_LOGI(kLogConfigureBatchMode, __LINE__, ctx.component->c_str(), slots);
    return OK;
}

}  // namespace android
