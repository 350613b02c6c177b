#pragma once

#include "VantrelStr.h"

/// Names a server: by address and port, or by address and storage (the daemon's database), which discovery
/// resolves. Its text form is "host", "host:port" or "host:storage".
///
/// One object must not be used by several threads at once, not even for reading: getId() keeps the text that
/// it builds. Copies are independent.
class VANTREL_API VantrelServerId {
  public:
    /// Stands between the address and the rest in the text form: ':'.
    static const char separator;

    /// The id that `text` describes (see setId). Null or empty: the id that names nothing.
    VantrelServerId(const char* text = nullptr);
    /// Null texts count as empty. With neither a storage nor a port, the text form is the bare address.
    VantrelServerId(const char* storage, const char* address, int port);
    /// With port 0, the text form is the bare address.
    VantrelServerId(int port, const char* address);
    VantrelServerId(const VantrelServerId& other) = default;
    VantrelServerId(VantrelServerId&& other) = default;
    virtual ~VantrelServerId();

    VantrelServerId& operator=(const VantrelServerId& other) = default;
    VantrelServerId& operator=(VantrelServerId&& other) = default;

    /// Reads the text form. The last ':' ends the address. What follows it is the port when all of it is a
    /// decimal number other than 0 that an int holds: digits, at most a '-' before them, and no blanks. What
    /// is anything else ("0x50", " 7549") is the storage. A text without ':' is an address whose storage is
    /// "SXAFS". Null counts as empty. The storage id is left as it is.
    void setId(const char* text);
    /// The text form; never null. Valid until the id is changed or destroyed. A text of more than 1023 bytes
    /// is a programming error: it is logged and the text is cut.
    const char* getId() const;

    /// Host name or IP address. The getters of texts never give null; what they give is valid until the id is
    /// changed or destroyed. Null given to a setter counts as empty.
    const char* getIPAddr() const noexcept { return address_.c_str(); }
    void setIPAddr(const char* address);

    /// Storage: the name of the daemon's database.
    const char* getDB() const noexcept { return storage_.c_str(); }
    void setDB(const char* storage);

    /// TCP port of the server's node commands; 0 when the id names a storage instead.
    int getPort() const noexcept { return port_; }
    void setPort(int port);

    /// The storage's own identifier, which outlives a change of its host; not part of the text form.
    const char* getStorageId() const noexcept { return storageId_.c_str(); }
    void setStorageId(const char* storageId);

    /// Whether the id names anything: the port or one of its texts is set.
    bool isValid() const noexcept;

    /// Same port, address, storage and storage id.
    bool operator==(const VantrelServerId& other) const noexcept;
    bool operator!=(const VantrelServerId& other) const noexcept { return !(*this == other); }
    /// By address, port, storage and storage id, in this order.
    bool operator<(const VantrelServerId& other) const noexcept;

    unsigned long hash() const noexcept;

  private:
    mutable VantrelStr id_;  // the text form; empty until someone asks for it
    VantrelStr address_;
    VantrelStr storage_;
    VantrelStr storageId_;
    int port_ = 0;
};

namespace std {
template <>
struct hash<VantrelServerId> {
    size_t operator()(const VantrelServerId& id) const noexcept { return id.hash(); }
};
}  // namespace std
