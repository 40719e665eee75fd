// Client of the maker's list service ("mmlist"): per-app lists with membership and text values,
// keyed by uid, pid, name or the top activity of a process. A process-wide singleton created on
// first use. On host it answers from the store in host/HostListService.h.
#pragma once

#include <stddef.h>
#include <stdint.h>

#include <mutex>

namespace android {

class ListServiceUtils {
  public:
    static ListServiceUtils* getInstance();

    // Membership: true when `uid` (or `pid`) is on the list named `listName`.
    bool checkInListByUid(const char* listName, int64_t uid, int32_t flags = 0);
    bool checkInListByPid(const char* listName, int64_t pid, int32_t flags = 0);

    // Values: true when the list holds a value for the key; the value is copied into `value`
    // (`size` bytes, NUL-terminated when it fits). A failed query leaves `value` untouched.
    bool getListValueByUid(const char* listName, int64_t uid, char* value, size_t size);
    bool getListValueByPid(const char* listName, int64_t pid, char* value, size_t size);
    bool getListValueByName(const char* listName, const char* name, char* value, size_t size);
    bool getListValueByTopActivity(const char* listName, int32_t pid, char* value, size_t size);

  private:
    ListServiceUtils() = default;
    static std::mutex sLock;
    static ListServiceUtils* sInstance;
};

}  // namespace android
