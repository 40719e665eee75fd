// Reads a tavro-sim scenario file (JSON) into a TavroScenario and checks all of it before anything
// is played: malformed JSON, unknown keys or events, values of the wrong type or range, duplicated
// keys, unreadable property files and files beyond the limits below are reported as one line
// naming the place in the file. Time and memory grow linearly with the file.
#pragma once

#include <stddef.h>
#include <stdint.h>

#include <stdexcept>
#include <string>

#include "tools/sim/TavroScenario.h"

namespace android {

// Limits on what a scenario may be. A recorded hour at 60 fps is about 650,000 events and 40 MB.
constexpr uint64_t kTavroMaxScenarioBytes = 128ull << 20;
constexpr uint64_t kTavroMaxPropertyFileBytes = 1ull << 20;
constexpr size_t kTavroMaxEvents = 2000000;
constexpr size_t kTavroMaxNesting = 32;  // objects and arrays inside each other

// A scenario that cannot be played. what() is the whole diagnostic line, for example
// "scenario.json: events[3].fps: expected a number".
class TavroScenarioError : public std::runtime_error {
  public:
    explicit TavroScenarioError(const std::string& line) : std::runtime_error(line) {}
};

// Reads `path` ("-" reads stdin). Property files are found relative to the scenario file's
// directory (the working directory for stdin). Throws TavroScenarioError.
TavroScenario loadTavroScenarioFile(const std::string& path);

// Parses `text`; `name` is the file name used in messages, `baseDir` the directory property
// files are relative to. Throws TavroScenarioError.
TavroScenario loadTavroScenarioText(const std::string& text, const std::string& name,
                                    const std::string& baseDir);

}  // namespace android
