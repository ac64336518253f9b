#include "zpoll.h"

#include <cerrno>
#include <climits>

ZPoll::ZPoll() : onext(0) {}

void ZPoll::append(int fd, short events) {
    struct pollfd p;
    p.fd = fd;
    p.events = events;
    p.revents = 0;
    ofds.push_back(p);
}

void ZPoll::delFd(int fd) {
    for (size_t i = ofds.size(); i-- > 0;) {
        if (ofds[i].fd != fd)
            continue;
        ofds.erase(ofds.begin() + long(i));
        if (onext > int(i))
            onext--;
    }
    if (onext >= int(ofds.size()))
        onext = 0;
}

void ZPoll::clear() {
    ofds.clear();
    onext = 0;
}

int ZPoll::nextFd(int index) const {
    index++;
    return index >= int(ofds.size()) ? 0 : index;
}

ZError ZPoll::doPoll(int& fd, int64_t timeoutUs) {
    int events = 0;
    return doPollEvents(fd, events, timeoutUs);
}

ZError ZPoll::doPollEvents(int& fd, int& events, int64_t timeoutUs) {
    events = 0;
    int timeoutMs = -1;
    if (timeoutUs >= 0)
        timeoutMs = timeoutUs / 1000 > INT_MAX ? INT_MAX : int(timeoutUs / 1000);
    int r = ::poll(ofds.data(), nfds_t(ofds.size()), timeoutMs);
    if (r < 0) {
        int err = errno;
        fd = -err;
        return zerrorFromErrno(err);
    }
    if (r == 0) {
        fd = -110;
        return ZError(-110, "Timeout");
    }
    int n = int(ofds.size());
    int i = onext < n ? onext : 0;
    for (int k = 0; k < n; k++, i = nextFd(i)) {
        if (ofds[i].revents == 0)
            continue;
        fd = ofds[i].fd;
        events = ofds[i].revents;
        onext = nextFd(i);
        return ZError();
    }
    // poll counted a ready entry, so the search cannot come back empty.
    fd = -110;
    return ZError(-110, "Timeout");
}
