// The controllable host clock and systemTime().
#define LOG_TAG "HostClock"

#include <host/HostClock.h>
#include <log/log.h>
#include <utils/Timers.h>

#include <dlfcn.h>
#include <time.h>

#include <atomic>
#include <map>
#include <mutex>

namespace android {
namespace host {
namespace {

std::atomic<bool> sManual{false};
std::atomic<int64_t> sManualNowNs{HostClock::kDefaultManualStartNs};

struct Listeners {
    std::mutex lock;
    std::map<int, std::function<void()>> callbacks;
    int nextId = 1;
};

Listeners& listeners() {
    static Listeners* l = new Listeners();
    return *l;
}

void notifyListeners() {
    Listeners& l = listeners();
    std::lock_guard<std::mutex> guard(l.lock);
    for (auto& entry : l.callbacks) entry.second();
}

int64_t readClock(clockid_t id) {
    struct timespec ts;
    if (clock_gettime(id, &ts) != 0) return 0;
    return static_cast<int64_t>(ts.tv_sec) * 1000000000LL + ts.tv_nsec;
}

}  // namespace

void HostClock::useManual(int64_t startNs) {
    sManualNowNs.store(startNs);
    sManual.store(true);
    notifyListeners();
}

void HostClock::useReal() {
    sManual.store(false);
    notifyListeners();
}

bool HostClock::isManual() {
    return sManual.load();
}

int64_t HostClock::now() {
    if (sManual.load()) return sManualNowNs.load();
    return readClock(CLOCK_MONOTONIC);
}

bool HostClock::advance(int64_t deltaNs) {
    if (!sManual.load()) return false;
    if (deltaNs > 0) sManualNowNs.fetch_add(deltaNs);
    notifyListeners();
    return true;
}

int HostClock::addListener(std::function<void()> listener) {
    Listeners& l = listeners();
    std::lock_guard<std::mutex> guard(l.lock);
    int id = l.nextId++;
    l.callbacks.emplace(id, std::move(listener));
    return id;
}

void HostClock::removeListener(int id) {
    Listeners& l = listeners();
    std::lock_guard<std::mutex> guard(l.lock);
    l.callbacks.erase(id);
}

}  // namespace host
}  // namespace android

// libutils' systemTime(), taken over by this definition (the program's own symbol comes before the
// shared library's) so that the manual clock drives the monotonic and boot-time clocks the library
// reads. Every other case is answered by libutils itself.
extern "C" nsecs_t systemTime(int clock) {
    using android::host::HostClock;
    if ((clock == SYSTEM_TIME_MONOTONIC || clock == SYSTEM_TIME_BOOTTIME) &&
        HostClock::isManual()) {
        return HostClock::now();
    }
    using SystemTimeFn = nsecs_t (*)(int);
    static const SystemTimeFn libutilsSystemTime =
            reinterpret_cast<SystemTimeFn>(dlsym(RTLD_NEXT, "systemTime"));
    LOG_ALWAYS_FATAL_IF(libutilsSystemTime == nullptr, "libutils' systemTime not found: %s",
                        dlerror());
    return libutilsSystemTime(clock);
}
