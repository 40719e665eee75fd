#define LOG_TAG "TavroSessionRecorder"
// The writer side of TavroSessionRecorder: one thread for the process takes what the codecs'
// recorders buffered, turns the records into scenario JSON and writes each file, events first and
// the world the library read behind them, rewritten after every write so that the file is always a
// complete scenario.
#include "sfplugin/TavroSessionRecorder.h"

#include <ctype.h>
#include <errno.h>
#include <fcntl.h>
#include <inttypes.h>
#include <math.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <sys/types.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <thread>

#include <cutils/properties.h>
#include <log/log.h>
#include <media/stagefright/foundation/AString.h>
#include <utils/Timers.h>

#include "common/TavroLog.h"

namespace android {

namespace {

constexpr int64_t kMaxAdvanceUs = 86400LL * 1000000;  // the most one advance event may move
constexpr int64_t kMaxTimeUs = INT64_MAX / 1000;      // the scenario's range of times in µs
constexpr int64_t kMaxUid = 4294967295LL;

// Reads a record's payload; reading past its end gives zeroes.
struct Input {
    const uint8_t* p;
    const uint8_t* end;
    template <typename T>
    T get() {
        T v{};
        if (static_cast<size_t>(end - p) >= sizeof(v)) memcpy(&v, p, sizeof(v));
        p += sizeof(v);
        return v;
    }
    const uint8_t* take(size_t n) {
        const uint8_t* at = p;
        p += std::min(n, static_cast<size_t>(end > p ? end - p : 0));
        return at;
    }
};

// ---- JSON ------------------------------------------------------------------------------------

void appendInt(std::string* out, int64_t v) {
    char text[24];
    snprintf(text, sizeof(text), "%" PRId64, v);
    *out += text;
}

// A JSON string. Bytes that are not UTF-8 become U+FFFD (`*lossy` set): JSON cannot carry them.
void appendString(std::string* out, const char* s, size_t n, bool* lossy = nullptr) {
    static const char kHex[] = "0123456789abcdef";
    out->push_back('"');
    for (size_t i = 0; i < n;) {
        const uint8_t c = static_cast<uint8_t>(s[i]);
        if (c == '"' || c == '\\') {
            out->push_back('\\');
            out->push_back(static_cast<char>(c));
        } else if (c < 0x20) {
            *out += "\\u00";
            out->push_back(kHex[c >> 4]);
            out->push_back(kHex[c & 0xF]);
        } else if (c < 0x80) {
            out->push_back(static_cast<char>(c));
        } else {
            // Length and lowest code point of the sequence this byte starts; then its checks.
            size_t len = c >= 0xF0 ? 4 : c >= 0xE0 ? 3 : c >= 0xC2 ? 2 : 0;
            uint32_t cp = len == 4 ? c & 0x07u : len == 3 ? c & 0x0Fu : c & 0x1Fu;
            bool ok = len > 0 && c <= 0xF4 && i + len <= n;
            for (size_t k = 1; ok && k < len; ++k) {
                const uint8_t cc = static_cast<uint8_t>(s[i + k]);
                ok = (cc & 0xC0) == 0x80;
                cp = (cp << 6) | (cc & 0x3Fu);
            }
            ok = ok && !(len == 3 && cp < 0x800) &&
                 !(len == 4 && (cp < 0x10000 || cp > 0x10FFFF)) && !(cp >= 0xD800 && cp <= 0xDFFF);
            if (ok) {
                out->append(s + i, len);
                i += len;
                continue;
            }
            *out += "\\ufffd";
            if (lossy != nullptr) *lossy = true;
        }
        ++i;
    }
    out->push_back('"');
}

void appendString(std::string* out, const std::string& s, bool* lossy = nullptr) {
    appendString(out, s.data(), s.size(), lossy);
}

void appendHex(std::string* out, const uint8_t* data, size_t n) {
    static const char kHex[] = "0123456789abcdef";
    out->push_back('"');
    for (size_t i = 0; i < n; ++i) {
        out->push_back(kHex[data[i] >> 4]);
        out->push_back(kHex[data[i] & 0xF]);
    }
    out->push_back('"');
}

// The shortest decimal text that reads back as exactly `f` (through a double, as the loader
// reads it). False for NaN and infinities, which JSON has no number for.
bool appendFloat(std::string* out, float f) {
    if (!isfinite(f)) return false;
    char text[48];
    if (f == 0) {
        *out += signbit(f) ? "-0.0" : "0";
        return true;
    }
    if (f == truncf(f) && fabsf(f) < 1e15f) {
        snprintf(text, sizeof(text), "%.0f", static_cast<double>(f));
        *out += text;
        return true;
    }
    for (int precision = 1; precision <= 17; ++precision) {
        snprintf(text, sizeof(text), "%.*g", precision, static_cast<double>(f));
        if (static_cast<float>(strtod(text, nullptr)) == f) break;
    }
    *out += text;
    return true;
}

// ---- Files -----------------------------------------------------------------------------------

std::atomic<int64_t> sDiskSpace{-1};
std::atomic<uint32_t> sNextFileNumber{1};

// pwrite of all of `data`; with the disk-space hook, what fits is written and the rest fails as
// a full disk does.
bool writeAt(int fd, int64_t offset, const std::string& data, int* error) {
    size_t len = data.size();
    const int64_t space = sDiskSpace.load();
    bool full = false;
    if (space >= 0 && offset + static_cast<int64_t>(len) > space) {
        len = offset >= space ? 0 : static_cast<size_t>(space - offset);
        full = true;
    }
    size_t done = 0;
    while (done < len) {
        const ssize_t n = pwrite(fd, data.data() + done, len - done, offset + done);
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) {
            *error = n < 0 ? errno : EIO;
            return false;
        }
        done += static_cast<size_t>(n);
    }
    if (full) *error = ENOSPC;
    return !full;
}

bool truncateTo(int fd, int64_t size, int* error) {
    if (ftruncate(fd, size) == 0) return true;
    *error = errno;
    return false;
}

std::string sanitizedName(const char* component) {
    std::string name;
    for (const char* c = component; *c != '\0' && name.size() < 128; ++c) {
        const bool ok =
                isalnum(static_cast<unsigned char>(*c)) || *c == '.' || *c == '_' || *c == '-';
        name.push_back(ok ? *c : '_');
    }
    return name.empty() ? "component" : name;
}

}  // namespace

