#include "zsocket.h"

#include <arpa/inet.h>
#include <cerrno>
#include <climits>
#include <cstring>
#include <netdb.h>
#include <netinet/in.h>
#include <sys/ioctl.h>
#include <sys/select.h>
#include <sys/uio.h>
#include <unistd.h>

#include <vector>

namespace {

ZError sysError() {
    return zerrorFromErrno(errno);
}

ZError closedByPeer() {
    return ZError(-32, "Connection Closed by Peer");
}

// gethostbyname_r: the same lookup as gethostbyname, without its static result.
// Fills the IPv4 addresses in resolver order (network order) or returns -h_errno.
int resolveHost(const char* host, std::vector<in_addr_t>& out) {
    std::vector<char> buffer(1024);
    struct hostent entry;
    struct hostent* result = nullptr;
    int herr = 0;
    int rc;
    while ((rc = gethostbyname_r(host, &entry, buffer.data(), buffer.size(), &result, &herr)) ==
           ERANGE)
        buffer.resize(buffer.size() * 2);
    if (rc != 0 || result == nullptr)
        return -(herr ? herr : HOST_NOT_FOUND);
    if (result->h_addrtype == AF_INET && result->h_length == int(sizeof(in_addr_t))) {
        for (char** a = result->h_addr_list; *a; a++) {
            in_addr_t address;
            memcpy(&address, *a, sizeof(address));
            out.push_back(address);
        }
    }
    return 0;
}

} // namespace

// ZSocketAddress

ZSocketAddress::ZSocketAddress() : olen(0) {
    memset(&oaddress, 0, sizeof(oaddress));
}

ZSocketAddress::ZSocketAddress(const struct sockaddr* address, socklen_t length) : olen(0) {
    memset(&oaddress, 0, sizeof(oaddress));
    setLen(length);
    memcpy(&oaddress, address, olen);
}

void ZSocketAddress::setLen(socklen_t length) {
    olen = length < capacity() ? length : capacity();
}

bool ZSocketAddress::operator==(const ZSocketAddress& o) const {
    return olen == o.olen && memcmp(&oaddress, &o.oaddress, olen) == 0;
}

ZString ZSocketAddress::getString() const {
    if (oaddress.ss_family != AF_INET || olen < sizeof(struct sockaddr_in))
        return ZString();
    const struct sockaddr_in* in = reinterpret_cast<const struct sockaddr_in*>(&oaddress);
    char text[INET_ADDRSTRLEN];
    if (!inet_ntop(AF_INET, &in->sin_addr, text, sizeof(text)))
        return ZString();
    ZString s(text);
    s.append(':');
    s.append(ZString(unsigned(ntohs(in->sin_port))));
    return s;
}

// ZSocketAddressINET

ZSocketAddressINET::ZSocketAddressINET() {
    reset();
}

ZSocketAddressINET::ZSocketAddressINET(unsigned int address, unsigned int port) {
    set(address, port);
}

void ZSocketAddressINET::reset() {
    memset(&oaddress, 0, sizeof(oaddress));
    in()->sin_family = AF_INET;
    olen = sizeof(struct sockaddr_in);
}

ZError ZSocketAddressINET::set(const ZString& host, unsigned int port) {
    in_addr_t address = htonl(INADDR_ANY);
    if (!host.isEmpty()) {
        std::vector<in_addr_t> addresses;
        int herr = resolveHost(host.str(), addresses);
        if (herr)
            return ZError(herr, ZString(hstrerror(-herr)));
        if (addresses.empty())
            return ZError(-NO_ADDRESS, ZString(hstrerror(NO_ADDRESS)));
        address = addresses.front();
    }
    reset();
    in()->sin_addr.s_addr = address;
    in()->sin_port = htons(uint16_t(port));
    return ZError();
}

ZError ZSocketAddressINET::set(unsigned int address, unsigned int port) {
    reset();
    in()->sin_addr.s_addr = htonl(address);
    in()->sin_port = htons(uint16_t(port));
    return ZError();
}

ZError ZSocketAddressINET::set(const ZString& host, const ZString& service,
                               const ZString& protocol) {
    struct servent entry;
    struct servent* result = nullptr;
    char buffer[1024];
    if (getservbyname_r(service.str(), protocol.isEmpty() ? nullptr : protocol.str(), &entry,
                        buffer, sizeof(buffer), &result) != 0 ||
        result == nullptr)
        return ZError(1, "Getservbyname error");
    return set(host, unsigned(ntohs(uint16_t(result->s_port))));
}

void ZSocketAddressINET::setPort(unsigned int port) {
    in()->sin_port = htons(uint16_t(port));
}

unsigned int ZSocketAddressINET::address() const {
    return ntohl(in()->sin_addr.s_addr);
}

unsigned int ZSocketAddressINET::port() const {
    return ntohs(in()->sin_port);
}

