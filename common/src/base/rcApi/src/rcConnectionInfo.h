#pragma once

#include <string>

namespace Vantrel {

class CoIoDescriptor;

/// The login record: who a client is (user, group, umask, host, process, address, protocol version), with a
/// serial number, a time stamp and a checksum (docs/wire.md). A client builds one, fills it and sends its
/// text; a server parses the text, asks isValid() and takes it over with setClientInfo(). A value type: not
/// thread-safe, copies are independent. Building and filling records on several threads at once is safe.
/// Descriptors are only read during the call.
class rcConnectionInfo {
  public:
    /// A record to send, with defaults and the next serial of the process. `version` holds four 16-bit
    /// numbers, the first one highest.
    explicit rcConnectionInfo(unsigned long version = 0);

    /// Reads a received record's text. Missing keys leave empty texts and zeros and are logged at debug
    /// level; a wrong checksum is logged and makes the record invalid. With a descriptor, the claimed address
    /// is replaced by the peer's, so the stored checksum is then that of the text, not of the fields.
    rcConnectionInfo(const char* text, const CoIoDescriptor* descriptor);

    /// Fills in the running process, and with a descriptor its local address, and computes the checksum. What
    /// the system does not give keeps its default and is logged at debug level.
    void fillInfo(const CoIoDescriptor* descriptor);

    /// Replaces the address, and recomputes the checksum.
    void setIpAddr(const std::string& address);
    void setSerial(unsigned serial);
    void setTimestamp(unsigned seconds);

    /// Takes over everything that describes the other's client, its validity included, but keeps this
    /// record's serial and time stamp. With a descriptor the address becomes the peer's. Recomputes the
    /// checksum.
    void setClientInfo(const rcConnectionInfo& other, const CoIoDescriptor* descriptor);

    /// The record as an attribute stream's text.
    std::string toAttrStream() const;

    /// Checksum of the present fields, not stored.
    unsigned generateCRC() const;
    /// Compares the stored checksum with that of the fields, and makes the record valid or invalid. A
    /// difference is logged.
    bool validateCRC();

    /// The client in one line, for logs.
    std::string getConnectionStr() const;
    /// Logs that line as a notice.
    void logConnection() const;

    bool isValid() const { return client_.valid; }
    unsigned getSerial() const { return serial_; }
    /// Seconds since the epoch; 0 until a server sets it.
    unsigned getTimestamp() const { return timestamp_; }
    unsigned getCRC() const { return crc_; }
    const std::string& getIpAddr() const { return client_.ipAddr; }
    const std::string& getUserName() const { return client_.userName; }
    const std::string& getGroupName() const { return client_.groupName; }
    unsigned getUmask() const { return client_.umask; }
    const std::string& getHostName() const { return client_.hostName; }
    const std::string& getHostUUID() const { return client_.hostUUID; }
    const std::string& getProcessName() const { return client_.processName; }
    int getProcessId() const { return client_.processId; }
    unsigned long getVersion() const { return client_.version; }
    bool hasGroup() const { return client_.hasGroup; }
    bool hasUmask() const { return client_.hasUmask; }
    bool hasHostUUID() const { return client_.hasHostUUID; }

  private:
    struct Client {
        bool valid = true;
        std::string userName;
        bool hasGroup = false;
        std::string groupName;
        bool hasUmask = false;
        unsigned umask = 0;
        std::string password;
        std::string processName;
        int processId = 0;
        std::string hostName;
        bool hasHostUUID = false;
        std::string hostUUID;
        std::string ipAddr;
        unsigned long version = 0;
    };

    bool parse(const std::string& text);
    bool fillUser();
    bool fillProcess();

    Client client_;
    unsigned serial_ = 0;
    unsigned crc_ = 0;
    unsigned timestamp_ = 0;
};

}  // namespace Vantrel
