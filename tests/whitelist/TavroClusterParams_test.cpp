// Cluster opcodes: record -> (opcode, value) list for the Qualcomm entry point and the MediaTek
// encoder.
#include <gtest/gtest.h>

#include <map>
#include <vector>

#include "WhiteListTestSupport.h"

namespace android {
namespace {

using Ops = std::vector<int32_t>;

TavroClusterInfo withMinFreq(std::map<int32_t, int32_t> minFreq, bool preferIdle = false) {
    TavroClusterInfo info;
    info.clusterMinFreq = std::move(minFreq);
    info.isPreferIdle = preferIdle;
    return info;
}

TEST(ClusterParamsTest, RecordToOpcodes) {
    TavroClusterInfo mtkOnly;
    mtkOnly.peltHalflife = 8;
    mtkOnly.isScreenOff = true;
    mtkOnly.freqRate = {80, 60};
    mtkOnly.limitOpRate = 60;
    mtkOnly.minUclamp = 512;
    mtkOnly.countFps = true;
    mtkOnly.uclampIndex = {0, 1};
    std::map<int32_t, int32_t> every;
    for (int32_t n = 0; n <= 7; ++n) every[n] = 1000 * (n + 1);
    TavroClusterInfo negativeRate;
    negativeRate.freqRate = {-1, 50};
    const struct {
        const char* name;
        TavroClusterInfo info;
        Ops qcom;
        Ops mtk;
    } kCases[] = {
            {"empty record", TavroClusterInfo(), {}, {}},
            {"clusters 0 and 7",
             withMinFreq({{0, 1804800}, {7, 2419200}}),
             {0x40800100, 1804, 0x40800030, 2419},
             {0x00400000, 1804800, 0x00400700, 2419200}},
            {"every cluster 0..7",
             withMinFreq(every),
             {0x40800100, 1, 0x40800110, 2, 0x40800120, 3, 0x40800130, 4, 0x40800000, 5, 0x40800010,
              6, 0x40800020, 7, 0x40800030, 8},
             {0x00400000, 1000, 0x00400100, 2000, 0x00400200, 3000, 0x00400300, 4000, 0x00400400,
              5000, 0x00400500, 6000, 0x00400600, 7000, 0x00400700, 8000}},
            {"cluster 8 has only a MediaTek opcode",
             withMinFreq({{8, 5000}}),
             {},
             {0x00400800, 5000}},
            {"negative cluster and frequency",
             withMinFreq({{-1, -1999}}),
             {static_cast<int32_t>(0xFFFFFFF0), -1},
             {static_cast<int32_t>(0x003FFF00), -1999}},
            {"extreme cluster numbers wrap instead of overflowing",
             withMinFreq({{INT32_MIN, 1000}, {INT32_MAX, 1}}),
             {0x40800100, 1},
             {0x00400000, 1000, 0x003FFF00, 1}},
            {"prefer idle comes first",
             withMinFreq({{1, 999}}, true),
             {0x40C04000, 1, 0x40800110, 0},
             {0x01404300, 1, 0x01404100, 1, 0x00400100, 999}},
            {"MediaTek-only fields",
             mtkOnly,
             {},
             {0x01430100, 8, 0x03400000, 1, 0x01438300, 80, 0x01438400, 60}},
            {"negative rate skipped but keeps its index", negativeRate, {}, {0x01438400, 50}},
    };
    for (const auto& c : kCases) {
        SCOPED_TRACE(c.name);
        Ops qcom = {1, 2, 3};  // the entry point clears what was there
        parseClusterInfo(c.info, qcom);
        EXPECT_EQ(c.qcom, qcom);
        Ops mtk;
        parseMtkClusterInfo(c.info, mtk);
        EXPECT_EQ(c.mtk, mtk);
    }
}

// The encoders append without clearing, and trace their choices at level 7.
TEST(ClusterParamsTest, EncodersAppendAndTraceAtLevelSeven) {
    host::HostProperties::clear();
    host::HostProperties::set(kTavroLogLevelProperty, "7");
    host::HostLog::clear();
    TavroClusterInfo info;
    info.isPreferIdle = true;
    info.peltHalflife = 4;
    info.isScreenOff = true;
    info.clusterMinFreq = {{9, 100}};
    Ops out = {7, 8};
    parseQcomClusterInfo(info, out);
    parseMtkClusterInfo(info, out);
    EXPECT_EQ((Ops{7, 8, 0x40C04000, 1, 0x01404300, 1, 0x01404100, 1, 0x01430100, 4, 0x03400000, 1,
                   0x00400900, 100}),
              out);

    std::vector<std::string> got;
    for (const host::LogRecord& r : host::HostLog::records()) {
        if (r.tag == test::kWhiteListTag) got.push_back(r.message);
    }
    const std::vector<std::string> want = {
            "Enable preferIdle",       "Cluster num: 9, cpu min freq: 100",
            "Enable preferIdle",       "Set pelt hallife: 4",
            "Enable screen off state", "Cluster num: 9, cpu min freq: 100",
    };
    EXPECT_EQ(want, got);
    host::HostProperties::clear();
}

}  // namespace
}  // namespace android