ZString ZSocketAddressINET::getHostName() {
    char name[HOST_NAME_MAX + 1];
    if (gethostname(name, sizeof(name)) != 0)
        return ZString();
    name[HOST_NAME_MAX] = 0;
    return ZString(name);
}

ZList<uint32_t> ZSocketAddressINET::getIpAddresses() {
    ZList<uint32_t> list;
    std::vector<in_addr_t> addresses;
    ZString host = getHostName();
    if (host.isEmpty() || resolveHost(host.str(), addresses) != 0)
        return list;
    for (in_addr_t a : addresses)
        list.append(ntohl(a));
    return list;
}

ZString ZSocketAddressINET::addressString(uint32_t address) {
    struct in_addr a;
    a.s_addr = htonl(address);
    char text[INET_ADDRSTRLEN];
    if (!inet_ntop(AF_INET, &a, text, sizeof(text)))
        return ZString();
    return ZString(text);
}

ZList<ZString> ZSocketAddressINET::getIpAddressList() {
    ZList<ZString> list;
    for (uint32_t a : getIpAddresses())
        list.append(addressString(a));
    return list;
}

ZList<ZString> ZSocketAddressINET::getIpAddressListAll() {
    return getIpAddressList();
}

// ZSocket

ZSocket::ZSocket() : ofd(-1) {}

ZSocket::ZSocket(NType type) : ofd(-1) {
    init(type);
}

ZSocket::ZSocket(int domain, int type, int protocol) : ofd(-1) {
    init(domain, type, protocol);
}

ZSocket::~ZSocket() {
    close();
}

ZError ZSocket::init(NType type) {
    switch (type) {
    case Stream:
        return init(AF_INET, SOCK_STREAM, 0);
    case Datagram:
        return init(AF_INET, SOCK_DGRAM, 0);
    default:
        return ZError();
    }
}

ZError ZSocket::init(int domain, int type, int protocol) {
    close();
    ofd = ::socket(domain, type | SOCK_CLOEXEC, protocol);
    if (ofd < 0) {
        ofd = -1;
        return sysError();
    }
    return ZError();
}

ZError ZSocket::bind(const ZSocketAddress& address) {
    if (::bind(ofd, address.raw(), address.len()) != 0)
        return sysError();
    return ZError();
}

ZError ZSocket::connect(const ZSocketAddress& address) {
    if (::connect(ofd, address.raw(), address.len()) != 0)
        return sysError();
    return ZError();
}

ZError ZSocket::listen() {
    if (::listen(ofd, 5) != 0)
        return sysError();
    return ZError();
}

ZError ZSocket::accept(int& fd) {
    fd = ::accept4(ofd, nullptr, nullptr, SOCK_CLOEXEC);
    if (fd < 0)
        return sysError();
    return ZError();
}

ZError ZSocket::accept(int& fd, ZSocketAddress& from) {
    socklen_t len = ZSocketAddress::capacity();
    fd = ::accept4(ofd, from.raw(), &len, SOCK_CLOEXEC);
    if (fd < 0)
        return sysError();
    from.setLen(len);
    return ZError();
}

ZError ZSocket::shutdown(int how) {
    if (::shutdown(ofd, how) != 0)
        return sysError();
    return ZError();
}

void ZSocket::close() {
    if (ofd >= 0)
        ::close(ofd);
    ofd = -1;
}

ZError ZSocket::send(const void* data, unsigned int n, unsigned int& sent, int flags) {
    sent = 0;
    ssize_t r = ::send(ofd, data, n, flags | MSG_NOSIGNAL);
    if (r < 0)
        return sysError();
    sent = unsigned(r);
    return ZError();
}

ZError ZSocket::sendTo(const ZSocketAddress& address, const void* data, unsigned int n,
                       unsigned int& sent, int flags) {
    sent = 0;
    ssize_t r = ::sendto(ofd, data, n, flags | MSG_NOSIGNAL, address.raw(), address.len());
    if (r < 0)
        return sysError();
    sent = unsigned(r);
    return ZError();
}

ZError ZSocket::sendChunks(const ZDataChunk* chunks, unsigned int count, unsigned int& sent,
                           int flags) {
    sent = 0;
    // A Zoap packet is a handful of chunks; keep the gather list on the stack then.
    struct iovec local[16];
    std::vector<struct iovec> heap;
    struct iovec* iov = local;
    if (count > 16) {
        heap.resize(count);
        iov = heap.data();
    }
    for (unsigned int i = 0; i < count; i++) {
        iov[i].iov_base = const_cast<void*>(chunks[i].data);
        iov[i].iov_len = chunks[i].length;
    }
    struct msghdr msg;
    memset(&msg, 0, sizeof(msg));
    msg.msg_iov = iov;
    msg.msg_iovlen = count;
    ssize_t r = ::sendmsg(ofd, &msg, flags | MSG_NOSIGNAL);
    if (r < 0)
        return sysError();
    sent = unsigned(r);
    return ZError();
}

