// The one writer of fake /proc trees for the suites: a temporary directory laid out like /proc,
// removed with everything in it at destruction. Point the library's readers at root().
#pragma once

#include <gtest/gtest.h>

#include <stdint.h>
#include <stdlib.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <string>

namespace android {
namespace test {

class ProcTree {
  public:
    ProcTree() {
        std::string pattern = std::filesystem::temp_directory_path() / "tavro-proc-XXXXXX";
        EXPECT_NE(mkdtemp(pattern.data()), nullptr);
        mRoot = pattern;
    }
    ~ProcTree() {
        std::error_code ec;
        std::filesystem::remove_all(mRoot, ec);
    }
    ProcTree(const ProcTree&) = delete;
    ProcTree& operator=(const ProcTree&) = delete;

    const std::string& root() const { return mRoot; }
    // Writes `bytes` (NULs included) to root/relative, creating the directories above it.
    void write(const std::string& relative, const std::string& bytes) const {
        const std::filesystem::path path = std::filesystem::path(mRoot) / relative;
        std::filesystem::create_directories(path.parent_path());
        std::ofstream(path, std::ios::binary | std::ios::trunc) << bytes;
    }
    void makeDir(const std::string& relative) const {
        std::filesystem::create_directories(std::filesystem::path(mRoot) / relative);
    }
    void remove(const std::string& relative) const {
        std::filesystem::remove_all(std::filesystem::path(mRoot) / relative);
    }
    // A thread of `pid` whose comm reads `comm` followed by a newline.
    void addThread(int32_t pid, const std::string& tid, const std::string& comm) const {
        write(std::to_string(pid) + "/task/" + tid + "/comm", comm + "\n");
    }
    // meminfo with 12 GB in total and `availKb` available.
    void meminfo(int64_t availKb) const {
        write("meminfo",
              "MemTotal:       12000000 kB\nMemAvailable:   " + std::to_string(availKb) + " kB\n");
    }
    static std::string ownPid() { return std::to_string(getpid()); }

  private:
    std::string mRoot;
};

}  // namespace test
}  // namespace android
