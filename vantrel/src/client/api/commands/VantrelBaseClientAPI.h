#pragma once

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "VantrelClientConnection.h"
#include "VantrelEventSubject.h"
#include "VantrelTranslationCodec.h"

/// The server-wide commands. Every operation returns true on success; on failure `lastError` tells why.
/// Thread safety: one thread at a time.
class VantrelBaseClientAPI {
  public:
    /// `connection` must outlive this object.
    explicit VantrelBaseClientAPI(VantrelClientConnection& connection) : connection_(connection) {}

    const char* lastError() const { return lastError_.c_str(); }

    bool ping(unsigned retryTimeoutMs);
    bool queryVersion(int& major, int& minor);
    bool shutdown();
    /// The connection's record of the server; with `refresh` asked for anew.
    bool getDaemonInfo(std::shared_ptr<const VantrelDaemonInfo>& info, bool refresh);

    // --- Path translation: outputs are replaced on success only ---

    /// The paths of one host as another writes them, in the same order and number. Nothing is sent when a
    /// host is null, or no name of a host (VantrelTranslationCodec::isValidHost).
    bool translatePaths(const VantrelStrList& paths, VantrelStrList& result, const char* srcHost,
                        const char* dstHost, VantrelOS::OsType srcType, VantrelOS::OsType dstType);
    bool getTranslationGroups(std::vector<VantrelPathTranslationGroup>& groups);
    bool getHostTranslations(std::vector<VantrelHostTranslation>& translations);
    bool getOsTypeTranslations(std::vector<VantrelOsTypeTranslation>& translations);

    // --- Events ---

    /// Asks the server to send a node's events to `port` of this host, for the object `connectionId`. Asking
    /// again replaces format and tag. With `limitMs` the call ends after that time at the latest, and fails
    /// at once when the connection is down.
    bool registerEventsOn(unsigned port, int connectionId, const VantrelEventSubject& subject,
                          std::optional<unsigned> limitMs = std::nullopt);
    bool unregisterEventsOn(unsigned port, int connectionId, const VantrelNodeId& nodeId,
                            std::optional<unsigned> limitMs = std::nullopt);

    /// Callbacks after a reconnection, see VantrelClientConnection.
    void addConnectCallback(VantrelClientConnection::ConnectCallback* callback) {
        connection_.addConnectCallback(callback);
    }
    void removeConnectCallback(VantrelClientConnection::ConnectCallback* callback) {
        connection_.removeConnectCallback(callback);
    }

  private:
    /// Runs an operation; what it throws becomes the last error.
    template <typename Operation>
    bool attempt(Operation operation);
    /// Throws on failure.
    std::string request(const char* method, const std::string& argument, unsigned retryTimeoutMs);
    std::string request(const char* method, const std::string& argument);
    std::string request(const char* method, const std::string& argument, unsigned callTimeoutMs,
                        unsigned retryTimeoutMs);

    void requestEvents(const char* method, const std::string& argument, std::optional<unsigned> limitMs);

    VantrelClientConnection& connection_;
    std::string lastError_;
};
