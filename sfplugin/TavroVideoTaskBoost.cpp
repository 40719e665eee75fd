#define LOG_TAG "TavroVideoTaskBoost"
#include "sfplugin/TavroVideoTaskBoost.h"

namespace android {

status_t TavroVideoTaskBoost::writeToParcel(Parcel* parcel) const {
    if (parcel == nullptr) return BAD_VALUE;
    status_t err;
    if ((err = parcel->writeInt32(pid)) != OK) return err;
    if ((err = parcel->writeUint32(sched)) != OK) return err;
    return parcel->writeUtf8VectorAsUtf16Vector(threadNames);
}

status_t TavroVideoTaskBoost::readFromParcel(const Parcel* parcel) {
    if (parcel == nullptr) return BAD_VALUE;
    status_t err;
    if ((err = parcel->readInt32(&pid)) != OK) return err;
    if ((err = parcel->readUint32(&sched)) != OK) return err;
    return parcel->readUtf8VectorFromUtf16Vector(&threadNames);
}

}  // namespace android
