// tavro-boostinfo's verdict: a checked rule against a described media and device. The verdict is
// the library's own (checkPrecondition and checkClusterTrack on the record that arrives through
// the transport); the steps are the comparisons the matcher reports to its explain sink, in its
// order, up to the first that fails.
#pragma once

#include <stdint.h>

#include <ostream>
#include <string>
#include <vector>

#include "tools/boostinfo/TavroBoostInfoChecker.h"
#include "whitelist/TavroMediaInfo.h"
#include "whitelist/TavroSystemProbe.h"

namespace android {

// The device's platform triple as the white list reads it: soc from "ro.build.device_family",
// vendor from "ro.hardware", project from "ro.boot.prjname". Empty matches any condition.
using TavroDeviceDescription = TavroPlatformInfo;

// "mime=video/avc,comp=c2.qti.avc.decoder,width=1920,height=1080,bitrate=8000000,codecId=0,
// sampleRate=..,sampleBits=..,channelCount=..,isVideo=1,isEncoder=0". A mime is required, since
// the track kind follows from it. Numbers must be whole base-10 int32 values. isVideo defaults to
// 1 for a "video/" mime (else 0), isEncoder to 1 when the component name contains "encoder"
// (else 0). False with `*error` naming the bad item.
bool parseTavroMediaDescription(const std::string& text, TavroMediaInfo* media, std::string* error);
// "cpu=QXSM8550,vendor=qcom,prj=22001" ("soc" and "project" are accepted as well).
bool parseTavroDeviceDescription(const std::string& text, TavroDeviceDescription* device,
                                 std::string* error);

struct TavroConditionStep {
    std::string name;  // the matcher's: "soc", "vendor", "project", "mime", "component", ...
    bool pass = true;
    std::string detail;  // what was compared
};

struct TavroConditionVerdict {
    // The comparisons the library makes, in its order, up to the first that fails.
    std::vector<TavroConditionStep> steps;
    bool applies = false;         // the library's own verdict
    std::string firstFailure;     // the step that decides a "no"; "" when it applies
    bool uxApplies = false;       // the scheduling half reaches this codec
    bool clusterApplies = false;  // the CPU-cluster half reaches this codec
    // Set when the library would stop the process (a width x height area beyond 32 bits).
    std::string fatal;
};

// The verdict of the library for `check`'s record (as it arrived) on `media` and `device`. A
// rejected or empty rule applies nowhere and is compared with nothing.
TavroConditionVerdict evaluateTavroBoostConditions(const TavroBoostInfoCheck& check,
                                                   const TavroMediaInfo& media,
                                                   const TavroDeviceDescription& device);

void printTavroConditionVerdict(const TavroConditionVerdict& verdict, const TavroMediaInfo& media,
                                const TavroDeviceDescription& device, std::ostream& out);
// The verdict's last line alone: "the rule applies; ..." or "the rule does not apply (...)".
std::string tavroVerdictSummary(const TavroConditionVerdict& verdict, const TavroMediaInfo& media);

}  // namespace android
