// Host implementation of the maker's list-value and process-name utilities.
#include <tavro/TavroListUtils.h>

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <mutex>

namespace android {

namespace {

constexpr char kDefaultProcRoot[] = "/proc";
constexpr size_t kMaxProcFileBytes = 4096;

std::mutex sRootLock;
std::string& procRoot() {
    static std::string* root = new std::string(kDefaultProcRoot);
    return *root;
}

// Reads up to kMaxProcFileBytes of `path`; false when it cannot be opened.
bool readSmallFile(const std::string& path, std::string* out) {
    int fd = open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0) return false;
    out->clear();
    char buffer[512];
    while (out->size() < kMaxProcFileBytes) {
        size_t want = kMaxProcFileBytes - out->size();
        if (want > sizeof(buffer)) want = sizeof(buffer);
        ssize_t n = read(fd, buffer, want);
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) break;
        out->append(buffer, static_cast<size_t>(n));
    }
    close(fd);
    return true;
}

}  // namespace

bool parseKeyValuePairFromStr(const char* text, TavroKeyValueMap& pairs) {
    pairs.clear();
    if (text == nullptr) return false;
    const char* piece = text;
    while (*piece != '\0') {
        size_t length = strcspn(piece, kTavroPairSeparators);
        const char* equals =
                static_cast<const char*>(memchr(piece, kTavroKeyValueSeparator, length));
        if (equals != nullptr) {
            size_t keyLength = static_cast<size_t>(equals - piece);
            size_t valueLength = length - keyLength - 1;
            if (keyLength > 0 && valueLength > 0) {
                pairs[String8(piece, keyLength)] = String8(equals + 1, valueLength);
            }
        }
        piece += length;
        if (*piece != '\0') ++piece;  // the separator
    }
    return !pairs.empty();
}

int32_t getIntValueFromKeyValuePair(const TavroKeyValueMap& pairs, const char* key,
                                    int32_t defaultValue) {
    if (key == nullptr) return defaultValue;
    auto it = pairs.find(String8(key));
    if (it == pairs.end()) return defaultValue;
    long long value = strtoll(it->second.c_str(), nullptr, 10);
    // Narrowing keeps the low 32 bits, as (int)strtol does on a 64-bit C library.
    return static_cast<int32_t>(static_cast<uint32_t>(static_cast<unsigned long long>(value)));
}

bool getListFromStr(const char* text, std::vector<String8>& list, char delimiter) {
    list.clear();
    if (text == nullptr || *text == '\0') return false;
    const char* piece = text;
    for (;;) {
        const char* end = strchr(piece, delimiter);
        if (end == nullptr || delimiter == '\0') {
            list.emplace_back(piece);
            break;
        }
        list.emplace_back(piece, static_cast<size_t>(end - piece));
        piece = end + 1;
    }
    return true;
}

String8 getProcessName(pid_t pid) {
    std::string root;
    {
        std::lock_guard<std::mutex> guard(sRootLock);
        root = procRoot();
    }
    const std::string dir = root + "/" + std::to_string(pid) + "/";
    std::string content;
    if (readSmallFile(dir + "cmdline", &content)) {
        // The first argument, up to its NUL (the read may have stopped inside it).
        size_t end = content.find('\0');
        if (end == std::string::npos) end = content.size();
        if (end > 0) return String8(content.data(), end);
    }
    if (readSmallFile(dir + "comm", &content)) {
        size_t end = content.find_first_of(std::string("\n\0", 2));
        if (end == std::string::npos) end = content.size();
        return String8(content.data(), end);
    }
    return String8();
}

void setProcessNameRootForTesting(const std::string& root) {
    std::lock_guard<std::mutex> guard(sRootLock);
    procRoot() = root.empty() ? std::string(kDefaultProcRoot) : root;
}

}  // namespace android
