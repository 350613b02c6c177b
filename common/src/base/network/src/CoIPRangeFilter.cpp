#include "CoIPRangeFilter.h"

#include <arpa/inet.h>

#include <charconv>
#include <cstring>

#include "CoIoTcpDescriptor.h"
#include "CoMsg.h"

namespace Vantrel {

namespace {

constexpr unsigned ADDRESS_BITS = 32;
constexpr std::uint32_t ALL_BITS = 0xFFFFFFFFU;

std::uint32_t maskOf(unsigned prefixLength) {
    return prefixLength == 0 ? 0 : ALL_BITS << (ADDRESS_BITS - prefixLength);
}

std::string trimmed(const std::string& text) {
    const std::size_t begin = text.find_first_not_of(" \t");
    if (begin == std::string::npos) return {};
    return text.substr(begin, text.find_last_not_of(" \t") - begin + 1);
}

bool parseAddress(const char* text, std::uint32_t& address) {
    in_addr parsed{};
    if (::inet_pton(AF_INET, text, &parsed) != 1) return false;
    address = ntohl(parsed.s_addr);
    return true;
}

bool parseMask(const std::string& text, unsigned& prefixLength) {
    std::uint32_t mask = 0;
    if (!parseAddress(text.c_str(), mask)) return false;
    for (prefixLength = 0; prefixLength <= ADDRESS_BITS; ++prefixLength) {
        if (maskOf(prefixLength) == mask) return true;
    }
    return false;
}

bool parsePrefixLength(const std::string& text, unsigned& prefixLength) {
    const char* const end = text.data() + text.size();
    const auto result = std::from_chars(text.data(), end, prefixLength);
    return result.ec == std::errc() && result.ptr == end && prefixLength <= ADDRESS_BITS;
}

}  // namespace

bool CoIPRangeFilter::parse(const std::string& text, std::string& error) {
    const std::size_t slash = text.find('/');
    std::uint32_t base = 0;
    unsigned prefixLength = ADDRESS_BITS;
    if (!parseAddress(trimmed(text.substr(0, slash)).c_str(), base)) {
        error = coFormat("Invalid IP range filter %s", text.c_str());
        return false;
    }
    if (slash != std::string::npos) {
        const std::string size = trimmed(text.substr(slash + 1));
        const bool isMask = size.find('.') != std::string::npos;
        if (isMask ? !parseMask(size, prefixLength) : !parsePrefixLength(size, prefixLength)) {
            error = coFormat("Invalid IP range filter %s %s", isMask ? "mask" : "prefix", size.c_str());
            return false;
        }
    }
    base_ = base & maskOf(prefixLength);
    prefixLength_ = prefixLength;
    return true;
}

bool CoIPRangeFilter::inRange(const char* ip) const {
    std::uint32_t address = 0;
    return ip && parseAddress(CoIoTcpDescriptor::skipIPv4InIPv6Prefix(ip), address) &&
           (address & maskOf(prefixLength_)) == base_;
}

std::string CoIPRangeFilter::toText() const {
    in_addr base{};
    base.s_addr = htonl(base_);
    char text[INET_ADDRSTRLEN] = {};
    ::inet_ntop(AF_INET, &base, text, sizeof text);
    return prefixLength_ == ADDRESS_BITS ? text : coFormat("%s/%u", text, prefixLength_);
}

}  // namespace Vantrel
