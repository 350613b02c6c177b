#include "Gateway.h"

#include <charconv>
#include <string_view>

namespace {

constexpr int MAX_PORT = 65535;

// 0 for what is no port.
int portOf(std::string_view text) {
    int port = 0;
    const auto parsed = std::from_chars(text.data(), text.data() + text.size(), port);
    const bool whole = parsed.ec == std::errc() && parsed.ptr == text.data() + text.size();
    return whole && port > 0 && port <= MAX_PORT ? port : 0;
}

}  // namespace

std::optional<Gateway> parseGateway(const std::string& text) {
    const bool bracketed = !text.empty() && text[0] == '[';
    const std::size_t closing = bracketed ? text.find(']') : std::string::npos;
    if (bracketed && closing == std::string::npos) return std::nullopt;
    const std::size_t end = bracketed ? closing + 1 : text.find(':');
    Gateway gateway;
    if (!bracketed && end != text.rfind(':')) {
        gateway.address = text;  // an IPv6 address, all of it
        return gateway;
    }
    gateway.address = bracketed ? text.substr(1, closing - 1) : text.substr(0, end);
    if (gateway.address.empty()) return std::nullopt;
    if (end >= text.size()) return gateway;
    gateway.port = text[end] == ':' ? portOf(std::string_view(text).substr(end + 1)) : 0;
    if (gateway.port == 0) return std::nullopt;
    return gateway;
}
