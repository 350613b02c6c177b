#include "VantrelDaemonInfo.h"

#include <cstring>
#include <string_view>

#include "CoMsg.h"

using Vantrel::rcAttrStream;

namespace {

const char* const METADATA_IP_KEY = "IP";
const char* const DATA_IP_KEY = "FrameIP";

void warnOfIgnoredIP(const char* ip) {
    CO_MSG_WARNING("Exceeding maximum number of IPs allowed, ignoring %s.", ip ? ip : "");
}

VantrelStr toStr(std::string_view text) {
    return VantrelStr(text.data(), static_cast<unsigned>(text.size()));
}

void readText(const rcAttrStream& stream, const char* key, VantrelStr& text) {
    std::string_view value;
    if (stream.getStringValue(key, value)) text = toStr(value);
}

}  // namespace

VantrelDaemonInfo::VantrelDaemonInfo(const rcAttrStream& stream) {
    // Keys are read in the order in which they are written, so that each is one step.
    const bool hasIPs = metadataIPs_.readFrom(stream, METADATA_IP_KEY);
    dataIPs_.readFrom(stream, DATA_IP_KEY);
    std::string_view host;
    // "Hostname" holds an address, but from peers that know no other key it has to serve as the name too.
    stream.getStringValue("Hostname", host);
    if (!hasIPs) setMetadataIP(0, toStr(host).c_str());
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
    metadataIPs_.writeTo(stream, METADATA_IP_KEY);
    dataIPs_.writeTo(stream, DATA_IP_KEY);
    // An address under a name's key: peers that know only this key connect to it.
    stream.addStringValue("Hostname", getMetadataIP(0));
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
    if (!metadataIPs_.set(index, ip)) warnOfIgnoredIP(ip);
}

void VantrelDaemonInfo::setDataIP(unsigned index, const char* ip) {
    if (!dataIPs_.set(index, ip)) warnOfIgnoredIP(ip);
}

void VantrelDaemonInfo::resetIPs() {
    metadataIPs_.clear();
    dataIPs_.clear();
}

void VantrelDaemonInfo::removeLoopbackIPs() {
    metadataIPs_.removeLoopback();
    dataIPs_.removeLoopback();
}

void VantrelDaemonInfo::prependMetadataIP(const char* ip) {
    const VantrelStr lost = metadataIPs_.prepend(ip);
    if (!lost.isEmpty())
        CO_MSG_WARNING("Exceeding maximum number of IPs allowed, dropping %s.", lost.c_str());
}

bool VantrelDaemonInfo::operator==(const VantrelDaemonInfo& other) const {
    return lastUpdate_ == other.lastUpdate_ && hasSameContents(other);
}

bool VantrelDaemonInfo::hasSameContents(const VantrelDaemonInfo& other) const {
    return metadataIPs_ == other.metadataIPs_ && dataIPs_ == other.dataIPs_ && hostName_ == other.hostName_ &&
           displayName_ == other.displayName_ && osType_ == other.osType_ && database_ == other.database_ &&
           nodePort_ == other.nodePort_ && framePort_ == other.framePort_ &&
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
    VantrelServerId id(database_.c_str(), getMetadataIP(0), nodePort_);
    id.setStorageId(storageId_.c_str());
    return id;
}

bool operator<(const VantrelDaemonInfo& left, const VantrelDaemonInfo& right) {
    const int order = std::strcmp(left.getDisplayName(), right.getDisplayName());
    return order != 0 ? order < 0 : std::strcmp(left.getDatabase(), right.getDatabase()) < 0;
}
