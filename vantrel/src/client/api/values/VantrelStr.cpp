#include <vantrel/VantrelStr.h>

#include <climits>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string_view>

#include "CoAssert.h"

namespace {

constexpr unsigned long MAX_LENGTH = UINT_MAX - 1;  // with the terminating zero its size is an unsigned, too

// Every empty string points here. It is constant, so that a write to it by mistake cannot go unnoticed.
const char EMPTY_TEXT[1] = {0};

char* defaultBuff() {
    return const_cast<char*>(EMPTY_TEXT);
}

unsigned long textSize(const char* text) {
    return text ? std::strlen(text) : 0;
}

}  // namespace

VantrelStr::VantrelStr() : buff_(defaultBuff()), length_(0) {}

VantrelStr::VantrelStr(const char* text) : VantrelStr() {
    assign(text, textSize(text));
}

VantrelStr::VantrelStr(const char* text, unsigned int n) : VantrelStr() {
    if (text && n > 0 && text[0] != '\0') assign(text, n);
}

VantrelStr::VantrelStr(const VantrelStr& other) : VantrelStr() {
    assign(other.buff_, other.length_);
}

VantrelStr::VantrelStr(VantrelStr&& other) noexcept : buff_(other.buff_), length_(other.length_) {
    other.buff_ = defaultBuff();
    other.length_ = 0;
}

VantrelStr::~VantrelStr() {
    if (buff_ != EMPTY_TEXT) clear();
}

VantrelStr& VantrelStr::operator=(const VantrelStr& other) {
    if (this != &other) assign(other.buff_, other.length_);
    return *this;
}

VantrelStr& VantrelStr::operator=(VantrelStr&& other) noexcept {
    if (this == &other) return *this;
    char* const buff = buff_;
    const unsigned int length = length_;
    buff_ = other.buff_;
    length_ = other.length_;
    other.buff_ = buff;
    other.length_ = length;
    other.clear();
    return *this;
}

VantrelStr& VantrelStr::operator=(const char* text) {
    assign(text, textSize(text));
    return *this;
}

VantrelStr& VantrelStr::operator+=(const VantrelStr& other) {
    append(other.buff_, other.length_);
    return *this;
}

VantrelStr& VantrelStr::operator+=(const char* text) {
    append(text, textSize(text));
    return *this;
}

VantrelStr& VantrelStr::operator+=(char c) {
    if (c != '\0') append(&c, 1);
    return *this;
}

bool VantrelStr::operator==(const VantrelStr& other) const noexcept {
    return length_ == other.length_ && std::memcmp(buff_, other.buff_, length_) == 0;
}

bool VantrelStr::operator==(const char* text) const noexcept {
    return text && std::strcmp(buff_, text) == 0;
}

bool VantrelStr::operator<(const VantrelStr& other) const noexcept {
    return std::strcmp(buff_, other.buff_) < 0;
}

bool VantrelStr::operator<(const char* text) const noexcept {
    return text && std::strcmp(buff_, text) < 0;
}

unsigned long VantrelStr::hash() const noexcept {
    return std::hash<std::string_view>()({buff_, length_});
}

VantrelStr VantrelStr::substr(unsigned int pos, unsigned int n) const {
    VantrelStr part;
    if (pos < length_) part.assign(buff_ + pos, n < length_ - pos ? n : length_ - pos);
    return part;
}

void VantrelStr::clear() {
    checkInvariants();
    if (buff_ != EMPTY_TEXT) std::free(buff_);
    buff_ = defaultBuff();
    length_ = 0;
}

void VantrelStr::reset() {
    clear();
}

// `text` may lie in this string, so the old buffer goes last. False: out of memory, and the string is empty.
bool VantrelStr::assign(const char* text, unsigned long size) {
    checkInvariants();
    char* buff = nullptr;
    if (size > 0 && size <= MAX_LENGTH) {
        buff = static_cast<char*>(std::malloc(size + 1));
        if (buff) {
            std::memcpy(buff, text, size);
            buff[size] = '\0';
        }
    }
    clear();
    if (buff) {
        buff_ = buff;
        length_ = static_cast<unsigned int>(size);
    }
    return buff || size == 0;
}

// The same for what stands behind the present text.
bool VantrelStr::append(const char* text, unsigned long size) {
    checkInvariants();
    if (size == 0) return true;
    if (length_ == 0) return assign(text, size);

    // A part of this string would be gone after the reallocation.
    if (reinterpret_cast<std::uintptr_t>(text) - reinterpret_cast<std::uintptr_t>(buff_) < length_) {
        VantrelStr part;
        if (part.assign(text, size)) return append(part.buff_, part.length_);
        clear();
        return false;
    }
    const unsigned long total = length_ + size;
    char* const buff = total <= MAX_LENGTH ? static_cast<char*>(std::realloc(buff_, total + 1)) : nullptr;
    if (!buff) {
        clear();
        return false;
    }
    std::memcpy(buff + length_, text, size);
    buff[total] = '\0';
    buff_ = buff;
    length_ = static_cast<unsigned int>(total);
    return true;
}

void VantrelStr::checkInvariants() const {
    (void)CO_ASSERT_NAMED(buff_ != nullptr, "buff_ != nullptr");
    (void)CO_ASSERT_NAMED(length_ > 0 || buff_ == EMPTY_TEXT, "buff_ == defaultBuff_");
}
