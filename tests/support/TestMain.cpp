// Test entry point: keeps the platform log off stderr (set TAVRO_TEST_LOG=1 to see it) while the
// in-memory sink still records every line for the assertions.
#include <gtest/gtest.h>

#include <log/log.h>

#include <host/HostLog.h>

#include <cstdlib>

int main(int argc, char** argv) {
    const char* show = getenv("TAVRO_TEST_LOG");
    android::host::HostLog::setStderrPriority(
            show != nullptr && show[0] == '1' ? ANDROID_LOG_VERBOSE : ANDROID_LOG_SILENT);
    testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
