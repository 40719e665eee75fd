// The boost-info string as text: its item walker, the parser that fills a MediaBoostInfo from it
// (driven by kTavroBoostKeys), the list splitters, thread-name resolution and the debug dump.
// None of it needs the white-list cache: the cache parses what it fetches, the tools parse what
// a user gives them, the same way. Any thread.
#pragma once

#include <stdint.h>

#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "whitelist/TavroBoostInfo.h"

namespace android {

// ---- Log texts (tag "TavroWhiteListCache", level 7) ---------------------------------------------
constexpr char kLogParseBoostInfo[] = "parseBoostInfo, %s";
constexpr char kLogKeyValue[] = "key=value: %s";
constexpr char kLogParseStrByDelim[] = "parseStrByDelim, str: %s, delim: %c";
constexpr char kLogDumpBoostStr[] = "Debug: boostStrInfo: %s";
constexpr char kLogDumpIsValid[] = "Debug: isValid: %d";
constexpr char kLogDumpCacheTime[] = "Debug: cacheTime: %lld";
constexpr char kLogDumpTid[] = "Debug: uxInfo: pid: %d, tid: %d";

// ---- Items --------------------------------------------------------------------------------------

// What the grammar makes of one piece of the string (the text between two ',').
enum class TavroBoostItemShape : uint8_t {
    kItem,        // key=value: the parser reads it
    kEmpty,       // ",," or a ',' at either end: dropped
    kNoEquals,    // no '=': ignored
    kEmptyKey,    // "=5": ignored
    kEmptyValue,  // "threadName=": ignored, the key keeps its default
};

struct TavroBoostItem {
    size_t index = 0;        // position among all pieces, empty ones included, from 0
    size_t offset = 0;       // byte offset of the piece in the string
    std::string_view piece;  // the piece as written, without its ','
    TavroBoostItemShape shape = TavroBoostItemShape::kEmpty;
    std::string_view key;    // cut at the first '='; set for kItem only
    std::string_view value;  // everything after it, further '=' included
};

// Calls visit(const TavroBoostItem&) for every piece of `str`, in order: cut at every ',', then
// each piece at its first '='. Nothing is trimmed. An empty string has no pieces; "a," has two.
template <typename Visit>
void forEachBoostItem(std::string_view str, Visit&& visit) {
    if (str.empty()) return;
    TavroBoostItem item;
    size_t start = 0;
    for (;;) {
        size_t end = str.find(kBoostItemDelim, start);
        if (end == std::string_view::npos) end = str.size();
        item.offset = start;
        item.piece = str.substr(start, end - start);
        item.key = item.value = std::string_view();
        const size_t eq = item.piece.find(kBoostValueDelim);
        if (item.piece.empty()) {
            item.shape = TavroBoostItemShape::kEmpty;
        } else if (eq == std::string_view::npos) {
            item.shape = TavroBoostItemShape::kNoEquals;
        } else if (eq == 0) {
            item.shape = TavroBoostItemShape::kEmptyKey;
        } else if (eq + 1 == item.piece.size()) {
            item.shape = TavroBoostItemShape::kEmptyValue;
        } else {
            item.shape = TavroBoostItemShape::kItem;
            item.key = item.piece.substr(0, eq);
            item.value = item.piece.substr(eq + 1);
        }
        visit(static_cast<const TavroBoostItem&>(item));
        if (end == str.size()) return;
        start = end + 1;
        ++item.index;
    }
}

// The row of kTavroBoostKeys for `key` (case-sensitive, exact); nullptr for a key the parser
// does not read.
const TavroBoostKey* findTavroBoostKey(std::string_view key);

// ---- Parsing ------------------------------------------------------------------------------------

// Fills info->condition, info->uxInfo and info->clusterInfo from `str`; never touches
// boostStrInfo, isValid, isDefault or cacheTime. An empty string or a null `info` changes
// nothing and returns true. Malformed items are skipped and bad numbers read as 0; a key given
// twice takes its later value. Returns false only when "schedVideo" or "schedAudio" is present
// but not a base-10 int32; the record then holds a partial parse and must not be used.
[[nodiscard]] bool parseBoostInfo(const std::string& str,
                                  const std::shared_ptr<MediaBoostInfo>& info);
// Splits at ',' into key -> value: first '=' cuts, no trimming, items with an empty key or
// value or without '=' are skipped, a later key wins. Keeps entries already in `out`.
void parseKeyValueString(const std::string& str, std::map<std::string, std::string>& out);
// Splits at `delim`, dropping empty pieces. An empty `str` leaves `out` as it was; otherwise
// `out` is replaced.
void parseStrByDelim(const std::string& str, char delim, std::vector<std::string>& out);
// Empties `out`, then appends the atoi value of every '+'-separated piece.
void parseNumericString(const std::string& str, std::vector<int32_t>& out);
// Replaces `tids` with the ids of the own process's threads named in info->uxInfo.threadName
// (a name matches any thread whose name contains it). A null `info` changes nothing.
void parseBoostThread(const std::shared_ptr<MediaBoostInfo>& info, std::vector<int32_t>& tids);
// Debug dump of `info` at log level 7, one line per field (lists: one per element) in the order
// of kTavroBoostKeys, after the cache fields.
void printMediaBoostInfo(const std::shared_ptr<MediaBoostInfo>& info);

}  // namespace android
