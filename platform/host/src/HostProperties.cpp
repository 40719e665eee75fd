// Host system property area: the bionic calls behind libcutils' property_get family, and the
// host-only control of the store.
#include <sys/system_properties.h>

#include <host/HostProperties.h>

#include <algorithm>
#include <atomic>
#include <cstring>
#include <mutex>
#include <set>
#include <string_view>

namespace android {
namespace host {
namespace {

// A key keeps its place and its value's storage once set: clear() and erase() only mark it unset,
// so that a store filled again with the same keys (a fuzzer's every input) allocates nothing.
struct Value {
    std::string text;
    bool set = false;
};

struct PropertyState {
    std::mutex lock;
    std::map<std::string, Value, std::less<>> values;  // looked up without a copy of the key
    std::set<std::string, std::less<>> read;           // keys asked for since clear()
    bool recordReads = true;
    std::atomic<uint32_t> serial{1};
};

PropertyState& state() {
    static PropertyState* s = new PropertyState();
    return *s;
}

void unset(Value& value) {
    value.set = false;
    value.text.clear();
}

}  // namespace

void HostProperties::clear() {
    std::lock_guard<std::mutex> guard(state().lock);
    for (auto& entry : state().values) unset(entry.second);
    state().read.clear();
    state().serial.fetch_add(1, std::memory_order_release);
}

void HostProperties::set(const std::string& key, const std::string& value) {
    std::lock_guard<std::mutex> guard(state().lock);
    Value& slot = state().values[key];
    slot.text = value;
    slot.set = true;
    state().serial.fetch_add(1, std::memory_order_release);
}

void HostProperties::erase(const std::string& key) {
    std::lock_guard<std::mutex> guard(state().lock);
    auto it = state().values.find(key);
    if (it != state().values.end()) unset(it->second);
    state().serial.fetch_add(1, std::memory_order_release);
}

std::map<std::string, std::string> HostProperties::snapshot() {
    std::lock_guard<std::mutex> guard(state().lock);
    std::map<std::string, std::string> out;
    for (const auto& entry : state().values) {
        if (entry.second.set) out.emplace(entry.first, entry.second.text);
    }
    return out;
}

std::vector<std::string> HostProperties::readKeys() {
    std::lock_guard<std::mutex> guard(state().lock);
    return std::vector<std::string>(state().read.begin(), state().read.end());
}

void HostProperties::setRecordReads(bool record) {
    std::lock_guard<std::mutex> guard(state().lock);
    state().recordReads = record;
}

}  // namespace host
}  // namespace android

extern "C" int __system_property_get(const char* name, char* value) {
    value[0] = '\0';
    if (name == nullptr) return 0;
    android::host::PropertyState& s = android::host::state();
    std::lock_guard<std::mutex> guard(s.lock);
    if (s.recordReads && s.read.find(std::string_view(name)) == s.read.end()) s.read.emplace(name);
    auto it = s.values.find(std::string_view(name));
    if (it == s.values.end() || !it->second.set) return 0;
    const std::string& text = it->second.text;
    const size_t n = std::min(text.size(), static_cast<size_t>(PROP_VALUE_MAX - 1));
    memcpy(value, text.data(), n);
    value[n] = '\0';
    return static_cast<int>(n);
}

extern "C" int __system_property_set(const char* name, const char* value) {
    if (name == nullptr || *name == '\0') return -1;
    const char* v = value ? value : "";
    if (strlen(v) >= PROP_VALUE_MAX) return -1;
    android::host::HostProperties::set(name, v);
    return 0;
}

extern "C" uint32_t __system_property_area_serial() {
    return android::host::state().serial.load(std::memory_order_acquire);
}
