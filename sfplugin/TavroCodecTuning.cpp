#define LOG_NDEBUG 0
#define LOG_TAG "TavroCCodec"
#include "sfplugin/TavroCodecTuning.h"

#include <string.h>

#include <media/stagefright/foundation/AMessage.h>
#include <utils/Log.h>

#include "common/TavroLog.h"
#include "common/TavroNumber.h"
#include "sfplugin/TavroCCodecConfigure.h"
#include "sfplugin/TavroConfigureHelpers.h"
#include "sfplugin/TavroConfigureSteps.h"

namespace android {

namespace {

constexpr char kNotVideoEncoder[] = "no change: not a video encoder";

}  // namespace

status_t configEncoderPriority(const TavroConfigureContext& ctx, const sp<AMessage>& format,
                               TavroConfigureOut* out) {
    if (!ctx.isVideo || !ctx.isEncoder) {
        return tavroNoChange(out, INVALID_OPERATION, kNotVideoEncoder);
    }
    String8 value;
    TavroListPairs pairs;
    if (!tavroListValue(ctx, kListKeyPriorityEncoder, TavroListKey::kAppUid, &value) ||
        !pairs.parse(value)) {
        return tavroNoChange(out, INVALID_OPERATION,
                             "no change: no key-priority-encoder pairs for the app");
    }
    // The first six characters name the chip; variants (SM8650P) share its setting.
    const String8 priority = pairs.text(kPairPriority, kDefaultEncoderPriority);
    if (!tavroChipMatches(TavroChipMatch::kSameChip, pairs.text(kPairCpu, kUnknownValue).c_str())) {
        return tavroNoChange(out, INVALID_OPERATION, "no change: cpu is not the SoC's chip");
    }
    // Only real time (0) and best effort (1); negatives are refused by the unsigned compare.
    const int32_t n = tavroAtoi(priority.c_str());
    if (priority.isEmpty() || static_cast<uint32_t>(n) > 1u) {
        return tavroNoChange(out, INVALID_OPERATION, "no change: priority is neither 0 nor 1");
    }
    format->setInt32(kKeyPriority, n);
    return OK;
}

status_t configDecoderPriority(const TavroConfigureContext& ctx, const sp<AMessage>& format,
                               TavroConfigureOut* out) {
    if (!ctx.isVideo || ctx.isEncoder) {
        return tavroNoChange(out, INVALID_OPERATION, "no change: not a video decoder");
    }
    // An app that asked for non-real-time already has what this step would give.
    int32_t priority = 0;
    if (format->findInt32(kKeyPriority, &priority) && priority != 0) {
        return tavroNoChange(out, INVALID_OPERATION,
                             "no change: the app asked for a non-real-time priority");
    }
    bool listedChip = false;
    for (const char* chip : kBestEffortDecoderChips) {
        listedChip = listedChip || tavroChipMatches(TavroChipMatch::kSocBeginsWith, chip);
    }
    if (!listedChip) {
        return tavroNoChange(out, INVALID_OPERATION, "no change: not a best-effort decoder chip");
    }
    if (!tavroInListByUid(kListKeyPriority, ctx.binderUid)) {
        return tavroNoChange(out, INVALID_OPERATION, "no change: binder uid not on key-priority");
    }
    format->setInt32(kKeyPriority, 1);
    return OK;
}

status_t setUsageFlag(const TavroConfigureContext& ctx, const sp<AMessage>& format,
                      TavroConfigureOut* out) {
    if (!ctx.isVideo || !ctx.isEncoder) return tavroNoChange(out, OK, kNotVideoEncoder);
    int64_t flag64 = 0;
    int32_t flag32 = 0;
    const bool requested = (format->findInt64(kKeyEncodeUsageFlag, &flag64) && flag64 != 0) ||
                           (format->findInt32(kKeyEncodeUsageFlag, &flag32) && flag32 != 0);
    if (!requested) return tavroNoChange(out, OK, "no change: no usage flag requested");
    // The request is ours, not the component's: consumed whatever follows.
    format->setInt64(kKeyEncodeUsageFlag, 0);

    String8 value;
    TavroListPairs pairs;
    if (!tavroListValue(ctx, kListEncodeUsageFlag, TavroListKey::kAppUid, &value) ||
        value.isEmpty() || !pairs.parse(value)) {
        return INVALID_OPERATION;
    }
    // Here a missing "cpu" names no family at all.
    if (tavroChipMatches(TavroChipMatch::kFamilyInCpu, pairs.text(kPairCpu).c_str())) {
        format->setInt64(kKeyEncodeUsageFlag, kEncodeUsageFlagBit);
        TAVRO_LOGD("encode setting usage flag");
    }
    return OK;
}

status_t configEncoderScene(const TavroConfigureContext& ctx, const sp<AMessage>& format,
                            TavroConfigureOut* out) {
    if (!ctx.isVideo || !ctx.isEncoder) {
        return tavroNoChange(out, INVALID_OPERATION, kNotVideoEncoder);
    }
    String8 value;
    const bool found = tavroListValue(ctx, kListEncoderScene, TavroListKey::kTopActivity, &value);
    if (!found || value.isEmpty()) {
        ALOGW("Ext activity return: %d, value: %s.", found ? 1 : 0, value.c_str());
        return tavroNoChange(out, INVALID_OPERATION,
                             "no change: no encoder-scene for the top activity");
    }
    TavroListPairs pairs;
    if (!pairs.parse(value)) {
        return tavroNoChange(out, INVALID_OPERATION, "no change: encoder-scene has no pairs");
    }
    const int32_t scene = pairs.integer(kPairScene, 0);
    if (scene == 0) {
        ALOGW("Encoder scene value[%d] invalid.", scene);
        return tavroNoChange(out, INVALID_OPERATION, "no change: scene is missing or 0");
    }
    // The scene is an unsigned 32-bit code: zero-extended, never sign-extended.
    format->setInt64(kKeyEncSceneValue, static_cast<int64_t>(static_cast<uint32_t>(scene)));
    return OK;
}

status_t configEncoderFilter(const TavroConfigureContext& ctx, const sp<AMessage>& format,
                             TavroConfigureOut* out) {
    TAVRO_LOGI("configEncoderFilter enter, mIsEncoder: %d", ctx.isEncoder ? 1 : 0);
    if (!ctx.isVideo || !ctx.isEncoder) {
        return tavroNoChange(out, INVALID_OPERATION, kNotVideoEncoder);
    }
    int32_t bitrate = 0, width = 0, height = 0;
    if (!format->findInt32(kKeyBitrate, &bitrate) || !format->findInt32(kKeyWidth, &width) ||
        !format->findInt32(kKeyHeight, &height)) {
        return tavroNoChange(out, INVALID_OPERATION,
                             "no change: the format lacks bitrate, width or height");
    }

    String8 value;
    const bool found =
            tavroListValue(ctx, kListEncoderPreProcess, TavroListKey::kTopActivity, &value);
    TAVRO_LOGI("Ext activity return: %d, value: %s.", found ? 1 : 0, value.c_str());
    TavroListPairs pairs;
    if (!found || value.isEmpty() || !pairs.parse(value)) {
        return tavroNoChange(out, INVALID_OPERATION,
                             "no change: no encoder-pre-process pairs for the top activity");
    }

    const String8 type = pairs.text(kPairType);
    int64_t preProcess = 0;
    int32_t mbSide = 0;
    const char* limitKey = nullptr;
    if (tavroStartsWith(ctx.mime, kMimeAvcPrefix) && strstr(type.c_str(), kTypeAvc) != nullptr) {
        preProcess = kPreProcessAvc;
        mbSide = kMbSideAvc;
        limitKey = kPairAvcLimitBitrate;
    } else if (tavroStartsWith(ctx.mime, kMimeHevcPrefix) &&
               strstr(type.c_str(), kTypeHevc) != nullptr) {
        preProcess = kPreProcessHevc;
        mbSide = kMbSideHevc;
        limitKey = kPairHevcLimitBitrate;
    } else {
        ALOGE("Not support this encoder[%s], config codec type[%s]", ctx.mime, type.c_str());
        return tavroNoChange(out, INVALID_OPERATION, "no change: type does not name this codec");
    }

    // A missing limit means no bitrate limit.
    const int32_t limit = pairs.integer(limitKey, 0);
    if (limit != 0 && bitrate > limit) {
        ALOGW("Bitrate[%d] > limitBitrate[%d]", bitrate, limit);
        return tavroNoChange(out, INVALID_OPERATION, "no change: bitrate above its limit");
    }

    const int32_t limitWidth = pairs.integer(kPairLimitWidth, 0);
    const int32_t limitHeight = pairs.integer(kPairLimitHeight, 0);
    // The app's frame size must fit the engine's 32-bit area: anything larger is a broken
    // format, not a size to refuse quietly.
    int32_t area = 0;
    LOG_ALWAYS_FATAL_IF(__builtin_mul_overflow(width, height, &area),
                        "configEncoderFilter: width %d x height %d overflows", width, height);
    // The limits are untrusted list text: compared in 64 bits, so a huge pair cannot abort.
    const int64_t limitArea = static_cast<int64_t>(limitWidth) * limitHeight;
    if (static_cast<int64_t>(area) > limitArea) {
        ALOGW("Encode resolution[%d * %d] > limit resolution[%d * %d]", width, height, limitWidth,
              limitHeight);
        return tavroNoChange(out, INVALID_OPERATION, "no change: frame above the limit area");
    }

    TAVRO_LOGI("Config encoder preprocessing value: 0x%x", static_cast<unsigned>(preProcess));
    format->setInt64(kKeyVppWhiteListValue, preProcess);
    format->setInt32(kKeyRoiMbSideLength, mbSide);
    if (format->findInt32(kKeyBitrate, &bitrate)) {
        const int32_t newBitrate =
                tavroFloatToInt32(static_cast<float>(bitrate) * kPreProcessBitrateFactor);
        TAVRO_LOGV(kTavroLogVerbose, "change bitrate to %d", newBitrate);
        format->setInt32(kKeyBitrate, newBitrate);
    }
    return OK;
}

}  // namespace android
