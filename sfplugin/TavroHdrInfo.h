// The HDR vocabulary of the codec and its channel, and the HDR metadata readers for decoded output
// buffers: an MSB-first bit reader, the HDR Vivid signature test of ITU-T T.35 dynamic metadata,
// and the colour-aspects rule. Used by the codec's HDR check; exported for the platform side.
#pragma once

#include <stdint.h>

#include <memory>

#include <C2Param.h>

namespace android {

// Info records read from an output C2Buffer (uint32 size, uint32 index, then the value).
// Output stream colour aspects: uint32 range, primaries, transfer, matrix at bytes 8, 12, 16, 20.
constexpr uint32_t kColorAspectsInfoIndex = 0xD2001809;
constexpr uint32_t kColorAspectsInfoSize = 24;
constexpr uint32_t kColorAspectsPrimariesOffset = 12;
constexpr uint32_t kColorAspectsTransferOffset = 16;
// Output stream HDR10+ dynamic metadata: a flexible byte array from byte 8.
constexpr uint32_t kHdr10PlusInfoIndex = 0xD2011811;
constexpr uint32_t kC2ParamHeaderSize = 8;

// Colour-aspects values of the HDR rule.
constexpr uint32_t kPrimariesBt2020 = 6;
constexpr uint32_t kTransferSmpteSt2084 = 6;
constexpr uint32_t kTransferHlg = 7;

// ITU-T T.35 header of HDR Vivid dynamic metadata.
constexpr uint32_t kHdrVividCountryCode = 0x26;
constexpr uint32_t kHdrVividProviderCode = 4;
constexpr uint32_t kHdrVividProviderOrientedCode = 5;

// HDR kinds: the codec's HDR type, reported in its playback feedback. The readers below write
// kinds 1 to 4; Dolby Vision is known from the mime at configure.
constexpr int32_t kHdrTypeNone = 0;
constexpr int32_t kHdrTypeHdr10 = 1;
constexpr int32_t kHdrTypeHlg = 2;
constexpr int32_t kHdrTypeHdr10Plus = 3;
constexpr int32_t kHdrTypeHdrVivid = 4;
constexpr int32_t kHdrTypeDolbyVision = 5;

// The buffer channel keeps a bit set of what the platform side reported (setHdrType) instead:
// these two bits are the ones it tells apart; parserDynamicMetaData answers kChannelHdrVivid.
constexpr uint32_t kChannelHdrVivid = 16;
constexpr uint32_t kChannelHdr10Plus = 4;
constexpr char kLogChannelHdrVivid[] = "HdrType HdrVivid %d";
constexpr char kLogChannelHdr10Plus[] = "HdrType Hdr10+ %d";
constexpr char kLogChannelHdr10OrHlg[] = "HdrType HDR10 or HLG %d";

// Reads `nbits` bits MSB first from `data` (`*length` bytes) at byte `*bytePos`, bit `*bitPos`
// (7 = most significant; callers start at 0 and 7) and advances the position. A read that runs
// past the end returns the bits gathered so far, unshifted, and never touches data[*length] or
// beyond. nbits 0, or a null pointer, gives 0. A bit position above 7 is read as 7.
uint32_t getValueFromByteArray(const uint8_t* data, uint32_t* length, uint32_t* bytePos,
                               uint32_t* bitPos, uint32_t nbits);

// True iff the dynamic-metadata payload (the record's bytes after the header, within its size
// field) starts with the HDR Vivid signature: country 38, provider 4, provider-oriented code 5.
// A null record, or one of 8 bytes or fewer, gives false.
bool isHDRVivid(const std::shared_ptr<const C2Info>& info);

// Classifies dynamic metadata: *hdrType = 4 (HDR Vivid) on the signature, 3 (HDR10+) for any
// other payload, an empty one included. A null record or out-pointer leaves it unchanged.
void checkHdr10PlusInfo(const std::shared_ptr<const C2Info>& info, int32_t* hdrType);

// Colour aspects: BT.2020 primaries with SMPTE ST 2084 transfer give 1 (HDR10); an HLG transfer
// then gives 2 whatever the primaries; otherwise *hdrType is left as it is. A null record, or one
// whose size field is below the 24 bytes of its layout, leaves it unchanged.
void checkColorAspectsInfo(const std::shared_ptr<const C2Info>& info, int32_t* hdrType);

}  // namespace android
