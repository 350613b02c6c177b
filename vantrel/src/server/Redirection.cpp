#include "Redirection.h"

#include <charconv>

#include "CoException.h"
#include "CoIoTcpDescriptor.h"
#include "CoMsg.h"
#include "CoPort.h"

namespace vantreld {

using Vantrel::CoException;
using Vantrel::coFormat;
using Vantrel::CoIoTcpDescriptor;

namespace {

/// Takes ":PORT" from the end of `text`.
bool takePort(std::string_view& text, int& port) {
    const std::size_t colon = text.find_last_of(':');
    if (colon == std::string_view::npos) return false;
    const char* end = text.data() + text.size();
    const auto parsed = std::from_chars(text.data() + colon + 1, end, port);
    if (parsed.ec != std::errc() || parsed.ptr != end || port < 1 || port > Vantrel::HIGHEST_PORT)
        return false;
    text.remove_suffix(text.size() - colon);
    return true;
}

}  // namespace

std::optional<Redirection> parseRedirection(std::string_view text) {
    Redirection result;
    if (!takePort(text, result.framePort) || !takePort(text, result.nodePort)) return std::nullopt;
    const bool bracketed = text.size() > 2 && text.front() == '[' && text.back() == ']';
    if (bracketed) text = text.substr(1, text.size() - 2);
    if (text.empty() || (!bracketed && text.find_first_of(":[]") != std::string_view::npos))
        return std::nullopt;
    result.host = text;
    return result;
}

VantrelDaemonInfo daemonInfoOf(const Redirection& redirection) {
    VantrelDaemonInfo info;
    try {
        const std::string ip = CoIoTcpDescriptor::getIpAddrFromHostName(redirection.host.c_str());
        info.setMetadataIP(0, ip.c_str());
        info.setDataIP(0, ip.c_str());
    } catch (const CoException& error) {
        throw CoException(coFormat("Cannot redirect to '%s': %s", redirection.host.c_str(), error.what()));
    }
    info.setHostName(redirection.host.c_str());
    info.setDisplayName(redirection.host.c_str());
    info.setNodePort(redirection.nodePort);
    info.setFramePort(redirection.framePort);
    return info;
}

}  // namespace vantreld
