// Boost-info checks. The record always comes from the library's parser and the items from the
// library's item walker, both run on the text that actually arrives through the transport, so
// what is printed is what a device uses. The findings note where the text and that reading part
// ways, and which keys the matching and the boost request can never use.
#include "tools/boostinfo/TavroBoostInfoChecker.h"

#include <ctype.h>
#include <errno.h>
#include <stdlib.h>
#include <string.h>
#include <strings.h>

#include <limits>
#include <map>
#include <memory>

#include <cutils/properties.h>

#include "common/TavroNumber.h"
#include "whitelist/TavroBoostInfoParser.h"
#include "whitelist/TavroWhiteListCacheMgr.h"

namespace android {

namespace {

using Severity = TavroBoostInfoFinding::Severity;

// Utilisation clamps are on the scheduler's capacity scale, 0 to 1024 (SCHED_CAPACITY_SCALE);
// the boost service hands the value to the kernel as written.
constexpr int32_t kUclampMax = 1024;
// The uclamp indices select among the codec's own boost thread ids: the app's tp-ux-tid and the
// configuring thread when the format names a tp-ux-tid, then the looper thread of a video codec.
constexpr int32_t kCodecBoostThreadsVideo = 3;
constexpr int32_t kCodecBoostThreadsAudio = 2;
// Keys whose value the boost request never carries: the cluster half is always encoded with the
// Qualcomm opcodes (parseClusterInfo), which take prefer-idle and the cluster minimum
// frequencies only; the MediaTek encoding that would read these is never selected.
const char* const kNotEncodedKeys[] = {kBoostKeyPelt, kBoostKeyScreenOff, kBoostKeyFreqUpRate,
                                       kBoostKeyFreqDownRate};
// Lower bounds of the condition: a configured value below 1 is no bound.
const char* const kLowerBoundKeys[] = {kBoostKeyBitrate, kBoostKeySampleRate, kBoostKeySampleBits,
                                       kBoostKeyChannelCount};
// Characters writers use between items that the grammar does not cut at.
constexpr char kStraySeparators[] = ";| \t\r\n";

std::string quoted(const std::string& s) {
    return "\"" + s + "\"";
}

// Control bytes of a rule shown as escapes, so that a message stays one readable line.
std::string escaped(const std::string& text) {
    static const char kHex[] = "0123456789abcdef";
    std::string out;
    for (char ch : text) {
        const unsigned char c = static_cast<unsigned char>(ch);
        if (c == '\n') {
            out += "\\n";
        } else if (c == '\r') {
            out += "\\r";
        } else if (c == '\t') {
            out += "\\t";
        } else if (c == 0) {
            out += "\\0";
        } else if (c < 0x20 || c == 0x7f) {
            out += "\\x";
            out += kHex[c >> 4];
            out += kHex[c & 0xf];
        } else {
            out += ch;
        }
    }
    return out;
}

std::string joined(const std::vector<std::string>& words) {
    std::string out;
    for (const std::string& w : words) out += (out.empty() ? "" : ", ") + w;
    return out;
}

bool isBlank(char c) {
    return c == ' ' || c == '\t';
}

bool hasBlank(const std::string& s) {
    for (char c : s) {
        if (isspace(static_cast<unsigned char>(c))) return true;
    }
    return false;
}

std::string trim(const std::string& s) {
    size_t b = 0, e = s.size();
    while (b < e && isspace(static_cast<unsigned char>(s[b]))) ++b;
    while (e > b && isspace(static_cast<unsigned char>(s[e - 1]))) --e;
    return s.substr(b, e - b);
}

// The known key `key` differs from only in case, or "" when none.
std::string caseInsensitiveMatch(const std::string& key) {
    for (const TavroBoostKey& k : kTavroBoostKeys) {
        if (strcasecmp(key.c_str(), k.name) == 0) return k.name;
    }
    return "";
}

// "cluster<N>Min" with N of 8 or more: a cluster the format has no key for.
bool isHighClusterKey(const std::string& key) {
    if (key.size() < 11 || key.compare(0, 7, "cluster") != 0 ||
        key.compare(key.size() - 3, 3, "Min") != 0) {
        return false;
    }
    const std::string digits = key.substr(7, key.size() - 10);
    for (char c : digits) {
        if (!isdigit(static_cast<unsigned char>(c))) return false;
    }
    return !digits.empty() && strtol(digits.c_str(), nullptr, 10) > kBoostMaxClusterKey;
}

// How atoi reads `text`: whether there are digits, whether text follows them, whether the number
// fits 32 bits.
struct NumberReading {
    bool digits = false;
    bool trailing = false;
    bool fits = true;
    int32_t value = 0;  // what atoi gives
};

NumberReading readNumber(const std::string& text) {
    NumberReading r;
    size_t i = 0;
    while (i < text.size() && isspace(static_cast<unsigned char>(text[i]))) ++i;
    if (i < text.size() && (text[i] == '+' || text[i] == '-')) ++i;
    const size_t firstDigit = i;
    while (i < text.size() && isdigit(static_cast<unsigned char>(text[i]))) ++i;
    r.digits = i > firstDigit;
    r.trailing = r.digits && i < text.size();
    if (r.digits) {
        errno = 0;
        long long wide = strtoll(text.c_str(), nullptr, 10);
        r.fits = errno != ERANGE && wide >= std::numeric_limits<int32_t>::min() &&
                 wide <= std::numeric_limits<int32_t>::max();
    }
    r.value = tavroAtoi(text);
    return r;
}

std::vector<std::string> splitList(const std::string& value) {
    std::vector<std::string> pieces;
    size_t start = 0;
    while (true) {
        size_t plus = value.find(kBoostListDelim, start);
        pieces.push_back(
                value.substr(start, plus == std::string::npos ? std::string::npos : plus - start));
        if (plus == std::string::npos) return pieces;
        start = plus + 1;
    }
}

// Known keys that `text` holds as "key=" right after one of the stray separators, in order.
std::vector<std::string> keysAfterStraySeparators(const std::string& text) {
    std::vector<std::string> keys;
    size_t pos = text.find_first_of(kStraySeparators);
    while (pos != std::string::npos) {
        const size_t start = pos + 1;
        const size_t eq = text.find(kBoostValueDelim, start);
        if (eq != std::string::npos) {
            const std::string key = text.substr(start, eq - start);
            if (findTavroBoostKey(key) != nullptr) keys.push_back(key);
        }
        pos = text.find_first_of(kStraySeparators, start);
    }
    return keys;
}

class Checker {
  public:
    explicit Checker(TavroBoostInfoCheck* check) : mCheck(check) {}

