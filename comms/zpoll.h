#ifndef ZPOLL_H
#define ZPOLL_H

#include "zerror.h"

#include <poll.h>

#include <cstdint>
#include <vector>

// A growable set of descriptors polled with poll(2). Ready descriptors are
// reported one per call, searching from the entry after the one reported
// last, so that several always-ready descriptors are served in turn.
class ZPoll {
public:
    ZPoll();

    void append(int fd, short events);
    // Removes every entry of fd.
    void delFd(int fd);
    void clear();
    int getPollFdsNum() const { return int(ofds.size()); }
    struct pollfd* getPollFds() {
        return ofds.data();
    }
    // The index after index, wrapping to 0.
    int nextFd(int index) const;

    // Polls for timeoutUs microseconds (integer-divided to milliseconds, so
    // 999 us polls for 0 ms; negative waits for ever). None ready: -110
    // "Timeout" and fd -110. poll failure: -errno and its text, fd -errno.
    // Otherwise success and the descriptor found ready first.
    ZError doPoll(int& fd, int64_t timeoutUs);
    // As doPoll, also giving the returned events of that descriptor.
    ZError doPollEvents(int& fd, int& events, int64_t timeoutUs);

private:
    std::vector<struct pollfd> ofds;
    int onext;
};

#endif
