// Host list service: answers ListServiceUtils queries from an in-memory store.
#include <tavro/ListServiceUtils.h>

#include <host/HostListService.h>

#include <atomic>
#include <cstring>
#include <map>
#include <set>
#include <string>
#include <string_view>
#include <tuple>
#include <vector>

namespace android {
namespace host {
namespace {

// An entry keeps its place and its value's storage once set: clear() only marks it unset, so that
// a store filled again with the same entries (a fuzzer's every input) allocates nothing.
struct Entry {
    std::string value;
    bool set = false;
};
// Transparent comparators: a query looks its list and key up without copying them.
using Table = std::map<std::string, std::map<std::string, Entry, std::less<>>, std::less<>>;

void setEntry(Table& table, const std::string& list, const std::string& key,
              const std::string& value) {
    Entry& entry = table[list][key];
    entry.value = value;
    entry.set = true;
}

void unsetAll(Table& table) {
    for (auto& list : table) {
        for (auto& entry : list.second) {
            entry.second.set = false;
            entry.second.value.clear();
        }
    }
}

struct ListState {
    std::mutex lock;
    Table byUid, byPid, byName, byActivity;
    std::map<int32_t, std::string> topActivity;  // -1: any process
    HostListService::Fault fault = HostListService::Fault::kNone;
    std::atomic<uint64_t> queries{0};
    std::set<std::tuple<std::string, HostListService::Key, std::string>> asked;
    std::vector<HostListService::Ask> asks;  // distinct, in first-asked order
    std::atomic<bool> recordAsks{true};
};

ListState& state() {
    static ListState* s = new ListState();
    return *s;
}

bool lookup(const Table& table, const char* list, const std::string& key, std::string* value) {
    if (list == nullptr) return false;
    auto l = table.find(std::string_view(list));
    if (l == table.end()) return false;
    auto v = l->second.find(key);
    if (v == l->second.end() || !v->second.set) return false;
    if (value != nullptr) *value = v->second.value;
    return true;
}

void noteAsk(const char* list, HostListService::Key key, const std::string& id) {
    ListState& s = state();
    if (!s.recordAsks.load(std::memory_order_relaxed)) return;
    std::lock_guard<std::mutex> guard(s.lock);
    auto entry = std::make_tuple(std::string(list != nullptr ? list : ""), key, id);
    if (s.asked.insert(entry).second) {
        s.asks.push_back({std::get<0>(entry), key, id});
    }
}

std::string activityOf(const ListState& s, int32_t pid) {
    auto it = s.topActivity.find(pid);
    if (it == s.topActivity.end()) it = s.topActivity.find(-1);
    return it == s.topActivity.end() ? std::string() : it->second;
}

// Shared tail of the value queries: applies the fault mode and copies the answer.
bool answer(const Table& table, const char* list, const std::string& key, char* out, size_t size) {
    ListState& s = state();
    s.queries.fetch_add(1, std::memory_order_relaxed);
    std::string value;
    HostListService::Fault fault;
    {
        std::lock_guard<std::mutex> guard(s.lock);
        fault = s.fault;
        if (fault == HostListService::Fault::kNoAnswer) return false;
        if (fault != HostListService::Fault::kGarbage && !lookup(table, list, key, &value)) {
            return false;
        }
    }
    if (out == nullptr || size == 0) return false;
    if (fault == HostListService::Fault::kGarbage) {
        for (size_t i = 0; i < size; ++i) out[i] = static_cast<char>((i * 37 + 11) & 0xFF);
        out[size - 1] = '\0';
        return true;
    }
    if (fault == HostListService::Fault::kUnterminated) {
        for (size_t i = 0; i < size; ++i) out[i] = value.empty() ? '7' : value[i % value.size()];
        return true;
    }
    size_t n = value.size() < size - 1 ? value.size() : size - 1;
    memcpy(out, value.data(), n);
    out[n] = '\0';
    return true;
}

bool member(const Table& table, const char* list, const std::string& key) {
    ListState& s = state();
    s.queries.fetch_add(1, std::memory_order_relaxed);
    std::lock_guard<std::mutex> guard(s.lock);
    if (s.fault == HostListService::Fault::kNoAnswer) return false;
    return lookup(table, list, key, nullptr);
}

}  // namespace

void HostListService::clear() {
    ListState& s = state();
    std::lock_guard<std::mutex> guard(s.lock);
    unsetAll(s.byUid);
    unsetAll(s.byPid);
    unsetAll(s.byName);
    unsetAll(s.byActivity);
    s.topActivity.clear();
    s.fault = Fault::kNone;
    s.asked.clear();
    s.asks.clear();
}

void HostListService::setByUid(const std::string& list, int64_t uid, const std::string& value) {
    std::lock_guard<std::mutex> guard(state().lock);
    setEntry(state().byUid, list, std::to_string(uid), value);
}

void HostListService::setByPid(const std::string& list, int64_t pid, const std::string& value) {
    std::lock_guard<std::mutex> guard(state().lock);
    setEntry(state().byPid, list, std::to_string(pid), value);
}

void HostListService::setByName(const std::string& list, const std::string& name,
                                const std::string& value) {
    std::lock_guard<std::mutex> guard(state().lock);
    setEntry(state().byName, list, name, value);
}

void HostListService::setByActivity(const std::string& list, const std::string& activity,
                                    const std::string& value) {
    std::lock_guard<std::mutex> guard(state().lock);
    setEntry(state().byActivity, list, activity, value);
}

void HostListService::setTopActivity(int32_t pid, const std::string& activity) {
    std::lock_guard<std::mutex> guard(state().lock);
    state().topActivity[pid] = activity;
}

std::string HostListService::topActivity(int32_t pid) {
    std::lock_guard<std::mutex> guard(state().lock);
    return activityOf(state(), pid);
}

void HostListService::setFault(Fault fault) {
    std::lock_guard<std::mutex> guard(state().lock);
    state().fault = fault;
}

uint64_t HostListService::queryCount() {
    return state().queries.load(std::memory_order_relaxed);
}

std::vector<HostListService::Ask> HostListService::asks() {
    std::lock_guard<std::mutex> guard(state().lock);
    return state().asks;
}

void HostListService::setRecordAsks(bool record) {
    state().recordAsks.store(record, std::memory_order_relaxed);
}

}  // namespace host

std::mutex ListServiceUtils::sLock;
ListServiceUtils* ListServiceUtils::sInstance = nullptr;

ListServiceUtils* ListServiceUtils::getInstance() {
    std::lock_guard<std::mutex> guard(sLock);
    if (sInstance == nullptr) sInstance = new ListServiceUtils();
    return sInstance;
}

bool ListServiceUtils::checkInListByUid(const char* listName, int64_t uid, int32_t) {
    host::noteAsk(listName, host::HostListService::Key::kUid, std::to_string(uid));
    return host::member(host::state().byUid, listName, std::to_string(uid));
}

bool ListServiceUtils::checkInListByPid(const char* listName, int64_t pid, int32_t) {
    host::noteAsk(listName, host::HostListService::Key::kPid, std::to_string(pid));
    return host::member(host::state().byPid, listName, std::to_string(pid));
}

bool ListServiceUtils::getListValueByUid(const char* listName, int64_t uid, char* value,
                                         size_t size) {
    host::noteAsk(listName, host::HostListService::Key::kUid, std::to_string(uid));
    return host::answer(host::state().byUid, listName, std::to_string(uid), value, size);
}

bool ListServiceUtils::getListValueByPid(const char* listName, int64_t pid, char* value,
                                         size_t size) {
    host::noteAsk(listName, host::HostListService::Key::kPid, std::to_string(pid));
    return host::answer(host::state().byPid, listName, std::to_string(pid), value, size);
}

bool ListServiceUtils::getListValueByName(const char* listName, const char* name, char* value,
                                          size_t size) {
    host::noteAsk(listName, host::HostListService::Key::kName, name ? name : "");
    return host::answer(host::state().byName, listName, name ? name : "", value, size);
}

bool ListServiceUtils::getListValueByTopActivity(const char* listName, int32_t pid, char* value,
                                                 size_t size) {
    std::string activity;
    {
        std::lock_guard<std::mutex> guard(host::state().lock);
        activity = host::activityOf(host::state(), pid);
    }
    host::noteAsk(listName, host::HostListService::Key::kActivity, activity);
    if (activity.empty()) {
        host::state().queries.fetch_add(1, std::memory_order_relaxed);
        return false;
    }
    return host::answer(host::state().byActivity, listName, activity, value, size);
}

}  // namespace android
