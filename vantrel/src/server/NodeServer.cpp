#include "NodeServer.h"

#include <utility>

#include "CoException.h"
#include "CoIoTcpDescriptor.h"
#include "CoNetworkConfig.h"
#include "CoNetworkDispatcher.h"
#include "CoUser.h"
#include "ServerAddresses.h"
#include "rcServerClient.h"
#include "rcSysCalls.h"

namespace vantreld {

using Vantrel::CoNetworkDispatcher;
using Vantrel::rcMethod;
using Vantrel::rcParam;
using Vantrel::rcParamString;

namespace {

constexpr const char* VENDOR = "Vantrel";
constexpr const char* PRODUCT = "vantreld";

std::vector<std::string> interfaceAddresses(CoNetworkDispatcher::Role role) {
    std::vector<std::string> addresses;
    for (const auto& interface : CoNetworkDispatcher::getInterfaces(role)) addresses.push_back(interface.ip);
    return addresses;
}

const char* bindAddressOf(const ServerOptions& options) {
    return options.bindAddress.empty() ? nullptr : options.bindAddress.c_str();
}

/// The address that a bind address means, which may be a name. As it is when the name is not found: then
/// listening on it fails, too.
std::string numericAddress(const std::string& address) {
    if (address.empty()) return address;
    try {
        return Vantrel::CoIoTcpDescriptor::getIpAddrFromHostName(address.c_str());
    } catch (const Vantrel::CoException&) {
        return address;
    }
}

template <typename Set>
void setAddresses(const std::vector<std::string>& addresses, Set set) {
    unsigned slot = 0;
    for (const std::string& ip : addresses) {
        if (slot < VantrelDaemonInfo::MAX_IPS) set(slot++, ip.c_str());
    }
}

void setVersions(VantrelDaemonInfo& info, const VantrelVersion& protocol) {
    info.setVersionMajor(protocol.major);
    info.setVersionMinor(protocol.minor);
    info.setVersionMaint(protocol.patch);
    info.setVersionBuild(protocol.build);
    info.setProductVersionMajorNumber(VANTREL_RELEASE.major);
    info.setProductVersionMinorNumber(VANTREL_RELEASE.minor);
    info.setProductVersionMaintNumber(VANTREL_RELEASE.patch);
    info.setProductBuildNumber(VANTREL_RELEASE.build);
    const std::string text = std::to_string(VANTREL_RELEASE.major) + "." +
                             std::to_string(VANTREL_RELEASE.minor) + "." +
                             std::to_string(VANTREL_RELEASE.patch);
    info.setProductVersionString(text.c_str());
}

}  // namespace

NodeServer::NodeServer(NodeStore& store, const ServerOptions& options, PathTranslations translations)
    : store_(store),
      options_(options),
      boundTo_(numericAddress(options.bindAddress)),
      context_(options.nodePort, bindAddressOf(options)),
      commands_(
          store, options.version, [this] { return daemonInfo(); }, std::move(translations)) {
    context_.requireLogin(true);
    Vantrel::rcSysCalls::registerSysCallHandler(context_);
    registerNodeCommands();
    registerShutdown();
    registerEventCommands();
    store_.setObserver(&events_);
}

NodeServer::~NodeServer() {
    store_.setObserver(nullptr);
}

void NodeServer::registerNodeCommands() {
    rcMethod method;
    method.resultType = &rcParamString::TYPE;
    method.parameters = {{&rcParamString::TYPE}};
    for (auto& [name, perform] : commands_.functions()) {
        method.name = name;
        method.function = [perform = perform](int, const rcMethod&, rcParam::Array& parameters,
                                              rcParam& result) {
            result.setStringValue(perform(parameters[0].takeStringValue()));
            return true;
        };
        context_.registerMethod(method);
    }
}

void NodeServer::registerShutdown() {
    rcMethod method;
    method.name = VantrelCommands::SHUTDOWN.name;
    method.function = [this](int, const rcMethod&, rcParam::Array&, rcParam&) {
        if (!options_.allowShutdown)
            throw Vantrel::CoException("This server does not let clients shut it down.");
        shutdownRequested_ = true;
        return true;
    };
    context_.registerMethod(method);
}

VantrelDaemonInfo NodeServer::daemonInfo() const {
    std::string reachedAt;
    if (const auto* client = context_.getCurrentClient()) client->descriptor().getSocketIP(reachedAt);
    return describe([&](const auto& ips) { return serverAddresses(reachedAt, boundTo_, ips); });
}

VantrelDaemonInfo NodeServer::announcedInfo() const {
    return describe([this](const auto& ips) { return announcedAddresses(boundTo_, ips); });
}

VantrelDaemonInfo NodeServer::describe(const Addresses& addresses) const {
    VantrelDaemonInfo info;
    setAddresses(addresses(interfaceAddresses(CoNetworkDispatcher::Role::Metadata)),
                 [&info](unsigned slot, const char* ip) { info.setMetadataIP(slot, ip); });
    setAddresses(addresses(interfaceAddresses(CoNetworkDispatcher::Role::Data)),
                 [&info](unsigned slot, const char* ip) { info.setDataIP(slot, ip); });
    std::string hostName;
    Vantrel::CoUser::getHostName(hostName);
    info.setHostName(hostName.c_str());
    info.setDisplayName(options_.displayName.empty() ? hostName.c_str() : options_.displayName.c_str());
    info.setOsType(VantrelOS::Linux);
    info.setDatabase(options_.database.c_str());
    info.setNodePort(getPort());
    info.setFramePort(framePort_);
    setVersions(info, options_.version);
    info.setVendor(VENDOR);
    info.setProduct(PRODUCT);
    info.setStorageId(options_.storageId.empty() ? store_.storageId().c_str() : options_.storageId.c_str());
    std::string uuid;
    if (Vantrel::CoNetworkConfig::getInstance().getUUID(uuid)) info.setHostUUID(uuid.c_str());
    return info;
}

}  // namespace vantreld
