#ifndef ZSOCKET_H
#define ZSOCKET_H

#include "zdatachunk.h"
#include "zerror.h"
#include "zlist.h"
#include "zstring.h"

#include <cstdint>
#include <sys/socket.h>

// Any socket address: the raw bytes (at most a sockaddr_storage) and their length.
class ZSocketAddress {
public:
    ZSocketAddress();
    ZSocketAddress(const struct sockaddr* address, socklen_t length);
    virtual ~ZSocketAddress() = default;

    bool operator==(const ZSocketAddress& o) const;
    bool operator!=(const ZSocketAddress& o) const { return !(*this == o); }

    struct sockaddr* raw() {
        return reinterpret_cast<struct sockaddr*>(&oaddress);
    }
    const struct sockaddr* raw() const {
        return reinterpret_cast<const struct sockaddr*>(&oaddress);
    }
    socklen_t len() const { return olen; }
    // Room for the system calls that fill an address (accept, recvfrom, getsockname).
    static socklen_t capacity() { return sizeof(struct sockaddr_storage); }
    void setLen(socklen_t length);

    // "a.b.c.d:port" for an IPv4 address, else empty.
    ZString getString() const;

protected:
    struct sockaddr_storage oaddress;
    socklen_t olen;
};

// An IPv4 address and port. address() and port() are in host order.
class ZSocketAddressINET : public ZSocketAddress {
public:
    ZSocketAddressINET();
    ZSocketAddressINET(unsigned int address, unsigned int port);

    // An empty host is the wildcard address; a name is resolved and its first
    // address used. A failed resolution gives -h_errno and hstrerror's text.
    ZError set(const ZString& host, unsigned int port);
    ZError set(unsigned int address, unsigned int port);
    // The port from the services database; failure is 1 "Getservbyname error".
    ZError set(const ZString& host, const ZString& service, const ZString& protocol);
    void setPort(unsigned int port);

    unsigned int address() const;
    unsigned int port() const;

    static ZString getHostName();
    // The IPv4 addresses (host order) this machine's name resolves to, in resolver order.
    static ZList<uint32_t> getIpAddresses();
    static ZList<ZString> getIpAddressList();
    static ZList<ZString> getIpAddressListAll();
    // Dotted text of a host-order IPv4 address.
    static ZString addressString(uint32_t address);

private:
    void reset();
    struct sockaddr_in* in() {
        return reinterpret_cast<struct sockaddr_in*>(&oaddress);
    }
    const struct sockaddr_in* in() const {
        return reinterpret_cast<const struct sockaddr_in*>(&oaddress);
    }
};

// A socket descriptor (-1 when closed). Every operation returns a ZError: on a
// system failure the negated errno and strerror's text. The destructor closes
// the descriptor; a ZSocket cannot be copied.
class ZSocket {
public:
    enum NType { Stream = 0, Datagram = 1, Adopt = 2 };
    enum Priority { PriorityLow = 0, PriorityNormal = 1, PriorityHigh = 2 };

    ZSocket();
    explicit ZSocket(NType type);
    ZSocket(int domain, int type, int protocol);
    ~ZSocket();
    ZSocket(const ZSocket&) = delete;
    ZSocket& operator=(const ZSocket&) = delete;

    // Stream: TCP over IPv4; Datagram: UDP over IPv4; any other value keeps
    // the descriptor already held. An open descriptor is closed first.
    ZError init(NType type);
    ZError init(int domain, int type, int protocol);
    void setFd(int fd) { ofd = fd; }
    int getFd() const { return ofd; }
    bool isOpen() const { return ofd >= 0; }

    ZError bind(const ZSocketAddress& address);
    ZError connect(const ZSocketAddress& address);
    ZError listen();
    ZError accept(int& fd);
    ZError accept(int& fd, ZSocketAddress& from);
    ZError shutdown(int how);
    void close();

    // Sends never raise SIGPIPE (MSG_NOSIGNAL is added): a closed peer is EPIPE.
    ZError send(const void* data, unsigned int n, unsigned int& sent, int flags = 0);
    ZError sendTo(const ZSocketAddress& address, const void* data, unsigned int n,
                  unsigned int& sent, int flags = 0);
    // One sendmsg whose gather list holds the chunks in order.
    ZError sendChunks(const ZDataChunk* chunks, unsigned int count, unsigned int& sent,
                      int flags = 0);

    // One call; an orderly close is -32 "Connection Closed by Peer" with got 0.
    ZError recv(void* data, unsigned int n, unsigned int& got, int flags = 0);
    ZError recvFrom(ZSocketAddress& from, void* data, unsigned int n, unsigned int& got,
                    int flags = 0);
    // A negative time-out is a plain recv; otherwise select first: none ready is
    // -110 "Connection timed out", a select failure -errno "Select error".
    ZError recvWithTimeout(void* data, unsigned int n, unsigned int& got, int timeoutUs,
                           int flags = 0);
    ZError recvFromWithTimeout(ZSocketAddress& from, void* data, unsigned int n, unsigned int& got,
                               int timeoutUs, int flags = 0);
    // Bytes waiting to be read (FIONREAD); 0 when closed or the query fails.
    unsigned int recvAvailable() const;

    ZError setSockOpt(int level, int name, const void* value, socklen_t len);
    ZError getSockOpt(int level, int name, void* value, socklen_t& len);
    ZError setReuseAddress(bool on);
    ZError setBroadCast(bool on);
    ZError setPriority(Priority priority);
    ZError getMTU(unsigned int& mtu);
    ZError getAddress(ZSocketAddress& address);

private:
    ZError waitReadable(int timeoutUs);

    int ofd;
};

#endif
