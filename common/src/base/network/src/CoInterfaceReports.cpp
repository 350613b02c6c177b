#include "CoInterfaceReports.h"

#include <linux/netlink.h>
#include <linux/rtnetlink.h>
#include <sys/socket.h>

#include <cerrno>
#include <utility>

#include "CoMsg.h"

namespace Vantrel {

namespace {

/// Reports taken at a time; a host that makes more of them is asked again.
constexpr int MAX_REPORTS = 256;

bool subscribe(const CoFd& socket) {
    sockaddr_nl address{};
    address.nl_family = AF_NETLINK;
    address.nl_groups = RTMGRP_LINK | RTMGRP_IPV4_IFADDR | RTMGRP_IPV6_IFADDR;
    const void* const generic = &address;
    return ::bind(socket.get(), static_cast<const sockaddr*>(generic), sizeof address) == 0;
}

}  // namespace

int CoInterfaceReports::open() {
    if (socket_.isOpen()) return socket_.get();
    CoFd fresh(::socket(AF_NETLINK, SOCK_RAW | SOCK_CLOEXEC | SOCK_NONBLOCK, NETLINK_ROUTE));
    if (fresh.isOpen() && subscribe(fresh)) {
        socket_ = std::move(fresh);
    } else if (!loggedRefusal_) {
        loggedRefusal_ = true;
        CO_MSG_WARNING("Could not watch the network interfaces: %s", coErrorText(errno).c_str());
    }
    return socket_.get();
}

void CoInterfaceReports::close() {
    if (socket_.isOpen()) missedSome_ = true;
    socket_.reset();
}

bool CoInterfaceReports::take() {
    bool reported = missedSome_;
    missedSome_ = false;
    if (open() < 0) return reported;
    for (int i = 0; i < MAX_REPORTS; ++i) {
        char report;  // the rest of it is dropped
        if (::recv(socket_.get(), &report, sizeof report, 0) < 0) {
            if (errno == EINTR) continue;
            if (errno != ENOBUFS) return reported;
            // Reports were lost.
        }
        reported = true;
    }
    return reported;
}

}  // namespace Vantrel
