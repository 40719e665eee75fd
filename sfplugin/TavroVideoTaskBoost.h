// TavroVideoTaskBoost: a request to boost named threads of a process (the app's key threads),
// written to a binder parcel for the maker's video boost service.
#pragma once

#include <stdint.h>

#include <string>
#include <vector>

#include <binder/Parcel.h>
#include <binder/Parcelable.h>
#include <utils/Errors.h>

namespace android {

class TavroVideoTaskBoost : public Parcelable {
  public:
    int32_t pid = 0;
    uint32_t sched = 0;
    std::vector<std::string> threadNames;

    // Wire order: pid (int32), sched (uint32), threadNames (UTF-8 vector as UTF-16). A null parcel
    // gives BAD_VALUE; the first failing write or read ends the operation with its status.
    status_t writeToParcel(Parcel* parcel) const override;
    status_t readFromParcel(const Parcel* parcel) override;
};

}  // namespace android
