#include "tools/sim/TavroProcFixture.h"

#include <errno.h>
#include <stdlib.h>
#include <string.h>

#include <filesystem>
#include <fstream>
#include <system_error>

namespace android {

namespace {

bool writeFile(const std::filesystem::path& path, const std::string& content, std::string* error) {
    std::error_code ec;
    std::filesystem::create_directories(path.parent_path(), ec);
    std::ofstream out(path, std::ios::binary);
    out << content;
    if (!out) {
        *error = "cannot write " + path.string();
        return false;
    }
    return true;
}

}  // namespace

TavroProcFixture::~TavroProcFixture() {
    remove();
}

bool TavroProcFixture::create(const std::string& processName, int32_t ownPid,
                              const TavroProcDescription& desc, std::string* error) {
    remove();
    const char* tmp = getenv("TMPDIR");
    std::string pattern =
            std::string(tmp != nullptr && tmp[0] != '\0' ? tmp : "/tmp") + "/tavro-sim-proc-XXXXXX";
    if (mkdtemp(pattern.data()) == nullptr) {
        *error = "cannot create a /proc fixture in " + pattern + ": " + strerror(errno);
        return false;
    }
    mRoot = pattern;
    const std::filesystem::path root(mRoot);
    const std::filesystem::path own = root / std::to_string(ownPid);
    // cmdline holds NUL-terminated arguments; comm one line.
    if (!writeFile(own / "cmdline", processName + std::string(1, '\0'), error) ||
        !writeFile(own / "comm", processName + "\n", error)) {
        return false;
    }
    for (const TavroScenarioThread& t : desc.threads) {
        if (!writeFile(own / "task" / std::to_string(t.tid) / "comm", t.name + "\n", error)) {
            return false;
        }
    }
    for (const TavroScenarioOtherProcess& p : desc.processes) {
        const std::filesystem::path dir = root / std::to_string(p.pid);
        if (!writeFile(dir / "cmdline", p.name + std::string(1, '\0'), error) ||
            !writeFile(dir / "comm", p.name + "\n", error)) {
            return false;
        }
    }
    if (desc.hasMemAvailable) {
        const std::string meminfo =
                "MemTotal:       " + std::to_string(desc.memAvailableKb * 2) +
                " kB\nMemFree:        " + std::to_string(desc.memAvailableKb / 2) +
                " kB\nMemAvailable:   " + std::to_string(desc.memAvailableKb) + " kB\n";
        if (!writeFile(root / "meminfo", meminfo, error)) return false;
    }
    return true;
}

void TavroProcFixture::remove() {
    if (mRoot.empty()) return;
    std::error_code ec;
    std::filesystem::remove_all(mRoot, ec);
    mRoot.clear();
}

}  // namespace android
