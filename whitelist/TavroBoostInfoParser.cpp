#define LOG_NDEBUG 0
#define LOG_TAG "TavroWhiteListCache"
#include "whitelist/TavroBoostInfoParser.h"

#include <unistd.h>

#include <array>
#include <chrono>
#include <string_view>

#include <log/log.h>

#include "common/TavroLog.h"
#include "common/TavroNumber.h"
#include "whitelist/TavroSystemProbe.h"

namespace android {
namespace {

// Debug lines of the parser are written at level 7 and above.
constexpr int32_t kParseLogLevel = kTavroLogDetail;

constexpr size_t indexOfKey(const char* name) {
    for (size_t i = 0; i < kTavroBoostKeyCount; ++i) {
        const char* a = kTavroBoostKeys[i].name;
        const char* b = name;
        while (*a != '\0' && *a == *b) ++a, ++b;
        if (*a == *b) return i;
    }
    return kTavroBoostKeyCount;
}

constexpr size_t kSchedRow = indexOfKey(kBoostKeySched);
constexpr size_t kIsVideoRow = indexOfKey(kBoostKeyIsVideo);
// The fallback of a scheduling value reads both, so the parser must have read them first.
static_assert(kIsVideoRow < kSchedRow && kSchedRow < indexOfKey(kBoostKeySchedVideo) &&
                      kSchedRow < indexOfKey(kBoostKeySchedAudio),
              "\"isVideo\" and \"sched\" must precede the scheduling values");

// The "isVideo" value of a rule written for the other kind of track than `track`.
constexpr int32_t otherTrackIsVideo(TavroBoostTrack track) {
    return track == TavroBoostTrack::kVideo ? 0 : track == TavroBoostTrack::kAudio ? 1 : -2;
}

// Walks the items of `str` as forEachBoostItem does, tracing the walk at level 7, and calls
// onItem(key, value) for each item the parser reads.
template <typename OnItem>
void walkItems(const std::string& str, OnItem onItem) {
    TAVRO_LOGV(kParseLogLevel, kLogParseStrByDelim, str.c_str(), kBoostItemDelim);
    // One look at the level for the whole walk when it is off; each line checks again when on.
    const bool trace = tavroLogOn(kParseLogLevel, kTavroLogDefaultOff);
    forEachBoostItem(str, [&](const TavroBoostItem& item) {
        if (item.piece.empty()) return;
        if (trace) {
            const std::string piece(item.piece);
            TAVRO_LOGV(kParseLogLevel, kLogKeyValue, piece.c_str());
        }
        if (item.shape == TavroBoostItemShape::kItem) onItem(item.key, item.value);
    });
}

// Values are views into the parsed string. A number is read from the view's first character on:
// the reading stops at the first character that is not a blank, a sign or a digit, and what
// follows a value is always the item delimiter ',' or the string's terminating NUL, so nothing
// past the value is read. An absent value (empty view) gives `absent`.
int32_t intOf(std::string_view value, int32_t absent) {
    return value.empty() ? absent : tavroAtoi(value.data());
}

// The scheduling values are the one place where a bad number is an error rather than 0: a rule
// whose scheduling class cannot be read must not boost with a guessed one.
bool schedOf(std::string_view value, int32_t fallback, int32_t* out) {
    if (value.empty()) {
        *out = fallback;
        return true;
    }
    return tavroParseInt32(value.data(), out);
}

// Puts a decision field back to the value of an absent key.
void resetField(const TavroBoostKey& key, MediaBoostInfo& info) {
    const TavroBoostField& at = key.at;
    if (at.text != nullptr) at.text(info)->clear();
    if (at.number != nullptr) *at.number(info) = key.absent;
    if (at.flag != nullptr) *at.flag(info) = false;
    if (at.names != nullptr) at.names(info)->clear();
    if (at.numbers != nullptr) at.numbers(info)->clear();
    if (at.clusters != nullptr) at.clusters(info)->clear();
}

// True when `key` reads into `list` too.
bool sharesList(const TavroBoostKey& key, const std::vector<int32_t>* list,
                MediaBoostInfo& record) {
    return key.kind == TavroBoostKeyKind::kIntList && key.at.numbers(record) == list;
}

}  // namespace

const TavroBoostKey* findTavroBoostKey(std::string_view key) {
    for (const TavroBoostKey& k : kTavroBoostKeys) {
        if (key == k.name) return &k;
    }
    return nullptr;
}

bool parseBoostInfo(const std::string& str, const std::shared_ptr<MediaBoostInfo>& info) {
    TAVRO_LOGV(kParseLogLevel, kLogParseBoostInfo, str.c_str());
    if (str.empty() || info == nullptr) return true;
    MediaBoostInfo& record = *info;

    // The decision halves start over; every condition field is assigned below anyway.
    for (const TavroBoostKey& key : kTavroBoostKeys) {
        if (key.part != TavroBoostPart::kCondition) resetField(key, record);
    }
    record.uxInfo.tids.clear();

    // One value per known key: a later item overwrites, unknown keys are dropped, an empty view
    // is an absent key.
    std::array<std::string_view, kTavroBoostKeyCount> v{};
    walkItems(str, [&v](std::string_view key, std::string_view value) {
        const TavroBoostKey* row = findTavroBoostKey(key);
        if (row != nullptr) v[static_cast<size_t>(row - kTavroBoostKeys)] = value;
    });

    const int32_t sched = intOf(v[kSchedRow], kTavroBoostKeys[kSchedRow].absent);
    for (size_t i = 0; i < kTavroBoostKeyCount; ++i) {
        const TavroBoostKey& key = kTavroBoostKeys[i];
        const TavroBoostField& at = key.at;
        const std::string_view value = v[i];
        switch (key.kind) {
            case TavroBoostKeyKind::kText:
            case TavroBoostKeyKind::kNameList:
                if (at.text != nullptr) at.text(record)->assign(value);
                if (at.names != nullptr) {
                    parseStrByDelim(std::string(value), kBoostListDelim, *at.names(record));
                }
                break;
            case TavroBoostKeyKind::kInt:
                if (at.number != nullptr) *at.number(record) = intOf(value, key.absent);
                break;
            case TavroBoostKeyKind::kStrictInt: {
                // "sched" stands in for a missing value, but a rule that says it is for the other
                // kind of track does not hand it over.
                const bool other = record.condition.isVideo == otherTrackIsVideo(key.track);
                if (!schedOf(value, other ? key.absent : sched, at.number(record))) return false;
                break;
            }
            case TavroBoostKeyKind::kBool:
                *at.flag(record) = intOf(value, 0) != 0;
                break;
            case TavroBoostKeyKind::kIntList: {
                // Keys that share one list are read as one text, joined with '+' in table order:
                // the position of a value tells which key it came from.
                std::vector<int32_t>* list = at.numbers(record);
                if (i > 0 && sharesList(kTavroBoostKeys[i - 1], list, record)) break;
                std::string joined(value);
                for (size_t j = i + 1;
                     j < kTavroBoostKeyCount && sharesList(kTavroBoostKeys[j], list, record); ++j) {
                    joined.push_back(kBoostListDelim);
                    joined.append(v[j]);
                }
                parseNumericString(joined, *list);
                break;
            }
            case TavroBoostKeyKind::kClusterKey:
                if (!value.empty()) (*at.clusters(record))[key.absent] = intOf(value, 0);
                break;
        }
    }

    printMediaBoostInfo(info);
    return true;
}

void parseKeyValueString(const std::string& str, std::map<std::string, std::string>& out) {
    walkItems(str, [&out](std::string_view key, std::string_view value) {
        out[std::string(key)] = std::string(value);
    });
}

void parseStrByDelim(const std::string& str, char delim, std::vector<std::string>& out) {
    TAVRO_LOGV(kParseLogLevel, kLogParseStrByDelim, str.c_str(), delim);
    // An empty text keeps what the caller had; callers rely on that to keep defaults.
    if (str.empty()) return;
    out.clear();
    size_t start = 0;
    while (start <= str.size()) {
        size_t end = str.find(delim, start);
        if (end == std::string::npos) end = str.size();
        if (end > start) out.emplace_back(str, start, end - start);
        start = end + 1;
    }
}

void parseNumericString(const std::string& str, std::vector<int32_t>& out) {
    out.clear();
    if (str.empty()) return;
    std::vector<std::string> pieces;
    parseStrByDelim(str, kBoostListDelim, pieces);
    out.reserve(pieces.size());
    for (const std::string& piece : pieces) out.push_back(tavroAtoi(piece));
}

void parseBoostThread(const std::shared_ptr<MediaBoostInfo>& info, std::vector<int32_t>& tids) {
    if (info == nullptr) return;
    tids.clear();
    const std::string& threadName = info->uxInfo.threadName;
    if (threadName.empty()) return;
    std::vector<std::string> names;
    parseStrByDelim(threadName, kBoostListDelim, names);
    if (!names.empty()) getThreadIdByName(getpid(), names, tids);
}

void printMediaBoostInfo(const std::shared_ptr<MediaBoostInfo>& info) {
    if (info == nullptr) return;
    // The dump is some forty lines, each gated on its own; skip it all when the level is low now.
    if (!tavroLogOn(kParseLogLevel, kTavroLogDefaultOff)) return;

    MediaBoostInfo& i = *info;
    const long long cacheSeconds = static_cast<long long>(
            std::chrono::duration_cast<std::chrono::seconds>(i.cacheTime.time_since_epoch())
                    .count());
    TAVRO_LOGV(kParseLogLevel, kLogDumpBoostStr, i.boostStrInfo.c_str());
    TAVRO_LOGV(kParseLogLevel, kLogDumpIsValid, i.isValid);
    TAVRO_LOGV(kParseLogLevel, kLogDumpCacheTime, cacheSeconds);
    const int pid = static_cast<int>(getpid());
    TavroBoostPart part = TavroBoostPart::kCondition;
    for (const TavroBoostKey& key : kTavroBoostKeys) {
        if (part == TavroBoostPart::kScheduling && key.part != part) {
            // The thread ids are resolved from the names, not parsed: they close the half.
            for (int32_t tid : i.uxInfo.tids) TAVRO_LOGV(kParseLogLevel, kLogDumpTid, pid, tid);
        }
        part = key.part;
        const char* line = key.dumpLine;
        if (line == nullptr) continue;
        const TavroBoostField& at = key.at;
        if (at.text != nullptr) TAVRO_LOGV(kParseLogLevel, line, at.text(i)->c_str());
        if (at.number != nullptr) TAVRO_LOGV(kParseLogLevel, line, *at.number(i));
        if (at.flag != nullptr) TAVRO_LOGV(kParseLogLevel, line, *at.flag(i) ? 1 : 0);
        if (at.names != nullptr) {
            for (const std::string& name : *at.names(i)) {
                TAVRO_LOGV(kParseLogLevel, line, name.c_str());
            }
        }
        if (at.numbers != nullptr) {
            for (int32_t n : *at.numbers(i)) TAVRO_LOGV(kParseLogLevel, line, n);
        }
        if (at.clusters != nullptr) {
            for (const auto& [cpu, minFreq] : *at.clusters(i)) {
                TAVRO_LOGV(kParseLogLevel, line, cpu, minFreq);
            }
        }
    }
}

}  // namespace android
