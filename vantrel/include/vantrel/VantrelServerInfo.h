#pragma once

#include <vantrel/VantrelTypes.h>

class VantrelDaemonInfo;

/// What a server says of itself: identity, versions, product. A plain value. Thread safety: one object is
/// used by one thread at a time; different objects are independent.
class VANTREL_API VantrelServerInfo {
  public:
    /// All texts empty, all numbers 0.
    VantrelServerInfo();
    VantrelServerInfo(const VantrelServerInfo& other);
    /// Takes the content of `other`, which becomes as if newly made.
    VantrelServerInfo(VantrelServerInfo&& other) noexcept;
    VantrelServerInfo& operator=(const VantrelServerInfo& other);
    VantrelServerInfo& operator=(VantrelServerInfo&& other) noexcept;
    /// For the library's own use: applications get an info from VantrelServerHandle::getInfo.
    explicit VantrelServerInfo(const VantrelDaemonInfo& info);
    VantrelServerInfo& operator=(const VantrelDaemonInfo& info);
    virtual ~VantrelServerInfo();

    // Texts: never null, empty when the server does not say; valid until this object changes or goes away.
    const char* getHostname() const noexcept;
    const char* getHostUUID() const noexcept;
    const char* getDisplayName() const noexcept;
    const char* getProduct() const noexcept;
    const char* getVendor() const noexcept;
    const char* getProductVersionStr() const noexcept;
    const char* getStorageId() const noexcept;
    const char* getDatabase() const noexcept;

    /// The id that reaches this server: its database, first metadata address, node port and storage id.
    VantrelServerId getId() const;

    // Version of the protocol that the server speaks.
    int getVersionMajor() const noexcept;
    int getVersionMinor() const noexcept;
    int getVersionMaint() const noexcept;
    int getVersionBuild() const noexcept;

    // Version of the server software.
    int getProductVersionMajor() const noexcept;
    int getProductVersionMinor() const noexcept;
    int getProductVersionMaint() const noexcept;
    int getProductBuild() const noexcept;

    /// TCP ports of the node (metadata) and the frame service.
    int getNodePort() const noexcept;
    int getFramePort() const noexcept;

    void setProduct(const char* text);
    void setVendor(const char* text);
    void setProductVersionMajor(int number);
    void setProductVersionMinor(int number);
    void setProductVersionMaint(int number);
    void setProductBuild(int number);
    void setProductVersionStr(const char* text);
    void setStorageId(const char* text);
    void setDatabase(const char* text);
    /// Adds `bits` to the flags; no bit is ever cleared.
    void setFlags(unsigned int bits);

    /// Whether the server runs on this host.
    bool isLocal() const;
    /// Whether the server has open sessions.
    bool hasSessions() const noexcept;
    /// Whether an id, or another info, denotes the same server. May look a host name up (within 5 s).
    bool isSameServer(const VantrelServerId& serverId) const;
    bool isSameServer(const VantrelServerInfo& other) const;
    bool operator==(const VantrelServerInfo& other) const noexcept;
    bool operator!=(const VantrelServerInfo& other) const noexcept { return !(*this == other); }

    const VantrelDaemonInfo& getDaemonInfo() const noexcept;

  private:
    VantrelDaemonInfo& changeable();

    VantrelDaemonInfo* info_;  // null while nothing was set
};
