#include "VantrelDaemonInfo.h"

#include <algorithm>

#include <sys/stat.h>

#include <cstring>
#include <string_view>

#include "CoException.h"
#include "CoIoTcpDescriptor.h"
#include "CoMsg.h"
#include "CoNetworkConfig.h"
#include "CoNetworkDispatcher.h"
#include "VantrelSettings.h"

using Vantrel::CoDeadline;
using Vantrel::CoIoTcpDescriptor;
using Vantrel::rcAttrStream;

namespace {

const char* const METADATA_IP_KEY = "IP";
const char* const DATA_IP_KEY = "FrameIP";

void setIP(VantrelStr (&ips)[VantrelDaemonInfo::MAX_IPS], unsigned index, const char* ip) {
    if (index >= VantrelDaemonInfo::MAX_IPS) {
        CO_MSG_WARNING("Exceeding maximum number of IPs allowed, ignoring %s.", ip ? ip : "");
        return;
    }
    ips[index] = ip;
}

std::string indexedKey(const char* key, unsigned index) {
    return key + std::to_string(index);
}

void writeIPs(const VantrelStr (&ips)[VantrelDaemonInfo::MAX_IPS], const char* key, rcAttrStream& stream) {
    for (unsigned i = 0; i < VantrelDaemonInfo::MAX_IPS && !ips[i].isEmpty(); ++i) {
        stream.addStringValue(indexedKey(key, i).c_str(), ips[i].c_str());
    }
}

VantrelStr toStr(std::string_view text) {
    return VantrelStr(text.data(), static_cast<unsigned>(text.size()));
}

void readText(const rcAttrStream& stream, const char* key, VantrelStr& text) {
    std::string_view value;
    if (stream.getStringValue(key, value)) text = toStr(value);
}

/// Returns the number of addresses found.
unsigned readIPs(const rcAttrStream& stream, const char* key, VantrelStr (&ips)[VantrelDaemonInfo::MAX_IPS]) {
    for (unsigned i = 0; i < VantrelDaemonInfo::MAX_IPS; ++i) {
        const std::string name = indexedKey(key, i);
        // Every list ends with a name that is missing: most often a plain search of the text tells that.
        const bool mayBeThere = i == 0 || stream.text().find(name) != std::string::npos;
        std::string_view value;
        if (!mayBeThere || !stream.getStringValue(name.c_str(), value)) return i;
        ips[i] = toStr(value);
    }
    return VantrelDaemonInfo::MAX_IPS;
}

bool startsWithLetter(const char* text) {
    return (*text >= 'a' && *text <= 'z') || (*text >= 'A' && *text <= 'Z');
}

/// The address that records are compared by; the text itself for a name that cannot be looked up in time.
std::string numericAddress(const char* address, const CoDeadline& deadline) {
    if (!startsWithLetter(address)) return CoIoTcpDescriptor::skipIPv4InIPv6Prefix(address);
    const unsigned leftMs = deadline.leftMs();
    if (leftMs == 0) return address;
    try {
        const std::string found = CoIoTcpDescriptor::getIpAddrFromHostName(address, leftMs);
        return CoIoTcpDescriptor::skipIPv4InIPv6Prefix(found.c_str());
    } catch (const Vantrel::CoException&) {
        return address;
    }
}

template <typename Test>
bool anyIP(const VantrelStr (&ips)[VantrelDaemonInfo::MAX_IPS], Test test) {
    for (unsigned i = 0; i < VantrelDaemonInfo::MAX_IPS && !ips[i].isEmpty(); ++i) {
        if (test(ips[i].c_str())) return true;
    }
    return false;
}

bool equalIPs(const VantrelStr (&left)[VantrelDaemonInfo::MAX_IPS],
              const VantrelStr (&right)[VantrelDaemonInfo::MAX_IPS]) {
    for (unsigned i = 0; i < VantrelDaemonInfo::MAX_IPS; ++i) {
        if (left[i] != right[i]) return false;
    }
    return true;
}

}  // namespace

VantrelDaemonInfo::VantrelDaemonInfo(const rcAttrStream& stream) {
    // Keys are read in the order in which they are written, so that each is one step.
    const bool hasIPs = readIPs(stream, METADATA_IP_KEY, metadataIPs_) > 0;
    readIPs(stream, DATA_IP_KEY, dataIPs_);
    std::string_view host;
    // "Hostname" holds an address, but from peers that know no other key it has to serve as the name too.
    stream.getStringValue("Hostname", host);
    if (!hasIPs) metadataIPs_[0] = toStr(host);
    stream.getStringValue("HostName", host);
    hostName_ = toStr(host);

    readText(stream, "DisplayName", displayName_);
    VantrelStr osType;
    readText(stream, "OSType", osType);
    osType_ = VantrelOS::strToOsType(osType.c_str());
    readText(stream, "Database", database_);
    stream.getIntValue("NodePort", nodePort_);
    stream.getIntValue("FramePort", framePort_);
    stream.getIntValue("VersionMajor", versionMajor_);
    stream.getIntValue("VersionMinor", versionMinor_);
    stream.getIntValue("VersionMaint", versionMaint_);
    stream.getIntValue("VersionBuild", versionBuild_);
    readText(stream, "Product", product_);
    readText(stream, "Vendor", vendor_);
    stream.getIntValue("ProductVersionMajor", productVersionMajor_);
    stream.getIntValue("ProductVersionMinor", productVersionMinor_);
    stream.getIntValue("ProductVersionMaint", productVersionMaint_);
    readText(stream, "ProductVersionStr", productVersionString_);
    stream.getIntValue("ProductBuild", productBuild_);
    readText(stream, "StorageId", storageId_);
    readText(stream, "HostUUID", hostUUID_);
    stream.getUInt32Value("Flags", flags_);
}

