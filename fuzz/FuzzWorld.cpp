#include "FuzzWorld.h"

#include <stdio.h>
#include <stdlib.h>

#include <exception>
#include <memory>
#include <typeinfo>

#include <binder/IPCThreadState.h>
#include <host/HostClock.h>
#include <host/HostEvents.h>
#include <host/HostListService.h>
#include <host/HostLog.h>
#include <host/HostProperties.h>
#include <log/log.h>
#include <tavro/TavroListUtils.h>
#include <tavro/TavroVideoBoost.h>

#include "common/TavroLog.h"
#include "whitelist/TavroSystemProbe.h"
#include "whitelist/TavroWhiteListCacheMgr.h"

namespace android {
namespace fuzz {
namespace {

// Nothing in the library may throw; should something still escape, say what before aborting.
[[noreturn]] void onTerminate() {
    const char* what = "unknown";
    if (std::exception_ptr e = std::current_exception()) {
        try {
            std::rethrow_exception(e);
        } catch (const std::exception& ex) {
            fprintf(stderr, "==fuzz== uncaught exception %s: %s\n", typeid(ex).name(), ex.what());
            abort();
        } catch (...) {
        }
    } else {
        what = "terminate without an exception";
    }
    fprintf(stderr, "==fuzz== uncaught exception (%s)\n", what);
    abort();
}

bool sInitialised = false;

}  // namespace

void initFuzzWorld() {
    if (sInitialised) return;
    sInitialised = true;
    std::set_terminate(onTerminate);
    host::HostLog::setStderrPriority(ANDROID_LOG_SILENT);
    host::HostLog::setCapacity(64);
    host::HostEvents::setEnabled(false);
    host::HostEvents::clear();
    host::HostClock::useManual();
}

void resetFuzzWorld(bool withPlatform) {
    host::HostProperties::clear();
    host::HostListService::clear();
    host::HostLog::clear();
    TavroVideoBoost::clearRequestsForTesting();
    TavroVideoBoost::setAvailableForTesting(true);
    TavroVideoBoost::setStatusForTesting(OK);
    TavroWhiteListCacheMgr::getInstance()->resetForTesting();
    setProcRootForTesting("");
    setProcessNameRootForTesting("");
    IPCThreadState::self()->clearCallingIdentityForTesting();
    if (withPlatform) {
        host::HostProperties::set(kPropHardware, "qcom");
        host::HostProperties::set(kPropDeviceFamily, "SM8550");
        host::HostProperties::set(kPropProjectName, "fuzz");
    }
}

void setFuzzLogLevel(const char* level) {
    host::HostProperties::set(kTavroLogLevelProperty, level);
}

void startFuzzInput(FuzzedDataProvider& fdp, bool withPlatform) {
    resetFuzzWorld(withPlatform);
    setFuzzLogLevel(fdp.ConsumeBool() ? "7" : "0");
}

bool areaFits(int32_t width, int32_t height) {
    int32_t area;
    return !__builtin_mul_overflow(width, height, &area);
}

bool boostInfoAreaFits(const std::string& boostInfo) {
    auto info = std::make_shared<MediaBoostInfo>();
    if (!parseBoostInfo(boostInfo, info)) return true;
    return areaFits(info->condition.limitWidth, info->condition.limitHeight);
}

}  // namespace fuzz
}  // namespace android
