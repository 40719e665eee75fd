#define LOG_NDEBUG 0
#define LOG_TAG "TavroCCodecBufferChannel"
#include "sfplugin/TavroHdrInfo.h"

#include <string.h>

namespace android {

namespace {

// The payload of a flexible record: the bytes after the header, within its size field.
uint32_t payloadLength(const C2Param& param) {
    const size_t size = param.size();
    return size > kC2ParamHeaderSize ? static_cast<uint32_t>(size - kC2ParamHeaderSize) : 0;
}

const uint8_t* recordBytes(const C2Param& param) {
    return reinterpret_cast<const uint8_t*>(&param);
}

// Reads the T.35 header (8-bit country, 16-bit provider, 16-bit provider-oriented code) and tells
// whether it is the HDR Vivid one. An empty payload is not.
bool hasHdrVividSignature(const C2Info& info) {
    uint32_t length = payloadLength(info);
    if (length == 0) return false;
    const uint8_t* payload = recordBytes(info) + kC2ParamHeaderSize;
    uint32_t bytePos = 0;
    uint32_t bitPos = 7;
    const uint32_t country = getValueFromByteArray(payload, &length, &bytePos, &bitPos, 8);
    const uint32_t provider = getValueFromByteArray(payload, &length, &bytePos, &bitPos, 16);
    const uint32_t orientedCode = getValueFromByteArray(payload, &length, &bytePos, &bitPos, 16);
    return country == kHdrVividCountryCode && provider == kHdrVividProviderCode &&
           orientedCode == kHdrVividProviderOrientedCode;
}

uint32_t readU32(const uint8_t* bytes, uint32_t offset) {
    uint32_t value;
    memcpy(&value, bytes + offset, sizeof(value));
    return value;
}

}  // namespace

uint32_t getValueFromByteArray(const uint8_t* data, uint32_t* length, uint32_t* bytePos,
                               uint32_t* bitPos, uint32_t nbits) {
    if (nbits == 0 || data == nullptr || length == nullptr || bytePos == nullptr ||
        bitPos == nullptr) {
        return 0;
    }
    // A position past the most significant bit would shift by more than a byte.
    if (*bitPos > 7) *bitPos = 7;
    uint32_t result = 0;
    uint32_t remaining = nbits;
    for (;;) {
        if (*bytePos >= *length) return result;
        const uint32_t avail = *bitPos + 1;
        const uint32_t bits = data[*bytePos] & ((1u << avail) - 1);
        if (avail <= remaining) {
            result = (result << avail) | bits;
            *bitPos = 7;
            *bytePos += 1;
            remaining -= avail;
            if (remaining == 0) return result;
        } else {
            *bitPos -= remaining;
            return (result << remaining) | (bits >> (avail - remaining));
        }
    }
}

bool isHDRVivid(const std::shared_ptr<const C2Info>& info) {
    return info != nullptr && hasHdrVividSignature(*info);
}

void checkHdr10PlusInfo(const std::shared_ptr<const C2Info>& info, int32_t* hdrType) {
    if (info == nullptr || hdrType == nullptr) return;
    *hdrType = hasHdrVividSignature(*info) ? kHdrTypeHdrVivid : kHdrTypeHdr10Plus;
}

void checkColorAspectsInfo(const std::shared_ptr<const C2Info>& info, int32_t* hdrType) {
    if (info == nullptr || hdrType == nullptr || info->size() < kColorAspectsInfoSize) return;
    const uint8_t* bytes = recordBytes(*info);
    const uint32_t primaries = readU32(bytes, kColorAspectsPrimariesOffset);
    const uint32_t transfer = readU32(bytes, kColorAspectsTransferOffset);
    if (primaries == kPrimariesBt2020 && transfer == kTransferSmpteSt2084) *hdrType = kHdrTypeHdr10;
    if (transfer == kTransferHlg) *hdrType = kHdrTypeHlg;
}

}  // namespace android
