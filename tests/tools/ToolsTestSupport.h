// Shared pieces of the tool tests: the source tree (for the bundled scenarios and Android.bp), a
// scratch directory, and trace lookups.
#pragma once

#include <stdlib.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "tools/sim/TavroTrace.h"

namespace android {
namespace test {

// The source tree: $TAVRO_SOURCE_DIR (set by CTest), else the first directory upwards from the
// working directory that holds scenarios/default.json.
inline std::string toolsSourceDir() {
    const char* env = getenv("TAVRO_SOURCE_DIR");
    if (env != nullptr && env[0] != '\0') return env;
    std::filesystem::path dir = std::filesystem::current_path();
    while (!dir.empty()) {
        if (std::filesystem::exists(dir / "scenarios" / "default.json")) return dir.string();
        if (dir == dir.parent_path()) break;
        dir = dir.parent_path();
    }
    return ".";
}

// Every bundled scenario's path, sorted.
inline std::vector<std::string> bundledScenarioPaths() {
    std::vector<std::string> out;
    for (const auto& e : std::filesystem::directory_iterator(toolsSourceDir() + "/scenarios")) {
        if (e.path().extension() == ".json") out.push_back(e.path().string());
    }
    std::sort(out.begin(), out.end());
    return out;
}

inline std::string readFile(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

// A fresh directory removed with the object.
class ScratchDir {
  public:
    ScratchDir() {
        std::string pattern =
                (std::filesystem::temp_directory_path() / "tavro-tools-XXXXXX").string();
        mPath = mkdtemp(pattern.data()) != nullptr ? pattern : "";
    }
    ~ScratchDir() {
        std::error_code ec;
        if (!mPath.empty()) std::filesystem::remove_all(mPath, ec);
    }
    const std::string& path() const { return mPath; }
    std::string write(const std::string& name, const std::string& content) const {
        const std::string file = mPath + "/" + name;
        std::ofstream(file, std::ios::binary) << content;
        return file;
    }

  private:
    std::string mPath;
};

// The readable lines of the entries of `kind`, without their time column.
inline std::vector<std::string> texts(const TavroTrace& trace, const std::string& kind) {
    std::vector<std::string> out;
    for (const TavroTraceEntry& e : trace.ofKind(kind)) out.push_back(e.text);
    return out;
}

// Index of the first entry of `kind` whose text is `text`, searching from `from`; -1 when none.
inline int indexOf(const TavroTrace& trace, const std::string& kind, const std::string& text,
                   int from = 0) {
    const std::vector<TavroTraceEntry>& entries = trace.entries();
    for (size_t i = static_cast<size_t>(from); i < entries.size(); ++i) {
        if (entries[i].kind == kind && entries[i].text == text) return static_cast<int>(i);
    }
    return -1;
}

// Entries of `kind` whose "name" field is `name`.
inline std::vector<TavroTraceEntry> named(const TavroTrace& trace, const std::string& kind,
                                          const std::string& name) {
    std::vector<TavroTraceEntry> out;
    for (const TavroTraceEntry& e : trace.ofKind(kind)) {
        if (e.fields.contains("name") && e.fields["name"] == name) out.push_back(e);
    }
    return out;
}

}  // namespace test
}  // namespace android
