#include <cstdio>
#include <string>
#include <utility>
#include <vector>

#include "CommandOptions.h"
#include "Gateway.h"
#include "ServerRecord.h"
#include "Session.h"
#include "ToolError.h"

namespace {

// Signals keep their default here: these commands change nothing that an end in their midst could harm.

struct ServersOptions {
    std::string gateway;
};

struct ResolveOptions {
    std::string storageId;
};

// What a person can check when servers should be there but none is found.

/// The library's reason when there is nowhere to search.
constexpr const char* NO_INTERFACE = "No multicast interface found.";

/// How the library's reason begins when nobody answered; what follows does not show a storage id.
constexpr const char* NOT_FOUND = "Server not found: ";

constexpr const char* NO_INTERFACE_ADVICE =
    "Servers are searched for on interfaces that are up and capable of multicast. Check the Multicast= line "
    "of\n"
    "network.cfg's [Interfaces] if there is one, and that the TTL of its [SelfDiscovery] is not 0.\n"
    "With IPv6, loopback is of no use.\n";

constexpr const char* NO_SERVER_ADVICE =
    "Check that\n"
    "  - a server runs, with the Port and Scope that network.cfg's [SelfDiscovery] has here;\n"
    "  - the Multicast= lines of [Interfaces] name the right interfaces, here and on its host;\n"
    "  - they have IPv4 addresses, or IPv6 ones with an IPv6 Scope or QD_TCP_IPV6: others are not searched;\n"
    "  - TTL in [SelfDiscovery] is large enough for the routers on the way, and not 0 on its host;\n"
    "  - no firewall holds back UDP to the discovery port, or the answers from it.\n";

constexpr const char* GATEWAY_ADVICE =
    "Where multicast does not reach, --gateway ADDR[:PORT] asks one server for all that it knows.\n";

void adviseOnEmptyList(bool gatewayGiven) {
    VantrelStrList interfaces;
    VantrelOS::getLocalMulticastInterfaces(interfaces);
    std::string names;
    for (unsigned i = 0; i < interfaces.size(); ++i)
        names += (i == 0 ? "" : ", ") + std::string(interfaces.getStr(i));
    std::fprintf(stderr, "No server answered on %s. %s%s", names.c_str(), NO_SERVER_ADVICE,
                 gatewayGiven ? "" : GATEWAY_ADVICE);
}

// The library and its list of servers, for the length of a command.
class Discovery {
  public:
    Discovery(const Program& program, const Gateway& gateway)
        : client_(true),
          list_(nullptr, gateway.address.empty() ? nullptr : gateway.address.c_str(), gateway.port) {
        startLibrary(client_, program);
    }
    VantrelServerList& list() { return list_; }

  private:
    VantrelClient client_;
    VantrelServerList list_;
};

// The text by which a person reaches just this server: its database may be that of others on its host.
std::string addressAndPort(const VantrelServerId& id) {
    return VantrelServerId(id.getPort(), id.getIPAddr()).getId();
}

void printTable(const Output& out, const std::vector<VantrelServerInfo>& servers) {
    if (servers.empty()) return;
    std::vector<std::vector<std::string>> rows{
        {"NAME", "SERVER", "HOST", "DATABASE", "STORAGE ID", "PRODUCT"}};
    for (const VantrelServerInfo& info : servers) {
        const Json record = serverRecord(out, info);
        std::vector<std::string> row{record["displayName"], addressAndPort(info.getId())};
        for (const char* key : {"hostName", "database", "storageId"}) row.push_back(record[key]);
        row.push_back(record["product"].get<std::string>() + " " +
                      record["productVersion"].get<std::string>());
        rows.push_back(std::move(row));
    }
    out.table(rows);
}

void servers(const Program& program, const ServersOptions& options) {
    const Output out(program.json);
    const Gateway gateway = options.gateway.empty() ? Gateway() : *parseGateway(options.gateway);
    Discovery discovery(program, gateway);
    int count = 0;
    if (!discovery.list().getNumNodes(count)) {
        const std::string reason = discovery.list().lastError();
        if (reason == NO_INTERFACE) std::fputs(NO_INTERFACE_ADVICE, stderr);
        throw ToolError(reason);
    }
    std::vector<VantrelServerInfo> found(static_cast<std::size_t>(count));
    for (int i = 0; i < count; ++i) {
        if (!discovery.list().getNode(i, found[static_cast<std::size_t>(i)]))
            throw ToolError(discovery.list().lastError());
    }
    if (found.empty()) adviseOnEmptyList(!gateway.address.empty());
    if (!out.json()) return printTable(out, found);
    Json records = Json::array();
    for (const VantrelServerInfo& info : found) records.push_back(serverRecord(out, info));
    out.document(records);
}

void resolve(const Program& program, const ResolveOptions& options) {
    const Output out(program.json);
    Discovery discovery(program, Gateway());
    VantrelServerId id;
    if (!discovery.list().resolveStorageId(options.storageId.c_str(), id)) {
        const std::string reason = discovery.list().lastError();
        const bool unanswered = reason.rfind(NOT_FOUND, 0) == 0;
        throw ToolError("no server with storage id '" + options.storageId + "'" +
                        (unanswered ? " answered" : ": " + reason));
    }
    const std::string text = out.text(addressAndPort(id).c_str());
    if (out.json())
        out.document({{"id", text}});
    else
        out.line(text);
}

void declareServers(CLI::App& command, ServersOptions& options) {
    command
        .add_option("--gateway", options.gateway,
                    "a server that is asked for all that it knows, too: host, host:port or [IPv6]:port")
        ->check([](const std::string& text) {
            return parseGateway(text) ? std::string() : "'" + text + "' is not of the form ADDR[:PORT]";
        })
        ->type_name("ADDR[:PORT]");
}

void declareResolve(CLI::App& command, ResolveOptions& options) {
    command.add_option("STORAGE_ID", options.storageId, "identity of the storage")->required();
}

}  // namespace

void addDiscoveryCommands(CLI::App& app, Program& program) {
    addCommand<ServersOptions>(app, program, "servers", "List the servers on the network", declareServers,
                               servers);
    addCommand<ResolveOptions>(app, program, "resolve", "Show the server that serves a storage",
                               declareResolve, resolve);
}
