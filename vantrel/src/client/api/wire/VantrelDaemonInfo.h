#pragma once

#include <vantrel/VantrelTypes.h>

#include <cstdint>

#include "CoTime.h"
#include "VantrelIPList.h"
#include "rcAttrStream.h"

/// The identity card of one server daemon: where it is reached, what it is, a few state bits. A plain value
/// without links to other objects, which asks nothing of the host: VantrelDaemonHost does. Thread safety: one
/// record is used by one thread at a time; different records are independent. Texts that are not set are
/// empty, numbers 0.
class VantrelDaemonInfo {
  public:
    /// Slots of each address list. The first empty slot ends a list.
    static constexpr unsigned MAX_IPS = VantrelIPList::MAX_SLOTS;

    /// TCP ports of the services of a daemon whose record gives none.
    static constexpr int DEFAULT_NODE_PORT = 7549;
    static constexpr int DEFAULT_FRAME_PORT = 7550;

    /// Bits of the flags.
    static constexpr unsigned HAS_SESSIONS = 1u << 0;

    VantrelDaemonInfo() = default;
    /// Reads a received record; what is missing stays unset.
    explicit VantrelDaemonInfo(const Vantrel::rcAttrStream& stream);

    /// The record as it travels. Last update and the upper bounds of the port ranges are not part of it.
    Vantrel::rcAttrStream toAttrStream() const;

    // --- Addresses, in order of preference ---

    /// An index of MAX_IPS or more stores nothing and logs a warning.
    void setMetadataIP(unsigned index, const char* ip);
    void setDataIP(unsigned index, const char* ip);
    /// Text of a slot; empty also for an index of MAX_IPS or more.
    const char* getMetadataIP(unsigned index) const { return metadataIPs_.get(index); }
    const char* getDataIP(unsigned index) const { return dataIPs_.get(index); }
    /// The lists up to their ends.
    const VantrelIPList& metadataIPs() const { return metadataIPs_; }
    const VantrelIPList& dataIPs() const { return dataIPs_; }
    /// Empties every slot of both lists.
    void resetIPs();
    /// Whether any slot of either list holds a loopback address.
    bool hasLoopbackIP() const { return metadataIPs_.hasLoopback() || dataIPs_.hasLoopback(); }
    /// Takes the loopback addresses out of both lists: from another host they lead nowhere. The rest keeps
    /// its order.
    void removeLoopbackIPs();
    /// Puts `ip` first among the metadata addresses. It then stands there only once; a full list loses its
    /// last address, with a logged warning.
    void prependMetadataIP(const char* ip);

    // --- Fields: getters never return null, and their texts are valid until the record changes ---

    const char* getHostName() const { return hostName_.c_str(); }
    void setHostName(const char* text) { hostName_ = text; }
    const char* getDisplayName() const { return displayName_.c_str(); }
    void setDisplayName(const char* text) { displayName_ = text; }
    VantrelOS::OsType getOsType() const { return osType_; }
    void setOsType(VantrelOS::OsType type) { osType_ = type; }
    const char* getDatabase() const { return database_.c_str(); }
    void setDatabase(const char* text) { database_ = text; }

    /// TCP ports of the metadata and the frame service. 0: the service's usual port, which
    /// the client chooses.
    int getNodePort() const { return nodePort_; }
    void setNodePort(int port) { nodePort_ = port; }
    int getFramePort() const { return framePort_; }
    void setFramePort(int port) { framePort_ = port; }
    /// Upper bounds of the ranges that the ports were taken from.
    int getMaxNodePort() const { return maxNodePort_; }
    void setMaxNodePort(int port) { maxNodePort_ = port; }
    int getMaxFramePort() const { return maxFramePort_; }
    void setMaxFramePort(int port) { maxFramePort_ = port; }

