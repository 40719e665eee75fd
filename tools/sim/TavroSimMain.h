// The tavro-sim command: option parsing, loading, playing and printing, as a function so that
// tests run it in-process. main.cpp only forwards to it.
#pragma once

#include <ostream>

namespace android {

// Exit statuses of the tools: success, warnings (tavro-boostinfo), bad usage or input.
constexpr int kTavroExitOk = 0;
constexpr int kTavroExitWarnings = 1;
constexpr int kTavroExitBadInput = 2;

// `tavro-sim [--json] [--log-level N] SCENARIO.json` ("-" reads stdin). The trace goes to `out`;
// a problem with the options or the scenario is one line on `err` and exit status 2.
// `standalone` lets it route the library's stderr log (warnings and errors, or nothing while log
// lines go to the trace); tests leave the log as their main set it.
int tavroSimMain(int argc, const char* const* argv, std::ostream& out, std::ostream& err,
                 bool standalone = false);

}  // namespace android
