#pragma once

#include <netdb.h>
#include <sys/socket.h>

#include <atomic>
#include <functional>
#include <memory>
#include <string>

namespace Vantrel {

/// Looks host names and addresses up within a time limit. The resolver itself knows no limit, so it runs on a
/// short-lived thread of its own; a look-up that is given up ends there by itself and frees what it holds.
/// Thread-safe.
class CoNameLookup {
  public:
    using Addresses = std::unique_ptr<addrinfo, void (*)(addrinfo*)>;

    /// Look-ups that may run at once, the given-up ones included; more fail with EAI_AGAIN.
    static constexpr int MAX_RUNNING = 64;

    /// Family to connect with: AF_INET6 when QD_TCP_IPV6 is set, otherwise AF_UNSPEC.
    static int family();
    /// Family of addresses that are chosen rather than connected to: QD_TCP_DISABLE_IPV6 makes it AF_INET.
    static int choiceFamily();

    /// Stream addresses of `host`, a numeric address first tried without any look-up. Returns 0 or the
    /// resolver's error (EAI_AGAIN when the time ran out or `stopped`, which is asked every few milliseconds
    /// and may be empty, said so). `addresses` is set on success only.
    static int find(const char* host, unsigned timeoutMs, const std::function<bool()>& stopped,
                    Addresses& addresses, int family = CoNameLookup::family());

    /// Host name of a socket address; `flags` as getnameinfo takes them. Returns as `find` does.
    static int findName(const sockaddr* address, socklen_t size, int flags, unsigned timeoutMs,
                        std::string& name);

    /// Numeric text of a socket address; empty when it has none.
    static std::string toNumericText(const sockaddr* address, socklen_t size);

    /// What resolves names: getaddrinfo. Tests put a slow or failing one in its place.
    using Resolver = int (*)(const char* host, const char* service, const addrinfo* hints, addrinfo** result);
    static std::atomic<Resolver>& resolver();
};

}  // namespace Vantrel
