#include "support/WhiteListWorld.h"

#include <stdlib.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>

#include <host/HostListService.h>
#include <host/HostLog.h>
#include <host/HostProperties.h>
#include <log/log.h>

#include "whitelist/TavroSystemProbe.h"

namespace tavro_bench {

using android::host::HostListService;
using android::host::HostProperties;

WhiteListWorld::WhiteListWorld(const std::string& ownName) {
    std::string pattern =
            (std::filesystem::temp_directory_path() / "tavro-bench-proc-XXXXXX").string();
    if (mkdtemp(pattern.data()) == nullptr) abort();
    mRoot = pattern;
    write(std::to_string(getpid()) + "/cmdline", ownName + std::string(1, '\0'));
    std::filesystem::create_directories(mRoot + "/" + std::to_string(getpid()) + "/task");
    write(std::to_string(kClientPid) + "/cmdline", std::string(kClientName) + '\0');

    android::host::HostLog::setStderrPriority(ANDROID_LOG_SILENT);
    android::host::HostLog::setCapacity(0);
    HostProperties::clear();
    HostProperties::set(android::kPropHardware, "qcom");
    HostProperties::set(android::kPropDeviceFamily, "QXSM8550");
    HostProperties::set(android::kPropProjectName, "P23001");
    HostListService::clear();
    android::setProcRootForTesting(mRoot);

    // App scenario sources.
    HostListService::setByUid(android::kListMediaSchedBoost, static_cast<int64_t>(getuid()),
                              "isVideo=1,isEncoder=0,schedVideo=2,ddrFreq=1555");
    HostListService::setTopActivity(-1, "com.client.app/.PlayerActivity");
    HostListService::setByActivity(android::kListVdecCpuBoost, "com.client.app/.PlayerActivity",
                                   "isVideo=1,preferIdle=1,cluster0Min=1804800");
    // Media server scenario sources.
    HostListService::setByName(android::kListMediaserverBoost, android::kBoostNameListKey,
                               "#generic+com.client.app");
    HostListService::setByName(android::kListMediaserverBoost, "#generic",
                               "isVideo=1,schedVideo=1");
    HostListService::setByName(android::kListMediaserverBoost, kClientName,
                               "isVideo=1,schedVideo=3,preferIdle=1,cluster0Min=1804800");

    mMgr = android::TavroWhiteListCacheMgr::getInstance();
    mMgr->setClockForTesting(nullptr);
    mMgr->resetForTesting();
}

WhiteListWorld::~WhiteListWorld() {
    mMgr->resetForTesting();
    mMgr->setClockForTesting(nullptr);
    android::setProcRootForTesting("");
    std::error_code ec;
    std::filesystem::remove_all(mRoot, ec);
}

android::TavroMediaInfo WhiteListWorld::media() {
    android::TavroMediaInfo m;
    m.mime = "video/avc";
    m.component = "c2.qti.avc.decoder";
    m.width = 1920;
    m.height = 1080;
    m.bitrate = 8000000;
    m.isVideo = 1;
    m.isEncoder = 0;
    return m;
}

void WhiteListWorld::write(const std::string& relative, const std::string& bytes) {
    std::filesystem::path path = std::filesystem::path(mRoot) / relative;
    std::filesystem::create_directories(path.parent_path());
    std::ofstream(path, std::ios::binary) << bytes;
}

}  // namespace tavro_bench