rcAttrStream VantrelDaemonInfo::toAttrStream() const {
    rcAttrStream stream;
    writeIPs(metadataIPs_, METADATA_IP_KEY, stream);
    writeIPs(dataIPs_, DATA_IP_KEY, stream);
    // An address under a name's key: peers that know only this key connect to it.
    stream.addStringValue("Hostname", metadataIPs_[0].c_str());
    stream.addStringValue("HostName", hostName_.c_str());
    stream.addStringValue("DisplayName", displayName_.c_str());
    stream.addStringValue("OSType", VantrelOS::OsTypeStr(osType_));
    stream.addStringValue("Database", database_.c_str());
    stream.addIntValue("NodePort", nodePort_);
    stream.addIntValue("FramePort", framePort_);
    stream.addIntValue("VersionMajor", versionMajor_);
    stream.addIntValue("VersionMinor", versionMinor_);
    stream.addIntValue("VersionMaint", versionMaint_);
    stream.addIntValue("VersionBuild", versionBuild_);
    stream.addStringValue("Product", product_.c_str());
    stream.addStringValue("Vendor", vendor_.c_str());
    stream.addIntValue("ProductVersionMajor", productVersionMajor_);
    stream.addIntValue("ProductVersionMinor", productVersionMinor_);
    stream.addIntValue("ProductVersionMaint", productVersionMaint_);
    stream.addStringValue("ProductVersionStr", productVersionString_.c_str());
    stream.addIntValue("ProductBuild", productBuild_);
    stream.addStringValue("StorageId", storageId_.c_str());
    stream.addStringValue("HostUUID", hostUUID_.c_str());
    stream.addUInt32Value("Flags", flags_);
    return stream;
}

void VantrelDaemonInfo::setMetadataIP(unsigned index, const char* ip) {
    setIP(metadataIPs_, index, ip);
}
void VantrelDaemonInfo::setDataIP(unsigned index, const char* ip) {
    setIP(dataIPs_, index, ip);
}

const char* VantrelDaemonInfo::getMetadataIP(unsigned index) const {
    return index < MAX_IPS ? metadataIPs_[index].c_str() : "";
}

const char* VantrelDaemonInfo::getDataIP(unsigned index) const {
    return index < MAX_IPS ? dataIPs_[index].c_str() : "";
}

void VantrelDaemonInfo::resetIPs() {
    for (VantrelStr& ip : metadataIPs_) ip.clear();
    for (VantrelStr& ip : dataIPs_) ip.clear();
}

void VantrelDaemonInfo::removeLoopbackIPs() {
    for (VantrelStr* list : {metadataIPs_, dataIPs_}) {
        VantrelStr* kept = std::remove_if(
            list, list + MAX_IPS, [](const VantrelStr& ip) { return VantrelOS::isLoopBackIP(ip.c_str()); });
        for (; kept != list + MAX_IPS; ++kept) kept->clear();
    }
}

void VantrelDaemonInfo::prependMetadataIP(const char* ip) {
    VantrelStr first(ip);  // `ip` may be the text of a slot that moves
    if (first.isEmpty()) return;
    unsigned free = 0;
    while (free < MAX_IPS && !metadataIPs_[free].isEmpty() && metadataIPs_[free] != first) ++free;
    if (free == MAX_IPS) {
        free = MAX_IPS - 1;
        CO_MSG_WARNING("Exceeding maximum number of IPs allowed, dropping %s.", metadataIPs_[free].c_str());
    }
    for (; free > 0; --free) metadataIPs_[free] = std::move(metadataIPs_[free - 1]);
    metadataIPs_[0] = std::move(first);
}

bool VantrelDaemonInfo::isLocal() const {
    if (!hostUUID_.isEmpty()) {
        std::string localUUID;
        return Vantrel::CoNetworkConfig::getInstance().getUUID(localUUID) && hostUUID_ == localUUID.c_str();
    }
    // Listed once: a record has many addresses.
    const auto own = Vantrel::CoNetworkDispatcher::getAllInterfaces();
    const VantrelStr ownName = VantrelOS::getHostName();
    // Every host has the loopback addresses: they tell nothing.
    const auto isOurs = [&own, &ownName](const char* ip) {
        if (VantrelOS::isLoopBackIP(ip)) return false;
        const char* const bare = CoIoTcpDescriptor::skipIPv4InIPv6Prefix(ip);
        return ownName == ip ||
               std::any_of(own.begin(), own.end(), [bare](const auto& each) { return each.ip == bare; });
    };
    return anyIP(metadataIPs_, isOurs) || anyIP(dataIPs_, isOurs);
}

