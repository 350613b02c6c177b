#pragma once

#include <cstddef>
#include <string>

#include "CoIoMsgQDescriptor.h"
#include "CoIoTcpDescriptor.h"

class VantrelDaemonInfo;
class VantrelDaemonInfoMgr;

/// The byte pipe to a server's frame port, or to the local socket beside it when the server runs on this
/// host. Connects on demand; any failure closes it, so that it is never left half-read. Failures are thrown
/// as Vantrel::CoException. Thread safety: one thread at a time, but `stop`, which any thread may call.
class VantrelRawDataClientConnection {
  public:
    /// `server` must outlive the connection.
    explicit VantrelRawDataClientConnection(VantrelDaemonInfoMgr& server) : server_(&server) {}
    VantrelRawDataClientConnection(const VantrelRawDataClientConnection&) = delete;
    VantrelRawDataClientConnection& operator=(const VantrelRawDataClientConnection&) = delete;

    /// Learns from another holder where to connect next; an open connection stays as it is. `server` must
    /// outlive the connection.
    void setServer(VantrelDaemonInfoMgr& server) { server_ = &server; }

    void connect();
    bool isConnected() const { return tcp_.isValid() || local_.isValid(); }
    void disconnect();
    /// Ends the operation in progress with ABORTED.
    void stop();

    static constexpr const char* ABORTED = "Operation aborted.";

    /// Whether it is open and its peer is this host.
    bool isToThisHost() const;

    /// Moves exactly `length` bytes, connecting first where needed.
    void read(char* buffer, std::size_t length);
    void write(const char* buffer, std::size_t length);
    /// Reads up to a NUL, which is consumed but not returned. False when `maxLength` bytes came without one.
    [[nodiscard]] bool readText(std::string& text, std::size_t maxLength);

    /// While it lives, an operation is in progress: stop() reaches it at any moment, between two requests
    /// too. Nests.
    class Operation {
      public:
        explicit Operation(VantrelRawDataClientConnection& connection)
            : tcp_(connection.tcp_), local_(connection.local_) {}

        /// Throws ABORTED when stop() was called since it began.
        void throwIfStopped() const;

      private:
        Vantrel::CoIoDescriptor::StopScope tcp_;
        Vantrel::CoIoDescriptor::StopScope local_;
    };

    /// An operation that is one request and its reply. Opens the connection, and a new one when the server
    /// has closed the earlier one since.
    class Request : public Operation {
      public:
        explicit Request(VantrelRawDataClientConnection& connection);
    };

  private:
    [[nodiscard]] bool connectLocally(const VantrelDaemonInfo& info);
    [[nodiscard]] bool connectTo(const VantrelDaemonInfo& info, const char* address, int port);
    /// The descriptor that is open.
    Vantrel::CoIoDescriptor& socket();

    VantrelDaemonInfoMgr* server_;
    // At most one of the two is open.
    Vantrel::CoIoTcpDescriptor tcp_;
    Vantrel::CoIoMsgQDescriptor local_;
    unsigned forkGeneration_ = 0;  // of the process that opened the socket
};
