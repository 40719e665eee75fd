// The checker against the library: for every boost-info string of the fuzz corpus, of the bundled
// scenarios and several hundred generated ones (long, with stray separators, repeated keys, NUL
// bytes, rejected values), sent through each transport to each of several media and devices,
// the checker's verdict must be what the library's real lookup decides: whether each half of
// the rule applies, and the record it uses. The checker may explain more; it may never disagree.
#include <stdlib.h>
#include <unistd.h>

#include <filesystem>
#include <iterator>
#include <random>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "tools/ToolsTestSupport.h"
#include "tools/boostinfo/TavroBoostInfoChecker.h"
#include "tools/boostinfo/TavroBoostInfoVerdict.h"
#include "whitelist/WhiteListTestSupport.h"

namespace android {
namespace {

using host::HostListService;
using host::HostProperties;
using test::dump;

constexpr int32_t kClientPid = 4242;
constexpr char kClientName[] = "com.client.app";
constexpr char kActivity[] = "com.example.player/.Main";

std::vector<std::string> corpusStrings() {
    std::vector<std::string> out;
    for (const auto& entry :
         std::filesystem::directory_iterator(test::toolsSourceDir() + "/fuzz/corpus/boostinfo")) {
        if (entry.is_regular_file()) out.push_back(test::readFile(entry.path()));
    }
    return out;
}

// The boost rules the bundled scenarios give: list values of the boost lists and the two debug
// properties.
std::vector<std::string> scenarioStrings() {
    std::vector<std::string> out;
    for (const std::string& path : test::bundledScenarioPaths()) {
        const nlohmann::json scenario = nlohmann::json::parse(test::readFile(path));
        for (const char* list :
             {kListMediaSchedBoost, kListMediaserverBoost, kListVdecCpuBoost, kListVencCpuBoost}) {
            if (!scenario.contains("lists") || !scenario["lists"].contains(list)) continue;
            for (const auto& row : scenario["lists"][list]) {
                if (row.value("name", "") == kBoostNameListKey || !row.contains("value")) continue;
                out.push_back(row["value"].get<std::string>());
            }
        }
        for (const char* property : {kPropDebugCodecUx, kPropDebugCpuBoost}) {
            if (scenario.contains("properties") && scenario["properties"].contains(property)) {
                out.push_back(scenario["properties"][property].get<std::string>());
            }
        }
    }
    return out;
}

// Rules a writer might produce, good and bad, from a fixed seed: "key=value|value|...".
std::vector<std::string> generatedStrings(size_t count) {
    const char* const kItems[] = {"cpu=QXSM8550|QXSM8475+QXSM8550|MT6989|SM85| QXSM8550",
                                  "vendor=qcom|mtk|qcom+mtk",
                                  "prj=22001|P1|22001+P1",
                                  "mime=video/avc|video/hevc|audio/mp4a-latm|video|avc+hevc",
                                  "comp=c2.qti.avc.decoder|c2.qti|c2.android.aac.decoder|encoder",
                                  "limitWidth=0|1280|1920|3840|-5|720p",
                                  "limitHeight=0|720|1080|2160|-5",
                                  "bitrate=0|1000000|9000000|30000000|-1|99999999999",
                                  "sampleRate=0|44100|48000|96000",
                                  "sampleBits=16|24",
                                  "channelCount=1|2|6",
                                  "codecId=0|3|7",
                                  "isVideo=-1|0|1|1|2|x",
                                  "isEncoder=-1|0|1|3",
                                  "sched=1|3|fast",
                                  "schedVideo=2|4| 5|7x|high",
                                  "schedAudio=1|3|-1|x1",
                                  "vendorBoost=0|1|yes",
                                  "threadName=render|a+b|a++b",
                                  "ddrFreq=0|1555000",
                                  "appThreads=RenderThread+GLThread",
                                  "swThreads=aac+mp3|x",
                                  "limitOpRate=0|30|60|-2",
                                  "minUclamp=0|512|2000",
                                  "pelt=8",
                                  "countFps=0|1",
                                  "preferIdle=0|1",
                                  "screenOff=1",
                                  "uclampTids=0|0+1+2|5|1++x",
                                  "cluster0Min=1804800|0|-5",
                                  "cluster3Min=1200000",
                                  "cluster7Min=2419200",
                                  "cluster8Min=5",
                                  "freqUpRate=80|80+90",
                                  "freqDownRate=60",
                                  "Schedvideo=3",
                                  "u=1"};
    const char* const kSeparators[] = {",,", ", ", ";", "|", " ", "\n"};
    std::mt19937 rng(20240607);
    auto below = [&rng](size_t n) { return std::uniform_int_distribution<size_t>(0, n - 1)(rng); };
    std::vector<std::string> out;
    for (size_t n = 0; n < count; ++n) {
        // Mostly short rules; every fourth long enough to be cut by one transport or both.
        const size_t items = n % 4 == 3 ? 12 + below(20) : 1 + below(8);
        std::string text;
        std::vector<const char*> used;
        for (size_t i = 0; i < items; ++i) {
            if (i > 0) text += below(100) < 85 ? "," : kSeparators[below(6)];
            // Now and then an earlier key again, with a value of its own.
            const char* item = !used.empty() && below(10) == 0 ? used[below(used.size())]
                                                               : kItems[below(std::size(kItems))];
            used.push_back(item);
            const std::string row(item);
            const size_t eq = row.find('=');
            std::vector<std::string> values;
            for (size_t start = eq + 1, bar;; start = bar + 1) {
                bar = row.find('|', start);
                values.push_back(row.substr(start, bar - start));
                if (bar == std::string::npos) break;
            }
            text += row.substr(0, eq + 1) + values[below(values.size())];
        }
        if (below(100) < 3) text.insert(below(text.size() + 1), 1, '\0');
        if (below(100) < 3) text += ",";
        out.push_back(text);
    }
    return out;
}

struct Media {
    const char* name;
    TavroMediaInfo info;
};

const Media kMedia[] = {
        {"avc decoder", test::video()},
        {"hevc encoder",
         {"video/hevc", "c2.qti.hevc.encoder", 3840, 2160, 30000000, 0, 0, 0, 3, 1, 1}},
        {"aac decoder", test::audio()},
        {"aac encoder",
         {"audio/mp4a-latm", "c2.android.aac.encoder", 0, 0, 0, 44100, 24, 1, 0, 0, 1}},
};

const TavroPlatformInfo kDevices[] = {
        {"qcom", "QXSM8550", "22001"},
        {"mtk", "MT6989", "P1"},
};

// The paths by which the library looks a rule up.
enum class Path {
    kMediaserverList,  // a media server: the client's mediaserver-boost entry serves both halves
    kAppList,          // an app: media-sched-boost for the scheduling half, the top activity's
                       // vdec-/venc-cpu-boost entry for the cluster half (video only)
    kAppProperty,      // an app: debug.codec.ux and debug.cpu.boost
    kMediaserverProperty,  // a media server: debug.codec.ux serves both halves
};

class BoostInfoDifferentialTest : public test::WhiteListWorld {
  protected:
    // The world of one lookup path on one device: the platform and the process names.
    void setUpPath(Path path, const TavroPlatformInfo& device) {
        HostProperties::set(kPropHardware, device.vendor);
        HostProperties::set(kPropDeviceFamily, device.soc);
        HostProperties::set(kPropProjectName, device.project);
        const bool mediaserver =
                path == Path::kMediaserverList || path == Path::kMediaserverProperty;
        setOwnProcessName(mediaserver ? "/system/bin/mediaserver" : "com.example.player");
        setCmdline(kClientPid, kClientName);
    }

