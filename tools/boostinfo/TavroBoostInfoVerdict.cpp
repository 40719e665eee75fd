// The verdict of a checked rule on a media and a device: the library's matcher runs with an
// explain sink that turns each comparison into a readable step, so the order, the stop at the
// first failure and the result are the library's, never re-derived here.
#include "tools/boostinfo/TavroBoostInfoVerdict.h"

#include <ctype.h>
#include <string.h>
#include <strings.h>

#include <limits>
#include <utility>

#include "whitelist/TavroBoostCondition.h"

namespace android {

namespace {

std::string quoted(std::string_view s) {
    return "\"" + std::string(s) + "\"";
}

bool startsWithIgnoreCase(const std::string& text, const char* prefix) {
    return strncasecmp(text.c_str(), prefix, strlen(prefix)) == 0;
}

// Cuts "k=v,k=v" for the --media and --device descriptions; a bad item is an error.
bool descriptionPairs(const std::string& text,
                      std::vector<std::pair<std::string, std::string>>* out, std::string* error) {
    size_t start = 0;
    while (start <= text.size()) {
        size_t comma = text.find(',', start);
        const std::string item =
                text.substr(start, comma == std::string::npos ? std::string::npos : comma - start);
        if (!item.empty()) {
            size_t eq = item.find('=');
            if (eq == std::string::npos || eq == 0) {
                *error = "'" + item + "': expected key=value";
                return false;
            }
            out->emplace_back(item.substr(0, eq), item.substr(eq + 1));
        }
        if (comma == std::string::npos) break;
        start = comma + 1;
    }
    return true;
}

// A whole base-10 int32: an optional sign and digits only.
bool wholeInt32(const std::string& key, const std::string& value, int32_t* out,
                std::string* error) {
    size_t i = value.empty() || (value[0] != '-' && value[0] != '+') ? 0 : 1;
    bool ok = i < value.size();
    for (; ok && i < value.size(); ++i) ok = isdigit(static_cast<unsigned char>(value[i])) != 0;
    long long wide = ok ? strtoll(value.c_str(), nullptr, 10) : 0;
    ok = ok && wide >= std::numeric_limits<int32_t>::min() &&
         wide <= std::numeric_limits<int32_t>::max() && value.size() <= 11;
    if (!ok) {
        *error = "'" + key + "=" + value + "': expected a whole 32-bit number";
        return false;
    }
    *out = static_cast<int32_t>(wide);
    return true;
}

const char* trackText(int64_t isVideo, bool rule) {
    if (isVideo == 1) return "video";
    if (isVideo == 0) return "audio";
    return rule ? "either" : "neither";
}

// Turns the matcher's steps into the verdict's.
class StepWriter : public TavroMatchExplain {
  public:
    explicit StepWriter(TavroConditionVerdict* verdict) : mVerdict(verdict) {}

    void onStep(const TavroMatchStep& s) override {
        std::string detail;
        switch (s.kind) {
            case TavroMatchStep::Kind::kText: {
                const bool platform = strcmp(s.name, "soc") == 0 || strcmp(s.name, "vendor") == 0 ||
                                      strcmp(s.name, "project") == 0;
                if (s.config.empty()) {
                    detail = "any (not set)";
                } else if (s.actual.empty()) {
                    detail = std::string("the ") + (platform ? "device" : "media") +
                             "'s value is unknown, which never excludes";
                } else {
                    detail = quoted(s.config) + (s.pass ? " contains " : " does not contain ") +
                             quoted(s.actual);
                }
                break;
            }
            case TavroMatchStep::Kind::kLowerBound:
                if (s.fatal) {
                    detail = "limit " + std::to_string(s.configValue) + ", media " +
                             std::to_string(s.actualValue) + ": beyond 32 bits";
                    mVerdict->fatal =
                            "a width x height area beyond 32 bits: the library aborts the process";
                } else if (s.configValue < 1) {
                    detail = "no limit";
                } else if (s.actualValue < 1) {
                    detail = "media value unknown (" + std::to_string(s.actualValue) +
                             "), which never excludes";
                } else {
                    detail = "media " + std::to_string(s.actualValue) + (s.pass ? " >= " : " < ") +
                             "limit " + std::to_string(s.configValue);
                }
                break;
            case TavroMatchStep::Kind::kEqual:
                detail = s.configValue == s.anyValue
                                 ? std::string(s.anyValue == 0 ? "any (0)" : "either (-1)")
                                 : "media " + std::to_string(s.actualValue) + ", rule " +
                                           std::to_string(s.configValue);
                break;
            case TavroMatchStep::Kind::kTrack:
                detail = std::string("media is ") + trackText(s.actualValue, false) +
                         ", rule wants " + trackText(s.configValue, true);
                break;
        }
        mVerdict->steps.push_back({s.name, s.pass, detail});
        if (!s.pass && mVerdict->firstFailure.empty()) mVerdict->firstFailure = s.name;
    }

