#include "rcConnectionInfo.h"

#include <sys/types.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <cstdint>
#include <ctime>
#include <string_view>

#include "CoAssert.h"
#include "CoIoTcpDescriptor.h"
#include "CoMsg.h"
#include "CoMutex.h"
#include "CoNetworkConfig.h"
#include "CoPerProcess.h"
#include "CoProcess.h"
#include "CoUser.h"
#include "rcAttrStream.h"

namespace Vantrel {

namespace {

constexpr const char* UNDEFINED = "undefined";
constexpr const char* UNDEFINED_ADDRESS = "0.0.0.0";

constexpr const char* KEY_USER_NAME = "StrUserName";
constexpr const char* KEY_GROUP_NAME = "StrGroupName";
constexpr const char* KEY_UMASK = "IntUmask";
constexpr const char* KEY_HOST_UUID = "StrHostUUID";
constexpr const char* KEY_PASSWORD = "StrPassword";
constexpr const char* KEY_PROCESS_NAME = "StrProcessName";
constexpr const char* KEY_PROCESS_ID = "IntProcessId";
constexpr const char* KEY_HOST_NAME = "StrHostName";
constexpr const char* KEY_IP_ADDR = "StrIpAddr";
constexpr const char* KEY_SERIAL = "IntSerial";
constexpr const char* KEY_TIMESTAMP = "IntTimestamp";
constexpr const char* KEY_CRC = "IntCRC";
constexpr const char* KEY_VERSION = "ULongVersion";

std::atomic<unsigned> nextSerial{0};

constexpr std::uint32_t CRC_START = 0xFFFFFFFF;
constexpr std::uint32_t CRC_POLYNOMIAL = 0xEDB88320;  // IEEE 802.3, reflected

constexpr std::array<std::uint32_t, 256> makeCrcTable() {
    std::array<std::uint32_t, 256> table{};
    for (std::uint32_t byte = 0; byte < table.size(); ++byte) {
        std::uint32_t value = byte;
        for (int bit = 0; bit < 8; ++bit) value = (value >> 1) ^ ((value & 1) ? CRC_POLYNOMIAL : 0);
        table[byte] = value;
    }
    return table;
}

constexpr std::array<std::uint32_t, 256> CRC_TABLE = makeCrcTable();

// The record's checksum while it runs over the fields.
class Crc {
  public:
    // An empty text sets the register back, so that what came before it no longer counts. Odd, but every peer
    // computes it like this.
    void addText(std::string_view text) {
        if (text.empty()) register_ = CRC_START;
        for (const char byte : text) addByte(static_cast<unsigned char>(byte));
    }
    void addNumber(std::uint32_t number) {
        for (int bits = 0; bits < 32; bits += 8) addByte(static_cast<unsigned char>(number >> bits));
    }
    std::uint32_t result() const { return ~register_; }

  private:
    void addByte(unsigned char byte) { register_ = (register_ >> 8) ^ CRC_TABLE[(register_ ^ byte) & 0xFFU]; }

    std::uint32_t register_ = CRC_START;
};

// The name that the system last gave for a user or group id: a connection need not ask again, which may mean
// a query to a directory server.
template <bool (*LOOK_UP)(std::string& name)>
class NameOfId {
  public:
    bool get(unsigned id, std::string& name) CO_EXCLUDES(mutex_) {
        {
            const CoLock lock(mutex_);
            if (known_ && id == id_) {
                name = name_;
                return true;
            }
        }
        if (!LOOK_UP(name)) return false;  // without the lock: it may take long
        const CoLock lock(mutex_);
        known_ = true;
        id_ = id;
        name_ = name;
        return true;
    }

  private:
    CoMutex mutex_;
    bool known_ CO_GUARDED_BY(mutex_) = false;
    unsigned id_ CO_GUARDED_BY(mutex_) = 0;
    std::string name_ CO_GUARDED_BY(mutex_);
};

using UserNames = CoPerProcess<NameOfId<&CoUser::getUserName>>;
using GroupNames = CoPerProcess<NameOfId<&CoUser::getGroupName>>;

// What stays the same for the life of the process; empty where the system gave nothing.
struct ProcessFacts {
    ProcessFacts() : processName(CoProcess::getName()) { CoUser::getHostName(hostName); }

