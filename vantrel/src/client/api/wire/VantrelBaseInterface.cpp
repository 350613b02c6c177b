#include "VantrelBaseInterface.h"

#include <iconv.h>
#include <langinfo.h>
#include <strings.h>

#include <cerrno>
#include <cstdint>
#include <cstring>

const char* const VantrelBaseInterface::UTF8 = "UTF-8";

namespace {

/// What the "C" locale calls its encoding.
const char* const ASCII = "ANSI_X3.4-1968";

/// More room for iconv, as a part of the text and at least so many bytes.
constexpr std::size_t MIN_ROOM = 32;

iconv_t noHandle() {
    return reinterpret_cast<iconv_t>(static_cast<std::intptr_t>(-1));
}

/// False when the text has no form in the other encoding.
bool convertAll(iconv_t handle, std::string_view text, std::string& buffer) {
    ::iconv(handle, nullptr, nullptr, nullptr, nullptr);
    char* in = const_cast<char*>(text.data());  // iconv changes the pointer, not the text
    std::size_t inLeft = text.size();
    std::size_t used = 0;
    buffer.resize(text.size() + MIN_ROOM);
    for (bool flushing = false;;) {
        char* out = &buffer[used];
        std::size_t outLeft = buffer.size() - used;
        const std::size_t result =
            ::iconv(handle, flushing ? nullptr : &in, flushing ? nullptr : &inLeft, &out, &outLeft);
        used = buffer.size() - outLeft;
        if (result == static_cast<std::size_t>(-1)) {
            if (errno != E2BIG) return false;
            buffer.resize(buffer.size() + buffer.size() / 2 + MIN_ROOM);
        } else if (flushing) {
            buffer.resize(used);
            return true;
        } else {
            flushing = true;
        }
    }
}

}  // namespace

VantrelBaseInterface::Converter::Converter(const char* from, const char* to)
    : from_(from ? from : ::nl_langinfo(CODESET)),
      to_(to ? to : ::nl_langinfo(CODESET)),
      handle_(noHandle()) {
    active_ = ::strcasecmp(from_.c_str(), to_.c_str()) != 0 && from_ != ASCII && to_ != ASCII;
}

VantrelBaseInterface::Converter::~Converter() {
    if (handle_ != noHandle()) ::iconv_close(handle_);
}

std::string_view VantrelBaseInterface::Converter::convert(std::string_view text, std::string& buffer) {
    if (!active_ || isAscii(text)) return text;
    if (handle_ == noHandle()) {
        handle_ = ::iconv_open(to_.c_str(), from_.c_str());
        active_ = handle_ != noHandle();  // an encoding that the system does not know
        if (!active_) return text;
    }
    return convertAll(handle_, text, buffer) ? std::string_view(buffer) : text;
}

std::string_view VantrelBaseInterface::localeToUTF8(std::string_view text, std::string& buffer) {
    return isAscii(text) ? text : Converter(nullptr, UTF8).convert(text, buffer);
}

std::string_view VantrelBaseInterface::utf8ToLocale(std::string_view text, std::string& buffer) {
    return isAscii(text) ? text : Converter(UTF8, nullptr).convert(text, buffer);
}

bool VantrelBaseInterface::isAscii(std::string_view text) {
    constexpr std::uint64_t HIGH_BITS = 0x8080808080808080u;
    const char* at = text.data();
    std::size_t left = text.size();
    std::uint64_t seen = 0;
    for (; left >= sizeof seen; at += sizeof seen, left -= sizeof seen) {
        std::uint64_t eight;
        std::memcpy(&eight, at, sizeof eight);
        seen |= eight;
    }
    for (; left > 0; ++at, --left) seen |= static_cast<unsigned char>(*at);
    return (seen & HIGH_BITS) == 0;
}
