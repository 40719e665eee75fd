// Process-wide record of host events: a vector under one lock, plus an optional listener that
// sees every event (the scenario runner prints through it).
#include <host/HostEvents.h>

#include <atomic>
#include <mutex>

namespace android {
namespace host {
namespace {

struct EventStore {
    std::mutex lock;
    std::vector<HostEvent> events;                   // guarded by lock
    std::function<void(const HostEvent&)> listener;  // guarded by lock
    std::atomic<bool> enabled{true};
    std::atomic<bool> hasListener{false};
};

// Never destroyed: events may still be recorded by objects torn down at process exit.
EventStore& store() {
    static EventStore* s = new EventStore();
    return *s;
}

}  // namespace

std::string HostEvent::field(const std::string& key) const {
    for (const auto& entry : fields) {
        if (entry.first == key) return entry.second;
    }
    return std::string();
}

void HostEvents::record(HostEvent event) {
    EventStore& s = store();
    std::function<void(const HostEvent&)> listener;
    {
        std::lock_guard<std::mutex> guard(s.lock);
        listener = s.listener;
        if (s.enabled.load(std::memory_order_relaxed)) s.events.push_back(event);
    }
    // The listener may record or read events itself: it runs outside the lock.
    if (listener) listener(event);
}

std::vector<HostEvent> HostEvents::all() {
    EventStore& s = store();
    std::lock_guard<std::mutex> guard(s.lock);
    return s.events;
}

std::vector<HostEvent> HostEvents::ofKind(const std::string& kind) {
    EventStore& s = store();
    std::vector<HostEvent> out;
    std::lock_guard<std::mutex> guard(s.lock);
    for (const HostEvent& e : s.events) {
        if (e.kind == kind) out.push_back(e);
    }
    return out;
}

std::vector<HostEvent> HostEvents::named(const std::string& kind, const std::string& name) {
    EventStore& s = store();
    std::vector<HostEvent> out;
    std::lock_guard<std::mutex> guard(s.lock);
    for (const HostEvent& e : s.events) {
        if (e.kind == kind && e.name == name) out.push_back(e);
    }
    return out;
}

void HostEvents::clear() {
    EventStore& s = store();
    std::lock_guard<std::mutex> guard(s.lock);
    s.events.clear();
}

void HostEvents::setEnabled(bool enabled) {
    store().enabled.store(enabled, std::memory_order_relaxed);
}

bool HostEvents::wanted() {
    const EventStore& s = store();
    return s.enabled.load(std::memory_order_relaxed) ||
           s.hasListener.load(std::memory_order_relaxed);
}

void HostEvents::setListener(std::function<void(const HostEvent&)> listener) {
    EventStore& s = store();
    std::function<void(const HostEvent&)> old;
    {
        std::lock_guard<std::mutex> guard(s.lock);
        old.swap(s.listener);
        s.listener = std::move(listener);
        s.hasListener.store(static_cast<bool>(s.listener), std::memory_order_relaxed);
    }
    // The previous listener's captures are released outside the lock.
}

}  // namespace host
}  // namespace android
