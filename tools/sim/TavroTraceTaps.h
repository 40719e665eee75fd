// What tavro-sim turns into trace entries: host events (platform and closed-component calls, with
// boost parcels decoded), log records, the codec's timer messages, and the difference between a
// format as given and as the platform received it. Every entry is typed fields (TavroTrace.h);
// real process ids and object addresses are shown as the scenario's ids and stable names, so two
// runs print the same bytes. Runs on the playing thread only.
#pragma once

#include <stdint.h>

#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

#include <host/HostEvents.h>
#include <host/HostLog.h>
#include <media/stagefright/foundation/AMessage.h>
#include <utils/RefBase.h>

#include "tools/sim/TavroTrace.h"

namespace android {

// The scenario's process identity and the real one it stands for (see TavroScenarioProcess), and
// the stable names of the objects whose addresses the library prints.
class TavroSimIdentity {
  public:
    int64_t aliasPid = 0;
    int64_t aliasUid = 0;
    int64_t realPid = 0;
    int64_t realUid = 0;
    int64_t realTid = 0;  // the playing thread

    int64_t realUidOf(int64_t uid) const { return uid == aliasUid ? realUid : uid; }
    int64_t realPidOf(int64_t pid) const { return pid == aliasPid ? realPid : pid; }
    // The real process, and the thread that plays, are shown as the scenario's pid.
    int64_t shownId(int64_t id) const { return id == realPid || id == realTid ? aliasPid : id; }
    int64_t shownUid(int64_t uid) const { return uid == realUid ? aliasUid : uid; }
    int64_t aliasUidOf(int64_t realUid) const { return shownUid(realUid); }

    // Names an address ("codec#1"); others get "object#N" when first seen in a log line.
    void nameAddress(uint64_t address, const std::string& name) { mNames[address] = name; }
    // `text` with object addresses (hex, or decimal when already named) replaced by their names
    // and the real pid and tid by the scenario's pid. Addresses are told from flags and opcodes
    // by their size: above 32 bits.
    std::string shownText(const std::string& text);

  private:
    std::string nameOf(uint64_t address);
    std::unordered_map<uint64_t, std::string> mNames;
    int mObjects = 0;
};

class TavroTraceTaps {
  public:
    // Entries are stamped with the host clock's time since `startNs`.
    TavroTraceTaps(TavroTraceSink* sink, TavroSimIdentity* identity, int64_t startNs)
        : mSink(sink), mIdentity(identity), mStartNs(startNs) {}

    void add(const char* kind, nlohmann::ordered_json fields);

    // Host events of kinds "param", "boost", "unboost", "task_boost", "feedback", "stat",
    // "analysis", "pelto", "callback" (rendered-frame reports left out: frames are counted by the
    // clip), and the platform codec's signalSetParameters while no set_parameters step runs.
    void onHostEvent(const host::HostEvent& event);
    // A "log" entry, its message with identities mapped.
    void addLog(const host::LogRecord& record);
    // A message handed to the codec: the four private timers become "timer" entries.
    void onMessage(uint32_t what);
    // "format" entries: keys of `received` that `given` lacks or holds otherwise, then keys
    // `received` lost; one "unchanged" entry when there is no difference.
    void addFormatDiff(const char* stage, const sp<AMessage>& given, const sp<AMessage>& received);

    // The codec's address names its feedback record when the format has no key: shown as
    // "codec", since it differs between runs.
    void setCodecAddress(int64_t address) { mCodecAddress = address; }
    void setInSetParameters(bool in) { mInSetParameters = in; }

  private:
    int64_t nowUs() const;
    std::string shownFeedbackId(const std::string& id) const;
    void addCall(const char* kind, const host::HostEvent& e,
                 std::initializer_list<const char*> skip);
    void addParams(const host::HostEvent& e);
    void addBoost(const host::HostEvent& e);
    void addTaskBoost(const host::HostEvent& e);

    // The last call of each name, as the host gave it and as an entry: a call repeated with the
    // same arguments (several are made per frame) is handed on again without reading them anew.
    struct LastCall {
        std::string kind;
        std::vector<std::pair<std::string, std::string>> raw;
        TavroTraceEntry entry;
    };
    std::unordered_map<std::string, LastCall> mLastCalls;

    TavroTraceSink* mSink;
    TavroSimIdentity* mIdentity;
    int64_t mStartNs;
    int64_t mCodecAddress = 0;
    bool mInSetParameters = false;
};

// A service-call argument as a typed value: a decimal integer or a number whose shortest text is
// the argument becomes a number, a message text ("{a=1, b=x}") an object of such values, anything
// else stays text. Only exact readings convert, so rendering the value gives the text back.
nlohmann::ordered_json tavroTypedArgument(const std::string& text);

}  // namespace android
