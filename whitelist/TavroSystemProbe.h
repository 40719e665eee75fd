// Readers of system state: the platform triple from properties, process and thread names and free
// memory from /proc. The white-list cache reads the platform and the process names, the codec the
// free memory. None of them keeps state beyond the /proc root; failures are results, never
// exceptions. Any thread.
#pragma once

#include <stdint.h>

#include <string>
#include <vector>

namespace android {

// ---- Log texts (tag "TavroWhiteListCache"; the optional ones at level 7) ------------------------
constexpr char kLogPropertyValue[] = "property[%s] return value[%d]";
constexpr char kLogNoVendor[] = "Failed to get vendor info";
constexpr char kLogNoSoc[] = "Failed to get soc info";
constexpr char kLogNoProject[] = "Failed to get project info";
constexpr char kLogPlatform[] = "vendor: %s, soc: %s, project: %s";
constexpr char kLogFilePathEmpty[] = "File path is empty.";
constexpr char kLogOpenFileFailed[] = "Failed to open file: %s, error: %s";
constexpr char kLogThreadIdByName[] = "getThreadIdByName, PID: %d";
constexpr char kLogOpenDirFailed[] = "Fail to open directory[%s]";
constexpr char kLogMatchThread[] = "Find match thread[%s], id[%s]";

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

// The device as the boost rules see it. An empty value matches any condition.
struct TavroPlatformInfo {
    std::string vendor;   // "ro.hardware"
    std::string soc;      // "ro.build.device_family"
    std::string project;  // "ro.boot.prjname"
};

// The property's value (at most PROPERTY_VALUE_MAX - 1 characters); empty when unset or empty.
std::string getProperty(const std::string& key);
// Fills `platform` from "ro.hardware", "ro.build.device_family", "ro.boot.prjname", in that
// order; nothing is read when all three are already set. False at the first empty property
// (logged at error priority), with the fields read before it kept.
bool getPlatformInfo(TavroPlatformInfo& platform);
// First command-line argument of process `pid` from <proc root>/<pid>/cmdline.
bool getProcNameByPid(int32_t pid, std::string& name);
// First line of the file at `path`, cut at its first NUL. False (with `name` untouched) when
// the file cannot be opened; false when the line is empty.
bool getThreadName(const std::string& path, std::string& name);
// Appends to `tids` the ids of threads of `pid` whose comm contains one of `names` (an empty
// name matches every thread). Does not clear `tids`; true when it is non-empty afterwards.
bool getThreadIdByName(int32_t pid, const std::vector<std::string>& names,
                       std::vector<int32_t>& tids);

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
