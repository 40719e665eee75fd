#include "tools/sim/TavroTraceSummary.h"

namespace android {

namespace {

using Json = nlohmann::ordered_json;

const char* hdrName(int64_t type) {
    static const char* const kNames[] = {"none",   "HDR10",     "HLG",
                                         "HDR10+", "HDR Vivid", "Dolby Vision"};
    return type >= 0 && type <= 5 ? kNames[type] : "unknown";
}

}  // namespace

void TavroTraceSummary::add(const TavroTraceEntry& entry) {
    ++mCounts[entry.kind];
    mLastTimeUs = entry.timeUs;
    const Json& f = entry.fields;
    if (entry.kind == "boost") ++mBoosts;
    if (entry.kind == "task_boost") ++mTaskBoosts;
    if (entry.kind == "unboost") ++mReleases;
    if (entry.kind == "param" && f.value("name", "") == "VppModeParam" && f.contains("value")) {
        mModes.push_back(
                {{"param", "VppModeParam"}, {"value", f["value"]}, {"t_us", entry.timeUs}});
    }
    if (entry.kind == "feedback" && f.value("name", "") == "sendFeedbackHdrPlaybackInfo") {
        const Json args = f.value("args", Json::object());
        if (args.contains("hdrType") && args["hdrType"].is_number()) {
            mHdrType = args["hdrType"].get<int64_t>();
        }
    }
}

std::vector<TavroTraceEntry> TavroTraceSummary::entries() const {
    std::vector<Json> all;
    Json counts = Json::object();
    for (const std::string& kind : tavroTraceKinds()) {
        auto it = mCounts.find(kind);
        if (it != mCounts.end()) counts[kind] = it->second;
    }
    all.push_back({{"name", "counts"}, {"counts", counts}});
    all.push_back({{"name", "boosts"},
                   {"sent", mBoosts},
                   {"released", mReleases},
                   {"task_boosts", mTaskBoosts}});
    all.push_back({{"name", "modes"}, {"entered", mModes}});
    all.push_back({{"name", "hdr"}, {"hdr_type", mHdrType}, {"hdr", hdrName(mHdrType)}});
    std::vector<TavroTraceEntry> out;
    for (Json& fields : all) {
        TavroTraceEntry e;
        e.kind = "summary";
        e.timeUs = mLastTimeUs;
        e.lastTimeUs = mLastTimeUs;
        e.fields = std::move(fields);
        out.push_back(std::move(e));
    }
    return out;
}

}  // namespace android
