#pragma once

#include <vantrel/VantrelServerHandle.h>

#include <atomic>
#include <cstdint>
#include <exception>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "CoDeferral.h"
#include "CoMutex.h"
#include "VantrelBaseClientAPI.h"
#include "VantrelDaemonInfoMgr.h"
#include "VantrelEventConnection.h"
#include "VantrelFrameClientAPI.h"
#include "VantrelNodeClientAPI.h"
#include "VantrelRawDataClientConnection.h"
#include "VantrelSharedConnection.h"
#include "VantrelStops.h"
#include "VantrelTreeEdits.h"
#include "VantrelVersion.h"

/// What stands behind a server handle: the shared metadata connection and the command clients on it, the
/// frame connection, the last error. One recursive lock serialises everything but `isConnected` and `stop`.
class VantrelServerImp {
  public:
    /// The lock. While it is held, callbacks of the application wait (CoDeferral).
    class CO_SCOPED_CAPABILITY Lock {
      public:
        explicit Lock(const VantrelServerImp& server) CO_ACQUIRE(server.mutex_) : lock_(server.mutex_) {}
        ~Lock() CO_RELEASE() {}

      private:
        Vantrel::CoDeferral deferral_;  // outlives lock_
        Vantrel::CoLock<Vantrel::CoRecursiveMutex> lock_;
    };

    /// The lock of a call, which a stop ends although it waits for the lock. See `begin`.
    class CO_SCOPED_CAPABILITY CallLock {
      public:
        explicit CallLock(VantrelServerImp& server) CO_ACQUIRE(server.mutex_);
        ~CallLock() CO_RELEASE() {}

      private:
        Vantrel::CoDeferral deferral_;
        VantrelStops::Call call_;
        VantrelStops::Call connectionCall_;
        Vantrel::CoLock<Vantrel::CoRecursiveMutex> lock_;
    };

    class Session;

    explicit VantrelServerImp(const VantrelServerId& serverId);
    VantrelServerImp(const VantrelServerImp&) = delete;
    VantrelServerImp& operator=(const VantrelServerImp&) = delete;
    ~VantrelServerImp();

    /// Takes the connection and builds the command clients on it, once. False: see `lastFailure`.
    bool init();
    /// What every call does first: the same, and false when it was stopped.
    [[nodiscard]] bool begin() CO_REQUIRES(mutex_);

    bool isConnected() const;
    /// Neither waits behind calls: those that run, and those that wait for them, fail.
    void disconnect();
    void stop(const char* reason);

    /// For shutting the library down: ends the frame transfers of all servers; closes all of their
    /// connections.
    static void stopAllTransfers();
    static void disconnectAll();

    const VantrelServerId& serverId() const { return serverId_; }
    /// Not 0, and no other object's of this process, before or after.
    std::uint64_t serial() const { return serial_; }

    VantrelFailure lastFailure() const;
    void setLastError(VantrelErrorCode code, std::string text);

    /// Under the lock: builds the frame client, then runs `call(client)`, which throws on failure.
    template <typename Call>
    [[nodiscard]] bool frameRequest(Call call);

    // The handler is not null. Both wait for a call of it where need be, without the lock, which that call
    // may want.
    bool registerEventHandler(const VantrelNodeId& nodeId, VantrelNodeEvent::Handler* handler,
                              const char* format, const char* meta);
    bool unregisterEventHandler(const VantrelNodeId& nodeId, const VantrelNodeEvent::Handler* handler);

    /// The path translation tables that were asked for, as the server gave them last.
    struct TranslationTables {
        std::optional<std::vector<VantrelPathTranslationGroup>> groups;
        std::optional<std::vector<VantrelHostTranslation>> hosts;
        std::optional<std::vector<VantrelOsTypeTranslation>> osTypes;
    };
    TranslationTables& translationTables() CO_REQUIRES(mutex_) { return translationTables_; }

    /// The server's daemon info, null on failure. The record stays valid as long as the pointer is held.
    std::shared_ptr<const VantrelDaemonInfo> daemonInfo();
    /// The server's protocol version; false when it cannot be had.
    [[nodiscard]] bool protocolVersion(VantrelVersion& version);
    /// False, with `refusal` as the last error, when the server is older than `needed`.
    [[nodiscard]] bool requireVersion(const VantrelVersion& needed, const std::string& refusal);

