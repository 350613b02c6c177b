#pragma once

#include <atomic>
#include <condition_variable>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "CoNetworkDispatcher.h"
#include "CoThread.h"
#include "CoTime.h"
#include "VantrelDaemonInfo.h"
#include "VantrelDiscoverySockets.h"
#include "VantrelKnownServers.h"
#include "VantrelMulticastProtocol.h"

/// The process's discovery agent: knows the servers that announce themselves, searches for others, forgets
/// those that fall silent. Its thread, "VT Multicast", takes every datagram; whoever searches sends, and
/// waits for what the thread makes of the answers. Errors are logged, never thrown. Thread-safe.
class VantrelMulticastClient : public std::enable_shared_from_this<VantrelMulticastClient> {
  public:
    enum class Event { Changed = 0, Added = 1, Removed = 2 };

    /// Told of every change of the known servers, without a lock of this class, on the thread that brought it
    /// about.
    class Observer {
      public:
        virtual ~Observer() = default;
        virtual void serverEvent(Event event, const VantrelDaemonInfo& info) = 0;
        /// A known server announced itself again, unchanged. Frequent.
        virtual void serverHeard(const VantrelDaemonInfo&) {}
    };

    // --- The one of this process ---

    /// The instance, made and started when there is none. Never null.
    static std::shared_ptr<VantrelMulticastClient> getInstance() { return _getInstance(true); }
    /// The same, but null when there is none and `create` is false.
    static std::shared_ptr<VantrelMulticastClient> _getInstance(bool create);
    /// Stops and forgets the instance; whoever waits in it returns. The next getInstance makes a new one.
    static void stop();
    /// Observers are not owned, and stay registered when the instance goes and another one comes.
    static void addObserver(Observer* observer);
    /// Waits for a call in progress on another thread.
    static void removeObserver(Observer* observer);
    static void notifyObservers(Event event, const VantrelDaemonInfo& info);
    static void notifyHeard(const VantrelDaemonInfo& info);

    /// How a server is asked for its daemon list: performs "GetDaemonList" with an empty argument on a
    /// connection of its own, and gives back the reply. Throws Vantrel::CoException.
    using ListFetcher = std::string (*)(const VantrelServerId& serverId, unsigned callTimeoutMs);
    /// Connections build on discovery; this is the way back.
    static void setListFetcher(ListFetcher fetcher);

    // --- Searching ---

    /// Whether discovery has any interface to work on.
    bool haveAtLeastOneMulticastInterface() const;
    /// Searches for all servers and gives back those known afterwards, sorted by display name, then database.
    /// Waits until no reply has come for QUIET_MS, at least MIN_WAIT_MS and at most MAX_WAIT_MS; not at all
    /// when the last search is less than SEARCH_VALID_MS ago. `selector`: null or empty for all, otherwise
    /// the database that the servers must have. With `gatewayIP`, neither null nor empty, that server's list
    /// is fetched too (port 0: 7549).
    void getServers(VantrelKnownServers::Servers& servers, const char* selector, const char* gatewayIP,
                    int gatewayPort);
    /// The record of a server, searched for when it is not known; returns as soon as it is found. False when
    /// nobody answers in time, at once when there is no multicast interface. `cancelled`, looked at whenever
    /// the wait wakes up (see recheckWaits) and under this class's lock, ends it with false.
    bool resolve(const VantrelServerId& serverId, VantrelDaemonInfo& info,
                 const std::function<bool()>& cancelled = {});
    /// Wakes every waiting caller up, so that it looks at its `cancelled`. Starts nothing.
    static void recheckWaits();
    /// The record of a server if it is known; sends nothing and looks no host name up.
    bool known(const VantrelServerId& serverId, VantrelDaemonInfo& info) const;
    /// Sends a search for one storage, or for all when null, and does not wait. False, logged, when nothing
    /// was sent.
    bool find(const char* storageId);
    void refresh(const char* storageId) { find(storageId); }
    /// Adds the servers that another one knows; with a `database`, neither null nor empty, only those of
    /// exactly that. Waits for the connection and the answer.
    void fetchListFromServer(const VantrelServerId& serverId, const char* database);

    // --- The known servers ---

