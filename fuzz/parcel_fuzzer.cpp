// Parcels through readFromParcel of both boost requests: any bytes, read from any start. A request
// that reads back must write again and read back to the same fields (the service sees exactly what
// the codec meant), and a failed read must leave the parcel's position inside its data. Needs
// nothing but the parcel, the two requests and the header-only FuzzInputs.h, so it also builds as a
// device fuzzer.
#include <vector>

#include <binder/Parcel.h>

#include "FuzzInputs.h"
#include "sfplugin/TavroVideoBoostParams.h"
#include "sfplugin/TavroVideoTaskBoost.h"

using namespace android;
using android::fuzz::check;

namespace {

bool same(const TavroVideoBoostParams& a, const TavroVideoBoostParams& b) {
    return a.needVendorBoost == b.needVendorBoost && a.sched == b.sched && a.ddrFreq == b.ddrFreq &&
           a.threads == b.threads && a.clusterParams == b.clusterParams &&
           a.uclampThreads == b.uclampThreads && a.swThreads == b.swThreads;
}

bool same(const TavroVideoTaskBoost& a, const TavroVideoTaskBoost& b) {
    return a.pid == b.pid && a.sched == b.sched && a.threadNames == b.threadNames;
}

template <typename Request>
void roundTrip(const std::vector<uint8_t>& bytes, size_t start) {
    Parcel in;
    check(in.setData(bytes.data(), bytes.size()) == OK, "setData");
    in.setDataPosition(start);
    Request first;
    if (first.readFromParcel(&in) != OK) {
        check(in.dataPosition() <= in.dataSize() || in.dataPosition() == start,
              "failed read moved past the data");
        return;
    }
    Parcel out;
    check(first.writeToParcel(&out) == OK, "a request read back does not write");
    out.setDataPosition(0);
    Request second;
    check(second.readFromParcel(&out) == OK, "a written request does not read back");
    check(same(first, second), "round trip changed the request");
    check(out.dataAvail() == 0, "bytes left after a round trip");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    FuzzedDataProvider fdp(data, size);
    const size_t start = fdp.ConsumeIntegralInRange<size_t>(0, 8) * 4;
    const std::vector<uint8_t> bytes = fdp.ConsumeRemainingBytes<uint8_t>();
    roundTrip<TavroVideoBoostParams>(bytes, start);
    roundTrip<TavroVideoTaskBoost>(bytes, start);
    // A null parcel is refused rather than read.
    TavroVideoBoostParams params;
    check(params.readFromParcel(nullptr) == BAD_VALUE, "null parcel read");
    return 0;
}
