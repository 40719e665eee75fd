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

constexpr bool sameText(const char* a, const char* b) {
    if (a == nullptr || b == nullptr) return a == b;
    while (*a != '\0' && *a == *b) ++a, ++b;
    return *a == *b;
}

constexpr size_t indexOfKey(const char* name) {
    for (size_t i = 0; i < kTavroBoostKeyCount; ++i) {
        if (sameText(kTavroBoostKeys[i].name, name)) return i;
    }
    return kTavroBoostKeyCount;
}

constexpr size_t kSchedRow = indexOfKey(kBoostKeySched);

// The key names with their lengths, so that a lookup compares lengths first.
constexpr std::array<std::string_view, kTavroBoostKeyCount> kKeyNames = [] {
    std::array<std::string_view, kTavroBoostKeyCount> names{};
    for (size_t i = 0; i < kTavroBoostKeyCount; ++i) names[i] = kTavroBoostKeys[i].name;
    return names;
}();

// Rows that fill the same field as the row before them (the cluster keys, the two rates): the
// field is reset and read once, at the first of them.
constexpr std::array<bool, kTavroBoostKeyCount> kContinuesField = [] {
    std::array<bool, kTavroBoostKeyCount> continues{};
    for (size_t i = 1; i < kTavroBoostKeyCount; ++i) {
        continues[i] = kTavroBoostKeys[i].field != nullptr &&
                       sameText(kTavroBoostKeys[i].field, kTavroBoostKeys[i - 1].field);
    }
    return continues;
}();

// How the parser stores a row's value. kNone: "sched", which has no field, and rows that continue
// the field of the row before them, read with that row.
enum Store : uint8_t { kText, kNames, kNumber, kFlag, kStrict, kList, kCluster, kNone };

constexpr Store storeOf(size_t row) {
    const TavroBoostKey& key = kTavroBoostKeys[row];
    if (key.kind == TavroBoostKeyKind::kStrictInt) return kStrict;
    if (key.kind == TavroBoostKeyKind::kClusterKey) return kCluster;  // each row adds an entry
    if (kContinuesField[row]) return kNone;
    switch (key.at.type) {
        case TavroBoostField::Type::kText:
            return kText;
        case TavroBoostField::Type::kNames:
            return kNames;
        case TavroBoostField::Type::kNumber:
            return kNumber;
        case TavroBoostField::Type::kFlag:
            return kFlag;
        case TavroBoostField::Type::kNumbers:
            return kList;
        case TavroBoostField::Type::kClusters:
        case TavroBoostField::Type::kNone:
            break;
    }
    return kNone;
}

// The rows of each store, in table order, so that the parser walks each kind in a loop of its
// own rather than branching on every row.
struct RowsByStore {
    size_t rows[kNone][kTavroBoostKeyCount];
    size_t count[kNone];
};

constexpr RowsByStore kRowsByStore = [] {
    RowsByStore r{};
    for (size_t i = 0; i < kTavroBoostKeyCount; ++i) {
        const Store store = storeOf(i);
        if (store != kNone) r.rows[store][r.count[store]++] = i;
    }
    return r;
}();

// The rows of one store, for a range-for.
struct Rows {
    Store store;
    const size_t* begin() const { return kRowsByStore.rows[store]; }
    const size_t* end() const { return begin() + kRowsByStore.count[store]; }
};

// The value of each key of one string. Only the presence mask is cleared per parse: the parser
// runs at every lookup of a debug property.
class KeyValues {
  public:
    void set(size_t row, std::string_view value) {
        mData[row] = value.data();
        mSize[row] = value.size();
        mPresent |= uint64_t{1} << row;
    }
    bool has(size_t row) const { return (mPresent >> row) & 1; }
    std::string_view get(size_t row) const {
        return has(row) ? std::string_view(mData[row], mSize[row]) : std::string_view();
    }

  private:
    static_assert(kTavroBoostKeyCount <= 64, "one presence bit per key");
    uint64_t mPresent = 0;
    // Left unset: a row is read only once its bit is set.
    const char* mData[kTavroBoostKeyCount];
    size_t mSize[kTavroBoostKeyCount];
};

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

}  // namespace

const TavroBoostKey* findTavroBoostKey(std::string_view key) {
    for (size_t i = 0; i < kTavroBoostKeyCount; ++i) {
        if (kKeyNames[i].size() == key.size() && kKeyNames[i] == key) return &kTavroBoostKeys[i];
    }
    return nullptr;
}

bool parseBoostInfo(const std::string& str, const std::shared_ptr<MediaBoostInfo>& info) {
    TAVRO_LOGV(kParseLogLevel, kLogParseBoostInfo, str.c_str());
    if (str.empty() || info == nullptr) return true;
    MediaBoostInfo& record = *info;
    record.uxInfo.tids.clear();  // resolved from the names later, never parsed

    // One value per known key: a later item overwrites, unknown keys are dropped.
    KeyValues v;
    walkItems(str, [&v](std::string_view key, std::string_view value) {
        const TavroBoostKey* row = findTavroBoostKey(key);
        if (row != nullptr) v.set(static_cast<size_t>(row - kTavroBoostKeys), value);
    });

    // Every field is assigned, an absent key's with its default, so this also resets the
    // decision halves. Store by store, each in table order; the integers come before the
    // scheduling values, which need "isVideo" and "sched".
    for (size_t i : Rows{kText}) kTavroBoostKeys[i].at.text(record)->assign(v.get(i));
    for (size_t i : Rows{kNames}) {
        std::vector<std::string>& names = *kTavroBoostKeys[i].at.names(record);
        names.clear();
        parseStrByDelim(std::string(v.get(i)), kBoostListDelim, names);
    }
    for (size_t i : Rows{kNumber}) {
        *kTavroBoostKeys[i].at.number(record) = intOf(v.get(i), kTavroBoostKeys[i].absent);
    }
    for (size_t i : Rows{kFlag}) *kTavroBoostKeys[i].at.flag(record) = intOf(v.get(i), 0) != 0;
    const int32_t sched = intOf(v.get(kSchedRow), kTavroBoostKeys[kSchedRow].absent);
    for (size_t i : Rows{kStrict}) {
        const TavroBoostKey& key = kTavroBoostKeys[i];
        // "sched" stands in for a missing value, but a rule that says it is for the other kind
        // of track does not hand it over.
        const bool other = record.condition.isVideo == otherTrackIsVideo(key.track);
        if (!schedOf(v.get(i), other ? key.absent : sched, key.at.number(record))) {
            // The decision keeps its defaults; the caller must not use the record.
            for (const TavroBoostKey& rest : kTavroBoostKeys) {
                if (rest.part != TavroBoostPart::kCondition) resetField(rest, record);
            }
            return false;
        }
    }
    for (size_t i : Rows{kList}) {
        // Keys that share one list are read as one text, joined with '+' in table order: the
        // position of a value tells which key it came from.
        std::string joined(v.get(i));
        for (size_t j = i + 1; j < kTavroBoostKeyCount && kContinuesField[j]; ++j) {
            joined.push_back(kBoostListDelim);
            joined.append(v.get(j));
        }
        parseNumericString(joined, *kTavroBoostKeys[i].at.numbers(record));
    }
    for (size_t i : Rows{kCluster}) {
        std::map<int32_t, int32_t>& clusters = *kTavroBoostKeys[i].at.clusters(record);
        if (!kContinuesField[i]) clusters.clear();
        if (v.has(i)) clusters[kTavroBoostKeys[i].absent] = intOf(v.get(i), 0);
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
