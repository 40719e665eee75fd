// tavro-boostinfo's checks of one boost-info string: what reaches the library through its
// transport (a list answer or a debug property), the library's own parse of that text, and the
// findings: what the grammar accepts silently but a writer rarely means (unknown keys, blanks,
// separators other than ',', repeated keys, numbers that read as something else) and keys that
// can never take effect, judged by how the matching and the boost request read the record.
#pragma once

#include <stddef.h>
#include <stdint.h>

#include <ostream>
#include <set>
#include <string>
#include <vector>

#include "whitelist/TavroBoostInfo.h"

namespace android {

// How a rule reaches the library.
enum class TavroBoostTransport {
    kList,      // a list-service answer, read into the library's kBoostInfoBufferSize buffer
    kProperty,  // "debug.codec.ux" / "debug.cpu.boost", read through a PROPERTY_VALUE_MAX buffer
};

// "list" or "property".
const char* tavroTransportName(TavroBoostTransport via);
// The most bytes of a rule that arrive: the transport's buffer less its terminating NUL.
size_t tavroTransportLimit(TavroBoostTransport via);
// The text the library reads when `text` is sent through `via`: up to the first NUL, cut to the
// transport's limit.
std::string tavroDeliveredText(const std::string& text, TavroBoostTransport via);

struct TavroBoostInfoFinding {
    enum class Severity { kWarning, kError };
    Severity severity = Severity::kWarning;
    // Stable name of the finding; the README's findings table lists every one.
    std::string code;
    std::string item;  // the item as written, or the key
    std::string message;
};

struct TavroBoostInfoCheck {
    std::string text;  // as given
    TavroBoostTransport via = TavroBoostTransport::kList;
    std::string delivered;  // what the library reads (tavroDeliveredText)
    // The library's parse of `delivered`. Not usable when !accepted: the library then rejects the
    // whole string.
    MediaBoostInfo record;
    bool accepted = true;
    std::set<std::string> givenKeys;  // known keys the delivered text sets
    std::vector<TavroBoostInfoFinding> findings;

    size_t warnings() const;
    size_t errors() const;
    // 0 clean, 1 warnings only, 2 errors.
    int exitStatus() const;
};

// Checks `text` (one boost-info string) as it would arrive through `via`. Never throws; any text
// is a valid input.
TavroBoostInfoCheck checkTavroBoostInfo(const std::string& text,
                                        TavroBoostTransport via = TavroBoostTransport::kList);

// The transport, the parsed record field by field (in the order of the key table), then the
// findings and a summary line.
void printTavroBoostInfoCheck(const TavroBoostInfoCheck& check, std::ostream& out);

// Every field of the record in the order of the key table, as the text view prints it; the JSON
// view reads typed values through `row`.
struct TavroRecordField {
    const TavroBoostKey* row;  // the first row of the key table that fills the field
    TavroBoostPart part;
    const char* field;
    std::string key;     // the key that fills it; "" when several do
    std::string value;   // as printed: text quoted, lists in brackets, the map in braces
    bool given = false;  // the text gives the key
};
std::vector<TavroRecordField> tavroRecordFields(const TavroBoostInfoCheck& check);

}  // namespace android