    // `text` where `path` reads its rule, and a manager that has seen nothing yet.
    void setRule(Path path, const std::string& text) {
        HostListService::clear();
        HostProperties::erase(kPropDebugCodecUx);
        HostProperties::erase(kPropDebugCpuBoost);
        switch (path) {
            case Path::kMediaserverList:
                HostListService::setByName(kListMediaserverBoost, kBoostNameListKey, kClientName);
                HostListService::setByName(kListMediaserverBoost, kClientName, text);
                break;
            case Path::kAppList:
                HostListService::setByUid(kListMediaSchedBoost, static_cast<int64_t>(getuid()),
                                          text);
                HostListService::setTopActivity(-1, kActivity);
                HostListService::setByActivity(kListVdecCpuBoost, kActivity, text);
                HostListService::setByActivity(kListVencCpuBoost, kActivity, text);
                break;
            case Path::kAppProperty:
                HostProperties::set(kPropDebugCpuBoost, text);
                [[fallthrough]];
            case Path::kMediaserverProperty:
                HostProperties::set(kPropDebugCodecUx, text);
                break;
        }
        mMgr->resetForTesting();
    }

    // The record the library keeps for the rule of `path`: its string and its parse. An entry
    // without a string (an empty or rejected answer) gives no boost anywhere.
    std::string usedRecord(Path path) {
        std::shared_ptr<MediaBoostInfo> entry;
        switch (path) {
            case Path::kMediaserverList:
                entry = mMgr->findActivityBoostInfo(kClientName);
                break;
            case Path::kAppList:
                entry = mMgr->getProcBoostInfo();
                break;
            case Path::kAppProperty:
            case Path::kMediaserverProperty:
                entry = mMgr->loadDebugInfo(kPropDebugCodecUx);
                break;
        }
        if (entry == nullptr || entry->boostStrInfo.empty()) return "(none)";
        return "[" + entry->boostStrInfo + "] " + dump(*entry);
    }
};

TavroUxInfo untouchedUx() {
    TavroUxInfo ux;
    ux.schedVideo = 99;
    ux.ddrFreq = 77;
    ux.appThreads = "untouched";
    return ux;
}

TavroClusterInfo untouchedCluster() {
    TavroClusterInfo cluster;
    cluster.limitOpRate = 77;
    return cluster;
}

TEST_F(BoostInfoDifferentialTest, CheckerVerdictIsTheLibrarysDecision) {
    const std::vector<std::string> corpus = corpusStrings();
    const std::vector<std::string> scenarios = scenarioStrings();
    ASSERT_GE(corpus.size(), 10u);
    ASSERT_GE(scenarios.size(), 6u);
    std::vector<std::string> texts = corpus;
    texts.insert(texts.end(), scenarios.begin(), scenarios.end());
    const std::vector<std::string> generated = generatedStrings(400);
    texts.insert(texts.end(), generated.begin(), generated.end());

    // What the inputs cover, so that a change of the generator cannot hollow the test out.
    size_t cut = 0, rejected = 0, applied = 0, notApplied = 0;
    for (Path path :
         {Path::kMediaserverList, Path::kAppList, Path::kAppProperty, Path::kMediaserverProperty}) {
        const bool list = path == Path::kMediaserverList || path == Path::kAppList;
        const TavroBoostTransport via =
                list ? TavroBoostTransport::kList : TavroBoostTransport::kProperty;
        for (const TavroPlatformInfo& device : kDevices) {
            setUpPath(path, device);
            for (const std::string& text : texts) {
                SCOPED_TRACE(testing::Message()
                             << "rule [" << text << "] path " << static_cast<int>(path)
                             << " device " << device.soc);
                const TavroBoostInfoCheck check = checkTavroBoostInfo(text, via);
                cut += check.delivered.size() < text.size();
                rejected += !check.accepted;
                setRule(path, text);
                for (const Media& media : kMedia) {
                    SCOPED_TRACE(media.name);
                    const TavroConditionVerdict verdict =
                            evaluateTavroBoostConditions(check, media.info, device);
                    ASSERT_EQ(verdict.fatal, "");
                    (verdict.applies ? applied : notApplied) += 1;

                    TavroUxInfo ux = untouchedUx();
                    TavroClusterInfo cluster = untouchedCluster();
                    mMgr->getBoostInfo(kClientPid, media.info, ux, cluster);

                    TavroUxInfo wantUx = untouchedUx();
                    if (verdict.uxApplies) {
                        // What a fitting rule hands over; thread names arrive as ids, and this
                        // world's process has no threads.
                        const TavroUxInfo& from = check.record.uxInfo;
                        wantUx.schedVideo = from.schedVideo;
                        wantUx.schedAudio = from.schedAudio;
                        wantUx.needVendorBoost = from.needVendorBoost;
                        wantUx.swThreads = from.swThreads;
                        wantUx.appThreads = from.appThreads;
                        wantUx.ddrFreq = from.ddrFreq;
                    }
                    // An app asks its top activity's list for the cluster half of video only.
                    const bool clusterAsked = path != Path::kAppList || media.info.isVideo != 0;
                    const TavroClusterInfo wantCluster = clusterAsked && verdict.clusterApplies
                                                                 ? check.record.clusterInfo
                                                                 : untouchedCluster();
                    EXPECT_EQ(dump(wantUx), dump(ux));
                    EXPECT_EQ(dump(wantCluster), dump(cluster));
                }
                const std::string record =
                        check.accepted && !check.delivered.empty()
                                ? "[" + check.delivered + "] " + dump(check.record)
                                : "(none)";
                EXPECT_EQ(record, usedRecord(path));
            }
        }
    }
    EXPECT_GT(cut, 100u);
    EXPECT_GT(rejected, 20u);
    EXPECT_GT(applied, 1000u);
    EXPECT_GT(notApplied, 1000u);
}

}  // namespace
}  // namespace android