    std::string hostName;
    std::string processName;
};

const CoIoTcpDescriptor* asTcp(const CoIoDescriptor* descriptor) {
    return dynamic_cast<const CoIoTcpDescriptor*>(descriptor);
}

std::string versionText(unsigned long version) {
    if (version == 0) return std::string();
    const auto part = [version](unsigned shift) { return static_cast<unsigned>(version >> shift & 0xFFFFU); };
    return coFormat("[%u.%u.%u.%u]", part(48), part(32), part(16), part(0));
}

}  // namespace

rcConnectionInfo::rcConnectionInfo(unsigned long version) : serial_(nextSerial.fetch_add(1)) {
    client_.userName = UNDEFINED;
    client_.groupName = UNDEFINED;
    client_.processName = UNDEFINED;
    client_.hostName = UNDEFINED;
    client_.hostUUID = UNDEFINED;
    client_.ipAddr = UNDEFINED_ADDRESS;
    client_.version = version;
}

rcConnectionInfo::rcConnectionInfo(const char* text, const CoIoDescriptor* descriptor) {
    if (!CO_ASSERT(text) || !parse(text)) {
        CO_MSG_DEBUG("Syntax error while parsing connection information, output values won't be accurate");
    }
    validateCRC();
    const CoIoTcpDescriptor* tcp = asTcp(descriptor);
    if (tcp) tcp->getPeerIP(client_.ipAddr);
}

// False when a required key is missing.
bool rcConnectionInfo::parse(const std::string& text) {
    const rcAttrStream stream(text);
    client_.hasGroup = stream.getStringValue(KEY_GROUP_NAME, client_.groupName);
    client_.hasUmask = stream.getUIntValue(KEY_UMASK, client_.umask);
    client_.hasHostUUID = stream.getStringValue(KEY_HOST_UUID, client_.hostUUID);
    stream.getStringValue(KEY_PASSWORD, client_.password);
    bool complete = stream.getStringValue(KEY_USER_NAME, client_.userName);
    complete &= stream.getStringValue(KEY_PROCESS_NAME, client_.processName);
    complete &= stream.getIntValue(KEY_PROCESS_ID, client_.processId);
    complete &= stream.getStringValue(KEY_HOST_NAME, client_.hostName);
    complete &= stream.getStringValue(KEY_IP_ADDR, client_.ipAddr);
    complete &= stream.getUIntValue(KEY_SERIAL, serial_);
    complete &= stream.getUIntValue(KEY_TIMESTAMP, timestamp_);
    complete &= stream.getUIntValue(KEY_CRC, crc_);
    complete &= stream.getUInt64Value(KEY_VERSION, client_.version);
    return complete;
}

void rcConnectionInfo::fillInfo(const CoIoDescriptor* descriptor) {
    bool complete = fillUser();
    complete &= fillProcess();
    if (!complete) CO_MSG_DEBUG("User process information couldn't be adequately retrieved");
    const CoIoTcpDescriptor* tcp = asTcp(descriptor);
    if (tcp) tcp->getSocketIP(client_.ipAddr);
    crc_ = generateCRC();
}

bool rcConnectionInfo::fillUser() {
    const bool userKnown = UserNames::get().get(::geteuid(), client_.userName);
    client_.hasGroup = GroupNames::get().get(::getegid(), client_.groupName);
    client_.umask = CoProcess::getUmask();
    client_.hasUmask = true;
    return userKnown && client_.hasGroup;
}

bool rcConnectionInfo::fillProcess() {
    const ProcessFacts& facts = CoPerProcess<ProcessFacts>::get();
    if (!facts.hostName.empty()) client_.hostName = facts.hostName;
    if (!facts.processName.empty()) client_.processName = facts.processName;
    client_.processId = CoProcess::getId();
    std::string uuid;
    client_.hasHostUUID = CoNetworkConfig::getInstance().getUUID(uuid);
    if (client_.hasHostUUID) client_.hostUUID = uuid;
    return client_.hasHostUUID && !facts.hostName.empty() && !facts.processName.empty();
}

void rcConnectionInfo::setIpAddr(const std::string& address) {
    client_.ipAddr = address;
    crc_ = generateCRC();
}

void rcConnectionInfo::setSerial(unsigned serial) {
    serial_ = serial;
    crc_ = generateCRC();
}

void rcConnectionInfo::setTimestamp(unsigned seconds) {
    timestamp_ = seconds;
    crc_ = generateCRC();
}

void rcConnectionInfo::setClientInfo(const rcConnectionInfo& other, const CoIoDescriptor* descriptor) {
    client_ = other.client_;
    const CoIoTcpDescriptor* tcp = asTcp(descriptor);
    if (tcp) tcp->getPeerIP(client_.ipAddr);
    crc_ = generateCRC();
}

std::string rcConnectionInfo::toAttrStream() const {
    rcAttrStream stream;
    stream.addStringValue(KEY_USER_NAME, client_.userName);
    if (client_.hasGroup) stream.addStringValue(KEY_GROUP_NAME, client_.groupName);
    if (client_.hasUmask) stream.addIntValue(KEY_UMASK, static_cast<int>(client_.umask));
    if (client_.hasHostUUID) stream.addStringValue(KEY_HOST_UUID, client_.hostUUID);
    stream.addStringValue(KEY_PASSWORD, client_.password);
    stream.addStringValue(KEY_PROCESS_NAME, client_.processName);
    stream.addIntValue(KEY_PROCESS_ID, client_.processId);
    stream.addStringValue(KEY_HOST_NAME, client_.hostName);
    stream.addStringValue(KEY_IP_ADDR, client_.ipAddr);
    stream.addIntValue(KEY_SERIAL, static_cast<int>(serial_));
    stream.addIntValue(KEY_TIMESTAMP, static_cast<int>(timestamp_));
    stream.addIntValue(KEY_CRC, static_cast<int>(crc_));
    stream.addUInt64Value(KEY_VERSION, client_.version);
    return stream.text();
}

unsigned rcConnectionInfo::generateCRC() const {
    Crc crc;
    crc.addText(client_.userName);
    if (client_.hasGroup) crc.addText(client_.groupName);
    if (client_.hasUmask) crc.addNumber(client_.umask);
    if (client_.hasHostUUID) crc.addText(client_.hostUUID);
    crc.addText(client_.hostName);
    crc.addText(client_.password);
    crc.addText(client_.ipAddr);
    crc.addNumber(timestamp_);
    crc.addNumber(serial_);
    return crc.result();
}

bool rcConnectionInfo::validateCRC() {
    client_.valid = generateCRC() == crc_;
    if (!client_.valid) {
        CO_MSG_ERROR("Unable to establish connection [%d]: checksum failed.", static_cast<int>(serial_));
        const unsigned age = static_cast<unsigned>(std::time(nullptr)) - timestamp_;
        CO_MSG_DEBUG("Connection [%d] Timestamp: %d Age: %d Checksum 0x%X", static_cast<int>(serial_),
                     static_cast<int>(timestamp_), static_cast<int>(age), crc_);
    }
    return client_.valid;
}

std::string rcConnectionInfo::getConnectionStr() const {
    return coFormat("Connection [%d] [%s/%s/%04o] [%s/%s] [%s/%d] %s", static_cast<int>(serial_),
                    client_.userName.c_str(), client_.groupName.c_str(), client_.umask,
                    client_.hostName.c_str(), client_.ipAddr.c_str(), client_.processName.c_str(),
                    client_.processId, versionText(client_.version).c_str());
}

void rcConnectionInfo::logConnection() const {
    CO_MSG_NOTICE("%s", getConnectionStr().c_str());
}

}  // namespace Vantrel
