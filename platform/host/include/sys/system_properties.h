// Property-area serial: changes whenever any property changes, so hot readers can cache a parsed
// value and re-read only when the serial moves.
#pragma once

#include <stdint.h>

extern "C" uint32_t __system_property_area_serial();
