// TavroVideoBoostParams: one boost request for the maker's video boost service, written to a
// binder parcel. The codec keeps its whole request (built at configure) and sends it, or parts of
// it, as the codec starts and its operating rate moves.
#pragma once

#include <stdint.h>

#include <string>
#include <vector>

#include <binder/Parcel.h>
#include <binder/Parcelable.h>
#include <utils/Errors.h>

namespace android {

class TavroVideoBoostParams : public Parcelable {
  public:
    bool needVendorBoost = false;        // ask the chip vendor's own boost too (video)
    int32_t sched = -1;                  // scheduling class of the boosted threads
    int32_t ddrFreq = 0;                 // memory-frequency boost, secure (DRM) video only
    std::vector<int32_t> threads;        // flat triples (pid, tid, sched)
    std::vector<int32_t> clusterParams;  // CPU-cluster (opcode, value) pairs
    std::vector<int32_t> uclampThreads;  // flat pairs (tid, minUclamp)
    std::vector<std::string> swThreads;  // software codec thread names (audio)

    // True when there is nothing to send: no thread, cluster or uclamp entry, no vendor boost and
    // no DDR request. `sched` alone does not make a request.
    bool isEmpty() const;

    // Wire order: needVendorBoost (bool), sched, ddrFreq (int32), threads, clusterParams,
    // uclampThreads (int32 vectors), swThreads (UTF-8 vector as UTF-16). A null parcel gives
    // BAD_VALUE; the first failing write or read ends the operation with its status.
    status_t writeToParcel(Parcel* parcel) const override;
    status_t readFromParcel(const Parcel* parcel) override;
};

}  // namespace android
