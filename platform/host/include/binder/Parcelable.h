// Parcelable: an object that writes itself into a binder Parcel and reads itself back.
#pragma once

#include <utils/Errors.h>

namespace android {

class Parcel;

class Parcelable {
  public:
    virtual ~Parcelable() = default;

    // Appends the object at the parcel's position; a failed write's status is returned as is.
    virtual status_t writeToParcel(Parcel* parcel) const = 0;
    // Reads the object from the parcel's position; NOT_ENOUGH_DATA / BAD_VALUE on bad data.
    virtual status_t readFromParcel(const Parcel* parcel) = 0;
};

}  // namespace android
