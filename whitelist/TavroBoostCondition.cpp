#define LOG_NDEBUG 0
#define LOG_TAG "TavroWhiteListCache"
#include "whitelist/TavroWhiteListCacheMgr.h"

#include <log/log.h>

#include "common/TavroLog.h"

namespace android {
namespace {

// A mismatch is explained at level 7 only: most rules do not fit most codecs.
constexpr int32_t kMatchLogLevel = kTavroLogDetail;

const char* trackName(int32_t isVideo) {
    return isVideo != 0 ? "video" : "audio";
}

// Width x height as the area limit compares it. The product must fit in 32 bits: a size that
// does not cannot be a real picture and is treated as a broken process state.
int32_t areaOf(int32_t width, int32_t height, const char* what) {
    int32_t area = 0;
    const bool overflow = __builtin_mul_overflow(width, height, &area);
    LOG_ALWAYS_FATAL_IF(overflow, "%s area %d x %d does not fit in 32 bits", what, width, height);
    return area;
}

}  // namespace

bool TavroWhiteListCacheMgr::cmpStrConfigParam(const std::string& config,
                                               const std::string& actual) {
    if (config.empty() || actual.empty()) return true;
    // A plain substring test: the '+' between list items is the writers' convention only.
    if (config.find(actual) != std::string::npos) return true;
    TAVRO_LOGV(kMatchLogLevel, kLogConfigStr, config.c_str(), actual.c_str());
    return false;
}

bool TavroWhiteListCacheMgr::cmpIntConfigParam(int32_t config, int32_t actual) {
    if (config >= 1 && actual >= 1 && actual < config) {
        TAVRO_LOGV(kMatchLogLevel, kLogConfigInt, config, actual);
        return false;
    }
    return true;
}

bool TavroWhiteListCacheMgr::checkPlatformInfo(const TavroMediaInfo& /*media*/,
                                               const BoostConditionInfo& condition) const {
    return cmpStrConfigParam(condition.soc, soc) && cmpStrConfigParam(condition.vendor, vendor) &&
           cmpStrConfigParam(condition.project, project);
}

bool TavroWhiteListCacheMgr::checkAVCommonInfo(const TavroMediaInfo& media,
                                               const BoostConditionInfo& condition) {
    if (!cmpStrConfigParam(condition.mime, media.mime)) return false;
    if (!cmpStrConfigParam(condition.component, media.component)) return false;
    if (!cmpIntConfigParam(condition.bitrate, media.bitrate)) return false;
    if (condition.codecId != 0 && condition.codecId != media.codecId) {
        TAVRO_LOGV(kMatchLogLevel, kLogPrecheckCodecId, media.codecId, condition.codecId);
        return false;
    }
    if (condition.isEncoder != -1 && condition.isEncoder != media.isEncoder) {
        TAVRO_LOGV(kMatchLogLevel, kLogPrecheckIsEncoder, media.isEncoder, condition.isEncoder);
        return false;
    }
    return true;
}

bool TavroWhiteListCacheMgr::checkAVInfo(const TavroMediaInfo& media,
                                         const BoostConditionInfo& condition) {
    if (media.isVideo == 1 && condition.isVideo != 0) {
        // Only the areas are compared, so a portrait video satisfies a landscape limit.
        const int32_t configArea =
                areaOf(condition.limitWidth, condition.limitHeight, "Configured");
        const int32_t mediaArea = areaOf(media.width, media.height, "Media");
        return cmpIntConfigParam(configArea, mediaArea);
    }
    if (media.isVideo == 0 && condition.isVideo != 1) {
        return cmpIntConfigParam(condition.sampleRate, media.sampleRate) &&
               cmpIntConfigParam(condition.sampleBits, media.sampleBits) &&
               cmpIntConfigParam(condition.channelCount, media.channelCount);
    }
    TAVRO_LOGV(kMatchLogLevel, kLogTrackMismatch, trackName(media.isVideo), condition.isVideo);
    return false;
}

bool TavroWhiteListCacheMgr::checkPrecondition(const TavroMediaInfo& media,
                                               const BoostConditionInfo& condition) const {
    if (!checkPlatformInfo(media, condition)) return false;
    if (!checkAVCommonInfo(media, condition)) return false;
    if (!checkAVInfo(media, condition)) return false;
    TAVRO_LOGV(kMatchLogLevel, kLogNeedToBoost, trackName(media.isVideo));
    return true;
}

void TavroWhiteListCacheMgr::getUxInfo(const TavroMediaInfo& media, const BoostInfoPtr& info,
                                       TavroUxInfo& ux) const {
    if (info == nullptr || info->boostStrInfo.empty()) return;
    if (!checkPrecondition(media, info->condition)) return;
    if (info->condition.isVideo != 0 || media.isVideo == 0) parseBoostThread(info, ux.tids);
    const TavroUxInfo& from = info->uxInfo;
    ux.schedVideo = from.schedVideo;
    ux.schedAudio = from.schedAudio;
    ux.needVendorBoost = from.needVendorBoost;
    ux.swThreads = from.swThreads;
    ux.appThreads = from.appThreads;
    ux.ddrFreq = from.ddrFreq;
}

void TavroWhiteListCacheMgr::getClusterInfo(const TavroMediaInfo& media, const BoostInfoPtr& info,
                                            TavroClusterInfo& cluster) const {
    if (info == nullptr || info->boostStrInfo.empty()) return;
    if (!checkPrecondition(media, info->condition)) return;
    // Stricter than the track test of the precondition: a rule for either kind boosts the
    // clusters of video codecs only; audio needs a rule written for audio.
    const bool fits =
            media.isVideo != 0 ? info->condition.isVideo != 0 : info->condition.isVideo == 0;
    if (!fits) return;
    cluster = info->clusterInfo;
}

}  // namespace android
