// The tavro-boostinfo command as a function, so that tests run it in-process.
#pragma once

#include <istream>
#include <ostream>

namespace android {

// `tavro-boostinfo [--via list|property] [--media DESC] [--device DESC] [--json]
//  [STRING | -f FILE | -]`
// STRING checks one rule and prints its record, findings and verdict. `-f FILE`, `-f -`, a lone
// "-" or no STRING check every non-empty line of FILE or `in` as a rule of its own and print
// the findings and verdicts with their line numbers, then a summary. `--json` prints one object
// per rule (and the summary) per line instead. Option and input problems go to `err`. Returns 0
// clean, 1 warnings, 2 errors or bad usage.
int tavroBoostInfoMain(int argc, const char* const* argv, std::istream& in, std::ostream& out,
                       std::ostream& err);

}  // namespace android
