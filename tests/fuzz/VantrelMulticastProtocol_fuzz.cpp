#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <limits>
#include <sstream>
#include <string>
#include <vector>

#include "VantrelKnownServers.h"
#include "VantrelMulticastProtocol.h"

namespace {

using Protocol = VantrelMulticastProtocol;

/// A datagram that is a request is the same one when it is written again.
void readDatagram(const std::string& text) {
    const auto request = Protocol::parse(text);
    if (!request) return;
    const auto again = Protocol::parse(Protocol::create(request->type, request->payload));
    if (!again || again->type != request->type || again->payload.text() != request->payload.text())
        std::abort();
    static_cast<void>(VantrelDaemonInfo(request->payload));
}

/// A list that was read can be written, and reads back the same.
void readList(const std::string& text) {
    std::vector<VantrelDaemonInfo> infos;
    Protocol::decode(text, infos, nullptr);
    std::string written;
    Protocol::encode(infos, written);
    std::vector<VantrelDaemonInfo> again;
    Protocol::decode(written, again, nullptr);
    std::string rewritten;
    Protocol::encode(again, rewritten);
    if (again.size() != infos.size() || rewritten != written) std::abort();
    std::vector<VantrelDaemonInfo> chosen;
    Protocol::decode(text, chosen, "SXAFS");
    if (chosen.size() > infos.size()) std::abort();
}

/// Each server that is known is found, and goes when it is taken out.
void check(VantrelKnownServers& servers) {
    const VantrelKnownServers::Servers all = servers.list();
    const auto isBefore = [](const auto& left, const auto& right) { return *left.info < *right.info; };
    if (all.size() != servers.size() || !std::is_sorted(all.begin(), all.end(), isBefore)) std::abort();
    for (const VantrelKnownServer& each : all) {
        const bool hasId = *each.info->getStorageId() || *each.info->getMetadataIP(0);
        if (hasId && servers.find(each.info->getServerId()).empty()) std::abort();
    }
    std::size_t removed = 0;
    for (const VantrelKnownServer& each : all) removed += servers.remove(each.info->getServerId()).size();
    removed += servers.removeOlder(std::numeric_limits<Vantrel::CoTime::Microseconds>::max()).size();
    if (servers.size() != 0 || removed != all.size()) std::abort();
}

/// Lines are the datagrams that a client hears one after the other.
void hear(const std::string& text) {
    VantrelKnownServers servers(4);
    std::istringstream lines(text);
    for (std::string line; std::getline(lines, line);) {
        const auto request = Protocol::parse(line);
        if (!request) continue;
        const VantrelDaemonInfo info(request->payload);
        if (request->type == Protocol::REMOVE_SERVER) {
            servers.remove(info.getServerId());
        } else if (servers.add(info) != VantrelKnownServers::Change::Refused &&
                   servers.add(info) != VantrelKnownServers::Change::None) {
            std::abort();
        }
    }
    check(servers);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string text(reinterpret_cast<const char*>(data), size);
    readDatagram(text);
    readList(text);
    hear(text);
    return 0;
}
