#pragma once

#include <atomic>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "CoEventLoop.h"
#include "CoNetworkDispatcher.h"
#include "CoThread.h"
#include "CoTime.h"
#include "VantrelCandidateIds.h"
#include "VantrelDaemonInfo.h"
#include "VantrelMulticastPort.h"
#include "VantrelSearches.h"
#include "VantrelServerRegistry.h"

/// The process's discovery agent: knows the servers that announce themselves, searches for others, forgets
/// those that fall silent. Its thread, "VT Multicast", takes every datagram; callers that search send, and
/// wait for what the thread makes of the answers. Errors are logged, never thrown. Thread-safe, and without a
/// lock of its own: port, searches and registry each have one, of which no two are ever held at once.
class VantrelMulticastClient : public std::enable_shared_from_this<VantrelMulticastClient> {
  public:
    using Event = VantrelServerEvent;

    /// Notified of every change of the known servers, without a lock, on the thread that brought it about.
    class Observer {
      public:
        virtual ~Observer() = default;
        virtual void serverEvent(Event event, const VantrelDaemonInfo& info) = 0;
        /// A known server announced itself again, unchanged. Frequent.
        virtual void serverHeard(const VantrelDaemonInfo&) {}
    };

    // --- The one of this process (VantrelMulticastInstance.cpp) ---

    /// The instance, made and started when there is none. Never null.
    static std::shared_ptr<VantrelMulticastClient> getInstance() { return _getInstance(true); }
    /// The same, but null when there is none and `create` is false.
    static std::shared_ptr<VantrelMulticastClient> _getInstance(bool create);
    /// Stops and forgets the instance; calls that wait in it return. The next getInstance makes a new one.
    static void stop();
    /// Observers are not owned, and stay registered when the instance goes and another one comes.
    static void addObserver(Observer* observer);
    /// Waits for a call in progress on another thread.
    static void removeObserver(Observer* observer);
    static void notifyObservers(Event event, const VantrelDaemonInfo& info);
    static void notifyHeard(const VantrelDaemonInfo& info);
    /// Wakes every waiting caller up, so that it asks its `cancelled` again. Starts nothing.
    static void recheckWaits();

    /// How a server is asked for its daemon list: performs "GetDaemonList" with an empty argument on a
    /// connection of its own, and gives back the reply. Throws Vantrel::CoException.
    using ListFetcher = std::string (*)(const VantrelServerId& serverId, unsigned callTimeoutMs);
    /// Connections build on discovery; this is the way back.
    static void setListFetcher(ListFetcher fetcher);

    // --- Searching ---

    /// Whether discovery has any interface to work on.
    bool haveAtLeastOneMulticastInterface() const { return port_.haveInterface(); }
    /// Searches for all servers and gives those known afterwards, sorted by display name, then database.
    /// Waits as VantrelSearches says; not at all when the last search is fresh. `selector`: null or empty for
    /// all, otherwise the database that the servers must have. With `gatewayIP`, neither null nor empty, that
    /// server's list is fetched too (port 0: 7549).
    void getServers(VantrelKnownServers::Servers& servers, const char* selector, const char* gatewayIP,
                    int gatewayPort);
    /// The record of a server, searched for when it is not known; returns as soon as it is found. False when
    /// no server answers in time, at once when there is no multicast interface. Of several records the first
    /// in the order of the list.
    bool resolve(const VantrelServerId& serverId, VantrelDaemonInfo& info);
    /// The same, giving all records that the id denotes, in the order of the list; none: false. Several
    /// servers may share an address, and of one that was installed again there is an old record for a while.
    /// `cancelled`, asked whenever the wait wakes up (see recheckWaits), ends it with false.
    bool resolveAll(const VantrelServerId& serverId, std::vector<VantrelDaemonInfo>& infos,
                    const std::function<bool()>& cancelled = {});
    /// What is known of the servers that an id denotes, in the order of the list; sends nothing and looks no
    /// host name up.
    VantrelKnownServers::Servers known(const VantrelServerId& serverId) const {
        return registry_.find(serverId);
    }
    /// Sends a search for one storage, or for all when null, and does not wait. False, logged, when nothing
    /// was sent.
    bool find(const char* storageId);
    void refresh(const char* storageId) { find(storageId); }
    /// Adds the servers that another one knows; with a `database`, neither null nor empty, only those of
    /// exactly that. Waits for the connection and the answer.
    void fetchListFromServer(const VantrelServerId& serverId, const char* database);

