// Host log: brief-form lines on stderr and a bounded in-memory sink.
#include <log/log.h>

#include <host/HostLog.h>

#include <sys/syscall.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <deque>
#include <mutex>

namespace android {
namespace host {
namespace {

struct LogState {
    std::mutex lock;
    std::deque<LogRecord> records;
    size_t capacity = 65536;
    int stderrPriority = ANDROID_LOG_VERBOSE;
    std::function<void(const LogRecord&)> listener;
};

LogState& state() {
    static LogState* s = new LogState();  // never destroyed: logging may happen at exit
    return *s;
}

char priorityLetter(int priority) {
    switch (priority) {
        case ANDROID_LOG_VERBOSE:
            return 'V';
        case ANDROID_LOG_DEBUG:
            return 'D';
        case ANDROID_LOG_INFO:
            return 'I';
        case ANDROID_LOG_WARN:
            return 'W';
        case ANDROID_LOG_ERROR:
            return 'E';
        case ANDROID_LOG_FATAL:
            return 'F';
        default:
            return '?';
    }
}

void emit(LogRecord record) {
    LogState& s = state();
    std::function<void(const LogRecord&)> listener;
    bool toStderr;
    {
        std::lock_guard<std::mutex> guard(s.lock);
        toStderr = record.priority >= s.stderrPriority;
        listener = s.listener;
        if (s.capacity > 0) {
            if (s.records.size() >= s.capacity) s.records.pop_front();
            s.records.push_back(record);
        }
    }
    if (toStderr) {
        std::string line = HostLog::format(record);
        line.push_back('\n');
        fwrite(line.data(), 1, line.size(), stderr);
    }
    if (listener) listener(record);
}

LogRecord makeRecord(int prio, const char* tag, const char* fmt, va_list ap) {
    LogRecord record;
    record.priority = prio;
    record.tag = tag ? tag : "";
    record.pid = static_cast<int>(getpid());
    record.tid = static_cast<int>(syscall(SYS_gettid));
    if (fmt != nullptr) {
        va_list copy;
        va_copy(copy, ap);
        char small[512];
        int n = vsnprintf(small, sizeof(small), fmt, copy);
        va_end(copy);
        if (n >= 0 && static_cast<size_t>(n) < sizeof(small)) {
            record.message.assign(small, static_cast<size_t>(n));
        } else if (n >= 0) {
            record.message.resize(static_cast<size_t>(n) + 1);
            vsnprintf(&record.message[0], record.message.size(), fmt, ap);
            record.message.resize(static_cast<size_t>(n));
        }
    }
    return record;
}

}  // namespace

void HostLog::setStderrPriority(int minPriority) {
    std::lock_guard<std::mutex> guard(state().lock);
    state().stderrPriority = minPriority;
}

void HostLog::setCapacity(size_t capacity) {
    std::lock_guard<std::mutex> guard(state().lock);
    state().capacity = capacity;
    while (state().records.size() > capacity) state().records.pop_front();
}

std::vector<LogRecord> HostLog::records() {
    std::lock_guard<std::mutex> guard(state().lock);
    return std::vector<LogRecord>(state().records.begin(), state().records.end());
}

std::vector<LogRecord> HostLog::find(const std::string& needle, const std::string& tag) {
    std::vector<LogRecord> out;
    std::lock_guard<std::mutex> guard(state().lock);
    for (const LogRecord& r : state().records) {
        if ((tag.empty() || r.tag == tag) && r.message.find(needle) != std::string::npos) {
            out.push_back(r);
        }
    }
    return out;
}

size_t HostLog::count(const std::string& needle, const std::string& tag) {
    return find(needle, tag).size();
}

void HostLog::clear() {
    std::lock_guard<std::mutex> guard(state().lock);
    state().records.clear();
}

void HostLog::setListener(std::function<void(const LogRecord&)> listener) {
    std::lock_guard<std::mutex> guard(state().lock);
    state().listener = std::move(listener);
}

std::string HostLog::format(const LogRecord& record) {
    char head[128];
    snprintf(head, sizeof(head), "%c/%s(%5d): ", priorityLetter(record.priority),
             record.tag.c_str(), record.pid);
    return head + record.message;
}

}  // namespace host
}  // namespace android

using android::host::emit;
using android::host::makeRecord;

extern "C" int __android_log_vprint(int prio, const char* tag, const char* fmt, va_list ap) {
    emit(makeRecord(prio, tag, fmt, ap));
    return 1;
}

extern "C" int __android_log_print(int prio, const char* tag, const char* fmt, ...) {
    va_list ap;
    va_start(ap, fmt);
    int rc = __android_log_vprint(prio, tag, fmt, ap);
    va_end(ap);
    return rc;
}

extern "C" void __android_log_assert(const char* cond, const char* tag, const char* fmt, ...) {
    va_list ap;
    va_start(ap, fmt);
    android::host::LogRecord record = makeRecord(ANDROID_LOG_FATAL, tag, fmt, ap);
    va_end(ap);
    if (record.message.empty() && cond != nullptr) {
        record.message = std::string("Assertion failed: ") + cond;
    }
    // The listener sees the fatal record before the process stops (tavro-sim writes out what it
    // holds and names the check).
    std::function<void(const android::host::LogRecord&)> listener;
    {
        std::lock_guard<std::mutex> guard(android::host::state().lock);
        listener = android::host::state().listener;
    }
    if (listener) listener(record);
    // Fatal lines always reach stderr, whatever the configured priority.
    std::string line = android::host::HostLog::format(record) + "\n";
    fwrite(line.data(), 1, line.size(), stderr);
    fflush(stderr);
    abort();
}
