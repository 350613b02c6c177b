#include "VantrelMulticastPort.h"

#include <cerrno>
#include <chrono>
#include <thread>
#include <utility>

#include "CoDeferral.h"
#include "CoMsg.h"

using Vantrel::CoDeferral;
using Vantrel::CoLock;
using Protocol = VantrelMulticastProtocol;

namespace {

/// So that a failure to wait that stays does not keep the processor busy.
constexpr std::chrono::milliseconds FAILURE_PAUSE{100};

}  // namespace

VantrelMulticastPort::VantrelMulticastPort(Vantrel::CoEventLoop& loop, VantrelDiscoveryGroup group)
    : loop_(loop), sockets_(std::move(group)) {
    watch();
}

VantrelMulticastPort::~VantrelMulticastPort() {
    for (const Reader& each : readers_) loop_.remove(each);
    loop_.remove(interfaces_);
}

bool VantrelMulticastPort::send(Protocol::RequestType type, const Vantrel::rcAttrStream& payload,
                                const char* address, unsigned port) {
    const CoDeferral deferral;
    const CoLock lock(mutex_);
    return address ? sockets_.send(type, payload, address, port) : sockets_.send(type, payload);
}

bool VantrelMulticastPort::haveInterface() const {
    const CoLock lock(mutex_);
    return sockets_.haveInterface();
}

void VantrelMulticastPort::reopen() {
    {
        const CoDeferral deferral;
        const CoLock lock(mutex_);
        sockets_.reopen();
    }
    watch();
}

void VantrelMulticastPort::close() {
    {
        const CoDeferral deferral;
        const CoLock lock(mutex_);
        sockets_.close();
    }
    watch();
}

void VantrelMulticastPort::watch() {
    for (const Reader& each : readers_) loop_.remove(each);
    readers_.clear();
    descriptors_.clear();
    std::vector<pollfd> polled;
    {
        const CoLock lock(mutex_);
        sockets_.addTo(polled);
    }
    for (const pollfd& each : polled) {
        descriptors_.push_back(each.fd);
        loop_.add(readers_.emplace_back(each.fd, readable_));
    }
}

bool VantrelMulticastPort::wait(Microseconds deadline) {
    // Again each time: the system may have refused its descriptor before.
    if (interfaces_.descriptorId() >= 0) loop_.add(interfaces_);
    readable_ = false;
    if (loop_.pass(deadline) >= 0) {
        failureLogged_ = false;
        return readable_;
    }
    if (!std::exchange(failureLogged_, true)) {
        CO_MSG_ERROR("Vantrel Multicast: could not wait for sockets activity: %s",
                     Vantrel::coErrorText(errno).c_str());
    }
    std::this_thread::sleep_for(FAILURE_PAUSE);
    return false;
}

bool VantrelMulticastPort::receive(int descriptor, VantrelDiscoverySockets::Datagram& datagram) const {
    const CoDeferral deferral;
    const CoLock lock(mutex_);
    return sockets_.receive(descriptor, datagram);
}