    void run() {
        if (mCheck->text.empty()) {
            warn("empty-string", "", "the string is empty: the rule gives no boost");
            return;
        }
        transport();

        // The items as the library's walker cuts them; the parser keeps the last value of a key,
        // so only that one is checked, at its place.
        struct Item {
            size_t index;
            std::string key;
            std::string value;
        };
        std::vector<Item> items;
        std::map<std::string, std::string> values;
        std::map<std::string, size_t> lastIndex;
        forEachBoostItem(mCheck->delivered, [&](const TavroBoostItem& it) {
            const std::string piece(it.piece);
            const std::string where = "item " + std::to_string(it.index + 1);
            switch (it.shape) {
                case TavroBoostItemShape::kEmpty:
                    warn("empty-item", "",
                         where + " is empty (',,' or a ',' at either end); it is skipped");
                    return;
                case TavroBoostItemShape::kNoEquals:
                    warn("no-equals", piece, where + " '" + piece + "' has no '=' and is ignored");
                    return;
                case TavroBoostItemShape::kEmptyKey:
                    warn("empty-key", piece, where + " '" + piece + "' has no key and is ignored");
                    return;
                case TavroBoostItemShape::kEmptyValue:
                    warn("empty-value", piece,
                         where + " '" + piece +
                                 "' has no value and is ignored (the key keeps its default)");
                    return;
                case TavroBoostItemShape::kItem:
                    break;
            }
            const std::string key(it.key);
            const std::string value(it.value);
            auto previous = values.find(key);
            if (previous != values.end()) {
                warn("duplicate-key", key,
                     "'" + key + "' is given twice: '" + value + "' replaces '" + previous->second +
                             "'");
            }
            values[key] = value;
            lastIndex[key] = it.index;
            items.push_back({it.index, key, value});
        });

        for (const Item& item : items) {
            if (lastIndex[item.key] == item.index) checkItem(item.key, item.value);
        }
        effects(values);
    }

