// Platform log macros, as included by framework code.
#pragma once

#include <log/log.h>
