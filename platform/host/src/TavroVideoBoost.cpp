// Host video boost client: one process-wide instance that keeps every request's parcel bytes and
// records it as a "boost", "unboost" or "task_boost" event.
#include <tavro/TavroVideoBoost.h>

#include <cstdio>
#include <mutex>
#include <string>
#include <utility>

#include <host/HostEvents.h>

namespace android {
namespace {

struct BoostState {
    std::mutex lock;
    bool available = true;                           // guarded by lock
    status_t status = OK;                            // guarded by lock
    sp<TavroVideoBoost> instance;                    // guarded by lock
    std::vector<TavroVideoBoost::Request> requests;  // guarded by lock
    int writeFailAfter = -1;                         // guarded by lock
};

// Never destroyed: codecs torn down at process exit may still release their boost.
BoostState& state() {
    static BoostState* s = new BoostState();
    return *s;
}

std::string hexBytes(const std::vector<uint8_t>& bytes) {
    static const char kDigits[] = "0123456789abcdef";
    std::string text;
    text.reserve(bytes.size() * 2);
    for (uint8_t b : bytes) {
        text.push_back(kDigits[b >> 4]);
        text.push_back(kDigits[b & 0xF]);
    }
    return text;
}

// Writes `parcelable` to a parcel and keeps the bytes as one request of `kind`.
status_t sendParcel(TavroVideoBoost* self, TavroVideoBoost::Request::Kind kind,
                    const char* eventKind, const char* eventName, const Parcelable& parcelable) {
    Parcel parcel;
    {
        BoostState& s = state();
        std::lock_guard<std::mutex> guard(s.lock);
        if (s.writeFailAfter >= 0) parcel.setWriteFailAfterForTesting(s.writeFailAfter);
        s.writeFailAfter = -1;
    }
    status_t err = parcelable.writeToParcel(&parcel);
    if (err != OK) return err;  // nothing reaches the service
    TavroVideoBoost::Request request{kind, {}, 0};
    request.parcel.assign(parcel.data(), parcel.data() + parcel.dataSize());
    std::string hex = hexBytes(request.parcel);
    status_t status;
    {
        BoostState& s = state();
        std::lock_guard<std::mutex> guard(s.lock);
        s.requests.push_back(std::move(request));
        status = s.status;
    }
    host::HostEvents::record({eventKind, eventName, self, {{"parcel", std::move(hex)}}});
    return status;
}

}  // namespace

sp<TavroVideoBoost> TavroVideoBoost::getInstance() {
    BoostState& s = state();
    std::lock_guard<std::mutex> guard(s.lock);
    if (!s.available) return nullptr;
    if (s.instance == nullptr) s.instance = new TavroVideoBoost();
    return s.instance;
}

status_t TavroVideoBoost::boost(const Parcelable& params) {
    return sendParcel(this, Request::kBoost, "boost", "boost", params);
}

status_t TavroVideoBoost::boostTask(const Parcelable& task) {
    return sendParcel(this, Request::kBoostTask, "task_boost", "boostTask", task);
}

status_t TavroVideoBoost::unboost(uint32_t flags) {
    status_t status;
    {
        BoostState& s = state();
        std::lock_guard<std::mutex> guard(s.lock);
        s.requests.push_back(Request{Request::kUnboost, {}, flags});
        status = s.status;
    }
    char text[16];
    snprintf(text, sizeof(text), "0x%x", flags);
    host::HostEvents::record({"unboost", "unboost", this, {{"flags", text}}});
    return status;
}

std::vector<TavroVideoBoost::Request> TavroVideoBoost::requestsForTesting() {
    BoostState& s = state();
    std::lock_guard<std::mutex> guard(s.lock);
    return s.requests;
}

void TavroVideoBoost::clearRequestsForTesting() {
    BoostState& s = state();
    std::lock_guard<std::mutex> guard(s.lock);
    s.requests.clear();
}

void TavroVideoBoost::setAvailableForTesting(bool available) {
    BoostState& s = state();
    std::lock_guard<std::mutex> guard(s.lock);
    s.available = available;
}

void TavroVideoBoost::setWriteFailAfterForTesting(int n) {
    BoostState& s = state();
    std::lock_guard<std::mutex> guard(s.lock);
    s.writeFailAfter = n < 0 ? -1 : n;
}

void TavroVideoBoost::setStatusForTesting(status_t status) {
    BoostState& s = state();
    std::lock_guard<std::mutex> guard(s.lock);
    s.status = status;
}

}  // namespace android
