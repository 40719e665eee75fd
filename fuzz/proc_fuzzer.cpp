// /proc text through the probing readers: a fixture tree under a temporary root holds a fuzzed
// meminfo, a process's cmdline and comm, and up to four task entries (numeric or not, directories
// or plain files, with or without a comm), and the readers of process names, thread names and ids
// and free memory run over it. Oracle: every thread id found names a task directory made here.
#include <dirent.h>
#include <fcntl.h>
#include <stddef.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>

#include <fuzzer/FuzzedDataProvider.h>

#include <set>
#include <string>
#include <vector>

#include <tavro/TavroListUtils.h>

#include "FuzzWorld.h"
#include "common/TavroNumber.h"
#include "whitelist/TavroSystemProbe.h"
#include "whitelist/TavroWhiteListCacheMgr.h"

using namespace android;

namespace {

constexpr int32_t kPid = 4242;

std::string sRoot;

void writeFile(const std::string& path, const std::string& bytes) {
    const int fd = ::open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
    if (fd < 0) return;
    size_t done = 0;
    while (done < bytes.size()) {
        const ssize_t n = ::write(fd, bytes.data() + done, bytes.size() - done);
        if (n <= 0) break;
        done += static_cast<size_t>(n);
    }
    ::close(fd);
}

// Removes what an input made, deepest first.
void removeAll(std::vector<std::string>& made) {
    for (auto it = made.rbegin(); it != made.rend(); ++it) {
        if (::unlink(it->c_str()) != 0) ::rmdir(it->c_str());
    }
    made.clear();
}

void check(bool ok, const char* what) {
    if (ok) return;
    fprintf(stderr, "==fuzz== broken: %s\n", what);
    abort();
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    fuzz::initFuzzWorld();
    sRoot = fuzz::makeScratchDir("tavro-proc-fuzz");
    atexit([] { ::rmdir(sRoot.c_str()); });
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    FuzzedDataProvider fdp(data, size);
    const fuzz::FuzzInput input(fdp, false);

    std::vector<std::string> made;
    const std::string pidDir = sRoot + "/" + std::to_string(kPid);
    const std::string taskDir = pidDir + "/task";
    if (fdp.ConsumeBool()) {
        writeFile(sRoot + "/meminfo", fdp.ConsumeRandomLengthString(256));
        made.push_back(sRoot + "/meminfo");
    }
    std::set<int32_t> taskIds;
    if (fdp.ConsumeIntegralInRange<int>(0, 7) != 0) {
        ::mkdir(pidDir.c_str(), 0755);
        made.push_back(pidDir);
        if (fdp.ConsumeBool()) {
            writeFile(pidDir + "/cmdline", fdp.ConsumeRandomLengthString(128));
            made.push_back(pidDir + "/cmdline");
        }
        if (fdp.ConsumeBool()) {
            writeFile(pidDir + "/comm", fdp.ConsumeRandomLengthString(32));
            made.push_back(pidDir + "/comm");
        }
        if (fdp.ConsumeIntegralInRange<int>(0, 7) != 0) {
            ::mkdir(taskDir.c_str(), 0755);
            made.push_back(taskDir);
            const int tasks = fdp.ConsumeIntegralInRange<int>(0, 4);
            for (int t = 0; t < tasks; ++t) {
                std::string name = fdp.ConsumeBool()
                                           ? std::to_string(fdp.ConsumeIntegral<uint16_t>())
                                           : fdp.ConsumeRandomLengthString(8);
                if (name.empty() || name.find('/') != std::string::npos || name == "." ||
                    name == ".." || name.find('\0') != std::string::npos) {
                    continue;
                }
                const std::string entry = taskDir + "/" + name;
                if (fdp.ConsumeIntegralInRange<int>(0, 7) == 0) {
                    writeFile(entry, "not a directory");  // a task that is a plain file
                    made.push_back(entry);
                    continue;
                }
                if (::mkdir(entry.c_str(), 0755) != 0) continue;
                made.push_back(entry);
                if (name[0] >= '0' && name[0] <= '9') taskIds.insert(tavroAtoi(name.c_str()));
                if (fdp.ConsumeIntegralInRange<int>(0, 7) != 0) {
                    writeFile(entry + "/comm", fdp.ConsumeRandomLengthString(24));
                    made.push_back(entry + "/comm");
                }
            }
        }
    }

    setProcRootForTesting(sRoot);
    setProcessNameRootForTesting(sRoot);
    std::vector<std::string> names;
    const int nameCount = fdp.ConsumeIntegralInRange<int>(0, 3);
    for (int n = 0; n < nameCount; ++n) names.push_back(fdp.ConsumeRandomLengthString(8));

    std::string processName;
    (void)getProcNameByPid(kPid, processName);
    std::string commName;
    (void)getThreadName(pidDir + "/comm", commName);
    std::vector<int32_t> tids;
    (void)getThreadIdByName(kPid, names, tids);
    for (int32_t tid : tids) check(taskIds.count(tid) == 1, "thread id of no task directory");
    (void)getSystemAvailMem();
    (void)getProcessName(kPid);

    setProcRootForTesting(fuzz::fuzzProcRoot());
    setProcessNameRootForTesting(fuzz::fuzzProcRoot());
    removeAll(made);
    return 0;
}
