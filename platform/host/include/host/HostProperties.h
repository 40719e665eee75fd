// Host-only control of the system property store behind property_get: reset, set, and load
// build.prop-style files. Not part of the device API.
#pragma once

#include <map>
#include <string>
#include <vector>

namespace android {
namespace host {

class HostProperties {
  public:
    // Empties the store and forgets which keys were read (the change serial still moves, so
    // cached readers re-read).
    static void clear();
    // Sets without the length limit of property_set (ro.* values may be long on a device too).
    static void set(const std::string& key, const std::string& value);
    static void erase(const std::string& key);
    static std::map<std::string, std::string> snapshot();
    // Every key a property_get* call asked for since clear(), set or not, sorted (tavro-sim
    // reports the properties a scenario set that nobody read).
    static std::vector<std::string> readKeys();
    // Whether reads are recorded for readKeys() (on by default). A fuzzer turns it off: it never
    // asks, and re-recording the same keys after every clear() would cost allocations per input.
    static void setRecordReads(bool record);
};

}  // namespace host
}  // namespace android
