// Number conversions that never throw. They accept what the C library's atoi/strtol and
// std::stoi accept (leading blanks, a sign, digits up to the first other character) and report
// failure through their result instead of an exception.
#pragma once

#include <stdint.h>

#include <string>

namespace android {

// atoi as the platform's C library computes it: strtol in base 10 (saturating at the 64-bit
// limits), narrowed to 32 bits. No digits read as 0. A null pointer reads as 0.
int32_t tavroAtoi(const char* text);
inline int32_t tavroAtoi(const std::string& text) {
    return tavroAtoi(text.c_str());
}

// strtol in `base` narrowed to 32 bits, as `(int32_t)strtol(text, nullptr, base)`.
int32_t tavroStrtol32(const char* text, int base);

// std::stoi in base 10: false when there is no leading number or it does not fit in int32.
[[nodiscard]] bool tavroParseInt32(const char* text, int32_t* out);
[[nodiscard]] inline bool tavroParseInt32(const std::string& text, int32_t* out) {
    return tavroParseInt32(text.c_str(), out);
}

// A float truncated toward zero into int32, as a (int32_t) cast does for values in range. Values
// the cast would leave undefined are pinned: NaN reads 0, out-of-range values saturate.
int32_t tavroFloatToInt32(float value);

// atof: strtod narrowed to float by the caller; no digits read as 0.
double tavroAtof(const char* text);

}  // namespace android
