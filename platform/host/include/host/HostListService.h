// Host-only store behind ListServiceUtils: lists keyed by uid, pid, name and activity, the top
// activity of each process, and fault modes for tests. Not part of the device API.
#pragma once

#include <stdint.h>

#include <string>
#include <vector>

namespace android {
namespace host {

class HostListService {
  public:
    enum class Fault {
        kNone,
        kNoAnswer,      // every query answers false
        kGarbage,       // value queries answer true with bytes that are not a list value
        kUnterminated,  // value queries fill the whole buffer with the value, no NUL
    };

    static void clear();  // empties every list, forgets top activities and asks, fault kNone

    // A key with a value is also a member; membership alone is a value of "".
    static void setByUid(const std::string& list, int64_t uid, const std::string& value = "");
    static void setByPid(const std::string& list, int64_t pid, const std::string& value = "");
    static void setByName(const std::string& list, const std::string& name,
                          const std::string& value);
    static void setByActivity(const std::string& list, const std::string& activity,
                              const std::string& value);

    // The top activity reported for `pid`; pid -1 sets the one used for any other pid.
    static void setTopActivity(int32_t pid, const std::string& activity);
    static std::string topActivity(int32_t pid);

    static void setFault(Fault fault);

    // Number of queries answered so far (for tests that count lookups).
    static uint64_t queryCount();

    // One question the library asked: a list by uid, pid, name or activity. A top-activity
    // query is recorded with the activity it resolved to ("" when the process had none).
    enum class Key { kUid, kPid, kName, kActivity };
    struct Ask {
        std::string list;
        Key key = Key::kUid;
        std::string id;  // decimal uid or pid, the name, or the activity
    };
    // Every distinct question since clear(), in the order first asked (tavro-sim reports the
    // entries a scenario gave that nobody asked for).
    static std::vector<Ask> asks();
    // Whether questions are recorded for asks() (on by default). A fuzzer turns it off: it never
    // reads them, and the names it asks by come from its input, so the record would only grow.
    static void setRecordAsks(bool record);
};

}  // namespace host
}  // namespace android