    // Version of the protocol that the daemon speaks.
    int getVersionMajor() const { return versionMajor_; }
    int getVersionMinor() const { return versionMinor_; }
    int getVersionMaint() const { return versionMaint_; }
    int getVersionBuild() const { return versionBuild_; }
    void setVersionMajor(int number) { versionMajor_ = number; }
    void setVersionMinor(int number) { versionMinor_ = number; }
    void setVersionMaint(int number) { versionMaint_ = number; }
    void setVersionBuild(int number) { versionBuild_ = number; }

    const char* getProduct() const { return product_.c_str(); }
    void setProduct(const char* text) { product_ = text; }
    const char* getVendor() const { return vendor_.c_str(); }
    void setVendor(const char* text) { vendor_ = text; }
    int getProductVersionMajorNumber() const { return productVersionMajor_; }
    void setProductVersionMajorNumber(int number) { productVersionMajor_ = number; }
    int getProductVersionMinorNumber() const { return productVersionMinor_; }
    void setProductVersionMinorNumber(int number) { productVersionMinor_ = number; }
    int getProductVersionMaintNumber() const { return productVersionMaint_; }
    void setProductVersionMaintNumber(int number) { productVersionMaint_ = number; }
    int getProductBuildNumber() const { return productBuild_; }
    void setProductBuildNumber(int number) { productBuild_ = number; }
    const char* getProductVersionString() const { return productVersionString_.c_str(); }
    void setProductVersionString(const char* text) { productVersionString_ = text; }

    /// Identity of the storage that the daemon serves; when set it identifies the server on its own.
    const char* getStorageId() const { return storageId_.c_str(); }
    void setStorageId(const char* text) { storageId_ = text; }
    const char* getHostUUID() const { return hostUUID_.c_str(); }
    void setHostUUID(const char* text) { hostUUID_ = text; }

    /// When this client last refreshed the record, on the library's clock.
    Vantrel::CoTime::Microseconds getLastUpdate() const { return lastUpdate_; }
    void setLastUpdate(Vantrel::CoTime::Microseconds time) { lastUpdate_ = time; }
    void stampWithCurrentTime() { setLastUpdate(Vantrel::CoTime::getTime()); }

    unsigned getFlags() const { return flags_; }
    /// Adds `bits`; no bit is ever cleared.
    void setFlags(unsigned bits) { flags_ |= bits; }
    bool hasSessions() const { return (flags_ & HAS_SESSIONS) != 0; }

    // --- Comparing ---

    /// Every field but the upper bounds of the port ranges is equal, last update included.
    bool operator==(const VantrelDaemonInfo& other) const;
    bool operator!=(const VantrelDaemonInfo& other) const { return !(*this == other); }
    /// The same without the last update.
    bool hasSameContents(const VantrelDaemonInfo& other) const;

    /// Database, first metadata address, node port and storage id.
    VantrelServerId getServerId() const;

  private:
    VantrelIPList metadataIPs_;
    VantrelIPList dataIPs_;
    VantrelStr hostName_;
    VantrelStr displayName_;
    VantrelStr database_;
    VantrelStr product_;
    VantrelStr vendor_;
    VantrelStr productVersionString_;
    VantrelStr storageId_;
    VantrelStr hostUUID_;
    Vantrel::CoTime::Microseconds lastUpdate_ = 0;
    VantrelOS::OsType osType_ = VantrelOS::Unknown;
    std::int32_t nodePort_ = 0;
    std::int32_t framePort_ = 0;
    std::int32_t maxNodePort_ = 0;
    std::int32_t maxFramePort_ = 0;
    std::int32_t versionMajor_ = 0;
    std::int32_t versionMinor_ = 0;
    std::int32_t versionMaint_ = 0;
    std::int32_t versionBuild_ = 0;
    std::int32_t productVersionMajor_ = 0;
    std::int32_t productVersionMinor_ = 0;
    std::int32_t productVersionMaint_ = 0;
    std::int32_t productBuild_ = 0;
    std::uint32_t flags_ = 0;
};

/// Order of server lists: by display name, then by database, byte for byte.
bool operator<(const VantrelDaemonInfo& left, const VantrelDaemonInfo& right);
