// Plays a TavroScenario: builds the host world the scenario describes (properties, list service,
// caller identity, /proc fixture), drives one TavroCCodec through its events on a manual looper and
// the controllable clock, and records into a TavroTrace what the library did.
//
// The host stores are process-wide: one scenario plays at a time, on the calling thread, and the
// player resets the stores before and after it. The clock is manual while the scenario plays.
#pragma once

#include <stdint.h>

#include <string>

#include "tools/sim/TavroScenario.h"
#include "tools/sim/TavroTrace.h"

namespace android {

struct TavroSimOptions {
    // Sets "debug.tavro.video.log.enable" (over the scenario's value) and traces log lines.
    bool hasLogLevel = false;
    int32_t logLevel = 0;
};

// Plays `scenario` and appends to `*trace`. False with `*error` set only when the world cannot be
// built (the /proc fixture directory); a scenario the loader accepted always plays to its end.
bool playTavroScenario(const TavroScenario& scenario, const TavroSimOptions& options,
                       TavroTrace* trace, std::string* error);

}  // namespace android
