// The controllable host clock and systemTime().
#include <host/HostClock.h>
#include <utils/Timers.h>

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

nsecs_t systemTime(int clock) {
    using android::host::HostClock;
    switch (clock) {
        case SYSTEM_TIME_REALTIME:
            return android::host::readClock(CLOCK_REALTIME);
        case SYSTEM_TIME_MONOTONIC:
            return HostClock::now();
        case SYSTEM_TIME_PROCESS:
            return android::host::readClock(CLOCK_PROCESS_CPUTIME_ID);
        case SYSTEM_TIME_THREAD:
            return android::host::readClock(CLOCK_THREAD_CPUTIME_ID);
        case SYSTEM_TIME_BOOTTIME:
            return HostClock::isManual() ? HostClock::now()
                                         : android::host::readClock(CLOCK_BOOTTIME);
        default:
            return 0;
    }
}
