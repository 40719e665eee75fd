// TavroSessionRecorder: writes the session one codec lives as a tavro-sim scenario (scenario
// format 1), so that a field report can be replayed on a laptop with the same decisions. Off unless
// the debug property "debug.tavro.video.record" names an absolute directory when the codec is
// constructed; TavroCCodec then owns one recorder and hands it to its buffer channel.
//
// What goes in: the events at the codec's own entry points with their clock times (allocate,
// configure with the format as received, start, input, output with the infos the codec reads,
// render, discard, set_parameters, flush, resume, shutdown, destroy) and everything the library
// consumed from outside the codec (properties, list-service answers, /proc reads, the binder
// caller, the analysis object's answers), reported through TavroRecordTap. Timer firings are not
// written: a replay re-derives them from the clock.
//
// Cost: nothing runs on the frame path but a copy of a few fixed-size fields into one of two
// preallocated buffers under a lock held for the copy; a background writer (one thread for the
// process) turns the records into JSON and writes them. When the buffers are full or the size cap
// ("debug.tavro.video.record.max_kb", default 8 MiB of events) is reached, frames stop being
// recorded for good and the file says so; lifecycle events still are. A failing disk ends the
// recording, never a frame or a codec operation. After every write the file is a complete scenario:
// the events, then the world the library read, rewritten behind them.
//
// Files: <dir>/<component>-<pid>-<n>.json, mode 0600, the component sanitized to [A-Za-z0-9._-],
// created with O_EXCL | O_NOFOLLOW relative to the directory opened at construction, so nothing is
// written outside it and a link planted at the name is never followed.
#pragma once

#include <stddef.h>
#include <stdint.h>

#include <atomic>
#include <list>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <tuple>
#include <vector>

#include <C2Param.h>
#include <C2Work.h>
#include <media/stagefright/foundation/AMessage.h>
#include <utils/Condition.h>
#include <utils/Mutex.h>
#include <utils/RefBase.h>

#include "common/TavroRecordTap.h"

namespace android {

// ---- Properties and limits -------------------------------------------------------------------
constexpr char kPropRecordDir[] = "debug.tavro.video.record";
constexpr char kPropRecordMaxKb[] = "debug.tavro.video.record.max_kb";
constexpr int64_t kRecordMaxKbDefault = 8192;
// Each of the two event buffers. A frame record is 24 to 56 bytes (more with HDR metadata or
// configUpdate records), so one buffer holds seconds of 120 fps while the writer is behind.
constexpr size_t kRecordBufferBytes = 256 * 1024;
// Frames may fill a buffer up to this much short of its end; the rest is kept for lifecycle
// events, so that a recording whose frames stopped still ends with its shutdown and destroy.
constexpr size_t kRecordLifecycleReserve = 32 * 1024;
// Bytes of one HDR10+ blob or one configUpdate payload kept per record (the codec reads a few).
constexpr size_t kRecordInfoMaxBytes = 4096;
// How much of the world (properties, lists, /proc) one recording keeps.
constexpr size_t kRecordWorldMaxBytes = 64 * 1024;
// The clock a scenario starts at (tavro-sim's manual clock starts at 1000 s): render times are
// written on it, moved by the same offset as the event times.
constexpr int64_t kRecordClockOriginNs = 1000000000000;
// Names the recording gives what the library never saw: the top activity the list service
// resolves itself, and a process name nothing read.
constexpr char kRecordTopActivity[] = "(top activity)";
constexpr char kRecordUnreadProcessName[] = "(not read)";

// Log texts (tag "TavroSessionRecorder").
constexpr char kLogRecordRefused[] = "%s='%s' refused (%s): not recording";
constexpr char kLogRecordStarted[] = "recording the session into %s";
constexpr char kLogRecordFailed[] = "recording stopped: %s";

class TavroSessionRecorder final : public TavroRecordTap {
  public:
    // Reads "debug.tavro.video.record" (and the cap): null when it is unset, or refused with one
    // warning when it is not an absolute path of a writable directory without "..". Any thread.
    static std::shared_ptr<TavroSessionRecorder> createFromProperties();
    // The same for a given directory and cap in bytes of events (tests, benchmarks).
    static std::shared_ptr<TavroSessionRecorder> create(const std::string& dir,
                                                        int64_t maxEventBytes);
    ~TavroSessionRecorder();
    TavroSessionRecorder(const TavroSessionRecorder&) = delete;
    TavroSessionRecorder& operator=(const TavroSessionRecorder&) = delete;

