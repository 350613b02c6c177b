#include <vantrel/VantrelServerList.h>

#include <exception>
#include <string>
#include <utility>

#include "VantrelDaemonInfo.h"
#include "VantrelIndexError.h"
#include "VantrelInitCounter.h"
#include "VantrelKeptText.h"
#include "VantrelMulticastClient.h"

namespace {

constexpr const char* NO_INTERFACE = "No multicast interface found.";
constexpr const char* NOT_FOUND = "Server not found: ";

const char* nullWhenEmpty(const std::string& text) {
    return text.empty() ? nullptr : text.c_str();
}

std::string textOf(const char* text) {
    return text ? text : "";
}

}  // namespace

class VantrelServerList::Imp {
  public:
    std::string selector;
    std::string gatewayIpAddr;
    int gatewayPort = 0;
    VantrelKnownServers::Servers servers;
    mutable std::string lastError;

    bool fail(std::string text) const {
        lastError = std::move(text);
        return false;
    }

    /// Runs `call(discovery)`; false, with the last error set, when it cannot be run, returns false or
    /// throws.
    template <typename Call>
    bool withDiscovery(Call call) {
        if (!VantrelInitCounter::handlesMayWork()) return fail(VantrelInitCounter::NOT_INITIALIZED);
        try {
            const auto discovery = VantrelMulticastClient::getInstance();
            if (!discovery->haveAtLeastOneMulticastInterface()) return fail(NO_INTERFACE);
            return call(*discovery);
        } catch (const std::exception& error) {
            return fail(error.what());
        }
    }
};

VantrelServerList::VantrelServerList(const char* selector, const char* gatewayIpAddr, int gatewayPort)
    : imp_(new Imp{textOf(selector), textOf(gatewayIpAddr), gatewayPort, {}, {}}) {}

VantrelServerList::VantrelServerList(const VantrelServerList& other) : imp_(new Imp(*other.imp_)) {}

VantrelServerList& VantrelServerList::operator=(const VantrelServerList& other) {
    if (this != &other) *imp_ = *other.imp_;
    return *this;
}

VantrelServerList::~VantrelServerList() {
    delete imp_;
}

const char* VantrelServerList::getGatewayIpAddr() const {
    return imp_->gatewayIpAddr.c_str();
}

int VantrelServerList::getGatewayPort() const {
    return imp_->gatewayPort;
}

const char* VantrelServerList::lastError() const {
    return VantrelKeptText::keep(imp_->lastError);
}

bool VantrelServerList::getNumNodes(int& count) {
    count = 0;
    imp_->servers.clear();
    return imp_->withDiscovery([&](VantrelMulticastClient& discovery) {
        discovery.getServers(imp_->servers, nullWhenEmpty(imp_->selector), nullWhenEmpty(imp_->gatewayIpAddr),
                             imp_->gatewayPort);
        count = static_cast<int>(imp_->servers.size());
        return true;
    });
}

bool VantrelServerList::getNode(int index, VantrelServerInfo& info) const {
    const VantrelKnownServers::Servers& servers = imp_->servers;
    if (index < 0 || static_cast<std::size_t>(index) >= servers.size()) {
        return imp_->fail(vantrelIndexError(index, servers.size()));
    }
    info = servers[static_cast<std::size_t>(index)].record();
    return true;
}

bool VantrelServerList::refresh() {
    return imp_->withDiscovery([](VantrelMulticastClient& discovery) {
        discovery.refresh(nullptr);
        return true;
    });
}

bool VantrelServerList::resolve(const VantrelServerId& serverId, VantrelServerInfo& info) {
    return imp_->withDiscovery([&](VantrelMulticastClient& discovery) {
        VantrelDaemonInfo found;
        if (!discovery.resolve(serverId, found)) {
            return imp_->fail(std::string(NOT_FOUND) + VantrelServerId(serverId).getId());
        }
        info = found;
        return true;
    });
}

bool VantrelServerList::resolveStorageId(const char* storageId, VantrelServerId& serverId) {
    VantrelServerId wanted;
    wanted.setStorageId(storageId);
    VantrelServerInfo info;
    if (!resolve(wanted, info)) return false;
    const VantrelServerId found = info.getId();
    serverId.setDB(found.getDB());
    serverId.setIPAddr(found.getIPAddr());
    serverId.setPort(found.getPort());
    serverId.setStorageId(found.getStorageId());
    return true;
}
