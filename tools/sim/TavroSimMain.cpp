#include "tools/sim/TavroSimMain.h"

#include <string.h>
#include <unistd.h>

#include <cerrno>
#include <exception>
#include <fstream>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include <host/HostLog.h>
#include <log/log.h>
#include <CLI/CLI.hpp>

#include "tools/sim/TavroScenarioLoader.h"
#include "tools/sim/TavroScenarioPlayer.h"
#include "tools/sim/TavroScenarioSession.h"
#include "tools/sim/TavroTrace.h"
#include "tools/sim/TavroTraceSummary.h"
#include "tools/sim/TavroTraceTimeline.h"

namespace android {

namespace {

constexpr char kVersion[] = "tavro-sim 1.1 (scenario format 1)";

std::string footer() {
    std::string kinds;
    for (const std::string& k : tavroTraceKinds()) kinds += (kinds.empty() ? "" : ", ") + k;
    return "Events: allocate, configure, start, input, output, render, discard, clip,\n"
           "  set_parameters, flush, resume, advance, shutdown, destroy (README: Scenario "
           "reference).\n"
           "Kinds: " +
           kinds +
           ".\n"
           "Exit status: 0 played; 2 bad usage or a bad scenario (one line naming the place);\n"
           "  3 the library stopped the process on one of its fatal checks (the trace up to\n"
           "  then is printed, the last line on stderr names the check).\n"
           "Timeline: --timeline FILE.json opens in Perfetto UI (ui.perfetto.dev) or\n"
           "  chrome://tracing: drag the file into the page.\n"
           "Example: tavro-sim --only boost,unboost,unused --summary scenarios/default.json";
}

int run(int argc, const char* const* argv, std::ostream& out, std::ostream& err, bool standalone) {
    CLI::App app{
            "Plays a codec session described by a scenario file on the host platform and prints "
            "what the Tavro plug-in did: format keys, vendor parameters, boosts, feedback, "
            "statistics and timer firings.",
            "tavro-sim"};
    std::string path;
    bool json = false;
    bool summary = false;
    int32_t logLevel = 0;
    std::string timelinePath;
    std::vector<std::string> only;
    app.footer(footer());
    app.set_version_flag("--version", kVersion);
    app.add_option("scenario", path, "Scenario file (JSON); - reads stdin")->required();
    app.add_flag("--json", json, "One JSON object per line, each with a \"kind\"");
    CLI::Option* level = app.add_option(
            "--log-level", logLevel,
            "Sets debug.tavro.video.log.enable to N and includes the library's log lines");
    level->check(CLI::Range(0, 99));
    app.add_option("--only", only, "Shows only these kinds (comma-separated)")
            ->delimiter(',')
            ->check(CLI::IsMember(tavroTraceKinds()));
    app.add_flag("--summary", summary,
                 "Ends with counts per kind, boosts sent and released, modes entered, HDR type");
    app.add_option("--timeline", timelinePath,
                   "Also writes the session to FILE in the Trace Event Format (Perfetto UI, "
                   "chrome://tracing)")
            ->type_name("FILE");
    try {
        app.parse(argc, argv);
    } catch (const CLI::CallForHelp&) {
        out << app.help();
        return kTavroExitOk;
    } catch (const CLI::CallForVersion&) {
        out << kVersion << "\n";
        return kTavroExitOk;
    } catch (const CLI::ParseError& e) {
        err << "tavro-sim: " << e.what() << " (see --help)\n";
        return kTavroExitBadInput;
    }

    TavroScenario scenario;
    try {
        scenario = loadTavroScenarioFile(path);
        checkTavroScenarioSession(scenario);
    } catch (const TavroScenarioError& e) {
        err << e.what() << "\n";
        return kTavroExitBadInput;
    }

    TavroSimOptions options;
    options.hasLogLevel = level->count() > 0;
    options.logLevel = logLevel;
    options.onWarning = [&err](const std::string& line) { err << line << "\n" << std::flush; };
    options.onFatal = [&err, &out, standalone](const std::string& line) {
        out.flush();
        err << line << "\n" << std::flush;
        if (standalone) _exit(kTavroExitFatalCheck);
    };
    if (standalone) {
        // Warnings reach stderr through onWarning, with the scenario's pid.
        host::HostLog::setStderrPriority(ANDROID_LOG_SILENT);
    }
    TavroTraceWriter writer(out, json);
    TavroTraceFilter filter(&writer, std::set<std::string>(only.begin(), only.end()));
    TavroTraceSink* shown = only.empty() ? static_cast<TavroTraceSink*>(&writer) : &filter;
    TavroTraceSummary counter;
    std::vector<TavroTraceSink*> sinks;
    if (summary) sinks.push_back(&counter);
    std::ofstream timelineFile;
    std::unique_ptr<TavroTraceTimeline> timeline;
    if (!timelinePath.empty()) {
        timelineFile.open(timelinePath, std::ios::binary | std::ios::trunc);
        if (!timelineFile) {
            err << "tavro-sim: " << timelinePath << ": cannot write: " << strerror(errno) << "\n";
            return kTavroExitBadInput;
        }
        timeline = std::make_unique<TavroTraceTimeline>(scenario, timelineFile);
        sinks.push_back(timeline.get());
        options.onLibraryLog = [&timeline](int64_t timeUs, const host::LogRecord& r) {
            timeline->libraryLog(timeUs, r.message);
        };
    }
    sinks.push_back(shown);  // the writer last: it keeps entries without a copy
    TavroTraceTee tee(sinks);
    std::string error;
    if (!playTavroScenario(scenario, options,
                           sinks.size() > 1 ? static_cast<TavroTraceSink*>(&tee) : shown, &error)) {
        err << "tavro-sim: " << error << "\n";
        return kTavroExitBadInput;
    }
    if (timeline != nullptr) {
        timelineFile.close();
        if (!timelineFile) {
            err << "tavro-sim: " << timelinePath << ": cannot write the timeline\n";
            return kTavroExitBadInput;
        }
    }
    if (summary) {
        for (const TavroTraceEntry& e : counter.entries()) writer.add(e);
        writer.flush();
    }
    if (!out) {
        err << "tavro-sim: cannot write the trace\n";
        return kTavroExitBadInput;
    }
    return kTavroExitOk;
}

}  // namespace

int tavroSimMain(int argc, const char* const* argv, std::ostream& out, std::ostream& err,
                 bool standalone) {
    // Anything thrown past the checks above is a fault of the tool, still one line and status 2.
    try {
        return run(argc, argv, out, err, standalone);
    } catch (const std::exception& e) {
        out.flush();
        err << "tavro-sim: " << e.what() << "\n";
    } catch (...) {
        out.flush();
        err << "tavro-sim: unknown error\n";
    }
    return kTavroExitBadInput;
}

}  // namespace android
