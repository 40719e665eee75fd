// The world the white-list benchmarks look boost info up in: a temporary /proc tree naming the
// own process and one client process, the platform properties, and list answers for both the app
// scenario (per-uid and top-activity lists) and the media server scenario (name map, "#generic"
// and the client's own entry). Quiet log, fresh manager on the real clock.
#pragma once

#include <stdint.h>

#include <string>

#include "whitelist/TavroWhiteListCacheMgr.h"

namespace tavro_bench {

constexpr int32_t kClientPid = 4242;
constexpr char kClientName[] = "com.client.app";

class WhiteListWorld {
  public:
    // `ownName` is what /proc says this process is: an app or "/system/bin/mediaserver".
    explicit WhiteListWorld(const std::string& ownName);
    // Resets the manager, its clock and the /proc root, and removes the tree.
    ~WhiteListWorld();
    WhiteListWorld(const WhiteListWorld&) = delete;
    WhiteListWorld& operator=(const WhiteListWorld&) = delete;

    // The client's 1080p AVC decode both scenarios look up.
    static android::TavroMediaInfo media();
    android::TavroWhiteListCacheMgr* mgr() const { return mMgr; }

  private:
    void write(const std::string& relative, const std::string& bytes);

    std::string mRoot;
    android::TavroWhiteListCacheMgr* mMgr = nullptr;
};

}  // namespace tavro_bench
