// Shared set-up of the libFuzzer targets: a quiet host world whose process-wide stores stay
// bounded over millions of inputs, reset cheaply before each input, and a terminate handler that
// names any exception escaping the library before the process aborts (a crash for libFuzzer).
#pragma once

#include <stdint.h>

#include <fuzzer/FuzzedDataProvider.h>

#include <string>

#include "FuzzInputs.h"

namespace android {
namespace fuzz {

// Once, from LLVMFuzzerInitialize: log lines off stderr and into a 64-record sink; host events,
// property reads, list-service questions and codec calls not recorded; the manual host clock;
// the terminate handler; the fixture /proc (fuzzProcRoot()). Any later call does nothing.
void initFuzzWorld();

// A directory laid out like /proc, made once per process (on tmpfs when there is one) and removed
// at exit: the process's command line ("fuzz.app"), four threads with the names boost rules use
// ("fuzz.app", "NuPlayerRender", "MediaCodec_loop", "AudioOut") and a meminfo with 3 GB free.
// The probes read it instead of the real /proc, so that an input's result does not depend on the
// threads libFuzzer runs and no input pays for procfs.
const std::string& fuzzProcRoot();

// Makes a fresh directory "<tmpfs or /tmp>/<name>-XXXXXX" and returns its path; aborts when it
// cannot. On tmpfs when the machine has one (/dev/shm), so that files made per input cost no
// disk work. The caller removes it.
std::string makeScratchDir(const char* name);

// Writes `bytes` to `path`, made or truncated; a path that cannot be opened is left alone.
void writeFile(const std::string& path, const std::string& bytes);

// Removes `dir` and everything below it.
void removeTree(const std::string& dir);

// Sets the log level property ("debug.tavro.video.log.enable").
void setFuzzLogLevel(const char* level);

// The log level of an input that asks for it: every detailed line formatted.
constexpr char kFuzzLogDetailed[] = "7";
// The log level of every other input: optional lines gated off, warnings and errors still written.
constexpr char kFuzzLogQuiet[] = "0";

// One input's stay in the world, which it finds empty: no properties, an empty list service (fault
// mode none), no boost requests (service available, status OK), a blank white-list cache reading
// the fixture /proc, the process's own calling identity, an empty log sink, the manual clock at
// its start. On entry the platform
// triple the white list needs ("qcom", "SM8550", "fuzz") is set unless `withPlatform` is false,
// and the log level is set. On exit the world is emptied again, so that what the input stored is
// freed before the input ends: libFuzzer runs a full leak check after every input that allocates
// more than it frees, and a world that kept an input's stores until the next one would trigger it
// on about half of them.
class FuzzInput {
  public:
    // The log level comes from the input's last byte (FuzzedDataProvider takes integers from the
    // end): detailed when it is kDetailByte, quiet otherwise, an input too short for the byte
    // included. The formatted lines are fuzzed by the inputs that ask for them, and the search
    // keeps a few such inputs for the lines' own edges, while the others do not pay for them.
    FuzzInput(FuzzedDataProvider& fdp, bool withPlatform);
    FuzzInput(bool withPlatform, const char* logLevel);
    ~FuzzInput();
    FuzzInput(const FuzzInput&) = delete;
    FuzzInput& operator=(const FuzzInput&) = delete;

    static constexpr uint8_t kDetailByte = 0xD7;
};

// `text` as a std::string made once per distinct pointer and kept for the process: the host stores
// take std::string, and the tables of names a target walks on every input would otherwise be
// copied at every call. For string literals and constant tables only.
const std::string& named(const char* text);

// True when width x height fits in int32: matching a video rule multiplies the two, and an area
// that does not fit is the white list's named fatal check, which a fuzzer must not feed.
bool areaFits(int32_t width, int32_t height);

// What a reader with room for `limit` characters gets of `text`: cut at the first NUL and after
// `limit` characters.
std::string deliveredText(const std::string& text, size_t limit);

// True when `boostInfo` parses to a rule whose area limit fits (or that is rejected anyway).
bool boostInfoAreaFits(const std::string& boostInfo);

}  // namespace fuzz
}  // namespace android