  private:
    void add(Severity severity, const char* code, const std::string& item,
             const std::string& message) {
        mCheck->findings.push_back({severity, code, escaped(item), escaped(message)});
    }
    void warn(const char* code, const std::string& item, const std::string& message) {
        add(Severity::kWarning, code, item, message);
    }
    void error(const char* code, const std::string& item, const std::string& message) {
        add(Severity::kError, code, item, message);
    }
    bool given(const char* key) const { return mCheck->givenKeys.count(key) != 0; }

    // ---- Transport --------------------------------------------------------------------------

    void transport() {
        const std::string& text = mCheck->text;
        const std::string& delivered = mCheck->delivered;
        if (delivered.size() == text.size()) return;
        const size_t nul = text.find('\0');
        std::string head;
        if (nul != std::string::npos && nul == delivered.size()) {
            head = "the text holds a NUL byte at offset " + std::to_string(nul) +
                   ": the library reads the rule only up to it";
        } else if (mCheck->via == TavroBoostTransport::kList) {
            head = "the rule is " + std::to_string(text.size()) + " bytes, but a list answer is " +
                   "read into a " + std::to_string(kBoostInfoBufferSize) +
                   "-byte buffer (kBoostInfoBufferSize), so " + std::to_string(delivered.size()) +
                   " bytes and a NUL arrive";
        } else {
            head = "the rule is " + std::to_string(text.size()) + " characters, but a property " +
                   "value holds at most " + std::to_string(delivered.size()) +
                   " (PROPERTY_VALUE_MAX " + std::to_string(PROPERTY_VALUE_MAX) +
                   " with its NUL): setprop refuses a longer value, and the library reads at "
                   "most " +
                   "the first " + std::to_string(delivered.size());
        }

        // Where the cut falls, and the keys whose items do not arrive whole.
        const size_t cut = delivered.size();
        std::string where;
        std::vector<std::string> lost;
        std::set<std::string> arrived;
        forEachBoostItem(delivered, [&](const TavroBoostItem& it) {
            if (it.shape == TavroBoostItemShape::kItem) arrived.insert(std::string(it.key));
        });
        forEachBoostItem(text, [&](const TavroBoostItem& it) {
            const size_t end = it.offset + it.piece.size();
            if (end <= cut) return;
            if (it.offset < cut && where.empty()) {
                // The item the cut falls into, and what is left of it.
                const std::string left = text.substr(it.offset, cut - it.offset);
                const size_t eq = left.find(kBoostValueDelim);
                const bool stillAnItem =
                        eq != std::string::npos && eq != 0 && eq + 1 != left.size();
                where = "cut inside item " + std::to_string(it.index + 1) + " '" +
                        std::string(it.piece) + "', " +
                        (stillAnItem ? "read as '" + left + "'"
                                     : "of which '" + left + "' is left and ignored");
                if (stillAnItem) return;
            } else if (where.empty()) {
                where = "cut after item " + std::to_string(it.index);
            }
            if (it.shape != TavroBoostItemShape::kItem) return;
            const std::string key(it.key);
            lost.push_back(key + (arrived.count(key) != 0 ? " (an earlier value counts)" : ""));
        });
        std::string message = head + "; " + where;
        message += lost.empty() ? "; no key is lost" : "; lost: " + joined(lost);
        error("cut-by-transport", "", message);
    }

    // ---- One item -----------------------------------------------------------------------------

    void checkItem(const std::string& key, const std::string& value) {
        const std::string item = key + "=" + value;
        const bool keyExplained = separators(key, value);
        const TavroBoostKey* row = findTavroBoostKey(key);
        if (row == nullptr) {
            if (!keyExplained) unknownKey(key);
            return;
        }
        mCheck->givenKeys.insert(key);
        switch (row->kind) {
            case TavroBoostKeyKind::kText:
                blankValue(key, value);
                return;
            case TavroBoostKeyKind::kNameList:
                blankValue(key, value);
                emptyPieces(key, value);
                listSeparator(key, value);
                return;
            case TavroBoostKeyKind::kInt:
            case TavroBoostKeyKind::kBool:
            case TavroBoostKeyKind::kClusterKey:
                number(item, value);
                if (key == kBoostKeyIsVideo || key == kBoostKeyIsEncoder) flag(key, value);
                return;
            case TavroBoostKeyKind::kStrictInt: {
                int32_t parsed = 0;
                if (!tavroParseInt32(value, &parsed)) {
                    error("sched-not-a-number", item,
                          "'" + item +
                                  "' is not a 32-bit number: the library rejects the whole "
                                  "string (\"Rejected boost info\") and the rule gives no boost");
                } else {
                    number(item, value);
                }
                return;
            }
            case TavroBoostKeyKind::kIntList:
                emptyPieces(key, value);
                listSeparator(key, value);
                for (const std::string& piece : splitList(value)) {
                    if (!piece.empty()) number(item, piece, " (piece '" + piece + "')");
                }
                return;
        }
    }

