// Boost-info checks. The record itself always comes from the library's parser, so what is printed
// is what a device would use; the findings come from walking the raw items the way the grammar
// does (cut at ',', then at the first '=', later keys win) and noting where the text and the
// reading part ways.
#include "tools/boostinfo/TavroBoostInfoChecker.h"

#include <ctype.h>
#include <errno.h>
#include <stdlib.h>
#include <string.h>
#include <strings.h>

#include <limits>
#include <map>
#include <memory>

#include "common/TavroNumber.h"
#include "whitelist/TavroWhiteListCacheMgr.h"

namespace android {

namespace {

enum class KeyKind { kText, kNameList, kInt, kBool, kStrictInt, kIntList };

struct KeyInfo {
    const char* key;
    KeyKind kind;
};

// Every key the parser reads, and how it reads the value.
const KeyInfo kKeys[] = {
        {kBoostKeyCpu, KeyKind::kText},
        {kBoostKeyPrj, KeyKind::kText},
        {kBoostKeyVendor, KeyKind::kText},
        {kBoostKeyMime, KeyKind::kText},
        {kBoostKeyComp, KeyKind::kText},
        {kBoostKeyLimitWidth, KeyKind::kInt},
        {kBoostKeyLimitHeight, KeyKind::kInt},
        {kBoostKeyBitrate, KeyKind::kInt},
        {kBoostKeySampleRate, KeyKind::kInt},
        {kBoostKeySampleBits, KeyKind::kInt},
        {kBoostKeyChannelCount, KeyKind::kInt},
        {kBoostKeyCodecId, KeyKind::kInt},
        {kBoostKeyIsVideo, KeyKind::kInt},
        {kBoostKeyIsEncoder, KeyKind::kInt},
        {kBoostKeySched, KeyKind::kInt},
        {kBoostKeySchedVideo, KeyKind::kStrictInt},
        {kBoostKeySchedAudio, KeyKind::kStrictInt},
        {kBoostKeyVendorBoost, KeyKind::kBool},
        {kBoostKeyThreadName, KeyKind::kNameList},
        {kBoostKeyDdrFreq, KeyKind::kInt},
        {kBoostKeyAppThreads, KeyKind::kNameList},
        {kBoostKeySwThreads, KeyKind::kNameList},
        {kBoostKeyLimitOpRate, KeyKind::kInt},
        {kBoostKeyMinUclamp, KeyKind::kInt},
        {kBoostKeyPelt, KeyKind::kInt},
        {kBoostKeyCountFps, KeyKind::kBool},
        {kBoostKeyPreferIdle, KeyKind::kBool},
        {kBoostKeyScreenOff, KeyKind::kBool},
        {kBoostKeyUclampTids, KeyKind::kIntList},
        {kBoostKeyFreqUpRate, KeyKind::kIntList},
        {kBoostKeyFreqDownRate, KeyKind::kIntList},
};

const KeyInfo* findKey(const std::string& key) {
    for (const KeyInfo& k : kKeys) {
        if (key == k.key) return &k;
    }
    static const KeyInfo kCluster{"clusterNMin", KeyKind::kInt};
    for (int32_t n = 0; n <= kBoostMaxClusterKey; ++n) {
        if (key == kBoostKeyClusterMin[n]) return &kCluster;
    }
    return nullptr;
}

// The known key `key` differs from only in case, or "" when none.
std::string caseInsensitiveMatch(const std::string& key) {
    for (const KeyInfo& k : kKeys) {
        if (strcasecmp(key.c_str(), k.key) == 0) return k.key;
    }
    for (int32_t n = 0; n <= kBoostMaxClusterKey; ++n) {
        if (strcasecmp(key.c_str(), kBoostKeyClusterMin[n]) == 0) return kBoostKeyClusterMin[n];
    }
    return "";
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

class Checker {
  public:
    explicit Checker(TavroBoostInfoCheck* check) : mCheck(check) {}

    void run() {
        const std::string& text = mCheck->text;
        if (text.empty()) {
            warn("empty-string", "", "the string is empty: the rule gives no boost");
            return;
        }
        // Pass 1: items as the grammar cuts them; the map keeps the last value of each key.
        std::vector<std::string> pieces;
        size_t start = 0;
        while (true) {
            size_t comma = text.find(kBoostItemDelim, start);
            pieces.push_back(text.substr(
                    start, comma == std::string::npos ? std::string::npos : comma - start));
            if (comma == std::string::npos) break;
            start = comma + 1;
        }
        // The parser keeps the last value of a key: only that one is checked, at its place.
        struct Item {
            size_t index;
            std::string key;
            std::string value;
        };
        std::vector<Item> items;
        std::map<std::string, std::string> values;
        std::map<std::string, size_t> lastIndex;
        for (size_t i = 0; i < pieces.size(); ++i) {
            const std::string& item = pieces[i];
            const std::string where = "item " + std::to_string(i + 1);
            if (item.empty()) {
                warn("empty-item", "",
                     where + " is empty (',,' or a ',' at either end); it is skipped");
                continue;
            }
            const size_t eq = item.find(kBoostValueDelim);
            if (eq == std::string::npos) {
                warn("no-equals", item, where + " '" + item + "' has no '=' and is ignored");
                continue;
            }
            const std::string key = item.substr(0, eq);
            const std::string value = item.substr(eq + 1);
            if (key.empty()) {
                warn("empty-key", item, where + " '" + item + "' has no key and is ignored");
                continue;
            }
            if (value.empty()) {
                warn("empty-value", item,
                     where + " '" + item +
                             "' has no value and is ignored (the key keeps its default)");
                continue;
            }
            auto previous = values.find(key);
            if (previous != values.end()) {
                warn("duplicate-key", key,
                     "'" + key + "' is given twice: '" + value + "' replaces '" + previous->second +
                             "'");
            }
            values[key] = value;
            lastIndex[key] = i;
            items.push_back({i, key, value});
        }

        for (const Item& item : items) {
            if (lastIndex[item.key] == item.index) checkKey(item.key, item.value);
        }

        if (values.count(kBoostKeyFreqDownRate) != 0 && values.count(kBoostKeyFreqUpRate) == 0) {
            warn("lone-freq-down-rate", kBoostKeyFreqDownRate,
                 "'freqDownRate' without 'freqUpRate': its values become the first entries of "
                 "freqRate, where up-rates are expected");
        }
    }

  private:
    void add(TavroBoostInfoFinding::Severity severity, const char* code, const std::string& item,
             const std::string& message) {
        mCheck->findings.push_back({severity, code, item, message});
    }
    void warn(const char* code, const std::string& item, const std::string& message) {
        add(TavroBoostInfoFinding::Severity::kWarning, code, item, message);
    }

    void checkKey(const std::string& key, const std::string& value) {
        const std::string item = key + "=" + value;
        const KeyInfo* info = findKey(key);
        if (info == nullptr) {
            const std::string trimmed = trim(key);
            if (hasBlank(key)) {
                warn("blank-in-key", key,
                     "key '" + key + "' has blanks" +
                             (findKey(trimmed) != nullptr ? ", so it is not '" + trimmed + "'"
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
            return;
        }
        mCheck->givenKeys.insert(key);
        switch (info->kind) {
            case KeyKind::kText:
                blankValue(key, value);
                return;
            case KeyKind::kNameList:
                blankValue(key, value);
                emptyPieces(key, value);
                return;
            case KeyKind::kInt:
            case KeyKind::kBool:
                number(item, value);
                if (key == kBoostKeyIsVideo || key == kBoostKeyIsEncoder) flag(key, value);
                return;
            case KeyKind::kStrictInt: {
                int32_t parsed = 0;
                if (!tavroParseInt32(value, &parsed)) {
                    add(TavroBoostInfoFinding::Severity::kError, "sched-not-a-number", item,
                        "'" + item +
                                "' is not a 32-bit number: the library rejects the whole "
                                "string (\"Rejected boost info\") and the rule gives no boost");
                    return;
                }
                if (readNumber(value).trailing) {
                    warn("trailing-text", item,
                         "'" + item + "' reads as " + std::to_string(parsed) +
                                 ": the text after the number is ignored");
                }
                return;
            }
            case KeyKind::kIntList:
                emptyPieces(key, value);
                for (const std::string& piece : split(value)) {
                    if (!piece.empty()) number(item, piece, " (piece '" + piece + "')");
                }
                return;
        }
    }

    void blankValue(const std::string& key, const std::string& value) {
        if (trim(value) != value) {
            warn("blank-in-value", key,
                 "the value of '" + key + "' has blanks at an end ('" + value +
                         "'); they take part in the matching");
        }
    }

    static std::vector<std::string> split(const std::string& value) {
        std::vector<std::string> pieces;
        size_t start = 0;
        while (true) {
            size_t plus = value.find(kBoostListDelim, start);
            pieces.push_back(value.substr(
                    start, plus == std::string::npos ? std::string::npos : plus - start));
            if (plus == std::string::npos) return pieces;
            start = plus + 1;
        }
    }

    void emptyPieces(const std::string& key, const std::string& value) {
        for (const std::string& piece : split(value)) {
            if (piece.empty()) {
                warn("empty-list-piece", key,
                     "'" + key + "=" + value +
                             "' has an empty piece between '+' signs; it is "
                             "skipped");
                return;
            }
        }
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
                 "'isVideo=" + value +
                         "' is neither 1 (video) nor 0 (audio); it acts as -1 "
                         "(either)");
        } else {
            warn("flag-value", key,
                 "'isEncoder=" + value +
                         "' is neither 1 (encoder) nor 0 (decoder): no codec "
                         "matches it");
        }
    }

    TavroBoostInfoCheck* mCheck;
};

std::string quoted(const std::string& s) {
    return "\"" + s + "\"";
}

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

bool wholeInt32(const std::string& key, const std::string& value, int32_t* out,
                std::string* error) {
    const NumberReading r = readNumber(value);
    if (!r.digits || r.trailing || !r.fits || isspace(static_cast<unsigned char>(value[0]))) {
        *error = "'" + key + "=" + value + "': expected a whole 32-bit number";
        return false;
    }
    *out = r.value;
    return true;
}

}  // namespace

size_t TavroBoostInfoCheck::warnings() const {
    size_t n = 0;
    for (const auto& f : findings) n += f.severity == TavroBoostInfoFinding::Severity::kWarning;
    return n;
}

size_t TavroBoostInfoCheck::errors() const {
    return findings.size() - warnings();
}

int TavroBoostInfoCheck::exitStatus() const {
    return errors() > 0 ? 2 : warnings() > 0 ? 1 : 0;
}

TavroBoostInfoCheck checkTavroBoostInfo(const std::string& text) {
    TavroBoostInfoCheck check;
    check.text = text;
    auto record = std::make_shared<MediaBoostInfo>();
    check.accepted = parseBoostInfo(text, record);
    check.record = *record;
    check.record.boostStrInfo = text;
    Checker(&check).run();
    if (!check.accepted && check.errors() == 0) {
        // The walk above and the library must agree; if they ever do not, the library decides.
        check.findings.push_back({TavroBoostInfoFinding::Severity::kError, "sched-not-a-number", "",
                                  "the library rejects this string"});
    }
    return check;
}

void printTavroBoostInfoCheck(const TavroBoostInfoCheck& check, std::ostream& out) {
    out << "boost info: " << quoted(check.text) << "\n";
    auto line = [&](const char* field, const char* key, const std::string& value) {
        std::string label = field;
        if (key != nullptr && strcmp(field, key) != 0) label += " (" + std::string(key) + ")";
        std::string note;
        if (key != nullptr && check.givenKeys.count(key) == 0) note = "   (not given)";
        out << "  " << label << std::string(label.size() < 30 ? 30 - label.size() : 1, ' ') << "= "
            << value << note << "\n";
    };
    if (!check.accepted) {
        out << "record: none; the library rejects this string, so the rule gives no boost\n";
    } else {
        const BoostConditionInfo& c = check.record.condition;
        out << "condition:\n";
        line("soc", kBoostKeyCpu, quoted(c.soc));
        line("project", kBoostKeyPrj, quoted(c.project));
        line("vendor", kBoostKeyVendor, quoted(c.vendor));
        line("mime", kBoostKeyMime, quoted(c.mime));
        line("component", kBoostKeyComp, quoted(c.component));
        line("limitWidth", kBoostKeyLimitWidth, std::to_string(c.limitWidth));
        line("limitHeight", kBoostKeyLimitHeight, std::to_string(c.limitHeight));
        line("bitrate", kBoostKeyBitrate, std::to_string(c.bitrate));
        line("sampleRate", kBoostKeySampleRate, std::to_string(c.sampleRate));
        line("sampleBits", kBoostKeySampleBits, std::to_string(c.sampleBits));
        line("channelCount", kBoostKeyChannelCount, std::to_string(c.channelCount));
        line("codecId", kBoostKeyCodecId, std::to_string(c.codecId));
        line("isVideo", kBoostKeyIsVideo, std::to_string(c.isVideo));
        line("isEncoder", kBoostKeyIsEncoder, std::to_string(c.isEncoder));
        const TavroUxInfo& u = check.record.uxInfo;
        out << "scheduling:\n";
        line("schedVideo", kBoostKeySchedVideo, std::to_string(u.schedVideo));
        line("schedAudio", kBoostKeySchedAudio, std::to_string(u.schedAudio));
        line("needVendorBoost", kBoostKeyVendorBoost, u.needVendorBoost ? "1" : "0");
        line("threadName", kBoostKeyThreadName, quoted(u.threadName));
        line("ddrFreq", kBoostKeyDdrFreq, std::to_string(u.ddrFreq));
        line("appThreads", kBoostKeyAppThreads, quoted(u.appThreads));
        line("swThreads", kBoostKeySwThreads, listText(u.swThreads));
        const TavroClusterInfo& k = check.record.clusterInfo;
        out << "cluster:\n";
        line("limitOpRate", kBoostKeyLimitOpRate, std::to_string(k.limitOpRate));
        line("minUclamp", kBoostKeyMinUclamp, std::to_string(k.minUclamp));
        line("peltHalflife", kBoostKeyPelt, std::to_string(k.peltHalflife));
        line("countFps", kBoostKeyCountFps, k.countFps ? "1" : "0");
        line("isPreferIdle", kBoostKeyPreferIdle, k.isPreferIdle ? "1" : "0");
        line("isScreenOff", kBoostKeyScreenOff, k.isScreenOff ? "1" : "0");
        line("uclampIndex", kBoostKeyUclampTids, listText(k.uclampIndex));
        line("freqRate", nullptr, listText(k.freqRate));
        std::string freqs;
        for (const auto& [cpu, freq] : k.clusterMinFreq) {
            freqs +=
                    (freqs.empty() ? "" : ", ") + std::to_string(cpu) + ": " + std::to_string(freq);
        }
        line("clusterMinFreq", nullptr, "{" + freqs + "}");
    }
    if (!check.findings.empty()) out << "findings:\n";
    for (const TavroBoostInfoFinding& f : check.findings) {
        out << "  " << (f.severity == TavroBoostInfoFinding::Severity::kError ? "error" : "warning")
            << " [" << f.code << "] " << f.message << "\n";
    }
    out << "result: " << check.warnings() << " warning(s), " << check.errors() << " error(s)\n";
}

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
    const BoostConditionInfo& c = check.record.condition;
    auto step = [&](const char* name, bool pass, std::string detail) {
        v.steps.push_back({name, pass, std::move(detail)});
        if (!pass && v.firstFailure.empty()) v.firstFailure = name;
    };
    auto text = [&](const char* name, const std::string& config, const std::string& actual,
                    const char* whose) {
        const bool pass = cmpStrConfigParam(config, actual);
        std::string detail;
        if (config.empty()) {
            detail = "any (not set)";
        } else if (actual.empty()) {
            detail = std::string("the ") + whose + "'s value is unknown, which never excludes";
        } else {
            detail = quoted(config) + (pass ? " contains " : " does not contain ") + quoted(actual);
        }
        step(name, pass, detail);
    };
    auto lowerBound = [&](const char* name, int64_t config, int64_t actual) {
        const bool pass = config < 1 || actual < 1 || actual >= config;
        std::string detail = config < 1 ? "no limit"
                             : actual < 1
                                     ? "media value unknown (" + std::to_string(actual) +
                                               "), which never excludes"
                                     : "media " + std::to_string(actual) + (pass ? " >= " : " < ") +
                                               "limit " + std::to_string(config);
        step(name, pass, detail);
    };

    text("soc", c.soc, device.soc, "device");
    text("vendor", c.vendor, device.vendor, "device");
    text("project", c.project, device.project, "device");
    text("mime", c.mime, media.mime, "media");
    text("component", c.component, media.component, "media");
    lowerBound("bitrate", c.bitrate, media.bitrate);
    step("codecId", c.codecId == 0 || c.codecId == media.codecId,
         c.codecId == 0 ? "any (0)"
                        : "media " + std::to_string(media.codecId) + ", rule " +
                                  std::to_string(c.codecId));
    step("isEncoder", c.isEncoder == -1 || c.isEncoder == media.isEncoder,
         c.isEncoder == -1 ? "either (-1)"
                           : "media " + std::to_string(media.isEncoder) + ", rule " +
                                     std::to_string(c.isEncoder));

    const bool videoTrack = media.isVideo == 1 && c.isVideo != 0;
    const bool audioTrack = media.isVideo == 0 && c.isVideo != 1;
    step("track", videoTrack || audioTrack,
         std::string("media is ") +
                 (media.isVideo == 1   ? "video"
                  : media.isVideo == 0 ? "audio"
                                       : "neither") +
                 ", rule wants " +
                 (c.isVideo == 1   ? "video"
                  : c.isVideo == 0 ? "audio"
                                   : "either"));
    if (videoTrack) {
        const int64_t limitArea = static_cast<int64_t>(c.limitWidth) * c.limitHeight;
        const int64_t area = static_cast<int64_t>(media.width) * media.height;
        const int64_t max = std::numeric_limits<int32_t>::max();
        const int64_t min = std::numeric_limits<int32_t>::min();
        if (limitArea > max || limitArea < min || area > max || area < min) {
            v.fatal = "a width x height area beyond 32 bits: the library aborts the process";
            return v;
        }
        lowerBound("area", limitArea, area);
    } else if (audioTrack) {
        lowerBound("sampleRate", c.sampleRate, media.sampleRate);
        lowerBound("sampleBits", c.sampleBits, media.sampleBits);
        lowerBound("channelCount", c.channelCount, media.channelCount);
    }

    // The verdict is the library's; the steps above explain it.
    bool platform = cmpStrConfigParam(c.soc, device.soc) &&
                    cmpStrConfigParam(c.vendor, device.vendor) &&
                    cmpStrConfigParam(c.project, device.project);
    v.applies = check.accepted && !check.text.empty() && platform && checkAVCommonInfo(media, c) &&
                checkAVInfo(media, c);
    if (!v.applies && v.firstFailure.empty()) {
        v.firstFailure = check.text.empty() ? "empty string" : "rejected string";
    }
    v.uxApplies = v.applies;
    v.clusterApplies = v.applies && (media.isVideo != 0 ? c.isVideo != 0 : c.isVideo == 0);
    return v;
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
    if (!v.fatal.empty()) {
        out << "verdict: error: " << v.fatal << "\n";
        return;
    }
    if (v.applies) {
        out << "verdict: the rule applies; scheduling half "
            << (v.uxApplies ? "applied" : "not applied") << ", cluster half "
            << (v.clusterApplies ? "applied"
                                 : "not applied (video rules need isVideo != 0, "
                                   "audio rules isVideo=0)")
            << "\n";
    } else {
        out << "verdict: the rule does not apply (first failing condition: " << v.firstFailure
            << ")\n";
    }
}

}  // namespace android
