// TavroRecordTap: where the library's readers of the world outside the codec (properties, the
// maker's list service, /proc) report what they consumed while a session is being recorded
// (sfplugin/TavroSessionRecorder.h). Those readers live in process-wide code (the white list, the
// configure helpers, the system probes), so a read reaches the right recording through the thread
// it runs on: a recording codec installs its tap for the length of each of its own operations
// (TavroRecordScope), and a reader reports to the tap of its thread, if any.
//
// With no recording the cost at a reader is one thread-local load; nothing here runs per frame.
#pragma once

#include <stddef.h>
#include <stdint.h>

#include <cutils/properties.h>

namespace android {

// How a list-service question was keyed.
enum class TavroListAsk : uint8_t { kUid, kPid, kName, kTopActivity };

// What the service answered.
enum class TavroListReply : uint8_t {
    kNone,    // the query failed, or the key is not a member
    kMember,  // a membership question answered yes (no value was read)
    kValue,   // a value question answered: the value is what the library read
};

class TavroRecordTap {
  public:
    // A property and the value the library got; null when unset or empty (its default applied).
    // `cached`: a value the library read earlier and keeps (the white list's platform triple).
    virtual void onProperty(const char* key, const char* value, bool cached) = 0;
    // One list-service answer: the list, the key (`id` for uid and pid, `name` for a name; the
    // top activity is the service's own business), the reply and the value read. `cached`: the
    // answer a cache kept from an earlier question, used again now.
    virtual void onListAnswer(const char* list, TavroListAsk ask, int64_t id, const char* name,
                              TavroListReply reply, const char* value, size_t valueSize,
                              bool cached) = 0;
    // The first command-line argument of process `pid`; `found` false when none was read.
    virtual void onProcessName(int32_t pid, bool found, const char* name) = 0;
    // The name of thread `tid` of process `pid`, as read from its comm file.
    virtual void onThreadName(int32_t pid, int32_t tid, const char* name) = 0;
    // The MemAvailable figure in kB; `found` false when the file or the line was missing.
    virtual void onMemAvailable(bool found, int64_t kb) = 0;

  protected:
    ~TavroRecordTap() = default;
};

// The tap of the recording codec whose operation this thread is running; null almost always.
inline thread_local TavroRecordTap* sCurrentRecordTap = nullptr;

inline TavroRecordTap* tavroRecordTap() {
    return sCurrentRecordTap;
}

// Installs `tap` (null: none) for this thread until the scope ends, then restores what was there.
class TavroRecordScope {
  public:
    explicit TavroRecordScope(TavroRecordTap* tap) : mPrevious(sCurrentRecordTap) {
        sCurrentRecordTap = tap;
    }
    ~TavroRecordScope() { sCurrentRecordTap = mPrevious; }
    TavroRecordScope(const TavroRecordScope&) = delete;
    TavroRecordScope& operator=(const TavroRecordScope&) = delete;

  private:
    TavroRecordTap* mPrevious;
};

// For a reader that applies a default: reports the property's own value (null when unset or
// empty), read again now, so that a recording tells "unset" from "set to the default".
inline void tavroTapProperty(const char* key) {
    TavroRecordTap* tap = tavroRecordTap();
    if (tap == nullptr) return;
    char value[PROPERTY_VALUE_MAX] = {};
    const int len = property_get(key, value, "");
    tap->onProperty(key, len > 0 ? value : nullptr, false);
}

}  // namespace android
