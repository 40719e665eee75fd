#define LOG_TAG "TavroSessionRecorder"
// The producer side of TavroSessionRecorder: construction from the property, the events the codec
// and its channel report (copied into the active buffer, never written from here) and the answers
// the library's readers report through the tap. The writer side is TavroSessionRecorderWriter.cpp.
#include "sfplugin/TavroSessionRecorder.h"

#include <errno.h>
#include <fcntl.h>
#include <stdlib.h>
#include <string.h>
#include <sys/types.h>
#include <unistd.h>

#include <algorithm>

#include <cutils/properties.h>
#include <log/log.h>
#include <utils/Timers.h>

#include "common/TavroLog.h"

namespace android {

namespace {

constexpr size_t kOutputFixedBytes = 40;  // pts, flags, buffer/colour bytes, colour, sizes
constexpr size_t kUpdateHeaderBytes = 12;
constexpr int64_t kMaxMaxKb = 4 * 1024 * 1024;  // 4 GiB of events

std::atomic<bool> sLossless{false};
std::atomic<bool> sSynchronous{false};

// Writes a record's payload.
struct Output {
    uint8_t* p;
    template <typename T>
    void put(const T& v) {
        memcpy(p, &v, sizeof(v));
        p += sizeof(v);
    }
    void bytes(const void* data, size_t n) {
        if (n > 0) memcpy(p, data, n);
        p += n;
    }
};

// Why `dir` cannot hold recordings; null when it can.
const char* refusal(const std::string& dir) {
    if (dir.empty() || dir[0] != '/') return "not an absolute path";
    for (size_t at = 0; (at = dir.find("..", at)) != std::string::npos; at += 2) {
        const bool starts = dir[at - 1] == '/';
        const bool ends = at + 2 == dir.size() || dir[at + 2] == '/';
        if (starts && ends) return "holds '..'";
    }
    return nullptr;
}

}  // namespace

// ---- Construction ------------------------------------------------------------------------------

std::shared_ptr<TavroSessionRecorder> TavroSessionRecorder::createFromProperties() {
    char dir[PROPERTY_VALUE_MAX] = {};
    if (property_get(kPropRecordDir, dir, "") <= 0) return nullptr;
    char cap[PROPERTY_VALUE_MAX] = {};
    property_get(kPropRecordMaxKb, cap, "");
    const int64_t kb = strtoll(cap, nullptr, 10);
    return create(dir, (kb >= 1 ? std::min(kb, kMaxMaxKb) : kRecordMaxKbDefault) * 1024);
}

std::shared_ptr<TavroSessionRecorder> TavroSessionRecorder::create(const std::string& dir,
                                                                   int64_t maxEventBytes) {
    const char* why = refusal(dir);
    int fd = -1;
    if (why == nullptr) {
        fd = open(dir.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
        if (fd < 0) {
            why = strerror(errno);
        } else if (access(dir.c_str(), W_OK | X_OK) != 0) {
            why = "not writable";
            close(fd);
            fd = -1;
        }
    }
    if (why != nullptr) {
        ALOGW(kLogRecordRefused, kPropRecordDir, dir.c_str(), why);
        return nullptr;
    }
    std::shared_ptr<TavroSessionRecorder> recorder(
            new TavroSessionRecorder(fd, dir, maxEventBytes));
    startWriting(recorder);
    TAVRO_LOGI(kLogRecordStarted, dir.c_str());
    return recorder;
}

// ---- Producers ---------------------------------------------------------------------------------

template <typename Fill>
bool TavroSessionRecorder::append(RecordKind kind, bool lifecycle, size_t payloadSize,
                                  Fill&& fill) {
    const size_t size = sizeof(RecordHeader) + payloadSize;
    bool wake = false;
    bool kept = false;
    // Locked by hand: the lossless and synchronous modes (tools and tests) let the lock go while
    // they wake the writer, which never waits for this lock while holding its own.
    mBufLock.lock();
    for (;;) {
        if (mClosed || mDead.load(std::memory_order_relaxed) ||
            (!lifecycle && mFramesStopped.load(std::memory_order_relaxed))) {
            break;
        }
        const size_t limit =
                lifecycle ? kRecordBufferBytes : kRecordBufferBytes - kRecordLifecycleReserve;
        size_t& used = mUsed[mActive];
        if (used + size <= limit) {
            uint8_t* at = mBuf[mActive].get() + used;
            const RecordHeader header{static_cast<uint32_t>(size), static_cast<uint8_t>(kind), 0, 0,
                                      systemTime(SYSTEM_TIME_MONOTONIC)};
            memcpy(at, &header, sizeof(header));
            fill(at + sizeof(header), at + offsetof(RecordHeader, flags));
            wake = used < kRecordBufferBytes / 2 && used + size >= kRecordBufferBytes / 2;
            used += size;
            kept = true;
            const uint64_t sequence = ++mAppended;
            if (sSynchronous.load(std::memory_order_relaxed)) {
                mBufLock.unlock();
                wakeWriter();
                mBufLock.lock();
                while (mWritten < sequence && !mClosed) mBufSpace.wait(mBufLock);
            }
            break;
        }
        if (size <= limit && sLossless.load(std::memory_order_relaxed)) {
            mBufLock.unlock();
            wakeWriter();
            mBufLock.lock();
            while (mUsed[mActive] + size > limit && !mClosed &&
                   !mDead.load(std::memory_order_relaxed)) {
                mBufSpace.wait(mBufLock);
            }
            continue;
        }
        // No room: frames stop for good, with a marker where they stopped; a lifecycle event
        // that cannot be kept ends the recording.
        wake = true;
        if (lifecycle) {
            mDead.store(true, std::memory_order_relaxed);
            break;
        }
        mFramesStopped.store(true, std::memory_order_relaxed);
        if (used + sizeof(RecordHeader) <= kRecordBufferBytes) {
            const RecordHeader marker{sizeof(RecordHeader),
                                      static_cast<uint8_t>(RecordKind::kFramesStopped), 0, 0,
                                      systemTime(SYSTEM_TIME_MONOTONIC)};
            memcpy(mBuf[mActive].get() + used, &marker, sizeof(marker));
            used += sizeof(marker);
        }
        break;
    }
    mBufLock.unlock();
    if (wake) wakeWriter();
    return kept;
}

bool TavroSessionRecorder::appendText(RecordKind kind, const std::string& json) {
    logPendingWarning();
    return append(kind, true, json.size(),
                  [&](uint8_t* p, uint8_t*) { memcpy(p, json.data(), json.size()); });
}

void TavroSessionRecorder::logPendingWarning() {
    if (!mWarningPending.exchange(false, std::memory_order_relaxed)) return;
    std::string warning;
    {
        Mutex::Autolock guard(mBufLock);
        warning.swap(mWarning);
    }
    if (!warning.empty()) ALOGW(kLogRecordFailed, warning.c_str());
}

void TavroSessionRecorder::note(const std::string& text) {
    Mutex::Autolock guard(mWorldLock);
    mWorld->note(text);
}

void TavroSessionRecorder::onAllocate(const char* component) {
    {
        Mutex::Autolock guard(mWorldLock);
        if (mWorld->component.empty()) {
            mWorld->component = component;
        } else if (mWorld->component != component) {
            mWorld->note("allocated again as " + std::string(component) + "; the recording keeps " +
                         mWorld->component);
        }
    }
    appendText(RecordKind::kText, "{\"event\":\"allocate\"}");
    // The file can be created now that its name is known.
    wakeWriter();
}

void TavroSessionRecorder::onConfigure(const sp<AMessage>& format) {
    std::string dropped;
    bool lossy = false;
    const std::string json =
            "{\"event\":\"configure\",\"format\":" + typedMessageJson(format, &dropped, &lossy) +
            "}";
    if (!dropped.empty()) note("configure: not in the recording (no scenario type): " + dropped);
    if (lossy) note("configure: bytes that are not UTF-8 were written as U+FFFD");
    appendText(RecordKind::kText, json);
}

void TavroSessionRecorder::onStart() {
    appendText(RecordKind::kText, "{\"event\":\"start\"}");
}

void TavroSessionRecorder::onSetParameters(const sp<AMessage>& params) {
    std::string dropped;
    bool lossy = false;
    const std::string json = "{\"event\":\"set_parameters\",\"params\":" +
                             typedMessageJson(params, &dropped, &lossy) + "}";
    if (!dropped.empty()) note("set_parameters: not in the recording: " + dropped);
    if (lossy) note("set_parameters: bytes that are not UTF-8 were written as U+FFFD");
    appendText(RecordKind::kText, json);
}

void TavroSessionRecorder::onFlush() {
    appendText(RecordKind::kText, "{\"event\":\"flush\"}");
}

void TavroSessionRecorder::onResume() {
    appendText(RecordKind::kText, "{\"event\":\"resume\"}");
}

void TavroSessionRecorder::onShutdown(bool keepAllocated) {
    appendText(RecordKind::kText, keepAllocated ? "{\"event\":\"shutdown\",\"keep_allocated\":true}"
                                                : "{\"event\":\"shutdown\"}");
}

void TavroSessionRecorder::onDestroy() {
    appendText(RecordKind::kText, "{\"event\":\"destroy\"}");
    std::string warning;
    {
        Mutex::Autolock guard(mBufLock);
        mClosed = true;
        warning.swap(mWarning);
    }
    if (!warning.empty()) ALOGW(kLogRecordFailed, warning.c_str());
    mBufSpace.broadcast();
    wakeWriter();
    writerNoteClosed();
}

void TavroSessionRecorder::onInput(int64_t ptsUs, int32_t bytes, bool secure) {
    if (mFramesStopped.load(std::memory_order_relaxed)) return;
    append(RecordKind::kInput, false, sizeof(ptsUs) + sizeof(bytes),
           [&](uint8_t* p, uint8_t* flags) {
               Output out{p};
               out.put(ptsUs);
               out.put(bytes);
               *flags = secure ? kFlagSecure : 0;
           });
}

void TavroSessionRecorder::onOutput(const C2Work& work, const C2Info* colorAspects,
                                    const C2Info* hdr10Plus) {
    if (mFramesStopped.load(std::memory_order_relaxed)) return;
    const C2Worklet* worklet = work.worklets.empty() ? nullptr : work.worklets.front().get();
    if (worklet == nullptr) return;
    const C2FrameData& out = worklet->output;
    // What the codec reads of the infos: colour aspects within their 24-byte layout, dynamic
    // metadata as the bytes after the header within the size field.
    const bool hasColor = colorAspects != nullptr && colorAspects->size() >= 24;
    const uint8_t* hdrBytes = nullptr;
    uint32_t hdrLen = UINT32_MAX;
    if (hdr10Plus != nullptr) {
        hdrBytes = reinterpret_cast<const uint8_t*>(hdr10Plus) + 8;
        hdrLen = static_cast<uint32_t>(
                std::min(hdr10Plus->size() > 8 ? hdr10Plus->size() - 8 : 0, kRecordInfoMaxBytes));
    }
    size_t size = kOutputFixedBytes + (hdrLen == UINT32_MAX ? 0 : hdrLen);
    uint32_t updates = 0;
    for (const std::unique_ptr<C2Param>& param : out.configUpdate) {
        if (param == nullptr) continue;
        ++updates;
        size += kUpdateHeaderBytes +
                std::min(param->size() > 8 ? param->size() - 8 : 0, kRecordInfoMaxBytes);
    }
    append(RecordKind::kOutput, false, size, [&](uint8_t* p, uint8_t*) {
        Output o{p};
        o.put(out.ordinal.timestamp.peekll());
        o.put(static_cast<uint32_t>(out.flags));
        o.put(static_cast<uint8_t>(out.buffers.empty() ? 0 : 1));
        o.put(static_cast<uint8_t>(hasColor ? 1 : 0));
        o.put(static_cast<uint16_t>(0));
        uint32_t color[4] = {0, 0, 0, 0};
        if (hasColor) memcpy(color, reinterpret_cast<const uint8_t*>(colorAspects) + 8, 16);
        o.bytes(color, sizeof(color));
        o.put(hdrLen);
        o.put(updates);
        if (hdrLen != UINT32_MAX) o.bytes(hdrBytes, hdrLen);
        for (const std::unique_ptr<C2Param>& param : out.configUpdate) {
            if (param == nullptr) continue;
            const uint32_t len = static_cast<uint32_t>(
                    std::min(param->size() > 8 ? param->size() - 8 : 0, kRecordInfoMaxBytes));
            o.put(static_cast<uint32_t>(param->index()));
            o.put(static_cast<uint32_t>(param->size()));
            o.put(len);
            o.bytes(reinterpret_cast<const uint8_t*>(param.get()) + 8, len);
        }
    });
}

void TavroSessionRecorder::onRender(int64_t ptsUs, int64_t renderNs) {
    if (mFramesStopped.load(std::memory_order_relaxed)) return;
    append(RecordKind::kRender, false, 2 * sizeof(int64_t), [&](uint8_t* p, uint8_t*) {
        Output out{p};
        out.put(ptsUs);
        out.put(renderNs);
    });
}

void TavroSessionRecorder::onDiscard(int64_t ptsUs) {
    if (mFramesStopped.load(std::memory_order_relaxed)) return;
    append(RecordKind::kDiscard, false, sizeof(ptsUs), [&](uint8_t* p, uint8_t*) {
        Output out{p};
        out.put(ptsUs);
    });
}

// ---- Answers -----------------------------------------------------------------------------------

void TavroSessionRecorder::onCaller(int64_t uid, int64_t pid) {
    Mutex::Autolock guard(mWorldLock);
    if (!mWorld->caller) {
        mWorld->caller = std::make_pair(uid, pid);
    } else if (*mWorld->caller != std::make_pair(uid, pid)) {
        mWorld->note("the binder caller changed during the session; the recording keeps the first");
    }
}

void TavroSessionRecorder::onScanType(int32_t scanType) {
    int64_t expected = INT64_MIN;
    if (!mScanType.compare_exchange_strong(expected, scanType, std::memory_order_relaxed) &&
        expected != scanType) {
        mScanTypeChanged.store(true, std::memory_order_relaxed);
    }
}

void TavroSessionRecorder::onFpsUseCount(int64_t count) {
    Mutex::Autolock guard(mWorldLock);
    if (!mWorld->fpsUseCount) {
        mWorld->fpsUseCount = count;
    } else if (*mWorld->fpsUseCount != count) {
        mWorld->note(
                "the analysis object's frame-rate use count changed; the recording keeps the "
                "first");
    }
}

void TavroSessionRecorder::onProperty(const char* key, const char* value, bool cached) {
    // The recorder's own switches are not part of the session.
    if (strcmp(key, kPropRecordDir) == 0 || strcmp(key, kPropRecordMaxKb) == 0) return;
    Mutex::Autolock guard(mWorldLock);
    World& w = *mWorld;
    auto it = w.properties.find(key);
    if (it == w.properties.end()) {
        if (w.take(strlen(key) + (value != nullptr ? strlen(value) : 0) + 8)) {
            w.properties[key] = {value != nullptr, value != nullptr ? value : ""};
        }
        return;
    }
    const bool same =
            it->second.set == (value != nullptr) && (value == nullptr || it->second.value == value);
    if (!same && !cached) {
        w.note("property " + std::string(key) +
               " changed during the session; the recording keeps its first value");
    }
}

void TavroSessionRecorder::onListAnswer(const char* list, TavroListAsk ask, int64_t id,
                                        const char* name, TavroListReply reply, const char* value,
                                        size_t valueSize, bool cached) {
    Mutex::Autolock guard(mWorldLock);
    World& w = *mWorld;
    if (ask == TavroListAsk::kTopActivity) {
        name = kRecordTopActivity;
        w.topActivityAsked = true;
    }
    World::ListKey key{ask, ask == TavroListAsk::kUid || ask == TavroListAsk::kPid ? id : 0,
                       ask == TavroListAsk::kUid || ask == TavroListAsk::kPid || name == nullptr
                               ? std::string()
                               : std::string(name)};
    const std::string text = reply == TavroListReply::kValue && value != nullptr
                                     ? std::string(value, strnlen(value, valueSize))
                                     : std::string();
    auto& entries = w.lists[list];
    auto it = entries.find(key);
    if (it == entries.end()) {
        if (w.take(strlen(list) + key.name.size() + text.size() + 24)) {
            entries[key] = {reply, text};
        }
        return;
    }
    World::ListAnswer& kept = it->second;
    // Membership and a value are two views of one entry; a different value, or an answer where
    // there was none (or the reverse), is a service that changed while the codec ran.
    bool agrees = kept.reply == reply;
    if (reply == TavroListReply::kValue && kept.reply == TavroListReply::kMember) {
        kept = {reply, text};
        agrees = true;
    } else if (reply == TavroListReply::kMember && kept.reply == TavroListReply::kValue) {
        agrees = true;
    } else if (reply == TavroListReply::kValue) {
        agrees = agrees && kept.value == text;
    }
    if (!agrees && !cached) {
        w.note("list " + std::string(list) +
               " answered one key differently during the session; the recording keeps the first "
               "answer");
    }
}

void TavroSessionRecorder::onProcessName(int32_t pid, bool found, const char* name) {
    if (!found || name == nullptr || name[0] == '\0') return;
    Mutex::Autolock guard(mWorldLock);
    World& w = *mWorld;
    if (pid == mPid) {
        if (!w.processName) w.processName = name;
        return;
    }
    if (pid >= 1 && w.processes.count(pid) == 0 && w.take(strlen(name) + 16)) {
        w.processes[pid] = name;
    }
}

void TavroSessionRecorder::onThreadName(int32_t pid, int32_t tid, const char* name) {
    // The main thread (tid = pid) has no place in a scenario's thread list: the replay's own
    // thread stands for it.
    if (pid != mPid || tid == mPid || tid < 1 || name == nullptr || name[0] == '\0') return;
    Mutex::Autolock guard(mWorldLock);
    World& w = *mWorld;
    for (const auto& [known, knownName] : w.threads) {
        if (known == tid) return;
    }
    if (w.take(strlen(name) + 16)) w.threads.emplace_back(tid, name);
}

void TavroSessionRecorder::onMemAvailable(bool found, int64_t kb) {
    Mutex::Autolock guard(mWorldLock);
    World& w = *mWorld;
    if (w.memAsked) return;
    w.memAsked = true;
    if (found && kb >= 0) w.memAvailableKb = kb;
}

// ---- Test hooks --------------------------------------------------------------------------------

void TavroSessionRecorder::setLosslessForTesting(bool lossless) {
    sLossless.store(lossless);
}

void TavroSessionRecorder::setSynchronousForTesting(bool synchronous) {
    sSynchronous.store(synchronous);
}

}  // namespace android
