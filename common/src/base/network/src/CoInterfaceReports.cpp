#include "CoInterfaceReports.h"

#include <linux/netlink.h>
#include <linux/rtnetlink.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>

#include "CoMsg.h"

namespace Vantrel {

namespace {

/// Reports taken at a time; a host that makes more of them is asked again.
constexpr int MAX_REPORTS = 256;

/// Negative, with errno set, when it fails.
int openSubscribed() {
    const int id = ::socket(AF_NETLINK, SOCK_RAW | SOCK_CLOEXEC | SOCK_NONBLOCK, NETLINK_ROUTE);
    if (id < 0) return id;
    sockaddr_nl address{};
    address.nl_family = AF_NETLINK;
    address.nl_groups = RTMGRP_LINK | RTMGRP_IPV4_IFADDR | RTMGRP_IPV6_IFADDR;
    const void* const generic = &address;
    if (::bind(id, static_cast<const sockaddr*>(generic), sizeof address) == 0) return id;
    const int error = errno;
    ::close(id);
    errno = error;
    return -1;
}

}  // namespace

int CoInterfaceReports::open() {
    if (id_ < 0) id_ = openSubscribed();
    if (id_ < 0 && !toldRefusal_) {
        toldRefusal_ = true;
        CO_MSG_WARNING("Could not watch the network interfaces: %s", coErrorText(errno).c_str());
    }
    return id_;
}

void CoInterfaceReports::close() {
    if (id_ >= 0) {
        ::close(id_);
        missedSome_ = true;
    }
    id_ = -1;
}

bool CoInterfaceReports::take() {
    bool reported = missedSome_;
    missedSome_ = false;
    if (open() < 0) return reported;
    for (int i = 0; i < MAX_REPORTS; ++i) {
        char report;  // the rest of it is dropped
        if (::recv(id_, &report, sizeof report, 0) < 0) {
            if (errno == EINTR) continue;
            if (errno != ENOBUFS) return reported;
            // Reports were lost.
        }
        reported = true;
    }
    return reported;
}

}  // namespace Vantrel
