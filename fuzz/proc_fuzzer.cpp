// /proc text through the probing readers: a fixture tree under a temporary root holds a fuzzed
// meminfo, a process's cmdline and comm, and up to four task entries (numeric or not, directories
// or plain files, with or without a comm), and the readers of process names, thread names and ids
// and free memory run over it. Oracle: every thread id found names a task directory made here.
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include <tavro/TavroListUtils.h>

#include "FuzzWorld.h"
#include "common/TavroNumber.h"
#include "whitelist/TavroSystemProbe.h"
#include "whitelist/TavroWhiteListCacheMgr.h"

using namespace android;

namespace {

constexpr int32_t kPid = 4242;

// The fixture tree on disk, kept from one input to the next: an input names the entries it wants,
// parents first, and only the difference to the previous input's tree is written. Making and
// removing a whole tree per input would cost most of the input's time in system calls. The
// entries' strings keep the storage reserved at the start, so that nothing the tree keeps across
// inputs is allocated in one input and freed in another (which libFuzzer would take for a leak).
class Tree {
  public:
    explicit Tree(std::string root) : mRoot(std::move(root)) {
        for (auto* entries : {&mHave, &mWant}) {
            for (Entry& e : *entries) {
                e.path.reserve(kMaxText);
                e.bytes.reserve(kMaxText);
            }
        }
    }

    const std::string& root() const { return mRoot; }

    void clearWanted() { mWantCount = 0; }
    // False when `path` is wanted already: the first entry of a name stands, as it would on disk.
    bool wantDir(const std::string& path) { return want(path, std::string(), true); }
    bool wantFile(const std::string& path, const std::string& bytes) {
        return want(path, bytes, false);
    }

    // Makes the disk hold exactly the wanted entries.
    void apply() {
        std::array<bool, kMaxEntries> kept{};
        for (size_t i = mHaveCount; i-- > 0;) {  // deepest first
            const Entry& have = mHave[i];
            const Entry* wanted = find(mWant, mWantCount, have.path);
            kept[i] = wanted != nullptr && wanted->dir == have.dir;
            if (!kept[i]) remove(have);
        }
        for (size_t i = 0; i < mWantCount; ++i) {
            const Entry& wanted = mWant[i];
            const Entry* have = find(mHave, mHaveCount, wanted.path);
            const bool present = have != nullptr && kept[static_cast<size_t>(have - mHave.data())];
            if (wanted.dir) {
                if (!present) ::mkdir(wanted.path.c_str(), 0755);
            } else if (!present || have->bytes != wanted.bytes) {
                fuzz::writeFile(wanted.path, wanted.bytes);
            }
        }
        for (size_t i = 0; i < kMaxEntries; ++i) std::swap(mHave[i], mWant[i]);
        mHaveCount = mWantCount;
        mWantCount = 0;
    }

  private:
    static constexpr size_t kMaxEntries = 16;  // meminfo, pid, cmdline, comm, task, 4 x 2 tasks
    static constexpr size_t kMaxText = 512;    // longer than any path or content made here

    struct Entry {
        std::string path;
        std::string bytes;
        bool dir = false;
    };
    using Entries = std::array<Entry, kMaxEntries>;

    static const Entry* find(const Entries& entries, size_t count, const std::string& path) {
        for (size_t i = 0; i < count; ++i) {
            if (entries[i].path == path) return &entries[i];
        }
        return nullptr;
    }

    static void remove(const Entry& entry) {
        if (entry.dir) {
            ::rmdir(entry.path.c_str());
        } else {
            ::unlink(entry.path.c_str());
        }
    }

    bool want(const std::string& path, const std::string& bytes, bool dir) {
        if (mWantCount == kMaxEntries || find(mWant, mWantCount, path) != nullptr) return false;
        Entry& e = mWant[mWantCount++];
        e.path.assign(path);
        e.bytes.assign(bytes);
        e.dir = dir;
        return true;
    }

    const std::string mRoot;
    Entries mHave;
    Entries mWant;
    size_t mHaveCount = 0;
    size_t mWantCount = 0;
};

Tree* sTree = nullptr;

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    fuzz::initFuzzWorld();
    sTree = new Tree(fuzz::makeScratchDir("tavro-proc-fuzz"));  // never destroyed
    atexit([] { fuzz::removeTree(sTree->root()); });
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    FuzzedDataProvider fdp(data, size);
    const fuzz::FuzzInput input(fdp, false);

    Tree& tree = *sTree;
    tree.clearWanted();
    const std::string pidDir = tree.root() + "/" + std::to_string(kPid);
    const std::string taskDir = pidDir + "/task";
    if (fdp.ConsumeBool()) {
        tree.wantFile(tree.root() + "/meminfo", fdp.ConsumeRandomLengthString(256));
    }
    std::set<int32_t> taskIds;
    if (!fuzz::oneInEight(fdp)) {
        tree.wantDir(pidDir);
        if (fdp.ConsumeBool()) {
            tree.wantFile(pidDir + "/cmdline", fdp.ConsumeRandomLengthString(128));
        }
        if (fdp.ConsumeBool()) {
            tree.wantFile(pidDir + "/comm", fdp.ConsumeRandomLengthString(32));
        }
        if (!fuzz::oneInEight(fdp)) {
            tree.wantDir(taskDir);
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
                if (fuzz::oneInEight(fdp)) {
                    tree.wantFile(entry, "not a directory");  // a task that is a plain file
                    continue;
                }
                if (!tree.wantDir(entry)) continue;
                if (name[0] >= '0' && name[0] <= '9') taskIds.insert(tavroAtoi(name.c_str()));
                if (!fuzz::oneInEight(fdp)) {
                    tree.wantFile(entry + "/comm", fdp.ConsumeRandomLengthString(24));
                }
            }
        }
    }

    tree.apply();
    setProcRootForTesting(tree.root());
    setProcessNameRootForTesting(tree.root());
    std::vector<std::string> names;
    const int nameCount = fdp.ConsumeIntegralInRange<int>(0, 3);
    for (int n = 0; n < nameCount; ++n) names.push_back(fdp.ConsumeRandomLengthString(8));

    std::string processName;
    (void)getProcNameByPid(kPid, processName);
    std::string commName;
    (void)getThreadName(pidDir + "/comm", commName);
    std::vector<int32_t> tids;
    (void)getThreadIdByName(kPid, names, tids);
    for (int32_t tid : tids) fuzz::check(taskIds.count(tid) == 1, "thread id of no task directory");
    (void)getSystemAvailMem();
    (void)getProcessName(kPid);

    setProcRootForTesting(fuzz::fuzzProcRoot());
    setProcessNameRootForTesting(fuzz::fuzzProcRoot());
    return 0;
}
