// Android.bp cannot be built here; these checks keep it in step with the tree.
#include <algorithm>
#include <filesystem>
#include <sstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "tools/ToolsTestSupport.h"

namespace android {
namespace {

using test::readFile;

// The quoted paths between "// BEGIN <what>" and "// END <what>".
std::vector<std::string> markedList(const std::string& bp, const std::string& what) {
    std::vector<std::string> out;
    const size_t begin = bp.find("// BEGIN " + what);
    const size_t end = bp.find("// END " + what);
    if (begin == std::string::npos || end == std::string::npos || end < begin) return out;
    std::istringstream lines(bp.substr(begin, end - begin));
    std::string line;
    std::getline(lines, line);  // the BEGIN marker
    while (std::getline(lines, line)) {
        const size_t open = line.find('"');
        const size_t close = line.rfind('"');
        if (open != std::string::npos && close > open) {
            out.push_back(line.substr(open + 1, close - open - 1));
        }
    }
    return out;
}

// `dir`/*`suffix` relative to the source tree, sorted.
std::vector<std::string> filesOnDisk(const std::string& root, const std::string& dir,
                                     const std::string& suffix) {
    std::vector<std::string> out;
    std::error_code ec;
    for (const auto& entry : std::filesystem::directory_iterator(root + "/" + dir, ec)) {
        const std::string name = entry.path().filename().string();
        if (entry.is_regular_file() && name.size() > suffix.size() &&
            name.compare(name.size() - suffix.size(), suffix.size(), suffix) == 0) {
            out.push_back(dir + "/" + name);
        }
    }
    std::sort(out.begin(), out.end());
    return out;
}

TEST(AndroidBpTest, LibrarySourcesAreExactlyTheFilesOnDisk) {
    const std::string root = test::toolsSourceDir();
    const std::string bp = readFile(root + "/Android.bp");
    ASSERT_FALSE(bp.empty()) << "no Android.bp under " << root;
    const std::vector<std::string> listed = markedList(bp, "library sources");

    std::vector<std::string> onDisk;
    for (const char* dir : {"common", "sfplugin", "whitelist"}) {
        for (const std::string& f : filesOnDisk(root, dir, ".cpp")) onDisk.push_back(f);
    }
    std::sort(onDisk.begin(), onDisk.end());
    ASSERT_FALSE(onDisk.empty());
    EXPECT_EQ(listed, onDisk);
    EXPECT_TRUE(std::is_sorted(listed.begin(), listed.end()));
}

// True when `file` reaches for the host layer: a host header, a host-only test hook or the host
// namespace, in the file itself or in a local header it includes (or that header's .cpp, which
// the file links with).
bool usesHost(const std::string& root, const std::string& file) {
    const std::string text = readFile(root + "/" + file);
    if (text.find("#include <host/") != std::string::npos ||
        text.find("ForTesting") != std::string::npos || text.find("host::") != std::string::npos) {
        return true;
    }
    const std::string dir = file.substr(0, file.rfind('/'));
    size_t pos = 0;
    while ((pos = text.find("#include \"", pos)) != std::string::npos) {
        pos += 10;
        const std::string header = text.substr(pos, text.find('"', pos) - pos);
        for (const std::string& candidate : {dir + "/" + header, "tests/" + header}) {
            if (!std::filesystem::exists(root + "/" + candidate)) continue;
            if (usesHost(root, candidate)) return true;
            const size_t dot = candidate.rfind(".h");
            if (dot != std::string::npos && dot + 2 == candidate.size()) {
                const std::string source = candidate.substr(0, dot) + ".cpp";
                if (std::filesystem::exists(root + "/" + source) && usesHost(root, source)) {
                    return true;
                }
            }
        }
    }
    return false;
}

TEST(AndroidBpTest, DeviceTestsAreTheHostFreeSuites) {
    const std::string root = test::toolsSourceDir();
    const std::string bp = readFile(root + "/Android.bp");
    const std::vector<std::string> listed = markedList(bp, "device test sources");
    ASSERT_FALSE(listed.empty());
    EXPECT_TRUE(std::is_sorted(listed.begin(), listed.end()));

    // Library suites (the platform suites test the host layer itself) that need no host layer.
    std::vector<std::string> hostFree;
    for (const char* dir : {"tests/common", "tests/sfplugin", "tests/whitelist"}) {
        for (const std::string& f : filesOnDisk(root, dir, "_test.cpp")) {
            if (!usesHost(root, f)) hostFree.push_back(f);
        }
    }
    std::sort(hostFree.begin(), hostFree.end());
    EXPECT_EQ(listed, hostFree);
    EXPECT_NE(bp.find("test_suites: [\"general-tests\"]"), std::string::npos);
}

TEST(AndroidBpTest, FuzzModulesAreTheHostFreeFuzzers) {
    const std::string root = test::toolsSourceDir();
    const std::string bp = readFile(root + "/Android.bp");
    // Holds for any set of fuzzers, none included.
    const std::vector<std::string> fuzzers = filesOnDisk(root, "fuzz", "_fuzzer.cpp");
    for (const std::string& file : fuzzers) {
        SCOPED_TRACE(file);
        // A fuzzer built on a device must not need the host stand-ins; one that does is host-only.
        const bool listed = bp.find("\"" + file + "\"") != std::string::npos;
        EXPECT_EQ(listed, !usesHost(root, file));
    }
    // No module builds with the host layer.
    EXPECT_EQ(bp.find("\"platform/host"), std::string::npos);
    EXPECT_EQ(bp.find("\"fuzz/FuzzWorld.cpp\""), std::string::npos);
}

}  // namespace
}  // namespace android
