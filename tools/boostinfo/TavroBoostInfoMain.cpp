#include "tools/boostinfo/TavroBoostInfoMain.h"

#include <algorithm>
#include <iterator>
#include <string>

#include <CLI/CLI.hpp>

#include "tools/boostinfo/TavroBoostInfoChecker.h"

namespace android {

int tavroBoostInfoMain(int argc, const char* const* argv, std::istream& in, std::ostream& out,
                       std::ostream& err) {
    CLI::App app{
            "Parses a boost-info string as the Tavro white list does, prints the record field "
            "by field and warns about what the grammar accepts silently. Exit status: 0 "
            "clean, 1 warnings, 2 errors.",
            "tavro-boostinfo"};
    std::string text = "-";
    std::string mediaText;
    std::string deviceText;
    app.add_option("string", text, "The boost-info string; - or nothing reads stdin");
    CLI::Option* media = app.add_option(
            "--media", mediaText,
            "Media to match, e.g. mime=video/avc,comp=c2.qti.avc.decoder,width=1920,height=1080,"
            "bitrate=8000000 (also sampleRate, sampleBits, channelCount, codecId, isVideo, "
            "isEncoder)");
    CLI::Option* device =
            app.add_option("--device", deviceText,
                           "Device to match: cpu=<ro.build.device_family>,vendor=<ro.hardware>,"
                           "prj=<ro.boot.prjname>");
    try {
        app.parse(argc, argv);
    } catch (const CLI::CallForHelp&) {
        out << app.help();
        return 0;
    } catch (const CLI::ParseError& e) {
        err << "tavro-boostinfo: " << e.what() << " (see --help)\n";
        return 2;
    }

    TavroMediaInfo mediaInfo;
    TavroDeviceDescription deviceInfo;
    std::string error;
    const bool evaluate = media->count() > 0 || device->count() > 0;
    if (media->count() > 0 && !parseTavroMediaDescription(mediaText, &mediaInfo, &error)) {
        err << "tavro-boostinfo: --media: " << error << "\n";
        return 2;
    }
    if (media->count() == 0) {
        // Conditions need a track kind; without --media an unknown video decoder is assumed.
        mediaInfo.isVideo = 1;
        mediaInfo.isEncoder = 0;
    }
    if (device->count() > 0 && !parseTavroDeviceDescription(deviceText, &deviceInfo, &error)) {
        err << "tavro-boostinfo: --device: " << error << "\n";
        return 2;
    }
    if (text == "-") {
        text.assign(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
        if (!text.empty() && text.back() == '\n') text.pop_back();
        if (!text.empty() && text.back() == '\r') text.pop_back();
    }

    const TavroBoostInfoCheck check = checkTavroBoostInfo(text);
    printTavroBoostInfoCheck(check, out);
    int status = check.exitStatus();
    if (evaluate && check.accepted) {
        const TavroConditionVerdict verdict =
                evaluateTavroBoostConditions(check, mediaInfo, deviceInfo);
        printTavroConditionVerdict(verdict, mediaInfo, deviceInfo, out);
        if (!verdict.fatal.empty()) status = 2;
    }
    return status;
}

}  // namespace android
