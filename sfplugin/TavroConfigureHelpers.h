// What the configuration steps repeat: list values read by the key their list is kept under,
// list membership, key/value pairs with defaults, chip matches against the device's identity
// properties, and property reads. Used by every configure step group and by the codec's own
// lifecycle; any thread (the list-service client is a singleton made on first use).
#pragma once

#include <stddef.h>
#include <stdint.h>

#include <tavro/TavroListUtils.h>
#include <utils/String8.h>

namespace android {

struct TavroConfigureContext;

// Every list the configure steps read is answered into a buffer of this many bytes: at most this
// many bytes of value, terminated only when the value is shorter.
constexpr size_t kListValueSize = 256;

// The key a list is kept under, as the steps read it.
enum class TavroListKey {
    kBinderUid,    // the binder caller of the configure (the media framework's client)
    kAppUid,       // the app named by the format's "calling-uid" (the codec's mCallingUid)
    kTopActivity,  // the top activity of this process
};

// The value of `list` for the key `by` names, read within kListValueSize bytes whether or not the
// service terminated it. Returns the service's answer; a failed query leaves `out` empty.
bool tavroListValue(const TavroConfigureContext& ctx, const char* list, TavroListKey by,
                    String8* out);
bool tavroListValueByUid(const char* list, int64_t uid, String8* out);
bool tavroListValueByTopActivity(const char* list, int32_t pid, String8* out);

// Membership of `uid` (or `pid`) in `list`. A query that fails counts as absence.
bool tavroInListByUid(const char* list, int64_t uid);
bool tavroInListByPid(const char* list, int64_t pid);

// The key/value pairs of a list value ("cpu=SM8650,priority=1"; format in TavroListUtils.h), read
// with a default for every absent pair.
class TavroListPairs {
  public:
    // False when `text` holds no usable pair; nothing is found then.
    [[nodiscard]] bool parse(const String8& text);
    // The text of `key`, or `fallback` when the pair is absent (an empty value is never stored).
    String8 text(const char* key, const char* fallback = "") const;
    // The integer of `key` read like atoi (low 32 bits), or `fallback` when the pair is absent.
    int32_t integer(const char* key, int32_t fallback) const;

  private:
    TavroKeyValueMap mPairs;
};

// How a list's "cpu" pair names the chips or device families its value is meant for. The device
// side is read now from "ro.build.device_family" or "ro.soc.model" ("unknown" when unset).
enum class TavroChipMatch {
    kFamilyInCpu,    // the device family is a substring of cpu (case-sensitive)
    kSocInCpu,       // the SoC model is a substring of cpu (case-sensitive)
    kSocBeginsWith,  // the SoC model begins with cpu, ignoring case; an empty cpu matches every
                     // SoC, and a list value that defaults cpu to "unknown" matches only devices
                     // that do not name their SoC
    kSameChip,       // SoC model and cpu agree over their first six characters ignoring case (the
                     // chip without its variant letter); a shorter cpu must match whole
};
bool tavroChipMatches(TavroChipMatch how, const char* cpu);

// The value of property `key`, or `defaultValue` when it is unset or empty.
String8 tavroProperty(const char* key, const char* defaultValue);

// True when `text` begins with `prefix`, exactly or ignoring ASCII case. A null pointer is false.
bool tavroStartsWith(const char* text, const char* prefix);
bool tavroStartsWithIgnoreCase(const char* text, const char* prefix);

}  // namespace android