    void unknownKey(const std::string& key) {
        if (hasBlank(key)) {
            const std::string trimmed = trim(key);
            warn("blank-in-key", key,
                 "key '" + key + "' has blanks" +
                         (findTavroBoostKey(trimmed) != nullptr ? ", so it is not '" + trimmed + "'"
                                                                : std::string()) +
                         "; the item is ignored");
        } else if (isHighClusterKey(key)) {
            warn("cluster-key-ignored", key,
                 "'" + key + "' is ignored: only cluster0Min to cluster7Min exist");
        } else {
            const std::string suggestion = caseInsensitiveMatch(key);
            warn("unknown-key", key,
                 "unknown key '" + key + "' is ignored" +
                         (suggestion.empty()
                                  ? ""
                                  : " (keys are case-sensitive: '" + suggestion + "'?)"));
        }
    }

    // ';', '|', blanks or a line end where the writer meant ',': what follows is not an item.
    // True when the key itself is explained as two items run together.
    bool separators(const std::string& key, const std::string& value) {
        const std::string item = key + "=" + value;
        std::vector<std::string> hidden = keysAfterStraySeparators(value);
        bool inKey = false;
        // "render;schedVideo=3": the piece before the separator had no '=' and took the key. A
        // key that merely starts with blanks is reported as such (blank-in-key).
        const size_t last = key.find_last_of(kStraySeparators);
        if (hidden.empty() && last != std::string::npos && !trim(key.substr(0, last)).empty() &&
            findTavroBoostKey(key.substr(last + 1)) != nullptr) {
            hidden.push_back(key.substr(last + 1));
            inKey = true;
        }
        if (!hidden.empty()) {
            error("wrong-separator", item,
                  "'" + item + "': only ',' separates items (not ';', '|', blanks or line ends), " +
                          "so " + joined(hidden) + (hidden.size() == 1 ? " is" : " are") +
                          " not read: part of the " + (inKey ? "unknown key '" : "value of '") +
                          key + "'");
            return inKey;
        }
        if (value.find_first_of("\r\n") != std::string::npos) {
            warn("newline-in-value", key,
                 "the value of '" + key + "' holds a line end, which is part of the value");
        }
        return false;
    }

    void blankValue(const std::string& key, const std::string& value) {
        if (isBlank(value.front()) || isBlank(value.back())) {
            warn("blank-in-value", key,
                 "the value of '" + key + "' has blanks at an end ('" + value +
                         "'); they take part in the matching");
        }
    }

    void emptyPieces(const std::string& key, const std::string& value) {
        for (const std::string& piece : splitList(value)) {
            if (piece.empty()) {
                warn("empty-list-piece", key,
                     "'" + key + "=" + value +
                             "' has an empty piece between '+' signs; it is skipped");
                return;
            }
        }
    }

    void listSeparator(const std::string& key, const std::string& value) {
        if (value.find_first_of(";|") == std::string::npos) return;
        warn("list-separator", key,
             "'" + key + "=" + value + "': list pieces are separated by '+' only; ';' and '|' " +
                     "are part of a piece");
    }

    // `value` is the whole value, or one piece of a list (named by `piece`).
    void number(const std::string& item, const std::string& value, const std::string& piece = "") {
        const NumberReading r = readNumber(value);
        const std::string what = "'" + item + "'" + piece;
        if (!r.digits) {
            warn("not-a-number", item, what + " is not a number and reads as 0");
        } else if (!r.fits) {
            warn("out-of-range", item,
                 what + " does not fit 32 bits and reads as " + std::to_string(r.value));
        } else if (r.trailing) {
            warn("trailing-text", item,
                 what + " reads as " + std::to_string(r.value) +
                         ": the text after the number is ignored");
        }
    }

