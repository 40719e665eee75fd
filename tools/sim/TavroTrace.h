// The trace tavro-sim prints: what the library did during a scenario, one entry per thing that
// reached the platform or the maker's services, in the order it happened. Every entry has a
// readable line and the same content as JSON fields; consecutive identical entries are merged
// with a repeat count, so per-frame reports do not drown the rest.
#pragma once

#include <stdint.h>

#include <ostream>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

namespace android {

struct TavroTraceEntry {
    // "step" (a scenario event), "format", "param", "boost", "unboost", "task_boost", "feedback",
    // "stat", "analysis", "pelto", "callback", "platform", "timer", "log".
    std::string kind;
    int64_t timeUs = 0;      // since the start of the scenario, on the simulated clock
    int64_t lastTimeUs = 0;  // time of the last merged repeat
    int32_t repeat = 1;
    std::string text;  // the readable line, without time and kind
    nlohmann::ordered_json fields = nlohmann::ordered_json::object();  // the JSON view
};

class TavroTrace {
  public:
    // Appends `entry`, or counts it as a repeat of the last entry when kind, text and fields are
    // the same.
    void add(TavroTraceEntry entry);
    const std::vector<TavroTraceEntry>& entries() const { return mEntries; }

    // Entries of `kind` (all kinds for "").
    std::vector<TavroTraceEntry> ofKind(const std::string& kind) const;

    // "[    1.000] kind       text (x3 until 1.067)" lines, time in seconds.
    static std::string textLine(const TavroTraceEntry& entry);
    // {"kind": ..., "t_us": ..., fields..., "repeat": n, "last_t_us": t} (repeat only when > 1).
    static std::string jsonLine(const TavroTraceEntry& entry);

    void writeText(std::ostream& out) const;
    void writeJson(std::ostream& out) const;

  private:
    std::vector<TavroTraceEntry> mEntries;
};

}  // namespace android
