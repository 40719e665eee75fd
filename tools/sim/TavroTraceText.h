// The readable line of a trace entry, rendered from its typed fields: one function per kind, so
// the text view can never name a value the JSON view does not carry.
#pragma once

#include <stdint.h>

#include <string>

#include <nlohmann/json.hpp>

#include "tools/sim/TavroTrace.h"

namespace android {

// The line without time and kind, e.g. "+ operating-rate (float) = 120".
std::string tavroTraceText(const TavroTraceEntry& entry);

// A format or parameter map as the scenario writes it (bare int32 and string, {"int64": n},
// {"float": x}) in the trace's short form: {mime="video/avc", bitrate=5000000L, frame-rate=30f}.
std::string tavroTypedMapText(const nlohmann::ordered_json& map);

// "0x0000abcd" and the shortest text that reads back as the same number.
std::string tavroHex32(uint32_t value);
std::string tavroFloatText(double value);
std::string tavroFloatText(float value);

}  // namespace android
