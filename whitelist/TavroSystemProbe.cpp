#define LOG_NDEBUG 0
#define LOG_TAG "TavroWhiteListCache"
#include "whitelist/TavroSystemProbe.h"

#include <dirent.h>
#include <errno.h>
#include <fcntl.h>
#include <string.h>
#include <unistd.h>

#include <cutils/properties.h>
#include <log/log.h>

#include "common/TavroLog.h"
#include "common/TavroNumber.h"
#include "common/TavroRecordTap.h"

namespace android {
namespace {

constexpr int32_t kProbeLogLevel = kTavroLogDetail;

std::string& procRoot() {
    static std::string* root = new std::string(kProcRootDefault);  // never destroyed
    return *root;
}

// Reads a text file line by line through a fixed buffer; a line of any length is assembled in
// the caller's string, so nothing is read past the buffer and nothing is cut short.
class LineReader {
  public:
    explicit LineReader(const std::string& path)
        : mFd(::open(path.c_str(), O_RDONLY | O_CLOEXEC)) {}
    ~LineReader() {
        if (mFd >= 0) ::close(mFd);
    }
    LineReader(const LineReader&) = delete;
    LineReader& operator=(const LineReader&) = delete;

    bool isOpen() const { return mFd >= 0; }

    // The next line without its '\n'; false at the end of the file (or on a read error) when
    // no character was read. With `stopAtNul` the line also ends at a NUL byte, which is dropped
    // with everything after it, and the rest of the file is not read.
    bool next(std::string& line, bool stopAtNul = false) {
        line.clear();
        bool any = false;
        for (;;) {
            if (mPos == mLen) {
                if (mEof || !fill()) return any;
            }
            const char* begin = mBuf + mPos;
            const size_t avail = mLen - mPos;
            const void* nl = memchr(begin, '\n', avail);
            size_t n = nl != nullptr ? static_cast<const char*>(nl) - begin : avail;
            if (stopAtNul) {
                const void* nul = memchr(begin, '\0', n);
                if (nul != nullptr) {
                    line.append(begin, static_cast<const char*>(nul) - begin);
                    mPos = mLen;
                    mEof = true;
                    return true;
                }
            }
            line.append(begin, n);
            if (nl != nullptr) {
                mPos += n + 1;
                return true;
            }
            mPos = mLen;
            any = true;
        }
    }

  private:
    bool fill() {
        mPos = 0;
        mLen = 0;
        for (;;) {
            const ssize_t n = ::read(mFd, mBuf, sizeof(mBuf));
            if (n > 0) {
                mLen = static_cast<size_t>(n);
                return true;
            }
            if (n < 0 && errno == EINTR) continue;
            mEof = true;
            return false;
        }
    }

