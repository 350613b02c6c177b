#pragma once

#include <deque>
#include <vector>

#include "CoEventLoop.h"
#include "CoMutex.h"
#include "VantrelDiscoverySockets.h"
#include "VantrelInterfaceWatch.h"

/// The sockets of the discovery agent: read by its thread, sent by from any. What waits for them is a loop of
/// the thread's, which outlives this object. Sending is thread-safe; the rest is the thread's alone, once it
/// runs.
class VantrelMulticastPort {
  public:
    using Microseconds = Vantrel::CoTime::Microseconds;

    /// Opens the sockets.
    VantrelMulticastPort(Vantrel::CoEventLoop& loop, VantrelDiscoveryGroup group);
    VantrelMulticastPort(const VantrelMulticastPort&) = delete;
    VantrelMulticastPort& operator=(const VantrelMulticastPort&) = delete;
    ~VantrelMulticastPort();

    /// To one address and port, or with a null address to the group. False, logged, when nothing was sent.
    bool send(VantrelMulticastProtocol::RequestType type, const Vantrel::rcAttrStream& payload,
              const char* address, unsigned port) CO_EXCLUDES(mutex_);
    /// Whether there is somewhere to send to.
    bool haveInterface() const CO_EXCLUDES(mutex_);

    void reopen() CO_EXCLUDES(mutex_);
    void close() CO_EXCLUDES(mutex_);

    /// Waits for datagrams, for changes of the interfaces, whose observers are then notified, or until the
    /// loop is woken. Whether datagrams may have come; a failure is logged, and slows the caller down.
    bool wait(Microseconds deadline);
    /// The descriptors to take datagrams from, in this order.
    const std::vector<int>& descriptors() const { return descriptors_; }
    /// Takes one datagram; false when there is none.
    bool receive(int descriptor, VantrelDiscoverySockets::Datagram& datagram) const CO_EXCLUDES(mutex_);

  private:
    /// Notes that a socket is readable, or has an error to be taken from it.
    class Reader : public Vantrel::CoIoHandler {
      public:
        Reader(int descriptorId, bool& readable) : descriptorId_(descriptorId), readable_(readable) {}
        int descriptorId() const override { return descriptorId_; }
        bool handleRead() override { return readable_ = true; }
        bool handleError() override { return handleRead(); }

      private:
        const int descriptorId_;
        bool& readable_;
    };

    void watch() CO_EXCLUDES(mutex_);

    Vantrel::CoEventLoop& loop_;
    VantrelInterfaceWatch interfaces_;
    std::deque<Reader> readers_;    ///< one for each socket
    std::vector<int> descriptors_;  ///< theirs
    bool readable_ = false;
    bool failureLogged_ = false;

    mutable Vantrel::CoMutex mutex_;
    VantrelDiscoverySockets sockets_ CO_GUARDED_BY(mutex_);
};
