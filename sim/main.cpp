// tavroSim: a simulated Tavro-40x unit on TCP, on a pseudo-terminal and in
// mDNS discovery, for running and testing the application without hardware.

#include "simmdns.h"
#include "simpty.h"
#include "simserver.h"
#include "simunit.h"

#include <getopt.h>
#include <pthread.h>
#include <signal.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

using namespace TavroSim;

namespace {

const char* const Usage =
    "Usage: tavroSim [OPTION]...\n"
    "A simulated Tavro-40x unit. It serves the device protocol to one client at a\n"
    "time on TCP (zoapn://), and optionally on a pseudo-terminal (zoaps://), and\n"
    "answers mDNS discovery. It runs until SIGINT or SIGTERM.\n"
    "\n"
    "  --port N          TCP port to listen on (default 40358; 0: any free port,\n"
    "                    printed at start)\n"
    "  --bind ADDR       address to listen on (default 127.0.0.1; 0.0.0.0 for every\n"
    "                    interface)\n"
    "  --pty             also serve on a pseudo-terminal; its path is printed\n"
    "  --mdns            answer mDNS queries for _tavro._tcp.local. on the interface\n"
    "                    of --bind (port 5353, shared with other responders)\n"
    "  --serial S        serial number (default T400-000001)\n"
    "  --software X.Y.Z  software version (default 1.0.8; 1.0.7 and older push no\n"
    "                    status, the client has to poll)\n"
    "  --api MAJ.MIN     device API version reported (default 1.0)\n"
    "  --sdcard          fit an SD card besides the internal storage\n"
    "  --fast            push capture data as fast as the link takes it instead\n"
    "                    of in real time\n"
    "  --state FILE      keep the unit's configuration, users and board data in\n"
    "                    FILE across restarts (read at start, written as they\n"
    "                    change and at exit)\n"
    "  --debug           push a debug message every few seconds\n"
    "  --measure MODE    the default capture: one-shot (default), repeat or\n"
    "                    continuous\n"
    "  -h, --help        show this help and exit\n"
    "\n"
    "The default user is \"admin\" with the password \"tavro\".\n"
    "Exit status: 0 after SIGINT or SIGTERM, 1 when the unit cannot start (a port\n"
    "in use, a bad state file), 2 for a bad command line.\n";

struct Options {
    SimOptions unit;
    ZString bind = "127.0.0.1";
    unsigned short port = SimTcpServer::UnitPort;
    bool pty = false;
    bool mdns = false;
};

int badUsage(const char* what, const char* value) {
    if (what)
        fprintf(stderr, "tavroSim: %s: '%s'\n", what, value);
    fprintf(stderr, "Try 'tavroSim --help' for more information.\n");
    return 2;
}

// A unit that cannot start.
int fail(const ZError& err) {
    fprintf(stderr, "tavroSim: %s\n", err.string.str());
    return 1;
}

bool parsePort(const char* text, unsigned short& port) {
    char* end = nullptr;
    errno = 0;
    unsigned long v = strtoul(text, &end, 10);
    if (!*text || *end || errno || v > 65535 || text[0] == '-' || text[0] == '+')
        return false;
    port = (unsigned short)v;
    return true;
}

// Reads the command line into o: -1 to go on, else the exit status.
int parse(int argc, char** argv, Options& o) {
    enum {
        Port = 256,
        Bind,
        Pty,
        Mdns,
        Serial,
        Software,
        Api,
        Sdcard,
        Fast,
        State,
        Debug,
        Measure
    };
    static const struct option options[] = {
        {"port", required_argument, nullptr, Port},
        {"bind", required_argument, nullptr, Bind},
        {"pty", no_argument, nullptr, Pty},
        {"mdns", no_argument, nullptr, Mdns},
        {"serial", required_argument, nullptr, Serial},
        {"software", required_argument, nullptr, Software},
        {"api", required_argument, nullptr, Api},
        {"sdcard", no_argument, nullptr, Sdcard},
        {"fast", no_argument, nullptr, Fast},
        {"state", required_argument, nullptr, State},
        {"debug", no_argument, nullptr, Debug},
        {"measure", required_argument, nullptr, Measure},
        {"help", no_argument, nullptr, 'h'},
        {nullptr, 0, nullptr, 0},
    };
    for (;;) {
        int c = getopt_long(argc, argv, "h", options, nullptr);
        if (c == -1)
            break;
        switch (c) {
        case 'h':
            fputs(Usage, stdout);
            return 0;
        case Port:
            if (!parsePort(optarg, o.port))
                return badUsage("invalid port (0 to 65535)", optarg);
            break;
        case Bind:
            o.bind = optarg;
            break;
        case Pty:
            o.pty = true;
            break;
        case Mdns:
            o.mdns = true;
            break;
        case Serial:
            o.unit.serial = optarg;
            break;
        case Software:
            o.unit.software = optarg;
            break;
        case Api:
            o.unit.api = optarg;
            break;
        case Sdcard:
            o.unit.sdcard = true;
            break;
        case Fast:
            o.unit.fast = true;
            break;
        case State:
            o.unit.stateFile = optarg;
            break;
        case Measure: {
            static const char* const modes[] = {"one-shot", "repeat", "continuous"};
            o.unit.measureMode = 0;
            for (int m = 0; m < 3; m++)
                if (!strcmp(optarg, modes[m]))
                    o.unit.measureMode = m + 1;
            if (o.unit.measureMode == 0)
                return badUsage("invalid measure mode (one-shot, repeat or continuous)", optarg);
            break;
        }
        case Debug:
            o.unit.debug = true;
            break;
        default: // getopt has said what is wrong
            return badUsage(nullptr, nullptr);
        }
    }
    if (optind < argc)
        return badUsage("unexpected argument", argv[optind]);
    if (o.bind.isEmpty())
        return badUsage("invalid address", "");
    return -1;
}

} // namespace