ZError ZSocket::recv(void* data, unsigned int n, unsigned int& got, int flags) {
    got = 0;
    ssize_t r = ::recv(ofd, data, n, flags);
    if (r < 0)
        return sysError();
    if (r == 0)
        return closedByPeer();
    got = unsigned(r);
    return ZError();
}

ZError ZSocket::recvFrom(ZSocketAddress& from, void* data, unsigned int n, unsigned int& got,
                         int flags) {
    got = 0;
    socklen_t len = ZSocketAddress::capacity();
    ssize_t r = ::recvfrom(ofd, data, n, flags, from.raw(), &len);
    if (r < 0)
        return sysError();
    from.setLen(len);
    if (r == 0)
        return closedByPeer();
    got = unsigned(r);
    return ZError();
}

// The time-out goes into the microseconds field with 0 seconds, also when it
// is 1,000,000 or more. Linux accepts that: glibc's select normalises tv_usec
// into seconds and nanoseconds before it calls pselect6 (1,200,000 us becomes
// 1 s + 200,000,000 ns; checked with strace on glibc 2.36), and the kernel's
// own select does the same. EINVAL comes only for a negative field; a
// negative time-out never gets here and an int cannot exceed the 32 bits of
// microseconds glibc reads, so the value cannot make select fail.
ZError ZSocket::waitReadable(int timeoutUs) {
    if (ofd < 0 || ofd >= FD_SETSIZE)
        return ZError(-EBADF, "Select error");
    fd_set readSet;
    FD_ZERO(&readSet);
    FD_SET(ofd, &readSet);
    struct timeval tv;
    tv.tv_sec = 0;
    tv.tv_usec = timeoutUs;
    int r = ::select(ofd + 1, &readSet, nullptr, nullptr, &tv);
    if (r < 0)
        return ZError(-errno, "Select error");
    if (r == 0)
        return ZError(-110, "Connection timed out");
    return ZError();
}

ZError ZSocket::recvWithTimeout(void* data, unsigned int n, unsigned int& got, int timeoutUs,
                                int flags) {
    got = 0;
    if (timeoutUs >= 0) {
        ZError err = waitReadable(timeoutUs);
        if (err)
            return err;
    }
    return recv(data, n, got, flags);
}

ZError ZSocket::recvFromWithTimeout(ZSocketAddress& from, void* data, unsigned int n,
                                    unsigned int& got, int timeoutUs, int flags) {
    got = 0;
    if (timeoutUs >= 0) {
        ZError err = waitReadable(timeoutUs);
        if (err)
            return err;
    }
    return recvFrom(from, data, n, got, flags);
}

unsigned int ZSocket::recvAvailable() const {
    if (ofd < 0)
        return 0;
    int n = 0;
    if (::ioctl(ofd, FIONREAD, &n) != 0 || n < 0)
        return 0;
    return unsigned(n);
}

ZError ZSocket::setSockOpt(int level, int name, const void* value, socklen_t len) {
    if (::setsockopt(ofd, level, name, value, len) != 0)
        return sysError();
    return ZError();
}

ZError ZSocket::getSockOpt(int level, int name, void* value, socklen_t& len) {
    if (::getsockopt(ofd, level, name, value, &len) != 0)
        return sysError();
    return ZError();
}

ZError ZSocket::setReuseAddress(bool on) {
    int v = on ? 1 : 0;
    return setSockOpt(SOL_SOCKET, SO_REUSEADDR, &v, sizeof(v));
}

ZError ZSocket::setBroadCast(bool on) {
    int v = on ? 1 : 0;
    return setSockOpt(SOL_SOCKET, SO_BROADCAST, &v, sizeof(v));
}

ZError ZSocket::setPriority(Priority priority) {
    // Linux traffic-control classes: 2 bulk, 0 best effort, 6 interactive.
    int v;
    switch (priority) {
    case PriorityLow:
        v = 2;
        break;
    case PriorityHigh:
        v = 6;
        break;
    default:
        v = 0;
        break;
    }
    return setSockOpt(SOL_SOCKET, SO_PRIORITY, &v, sizeof(v));
}

ZError ZSocket::getMTU(unsigned int& mtu) {
    int v = 0;
    socklen_t len = sizeof(v);
    ZError err = getSockOpt(IPPROTO_IP, IP_MTU, &v, len);
    mtu = err ? 0 : unsigned(v);
    return err;
}

ZError ZSocket::getAddress(ZSocketAddress& address) {
    socklen_t len = ZSocketAddress::capacity();
    if (::getsockname(ofd, address.raw(), &len) != 0)
        return sysError();
    address.setLen(len);
    return ZError();
}
