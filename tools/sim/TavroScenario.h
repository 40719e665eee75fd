// TavroScenario: one codec session for tavro-sim, as read from a scenario file. The loader
// (TavroScenarioLoader) builds it and has already checked every value, so the player
// (TavroScenarioPlayer) never meets bad input halfway through a run.
#pragma once

#include <stdint.h>

#include <cmath>
#include <deque>
#include <string>
#include <utility>
#include <vector>

namespace android {

// A format or parameter value with the exact AMessage type it is set with.
struct TavroTypedValue {
    enum class Type { kInt32, kInt64, kFloat, kString };
    Type type = Type::kInt32;
    int64_t intValue = 0;  // kInt32 (in range) and kInt64
    float floatValue = 0;
    std::string stringValue;
};

// Keys in the order the file gives them: a format is built in that order.
using TavroTypedMap = std::vector<std::pair<std::string, TavroTypedValue>>;

// One list-service entry. Uid and pid keys equal to the scenario process's are aliases of the
// real process (see TavroScenarioProcess).
struct TavroListEntry {
    enum class Key { kUid, kPid, kName, kActivity };
    Key key = Key::kUid;
    int64_t id = 0;     // kUid, kPid
    std::string name;   // kName, kActivity
    std::string value;  // "" = membership only
};

struct TavroScenarioList {
    std::string name;
    std::vector<TavroListEntry> entries;
};

// The process the codec runs in. `pid` and `uid` stand for the real getpid()/getuid() of the
// tool, which the library reads directly: wherever the scenario writes these numbers (list keys,
// the caller, "calling-uid"/"calling-pid" format values) the real ones are used, and the trace
// shows the real ones as these again.
struct TavroScenarioProcess {
    std::string name;
    int32_t pid = 0;
    int64_t uid = 0;
    bool hasCaller = false;  // the binder caller of allocate/configure/...; else the process
    int64_t callerUid = 0;
    int32_t callerPid = 0;
    std::string topActivity;  // reported for every process; "" = none
};

struct TavroScenarioThread {
    int32_t tid = 0;
    std::string name;
};

struct TavroScenarioOtherProcess {
    int32_t pid = 0;
    std::string name;
};

// What the /proc fixture holds besides the own process's command line.
struct TavroProcDescription {
    std::vector<TavroScenarioThread> threads;  // threads of the own process
    bool hasMemAvailable = false;              // without it there is no meminfo file
    int64_t memAvailableKb = 0;
    std::vector<TavroScenarioOtherProcess> processes;  // other processes' command lines
};

// A raw Codec2 record: index, payload bytes after the 8-byte header, and the size field.
struct TavroRawRecord {
    uint32_t index = 0;
    std::vector<uint8_t> payload;
    bool hasSize = false;  // else 8 + payload size
    uint32_t size = 0;
};

// HDR information attached to an output buffer.
struct TavroHdrDescription {
    bool hasColorAspects = false;
    uint32_t range = 0;
    uint32_t primaries = 0;
    uint32_t transfer = 0;
    uint32_t matrix = 0;
    bool hasHdr10Plus = false;
    std::vector<uint8_t> hdr10Plus;  // dynamic metadata bytes (HDR10+ or HDR Vivid)
};

// One event of the session. The scenario format is what a recorded session is written in too, so
// every field here has a key in the file (README, "Scenario reference") and keeps its meaning.
struct TavroScenarioEvent {
    enum class Kind : uint8_t {
        kAllocate,
        kConfigure,
        kStart,
        kInput,
        kOutput,
        kRender,
        kDiscard,
        kClip,
        kSetParameters,
        kFlush,
        kResume,
        kAdvance,
        kShutdown,
        kDestroy,
    };
    Kind kind = Kind::kAllocate;
    uint32_t flags = 0;  // output: C2FrameData flags
    std::string where;   // "events[3]", for messages

    TavroTypedMap format;  // configure: the format; set_parameters: the parameters

    // input, output, render, discard
    int64_t timeUs = 0;
    int64_t renderNs = 0;
    int32_t bytes = 0;           // input size
    bool hasRenderNs = false;    // render: else the clock's time
    bool hasBuffer = true;       // output: the work carries an output buffer
    bool renderFrames = true;    // clip, false: outputs are neither rendered nor dropped (encoders)
    bool hasStartUs = false;     // clip
    bool keepAllocated = false;  // shutdown
    TavroHdrDescription hdr;     // output
    std::vector<TavroRawRecord> configUpdate;  // output

    // clip
    int32_t count = 0;
    int32_t drops = 0;  // every drops-th frame is discarded; 0 = none
    double fps = 0;
    double speed = 1;
    int64_t startUs = 0;

    int64_t advanceUs = 0;  // advance
};

// Frame `i` of a clip at `fps` frames per second: its presentation time after the clip's first
// frame, in µs.
inline int64_t tavroClipFramePtsUs(double fps, int64_t i) {
    return std::llround(static_cast<double>(i) * 1e6 / fps);
}

// When frame `i` of a clip played at `speed` is handled, in µs of the clock after the clip's
// start (frame `count` is the clip's end). Each clip frame is queued, finished and rendered or
// dropped at that one moment.
inline int64_t tavroClipFrameClockUs(double fps, double speed, int64_t i) {
    return std::llround(static_cast<double>(i) * 1e6 / (fps * speed));
}

// The event's name in the file ("set_parameters").
const char* tavroScenarioEventName(TavroScenarioEvent::Kind kind);

// Answers of the frame-rate analysis object, a closed component whose findings the codec reads.
struct TavroAnalysisAnswers {
    bool hasScanType = false;  // the scan type it reports found (0 = progressive or unknown)
    int32_t scanType = 0;
    bool hasFpsUseCount = false;  // what getTotalFpsUseCnt answers
    int64_t fpsUseCount = 0;
};

struct TavroScenario {
    std::string path;  // as given; "-" for stdin
    TavroScenarioProcess process;
    // Property files first (in order), then the inline ones: a later pair wins.
    std::vector<std::pair<std::string, std::string>> properties;
    std::vector<TavroScenarioList> lists;
    TavroProcDescription proc;
    TavroAnalysisAnswers analysis;
    std::string component;
    bool freeOrder = false;  // "order": "free": events play in any order (misuse on purpose)
    // A deque: a recorded session has up to millions of events, and growing it never copies them.
    std::deque<TavroScenarioEvent> events;
};

}  // namespace android
