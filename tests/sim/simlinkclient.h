#ifndef TESTS_SIM_SIMLINKCLIENT_H
#define TESTS_SIM_SIMLINKCLIENT_H

// A client of a simulated unit over a real transport, run as the
// application runs one: the harness's Client with a receive thread that
// waits for input and calls processRx until closed or the link ends.

#include "commsnet.h"
#include "commsserial.h"
#include "sim/simharness.h"

#include <memory>
#include <string>

namespace simlinktest {

using namespace simtest;

struct Connection {
    ~Connection() { close(); }

    ZError openTcp(unsigned short port) {
        auto net = std::make_unique<CommsNet>(1024, 1024);
        ZError e = net->connect("127.0.0.1", port);
        return e ? e : begin(std::move(net));
    }
    ZError openSerial(const ZString& path) {
        auto serial = std::make_unique<CommsSerial>();
        ZError e = serial->connect(path);
        return e ? e : begin(std::move(serial));
    }
    void close() {
        stop = true;
        if (rx.joinable())
            rx.join();
        if (comms)
            comms->disconnect();
    }
    // The link's end as the receive thread met it: 0 while it runs.
    bool endedWith(int number) {
        return client.waitFor([&] { return ended != 0; }) && ended == number;
    }

    Client client;
    std::unique_ptr<ZComms> comms;
    std::thread rx;
    std::atomic<bool> stop{false};
    std::atomic<int> ended{0};

private:
    ZError begin(std::unique_ptr<ZComms> transport) {
        comms = std::move(transport);
        comms->setTimeout(2000000);
        client.setComms(comms.get());
        client.setAddress(1, 2);
        client.setTimeout(3000000);
        rx = std::thread([this] {
            while (!stop) {
                ZError e = comms->wait(2, 20000, 1);
                if (!e)
                    e = client.processRx();
                if (e && e.number != -110 && e.number != 6) {
                    ended = e.number;
                    client.sendMessageServe(0, "link ended"); // wakes waitFor
                    return;
                }
            }
        });
        return ZError();
    }
};

// Reads the unit's records, then runs a one-shot capture of `samples`
// samples at 10 kHz and checks that every raw block came, in order, the
// last one alone marked End0.
inline void readAndCapture(Client& c, const char* serial, const char* software,
                           unsigned int samples = 1000) {
    NodeInfo info;
    ZError e = c.getNodeInfo(info);
    ASSERT_FALSE(e) << e.string.str();
    EXPECT_EQ(std::string(info.serialNumber, strnlen(info.serialNumber, 12)), serial);
    const Version& v = info.softwareVersion;
    EXPECT_EQ(std::to_string(v.ver0) + "." + std::to_string(v.ver1) + "." + std::to_string(v.ver2),
              software);
    // Everything the application reads on connecting.
    NodeStatus status;
    Configuration config;
    Information information;
    InfoBlock infoBlock;
    AwgConfig awg;
    EXPECT_FALSE(c.getStatus(status) || c.getConfig(config) || c.getInformation(information) ||
                 c.getInfoBlock(infoBlock) || c.getAwgConfig(false, awg));
    for (unsigned int channel = 0; channel < 16; channel++) {
        ChannelConfig cc;
        EXPECT_FALSE(c.getChannelConfig(channel, cc)) << "channel " << channel;
    }

    c.clear();
    MeasurementConfig m = measurement(MeasureMode::OneShot, 10000, samples, 13);
    ASSERT_FALSE(c.setMeasurementConfig(false, m) || c.sendDataEnable(7) || c.setMode(Mode::Run));
    const size_t expect = (samples + 12) / 13;
    ASSERT_TRUE(c.waitFor([&] { return c.blocks.size() >= expect; }, 5000));
    std::vector<DataBlock> blocks = c.rawCopy();
    ASSERT_EQ(blocks.size(), expect);
    for (size_t i = 0; i < expect; i++) {
        EXPECT_EQ(blocks[i].sequence, i);
        EXPECT_EQ(blocks[i].numSamples, i + 1 < expect ? 13u : samples - 13 * (expect - 1));
        EXPECT_EQ(statusHas(blocks[i].status, Status::End0), i + 1 == expect) << "block " << i;
    }
}

} // namespace simlinktest

#endif
