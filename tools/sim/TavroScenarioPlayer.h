// Plays a TavroScenario: builds the host world the scenario describes (properties, list service,
// caller identity, /proc fixture), drives one TavroCCodec through its events on a manual looper and
// the controllable clock, and hands to a trace sink what the library did, entry by entry, then the
// "unused" entries: list entries and properties the scenario gave that the library never asked
// for.
//
// The host stores are process-wide: one scenario plays at a time, on the calling thread, and the
// player resets the stores before and after it. The clock is manual while the scenario plays.
#pragma once

#include <stdint.h>

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include <C2Param.h>
#include <host/HostLog.h>

#include "tools/sim/TavroScenario.h"
#include "tools/sim/TavroTrace.h"

namespace android {

struct TavroSimOptions {
    // Sets "debug.tavro.video.log.enable" (over the scenario's value) and traces log lines.
    bool hasLogLevel = false;
    int32_t logLevel = 0;
    // Without a log level: each library warning or error as one line in logcat's brief form,
    // with the scenario's pid and stable object names ("W/TavroCCodec( 4321): ..."). Null drops
    // them.
    std::function<void(const std::string& line)> onWarning;
    // The library is stopping the process on one of its fatal checks. The sink has been flushed;
    // `line` names the check and the event that was playing. When this returns (or when it is
    // null), the library goes on to stop the process.
    std::function<void(const std::string& line)> onFatal;
    // Every library log line with its time in µs of the scenario clock, for a reader of what the
    // library reports only in its log (the timeline reads the channel's per-frame speed line).
    // Without hasLogLevel the library then logs at the verbose level; the trace still shows no
    // log lines.
    std::function<void(int64_t timeUs, const host::LogRecord& record)> onLibraryLog;
    // Keeps the white list's cache from the scenario played before (and for the next one), as a
    // second codec in the same process finds it. Tests only; the command always starts fresh.
    bool keepWhiteListCache = false;
};

// Plays `scenario` and hands its entries to `*sink`, flushing it at the end. False with `*error`
// set only when the world cannot be built (the /proc fixture directory); a scenario the loader
// accepted always plays to its end, unless the library stops the process.
bool playTavroScenario(const TavroScenario& scenario, const TavroSimOptions& options,
                       TavroTraceSink* sink, std::string* error);

// The infos an output buffer described by `hdr` carries, as the player attaches them: colour
// aspects (range, primaries, transfer, matrix as little-endian uint32), then dynamic metadata.
std::vector<std::shared_ptr<C2Info>> tavroOutputInfos(const TavroHdrDescription& hdr);

}  // namespace android
