// tavroCli firmware: shows what a firmware package holds, uploads its images
// to a unit (installed at the unit's next reboot) and flashes a raw
// main-processor image into a unit's USB boot loader.
#include "clicommands.h"

#include "control.h"
#include "dfu.h"
#include "dfuflash.h"
#include "zfirmupload.h"

#include <cstdio>
#include <cstring>
#include <vector>

using namespace TavroApi;

namespace {

const char* const Usage =
    "Usage: tavroCli firmware info FILE\n"
    "       tavroCli firmware upload URL FILE [--force] [--platform cpu|fpga|wifi|all]\n"
    "                                [--user USER --password PASSWORD]\n"
    "       tavroCli firmware dfu FILE [--wait SECONDS] [--url URL]\n"
    "info:   shows the version and the sections of a .zfirm package, or the\n"
    "        version of a raw main-processor image.\n"
    "upload: writes the images of a .zfirm package to the unit at URL, which\n"
    "        installs them at its next reboot. Nothing is sent when the unit\n"
    "        already runs the package's version, unless forced.\n"
    "dfu:    flashes a raw main-processor image into a unit's USB boot loader.\n"
    "\n"
    "  --platform P           cpu, fpga, wifi or all (the default)\n"
    "  --force                upload even when the versions are the same\n"
    "  --user U --password P  log in first\n"
    "  --wait S               wait up to S seconds (default 30) for the boot loader\n"
    "  --url URL              first ask the unit at URL to restart into its boot loader\n"
    "  --help                 show this help and exit\n";

const CliOption Options[] = {{"platform", true}, {"force", false}, {"user", true},
                             {"password", true}, {"wait", true},   {"url", true},
                             {"help", false},    {nullptr, false}};

int info(const ZString& fileName) {
    ZFirmwareFileHeader header;
    std::vector<ZFirmwareSection> sections;
    ZError err = zfirmListSections(fileName, header, sections);
    if (err && err.str() == "Invalid firmware file") {
        ZString version;
        if (Dfu::validateFile(fileName, Dfu::PlatformTavro40x, version))
            return cliFail(err);
        printf("file: %s\ntype: raw Tavro-40x main-processor image\nversion: %s\n", fileName.str(),
               version.str());
        return 0;
    }
    if (err)
        return cliFail(err);
    printf("file: %s\ntype: firmware package\nversion: %s\n", fileName.str(),
           header.versionString().str());
    for (size_t i = 0; i < sections.size(); i++) {
        const ZFirmwareFirmwareHeader& h = sections[i].header;
        ZString target = zfirmTarget(h.platform);
        printf("section %zu: %s (%u), %u bytes at %lld\n", i,
               target.isEmpty() ? "unknown" : target.str(), h.platform, h.length,
               (long long)sections[i].offset);
    }
    return 0;
}

// Connects to the unit, also to one that says it needs new firmware.
ZError connectUnit(Control& control, const ZString& url, const CliArgs& args) {
    ZError err = control.unitAdd("unit1", url);
    if (err)
        return err;
    err = control.unitsConnect();
    if (err.num() == 2 && control.unitsConnected())
        fprintf(stderr, "tavroCli: %s\n", err.str().str());
    else if (err)
        return err;
    const ZString user = args.value("user");
    if (!user.isEmpty() && (err = control.login(user, args.value("password"))))
        return err;
    control.update();
    return ZError();
}

int upload(const ZString& url, const ZString& fileName, const CliArgs& args) {
    const ZString which = args.value("platform", "all");
    std::vector<uint32_t> platforms;
    if (which == "cpu" || which == "all")
        platforms.push_back(ZFirmwarePlatformCpu);
    if (which == "fpga" || which == "all")
        platforms.push_back(ZFirmwarePlatformFpga);
    if (which == "wifi" || which == "all")
        platforms.push_back(ZFirmwarePlatformWifi);
    if (platforms.empty())
        return cliBadUsage(ZError("Unknown platform: " + which), "firmware");

    ZFirmwareFileHeader header;
    ZError err = zfirmReadHeader(fileName, header);
    if (err)
        return cliFail(err);
    Control control;
    if ((err = control.init()) || (err = connectUnit(control, url, args)))
        return cliFail(err);
    const Version& running = control.nodeInfo().softwareVersion;
    if (!firmwareUpdateCheck(header, running, args.has("force"))) {
        printf("Unit already runs firmware %u.%u.%u: nothing uploaded (--force uploads anyway)\n",
               running.ver0, running.ver1, running.ver2);
        control.unitsDisconnect();
        return 0;
    }

    ZFirmwareUpload up(control.unitMaster());
    ZString last;
    int step = -1;
    up.setProgress([&](const ZString& text, double done) {
        int s = int(done * 10);
        if (text != last || s != step)
            fprintf(stderr, "%s %d%%\n", text.str(), s * 10);
        last = text;
        step = s;
        return true;
    });
    for (uint32_t platform : platforms) {
        if ((err = up.upload(fileName, platform)))
            break;
    }
    control.unitsDisconnect();
    if (err)
        return cliFail(ZError("Error unable to upload firmware: " + err.str()));
    printf("Firmware upload complete, reboot to install\n");
    return 0;
}

int dfu(const ZString& fileName, const CliArgs& args) {
    uint64_t seconds = 30;
    ZError err = args.number("wait", seconds, 0, 3600);
    if (err)
        return cliBadUsage(err, "firmware");
    DfuFlashOptions options;
    options.polls = unsigned(seconds);
    const ZString url = args.value("url");
    if (!url.isEmpty()) {
        options.startBootloader = [&]() {
            Control control;
            ZError e = control.init();
            if (!e)
                e = connectUnit(control, url, args);
            if (!e && control.unitMaster())
                e = control.unitMaster()->factoryReset(false, true);
            control.unitsDisconnect();
            return e;
        };
    }
    ZString last;
    options.progress = [&](const ZString& text, double) {
        if (text != last)
            fprintf(stderr, "%s\n", (last = text).str());
        return true;
    };
    Dfu device;
    if ((err = dfuFlashCpu(device, fileName, options)))
        return cliFail(err);
    printf("Firmware flashed, the unit starts it now\n");
    return 0;
}

} // namespace

int cliFirmware(int argc, char** argv) {
    CliArgs args;
    int status = cliParse(args, argc, argv, Options, "firmware", Usage);
    if (status >= 0)
        return status;
    ZList<ZString> a = args.arguments();
    const ZString what = a.number() ? a.front() : ZString();
    if (what == "info" && a.number() == 2)
        return info(a.back());
    if (what == "upload" && a.number() == 3)
        return upload(a[1], a[2], args);
    if (what == "dfu" && a.number() == 2)
        return dfu(a.back(), args);
    return cliBadUsage(ZError("Expected info FILE, upload URL FILE or dfu FILE"), "firmware");
}
