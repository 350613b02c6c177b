#include <vantrel/VantrelServerId.h>

#include <charconv>
#include <cstdio>
#include <string_view>

#include "CoAssert.h"

namespace {

constexpr const char* DEFAULT_STORAGE = "SXAFS";
constexpr unsigned long HASH_FACTOR = 1099511628211UL;
constexpr unsigned MAX_ID_BYTES = 1024;  // with the terminating zero

// The port that a text names; 0 when the text as a whole is no decimal number, as the names of storages are.
int portOf(std::string_view text) {
    int port = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), port);
    return error == std::errc() && end == text.data() + text.size() ? port : 0;
}

}  // namespace

const char VantrelServerId::separator = ':';

VantrelServerId::VantrelServerId(const char* text) {
    if (text && text[0] != '\0') setId(text);
}

VantrelServerId::VantrelServerId(const char* storage, const char* address, int port)
    : address_(address), storage_(storage), port_(port) {
    if (port_ == 0 && storage_.isEmpty()) id_ = address_;
}

VantrelServerId::VantrelServerId(int port, const char* address) : VantrelServerId(nullptr, address, port) {}

VantrelServerId::~VantrelServerId() = default;

void VantrelServerId::setId(const char* text) {
    id_ = text;  // from here on id_ is what to read: `text` may have been our own
    const std::string_view whole(id_.c_str(), id_.length());
    const std::size_t colon = whole.rfind(separator);
    port_ = 0;
    if (colon == std::string_view::npos) {
        address_ = id_;
        storage_ = DEFAULT_STORAGE;
        id_ += separator;
        id_ += storage_;
        return;
    }
    address_ = id_.substr(0, static_cast<unsigned>(colon));
    port_ = portOf(whole.substr(colon + 1));
    if (port_ == 0) {
        storage_ = id_.c_str() + colon + 1;
    } else {
        storage_.clear();
    }
}

const char* VantrelServerId::getId() const {
    if (!id_.isEmpty()) return id_.c_str();
    // What names nothing is not cached: its text would make it valid.
    if (!isValid()) return ":0";

    char text[MAX_ID_BYTES];
    const int length =
        storage_.isEmpty()
            ? std::snprintf(text, sizeof text, "%s%c%d", address_.c_str(), separator, port_)
            : std::snprintf(text, sizeof text, "%s%c%s", address_.c_str(), separator, storage_.c_str());
    (void)CO_ASSERT_NAMED(length >= 0 && static_cast<unsigned>(length) < sizeof text,
                          "length < MAX_ID_BYTES");
    id_ = text;
    return id_.c_str();
}

void VantrelServerId::setIPAddr(const char* address) {
    address_ = address;
    id_.clear();
}

void VantrelServerId::setDB(const char* storage) {
    storage_ = storage;
    id_.clear();
}

void VantrelServerId::setPort(int port) {
    port_ = port;
    id_.clear();
}

void VantrelServerId::setStorageId(const char* storageId) {
    storageId_ = storageId;
}

bool VantrelServerId::isValid() const noexcept {
    return port_ != 0 || !id_.isEmpty() || !address_.isEmpty() || !storage_.isEmpty() ||
           !storageId_.isEmpty();
}

bool VantrelServerId::operator==(const VantrelServerId& other) const noexcept {
    return port_ == other.port_ && address_ == other.address_ && storageId_ == other.storageId_ &&
           storage_ == other.storage_;
}

bool VantrelServerId::operator<(const VantrelServerId& other) const noexcept {
    if (address_ != other.address_) return address_ < other.address_;
    if (port_ != other.port_) return port_ < other.port_;
    if (storage_ != other.storage_) return storage_ < other.storage_;
    return storageId_ < other.storageId_;
}

unsigned long VantrelServerId::hash() const noexcept {
    unsigned long all = static_cast<unsigned long>(port_);
    for (const VantrelStr* text : {&address_, &storage_, &storageId_}) all = all * HASH_FACTOR + text->hash();
    return all;
}
