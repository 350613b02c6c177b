#pragma once

#include <cstddef>
#include <deque>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "CoIoHandler.h"
#include "CoNetworkDispatcher.h"
#include "CoTime.h"
#include "RateLimit.h"
#include "VantrelDiscoverySockets.h"
#include "VantrelInterfaceWatch.h"
#include "VantrelKnownServers.h"
#include "rcAppContext.h"

namespace vantreld {

/// The server's part in discovery: announces it while it lives, answers those who search for it, and keeps
/// the list of the other servers that it hears. Belongs to the thread that drives `loop`, and lives in that
/// loop alone: whatever comes in on the discovery port, each pass of the loop spends little time on it.
/// Failures are logged.
class Announcer : private Vantrel::CoNetworkDispatcher::Observer {
  public:
    /// What is announced: with every address at which the server is reached, loopback included.
    using Describe = std::function<VantrelDaemonInfo()>;

    /// Opens the sockets; the first `work` announces. `loop` must outlive it.
    Announcer(Vantrel::rcAppContext& loop, VantrelDiscoveryGroup group, Describe describe);
    /// Withdraws the server.
    ~Announcer() override;

    /// Does what is due by now. To be called before each pass of the loop; gives the milliseconds that the
    /// pass may take.
    unsigned work();

    /// The servers heard of lately, this one left out; sorted by display name, then database.
    std::vector<VantrelDaemonInfo> others() const;

  private:
    /// Serves one socket in the loop.
    class Reader : public Vantrel::CoIoHandler {
      public:
        Reader(Announcer& announcer, int descriptorId) : announcer_(announcer), descriptorId_(descriptorId) {}
        int descriptorId() const override { return descriptorId_; }
        bool wantsRead() const override { return announcer_.incoming_.waitMs() == 0; }
        bool handleRead() override;
        bool handleError() override;

      private:
        Announcer& announcer_;
        const int descriptorId_;
    };

    void interfacesChanged(Vantrel::CoNetworkDispatcher::Role role) override;

    void watchSockets();
    void unwatchSockets();
    void announceAndSearch(Vantrel::CoTime::Microseconds now);
    bool announce();
    bool search();
    void withdraw();

    void takeFrom(int descriptor, std::size_t limit);
    void handle(const VantrelDiscoverySockets::Datagram& datagram);
    void answer(const VantrelDaemonInfo& wanted, const std::string& ip, unsigned port);
    bool isSelf(const VantrelDaemonInfo& info) const;

    Vantrel::rcAppContext& loop_;
    const Describe describe_;
    std::optional<VantrelDiscoverySockets> sockets_;  ///< opened when no change can be missed any more
    std::deque<Reader> readers_;                      ///< one for each socket
    VantrelInterfaceWatch interfaces_;
    VantrelKnownServers known_;
    VantrelDaemonInfo self_;  ///< as announced last
    bool quiet_ = false;      ///< only this host reaches the server, but others would hear the announcement
    bool fits_ = false;       ///< it can be sent; false until something was announced
    bool cutLogged_ = false;  ///< that it does not fit as it is was logged
    bool socketsStale_ = false;
    bool searchDue_ = true;  ///< none was sent since the sockets were opened
    unsigned retries_ = 0;   ///< of what could not be sent, since then
    RateLimit incoming_;
    RateLimit invalid_;
    RateLimit answers_;
    Vantrel::CoTime::Microseconds announceAt_ = 0;
    Vantrel::CoTime::Microseconds expireAt_ = 0;
};

/// `info` with as many addresses as fit into one datagram: the last ones are left out, of the longer list
/// first. `cut` becomes true when any had to go.
VantrelDaemonInfo fitIntoDatagram(VantrelDaemonInfo info, bool& cut);

}  // namespace vantreld
