#pragma once

#include <vantrel/VantrelServerHandle.h>

#include <atomic>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "CoDeferral.h"
#include "VantrelBaseClientAPI.h"
#include "VantrelDaemonInfoMgr.h"
#include "VantrelEventConnection.h"
#include "VantrelFrameClientAPI.h"
#include "VantrelNodeClientAPI.h"
#include "VantrelRawDataClientConnection.h"
#include "VantrelSharedConnection.h"
#include "VantrelVersion.h"

/// What stands behind a server handle: the shared metadata connection and the command clients on it, the
/// frame connection, the last error. One recursive lock serialises everything but `isConnected` and `stop`.
class VantrelServerImp : private VantrelDaemonInfoMgr {
  public:
    /// The lock. While it is held, callbacks of the application wait (CoDeferral).
    class Lock {
      public:
        explicit Lock(const VantrelServerImp& server) : lock_(server.mutex_) {}

      private:
        Vantrel::CoDeferral deferral_;  // outlives lock_
        std::lock_guard<std::recursive_mutex> lock_;
    };

    explicit VantrelServerImp(const VantrelServerId& serverId);
    ~VantrelServerImp() override;

    /// Takes the connection and builds the command clients on it, once. False: see `lastErrorText`.
    bool init();

    bool isConnected() const;
    void disconnect();
    void stop(const char* reason);

    const VantrelServerId& serverId() const { return serverId_; }

    std::string lastErrorText() const;
    void setLastError(std::string text);

    /// Under the lock: initialises, then runs `call`, which returns false after setting `client`'s last
    /// error.
    template <typename Client, typename Call>
    bool request(std::unique_ptr<Client> VantrelServerImp::*client, Call call);
    template <typename Call>
    bool nodeRequest(Call call) {
        return request(&VantrelServerImp::nodeClient_, call);
    }
    template <typename Call>
    bool baseRequest(Call call) {
        return request(&VantrelServerImp::baseClient_, call);
    }
    /// The same for calls that depend on the server's age: `call(client, version)`.
    template <typename Call>
    bool versionedNodeRequest(Call call);
    /// Under the lock: builds the frame client, then runs `call(client)`, which throws on failure.
    template <typename Call>
    bool frameRequest(Call call);

    bool ping(unsigned retryTimeoutMs);

    // The handler is not null. Both wait for a call of it where need be, without the lock, which that call
    // may want.
    bool registerEventHandler(const VantrelNodeId& nodeId, VantrelNodeEvent::Handler* handler,
                              const char* format, const char* meta);
    bool unregisterEventHandler(const VantrelNodeId& nodeId, const VantrelNodeEvent::Handler* handler);

    /// The path translation tables that were asked for, as the server told them last.
    struct TranslationTables {
        std::optional<std::vector<VantrelPathTranslationGroup>> groups;
        std::optional<std::vector<VantrelHostTranslation>> hosts;
        std::optional<std::vector<VantrelOsTypeTranslation>> osTypes;
    };
    /// To be used under the lock.
    TranslationTables& translationTables() { return translationTables_; }

    /// The server's daemon info, null on failure. The record stays valid as long as the pointer is held.
    std::shared_ptr<const VantrelDaemonInfo> daemonInfo();
    /// The server's protocol version; false when it cannot be had.
    bool protocolVersion(VantrelVersion& version);
    /// False, with `refusal` as the last error, when the server is older than `needed`.
    bool requireVersion(const VantrelVersion& needed, const std::string& refusal);

    static constexpr const char* NOT_SUPPORTED = "Functionality not supported on remote Vantrel server.";

  private:
    bool getDaemonInfo(const VantrelDaemonInfo*& info) override;
    void clearDaemonInfo() override { daemonInfoStale_ = true; }
    const char* lastError() const override { return lastError_.c_str(); }

    VantrelFrameClientAPI& frameApi();
    using EventConnection = std::shared_ptr<VantrelEventConnection>;
    VantrelEventConnection& eventConnection(EventConnection& old);
    VantrelClientConnection* connectionNow() const;

    const VantrelServerId serverId_;
    std::atomic<bool> initialized_{false};
    std::atomic<bool> daemonInfoStale_{true};
    std::atomic<VantrelFrameClientAPI*> frameClientNow_{nullptr};  // frameClient_'s, once it is made

    mutable std::recursive_mutex mutex_;  // guards what follows
    std::string lastError_;
    VantrelClientConnection::Shared
        connection_;  // set once, before initialized_; read without the lock after
    std::unique_ptr<VantrelBaseClientAPI> baseClient_;
    std::unique_ptr<VantrelNodeClientAPI> nodeClient_;
    std::shared_ptr<const VantrelDaemonInfo> daemonInfo_;
    TranslationTables translationTables_;
    EventConnection events_;  // made by the first registration
    VantrelRawDataClientConnection rawData_;
    std::unique_ptr<VantrelFrameClientAPI> frameClient_;  // set once; stop() reaches it without the lock
};

template <typename Client, typename Call>
bool VantrelServerImp::request(std::unique_ptr<Client> VantrelServerImp::*client, Call call) {
    const Lock lock(*this);
    if (!init()) return false;
    if (call(*(this->*client))) return true;
    lastError_ = (this->*client)->lastError();
    return false;
}

template <typename Call>
bool VantrelServerImp::versionedNodeRequest(Call call) {
    const Lock lock(*this);
    VantrelVersion version{};
    return protocolVersion(version) &&
           nodeRequest([&](VantrelNodeClientAPI& client) { return call(client, version); });
}

template <typename Call>
bool VantrelServerImp::frameRequest(Call call) {
    const Lock lock(*this);
    try {
        call(frameApi());
        return true;
    } catch (const std::exception& error) {
        lastError_ = error.what();
        return false;
    }
}