// A format or parameter message as the scenario writes it: bare int32 and strings, {"int64": n},
// {"float": x}. Entries of other types have no scenario form: their names go to `dropped`.
std::string TavroSessionRecorder::typedMessageJson(const sp<AMessage>& msg, std::string* dropped,
                                                   bool* lossy) {
    std::string json = "{";
    std::string* out = &json;
    bool first = true;
    const size_t count = msg != nullptr ? msg->countEntries() : 0;
    for (size_t i = 0; i < count; ++i) {
        AMessage::Type type;
        const char* name = msg->getEntryNameAt(i, &type);
        if (name == nullptr) continue;
        std::string value;
        int32_t i32;
        int64_t i64;
        float f;
        AString s;
        if (type == AMessage::kTypeInt32 && msg->findInt32(name, &i32)) {
            appendInt(&value, i32);
        } else if (type == AMessage::kTypeInt64 && msg->findInt64(name, &i64)) {
            value = "{\"int64\":";
            appendInt(&value, i64);
            value.push_back('}');
        } else if (type == AMessage::kTypeFloat && msg->findFloat(name, &f)) {
            value = "{\"float\":";
            if (!appendFloat(&value, f)) value.clear();
            if (!value.empty()) value.push_back('}');
        } else if (type == AMessage::kTypeString && msg->findString(name, &s)) {
            appendString(&value, s.c_str(), s.size(), lossy);
        }
        if (value.empty() || name[0] == '\0') {
            *dropped += dropped->empty() ? "" : ", ";
            *dropped += name;
            continue;
        }
        if (!first) out->push_back(',');
        first = false;
        appendString(out, name, strlen(name), lossy);
        out->push_back(':');
        *out += value;
    }
    out->push_back('}');
    return json;
}

// ---- What the writer thread keeps per recording ---------------------------------------------

