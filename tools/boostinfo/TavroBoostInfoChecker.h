// tavro-boostinfo's checks: parses a boost-info string with the library's own parser, and points
// out what the grammar silently accepts but a writer rarely means (unknown or blank-padded keys,
// empty items, repeated keys, numbers that read as something else). Optionally evaluates the
// string's conditions against a described media and device, one condition at a time, to say
// which one keeps the rule from applying.
#pragma once

#include <stdint.h>

#include <ostream>
#include <set>
#include <string>
#include <vector>

#include "whitelist/TavroBoostInfo.h"
#include "whitelist/TavroMediaInfo.h"

namespace android {

struct TavroBoostInfoFinding {
    enum class Severity { kWarning, kError };
    Severity severity = Severity::kWarning;
    // Stable name of the finding: "empty-string", "empty-item", "no-equals", "empty-key",
    // "empty-value", "blank-in-key", "blank-in-value", "duplicate-key", "unknown-key",
    // "cluster-key-ignored", "not-a-number", "trailing-text", "out-of-range", "empty-list-piece",
    // "lone-freq-down-rate", "flag-value", "sched-not-a-number".
    std::string code;
    std::string item;  // the item as written, or the key
    std::string message;
};

struct TavroBoostInfoCheck {
    std::string text;
    // The library's parse. Not usable when !accepted: the library then rejects the whole string.
    MediaBoostInfo record;
    bool accepted = true;
    std::set<std::string> givenKeys;  // known keys the string sets (their last value counts)
    std::vector<TavroBoostInfoFinding> findings;

    size_t warnings() const;
    size_t errors() const;
    // 0 clean, 1 warnings only, 2 errors.
    int exitStatus() const;
};

// Checks `text` (one boost-info string). Never throws; any text is a valid input.
TavroBoostInfoCheck checkTavroBoostInfo(const std::string& text);

// The parsed record field by field, then the findings and a summary line.
void printTavroBoostInfoCheck(const TavroBoostInfoCheck& check, std::ostream& out);

// ---- Conditions against a media and a device ----------------------------------------------------

// The device's platform triple as the white list reads it: soc from "ro.build.device_family",
// vendor from "ro.hardware", project from "ro.boot.prjname". Empty matches any condition.
struct TavroDeviceDescription {
    std::string soc;
    std::string vendor;
    std::string project;
};

// "mime=video/avc,comp=c2.qti.avc.decoder,width=1920,height=1080,bitrate=8000000,codecId=0,
// sampleRate=..,sampleBits=..,channelCount=..,isVideo=1,isEncoder=0". Numbers must be whole
// base-10 int32 values. isVideo defaults to 1 for a "video/" mime (else 0), isEncoder to 1 when
// the component name contains "encoder" (else 0). False with `*error` naming the bad item.
bool parseTavroMediaDescription(const std::string& text, TavroMediaInfo* media, std::string* error);
// "cpu=QXSM8550,vendor=qcom,prj=22001" ("soc" and "project" are accepted as well).
bool parseTavroDeviceDescription(const std::string& text, TavroDeviceDescription* device,
                                 std::string* error);

struct TavroConditionStep {
    std::string name;  // "soc", "vendor", "project", "mime", "component", "bitrate", ...
    bool pass = true;
    std::string detail;  // what was compared
};

struct TavroConditionVerdict {
    std::vector<TavroConditionStep> steps;  // every condition, in the order the library tests them
    bool applies = false;                   // the library's own verdict
    std::string firstFailure;               // the step that decides a "no"; "" when it applies
    bool uxApplies = false;                 // the scheduling half reaches this codec
    bool clusterApplies = false;            // the CPU-cluster half reaches this codec
    // Set when the library would abort the process (a width x height area beyond 32 bits);
    // the verdict is then not evaluated.
    std::string fatal;
};

TavroConditionVerdict evaluateTavroBoostConditions(const TavroBoostInfoCheck& check,
                                                   const TavroMediaInfo& media,
                                                   const TavroDeviceDescription& device);

void printTavroConditionVerdict(const TavroConditionVerdict& verdict, const TavroMediaInfo& media,
                                const TavroDeviceDescription& device, std::ostream& out);

}  // namespace android
