// Host-only makers of Codec2 records from raw bytes, for tests and the scenario runner: they
// build records exactly as a component would put them on the wire, including malformed ones.
#pragma once

#include <stdint.h>

#include <memory>
#include <vector>

#include <C2Param.h>

namespace android {
namespace host {

// A record whose size field is `sizeField` and whose bytes after the 8-byte header are
// `payload`. The allocation holds max(sizeField, 8 + payload.size()) bytes, so a size field
// smaller than the payload is a lie a reader must not go past, and a larger one is zero-filled.
std::unique_ptr<C2Param> makeC2Param(uint32_t index, const std::vector<uint8_t>& payload,
                                     uint32_t sizeField);
inline std::unique_ptr<C2Param> makeC2Param(uint32_t index, const std::vector<uint8_t>& payload) {
    return makeC2Param(index, payload, static_cast<uint32_t>(8 + payload.size()));
}

std::shared_ptr<C2Info> makeC2Info(uint32_t index, const std::vector<uint8_t>& payload,
                                   uint32_t sizeField);
inline std::shared_ptr<C2Info> makeC2Info(uint32_t index, const std::vector<uint8_t>& payload) {
    return makeC2Info(index, payload, static_cast<uint32_t>(8 + payload.size()));
}

// The record's bytes, exactly `param.size()` of them (size field included).
std::vector<uint8_t> c2ParamBytes(const C2Param& param);

}  // namespace host
}  // namespace android
