// Client of the maker's video boost service: sends boost requests (parcelables written to a
// binder parcel), releases them, and boosts named threads. getInstance() is null when the service
// is not available. On host the parcel bytes of every call are kept as a "boost", "unboost" or
// "task_boost" event, so tests and tools can decode exactly what was asked.
#pragma once

#include <stdint.h>

#include <vector>

#include <binder/Parcel.h>
#include <binder/Parcelable.h>
#include <utils/Errors.h>
#include <utils/RefBase.h>

namespace android {

class TavroVideoBoost : public RefBase {
  public:
    static sp<TavroVideoBoost> getInstance();

    status_t boost(const Parcelable& params);
    status_t unboost(uint32_t flags);
    status_t boostTask(const Parcelable& task);

    // ---- Host only -------------------------------------------------------------------------
    struct Request {
        enum Kind { kBoost, kUnboost, kBoostTask } kind;
        std::vector<uint8_t> parcel;  // the request as written to the parcel (boost, task)
        uint32_t flags = 0;           // unboost flags
    };
    static std::vector<Request> requestsForTesting();
    static void clearRequestsForTesting();
    // false makes getInstance() return null (service missing).
    static void setAvailableForTesting(bool available);
    static void setStatusForTesting(status_t status);
    // The next boost or boostTask request fails while being written to its parcel, at the n-th
    // write (1 = the first): that call returns NO_MEMORY and nothing reaches the service. Only
    // that one request fails; -1 turns a pending fault off.
    static void setWriteFailAfterForTesting(int n);
};

}  // namespace android
