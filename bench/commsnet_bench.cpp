// Reading 512-byte records pushed over TCP loopback: through CommsNet the way
// the framing layer reads (wait for input, read the 16-byte header, read the
// 496-byte body), beside plain recv loops over the same bytes.
//
// Every CommsNet read asks the kernel how much is queued (FIONREAD) before
// its recv, and the framing's wait asks once more, so a record costs at least
// five system calls (3 x FIONREAD + 2 x recv), plus a poll (and a recv into
// the carry buffer for a record that came in part) whenever the reader has
// caught up with the sender. The plain per-record loop needs two recvs; the
// buffered loop one recv per 64 KB.
#include "commsnet.h"

#include <benchmark/benchmark.h>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstring>
#include <thread>
#include <vector>

using TavroApi::CommsNet;

namespace {

const unsigned int RecordSize = 512;
const unsigned int HeaderSize = 16;
const unsigned int BodySize = RecordSize - HeaderSize;
const unsigned int RecordsPerBlock = 128; // 64 KB per send

// A local server that accepts one connection and pushes records into it as
// fast as the reader takes them, until the reader closes.
class RecordFeed {
public:
    RecordFeed() {
        listener = socket(AF_INET, SOCK_STREAM, 0);
        sockaddr_in a;
        memset(&a, 0, sizeof(a));
        a.sin_family = AF_INET;
        a.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        bind(listener, reinterpret_cast<sockaddr*>(&a), sizeof(a));
        listen(listener, 5);
        socklen_t len = sizeof(a);
        getsockname(listener, reinterpret_cast<sockaddr*>(&a), &len);
        port = ntohs(a.sin_port);
        pusher = std::thread([this] { push(); });
    }
    ~RecordFeed() {
        pusher.join();
        close(listener);
    }
    // A plain connected socket, for the baselines.
    int connectPlain() {
        int fd = socket(AF_INET, SOCK_STREAM, 0);
        sockaddr_in a;
        memset(&a, 0, sizeof(a));
        a.sin_family = AF_INET;
        a.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        a.sin_port = htons(port);
        if (connect(fd, reinterpret_cast<sockaddr*>(&a), sizeof(a)) != 0) {
            close(fd);
            return -1;
        }
        return fd;
    }

    unsigned short port = 0;

private:
    void push() {
        int fd = accept(listener, nullptr, nullptr);
        if (fd < 0)
            return;
        std::vector<unsigned char> block(RecordSize * RecordsPerBlock);
        for (unsigned int r = 0; r < RecordsPerBlock; r++) {
            unsigned char* rec = &block[r * RecordSize];
            rec[0] = 'Z';
            rec[1] = 'U';
            rec[2] = RecordSize & 0xFF;
            rec[3] = RecordSize >> 8;
            memset(rec + HeaderSize, int(r), BodySize);
        }
        for (;;) {
            ssize_t n = send(fd, block.data(), block.size(), MSG_NOSIGNAL);
            if (n <= 0)
                break;
        }
        close(fd);
    }

    int listener = -1;
    std::thread pusher;
};

bool goodHeader(const unsigned char* h) {
    return h[0] == 'Z' && h[1] == 'U';
}

void BM_CommsNetFramedRead(benchmark::State& state) {
    RecordFeed feed;
    CommsNet net(1024, 1024);
    net.init();
    if (net.connect("127.0.0.1", feed.port)) {
        state.SkipWithError("connect failed");
        return;
    }
    net.setTimeout(1000000);
    unsigned char header[HeaderSize], body[BodySize];
    for (auto _ : state) {
        unsigned int got = 0, gotBody = 0;
        ZError e = net.wait(2, 1000000, 1);
        if (!e)
            e = net.read(header, HeaderSize, got);
        if (!e && got == HeaderSize && goodHeader(header))
            e = net.read(body, BodySize, gotBody);
        if (e || got != HeaderSize || !goodHeader(header) || gotBody != BodySize) {
            state.SkipWithError(e ? e.string.str() : "short or bad record");
            break;
        }
        benchmark::DoNotOptimize(body);
    }
    net.disconnect();
    state.SetItemsProcessed(state.iterations());
    state.SetBytesProcessed(state.iterations() * RecordSize);
}

// The same two reads per record, straight into recv.
void BM_PlainRecvPerRecord(benchmark::State& state) {
    RecordFeed feed;
    int fd = feed.connectPlain();
    unsigned char header[HeaderSize], body[BodySize];
    for (auto _ : state) {
        if (recv(fd, header, HeaderSize, MSG_WAITALL) != HeaderSize || !goodHeader(header) ||
            recv(fd, body, BodySize, MSG_WAITALL) != BodySize) {
            state.SkipWithError("recv failed");
            break;
        }
        benchmark::DoNotOptimize(body);
    }
    close(fd);
    state.SetItemsProcessed(state.iterations());
    state.SetBytesProcessed(state.iterations() * RecordSize);
}

// One recv into a 64 KB buffer, records taken out by copying: what a
// buffered read inside the transport would approach.
void BM_PlainRecvBuffered(benchmark::State& state) {
    RecordFeed feed;
    int fd = feed.connectPlain();
    std::vector<unsigned char> buffer(65536);
    size_t have = 0, pos = 0;
    unsigned char record[RecordSize];
    for (auto _ : state) {
        if (have - pos < RecordSize) {
            memmove(buffer.data(), buffer.data() + pos, have - pos);
            have -= pos;
            pos = 0;
            while (have < RecordSize) {
                ssize_t n = recv(fd, buffer.data() + have, buffer.size() - have, 0);
                if (n <= 0) {
                    state.SkipWithError("recv failed");
                    break;
                }
                have += size_t(n);
            }
        }
        memcpy(record, buffer.data() + pos, RecordSize);
        pos += RecordSize;
        if (!goodHeader(record)) {
            state.SkipWithError("bad record");
            break;
        }
        benchmark::DoNotOptimize(record);
    }
    close(fd);
    state.SetItemsProcessed(state.iterations());
    state.SetBytesProcessed(state.iterations() * RecordSize);
}

} // namespace

BENCHMARK(BM_CommsNetFramedRead)->UseRealTime();
BENCHMARK(BM_PlainRecvPerRecord)->UseRealTime();
BENCHMARK(BM_PlainRecvBuffered)->UseRealTime();

BENCHMARK_MAIN();
