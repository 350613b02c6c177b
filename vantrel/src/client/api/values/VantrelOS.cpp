#include <vantrel/VantrelOS.h>

#include <strings.h>
#include <sys/capability.h>
#include <sys/utsname.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <string>
#include <vector>

#include "CoCapabilities.h"
#include "CoIoTcpDescriptor.h"
#include "CoMsg.h"
#include "CoNetworkDispatcher.h"
#include "CoUser.h"

namespace {

// Whether the system lets a process take this effective user id without any capability.
bool isOwnUser(uid_t user) {
    uid_t real = 0;
    uid_t effective = 0;
    uid_t saved = 0;
    return ::getresuid(&real, &effective, &saved) == 0 &&
           (user == real || user == effective || user == saved);
}

bool switchUser(uid_t user) {
    if (::seteuid(user) == 0) return true;
    CO_MSG_ERROR("Cannot switch to user %u: %s", user, Vantrel::coErrorText(errno).c_str());
    return false;
}

}  // namespace

VantrelOS::~VantrelOS() = default;

const char* VantrelOS::OsTypeStr(OsType type) {
    switch (type) {
        case Irix:
            return "Irix";
        case Linux:
            return "Linux";
        case WindowsNT:
            return "WindowsNT";
        case MacOSX:
            return "MacOSX";
        case Unknown:
            break;
    }
    return "Unknown";
}

VantrelOS::OsType VantrelOS::strToOsType(const char* name) {
    if (name) {
        for (const OsType type : {Irix, Linux, WindowsNT, MacOSX}) {
            if (::strcasecmp(name, OsTypeStr(type)) == 0) return type;
        }
    }
    return Unknown;
}

bool VantrelOS::isLoopBackIP(const char* address) {
    if (!address) return false;
    for (const char* loopback : {"localhost", "127.0.0.1", "::127.0.0.1", "::1"}) {
        if (std::strcmp(address, loopback) == 0) return true;
    }
    return ::strcasecmp(address, "::ffff:127.0.0.1") == 0;
}

bool VantrelOS::isLocalIP(const char* address) {
    if (!address || address[0] == '\0') return false;
    if (isLoopBackIP(address) || getHostName() == address) return true;
    const char* const bare = Vantrel::CoIoTcpDescriptor::skipIPv4InIPv6Prefix(address);
    for (const Vantrel::CoNetworkInterface& local : Vantrel::CoNetworkDispatcher::getAllInterfaces()) {
        if (local.ip == bare) return true;
    }
    return false;
}

VantrelStr VantrelOS::getHostName() {
    std::string name;
    Vantrel::CoUser::getHostName(name);
    return VantrelStr(name.c_str());
}

VantrelOS::OsType VantrelOS::getOSType() {
    return Linux;
}

VantrelStr VantrelOS::getOSVersion() {
    utsname system{};
    return ::uname(&system) == 0 ? VantrelStr(system.release) : VantrelStr();
}

unsigned int VantrelOS::getUserId() {
    return ::geteuid();
}

unsigned int VantrelOS::getGroupId() {
    return ::getegid();
}

bool VantrelOS::setUserId(unsigned int userId) {
    if (isOwnUser(userId)) return switchUser(userId);
    const Vantrel::CoCapabilities::Raised setUid(CAP_SETUID);
    std::string reason = setUid.error();
    // The C library makes the switch in every thread, and ends the process when it succeeds in only some.
    if (!reason.empty() || !Vantrel::CoCapabilities::allThreadsHave(CAP_SETUID, reason)) {
        CO_MSG_ERROR("Cannot switch to user %u: %s", userId, reason.c_str());
        return false;
    }
    return switchUser(userId);
}

bool VantrelOS::getLocalMetadataIPs(VantrelStrList& addresses) {
    VantrelStrList found;
    for (const Vantrel::CoNetworkInterface& local :
         Vantrel::CoNetworkDispatcher::getInterfaces(Vantrel::CoNetworkDispatcher::Role::Metadata)) {
        found.push_back(local.ip.c_str());
    }
    addresses = static_cast<VantrelStrList&&>(found);
    return addresses.size() > 0;
}

bool VantrelOS::getLocalMulticastInterfaces(VantrelStrList& interfaces) {
    VantrelStrList found;
    std::vector<std::string> known;  // an interface stands in the list once for each of its addresses
    for (const Vantrel::CoNetworkInterface& local :
         Vantrel::CoNetworkDispatcher::getInterfaces(Vantrel::CoNetworkDispatcher::Role::Multicast)) {
        if (std::find(known.begin(), known.end(), local.name) != known.end()) continue;
        known.push_back(local.name);
        found.push_back(local.name.c_str());
    }
    interfaces = static_cast<VantrelStrList&&>(found);
    return interfaces.size() > 0;
}
