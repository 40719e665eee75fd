// Readers of system state under /proc shared by the white-list cache (process and thread names)
// and the codec (free memory). The platform and process probes themselves are members of
// TavroWhiteListCacheMgr; this header holds the /proc root they all read from and the free
// function the codec calls.
#pragma once

#include <stdint.h>

#include <string>

namespace android {

// Platform identity properties (vendor, soc, project).
constexpr char kPropHardware[] = "ro.hardware";
constexpr char kPropDeviceFamily[] = "ro.build.device_family";
constexpr char kPropProjectName[] = "ro.boot.prjname";

// The default /proc root and the files read below it.
constexpr char kProcRootDefault[] = "/proc";
constexpr char kProcCmdline[] = "cmdline";
constexpr char kProcTask[] = "task";
constexpr char kProcComm[] = "comm";
constexpr char kProcMeminfo[] = "meminfo";
constexpr char kMemAvailableKey[] = "MemAvailable:";

// What getSystemAvailMem answers when it cannot tell: 1 GiB in kB, the low-memory line of the
// post-processing selection, so an unreadable meminfo never counts as low memory.
constexpr int64_t kSystemAvailMemDefaultKb = 1048576;

// The directory every /proc reader of the library reads under ("/proc" unless a test or the
// scenario runner pointed it elsewhere). Returned by reference; not to be changed while codecs run.
const std::string& tavroProcRoot();

// Points every /proc reader at `root` (a directory laid out like /proc, without trailing '/').
// An empty string restores "/proc". Call only while no other thread reads under the root.
void setProcRootForTesting(const std::string& root);

// Free memory in kB: the "MemAvailable:" line of <root>/meminfo read like atoi. Returns
// kSystemAvailMemDefaultKb when the file cannot be opened or has no such line. Any thread; holds
// no lock; logs with the codec's tag.
int64_t getSystemAvailMem();

}  // namespace android