    int mFd;
    bool mEof = false;
    size_t mPos = 0;
    size_t mLen = 0;
    char mBuf[4096];
};

std::string procPath(int32_t pid, const char* leaf) {
    std::string path = tavroProcRoot();
    path.push_back('/');
    path += std::to_string(pid);
    path.push_back('/');
    path += leaf;
    return path;
}

}  // namespace

const std::string& tavroProcRoot() {
    return procRoot();
}

void setProcRootForTesting(const std::string& root) {
    procRoot() = root.empty() ? std::string(kProcRootDefault) : root;
}

std::string getProperty(const std::string& key) {
    char value[PROPERTY_VALUE_MAX] = {};
    const int len = property_get(key.c_str(), value, "");
    if (TavroRecordTap* tap = tavroRecordTap()) {
        tap->onProperty(key.c_str(), len > 0 ? value : nullptr, false);
    }
    if (len < 1) return std::string();
    TAVRO_LOGV(kProbeLogLevel, kLogPropertyValue, key.c_str(), len);
    value[PROPERTY_VALUE_MAX - 1] = '\0';
    return std::string(value);
}

bool getPlatformInfo(TavroPlatformInfo& platform) {
    std::string& vendor = platform.vendor;
    std::string& soc = platform.soc;
    std::string& project = platform.project;
    if (!vendor.empty() && !soc.empty() && !project.empty()) return true;
    vendor = getProperty(kPropHardware);
    if (vendor.empty()) {
        ALOGE("%s", kLogNoVendor);
        return false;
    }
    soc = getProperty(kPropDeviceFamily);
    if (soc.empty()) {
        ALOGE("%s", kLogNoSoc);
        return false;
    }
    project = getProperty(kPropProjectName);
    if (project.empty()) {
        ALOGE("%s", kLogNoProject);
        return false;
    }
    TAVRO_LOGV(kProbeLogLevel, kLogPlatform, vendor.c_str(), soc.c_str(), project.c_str());
    return true;
}

bool getThreadName(const std::string& path, std::string& name) {
    if (path.empty()) {
        ALOGE("%s", kLogFilePathEmpty);
        return false;
    }
    LineReader reader(path);
    if (!reader.isOpen()) {
        const int error = errno;
        TAVRO_LOGI(kLogOpenFileFailed, path.c_str(), strerror(error));
        return false;
    }
    // A command line is NUL-separated: the line is cut at its first NUL, which keeps the first
    // argument and saves reading the rest.
    reader.next(name, /*stopAtNul=*/true);
    return !name.empty();
}

bool getProcNameByPid(int32_t pid, std::string& name) {
    const bool found = getThreadName(procPath(pid, kProcCmdline), name);
    if (TavroRecordTap* tap = tavroRecordTap()) tap->onProcessName(pid, found, name.c_str());
    return found;
}

bool getThreadIdByName(int32_t pid, const std::vector<std::string>& names,
                       std::vector<int32_t>& tids) {
    TAVRO_LOGV(kProbeLogLevel, kLogThreadIdByName, pid);
    std::string dir = procPath(pid, kProcTask);
    dir.push_back('/');
    DIR* d = opendir(dir.c_str());
    if (d == nullptr) {
        ALOGE(kLogOpenDirFailed, dir.c_str());
        return false;
    }
    std::string comm;
    std::string commPath;
    while (const struct dirent* entry = readdir(d)) {
        if (entry->d_name[0] < '0' || entry->d_name[0] > '9' || entry->d_type != DT_DIR) continue;
        commPath = dir;
        commPath += entry->d_name;
        commPath.push_back('/');
        commPath += kProcComm;
        if (!getThreadName(commPath, comm)) continue;
        if (TavroRecordTap* tap = tavroRecordTap()) {
            tap->onThreadName(pid, tavroAtoi(entry->d_name), comm.c_str());
        }
        for (const std::string& name : names) {
            if (comm.find(name) == std::string::npos) continue;
            TAVRO_LOGV(kProbeLogLevel, kLogMatchThread, comm.c_str(), entry->d_name);
            tids.push_back(tavroAtoi(entry->d_name));
            break;
        }
    }
    closedir(d);
    return !tids.empty();
}

// The free-memory probe belongs to the codec side and logs with its tag.
#undef LOG_TAG
#define LOG_TAG "TavroCCodec"

int64_t getSystemAvailMem() {
    const std::string path = tavroProcRoot() + "/" + kProcMeminfo;
    LineReader reader(path);
    TavroRecordTap* tap = tavroRecordTap();
    if (!reader.isOpen()) {
        ALOGV_IF(tavroLogOn(kTavroLogVerbose, kTavroLogDefaultOff),
                 "getSystemAvailMem can not open file /proc/meminfo");
        if (tap != nullptr) tap->onMemAvailable(false, kSystemAvailMemDefaultKb);
        return kSystemAvailMemDefaultKb;
    }
    constexpr size_t kValueOffset = sizeof(kMemAvailableKey) - 1;  // the key starts the line
    int64_t availKb = kSystemAvailMemDefaultKb;
    bool found = false;
    std::string line;
    while (reader.next(line)) {
        if (line.size() >= kValueOffset && line.find(kMemAvailableKey) != std::string::npos) {
            availKb = tavroAtoi(line.c_str() + kValueOffset);
            found = true;
            break;
        }
    }
    if (tap != nullptr) tap->onMemAvailable(found, availKb);
    TAVRO_LOGD("getSystemAvailMem, MemAvailable:%lld", static_cast<long long>(availKb));
    return availKb;
}

}  // namespace android
