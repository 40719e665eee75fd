// The tavro-sim command: option parsing, loading, playing and printing, as a function so that
// tests run it in-process. main.cpp only forwards to it.
#pragma once

#include <ostream>

namespace android {

// Exit statuses of the tools: success, warnings (tavro-boostinfo), bad usage or input, and the
// library stopping the process on one of its fatal checks (tavro-sim).
constexpr int kTavroExitOk = 0;
constexpr int kTavroExitWarnings = 1;
constexpr int kTavroExitBadInput = 2;
constexpr int kTavroExitFatalCheck = 3;

// `tavro-sim [--json] [--log-level N] [--only KIND,...] [--summary] [--timeline FILE]
// SCENARIO.json` ("-" reads stdin). The trace streams to `out`, a line at a time; a problem with
// the options or the scenario is one line on `err` and exit status 2, and nothing plays. Library
// warnings go to `err` with the scenario's pid. With --timeline the session is also written to
// FILE (TavroTraceTimeline) once it has played, or when a fatal check stops it; a FILE that cannot
// be written is status 2. No exception leaves this function.
// `standalone` lets it own the process: it routes the library's stderr log through `err`, and
// when a fatal check of the library stops the process it exits with kTavroExitFatalCheck after
// writing out the trace and a last line on `err` naming the check. Tests leave the log as their
// main set it, and a fatal check aborts as the library asks.
int tavroSimMain(int argc, const char* const* argv, std::ostream& out, std::ostream& err,
                 bool standalone = false);

}  // namespace android
