#pragma once

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "VantrelCommandClient.h"
#include "VantrelEventSubject.h"
#include "VantrelTranslationCodec.h"

/// The server-wide commands.
class VantrelBaseClientAPI : public VantrelCommandClient {
  public:
    using VantrelCommandClient::VantrelCommandClient;

    [[nodiscard]] bool ping(unsigned retryTimeoutMs);
    [[nodiscard]] bool queryVersion(int& major, int& minor);
    [[nodiscard]] bool shutdown();
    /// The connection's record of the server; with `refresh` the server is asked for it again.
    [[nodiscard]] bool getDaemonInfo(std::shared_ptr<const VantrelDaemonInfo>& info, bool refresh);

    // --- Path translation: outputs are replaced on success only ---

    /// The paths of one host as another writes them, in the same order and number. Nothing is sent when a
    /// host is null, or no name of a host (VantrelTranslationCodec::isValidHost).
    [[nodiscard]] bool translatePaths(const VantrelStrList& paths, VantrelStrList& result,
                                      const char* srcHost, const char* dstHost, VantrelOS::OsType srcType,
                                      VantrelOS::OsType dstType);
    [[nodiscard]] bool getTranslationGroups(std::vector<VantrelPathTranslationGroup>& groups);
    [[nodiscard]] bool getHostTranslations(std::vector<VantrelHostTranslation>& translations);
    [[nodiscard]] bool getOsTypeTranslations(std::vector<VantrelOsTypeTranslation>& translations);

    // --- Events ---

    /// Asks the server to send a node's events to `port` of this host, for the object `connectionId`. Asking
    /// again replaces format and tag. With `limitMs` the call ends after that time at the latest, and fails
    /// at once when the connection is down.
    bool registerEventsOn(unsigned port, int connectionId, const VantrelEventSubject& subject,
                          std::optional<unsigned> limitMs = std::nullopt);
    bool unregisterEventsOn(unsigned port, int connectionId, const VantrelNodeId& nodeId,
                            std::optional<unsigned> limitMs = std::nullopt);

  private:
    bool askEvents(const VantrelCommand& command, const std::string& argument,
                   std::optional<unsigned> limitMs);
};