    void flag(const std::string& key, const std::string& value) {
        const int32_t v = tavroAtoi(value);
        if (v == -1 || v == 0 || v == 1) return;
        if (key == kBoostKeyIsVideo) {
            warn("flag-value", key,
                 "'isVideo=" + value + "' is neither 1 (video) nor 0 (audio); it acts as -1 " +
                         "(either)");
        } else {
            warn("flag-value", key,
                 "'isEncoder=" + value + "' is neither 1 (encoder) nor 0 (decoder): no codec " +
                         "matches it");
        }
    }

    // ---- Keys that can never take effect ------------------------------------------------------

    void effects(const std::map<std::string, std::string>& values) {
        if (!mCheck->accepted) return;
        const BoostConditionInfo& c = mCheck->record.condition;
        const TavroClusterInfo& k = mCheck->record.clusterInfo;

        // A rule for one kind of track never reaches a codec of the other kind, and a key read
        // only for that other kind is dead weight in it.
        const TavroBoostTrack other = c.isVideo == 0   ? TavroBoostTrack::kVideo
                                      : c.isVideo == 1 ? TavroBoostTrack::kAudio
                                                       : TavroBoostTrack::kAny;
        for (const TavroBoostKey& key : kTavroBoostKeys) {
            if (other == TavroBoostTrack::kAny || key.track != other || !given(key.name)) continue;
            const bool video = other == TavroBoostTrack::kVideo;
            warn(video ? "video-key-on-audio-rule" : "audio-key-on-video-rule", key.name,
                 std::string("'") + key.name +
                         "' never takes effect: 'isVideo=" + (video ? "0" : "1") +
                         "' makes the rule fit " + (video ? "audio" : "video") +
                         " codecs only, and only " + (video ? "video" : "audio") +
                         (key.part == TavroBoostPart::kCondition ? " tracks compare it"
                                                                 : " codecs use it"));
        }

        for (const char* key : kNotEncodedKeys) {
            if (!given(key)) continue;
            warn("not-encoded", key,
                 std::string("'") + key +
                         "' never reaches the boost request: the cluster half is always encoded "
                         "with Qualcomm opcodes, which carry only preferIdle and the cluster "
                         "minimum frequencies");
        }

        for (const char* key : kLowerBoundKeys) {
            if (given(key) && tavroAtoi(values.at(key)) < 0) {
                warn("negative-value", key,
                     std::string("'") + key + "=" + values.at(key) +
                             "' never excludes: a lower bound below 1 is no bound");
            }
        }
        if (given(kBoostKeyLimitOpRate) && k.limitOpRate < 0) {
            warn("negative-value", kBoostKeyLimitOpRate,
                 "'limitOpRate=" + values.at(kBoostKeyLimitOpRate) +
                         "' never gates the cluster half: a limit below 1 is none, so it is "
                         "sent at start");
        }
        for (const auto& [cluster, minFreq] : k.clusterMinFreq) {
            if (minFreq >= 0) continue;
            const char* key = kBoostKeyClusterMin[cluster];
            warn("negative-value", key,
                 std::string("'") + key + "=" + std::to_string(minFreq) +
                         "' asks for a negative minimum frequency (" +
                         std::to_string(minFreq / 1000) + " MHz in the request)");
        }
        area();
        uclamp();

        if (given(kBoostKeyFreqDownRate) != given(kBoostKeyFreqUpRate)) {
            const bool down = given(kBoostKeyFreqDownRate);
            warn(down ? "lone-freq-down-rate" : "lone-freq-up-rate",
                 down ? kBoostKeyFreqDownRate : kBoostKeyFreqUpRate,
                 down ? "'freqDownRate' without 'freqUpRate': its values become the first entries "
                        "of freqRate, where up-rates are expected"
                      : "'freqUpRate' without 'freqDownRate': freqRate holds no down-rate");
        }
        if (k.countFps && k.limitOpRate < 1) {
            warn("count-fps-without-limit", kBoostKeyCountFps,
                 "'countFps' never takes effect without 'limitOpRate' of 1 or more: the counted "
                 "frame rate only feeds the operating-rate watch");
        }
    }

