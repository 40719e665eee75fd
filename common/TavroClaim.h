// Once-only claims on the per-frame path.
#pragma once

#include <atomic>

namespace android {

// True for the one caller that turns `flag` from false to true. Once the flag is set, every later
// frame pays a plain load instead of a locked exchange; the exchange still decides between racing
// first callers, so exactly one of them wins.
inline bool tavroClaimOnce(std::atomic<bool>& flag) {
    return !flag.load(std::memory_order_relaxed) && !flag.exchange(true);
}

}  // namespace android
