// Host-only control of the platform log: where lines go, and the in-memory sink that tests and the
// scenario runner read. Every line written through liblog (Debian's host build) arrives here by
// liblog's logger hook, installed before main(). Not part of the device API; the library never
// includes it.
#pragma once

#include <cstddef>
#include <functional>
#include <string>
#include <vector>

namespace android {
namespace host {

struct LogRecord {
    int priority = 0;  // android_LogPriority
    std::string tag;
    std::string message;
    int pid = 0;
    int tid = 0;
};

class HostLog {
  public:
    // Lines at or above this priority are written to stderr in logcat's brief form
    // ("W/TavroCCodec( 1234): text"). ANDROID_LOG_SILENT turns stderr output off.
    static void setStderrPriority(int minPriority);

    // The sink keeps the newest `capacity` records (default 65536); 0 turns capture off.
    static void setCapacity(size_t capacity);
    static std::vector<LogRecord> records();
    // Records whose message contains `needle` (and, when `tag` is non-empty, carry that tag).
    static std::vector<LogRecord> find(const std::string& needle, const std::string& tag = "");
    static size_t count(const std::string& needle, const std::string& tag = "");
    static void clear();

    // Called for every record, outside the sink's lock, a fatal one too (before the process
    // stops); pass an empty function to remove.
    static void setListener(std::function<void(const LogRecord&)> listener);

    // The brief form of one record, without the trailing newline.
    static std::string format(const LogRecord& record);
};

}  // namespace host
}  // namespace android
