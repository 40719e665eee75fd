// Codec2 records made from fuzz input for the work and HDR targets: parameter records whose size
// fields may lie (shorter than their bytes, or zero) and whose indices lean towards the ones the
// channel and the HDR check look for.
#pragma once

#include <stdint.h>

#include <fuzzer/FuzzedDataProvider.h>

#include <memory>
#include <utility>
#include <vector>

#include <C2Param.h>
#include <host/HostC2.h>

#include "FuzzWorld.h"

namespace android {
namespace fuzz {

// Up to `maxPayload` payload bytes and a size field for them: the honest 8 + payload, or anything
// from 0 to 16 bytes past it (the host maker zero-fills an allocation that large).
inline std::pair<std::vector<uint8_t>, uint32_t> consumeRecord(FuzzedDataProvider& fdp,
                                                               size_t maxPayload) {
    std::vector<uint8_t> payload = consumeUpTo(fdp, maxPayload);
    const uint32_t honest = static_cast<uint32_t>(8 + payload.size());
    const uint32_t sizeField =
            fdp.ConsumeBool() ? honest : fdp.ConsumeIntegralInRange<uint32_t>(0, honest + 16);
    return {std::move(payload), sizeField};
}

inline std::unique_ptr<C2Param> consumeParam(FuzzedDataProvider& fdp, uint32_t index,
                                             size_t maxPayload) {
    const auto [payload, sizeField] = consumeRecord(fdp, maxPayload);
    return host::makeC2Param(index, payload, sizeField);
}

inline std::shared_ptr<C2Info> consumeInfo(FuzzedDataProvider& fdp, uint32_t index,
                                           size_t maxPayload) {
    const auto [payload, sizeField] = consumeRecord(fdp, maxPayload);
    return host::makeC2Info(index, payload, sizeField);
}

// An index: one of `known`, one of them with its stream-id and direction bits changed, or any.
template <size_t N>
uint32_t consumeIndex(FuzzedDataProvider& fdp, const uint32_t (&known)[N]) {
    switch (fdp.ConsumeIntegralInRange<int>(0, 2)) {
        case 0:
            return pick(fdp, known);
        case 1:
            return pick(fdp, known) ^ (fdp.ConsumeIntegral<uint32_t>() & 0x33F00000u);
        default:
            return fdp.ConsumeIntegral<uint32_t>();
    }
}

// Up to `most` entries appended to `out`, their count taken first: one in eight null, the others
// made by `make`.
template <typename Container, typename Make>
void consumeSome(FuzzedDataProvider& fdp, int most, Container& out, Make make) {
    for (int n = fdp.ConsumeIntegralInRange<int>(0, most); n > 0; --n) {
        if (oneInEight(fdp)) {
            out.push_back(nullptr);
        } else {
            out.push_back(make());
        }
    }
}

}  // namespace fuzz
}  // namespace android