    VantrelTreeEdits& edits() { return edits_; }
    VantrelClientConnection::OwnLimits& limits() { return limits_; }

    /// For functions elsewhere that want the lock held.
    Vantrel::CoRecursiveMutex& mutex() const CO_RETURN_MUTEX(mutex_) { return mutex_; }

  private:
    /// Where the frame connection leads: asked for under the lock.
    class FrameTarget : public VantrelDaemonInfoMgr {
      public:
        explicit FrameTarget(VantrelServerImp& server) : server_(server) {}
        bool getDaemonInfo(const VantrelDaemonInfo*& info) override;
        void clearDaemonInfo() override;
        const char* lastError() const override;
        VantrelErrorCode lastErrorCode() const override;

      private:
        VantrelServerImp& server_;
    };

    VantrelFrameClientAPI& frameApi() CO_REQUIRES(mutex_);
    using EventConnection = std::shared_ptr<VantrelEventConnection>;
    VantrelEventConnection& eventConnection(EventConnection& old) CO_REQUIRES(mutex_);

    const VantrelStops* connectionStops();
    VantrelFailure stopped() const;
    void joinFrameUsers() CO_REQUIRES(mutex_);

    const VantrelServerId serverId_;
    const std::uint64_t serial_;
    VantrelStops stops_;
    VantrelTreeEdits edits_;
    VantrelClientConnection::OwnLimits limits_;
    // What stop() and isConnected() reach without the lock: set once, never replaced.
    std::atomic<VantrelClientConnection*> connectionNow_{nullptr};
    std::atomic<VantrelFrameClientAPI*> frameClientNow_{nullptr};

    mutable Vantrel::CoRecursiveMutex mutex_;
    VantrelFailure lastFailure_ CO_GUARDED_BY(mutex_);
    VantrelClientConnection::Shared connection_ CO_GUARDED_BY(mutex_);
    std::optional<VantrelBaseClientAPI> baseClient_ CO_GUARDED_BY(mutex_);
    std::optional<VantrelNodeClientAPI> nodeClient_ CO_GUARDED_BY(mutex_);
    std::shared_ptr<const VantrelDaemonInfo> daemonInfo_ CO_GUARDED_BY(mutex_);
    bool daemonInfoStale_ CO_GUARDED_BY(mutex_) = true;
    TranslationTables translationTables_ CO_GUARDED_BY(mutex_);
    EventConnection events_ CO_GUARDED_BY(mutex_);  // made by the first registration
    FrameTarget frameTarget_;
    VantrelRawDataClientConnection rawData_;
    std::unique_ptr<VantrelFrameClientAPI> frameClient_ CO_GUARDED_BY(mutex_);
    std::optional<unsigned> frameUserOf_ CO_GUARDED_BY(mutex_);  // the process, by its fork generation
};

/// The lock and, under it, the command clients, whose failures become the server's last error. Without the
/// clients, and false, when there is no server or the library is not initialised.
class VantrelServerImp::Session {
  public:
    explicit Session(VantrelServerImp* server);

    explicit operator bool() const { return nodes_ != nullptr; }
    VantrelNodeClientAPI& nodes() const { return *nodes_; }
    VantrelBaseClientAPI& base() const { return *base_; }

  private:
    std::optional<CallLock> lock_;
    VantrelNodeClientAPI* nodes_ = nullptr;
    VantrelBaseClientAPI* base_ = nullptr;
};

template <typename Call>
bool VantrelServerImp::frameRequest(Call call) {
    const CallLock lock(*this);
    try {
        VantrelFrameClientAPI& client = frameApi();
        const VantrelRawDataClientConnection::Operation operation(rawData_);  // a later stop() meets it
        if (stops_.isCallStopped()) throw VantrelFailureException(stopped());
        call(client);
        return true;
    } catch (const std::exception& error) {
        lastFailure_ = VantrelFailure::of(error);
        return false;
    }
}