struct TavroSessionRecorder::FileState {
    int fd = -1;
    bool failed = false;    // abandoned: nothing more is written
    bool finished = false;  // closed after the last event
    std::string name;
    std::string path;
    int64_t eventsEnd = 0;  // file offset where the tail begins
    std::string tail;       // the tail written there
    std::string pending;    // events encoded and not yet written
    int64_t eventCount = 0;
    int64_t eventBytes = 0;
    int64_t replayUs = 0;  // the replay's clock after the events so far, from the session start
    bool framesStopped = false;
    std::string stopNote;
    bool lossy = false;
};

// ---- The process's writer thread --------------------------------------------------------------

// A time limit for a series of waits on one condition, on the steady clock: the host's system
// clock may be a manual one that never moves on its own.
class Deadline {
  public:
    explicit Deadline(std::chrono::nanoseconds limit)
        : mEnd(std::chrono::steady_clock::now() + limit) {}

    // Waits once, at most until the deadline; false once it has passed.
    bool wait(Condition& condition, Mutex& lock) const REQUIRES(lock) {
        const auto left = mEnd - std::chrono::steady_clock::now();
        if (left <= std::chrono::nanoseconds::zero()) return false;
        condition.waitRelative(lock,
                               std::chrono::duration_cast<std::chrono::nanoseconds>(left).count());
        return true;
    }

  private:
    const std::chrono::steady_clock::time_point mEnd;
};

class TavroRecordWriter {
  public:
    static TavroRecordWriter& get() {
        static TavroRecordWriter* writer = new TavroRecordWriter();  // never destroyed
        return *writer;
    }

    void add(std::shared_ptr<TavroSessionRecorder> recorder) {
        Mutex::Autolock guard(mLock);
        mRecorders.push_back(std::move(recorder));
        if (!mStarted) {
            mStarted = true;
            std::thread([this] { loop(); }).detach();
        }
    }

    void wake() {
        Mutex::Autolock guard(mLock);
        mPending = true;
        mWake.signal();
    }

    // Test hooks.
    void hold(bool on) {
        Mutex::Autolock guard(mLock);
        mHold = on;
        mHeldChanged.broadcast();
    }
    bool waitHeld() {
        Mutex::Autolock guard(mLock);
        const Deadline deadline(kTestWait);
        while (!mHeld) {
            if (!deadline.wait(mHeldChanged, mLock)) return false;
        }
        return true;
    }
    void holdPoint() {
        Mutex::Autolock guard(mLock);
        if (!mHold) return;
        mHeld = true;
        mHeldChanged.broadcast();
        while (mHold) mHeldChanged.wait(mLock);
        mHeld = false;
    }
    void noteClosed() {
        Mutex::Autolock guard(mLock);
        ++mClosedCount;
        mHeldChanged.broadcast();
    }
    uint64_t closedCount() {
        Mutex::Autolock guard(mLock);
        return mClosedCount;
    }
    bool waitClosed(uint64_t count) {
        Mutex::Autolock guard(mLock);
        const Deadline deadline(kTestWait);
        while (mClosedCount < count) {
            if (!deadline.wait(mHeldChanged, mLock)) return false;
        }
        return true;
    }
    bool waitIdle() {
        Mutex::Autolock guard(mLock);
        mPending = true;
        mWake.signal();
        const Deadline deadline(kTestWait);
        while (!mRecorders.empty()) {
            if (!deadline.wait(mIdle, mLock)) return false;
        }
        return true;
    }

  private:
    void loop() {
        for (;;) {
            std::vector<std::shared_ptr<TavroSessionRecorder>> recorders;
            {
                Mutex::Autolock guard(mLock);
                // A flush a second at the latest keeps a device's file current within a second.
                if (mRecorders.empty()) {
                    while (!mPending) mWake.wait(mLock);
                } else {
                    const Deadline deadline(std::chrono::seconds(1));
                    while (!mPending && deadline.wait(mWake, mLock)) {
                    }
                }
                mPending = false;
                recorders = mRecorders;
            }
            std::vector<TavroSessionRecorder*> finished;
            for (const auto& recorder : recorders) {
                if (recorder->flushOnWriter()) finished.push_back(recorder.get());
            }
            Mutex::Autolock guard(mLock);
            mRecorders.erase(std::remove_if(mRecorders.begin(), mRecorders.end(),
                                            [&](const auto& r) {
                                                return std::find(finished.begin(), finished.end(),
                                                                 r.get()) != finished.end();
                                            }),
                             mRecorders.end());
            if (mRecorders.empty()) mIdle.broadcast();
        }
    }

