// What tavro-sim turns into trace entries: host events (platform and closed-component calls, with
// boost parcels decoded), log records, the codec's timer messages, and the difference between a
// format as given and as the platform received it. Runs on the playing thread only.
#pragma once

#include <stdint.h>

#include <string>

#include <host/HostEvents.h>
#include <host/HostLog.h>
#include <media/stagefright/foundation/AMessage.h>
#include <utils/RefBase.h>

#include "tools/sim/TavroTrace.h"

namespace android {

// The scenario's process identity and the real one it stands for (see TavroScenarioProcess).
struct TavroSimIdentity {
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
};

// "0x0000abcd" and the shortest text that reads back as the same number.
std::string tavroHex32(uint32_t value);
std::string tavroFloatText(double value);
std::string tavroFloatText(float value);

class TavroTraceTaps {
  public:
    // Entries are stamped with the host clock's time since `startNs`.
    TavroTraceTaps(TavroTrace* trace, const TavroSimIdentity& identity, int64_t startNs)
        : mTrace(trace), mIdentity(identity), mStartNs(startNs) {}

    void add(const char* kind, std::string text, nlohmann::ordered_json fields);

    // Host events of kinds "param", "boost", "unboost", "task_boost", "feedback", "stat",
    // "analysis", "pelto", "callback" (rendered-frame reports left out: frames are counted by the
    // clip), and the platform codec's signalSetParameters while no set_parameters step runs.
    void onHostEvent(const host::HostEvent& event);
    void onLog(const host::LogRecord& record);
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
    void addGeneric(const char* kind, const host::HostEvent& e,
                    std::initializer_list<const char*> skip);
    void addParams(const host::HostEvent& e);
    void addBoost(const host::HostEvent& e);
    void addTaskBoost(const host::HostEvent& e);

    TavroTrace* mTrace;
    TavroSimIdentity mIdentity;
    int64_t mStartNs;
    int64_t mCodecAddress = 0;
    bool mInSetParameters = false;
};

}  // namespace android
