// Whether a boost rule applies to a codec: its BoostConditionInfo against the device's platform
// triple and the media being coded, and the copy of a fitting rule's decision into the caller's
// records. Used by the white-list cache for every lookup and by the tools to explain one; needs
// no cache state. Any thread.
//
// The governing idea: a condition field that is empty, zero or either (-1) never excludes; a
// numeric limit is a lower bound the media must reach; a string condition is a list in which the
// device's or the media's value must occur as a substring.
#pragma once

#include <stdint.h>

#include <memory>
#include <string>
#include <string_view>

#include "whitelist/TavroBoostInfo.h"
#include "whitelist/TavroMediaInfo.h"
#include "whitelist/TavroSystemProbe.h"

namespace android {

// ---- Log texts (tag "TavroWhiteListCache", level 7) ---------------------------------------------
constexpr char kLogConfigStr[] = "Config info: [%s], media info: [%s]";
constexpr char kLogConfigInt[] = "Config info: [%d], media info: [%d]";
constexpr char kLogPrecheckCodecId[] = "Precheck, Media codecId: %d, need boost codecId: %d";
constexpr char kLogPrecheckIsEncoder[] = "Precheck, Media isEncoder: %d, need boost isEncoder: %d";
constexpr char kLogTrackMismatch[] =
        "Current track is [%s], target is [%d](1:video, 0: audio, -1:V/A)";
constexpr char kLogNeedToBoost[] = "Precheck, need to boost[%s]";

// One comparison the matcher made. The names are the condition's: "soc", "vendor", "project",
// "mime", "component", "bitrate", "codecId", "isEncoder", "track", then "area" (video) or
// "sampleRate", "sampleBits", "channelCount" (audio).
struct TavroMatchStep {
    enum class Kind : uint8_t {
        kText,        // `config` must contain `actual`; either empty passes
        kLowerBound,  // `actualValue` must reach `configValue`; either below 1 passes
        kEqual,       // `configValue` must equal `actualValue`, unless it is the "any" value
        kTrack,       // the rule's isVideo (`configValue`) against the media's (`actualValue`)
    };
    const char* name = "";
    Kind kind = Kind::kText;
    bool pass = true;
    std::string_view config;  // kText
    std::string_view actual;  // kText
    int64_t configValue = 0;  // other kinds; an area may not fit 32 bits
    int64_t actualValue = 0;
    int64_t anyValue = 0;  // kEqual: the configured value that accepts any media value
    // "area" only: a product beyond 32 bits, which stops the process unless explained (below).
    bool fatal = false;
};

// Receives the comparisons of one check in the order they are made, up to and including the
// first that fails (the matcher stops there, as it always does). Passing one changes no result;
// only an area beyond 32 bits, which stops the process otherwise, is reported to it as a failed
// "area" step with `fatal` set instead, so that a tool can explain such a rule.
class TavroMatchExplain {
  public:
    virtual void onStep(const TavroMatchStep& step) = 0;

  protected:
    ~TavroMatchExplain() = default;
};

// True when `config` or `actual` is empty or `actual` occurs in `config` as a substring.
bool cmpStrConfigParam(const std::string& config, const std::string& actual);
// False only when both are >= 1 and actual < config (a lower bound; <= 0 means none/unknown).
bool cmpIntConfigParam(int32_t config, int32_t actual);

// The soc, vendor and project comparisons.
bool checkPlatformInfo(const TavroPlatformInfo& platform, const BoostConditionInfo& condition,
                       TavroMatchExplain* explain = nullptr);
// Mime and component lists, bit-rate lower bound, codec id (0 = any), encoder flag (-1 =
// either).
bool checkAVCommonInfo(const TavroMediaInfo& media, const BoostConditionInfo& condition,
                       TavroMatchExplain* explain = nullptr);
// The track kind, then for video the width x height areas as a lower bound, for audio the sample
// rate, sample bits and channel count. Areas are signed 32-bit products: one that does not fit
// (only absurd sizes) is a fatal error of the process, LOG_ALWAYS_FATAL, never a silent wrap.
bool checkAVInfo(const TavroMediaInfo& media, const BoostConditionInfo& condition,
                 TavroMatchExplain* explain = nullptr);
// True when a rule's condition fits the device and `media`: platform, then the common media
// checks, then the track's limits; false at the first mismatch, explained at log level 7.
bool checkPrecondition(const TavroPlatformInfo& platform, const TavroMediaInfo& media,
                       const BoostConditionInfo& condition, TavroMatchExplain* explain = nullptr);
// The cluster half's own track test, stricter than checkAVInfo's: a video codec needs a rule
// with isVideo != 0, an audio codec one with isVideo == 0 exactly. So a rule for either kind
// gives its cluster half to video codecs only.
bool checkClusterTrack(const TavroMediaInfo& media, const BoostConditionInfo& condition);

// Copies the scheduling half of `info` into `ux` when the rule fits (its thread names resolved to
// ids of the own process); otherwise `ux` keeps what it held. A null entry or one without a
// string gives nothing.
void getUxInfo(const TavroPlatformInfo& platform, const TavroMediaInfo& media,
               const std::shared_ptr<MediaBoostInfo>& info, TavroUxInfo& ux);
// Copies the whole cluster half of `info` into `cluster` when the rule fits and passes
// checkClusterTrack; otherwise `cluster` keeps what it held.
void getClusterInfo(const TavroPlatformInfo& platform, const TavroMediaInfo& media,
                    const std::shared_ptr<MediaBoostInfo>& info, TavroClusterInfo& cluster);

}  // namespace android