    // How long a test hook waits before it reports failure instead of hanging the test.
    static constexpr std::chrono::seconds kTestWait{60};

    Mutex mLock;
    Condition mWake;
    Condition mIdle;
    Condition mHeldChanged;
    std::vector<std::shared_ptr<TavroSessionRecorder>> mRecorders GUARDED_BY(mLock);
    bool mStarted GUARDED_BY(mLock) = false;
    bool mPending GUARDED_BY(mLock) = false;
    bool mHold GUARDED_BY(mLock) = false;
    bool mHeld GUARDED_BY(mLock) = false;
    uint64_t mClosedCount GUARDED_BY(mLock) = 0;
};

// ---- The recording's life ------------------------------------------------------------------

TavroSessionRecorder::TavroSessionRecorder(int dirFd, const std::string& dir, int64_t maxEventBytes)
    : mDirFd(dirFd),
      mDir(dir),
      mMaxEventBytes(maxEventBytes),
      mStartNs(systemTime(SYSTEM_TIME_MONOTONIC)),
      mPid(static_cast<int32_t>(getpid())),
      mUid(static_cast<int64_t>(getuid())),
      mWorld(std::make_unique<World>()),
      mFile(std::make_unique<FileState>()) {
    mBuf[0] = std::make_unique<uint8_t[]>(kRecordBufferBytes);
    mBuf[1] = std::make_unique<uint8_t[]>(kRecordBufferBytes);
    // The log gate reads its property at every optional line, from any thread: its value is
    // taken once here, so that timers and frame threads do not make recordings differ.
    char level[PROPERTY_VALUE_MAX] = {};
    if (property_get(kTavroLogLevelProperty, level, "") > 0) {
        mWorld->properties[kTavroLogLevelProperty] = {true, level};
    }
}

TavroSessionRecorder::~TavroSessionRecorder() {
    if (mFile->fd >= 0) close(mFile->fd);
    if (mDirFd >= 0) close(mDirFd);
}

void TavroSessionRecorder::startWriting(const std::shared_ptr<TavroSessionRecorder>& recorder) {
    TavroRecordWriter::get().add(recorder);
}

void TavroSessionRecorder::wakeWriter() {
    TavroRecordWriter::get().wake();
}

void TavroSessionRecorder::writerNoteClosed() {
    TavroRecordWriter::get().noteClosed();
}

// ---- Writer thread -----------------------------------------------------------------------------

bool TavroSessionRecorder::flushOnWriter() {
    FileState& f = *mFile;
    if (f.finished) return true;
    for (;;) {
        int index;
        size_t used;
        {
            Mutex::Autolock guard(mBufLock);
            index = mActive;
            used = mUsed[index];
            if (used > 0) mActive = 1 - index;
            mTaken = mAppended;
        }
        if (used == 0) break;
        TavroRecordWriter::get().holdPoint();
        if (!f.failed) encodeRecords(mBuf[index].get(), used);
        {
            Mutex::Autolock guard(mBufLock);
            mUsed[index] = 0;
        }
        mBufSpace.broadcast();
    }
    bool closed;
    {
        Mutex::Autolock guard(mBufLock);
        closed = mClosed && mUsed[mActive] == 0;
    }
    if (!f.failed) writeOut();
    {
        Mutex::Autolock guard(mBufLock);
        mWritten = mTaken;
    }
    mBufSpace.broadcast();
    if (closed || f.failed) {
        // A failed recording keeps accepting nothing; it is done once its codec is gone.
        if (f.fd >= 0 && closed) {
            close(f.fd);
            f.fd = -1;
        }
        if (closed) f.finished = true;
    }
    return f.finished;
}

void TavroSessionRecorder::encodeRecords(const uint8_t* data, size_t size) {
    size_t at = 0;
    while (at + sizeof(RecordHeader) <= size) {
        RecordHeader header;
        memcpy(&header, data + at, sizeof(header));
        if (header.size < sizeof(header) || at + header.size > size) break;
        encodeOne(static_cast<RecordKind>(header.kind), header.clockNs, header.flags,
                  data + at + sizeof(header), header.size - sizeof(header));
        at += header.size;
    }
}