  private:
    TavroConditionVerdict* mVerdict;
};

}  // namespace

bool parseTavroMediaDescription(const std::string& text, TavroMediaInfo* media,
                                std::string* error) {
    std::vector<std::pair<std::string, std::string>> pairs;
    if (!descriptionPairs(text, &pairs, error)) return false;
    TavroMediaInfo m;
    bool hasIsVideo = false, hasIsEncoder = false;
    for (const auto& [key, value] : pairs) {
        int32_t* field = nullptr;
        if (key == "mime") {
            m.mime = value;
        } else if (key == "comp" || key == "component") {
            m.component = value;
        } else if (key == "width") {
            field = &m.width;
        } else if (key == "height") {
            field = &m.height;
        } else if (key == "bitrate") {
            field = &m.bitrate;
        } else if (key == "sampleRate") {
            field = &m.sampleRate;
        } else if (key == "sampleBits") {
            field = &m.sampleBits;
        } else if (key == "channelCount") {
            field = &m.channelCount;
        } else if (key == "codecId") {
            field = &m.codecId;
        } else if (key == "isVideo") {
            field = &m.isVideo, hasIsVideo = true;
        } else if (key == "isEncoder") {
            field = &m.isEncoder, hasIsEncoder = true;
        } else {
            *error = "unknown media key '" + key +
                     "' (mime, comp, width, height, bitrate, sampleRate, sampleBits, "
                     "channelCount, codecId, isVideo, isEncoder)";
            return false;
        }
        if (field != nullptr && !wholeInt32(key, value, field, error)) return false;
    }
    if (m.mime.empty()) {
        *error = "no mime: say mime=video/... or mime=audio/...";
        return false;
    }
    if (!hasIsVideo) m.isVideo = startsWithIgnoreCase(m.mime, "video/") ? 1 : 0;
    if (!hasIsEncoder) m.isEncoder = m.component.find("encoder") != std::string::npos ? 1 : 0;
    *media = m;
    return true;
}

bool parseTavroDeviceDescription(const std::string& text, TavroDeviceDescription* device,
                                 std::string* error) {
    std::vector<std::pair<std::string, std::string>> pairs;
    if (!descriptionPairs(text, &pairs, error)) return false;
    TavroDeviceDescription d;
    for (const auto& [key, value] : pairs) {
        if (key == "cpu" || key == "soc") {
            d.soc = value;
        } else if (key == "vendor") {
            d.vendor = value;
        } else if (key == "prj" || key == "project") {
            d.project = value;
        } else {
            *error = "unknown device key '" + key + "' (cpu, vendor, prj)";
            return false;
        }
    }
    *device = d;
    return true;
}

TavroConditionVerdict evaluateTavroBoostConditions(const TavroBoostInfoCheck& check,
                                                   const TavroMediaInfo& media,
                                                   const TavroDeviceDescription& device) {
    TavroConditionVerdict v;
    // An entry without a string gives nothing, and a rejected one is stored as such.
    if (!check.accepted || check.delivered.empty()) {
        v.firstFailure = check.delivered.empty() ? "empty string" : "rejected string";
        return v;
    }
    const BoostConditionInfo& c = check.record.condition;
    StepWriter writer(&v);
    v.applies = checkPrecondition(device, media, c, &writer) && v.fatal.empty();
    v.uxApplies = v.applies;
    v.clusterApplies = v.applies && checkClusterTrack(media, c);
    return v;
}

std::string tavroVerdictSummary(const TavroConditionVerdict& v, const TavroMediaInfo& media) {
    if (!v.fatal.empty()) return "error: " + v.fatal;
    if (!v.applies) {
        return "the rule does not apply (first failing condition: " + v.firstFailure + ")";
    }
    std::string text = std::string("the rule applies; scheduling half ") +
                       (v.uxApplies ? "applied" : "not applied") + ", cluster half " +
                       (v.clusterApplies ? "applied"
                                         : "not applied (video rules need isVideo != 0, "
                                           "audio rules isVideo=0)");
    if (v.clusterApplies && media.isVideo == 0) {
        text += " (an app's audio codec asks only debug.cpu.boost for it)";
    }
    return text;
}

void printTavroConditionVerdict(const TavroConditionVerdict& v, const TavroMediaInfo& media,
                                const TavroDeviceDescription& device, std::ostream& out) {
    out << "conditions for media {mime=" << media.mime << ", comp=" << media.component
        << ", isVideo=" << media.isVideo << ", isEncoder=" << media.isEncoder
        << "} on device {cpu=" << device.soc << ", vendor=" << device.vendor
        << ", prj=" << device.project << "}:\n";
    for (const TavroConditionStep& s : v.steps) {
        out << "  " << (s.pass ? "ok  " : "FAIL") << "  " << s.name
            << std::string(s.name.size() < 13 ? 13 - s.name.size() : 1, ' ') << s.detail << "\n";
    }
    out << "verdict: " << tavroVerdictSummary(v, media) << "\n";
}

}  // namespace android
