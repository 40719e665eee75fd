// What every fuzz target takes its inputs and its oracles from: header-only and free of the host
// stand-ins, so that a target needing nothing else still builds as a device fuzzer.
#pragma once

#include <stddef.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>

#include <fuzzer/FuzzedDataProvider.h>

#include <algorithm>
#include <memory>
#include <vector>

namespace android {
namespace fuzz {

// An oracle: a broken one is named on stderr and aborts the run (a crash for libFuzzer).
inline void check(bool ok, const char* what) {
    if (ok) return;
    fprintf(stderr, "==fuzz== broken: %s\n", what);
    abort();
}

// One of `table`'s entries.
template <typename T, size_t N>
T pick(FuzzedDataProvider& fdp, T const (&table)[N]) {
    return table[fdp.ConsumeIntegralInRange<size_t>(0, N - 1)];
}

// True for one value of eight: the rare shapes (a null record, a task that is a file) stay rare.
inline bool oneInEight(FuzzedDataProvider& fdp) {
    return fdp.ConsumeIntegralInRange<int>(0, 7) == 0;
}

// Up to `maxSize` input bytes, their count taken first.
inline std::vector<uint8_t> consumeUpTo(FuzzedDataProvider& fdp, size_t maxSize) {
    return fdp.ConsumeBytes<uint8_t>(fdp.ConsumeIntegralInRange<size_t>(0, maxSize));
}

// consumeUpTo() in a block of exactly their size, so that a read past them is caught; null when
// there are none.
struct ExactBytes {
    std::unique_ptr<uint8_t[]> data;
    uint32_t size = 0;
};
inline ExactBytes consumeExactBytes(FuzzedDataProvider& fdp, size_t maxSize) {
    const std::vector<uint8_t> bytes = consumeUpTo(fdp, maxSize);
    ExactBytes out;
    out.size = static_cast<uint32_t>(bytes.size());
    if (!bytes.empty()) out.data.reset(new uint8_t[bytes.size()]);
    std::copy(bytes.begin(), bytes.end(), out.data.get());
    return out;
}

}  // namespace fuzz
}  // namespace android