void TavroSessionRecorder::beginEvent(int64_t clockNs) {
    FileState& f = *mFile;
    // The replay's clock moves to the event's time (in µs, as the scenario counts it): timers fall
    // due on the way exactly as they did.
    const int64_t targetUs = clockNs > mStartNs ? (clockNs - mStartNs) / 1000 : 0;
    while (targetUs > f.replayUs) {
        const int64_t step = std::min(targetUs - f.replayUs, kMaxAdvanceUs);
        f.pending += f.eventCount == 0 ? "\n" : ",\n";
        const size_t before = f.pending.size();
        f.pending += "{\"event\":\"advance\",\"us\":";
        appendInt(&f.pending, step);
        f.pending.push_back('}');
        f.eventBytes += static_cast<int64_t>(f.pending.size() - before);
        ++f.eventCount;
        f.replayUs += step;
    }
    f.pending += f.eventCount == 0 ? "\n" : ",\n";
}

void TavroSessionRecorder::encodeOne(RecordKind kind, int64_t clockNs, uint8_t flags,
                                     const uint8_t* p, size_t n) {
    FileState& f = *mFile;
    const bool frame = kind != RecordKind::kText;
    if (kind == RecordKind::kFramesStopped || (frame && f.framesStopped)) {
        if (!f.framesStopped) {
            f.framesStopped = true;
            f.stopNote = "frames after events[" + std::to_string(f.eventCount) +
                         "] are not in this recording: the writer fell behind and its buffers "
                         "filled up; lifecycle events still are";
        }
        return;
    }
    if (frame && f.eventBytes >= mMaxEventBytes) {
        f.framesStopped = true;
        mFramesStopped.store(true, std::memory_order_relaxed);
        f.stopNote = "frames after events[" + std::to_string(f.eventCount) +
                     "] are not in this recording: its size cap of " +
                     std::to_string(mMaxEventBytes / 1024) + " KiB (" + kPropRecordMaxKb +
                     ") was reached; lifecycle events still are";
        return;
    }
    Input in{p, p + n};
    // Presentation times outside the scenario's range are pinned to it.
    auto pts = [&](int64_t us) {
        if (us >= 0 && us <= kMaxTimeUs) return us;
        note("a presentation time outside 0..9223372036854775 us was written as the nearest end");
        return us < 0 ? int64_t{0} : kMaxTimeUs;
    };
    beginEvent(clockNs);
    const size_t before = f.pending.size();
    std::string& out = f.pending;
    switch (kind) {
        case RecordKind::kText:
            out.append(reinterpret_cast<const char*>(p), n);
            break;
        case RecordKind::kInput: {
            const int64_t ptsUs = in.get<int64_t>();
            const int32_t bytes = in.get<int32_t>();
            out += "{\"event\":\"input\",\"time_us\":";
            appendInt(&out, pts(ptsUs));
            out += ",\"bytes\":";
            appendInt(&out, std::clamp(bytes, 0, 1 << 26));
            out.push_back('}');
            if ((flags & kFlagSecure) != 0) note("secure inputs were written as plain inputs");
            break;
        }
        case RecordKind::kRender: {
            const int64_t ptsUs = in.get<int64_t>();
            const int64_t renderNs = in.get<int64_t>();
            // Render times move with the event times onto the scenario's clock.
            int64_t mapped = 0;
            if (__builtin_sub_overflow(renderNs, mStartNs, &mapped) ||
                __builtin_add_overflow(mapped, kRecordClockOriginNs, &mapped) || mapped < 0) {
                note("a render time outside the scenario clock was written as 0");
                mapped = 0;
            }
            out += "{\"event\":\"render\",\"time_us\":";
            appendInt(&out, pts(ptsUs));
            out += ",\"render_ns\":";
            appendInt(&out, mapped);
            out.push_back('}');
            break;
        }
        case RecordKind::kDiscard:
            out += "{\"event\":\"discard\",\"time_us\":";
            appendInt(&out, pts(in.get<int64_t>()));
            out.push_back('}');
            break;
        case RecordKind::kOutput: {
            static const std::pair<const char*, uint32_t> kFlags[] = {
                    {"drop_frame", 1u << 0},    {"end_of_stream", 1u << 1},
                    {"discard_frame", 1u << 2}, {"incomplete", 1u << 3},
                    {"corrected", 1u << 4},     {"codec_config", 1u << 31}};
            const int64_t ptsUs = in.get<int64_t>();
            const uint32_t workFlags = in.get<uint32_t>();
            const bool hasBuffer = in.get<uint8_t>() != 0;
            const bool hasColor = in.get<uint8_t>() != 0;
            in.get<uint16_t>();
            uint32_t color[4];
            for (uint32_t& c : color) c = in.get<uint32_t>();
            const uint32_t hdrLen = in.get<uint32_t>();
            const uint32_t updates = in.get<uint32_t>();
            out += "{\"event\":\"output\",\"time_us\":";
            appendInt(&out, pts(ptsUs));
            if (workFlags != 0) {
                out += ",\"flags\":[";
                uint32_t known = 0;
                for (const auto& [flagName, bit] : kFlags) {
                    if ((workFlags & bit) == 0) continue;
                    if (known != 0) out.push_back(',');
                    known |= bit;
                    appendString(&out, flagName, strlen(flagName));
                }
                out.push_back(']');
                if (workFlags != known) note("output flags without a scenario name were dropped");
            }
            if (!hasBuffer) out += ",\"buffer\":false";
            if (hasBuffer && (hasColor || hdrLen != UINT32_MAX)) {
                out += ",\"hdr\":{";
                if (hasColor) {
                    out += "\"color_aspects\":{\"range\":";
                    appendInt(&out, color[0]);
                    out += ",\"primaries\":";
                    appendInt(&out, color[1]);
                    out += ",\"transfer\":";
                    appendInt(&out, color[2]);
                    out += ",\"matrix\":";
                    appendInt(&out, color[3]);
                    out.push_back('}');
                }
                if (hdrLen != UINT32_MAX) {
                    out += hasColor ? ",\"hdr10plus\":" : "\"hdr10plus\":";
                    appendHex(&out, in.take(hdrLen), hdrLen);
                }
                out.push_back('}');
            } else if (hdrLen != UINT32_MAX) {
                in.take(hdrLen);
            }
            if (updates > 0) out += ",\"config_update\":[";
            for (uint32_t u = 0; u < updates; ++u) {
                const uint32_t index = in.get<uint32_t>();
                const uint32_t sizeField = in.get<uint32_t>();
                const uint32_t len = in.get<uint32_t>();
                char indexText[16];
                snprintf(indexText, sizeof(indexText), "0x%08x", index);
                out += u == 0 ? "{\"index\":\"" : ",{\"index\":\"";
                out += indexText;
                out += "\",\"hex\":";
                appendHex(&out, in.take(len), len);
                if (sizeField != 8 + len) {
                    out += ",\"size\":";
                    appendInt(&out, std::min<uint32_t>(sizeField, 1u << 20));
                    if (sizeField > (1u << 20)) note("a configUpdate size field was cut to 1 MiB");
                }
                out.push_back('}');
            }
            if (updates > 0) out.push_back(']');
            out.push_back('}');
            break;
        }
        case RecordKind::kFramesStopped:
            break;
    }
    f.eventBytes += static_cast<int64_t>(out.size() - before);
    ++f.eventCount;
}

