// Host system property store with property_get semantics and a change serial.
#include <cutils/properties.h>
#include <sys/system_properties.h>

#include <host/HostProperties.h>

#include <atomic>
#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <mutex>
#include <set>
#include <sstream>
#include <string_view>

namespace android {
namespace host {
namespace {

struct PropertyState {
    std::mutex lock;
    std::map<std::string, std::string> values;
    std::set<std::string, std::less<>> read;  // keys asked for since clear()
    std::atomic<uint32_t> serial{1};
};

PropertyState& state() {
    static PropertyState* s = new PropertyState();
    return *s;
}

std::string trim(const std::string& text) {
    size_t begin = text.find_first_not_of(" \t\r");
    if (begin == std::string::npos) return "";
    size_t end = text.find_last_not_of(" \t\r");
    return text.substr(begin, end - begin + 1);
}

// Reads the value into a fixed buffer; returns false when unset or empty.
bool readValue(const char* key, char* out, size_t size) {
    if (key == nullptr) return false;
    PropertyState& s = state();
    std::lock_guard<std::mutex> guard(s.lock);
    if (s.read.find(std::string_view(key)) == s.read.end()) s.read.emplace(key);
    auto it = s.values.find(key);
    if (it == s.values.end() || it->second.empty()) return false;
    size_t n = it->second.size() < size - 1 ? it->second.size() : size - 1;
    memcpy(out, it->second.data(), n);
    out[n] = '\0';
    return true;
}

template <typename T>
T readInteger(const char* key, T defaultValue, T minValue, T maxValue) {
    char buf[PROPERTY_VALUE_MAX];
    if (!readValue(key, buf, sizeof(buf))) return defaultValue;
    errno = 0;
    char* end = nullptr;
    long long v = strtoll(buf, &end, 0);
    if (end == buf || *end != '\0' || errno == ERANGE || v < minValue || v > maxValue) {
        return defaultValue;
    }
    return static_cast<T>(v);
}

}  // namespace

void HostProperties::clear() {
    std::lock_guard<std::mutex> guard(state().lock);
    state().values.clear();
    state().read.clear();
    state().serial.fetch_add(1, std::memory_order_release);
}

void HostProperties::set(const std::string& key, const std::string& value) {
    std::lock_guard<std::mutex> guard(state().lock);
    state().values[key] = value;
    state().serial.fetch_add(1, std::memory_order_release);
}

void HostProperties::erase(const std::string& key) {
    std::lock_guard<std::mutex> guard(state().lock);
    state().values.erase(key);
    state().serial.fetch_add(1, std::memory_order_release);
}

std::map<std::string, std::string> HostProperties::snapshot() {
    std::lock_guard<std::mutex> guard(state().lock);
    return state().values;
}

std::vector<std::string> HostProperties::readKeys() {
    std::lock_guard<std::mutex> guard(state().lock);
    return std::vector<std::string>(state().read.begin(), state().read.end());
}

bool HostProperties::loadText(const std::string& text, const std::string& origin,
                              std::string* error) {
    std::map<std::string, std::string> parsed;
    std::istringstream in(text);
    std::string line;
    int lineNo = 0;
    while (std::getline(in, line)) {
        ++lineNo;
        std::string t = trim(line);
        if (t.empty() || t[0] == '#') continue;
        size_t eq = t.find('=');
        std::string key = eq == std::string::npos ? "" : trim(t.substr(0, eq));
        if (eq == std::string::npos || key.empty()) {
            if (error != nullptr) {
                *error = origin + ":" + std::to_string(lineNo) + ": expected key=value, got '" + t +
                         "'";
            }
            return false;
        }
        parsed[key] = trim(t.substr(eq + 1));
    }
    for (const auto& kv : parsed) set(kv.first, kv.second);
    return true;
}

bool HostProperties::loadFile(const std::string& path, std::string* error) {
    std::ifstream in(path);
    if (!in) {
        if (error != nullptr) *error = path + ": cannot open: " + strerror(errno);
        return false;
    }
    std::stringstream buffer;
    buffer << in.rdbuf();
    return loadText(buffer.str(), path, error);
}

}  // namespace host
}  // namespace android

using android::host::readInteger;
using android::host::readValue;

extern "C" int property_get(const char* key, char* value, const char* default_value) {
    if (value == nullptr) return 0;
    if (readValue(key, value, PROPERTY_VALUE_MAX)) return static_cast<int>(strlen(value));
    if (default_value != nullptr) {
        size_t n = strlen(default_value);
        if (n > PROPERTY_VALUE_MAX - 1) n = PROPERTY_VALUE_MAX - 1;
        memcpy(value, default_value, n);
        value[n] = '\0';
        return static_cast<int>(n);
    }
    value[0] = '\0';
    return 0;
}

extern "C" int32_t property_get_int32(const char* key, int32_t default_value) {
    return readInteger<int32_t>(key, default_value, INT32_MIN, INT32_MAX);
}

extern "C" int64_t property_get_int64(const char* key, int64_t default_value) {
    return readInteger<int64_t>(key, default_value, INT64_MIN, INT64_MAX);
}

extern "C" int8_t property_get_bool(const char* key, int8_t default_value) {
    char buf[PROPERTY_VALUE_MAX];
    if (!readValue(key, buf, sizeof(buf))) return default_value;
    for (const char* yes : {"1", "y", "yes", "on", "true"}) {
        if (strcmp(buf, yes) == 0) return 1;
    }
    for (const char* no : {"0", "n", "no", "off", "false"}) {
        if (strcmp(buf, no) == 0) return 0;
    }
    return default_value;
}

extern "C" int property_set(const char* key, const char* value) {
    if (key == nullptr || *key == '\0') return -1;
    const char* v = value ? value : "";
    if (strlen(v) >= PROPERTY_VALUE_MAX) return -1;
    android::host::HostProperties::set(key, v);
    return 0;
}

extern "C" uint32_t __system_property_area_serial() {
    return android::host::state().serial.load(std::memory_order_acquire);
}
