#pragma once

#include <memory>
#include <string>
#include <vector>

#include "VantrelClientConnection.h"
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

  private:
    /// Runs an operation; what it throws becomes the last error.
    template <typename Operation>
    bool attempt(Operation operation);
    /// Throws on failure.
    std::string request(const char* method, const std::string& argument, unsigned retryTimeoutMs);
    std::string request(const char* method, const std::string& argument);

    VantrelClientConnection& connection_;
    std::string lastError_;
};