std::string TavroSessionRecorder::worldJson() {
    const FileState& f = *mFile;
    Mutex::Autolock guard(mWorldLock);
    const World& w = *mWorld;
    std::string out = "\n],\n\"comment\":";
    std::string comment = "Session of " + w.component + " recorded by the Tavro codec plug-in (" +
                          kPropRecordDir + "): " + std::to_string(f.eventCount) +
                          " events. Replay it with tavro-sim.";
    std::vector<std::string> notes = w.notes;
    if (!f.stopNote.empty()) notes.insert(notes.begin(), f.stopNote);
    if (mDead.load(std::memory_order_relaxed) && !f.failed) {
        notes.insert(notes.begin(),
                     "the recording stopped early: an event did not fit its buffers");
    }
    if (mScanTypeChanged.load(std::memory_order_relaxed)) {
        notes.push_back("the analysis object's scan type changed; the recording keeps the first");
    }
    if (w.full) notes.push_back("the world outgrew 64 KiB: later reads are not in the recording");
    for (size_t i = 0; i < notes.size(); ++i) comment += (i == 0 ? " Notes: " : "; ") + notes[i];
    if (w.moreNotes > 0) comment += "; and " + std::to_string(w.moreNotes) + " more";
    appendString(&out, comment);
    out += ",\n\"order\":\"free\",\n\"component\":";
    appendString(&out, w.component);

    out += ",\n\"process\":{\"name\":";
    appendString(&out, w.processName ? *w.processName : std::string(kRecordUnreadProcessName));
    out += ",\"pid\":";
    appendInt(&out, mPid);
    out += ",\"uid\":";
    appendInt(&out, std::clamp<int64_t>(mUid, 0, kMaxUid));
    if (w.caller && w.caller->first >= 0 && w.caller->first <= kMaxUid && w.caller->second >= 1 &&
        w.caller->second <= INT32_MAX) {
        out += ",\"caller\":{\"uid\":";
        appendInt(&out, w.caller->first);
        out += ",\"pid\":";
        appendInt(&out, w.caller->second);
        out.push_back('}');
    }
    if (w.topActivityAsked) {
        out += ",\"top_activity\":";
        appendString(&out, std::string(kRecordTopActivity));
    }
    out.push_back('}');

    out += ",\n\"properties\":{";
    bool first = true;
    for (const auto& [key, property] : w.properties) {
        if (!property.set || key.empty()) continue;
        out += first ? "\n" : ",\n";
        first = false;
        appendString(&out, key);
        out.push_back(':');
        appendString(&out, property.value);
    }
    out += "}";

    out += ",\n\"lists\":{";
    first = true;
    for (const auto& [list, entries] : w.lists) {
        std::string items;
        for (const auto& [key, answer] : entries) {
            if (answer.reply == TavroListReply::kNone) continue;
            std::string item = "{";
            switch (key.ask) {
                case TavroListAsk::kUid:
                    if (key.id < 0 || key.id > kMaxUid) continue;
                    item += "\"uid\":";
                    appendInt(&item, key.id);
                    break;
                case TavroListAsk::kPid:
                    if (key.id < 1 || key.id > INT32_MAX) continue;
                    item += "\"pid\":";
                    appendInt(&item, key.id);
                    break;
                case TavroListAsk::kName:
                case TavroListAsk::kTopActivity:
                    if (key.name.empty()) continue;
                    item += key.ask == TavroListAsk::kName ? "\"name\":" : "\"activity\":";
                    appendString(&item, key.name);
                    break;
            }
            if (!answer.value.empty()) {
                item += ",\"value\":";
                appendString(&item, answer.value);
            }
            item.push_back('}');
            items += items.empty() ? "" : ",";
            items += item;
        }
        if (items.empty() || list.empty()) continue;
        out += first ? "\n" : ",\n";
        first = false;
        appendString(&out, list);
        out += ":[" + items + "]";
    }
    out += "}";

    out += ",\n\"proc\":{\"threads\":[";
    for (size_t i = 0; i < w.threads.size(); ++i) {
        out += i == 0 ? "{\"tid\":" : ",{\"tid\":";
        appendInt(&out, w.threads[i].first);
        out += ",\"name\":";
        appendString(&out, w.threads[i].second);
        out.push_back('}');
    }
    out += "],\"processes\":[";
    first = true;
    for (const auto& [pid, name] : w.processes) {
        out += first ? "{\"pid\":" : ",{\"pid\":";
        first = false;
        appendInt(&out, pid);
        out += ",\"name\":";
        appendString(&out, name);
        out.push_back('}');
    }
    out.push_back(']');
    if (w.memAvailableKb) {
        out += ",\"mem_available_kb\":";
        appendInt(&out, std::min<int64_t>(*w.memAvailableKb, INT64_MAX / 1024));
    }
    out.push_back('}');

    const int64_t scanType = mScanType.load(std::memory_order_relaxed);
    if (scanType >= 0 || (w.fpsUseCount && *w.fpsUseCount >= 0)) {
        out += ",\n\"analysis\":{";
        if (scanType >= 0) {
            out += "\"scan_type\":";
            appendInt(&out, scanType);
        }
        if (w.fpsUseCount && *w.fpsUseCount >= 0) {
            out += scanType >= 0 ? ",\"fps_use_count\":" : "\"fps_use_count\":";
            appendInt(&out, *w.fpsUseCount);
        }
        out.push_back('}');
    }
    out += "\n}\n";
    return out;
}

