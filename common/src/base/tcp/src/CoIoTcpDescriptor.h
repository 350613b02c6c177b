#pragma once

#include <netdb.h>
#include <climits>

#include <string>
#include <utility>

#include "CoIoDescriptor.h"

namespace Vantrel {

class CoDeadline;

/// A TCP socket: connecting with a time-out, socket options, addresses and names.
/// Thread safety and ownership as its base class; the static functions may be called from any thread.
class CoIoTcpDescriptor : public CoIoDescriptor {
  public:
    /// How a vanished peer is noticed: after `idleSec` of silence it is asked for a sign of life, then every
    /// `intervalSec`; it counts as gone after `probes` of them without an answer or, when that is not 0,
    /// after `unansweredSec` without one to whatever was sent.
    struct KeepAlive {
        int idleSec;
        int intervalSec;
        int probes;
        int unansweredSec;
    };
    /// One that vanished without a word (its host lost power, or its address) is known within about a minute
    /// and a half.
    static constexpr KeepAlive DEFAULT_KEEP_ALIVE{60, 10, 3, 0};

    CoIoTcpDescriptor() = default;
    explicit CoIoTcpDescriptor(int id) : CoIoDescriptor(id) {}
    explicit CoIoTcpDescriptor(CoFd fd) : CoIoDescriptor(std::move(fd)) {}

    /// Connects to a host (a numeric address or a name) and port; look-up and connect together end within
    /// `connectionTimeoutSec`, within `limitMs`, or when stopped. A name's addresses are tried in order until
    /// one answers; 0 seconds suffice only for a peer that answers at once. Buffer sizes of 0 leave the
    /// system's. True when connected: the socket is then non-blocking, close-on-exec and without delay. False
    /// otherwise, with the last error set (of the last address tried): the descriptor is then closed. When
    /// the peer hangs up the error is NotConnected and its text the socket's, such as that of a refused
    /// connection.
    bool connect(const char* remoteHost, int port, int sendBufSize, int rcvBufSize, int connectionTimeoutSec,
                 unsigned limitMs = UINT_MAX);

    /// Begins to connect to a numeric address and does not wait: the socket, otherwise as `connect` leaves
    /// it, becomes writable when the outcome is known, and `getLastSocketErrorStr` then returns it. False
    /// with the last error set when it failed at once: the descriptor is then closed.
    bool beginConnect(const char* ip, int port, const KeepAlive& keepAlive);

    /// Socket options; false with the last error set when the system refuses.
    bool setNoDelaySocketOption(bool on);
    bool setNonBlocking(bool on);
    bool setReuseAddressSocketOption(bool on);
    bool setKeepAliveSocketOption(const KeepAlive& keepAlive = DEFAULT_KEEP_ALIVE);

    /// Numeric address of the local or the remote end, an IPv4 one without IPv6 prefix; false when there is
    /// none, `ip` is then as before.
    bool getSocketIP(std::string& ip) const;
    bool getPeerIP(std::string& ip) const;
    /// Text of the error that is pending on this socket, which it takes away, or else of the last error;
    /// empty when there was none.
    std::string getLastSocketErrorStr() const;

    /// Numeric address of a host name. Throws CoException with the resolver's text; ends within `timeoutMs`.
    static std::string getIpAddrFromHostName(const char* hostName,
                                             unsigned timeoutMs = DEFAULT_LOOKUP_TIMEOUT_MS);
    /// Name of a numeric address, or with `numericWhenUnknown` the address itself when it has none or when it
    /// is not found within DEFAULT_LOOKUP_TIMEOUT_MS. Throws CoException with the resolver's text.
    static std::string getHostNameFromIpAddr(const char* ip, bool numericWhenUnknown);
    /// Numeric address of this host's first interface that is up, the loopback one only when there is no
    /// other.
    static std::string getLocalIP();
    /// Name of this host; empty when the system knows none.
    static std::string getHostName();
    /// The part of `address` without an IPv4-mapped IPv6 prefix: "::ffff:10.0.0.1" gives "10.0.0.1".
    static const char* skipIPv4InIPv6Prefix(const char* address);

    static constexpr unsigned DEFAULT_LOOKUP_TIMEOUT_MS = 5000;

  private:
    struct Options {
        int port;
        int sendBufferBytes;
        int receiveBufferBytes;
    };

    bool connectAny(const char* host, const Options& options, const CoDeadline& deadline);
    bool connectTo(const addrinfo& address, const Options& options, const CoDeadline& deadline);
    int startConnecting(const addrinfo& address, const Options& options);
    bool waitUntilConnected(const CoDeadline& deadline);
    bool checkConnected();
};

}  // namespace Vantrel