    // ---- Lifecycle events (callers' threads and the looper; they may allocate) -------------
    // The component name names the file, which is created by the writer once it is known.
    void onAllocate(const char* component);
    void onConfigure(const sp<AMessage>& format);
    void onStart();
    void onSetParameters(const sp<AMessage>& params);
    void onFlush();
    void onResume();
    void onShutdown(bool keepAllocated);
    // The codec is going away: the last event. The writer finishes the file in the background;
    // nothing is recorded after this. Never waits for the disk.
    void onDestroy();

    // ---- Frame events (buffer threads): no allocation, no I/O, no call out -----------------
    // `ptsUs` is the buffer's "timeUs" (0 without one), `renderNs` the display time.
    void onInput(int64_t ptsUs, int32_t bytes, bool secure);
    // One finished work as the codec saw it. `colorAspects`/`hdr10Plus`: the infos the codec's
    // HDR check read from this work's buffer (null when it read none).
    void onOutput(const C2Work& work, const C2Info* colorAspects, const C2Info* hdr10Plus);
    void onRender(int64_t ptsUs, int64_t renderNs);
    void onDiscard(int64_t ptsUs);

    // ---- Answers of the codec's own sources ---------------------------------------------
    void onCaller(int64_t uid, int64_t pid);
    void onScanType(int32_t scanType);  // frame path: lock-free
    void onFpsUseCount(int64_t count);

    // ---- TavroRecordTap (any thread with this recorder's scope installed) -------------------
    void onProperty(const char* key, const char* value, bool cached) override;
    void onListAnswer(const char* list, TavroListAsk ask, int64_t id, const char* name,
                      TavroListReply reply, const char* value, size_t valueSize,
                      bool cached) override;
    void onProcessName(int32_t pid, bool found, const char* name) override;
    void onThreadName(int32_t pid, int32_t tid, const char* name) override;
    void onMemAvailable(bool found, int64_t kb) override;

    // ---- Test hooks (process-wide) ----------------------------------------------------------
    // Producers wait for the writer instead of dropping frames when the buffers are full: a
    // host program that plays faster than real time records every frame.
    static void setLosslessForTesting(bool lossless);
    // Each event returns only once the writer has written it: the file grows one event at a
    // time, so a fault test knows which write fails. Slow; never with a held writer.
    static void setSynchronousForTesting(bool synchronous);
    // The most bytes a recording file may hold: a write past it writes what fits, then fails
    // with ENOSPC, as a full disk does. Negative: no limit.
    static void setDiskSpaceForTesting(int64_t bytes);
    // While held, the writer stops inside its next flush, after it took the events and before it
    // writes them. waitUntilWriterHeldForTesting returns true once it is stopped there.
    static void holdWriterForTesting(bool hold);
    static bool waitUntilWriterHeldForTesting();
    // Waits until every recording of the process has been finished by the writer (their codecs
    // destroyed); false after 60 s.
    static bool waitForWritersForTesting();
    // How many recordings their codecs have ended so far (onDestroy returned), and a wait for the
    // count to reach `count` (false after 60 s).
    static uint64_t closedCountForTesting();
    static bool waitForClosedCountForTesting(uint64_t count);

  private:
    // The records producers append and the writer reads: this header, then the payload without
    // padding, both read and written with memcpy.
    enum class RecordKind : uint8_t {
        kText,           // a lifecycle event, already its JSON object
        kInput,          // int64 pts, int32 bytes; flag kFlagSecure
        kOutput,         // see onOutput
        kRender,         // int64 pts, int64 render time
        kDiscard,        // int64 pts
        kFramesStopped,  // a producer dropped a frame: no frame after this one is kept
    };
    struct RecordHeader {
        uint32_t size;  // header included
        uint8_t kind;
        uint8_t flags;
        uint16_t reserved;
        int64_t clockNs;
    };
    static_assert(sizeof(RecordHeader) == 16, "record header layout");
    static constexpr uint8_t kFlagSecure = 1;