bool TavroSessionRecorder::openFile() {
    FileState& f = *mFile;
    std::string component;
    {
        Mutex::Autolock guard(mWorldLock);
        component = mWorld->component;
    }
    if (component.empty()) return false;
    const std::string stem = sanitizedName(component.c_str()) + "-" + std::to_string(mPid) + "-";
    for (int attempt = 0; attempt < 100; ++attempt) {
        f.name = stem + std::to_string(sNextFileNumber.fetch_add(1)) + ".json";
        f.fd = openat(mDirFd, f.name.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC,
                      0600);
        if (f.fd >= 0 || errno != EEXIST) break;
    }
    f.path = mDir + "/" + f.name;
    if (f.fd < 0) {
        abandon("cannot create the file", errno);
        return false;
    }
    // The umask may only have taken bits away; the mode is exactly owner read and write.
    (void)fchmod(f.fd, 0600);
    return true;
}

bool TavroSessionRecorder::writeOut() {
    FileState& f = *mFile;
    if (f.fd < 0 && f.pending.empty()) return true;
    if (f.fd < 0 && !openFile()) return false;
    std::string tail = worldJson();
    if (f.pending.empty() && tail == f.tail) return true;
    int error = 0;
    const bool fresh = f.tail.empty();
    std::string events = fresh ? "{\"events\":[" + f.pending : f.pending;
    const int64_t end = f.eventsEnd + static_cast<int64_t>(events.size());
    if (writeAt(f.fd, f.eventsEnd, events, &error) && writeAt(f.fd, end, tail, &error) &&
        truncateTo(f.fd, end + static_cast<int64_t>(tail.size()), &error)) {
        f.eventsEnd = end;
        f.tail = std::move(tail);
        f.pending.clear();
        return true;
    }
    // Back to the last complete file, which the failed write may have cut into; without one, or
    // when even that fails, no file at all.
    int ignored = 0;
    if (fresh || !writeAt(f.fd, f.eventsEnd, f.tail, &ignored) ||
        !truncateTo(f.fd, f.eventsEnd + static_cast<int64_t>(f.tail.size()), &ignored)) {
        (void)unlinkat(mDirFd, f.name.c_str(), 0);
    }
    abandon("a write failed", error);
    return false;
}

