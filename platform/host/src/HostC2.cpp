// Host makers of raw Codec2 records: the bytes a component would put on the wire, laid out as
// little-endian uint32 size, uint32 index, then the payload.
#include <host/HostC2.h>

#include <algorithm>
#include <cstring>
#include <new>

namespace android {
namespace host {
namespace {

void putLe32(uint8_t* out, uint32_t value) {
    out[0] = static_cast<uint8_t>(value);
    out[1] = static_cast<uint8_t>(value >> 8);
    out[2] = static_cast<uint8_t>(value >> 16);
    out[3] = static_cast<uint8_t>(value >> 24);
}

// A zeroed block of max(sizeField, 8 + payload) bytes holding the record. Released with
// ::operator delete (C2Param's class operator delete, or the C2Info deleter below).
void* allocateRecord(uint32_t index, const std::vector<uint8_t>& payload, uint32_t sizeField) {
    const size_t bytes = std::max<size_t>(sizeField, 8 + payload.size());
    auto* block = static_cast<uint8_t*>(::operator new(bytes));
    memset(block, 0, bytes);
    putLe32(block, sizeField);
    putLe32(block + 4, index);
    if (!payload.empty()) memcpy(block + 8, payload.data(), payload.size());
    return block;
}

}  // namespace

std::unique_ptr<C2Param> makeC2Param(uint32_t index, const std::vector<uint8_t>& payload,
                                     uint32_t sizeField) {
    return std::unique_ptr<C2Param>(
            static_cast<C2Param*>(allocateRecord(index, payload, sizeField)));
}

std::shared_ptr<C2Info> makeC2Info(uint32_t index, const std::vector<uint8_t>& payload,
                                   uint32_t sizeField) {
    return std::shared_ptr<C2Info>(static_cast<C2Info*>(allocateRecord(index, payload, sizeField)),
                                   [](C2Info* info) { ::operator delete(info); });
}

std::vector<uint8_t> c2ParamBytes(const C2Param& param) {
    const auto* bytes = reinterpret_cast<const uint8_t*>(&param);
    return std::vector<uint8_t>(bytes, bytes + param.size());
}

}  // namespace host
}  // namespace android