    /// Takes a record in, stamped with the current time, and tells the observers.
    VantrelKnownServers::Change add(const VantrelDaemonInfo& info);
    void remove(const VantrelDaemonInfo& info) { remove(info.getServerId()); }
    void remove(const VantrelServerId& serverId);
    /// A connection to this server was made: a sign of life.
    void connectedTo(const VantrelDaemonInfo& info);
    /// Replaces what is known, without telling the observers.
    void setServers(const std::vector<VantrelDaemonInfo>& servers);
    /// Logs what is known.
    void dump() const;

    /// Makes a received record one to be used here: without loopback addresses, unless its daemon runs on
    /// this host, and with the usual port and database where it tells none.
    static void fixVantrelDaemonInfo(VantrelDaemonInfo& info);

    static constexpr unsigned QUIET_MS = 200;
    static constexpr unsigned MIN_WAIT_MS = 300;
    static constexpr unsigned MAX_WAIT_MS = 2000;
    static constexpr unsigned SEARCH_VALID_MS = 5000;

    // --- The life of one ---

    /// Opens the sockets. For getInstance and tests: held by a shared_ptr.
    explicit VantrelMulticastClient(VantrelDiscoveryGroup group);
    VantrelMulticastClient(const VantrelMulticastClient&) = delete;
    VantrelMulticastClient& operator=(const VantrelMulticastClient&) = delete;
    virtual ~VantrelMulticastClient();

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
                      const char* address, unsigned port);
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

    /// The search for one storage, or for all servers, in which callers take part together.
    struct Search {
        Microseconds startedAt;
        bool over = false;
    };
    /// A way to read a server id: with a numeric address. `onlyLocal`: meant is a daemon of this host.
    struct Meaning {
        VantrelServerId id;
        bool onlyLocal;
    };
    using Meanings = std::vector<Meaning>;

    // --- On the thread ---

    void threadCB();
    void reopenSockets();
    void searchAgain(Microseconds now);
    void pauseAfterPollFailure(int error);
    void resync(Microseconds now);
    bool readFrom(int descriptor);

    // --- Control pipe ---

    bool openControlPipe();
    void drainControlPipe() const;
    void closeControlPipe();

    /// Whether this is still the process that made the object, and not a forked child of it.
    bool isOurProcess() const;
    void requestStop();
    void noteLocalDaemon(const VantrelDaemonInfo& info, VantrelKnownServers::Change change);
    static void removeForeignLoopbackIPs(VantrelDaemonInfo& info);

    // --- Searching (VantrelMulticastSearch.cpp) ---

    bool sendSearch(const std::string& storageId);
    std::shared_ptr<Search> joinSearch(const std::string& storageId);
    Microseconds searchAndWait(const std::string& storageId, Microseconds latest,
                               const std::function<bool()>& done);
    bool searchWithoutWaiting();
    bool isRunning(const Search& search, Microseconds now) const;
    Microseconds endOf(const Search& search) const;
    void reportMissingLocalDaemon(Microseconds searchedAt) const;
    Meanings meaningsOf(const VantrelServerId& serverId, const std::function<bool()>& cancelled) const;
    bool findKnown(const Meanings& meanings, VantrelDaemonInfo& info) const;

    const unsigned generation_;  // of the process that this object belongs to
    const unsigned port_;        // for messages

    std::atomic<bool> stopping_{false};
    std::atomic<bool> reopen_{false};  // the thread opens the sockets anew

    // The thread's.
    Microseconds nextResyncAt_;
    Microseconds nextSearchAt_;  // NEVER when the last one was sent
    unsigned searchesLeft_ = 0;
    bool pollFailed_ = false;  // and was told of

    mutable std::mutex pipeMutex_;  // guards the ends of the control pipe
    int controlOut_ = -1;
    int controlIn_ = -1;

    NetworkObserver networkObserver_{*this};  // before the sockets, so that they miss no change

    mutable std::mutex socketsMutex_;  // for all uses of sockets_ but receiving, which the thread does beside
    VantrelDiscoverySockets sockets_;

    mutable std::mutex mutex_;  // guards what follows
    std::condition_variable changed_;
    VantrelKnownServers known_;
    std::map<std::string, std::shared_ptr<Search>> searches_;  // the latest, by storage id; "" for all
    Microseconds lastSearchAt_;                                // for all servers
    Microseconds lastReplyAt_ = 0;
    std::string localUUID_;  // of this host, once a daemon of it was seen
    Microseconds localHeardAt_ = 0;

    std::unique_ptr<Vantrel::CoThread> thread_;  // set by start, before others know this object
};