    // The world the library read, as the file's sections after the events will hold it.
    struct World {
        static constexpr size_t kMaxNotes = 16;  // notes kept for the comment; the rest counted
        struct Property {
            bool set = false;
            std::string value;
        };
        struct ListKey {
            TavroListAsk ask;
            int64_t id;
            std::string name;
            bool operator<(const ListKey& o) const {
                return std::tie(ask, id, name) < std::tie(o.ask, o.id, o.name);
            }
        };
        struct ListAnswer {
            TavroListReply reply = TavroListReply::kNone;
            std::string value;
        };
        std::string component;
        std::map<std::string, Property> properties;
        std::map<std::string, std::map<ListKey, ListAnswer>> lists;
        bool topActivityAsked = false;
        std::optional<std::string> processName;
        std::vector<std::pair<int32_t, std::string>> threads;  // in the order they were read
        std::map<int32_t, std::string> processes;
        std::optional<int64_t> memAvailableKb;
        bool memAsked = false;
        std::optional<std::pair<int64_t, int64_t>> caller;  // uid, pid
        std::optional<int64_t> fpsUseCount;
        std::set<std::string> noted;  // dedupes notes
        std::vector<std::string> notes;
        int moreNotes = 0;
        size_t bytes = 0;  // roughly what the tables hold
        bool full = false;

        bool take(size_t size) {
            if (bytes + size > kRecordWorldMaxBytes) {
                full = true;
                return false;
            }
            bytes += size;
            return true;
        }
        void note(const std::string& text) {
            if (!noted.insert(text).second) return;
            if (notes.size() < kMaxNotes) {
                notes.push_back(text);
            } else {
                ++moreNotes;
            }
        }
    };
    struct FileState;

    TavroSessionRecorder(int dirFd, const std::string& dir, int64_t maxEventBytes);

    // Appends one record of `payloadSize` bytes that `fill` writes; false when it was not kept.
    template <typename Fill>
    bool append(RecordKind kind, bool lifecycle, size_t payloadSize, Fill&& fill);
    bool appendText(RecordKind kind, const std::string& json);

    // ---- The process's writer (TavroSessionRecorderWriter.cpp) ------------------------------
    static void startWriting(const std::shared_ptr<TavroSessionRecorder>& recorder);
    static void wakeWriter();
    static void writerNoteClosed();
    // A format or parameter message as a scenario writes it; entries of other types are named in
    // `dropped`, and `lossy` set when a string was not UTF-8.
    static std::string typedMessageJson(const sp<AMessage>& msg, std::string* dropped, bool* lossy);
    void note(const std::string& text);
    // Logs a writer failure on the codec's thread (the writer never logs while a codec lives).
    void logPendingWarning();

    // ---- Writer thread only ---------------------------------------------------------------
    friend class TavroRecordWriter;
    // Takes what the producers buffered, encodes and writes it; true when the recording is over
    // and its file finished (or abandoned).
    bool flushOnWriter();
    void encodeRecords(const uint8_t* data, size_t size);
    void encodeOne(RecordKind kind, int64_t clockNs, uint8_t flags, const uint8_t* p, size_t n);
    void beginEvent(int64_t clockNs);
    std::string worldJson();
    bool openFile();
    bool writeOut();
    void abandon(const char* why, int error);

    const int mDirFd;
    const std::string mDir;
    const int64_t mMaxEventBytes;
    const int64_t mStartNs;
    const int32_t mPid;
    const int64_t mUid;

    // Producer side: two buffers, the active one filled under mBufLock, the other one the
    // writer's.
    Mutex mBufLock;
    Condition mBufSpace;  // the writer emptied a buffer (lossless producers)
    std::unique_ptr<uint8_t[]> mBuf[2];
    size_t mUsed[2] GUARDED_BY(mBufLock) = {0, 0};
    int mActive GUARDED_BY(mBufLock) = 0;
    bool mClosed GUARDED_BY(mBufLock) = false;    // destroy recorded, nothing more is taken
    std::string mWarning GUARDED_BY(mBufLock);    // a writer failure not logged yet
    uint64_t mAppended GUARDED_BY(mBufLock) = 0;  // records appended so far
    uint64_t mTaken GUARDED_BY(mBufLock) = 0;     // records the writer took so far
    uint64_t mWritten GUARDED_BY(mBufLock) = 0;   // records the writer has written out
    std::atomic<bool> mWarningPending{false};
    // Set once frames are no longer recorded (buffers full, size cap, disk failure); read on
    // the frame path without the lock.
    std::atomic<bool> mFramesStopped{false};
    // Set once nothing is recorded any more (disk failure, an event too large).
    std::atomic<bool> mDead{false};
    // Scan type: the first value read (INT64_MIN: none yet) and whether another one was read.
    std::atomic<int64_t> mScanType{INT64_MIN};
    std::atomic<bool> mScanTypeChanged{false};

    Mutex mWorldLock;
    std::unique_ptr<World> mWorld GUARDED_BY(mWorldLock);

    std::unique_ptr<FileState> mFile;  // the writer thread's alone
};

}  // namespace android
