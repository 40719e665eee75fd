// The end of a run in a few lines (tavro-sim --summary): how many entries of each kind, and the
// decisions a user looks for first: boosts sent and released, the modes the channel entered
// (VppModeParam values), the HDR type the codec reported.
#pragma once

#include <stdint.h>

#include <map>
#include <string>
#include <vector>

#include "tools/sim/TavroTrace.h"

namespace android {

class TavroTraceSummary : public TavroTraceSink {
  public:
    // Counts every entry, before any merging or filter.
    void add(const TavroTraceEntry& entry) override;
    // "summary" entries at the time of the last entry: counts, boosts, modes, hdr.
    std::vector<TavroTraceEntry> entries() const;

  private:
    std::map<std::string, int64_t> mCounts;
    int64_t mBoosts = 0;
    int64_t mTaskBoosts = 0;
    int64_t mReleases = 0;
    nlohmann::ordered_json mModes = nlohmann::ordered_json::array();
    int64_t mHdrType = 0;
    int64_t mLastTimeUs = 0;
};

}  // namespace android