    // Width x height as the matcher multiplies them, for video tracks only.
    void area() {
        if (!given(kBoostKeyLimitWidth) && !given(kBoostKeyLimitHeight)) return;
        const BoostConditionInfo& c = mCheck->record.condition;
        const int64_t product = int64_t{c.limitWidth} * c.limitHeight;
        const std::string text = std::to_string(c.limitWidth) + " x " +
                                 std::to_string(c.limitHeight) + " = " + std::to_string(product);
        if (product > std::numeric_limits<int32_t>::max() ||
            product < std::numeric_limits<int32_t>::min()) {
            error("area-overflow", kBoostKeyLimitWidth,
                  "the area limit " + text +
                          " does not fit 32 bits: the library stops the process when it "
                          "compares a video codec against this rule");
        } else if (product < 1) {
            warn("no-area-limit",
                 given(kBoostKeyLimitWidth) ? kBoostKeyLimitWidth : kBoostKeyLimitHeight,
                 "the area limit is limitWidth x limitHeight = " + text +
                         ": an area below 1 is no limit, so neither key excludes anything");
        } else if (c.limitWidth < 0) {
            warn("negative-value", kBoostKeyLimitWidth,
                 "limitWidth and limitHeight are negative: their product " + text +
                         " is the area limit");
        }
    }

    void uclamp() {
        const TavroClusterInfo& k = mCheck->record.clusterInfo;
        if (given(kBoostKeyMinUclamp) && (k.minUclamp < 0 || k.minUclamp > kUclampMax)) {
            warn("uclamp-range", kBoostKeyMinUclamp,
                 "'minUclamp=" + std::to_string(k.minUclamp) + "' is outside 0.." +
                         std::to_string(kUclampMax) +
                         ", the scheduler's capacity scale: the kernel refuses it");
        }
        if (given(kBoostKeyUclampTids) && k.minUclamp == 0) {
            warn("uclamp-unpaired", kBoostKeyUclampTids,
                 "'uclampTids' never takes effect without a non-zero 'minUclamp'");
        }
        if (k.minUclamp != 0 && k.uclampIndex.empty()) {
            warn("uclamp-unpaired", kBoostKeyMinUclamp,
                 "'minUclamp' never takes effect without 'uclampTids' naming threads");
        }
        const int32_t threads = mCheck->record.condition.isVideo == 0 ? kCodecBoostThreadsAudio
                                                                      : kCodecBoostThreadsVideo;
        std::vector<std::string> dead;
        for (int32_t index : k.uclampIndex) {
            if (index < 0 || index >= threads) dead.push_back(std::to_string(index));
        }
        if (!dead.empty()) {
            warn("uclamp-index", kBoostKeyUclampTids,
                 "uclampTids " + joined(dead) +
                         " never picks a thread: the indices select among the codec's own boost "
                         "threads (the app's tp-ux-tid and the configuring thread when the format "
                         "names a tp-ux-tid, then the looper thread of a video codec), so only 0 "
                         "to " +
                         std::to_string(threads - 1) + " can");
        }
    }

