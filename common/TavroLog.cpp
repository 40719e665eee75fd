#define LOG_TAG "TavroLog"
#include "common/TavroLog.h"

#include <cutils/properties.h>

#include "common/TavroNumber.h"

namespace android {

int32_t tavroLogLevel(const char* defaultLevel) {
    char value[PROPERTY_VALUE_MAX];
    property_get(kTavroLogLevelProperty, value, defaultLevel);
    return tavroAtoi(value);
}

}  // namespace android
