#include "tools/sim/TavroSimMain.h"

#include <string>

#include <host/HostLog.h>
#include <log/log.h>
#include <CLI/CLI.hpp>

#include "tools/sim/TavroScenarioLoader.h"
#include "tools/sim/TavroScenarioPlayer.h"
#include "tools/sim/TavroTrace.h"

namespace android {

int tavroSimMain(int argc, const char* const* argv, std::ostream& out, std::ostream& err,
                 bool standalone) {
    CLI::App app{
            "Plays a codec session described by a scenario file on the host platform and prints "
            "what the Tavro plug-in did: format keys, vendor parameters, boosts, feedback, "
            "statistics and timer firings.",
            "tavro-sim"};
    std::string path;
    bool json = false;
    int32_t logLevel = 0;
    app.add_option("scenario", path, "Scenario file (JSON); - reads stdin")->required();
    app.add_flag("--json", json, "One JSON object per line, each with a \"kind\"");
    CLI::Option* level = app.add_option(
            "--log-level", logLevel,
            "Sets debug.tavro.video.log.enable to N and includes the library's log lines");
    level->check(CLI::Range(0, 99));
    try {
        app.parse(argc, argv);
    } catch (const CLI::CallForHelp&) {
        out << app.help();
        return kTavroExitOk;
    } catch (const CLI::ParseError& e) {
        err << "tavro-sim: " << e.what() << " (see --help)\n";
        return kTavroExitBadInput;
    }

    TavroScenario scenario;
    try {
        scenario = loadTavroScenarioFile(path);
    } catch (const TavroScenarioError& e) {
        err << e.what() << "\n";
        return kTavroExitBadInput;
    }

    TavroSimOptions options;
    options.hasLogLevel = level->count() > 0;
    options.logLevel = logLevel;
    if (standalone) {
        host::HostLog::setStderrPriority(options.hasLogLevel ? ANDROID_LOG_SILENT
                                                             : ANDROID_LOG_WARN);
    }
    TavroTrace trace;
    std::string error;
    if (!playTavroScenario(scenario, options, &trace, &error)) {
        err << "tavro-sim: " << error << "\n";
        return kTavroExitBadInput;
    }
    if (json) {
        trace.writeJson(out);
    } else {
        trace.writeText(out);
    }
    return kTavroExitOk;
}

}  // namespace android
