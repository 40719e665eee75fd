// Host-only record of what reached the platform and the maker's closed components: one event per
// call that matters (parameter writes, boost requests, feedback, statistics, analysis and codec
// calls), in order, with its fields as text. Tests assert on it; tavro-sim prints it.
// Per-frame calls (queue, render, discard, output counting) are counted, not recorded, so the
// frame path stays free of allocations.
#pragma once

#include <cstddef>
#include <functional>
#include <string>
#include <utility>
#include <vector>

namespace android {
namespace host {

struct HostEvent {
    std::string kind;    // "codec", "callback", "channel", "param", "analysis", "feedback",
                         // "stat", "pelto", "boost", "unboost", "task_boost"
    std::string name;    // the operation, e.g. "setParameters", "updateParameters"
    const void* source;  // the object that received the call (tells codecs apart)
    std::vector<std::pair<std::string, std::string>> fields;

    // The value of field `key`, or "" when absent.
    std::string field(const std::string& key) const;
};

class HostEvents {
  public:
    static void record(HostEvent event);
    static std::vector<HostEvent> all();
    static std::vector<HostEvent> ofKind(const std::string& kind);
    static std::vector<HostEvent> named(const std::string& kind, const std::string& name);
    static void clear();
    // Recording is on by default; off drops events (listeners are still called).
    static void setEnabled(bool enabled);
    // True when an event would be kept or seen (recording on, or a listener set). Recorders may
    // skip building an event's text otherwise, so that a benchmark measures the code under test.
    static bool wanted();
    // Called for every event, outside the lock; an empty function removes it.
    static void setListener(std::function<void(const HostEvent&)> listener);
};

}  // namespace host
}  // namespace android
