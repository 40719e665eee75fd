// Host log: liblog's output taken through its logger hook, as brief-form lines on stderr and a
// bounded in-memory sink. Fatal checks go through liblog's own __android_log_assert, which hands
// the record to the hook before its aborter ends the process.
#include <android/log.h>
#include <log/log.h>

#include <host/HostLog.h>

#include <sys/syscall.h>
#include <unistd.h>

#include <cstdio>
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
        // Fatal lines always reach stderr, whatever the configured priority.
        toStderr = record.priority >= s.stderrPriority || record.priority >= ANDROID_LOG_FATAL;
        listener = s.listener;
        if (s.capacity > 0) {
            if (s.records.size() >= s.capacity) s.records.pop_front();
            // The sink's copy is the last use unless stderr or a listener still reads it.
            if (toStderr || listener) {
                s.records.push_back(record);
            } else {
                s.records.push_back(std::move(record));
            }
        }
    }
    if (toStderr) {
        std::string line = HostLog::format(record);
        line.push_back('\n');
        fwrite(line.data(), 1, line.size(), stderr);
    }
    if (listener) listener(record);
}

void hostLogger(const __android_logger_data* data, const char* message) {
    LogRecord record;
    record.priority = data->priority;
    record.tag = data->tag != nullptr ? data->tag : "";
    record.message = message != nullptr ? message : "";
    record.pid = static_cast<int>(getpid());
    record.tid = static_cast<int>(syscall(SYS_gettid));
    emit(std::move(record));
}

// Every line reaches the hook: HostLog filters what goes to stderr. Without the minimum
// priority, host liblog drops lines below INFO before any logger sees them.
int installLogger() {
    __android_log_set_logger(hostLogger);
    __android_log_set_minimum_priority(ANDROID_LOG_VERBOSE);
    return 1;
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

// Installed before main(); the build makes every program take this object from the archive.
extern "C" const int tavro_host_log_installed = android::host::installLogger();
