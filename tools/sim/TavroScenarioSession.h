// Checks a loaded scenario as one session before anything plays: that its events come in an order
// a media framework could call them in (unless the scenario says "order": "free", to test misuse
// on purpose), and that its clock and its clips' presentation times stay within range.
#pragma once

#include <stdint.h>

#include "tools/sim/TavroScenario.h"

namespace android {

// The longest a scenario's clock may run (advances plus clips): far beyond any session, far below
// the nanosecond clock's range.
constexpr int64_t kTavroMaxScenarioClockUs = 366LL * 86400 * 1000000;

// Throws TavroScenarioError naming the event, for example
// "s.json: events[4]: 'input' before 'start' (...)".
void checkTavroScenarioSession(const TavroScenario& scenario);

}  // namespace android
