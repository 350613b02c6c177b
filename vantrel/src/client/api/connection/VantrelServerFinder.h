#pragma once

#include <vantrel/VantrelServerId.h>

#include <climits>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "CoTime.h"
#include "VantrelDaemonInfo.h"
#include "VantrelStopControl.h"
#include "rcAPI.h"

/// Finds the server that a connection is for and connects the endpoint to it: first at the address that the
/// server's id names, then at those that discovery knows. Keeps what it found. Thread safety: one thread at a
/// time (the connection's lock).
class VantrelServerFinder {
  public:
    struct Terms {
        unsigned connectTimeoutMs;  ///< for each address
        unsigned retryTimeoutMs;    ///< for trying again when no address works
        /// Whether a failure is logged as an error and the addresses are left alone for a while. Not so for a
        /// health check, whose failure must not be held against the server when the application calls it.
        bool flagsFailure = true;
        /// For all that is done before a pause: beyond it nothing is begun, and nothing held against an
        /// address that did not get its time.
        unsigned limitMs = UINT_MAX;
    };

    /// All three must outlive this object.
    VantrelServerFinder(const VantrelServerId& serverId, Vantrel::rcAPI& endpoint,
                        VantrelStopControl& control)
        : serverId_(serverId), endpoint_(endpoint), control_(control) {}

    /// Answered: the endpoint is connected to the right server and `daemonInfo` describes it. Otherwise
    /// `error` says why; Refused means that another server answers at the address.
    Vantrel::rcOutcome connect(const Terms& terms, std::string& error);

    /// What the server last said of itself, or discovery of it; null before the first connect.
    const std::shared_ptr<const VantrelDaemonInfo>& daemonInfo() const { return daemonInfo_; }
    /// Whether the last connect had an address to try.
    bool triedAddress() const { return triedAddress_; }
    /// Whether `daemonInfo` is the server's own answer to the last connect.
    bool askedServer() const { return askedServer_; }
    /// Takes a later answer of the server to "GetDaemonInfo".
    void takeDaemonInfo(std::string reply);

    static constexpr const char* DAEMON_INFO_ARGUMENT = "\"\"";
    static unsigned daemonInfoTimeoutMs();

  private:
    using Info = std::shared_ptr<const VantrelDaemonInfo>;
    /// Records, and the address to try for each.
    using Attempts = std::vector<std::pair<const VantrelDaemonInfo*, std::string>>;

    void search(const Terms& terms);
    void reportAddress();
    std::string notFound() const;
    [[noreturn]] void failToConnect(bool flagsFailure) const;
    void throwIfStopped() const;
    void throwIfFinal(Vantrel::rcOutcome outcome, const Vantrel::CoDeadline& limit) const;

    [[nodiscard]] bool tryGivenAddress(const Terms& terms, const Vantrel::CoDeadline& limit);
    [[nodiscard]] bool findAllowedAddress(unsigned timeoutMs, std::string& address);
    [[nodiscard]] bool tryResolvedAddresses(const Terms& terms, const Vantrel::CoDeadline& limit);
    [[nodiscard]] Attempts attemptsFor(const std::vector<VantrelDaemonInfo>& found);
    [[nodiscard]] bool tryResolvedAddress(const VantrelDaemonInfo& info, const std::string& address,
                                          const Terms& terms, const Vantrel::CoDeadline& limit);
    [[nodiscard]] bool settleWhoAnswers(Info& info, const Vantrel::CoDeadline& limit);

    Info announcedInfo() const;
    [[nodiscard]] bool askServer(Info& info, const Vantrel::CoDeadline& limit);
    Info readDaemonInfo(std::string reply) const;
    void complete(VantrelDaemonInfo& info) const;
    std::string mismatch(const VantrelDaemonInfo& info) const;
    void reached(Info info);

    const VantrelServerId& serverId_;
    Vantrel::rcAPI& endpoint_;
    VantrelStopControl& control_;

    Info daemonInfo_;
    std::string reachedAddress_;
    std::string error_;  // why the last address did not work
    bool askedServer_ = false;
    bool triedAddress_ = false;
};
