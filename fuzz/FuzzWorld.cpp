#include "FuzzWorld.h"

#include <fcntl.h>
#include <ftw.h>
#include <stdio.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>

#include <exception>
#include <iterator>
#include <memory>
#include <string>
#include <typeinfo>
#include <unordered_map>

#include <binder/IPCThreadState.h>
#include <codec2/sfplugin/CCodec.h>
#include <host/HostClock.h>
#include <host/HostEvents.h>
#include <host/HostListService.h>
#include <host/HostLog.h>
#include <host/HostProperties.h>
#include <log/log.h>
#include <tavro/TavroListUtils.h>
#include <tavro/TavroVideoBoost.h>

#include "common/TavroLog.h"
#include "whitelist/TavroSystemProbe.h"
#include "whitelist/TavroWhiteListCacheMgr.h"

namespace android {
namespace fuzz {
namespace {

// Nothing in the library may throw; should something still escape, say what before aborting.
[[noreturn]] void onTerminate() {
    const char* what = "terminate without an exception";
    if (std::exception_ptr e = std::current_exception()) {
        what = "unknown";
        try {
            std::rethrow_exception(e);
        } catch (const std::exception& ex) {
            fprintf(stderr, "==fuzz== uncaught exception %s: %s\n", typeid(ex).name(), ex.what());
            abort();
        } catch (...) {
        }
    }
    fprintf(stderr, "==fuzz== uncaught exception (%s)\n", what);
    abort();
}

bool sInitialised = false;

// The fixture /proc: built once, removed at exit. Never destroyed (atexit handlers use it).
std::string& procRoot() {
    static std::string* root = new std::string();
    return *root;
}

// Threads of the fixture process: the main thread and the ones boost rules name most.
const char* const kFixtureThreads[] = {"fuzz.app", "NuPlayerRender", "MediaCodec_loop", "AudioOut"};

// The process as the probes see it: its command line, its threads' names, the free memory.
void makeProcFixture() {
    const std::string root = makeScratchDir("tavro-fuzz-proc");
    procRoot() = root;
    const std::string pidDir = root + "/" + std::to_string(getpid());
    ::mkdir(pidDir.c_str(), 0755);
    writeFile(pidDir + "/cmdline", std::string(kFixtureThreads[0]) + '\0' + "--fuzz" + '\0');
    ::mkdir((pidDir + "/task").c_str(), 0755);
    for (size_t i = 0; i < std::size(kFixtureThreads); ++i) {
        const std::string taskDir = pidDir + "/task/" + std::to_string(getpid() + i);
        ::mkdir(taskDir.c_str(), 0755);
        writeFile(taskDir + "/comm", std::string(kFixtureThreads[i]) + "\n");
    }
    writeFile(root + "/meminfo",
              "MemTotal:        7813772 kB\nMemFree:          512000 kB\n"
              "MemAvailable:    3145728 kB\n");
    atexit([] { removeTree(procRoot()); });
}

// Empties every store an input may fill. The proc roots are left alone: they are set once, and a
// target that points them elsewhere puts them back itself.
void emptyFuzzWorld() {
    host::HostProperties::clear();
    host::HostListService::clear();
    host::HostLog::clear();
    TavroVideoBoost::clearRequestsForTesting();
    TavroVideoBoost::setAvailableForTesting(true);
    TavroVideoBoost::setStatusForTesting(OK);
    TavroWhiteListCacheMgr::getInstance()->resetForTesting();
    IPCThreadState::self()->clearCallingIdentityForTesting();
    host::HostClock::useManual();  // every input starts at the same time
}

}  // namespace

void initFuzzWorld() {
    if (sInitialised) return;
    sInitialised = true;
    std::set_terminate(onTerminate);
    // TAVRO_FUZZ_STDERR=1 writes the lines to stderr too, to read what a crash input logged.
    const char* toStderr = getenv("TAVRO_FUZZ_STDERR");
    host::HostLog::setStderrPriority(
            toStderr != nullptr && toStderr[0] == '1' ? ANDROID_LOG_VERBOSE : ANDROID_LOG_SILENT);
    host::HostLog::setCapacity(64);
    host::HostEvents::setEnabled(false);
    host::HostEvents::clear();
    host::HostProperties::setRecordReads(false);
    host::HostListService::setRecordAsks(false);
    CCodec::setRecordCallsForTesting(false);
    makeProcFixture();
    setProcRootForTesting(procRoot());
    setProcessNameRootForTesting(procRoot());
    emptyFuzzWorld();
}

const std::string& fuzzProcRoot() {
    return procRoot();
}

void setFuzzLogLevel(const char* level) {
    host::HostProperties::set(named(kTavroLogLevelProperty), named(level));
}

FuzzInput::FuzzInput(FuzzedDataProvider& fdp, bool withPlatform)
    : FuzzInput(withPlatform,
                fdp.ConsumeIntegral<uint8_t>() == kDetailByte ? kFuzzLogDetailed : kFuzzLogQuiet) {}

// The world is empty here: initFuzzWorld left it so, and so did the previous input's end.
FuzzInput::FuzzInput(bool withPlatform, const char* logLevel) {
    if (withPlatform) {
        host::HostProperties::set(named(kPropHardware), named("qcom"));
        host::HostProperties::set(named(kPropDeviceFamily), named("SM8550"));
        host::HostProperties::set(named(kPropProjectName), named("fuzz"));
    }
    setFuzzLogLevel(logLevel);
}

FuzzInput::~FuzzInput() {
    emptyFuzzWorld();
}

void writeFile(const std::string& path, const std::string& bytes) {
    const int fd = ::open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
    if (fd < 0) return;
    for (size_t done = 0; done < bytes.size();) {
        const ssize_t n = ::write(fd, bytes.data() + done, bytes.size() - done);
        if (n <= 0) break;
        done += static_cast<size_t>(n);
    }
    ::close(fd);
}

void removeTree(const std::string& dir) {
    // Deepest first and without following links: remove() takes files and emptied directories.
    ::nftw(
            dir.c_str(),
            [](const char* path, const struct stat*, int, FTW*) { return ::remove(path); }, 16,
            FTW_DEPTH | FTW_PHYS);
}

std::string makeScratchDir(const char* name) {
    std::string dir = access("/dev/shm", W_OK) == 0 ? "/dev/shm/" : "/tmp/";
    dir += name;
    dir += "-XXXXXX";
    if (mkdtemp(&dir[0]) == nullptr) {
        fprintf(stderr, "==fuzz== cannot make %s\n", dir.c_str());
        abort();
    }
    return dir;
}

const std::string& named(const char* text) {
    // Never destroyed: the strings are handed out for the process's life.
    static auto* names = new std::unordered_map<const char*, std::string>();
    auto it = names->find(text);
    if (it == names->end()) it = names->emplace(text, text).first;
    return it->second;
}

bool areaFits(int32_t width, int32_t height) {
    int32_t area;
    return !__builtin_mul_overflow(width, height, &area);
}

std::string deliveredText(const std::string& text, size_t limit) {
    std::string cut(text.c_str());
    if (cut.size() > limit) cut.resize(limit);
    return cut;
}

bool boostInfoAreaFits(const std::string& boostInfo) {
    // An absent limit stays 0, and so does the area: only a text naming both can overflow, and
    // most texts name neither, so the parse is skipped for them.
    if (boostInfo.find(kBoostKeyLimitWidth) == std::string::npos ||
        boostInfo.find(kBoostKeyLimitHeight) == std::string::npos) {
        return true;
    }
    auto info = std::make_shared<MediaBoostInfo>();
    if (!parseBoostInfo(boostInfo, info)) return true;
    return areaFits(info->condition.limitWidth, info->condition.limitHeight);
}

}  // namespace fuzz
}  // namespace android
