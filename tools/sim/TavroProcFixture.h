// A temporary directory laid out like /proc for one scenario: the tool's own process (under its
// real pid) with its command line and the scenario's threads, other processes' command lines,
// and meminfo. The library's /proc readers are pointed at it while the scenario plays.
#pragma once

#include <stdint.h>

#include <string>

#include "tools/sim/TavroScenario.h"

namespace android {

class TavroProcFixture {
  public:
    TavroProcFixture() = default;
    ~TavroProcFixture();
    TavroProcFixture(const TavroProcFixture&) = delete;
    TavroProcFixture& operator=(const TavroProcFixture&) = delete;

    // Builds the tree under a fresh directory in $TMPDIR (or /tmp). `ownPid` is the real pid the
    // own process is filed under. False with `*error` set when the directory cannot be made.
    bool create(const std::string& processName, int32_t ownPid, const TavroProcDescription& desc,
                std::string* error);
    // The tree's root, "" before create().
    const std::string& root() const { return mRoot; }
    // Deletes the tree (also done by the destructor).
    void remove();

  private:
    std::string mRoot;
};

}  // namespace android
