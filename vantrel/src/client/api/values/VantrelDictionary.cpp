#include <vantrel/VantrelDictionary.h>

#include <memory>
#include <string>
#include <string_view>
#include <utility>

#include "rcAttrStream.h"

class VantrelDictionary::Imp {
  public:
    Imp() = default;
    explicit Imp(const char* text) : stream(std::string(text)) {}

    Vantrel::rcAttrStream stream;
};

VantrelDictionary::VantrelDictionary() : imp_(nullptr) {}

VantrelDictionary::VantrelDictionary(const char* stream)
    : imp_(stream && stream[0] != '\0' ? std::make_unique<Imp>(stream).release() : nullptr) {}

VantrelDictionary::VantrelDictionary(const VantrelDictionary& other)
    : imp_(other.imp_ ? std::make_unique<Imp>(*other.imp_).release() : nullptr) {}

VantrelDictionary::VantrelDictionary(VantrelDictionary&& other) noexcept
    : imp_(std::exchange(other.imp_, nullptr)) {}

VantrelDictionary::~VantrelDictionary() {
    delete imp_;
}

VantrelDictionary& VantrelDictionary::operator=(const VantrelDictionary& other) {
    if (this != &other) *this = VantrelDictionary(other);
    return *this;
}

VantrelDictionary& VantrelDictionary::operator=(VantrelDictionary&& other) noexcept {
    if (this != &other) {
        delete imp_;
        imp_ = std::exchange(other.imp_, nullptr);
    }
    return *this;
}

void VantrelDictionary::setString(const char* key, const char* value) {
    if (!imp_) imp_ = std::make_unique<Imp>().release();
    imp_->stream.addStringValue(key, value);
}

void VantrelDictionary::setInteger(const char* key, int value) {
    if (!imp_) imp_ = std::make_unique<Imp>().release();
    imp_->stream.addIntValue(key, value);
}

bool VantrelDictionary::getString(const char* key, VantrelStr& value) const {
    std::string_view found;
    if (!imp_ || !imp_->stream.getStringValue(key, found)) return false;
    value = VantrelStr(found.data(), static_cast<unsigned>(found.size()));
    return true;
}

bool VantrelDictionary::getInteger(const char* key, int& value) const {
    return imp_ && imp_->stream.getIntValue(key, value);
}

void VantrelDictionary::getFields(VantrelStrList& keys) const {
    VantrelStrList found;
    if (imp_) {
        Vantrel::rcAttrStream::ConstIterator entries(imp_->stream);
        std::string_view key;
        std::string_view value;
        while (entries.next(key, value)) found.push_back(std::string(key).c_str());
    }
    keys = std::move(found);
}

const char* VantrelDictionary::getStream() const {
    return imp_ ? imp_->stream.text().c_str() : "";
}

bool VantrelDictionary::isEmpty() const {
    return !imp_ || imp_->stream.isEmpty();
}

bool VantrelDictionary::operator==(const VantrelDictionary& other) const {
    if (!imp_ || !other.imp_) return isEmpty() && other.isEmpty();
    return imp_->stream == other.imp_->stream;
}
