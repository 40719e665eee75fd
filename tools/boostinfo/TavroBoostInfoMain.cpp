#include "tools/boostinfo/TavroBoostInfoMain.h"

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include <CLI/CLI.hpp>
#include <nlohmann/json.hpp>

#include "tools/boostinfo/TavroBoostInfoChecker.h"
#include "tools/boostinfo/TavroBoostInfoVerdict.h"

namespace android {

namespace {

using Json = nlohmann::ordered_json;

constexpr char kTool[] = "tavro-boostinfo";

// One rule to check and where it came from.
struct Rule {
    std::string text;
    size_t line = 0;  // 0: the command line
};

// What the options ask for beyond the rule itself.
struct Request {
    TavroBoostTransport via = TavroBoostTransport::kList;
    bool evaluate = false;
    TavroMediaInfo media;
    TavroDeviceDescription device;
    bool json = false;
    std::string source;  // "FILE", "stdin" or "argument"
};

// Every non-empty line of `text`, numbered from 1, without its line end.
std::vector<Rule> rulesOf(const std::string& text) {
    std::vector<Rule> rules;
    size_t start = 0;
    for (size_t line = 1; start < text.size(); ++line) {
        size_t end = text.find('\n', start);
        if (end == std::string::npos) end = text.size();
        std::string rule = text.substr(start, end - start);
        if (!rule.empty() && rule.back() == '\r') rule.pop_back();
        if (!rule.empty()) rules.push_back({rule, line});
        start = end + 1;
    }
    return rules;
}

bool readInput(const std::string& path, std::istream& in, std::string* text, std::string* error) {
    if (path == "-") {
        text->assign(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
        return true;
    }
    std::error_code ec;
    if (!std::filesystem::is_regular_file(path, ec)) {
        *error = path + ": not a readable regular file";
        return false;
    }
    std::ifstream file(path, std::ios::binary);
    if (!file) {
        *error = path + ": cannot be opened";
        return false;
    }
    text->assign(std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>());
    return true;
}

// The record with typed values, keyed by field name.
Json recordJson(const TavroBoostInfoCheck& check) {
    Json record = Json::object();
    MediaBoostInfo copy = check.record;
    for (const TavroRecordField& f : tavroRecordFields(check)) {
        const TavroBoostField& at = f.row->at;
        Json& value = record[f.field];
        if (at.text != nullptr) value = *at.text(copy);
        if (at.number != nullptr) value = *at.number(copy);
        if (at.flag != nullptr) value = *at.flag(copy);
        if (at.names != nullptr) value = *at.names(copy);
        if (at.numbers != nullptr) value = *at.numbers(copy);
        if (at.clusters != nullptr) {
            value = Json::object();
            for (const auto& [cpu, freq] : *at.clusters(copy)) value[std::to_string(cpu)] = freq;
        }
    }
    return record;
}

Json ruleJson(const Request& request, const Rule& rule, const TavroBoostInfoCheck& check,
              const TavroConditionVerdict* verdict, int status) {
    Json j = {{"kind", "rule"}, {"source", request.source}};
    if (rule.line != 0) j["line"] = rule.line;
    j["text"] = check.text;
    j["via"] = tavroTransportName(check.via);
    j["delivered"] = check.delivered;
    j["accepted"] = check.accepted;
    j["status"] = status;
    Json findings = Json::array();
    for (const TavroBoostInfoFinding& f : check.findings) {
        findings.push_back(
                {{"severity",
                  f.severity == TavroBoostInfoFinding::Severity::kError ? "error" : "warning"},
                 {"code", f.code},
                 {"item", f.item},
                 {"message", f.message}});
    }
    j["findings"] = findings;
    if (check.accepted) j["record"] = recordJson(check);
    if (verdict != nullptr) {
        Json steps = Json::array();
        for (const TavroConditionStep& s : verdict->steps) {
            steps.push_back({{"name", s.name}, {"pass", s.pass}, {"detail", s.detail}});
        }
        j["verdict"] = {{"applies", verdict->applies},      {"firstFailure", verdict->firstFailure},
                        {"scheduling", verdict->uxApplies}, {"cluster", verdict->clusterApplies},
                        {"fatal", verdict->fatal},          {"steps", steps}};
    }
    return j;
}

// Invalid UTF-8 in a rule is shown replaced rather than failing the whole line.
std::string dump(const Json& j) {
    return j.dump(-1, ' ', false, Json::error_handler_t::replace);
}

// Checks one rule and prints it; returns its exit status.
int checkRule(const Request& request, const Rule& rule, bool batch, std::ostream& out) {
    const TavroBoostInfoCheck check = checkTavroBoostInfo(rule.text, request.via);
    TavroConditionVerdict verdict;
    if (request.evaluate) {
        verdict = evaluateTavroBoostConditions(check, request.media, request.device);
    }
    int status = check.exitStatus();
    if (!verdict.fatal.empty()) status = 2;

    if (request.json) {
        out << dump(ruleJson(request, rule, check, request.evaluate ? &verdict : nullptr, status))
            << "\n";
    } else if (!batch) {
        printTavroBoostInfoCheck(check, out);
        if (request.evaluate) {
            printTavroConditionVerdict(verdict, request.media, request.device, out);
        }
    } else {
        const std::string where = request.source + ":" + std::to_string(rule.line) + ": ";
        for (const TavroBoostInfoFinding& f : check.findings) {
            out << where
                << (f.severity == TavroBoostInfoFinding::Severity::kError ? "error" : "warning")
                << " [" << f.code << "] " << f.message << "\n";
        }
        if (request.evaluate) {
            out << where << "verdict: " << tavroVerdictSummary(verdict, request.media) << "\n";
        }
    }
    return status;
}

}  // namespace

int tavroBoostInfoMain(int argc, const char* const* argv, std::istream& in, std::ostream& out,
                       std::ostream& err) {
    CLI::App app{
            "Checks boost-info strings as the Tavro white list reads them: what arrives through "
            "the transport, the record the library parses from it, what the grammar accepts "
            "silently and which keys can never take effect. With --media or --device, also "
            "whether the rule applies. Exit status: 0 clean, 1 warnings, 2 errors or bad usage.",
            kTool};
    std::string text;
    std::string file;
    std::string via = "list";
    std::string mediaText;
    std::string deviceText;
    Request request;
    CLI::Option* positional = app.add_option(
            "string", text, "One boost-info string; - (or nothing) checks every line of stdin");
    CLI::Option* fileOption = app.add_option(
            "-f,--file", file, "Checks every non-empty line of FILE as a rule; - reads stdin");
    app.add_option("--via", via,
                   "How the rule reaches the library: list (a list-service answer, at most " +
                           std::to_string(tavroTransportLimit(TavroBoostTransport::kList)) +
                           " bytes; the default) or property (a debug property, at most " +
                           std::to_string(tavroTransportLimit(TavroBoostTransport::kProperty)) +
                           ")")
            ->check(CLI::IsMember({"list", "property"}));
    CLI::Option* media = app.add_option(
            "--media", mediaText,
            "Media to match, e.g. mime=video/avc,comp=c2.qti.avc.decoder,width=1920,height=1080,"
            "bitrate=8000000 (also sampleRate, sampleBits, channelCount, codecId, isVideo, "
            "isEncoder); the mime is required");
    CLI::Option* device =
            app.add_option("--device", deviceText,
                           "Device to match: cpu=<ro.build.device_family>,vendor=<ro.hardware>,"
                           "prj=<ro.boot.prjname>");
    app.add_flag("--json", request.json, "One JSON object per rule per line, for CI");
    try {
        app.parse(argc, argv);
    } catch (const CLI::CallForHelp&) {
        out << app.help();
        return 0;
    } catch (const CLI::ParseError& e) {
        err << kTool << ": " << e.what() << " (see --help)\n";
        return 2;
    }

    request.via = via == "property" ? TavroBoostTransport::kProperty : TavroBoostTransport::kList;
    std::string error;
    request.evaluate = media->count() > 0 || device->count() > 0;
    if (media->count() > 0 && !parseTavroMediaDescription(mediaText, &request.media, &error)) {
        err << kTool << ": --media: " << error << "\n";
        return 2;
    }
    if (media->count() == 0) {
        // Conditions need a track kind; with only --device an unknown video decoder is assumed.
        request.media.isVideo = 1;
        request.media.isEncoder = 0;
    }
    if (device->count() > 0 && !parseTavroDeviceDescription(deviceText, &request.device, &error)) {
        err << kTool << ": --device: " << error << "\n";
        return 2;
    }
    if (fileOption->count() > 0 && positional->count() > 0) {
        err << kTool << ": give either a STRING or -f FILE, not both\n";
        return 2;
    }

    if (positional->count() > 0 && text != "-") {
        request.source = "argument";
        return checkRule(request, {text, 0}, false, out);
    }

    const std::string path = fileOption->count() > 0 ? file : "-";
    std::string input;
    if (!readInput(path, in, &input, &error)) {
        err << kTool << ": " << error << "\n";
        return 2;
    }
    request.source = path == "-" ? "stdin" : path;
    int status = 0;
    size_t counts[3] = {0, 0, 0};  // clean, warnings, errors
    const std::vector<Rule> rules = rulesOf(input);
    for (const Rule& rule : rules) {
        const int ruleStatus = checkRule(request, rule, true, out);
        ++counts[ruleStatus];
        status = std::max(status, ruleStatus);
    }
    if (request.json) {
        out << dump({{"kind", "summary"},
                     {"source", request.source},
                     {"rules", rules.size()},
                     {"clean", counts[0]},
                     {"warnings", counts[1]},
                     {"errors", counts[2]}})
            << "\n";
    } else {
        out << request.source << ": " << rules.size() << " rule(s): " << counts[0] << " clean, "
            << counts[1] << " with warnings, " << counts[2] << " with errors\n";
    }
    return status;
}

}  // namespace android