    TavroBoostInfoCheck* mCheck;
};

template <typename T>
std::string listText(const std::vector<T>& values) {
    std::string text;
    for (const T& v : values) {
        if constexpr (std::is_same_v<T, std::string>) {
            text += (text.empty() ? "" : ", ") + quoted(v);
        } else {
            text += (text.empty() ? "" : ", ") + std::to_string(v);
        }
    }
    return "[" + text + "]";
}

}  // namespace

const char* tavroTransportName(TavroBoostTransport via) {
    return via == TavroBoostTransport::kList ? "list" : "property";
}

size_t tavroTransportLimit(TavroBoostTransport via) {
    return (via == TavroBoostTransport::kList ? kBoostInfoBufferSize : PROPERTY_VALUE_MAX) - 1;
}

std::string tavroDeliveredText(const std::string& text, TavroBoostTransport via) {
    std::string delivered = text.substr(0, text.find('\0'));
    if (delivered.size() > tavroTransportLimit(via)) delivered.resize(tavroTransportLimit(via));
    return delivered;
}

size_t TavroBoostInfoCheck::warnings() const {
    size_t n = 0;
    for (const auto& f : findings) n += f.severity == Severity::kWarning;
    return n;
}

size_t TavroBoostInfoCheck::errors() const {
    return findings.size() - warnings();
}

int TavroBoostInfoCheck::exitStatus() const {
    return errors() > 0 ? 2 : warnings() > 0 ? 1 : 0;
}

TavroBoostInfoCheck checkTavroBoostInfo(const std::string& text, TavroBoostTransport via) {
    TavroBoostInfoCheck check;
    check.text = text;
    check.via = via;
    check.delivered = tavroDeliveredText(text, via);
    auto record = std::make_shared<MediaBoostInfo>();
    check.accepted = parseBoostInfo(check.delivered, record);
    check.record = *record;
    check.record.boostStrInfo = check.delivered;
    Checker(&check).run();
    if (!check.accepted && check.errors() == 0) {
        // The walk above and the library must agree; if they ever do not, the library decides.
        check.findings.push_back(
                {Severity::kError, "sched-not-a-number", "", "the library rejects this string"});
    }
    return check;
}

std::vector<TavroRecordField> tavroRecordFields(const TavroBoostInfoCheck& check) {
    std::vector<TavroRecordField> fields;
    MediaBoostInfo record = check.record;  // the accessors take a mutable record
    for (const TavroBoostKey& key : kTavroBoostKeys) {
        if (key.field == nullptr) continue;
        bool seen = false;
        for (TavroRecordField& f : fields) {
            if (strcmp(f.field, key.field) != 0) continue;
            seen = true;
            f.key.clear();  // several keys fill this field
            f.given = false;
        }
        if (seen) continue;
        TavroRecordField f{&key,     key.part, key.field,
                           key.name, "",       check.givenKeys.count(key.name) != 0};
        const TavroBoostField& at = key.at;
        if (at.text != nullptr) f.value = quoted(*at.text(record));
        if (at.number != nullptr) f.value = std::to_string(*at.number(record));
        if (at.flag != nullptr) f.value = *at.flag(record) ? "1" : "0";
        if (at.names != nullptr) f.value = listText(*at.names(record));
        if (at.numbers != nullptr) f.value = listText(*at.numbers(record));
        if (at.clusters != nullptr) {
            std::string freqs;
            for (const auto& [cpu, freq] : *at.clusters(record)) {
                freqs += (freqs.empty() ? "" : ", ") + std::to_string(cpu) + ": " +
                         std::to_string(freq);
            }
            f.value = "{" + freqs + "}";
        }
        fields.push_back(f);
    }
    return fields;
}

void printTavroBoostInfoCheck(const TavroBoostInfoCheck& check, std::ostream& out) {
    out << "boost info: " << quoted(check.text) << "\n";
    out << "transport: " << tavroTransportName(check.via) << ", at most "
        << tavroTransportLimit(check.via) << " bytes arrive: "
        << (check.delivered.size() == check.text.size()
                    ? "all " + std::to_string(check.text.size())
                    : std::to_string(check.delivered.size()) + " of " +
                              std::to_string(check.text.size()))
        << "\n";
    if (!check.accepted) {
        out << "record: none; the library rejects this string, so the rule gives no boost\n";
    } else {
        static const char* const kPartNames[] = {"condition", "scheduling", "cluster"};
        int part = -1;
        for (const TavroRecordField& f : tavroRecordFields(check)) {
            if (static_cast<int>(f.part) != part) {
                part = static_cast<int>(f.part);
                out << kPartNames[part] << ":\n";
            }
            std::string label = f.field;
            if (!f.key.empty() && f.key != f.field) label += " (" + f.key + ")";
            out << "  " << label << std::string(label.size() < 30 ? 30 - label.size() : 1, ' ')
                << "= " << f.value << (!f.key.empty() && !f.given ? "   (not given)" : "") << "\n";
        }
    }
    if (!check.findings.empty()) out << "findings:\n";
    for (const TavroBoostInfoFinding& f : check.findings) {
        out << "  " << (f.severity == Severity::kError ? "error" : "warning") << " [" << f.code
            << "] " << f.message << "\n";
    }
    out << "result: " << check.warnings() << " warning(s), " << check.errors() << " error(s)\n";
}

}  // namespace android
