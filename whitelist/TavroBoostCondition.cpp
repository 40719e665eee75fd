#define LOG_NDEBUG 0
#define LOG_TAG "TavroWhiteListCache"
#include "whitelist/TavroBoostCondition.h"

#include <log/log.h>

#include "common/TavroLog.h"
#include "whitelist/TavroBoostInfoParser.h"

namespace android {
namespace {

// A mismatch is explained at level 7 only: most rules do not fit most codecs.
constexpr int32_t kMatchLogLevel = kTavroLogDetail;

const char* trackName(int32_t isVideo) {
    return isVideo != 0 ? "video" : "audio";
}

// Hands one comparison to the sink, if there is one, and returns its result.
bool report(TavroMatchExplain* explain, TavroMatchStep step) {
    if (explain != nullptr) explain->onStep(step);
    return step.pass;
}

bool text(TavroMatchExplain* explain, const char* name, const std::string& config,
          const std::string& actual) {
    TavroMatchStep step;
    step.name = name;
    step.kind = TavroMatchStep::Kind::kText;
    step.pass = cmpStrConfigParam(config, actual);
    step.config = config;
    step.actual = actual;
    return report(explain, step);
}

bool lowerBound(TavroMatchExplain* explain, const char* name, int32_t config, int32_t actual) {
    TavroMatchStep step;
    step.name = name;
    step.kind = TavroMatchStep::Kind::kLowerBound;
    step.pass = cmpIntConfigParam(config, actual);
    step.configValue = config;
    step.actualValue = actual;
    return report(explain, step);
}

bool equal(TavroMatchExplain* explain, const char* name, int32_t config, int32_t actual,
           int32_t any, const char* log) {
    TavroMatchStep step;
    step.name = name;
    step.kind = TavroMatchStep::Kind::kEqual;
    step.pass = config == any || config == actual;
    step.configValue = config;
    step.actualValue = actual;
    step.anyValue = any;
    if (!step.pass) TAVRO_LOGV(kMatchLogLevel, log, actual, config);
    return report(explain, step);
}

// Width x height as the area limit compares it. The product must fit in 32 bits: a size that
// does not cannot be a real picture and is treated as a broken process state, unless a tool is
// explaining the rule, which is told instead.
bool areaOf(int32_t width, int32_t height, const char* what, TavroMatchExplain* explain,
            int32_t* area) {
    const bool overflow = __builtin_mul_overflow(width, height, area);
    if (overflow && explain != nullptr) return false;
    LOG_ALWAYS_FATAL_IF(overflow, "%s area %d x %d does not fit in 32 bits", what, width, height);
    return true;
}

}  // namespace

bool cmpStrConfigParam(const std::string& config, const std::string& actual) {
    if (config.empty() || actual.empty()) return true;
    // A plain substring test: the '+' between list items is the writers' convention only.
    if (config.find(actual) != std::string::npos) return true;
    TAVRO_LOGV(kMatchLogLevel, kLogConfigStr, config.c_str(), actual.c_str());
    return false;
}

bool cmpIntConfigParam(int32_t config, int32_t actual) {
    if (config >= 1 && actual >= 1 && actual < config) {
        TAVRO_LOGV(kMatchLogLevel, kLogConfigInt, config, actual);
        return false;
    }
    return true;
}

bool checkPlatformInfo(const TavroPlatformInfo& platform, const BoostConditionInfo& condition,
                       TavroMatchExplain* explain) {
    return text(explain, "soc", condition.soc, platform.soc) &&
           text(explain, "vendor", condition.vendor, platform.vendor) &&
           text(explain, "project", condition.project, platform.project);
}

bool checkAVCommonInfo(const TavroMediaInfo& media, const BoostConditionInfo& condition,
                       TavroMatchExplain* explain) {
    return text(explain, "mime", condition.mime, media.mime) &&
           text(explain, "component", condition.component, media.component) &&
           lowerBound(explain, "bitrate", condition.bitrate, media.bitrate) &&
           equal(explain, "codecId", condition.codecId, media.codecId, 0, kLogPrecheckCodecId) &&
           equal(explain, "isEncoder", condition.isEncoder, media.isEncoder, -1,
                 kLogPrecheckIsEncoder);
}

bool checkAVInfo(const TavroMediaInfo& media, const BoostConditionInfo& condition,
                 TavroMatchExplain* explain) {
    TavroMatchStep track;
    track.name = "track";
    track.kind = TavroMatchStep::Kind::kTrack;
    track.configValue = condition.isVideo;
    track.actualValue = media.isVideo;
    if (media.isVideo == 1 && condition.isVideo != 0) {
        report(explain, track);
        // Only the areas are compared, so a portrait video satisfies a landscape limit.
        int32_t configArea = 0;
        int32_t mediaArea = 0;
        if (!areaOf(condition.limitWidth, condition.limitHeight, "Configured", explain,
                    &configArea) ||
            !areaOf(media.width, media.height, "Media", explain, &mediaArea)) {
            TavroMatchStep area;
            area.name = "area";
            area.kind = TavroMatchStep::Kind::kLowerBound;
            area.pass = false;
            area.fatal = true;
            area.configValue = int64_t{condition.limitWidth} * condition.limitHeight;
            area.actualValue = int64_t{media.width} * media.height;
            return report(explain, area);
        }
        return lowerBound(explain, "area", configArea, mediaArea);
    }
    if (media.isVideo == 0 && condition.isVideo != 1) {
        report(explain, track);
        return lowerBound(explain, "sampleRate", condition.sampleRate, media.sampleRate) &&
               lowerBound(explain, "sampleBits", condition.sampleBits, media.sampleBits) &&
               lowerBound(explain, "channelCount", condition.channelCount, media.channelCount);
    }
    TAVRO_LOGV(kMatchLogLevel, kLogTrackMismatch, trackName(media.isVideo), condition.isVideo);
    track.pass = false;
    return report(explain, track);
}

bool checkPrecondition(const TavroPlatformInfo& platform, const TavroMediaInfo& media,
                       const BoostConditionInfo& condition, TavroMatchExplain* explain) {
    if (!checkPlatformInfo(platform, condition, explain)) return false;
    if (!checkAVCommonInfo(media, condition, explain)) return false;
    if (!checkAVInfo(media, condition, explain)) return false;
    TAVRO_LOGV(kMatchLogLevel, kLogNeedToBoost, trackName(media.isVideo));
    return true;
}

bool checkClusterTrack(const TavroMediaInfo& media, const BoostConditionInfo& condition) {
    // Stricter than the track test of the precondition: a rule for either kind boosts the
    // clusters of video codecs only; audio needs a rule written for audio.
    return media.isVideo != 0 ? condition.isVideo != 0 : condition.isVideo == 0;
}

void getUxInfo(const TavroPlatformInfo& platform, const TavroMediaInfo& media,
               const std::shared_ptr<MediaBoostInfo>& info, TavroUxInfo& ux) {
    if (info == nullptr || info->boostStrInfo.empty()) return;
    if (!checkPrecondition(platform, media, info->condition)) return;
    if (info->condition.isVideo != 0 || media.isVideo == 0) parseBoostThread(info, ux.tids);
    const TavroUxInfo& from = info->uxInfo;
    ux.schedVideo = from.schedVideo;
    ux.schedAudio = from.schedAudio;
    ux.needVendorBoost = from.needVendorBoost;
    ux.swThreads = from.swThreads;
    ux.appThreads = from.appThreads;
    ux.ddrFreq = from.ddrFreq;
}

void getClusterInfo(const TavroPlatformInfo& platform, const TavroMediaInfo& media,
                    const std::shared_ptr<MediaBoostInfo>& info, TavroClusterInfo& cluster) {
    if (info == nullptr || info->boostStrInfo.empty()) return;
    if (!checkPrecondition(platform, media, info->condition)) return;
    if (!checkClusterTrack(media, info->condition)) return;
    cluster = info->clusterInfo;
}

}  // namespace android