void TavroSessionRecorder::abandon(const char* why, int error) {
    FileState& f = *mFile;
    const std::string warning =
            (f.path.empty() ? mDir : f.path) + ": " + why + ": " + strerror(error);
    bool deferred = false;
    {
        // Logged by the codec's next operation, on its thread; once the codec is gone, here.
        Mutex::Autolock guard(mBufLock);
        if (!mClosed) {
            mWarning = warning;
            mWarningPending.store(true, std::memory_order_relaxed);
            deferred = true;
        }
    }
    if (!deferred) ALOGW(kLogRecordFailed, warning.c_str());
    f.failed = true;
    f.pending.clear();
    mDead.store(true, std::memory_order_relaxed);
    mFramesStopped.store(true, std::memory_order_relaxed);
    if (f.fd >= 0) {
        close(f.fd);
        f.fd = -1;
    }
}

// ---- Test hooks --------------------------------------------------------------------------------

void TavroSessionRecorder::setDiskSpaceForTesting(int64_t bytes) {
    sDiskSpace.store(bytes);
}

void TavroSessionRecorder::holdWriterForTesting(bool hold) {
    TavroRecordWriter::get().hold(hold);
}

bool TavroSessionRecorder::waitUntilWriterHeldForTesting() {
    return TavroRecordWriter::get().waitHeld();
}

bool TavroSessionRecorder::waitForWritersForTesting() {
    return TavroRecordWriter::get().waitIdle();
}

uint64_t TavroSessionRecorder::closedCountForTesting() {
    return TavroRecordWriter::get().closedCount();
}

bool TavroSessionRecorder::waitForClosedCountForTesting(uint64_t count) {
    return TavroRecordWriter::get().waitClosed(count);
}

}  // namespace android