    // --- The known servers ---

    /// Takes a record in, stamped with the current time, and notifies the observers.
    VantrelKnownServers::Change add(const VantrelDaemonInfo& info) { return registry_.add(info); }
    void remove(const VantrelDaemonInfo& info) { remove(info.getServerId()); }
    void remove(const VantrelServerId& serverId) { registry_.remove(serverId); }
    /// A connection to this server was made: a sign of life.
    void connectedTo(const VantrelDaemonInfo& info) { registry_.stamp(info); }
    /// Replaces what is known, without notifying the observers.
    void setServers(const std::vector<VantrelDaemonInfo>& servers);
    /// Logs what is known.
    void dump() const;

    /// Makes a received record one to be used here: without loopback addresses, unless its daemon runs on
    /// this host, and with the usual port and database where it gives none.
    static void fixVantrelDaemonInfo(VantrelDaemonInfo& info);

    // --- The life of one ---

    /// Opens the sockets. For getInstance and tests: held by a shared_ptr.
    explicit VantrelMulticastClient(VantrelDiscoveryGroup group);
    VantrelMulticastClient(const VantrelMulticastClient&) = delete;
    VantrelMulticastClient& operator=(const VantrelMulticastClient&) = delete;
    virtual ~VantrelMulticastClient() = default;

    /// Starts the thread; to be ended by `stopThread`. Without a thread (logged) nothing is ever found.
    void start();
    /// Ends every wait, then the thread, which closes the sockets. On that thread itself it does not wait for
    /// the end.
    void stopThread();
    /// Makes the thread look at the clock and at the interfaces again.
    void wakeUp();

  protected:
    /// To one address and port, or with a null address to the group. False, logged, when nothing was sent.
    virtual bool send(VantrelMulticastProtocol::RequestType type, const Vantrel::rcAttrStream& payload,
                      const char* address, unsigned port) {
        return port_.send(type, payload, address, port);
    }
    /// Applies one request. On the thread, like the next two.
    virtual void handle(VantrelMulticastProtocol::RequestType type, const Vantrel::rcAttrStream& payload,
                        const char* fromAddress, unsigned fromPort);
    /// Waits until something arrives, at most `timeout`, and handles it.
    virtual void receive(Vantrel::CoTime::Microseconds timeout);

  private:
    using Microseconds = Vantrel::CoTime::Microseconds;

    /// Registered from its construction on, until stopThread or its end.
    class NetworkObserver : public Vantrel::CoNetworkDispatcher::Observer {
      public:
        explicit NetworkObserver(VantrelMulticastClient& client);
        NetworkObserver(const NetworkObserver&) = delete;
        NetworkObserver& operator=(const NetworkObserver&) = delete;
        ~NetworkObserver() override;
        void interfacesChanged(Vantrel::CoNetworkDispatcher::Role role) override;

      private:
        VantrelMulticastClient& client_;
    };

    // --- On the thread ---

    void threadCB();
    void reopenSockets();
    void searchAgain(Microseconds now);
    void resync(Microseconds now);
    bool readFrom(int descriptor);

    /// Whether this is still the process that made the object, and not a forked child of it.
    bool isOurProcess() const;
    void requestStop();
    static void removeForeignLoopbackIPs(VantrelDaemonInfo& info);

    bool sendSearch(const std::string& storageId);
    void searchForAll();
    VantrelKnownServers::Servers findKnown(const std::vector<VantrelCandidateId>& candidates) const;
    void reportMissingLocalDaemon(Microseconds searchedAt) const;

    const unsigned generation_;  ///< of the process that this object belongs to
    const unsigned groupPort_;   ///< for messages

    std::atomic<bool> stopping_{false};
    std::atomic<bool> reopen_{false};  ///< the thread opens the sockets again

    // The thread's.
    Microseconds nextResyncAt_;
    Microseconds nextSearchAt_ = Vantrel::CoEventLoop::NEVER;  ///< NEVER when the last one was sent
    unsigned searchesLeft_ = 0;

    Vantrel::CoEventLoop loop_;  ///< the thread's, but for its wake-up
    VantrelSearches searches_;
    VantrelServerRegistry registry_;
    NetworkObserver networkObserver_{*this};  ///< before the port, so that it misses no change
    VantrelMulticastPort port_;

    std::unique_ptr<Vantrel::CoThread> thread_;  ///< set by start, before others know this object
};
