// tavroCli info: what a unit reports about itself, as text or JSON.
#include "clicommands.h"

#include "control.h"

#include <cstdio>

using namespace TavroApi;

namespace {

const char* const Usage =
    "Usage: tavroCli info URL [--json] [--user USER --password PASSWORD]\n"
    "Connects to the unit at URL and shows its node information, configuration,\n"
    "information block, measurement and waveform generator configuration, status\n"
    "and channel configurations.\n"
    "\n"
    "  --json                 one JSON object instead of text lines\n"
    "  --user U --password P  log in first\n"
    "  --help                 show this help and exit\n";

const CliOption Options[] = {
    {"json", false}, {"user", true}, {"password", true}, {"help", false}, {nullptr, false}};

ZString infoText(Control& control, const NodeStatus& status) {
    ZString out;
    out += "nodeInfo: " + toZString(ZString(), control.nodeInfo()) + "\n";
    out += "configuration: " + toZString(ZString(), control.configuration()) + "\n";
    out += "information: " + toZString(ZString(), control.information()) + "\n";
    out += "measurementConfig: " + toZString(ZString(), control.measurementConfig()) + "\n";
    out += "awgConfig: " + toZString(ZString(), control.awgConfig()) + "\n";
    out += "status: " + toZString(ZString(), status) + "\n";
    const ZArray<ChannelConfig>& channels = control.channelConfigs();
    for (int c = 0; c < channels.size(); c++)
        out += "channel " + ZString(c) + ": " + toZString(ZString(), channels[c]) + "\n";
    return out;
}

ZString infoJson(Control& control, const ZString& url, const NodeStatus& status) {
    ZString out = "{ " + toZStringJson("url", url);
    out += ", " + toZStringJson("nodeInfo", control.nodeInfo());
    out += ", " + toZStringJson("configuration", control.configuration());
    out += ", " + toZStringJson("information", control.information());
    out += ", " + toZStringJson("measurementConfig", control.measurementConfig());
    out += ", " + toZStringJson("awgConfig", control.awgConfig());
    out += ", " + toZStringJson("status", status);
    out += ", \"channels\":[";
    const ZArray<ChannelConfig>& channels = control.channelConfigs();
    for (int c = 0; c < channels.size(); c++)
        out += (c ? ", " : "") + toZStringJson(ZString(), channels[c]);
    out += "]}\n";
    return out;
}

} // namespace

int cliInfo(int argc, char** argv) {
    CliArgs args;
    int status = cliParse(args, argc, argv, Options, "info", Usage);
    if (status >= 0)
        return status;
    if (args.arguments().number() != 1)
        return cliBadUsage(ZError("One unit URL is needed"), "info");

    Control control;
    ZError err = control.init();
    if (!err)
        err = cliConnect(control, args.arguments(), args.value("user"), args.value("password"));
    NodeStatus nodeStatus;
    TavroUnit1* master = control.unitMaster();
    if (!err && master)
        err = master->getStatus(nodeStatus);
    if (err)
        return cliFail(err);
    const ZString text = args.has("json") ? infoJson(control, args.arguments().front(), nodeStatus)
                                          : infoText(control, nodeStatus);
    fputs(text.str(), stdout);
    control.unitsDisconnect();
    return 0;
}
