#define LOG_TAG "TavroVideoBoostParams"
#include "sfplugin/TavroVideoBoostParams.h"

namespace android {

bool TavroVideoBoostParams::isEmpty() const {
    return threads.empty() && clusterParams.empty() && uclampThreads.empty() && !needVendorBoost &&
           ddrFreq < 1;
}

status_t TavroVideoBoostParams::writeToParcel(Parcel* parcel) const {
    if (parcel == nullptr) return BAD_VALUE;
    status_t err;
    if ((err = parcel->writeBool(needVendorBoost)) != OK) return err;
    if ((err = parcel->writeInt32(sched)) != OK) return err;
    if ((err = parcel->writeInt32(ddrFreq)) != OK) return err;
    if ((err = parcel->writeInt32Vector(threads)) != OK) return err;
    if ((err = parcel->writeInt32Vector(clusterParams)) != OK) return err;
    if ((err = parcel->writeInt32Vector(uclampThreads)) != OK) return err;
    return parcel->writeUtf8VectorAsUtf16Vector(swThreads);
}

status_t TavroVideoBoostParams::readFromParcel(const Parcel* parcel) {
    if (parcel == nullptr) return BAD_VALUE;
    status_t err;
    if ((err = parcel->readBool(&needVendorBoost)) != OK) return err;
    if ((err = parcel->readInt32(&sched)) != OK) return err;
    if ((err = parcel->readInt32(&ddrFreq)) != OK) return err;
    if ((err = parcel->readInt32Vector(&threads)) != OK) return err;
    if ((err = parcel->readInt32Vector(&clusterParams)) != OK) return err;
    if ((err = parcel->readInt32Vector(&uclampThreads)) != OK) return err;
    return parcel->readUtf8VectorFromUtf16Vector(&swThreads);
}

}  // namespace android