int main(int argc, char** argv) {
    Options o;
    int status = parse(argc, argv, o);
    if (status >= 0)
        return status;

    // The signals that end the program are blocked in every thread (threads
    // inherit the mask) and taken by sigwait below; a peer that goes while
    // the unit writes is an error of the write, not SIGPIPE.
    sigset_t stopSignals;
    sigemptyset(&stopSignals);
    sigaddset(&stopSignals, SIGINT);
    sigaddset(&stopSignals, SIGTERM);
    sigaddset(&stopSignals, SIGHUP);
    pthread_sigmask(SIG_BLOCK, &stopSignals, nullptr);
    signal(SIGPIPE, SIG_IGN);

    SimUnit unit(o.unit);
    ZError err = unit.status();
    if (err) {
        return fail(err);
    }
    SimTcpServer server(unit);
    if ((err = server.start(o.bind, o.port))) {
        return fail(err);
    }
    printf("tavroSim: unit %s, software %s, API %s\n", o.unit.serial.str(), o.unit.software.str(),
           o.unit.api.str());
    printf("tavroSim: listening on %s:%u\n",
           ZSocketAddressINET::addressString(server.address()).str(), unsigned(server.port()));

    SimPty pty(unit);
    if (o.pty) {
        if ((err = pty.start())) {
            return fail(err);
        }
        printf("tavroSim: serial line %s\n", pty.path().str());
    }
    SimMdns mdns;
    if (o.mdns) {
        SimMdnsUnit announce;
        announce.serial = o.unit.serial;
        announce.address = server.address();
        announce.port = server.port();
        if ((err = mdns.start(announce, server.address()))) {
            return fail(err);
        }
        printf("tavroSim: answering mDNS queries for _tavro._tcp.local.\n");
    }
    fflush(stdout);

    int signal = 0;
    while (sigwait(&stopSignals, &signal) != 0) {
    }
    printf("tavroSim: %s, stopping\n", strsignal(signal));
    fflush(stdout);
    mdns.stop();
    pty.stop();
    server.stop();
    unit.stop();
    return 0;
}
