#define LOG_NDEBUG 0
#define LOG_TAG "TavroLog"
#include "common/TavroLog.h"

#include <sys/system_properties.h>

#include <atomic>
#include <cstring>

#include <cutils/properties.h>

#include "common/TavroNumber.h"

namespace android {

namespace {

enum : uint32_t {
    kSlotFree = 0,
    kSlotFilling = 1,  // claimed by one thread, which is writing the text
    kSlotReady = 2,    // text fixed for good; only `level` changes from now on
};

// A serial no property area ever reports while it is usable: bionic answers it before the area
// is mapped, when every read gives the default. Never cached, so a level read then is not kept.
constexpr uint32_t kNoSerial = UINT32_MAX;

// One cached default text and the level last read for it. Slots are claimed in order and never
// released, so the ready ones always form a prefix of the table and each text has one slot.
struct LevelSlot {
    std::atomic<uint32_t> state{kSlotFree};
    // Written by the claiming thread before it publishes kSlotReady (release); read only after
    // seeing kSlotReady (acquire).
    char text[kTavroLogCachedDefaultMax + 1] = {};
    // (serial << 32) | level as uint32: the level parsed under that property-area serial. Written
    // by whichever thread reads the property; racing writers store complete pairs, and a pair
    // whose serial is stale simply misses.
    std::atomic<uint64_t> level{0};
};

LevelSlot sSlots[kTavroLogCachedDefaults];

int32_t readLevel(const char* defaultLevel) {
    char value[PROPERTY_VALUE_MAX];
    property_get(kTavroLogLevelProperty, value, defaultLevel);
    return tavroAtoi(value);
}

uint64_t pack(uint32_t serial, int32_t level) {
    return (static_cast<uint64_t>(serial) << 32) | static_cast<uint32_t>(level);
}

// True when `text` equals the slot's text; never reads past the end of either.
bool sameText(const char* slotText, const char* text) {
    for (int i = 0; i <= kTavroLogCachedDefaultMax; ++i) {
        if (slotText[i] != text[i]) return false;
        if (text[i] == '\0') return true;
    }
    return false;
}

// Reads the level now and keeps it in `slot` under `serial`.
int32_t refresh(LevelSlot& slot, uint32_t serial, const char* text) {
    const int32_t level = readLevel(text);
    slot.level.store(pack(serial, level), std::memory_order_relaxed);
    return level;
}

}  // namespace

int32_t tavroLogLevel(const char* defaultLevel) {
    // property_get treats a null default as an empty one.
    const char* text = defaultLevel != nullptr ? defaultLevel : "";
    // Read before the property: a level is never older than the serial it is stored under.
    const uint32_t serial = __system_property_area_serial();
    if (serial == kNoSerial) return readLevel(text);

    for (LevelSlot& slot : sSlots) {
        uint32_t state = slot.state.load(std::memory_order_acquire);
        if (state == kSlotFree) {
            if (strnlen(text, kTavroLogCachedDefaultMax + 1) > kTavroLogCachedDefaultMax) break;
            if (slot.state.compare_exchange_strong(state, kSlotFilling,
                                                   std::memory_order_acquire)) {
                memcpy(slot.text, text, strlen(text) + 1);
                const int32_t level = refresh(slot, serial, text);
                slot.state.store(kSlotReady, std::memory_order_release);
                return level;
            }
            // Lost the claim: `state` now holds what the winner set.
        }
        // A slot being filled may be for this very text: read directly this once.
        if (state != kSlotReady) break;
        if (!sameText(slot.text, text)) continue;
        const uint64_t cached = slot.level.load(std::memory_order_relaxed);
        if (static_cast<uint32_t>(cached >> 32) == serial) {
            return static_cast<int32_t>(static_cast<uint32_t>(cached));
        }
        return refresh(slot, serial, text);
    }
    // A long default, or the table is full: uncached, still exact.
    return readLevel(text);
}

}  // namespace android
