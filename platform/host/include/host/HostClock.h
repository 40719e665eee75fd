// The host's one controllable monotonic clock. systemTime(SYSTEM_TIME_MONOTONIC) and
// systemTime(SYSTEM_TIME_BOOTTIME) read it, and so do loopers for due times. In manual mode time
// moves only through advance(), so tests and the scenario runner fire timers deterministically.
// Host-only: the library never includes it.
#pragma once

#include <stdint.h>

#include <functional>

namespace android {
namespace host {

class HostClock {
  public:
    static constexpr int64_t kDefaultManualStartNs = 1'000'000'000'000;  // 1000 s

    // Switches to manual time starting at `startNs`. Loopers with a thread are woken so that they
    // re-read the clock. Any thread.
    static void useManual(int64_t startNs = kDefaultManualStartNs);
    // Back to the real monotonic clock (the default).
    static void useReal();
    static bool isManual();

    // Current time in ns: the manual time, or CLOCK_MONOTONIC. Any thread.
    static int64_t now();
    // Moves manual time forward by `deltaNs` (negative values are ignored: time never goes
    // back) and wakes the registered listeners. No effect and false in real mode.
    static bool advance(int64_t deltaNs);

    // Listeners called after every advance() and mode change, on the caller's thread, under the
    // listener lock: they must only wake something up, never call back into HostClock. Returns
    // an id for removeListener().
    static int addListener(std::function<void()> listener);
    static void removeListener(int id);
};

}  // namespace host
}  // namespace android