bool VantrelDaemonInfo::hasHost(const std::string& numericAddress) const {
    if (numericAddress.empty()) return false;
    const auto isThat = [&numericAddress](const char* ip) {
        return numericAddress == CoIoTcpDescriptor::skipIPv4InIPv6Prefix(ip);
    };
    if (anyIP(metadataIPs_, isThat) || anyIP(dataIPs_, isThat)) return true;
    return VantrelOS::isLocalIP(numericAddress.c_str()) && isLocal();
}

bool VantrelDaemonInfo::hasHostOf(const VantrelDaemonInfo& other, const CoDeadline& deadline) const {
    const auto isOurs = [this, &deadline](const char* ip) { return hasHost(numericAddress(ip, deadline)); };
    return anyIP(other.metadataIPs_, isOurs) || anyIP(other.dataIPs_, isOurs);
}

bool VantrelDaemonInfo::isSameHost(const char* address) const {
    if (!address || !*address) return false;
    return hasHost(numericAddress(address, CoDeadline(LOOKUP_TIMEOUT_MS)));
}

bool VantrelDaemonInfo::isSameHost(const VantrelDaemonInfo& other) const {
    const CoDeadline deadline(LOOKUP_TIMEOUT_MS);
    return hasHostOf(other, deadline) || hasHost(numericAddress(other.getHostName(), deadline));
}

bool VantrelDaemonInfo::isSameServer(const VantrelDaemonInfo& other) const {
    if (!storageId_.isEmpty() || !other.storageId_.isEmpty()) return storageId_ == other.storageId_;
    if (database_ != other.database_) return false;
    if (!hostUUID_.isEmpty() || !other.hostUUID_.isEmpty()) return hostUUID_ == other.hostUUID_;
    return hasHostOf(other, CoDeadline(LOOKUP_TIMEOUT_MS));
}

bool VantrelDaemonInfo::isSameServer(const VantrelServerId& serverId) const {
    if (*serverId.getStorageId()) return storageId_ == serverId.getStorageId();
    if (serverId.getPort() != 0 && serverId.getPort() != nodePort_) return false;
    if (*serverId.getDB() && database_ != serverId.getDB()) return false;
    return isSameHost(serverId.getIPAddr());
}

bool VantrelDaemonInfo::operator==(const VantrelDaemonInfo& other) const {
    return lastUpdate_ == other.lastUpdate_ && hasSameContents(other);
}

bool VantrelDaemonInfo::hasSameContents(const VantrelDaemonInfo& other) const {
    return equalIPs(metadataIPs_, other.metadataIPs_) && equalIPs(dataIPs_, other.dataIPs_) &&
           hostName_ == other.hostName_ && displayName_ == other.displayName_ && osType_ == other.osType_ &&
           database_ == other.database_ && nodePort_ == other.nodePort_ && framePort_ == other.framePort_ &&
           versionMajor_ == other.versionMajor_ && versionMinor_ == other.versionMinor_ &&
           versionMaint_ == other.versionMaint_ && versionBuild_ == other.versionBuild_ &&
           product_ == other.product_ && vendor_ == other.vendor_ &&
           productVersionMajor_ == other.productVersionMajor_ &&
           productVersionMinor_ == other.productVersionMinor_ &&
           productVersionMaint_ == other.productVersionMaint_ && productBuild_ == other.productBuild_ &&
           productVersionString_ == other.productVersionString_ && storageId_ == other.storageId_ &&
           hostUUID_ == other.hostUUID_ && flags_ == other.flags_;
}

VantrelServerId VantrelDaemonInfo::getServerId() const {
    VantrelServerId id(database_.c_str(), metadataIPs_[0].c_str(), nodePort_);
    id.setStorageId(storageId_.c_str());
    return id;
}

std::string VantrelDaemonInfo::frameMsgQPath(int framePort) {
    return Vantrel::coFormat("%s/vantrel-frame.%d", VantrelSettings::frameSocketDir.get(), framePort);
}

std::string VantrelDaemonInfo::getFrameMsgQ() const {
    const std::string path = frameMsgQPath(framePort_);
    struct stat status;
    return ::stat(path.c_str(), &status) == 0 && S_ISSOCK(status.st_mode) ? path : std::string();
}

bool operator<(const VantrelDaemonInfo& left, const VantrelDaemonInfo& right) {
    const int order = std::strcmp(left.getDisplayName(), right.getDisplayName());
    return order != 0 ? order < 0 : std::strcmp(left.getDatabase(), right.getDatabase()) < 0;
}
