// Codec2 core scalars: status codes and the 64-bit counter used for ordinals.
#pragma once

#include <stdint.h>

enum c2_status_t : int32_t {
    C2_OK = 0,
    C2_BAD_VALUE = -22,
    C2_BAD_INDEX = -75,
    C2_CANNOT_DO = -38,
    C2_DUPLICATE = -17,
    C2_NOT_FOUND = -2,
    C2_BAD_STATE = -1,
    C2_BLOCKING = -9930,
    C2_CANCELED = -125,
    C2_NO_MEMORY = -12,
    C2_REFUSED = -1 - 12,
    C2_TIMED_OUT = -110,
    C2_OMITTED = -74,
    C2_CORRUPTED = -14,
    C2_NO_INIT = -19,
};

// A wrapping 64-bit counter (frame indices, timestamps). peekll() reads it as signed.
struct c2_cntr64_t {
    c2_cntr64_t() = default;
    constexpr c2_cntr64_t(uint64_t value) : mValue(value) {}
    constexpr uint64_t peeku() const { return mValue; }
    constexpr int64_t peekll() const { return static_cast<int64_t>(mValue); }
    constexpr uint64_t peekull() const { return mValue; }

  private:
    uint64_t mValue = 0;
};
