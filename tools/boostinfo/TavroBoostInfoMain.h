// The tavro-boostinfo command as a function, so that tests run it in-process.
#pragma once

#include <istream>
#include <ostream>

namespace android {

// `tavro-boostinfo [--media DESC] [--device DESC] [STRING]`: STRING absent or "-" reads one
// string from `in` (without its line end). Prints the record and the findings on `out`; option
// problems go to `err`. Returns 0 clean, 1 warnings, 2 errors or bad usage.
int tavroBoostInfoMain(int argc, const char* const* argv, std::istream& in, std::ostream& out,
                       std::ostream& err);

}  // namespace android
