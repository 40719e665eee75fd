// Fatal checks of the media framework: CHECK(cond) and its comparing forms abort the process
// through LOG_ALWAYS_FATAL with the failed condition's source text. Only for invariants whose
// failure leaves nothing sane to do.
#pragma once

#include <stdint.h>

#include <string>
#include <type_traits>

#include <log/log.h>

#include <media/stagefright/foundation/AString.h>

namespace android {
namespace adebug_internal {

// Text of one compared value for the CHECK_xx failure line.
template <typename T>
std::string checkValueText(const T& value) {
    if constexpr (std::is_same<T, bool>::value) {
        return value ? "true" : "false";
    } else if constexpr (std::is_enum<T>::value) {
        return std::to_string(static_cast<std::underlying_type_t<T>>(value));
    } else if constexpr (std::is_arithmetic<T>::value) {
        return std::to_string(value);
    } else if constexpr (std::is_pointer<T>::value || std::is_null_pointer<T>::value) {
        return AStringPrintf("%p", static_cast<const void*>(value)).c_str();
    } else if constexpr (std::is_same<T, AString>::value) {
        return value.c_str();
    } else {
        return "?";
    }
}

}  // namespace adebug_internal
}  // namespace android

// Aborts with "CHECK(<condition source>) failed." when `condition` is false.
#define CHECK(condition) LOG_ALWAYS_FATAL_IF(!(condition), "%s", "CHECK(" #condition ") failed.")

// Aborts with "CHECK_EQ(x, y) failed: <x> vs. <y>" (and likewise) when the comparison is false.
#define TAVRO_CHECK_OP(x, y, suffix, op)                                                          \
    do {                                                                                          \
        const auto& tavro_check_x_ = (x);                                                         \
        const auto& tavro_check_y_ = (y);                                                         \
        if (!(tavro_check_x_ op tavro_check_y_)) {                                                \
            LOG_ALWAYS_FATAL("CHECK_" #suffix "(" #x ", " #y ") failed: %s vs. %s",               \
                             ::android::adebug_internal::checkValueText(tavro_check_x_).c_str(),  \
                             ::android::adebug_internal::checkValueText(tavro_check_y_).c_str()); \
        }                                                                                         \
    } while (false)

#define CHECK_EQ(x, y) TAVRO_CHECK_OP(x, y, EQ, ==)
#define CHECK_NE(x, y) TAVRO_CHECK_OP(x, y, NE, !=)
#define CHECK_LE(x, y) TAVRO_CHECK_OP(x, y, LE, <=)
#define CHECK_LT(x, y) TAVRO_CHECK_OP(x, y, LT, <)
#define CHECK_GE(x, y) TAVRO_CHECK_OP(x, y, GE, >=)
#define CHECK_GT(x, y) TAVRO_CHECK_OP(x, y, GT, >)

// Marks code that must never run.
#define TRESPASS() LOG_ALWAYS_FATAL("Should not be here.")
