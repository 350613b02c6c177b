#pragma once

#include <vantrel/VantrelServerInfo.h>
#include <vantrel/VantrelTypes.h>

/// The servers on the facility network:
///
///     VantrelServerList list;
///     VantrelServerInfo info;
///     int count = 0;
///     if (!list.getNumNodes(count)) report(list.lastError());
///     for (int i = 0; i < count; ++i) {
///         if (list.getNode(i, info)) show(info.getDisplayName());
///     }
///
/// Needs VantrelClientInit. Copies are independent values. Thread safety: one object is used by one thread at
/// a time; different objects are independent.
class VANTREL_API VantrelServerList {
  public:
    /// `selector`: null or empty for every server, otherwise only those with exactly this database.
    /// `gatewayIpAddr`: a server to ask for the servers that it knows, beside the search by multicast: for a
    /// subnet that multicast does not reach; null or empty for none. It is not asked when there is no
    /// multicast interface here. `gatewayPort`: its node port, 0 for the usual one (7549).
    explicit VantrelServerList(const char* selector = nullptr, const char* gatewayIpAddr = nullptr,
                               int gatewayPort = 0);
    VantrelServerList(const VantrelServerList& other);
    VantrelServerList& operator=(const VantrelServerList& other);
    virtual ~VantrelServerList();

    /// Never null; valid as long as this object.
    const char* getGatewayIpAddr() const;
    int getGatewayPort() const;

    /// Searches the network and counts the servers; `getNode` then gives them. Waits for answers, between 0.3
    /// and 2 seconds, and not at all when the last search of this process is less than 5 seconds ago. With a
    /// gateway, also as long as connecting to it and its answer take (VANTREL_CONNECTION_TIMEOUT_MS,
    /// VANTREL_CONNECTION_RETRY_TIMEOUT_MS, VANTREL_GETDAEMONINFO_TIMEOUT); one that does not answer is
    /// logged, and the call succeeds without it. False when there is no multicast interface; `count` is then
    /// 0, and `getNode` gives none.
    bool getNumNodes(int& count);
    /// Server `index` of the last search, sorted by display name, then database. False for an index outside 0
    /// to count-1; `info` is then as it was.
    bool getNode(int index, VantrelServerInfo& info) const;
    /// Asks all servers to announce themselves, and does not wait for them. False when there is no multicast
    /// interface.
    bool refresh();

    /// Finds one server, by its storage id or its address and port or database. Returns at once when it is
    /// known, as soon as it answers when it is not; waits for answers as `getNumNodes` does, however short
    /// ago the last search was. A host name is looked up, within the same 2 seconds. False when nobody
    /// answers, and at once when there is no multicast interface; `info` is then as it was.
    bool resolve(const VantrelServerId& serverId, VantrelServerInfo& info);
    /// The full id of the server that serves a storage. Waits and fails like `resolve`; the last error is
    /// then "Server not found: :0", as the text form of an id does not show its storage id.
    bool resolveStorageId(const char* storageId, VantrelServerId& serverId);

    /// Why the last call that returned false did so; never null, valid until the next call on this thread.
    const char* lastError() const;

  private:
    class Imp;
    Imp* imp_;
};
