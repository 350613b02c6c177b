// The node port's commands about events. Beside what they say it counts where they come from: a client gets
// its events at the address of its metadata connection.

#include "CoException.h"
#include "CoMsg.h"
#include "CoPort.h"
#include "NodeIds.h"
#include "NodeServer.h"
#include "NodeStreams.h"
#include "rcServerClient.h"

namespace vantreld {

using Vantrel::CoException;
using Vantrel::coFormat;
using Vantrel::rcMethod;
using Vantrel::rcParam;
using Vantrel::rcParamString;

namespace {

/// What both commands say.
struct EventRequest {
    EventAddress client;
    int connection = 0;
    std::string subject;
};

EventRequest readRequest(const char* command, std::string argument, const Vantrel::CoIoTcpDescriptor& asker) {
    const StreamArgument stream(command, std::move(argument));
    EventRequest request;
    request.client.port = stream.number("Port");
    request.connection = stream.number("Connection");
    request.subject = stream.text("Subject");
    if (request.client.port <= 0 || request.client.port > Vantrel::HIGHEST_PORT)
        throw CoException(coFormat("Invalid %s parameter: Port is %d.", command, request.client.port));
    if (request.connection == 0)
        throw CoException(coFormat("Invalid %s parameter: Connection is 0.", command));
    if (!asker.getPeerIP(request.client.ip))
        throw CoException("The address to send events to is unknown: the client has gone.");
    return request;
}

}  // namespace

void NodeServer::registerEventCommands() {
    rcMethod method;
    method.parameters = {{&rcParamString::TYPE}};
    method.name = VantrelCommands::REGISTER_EVENTS.name;
    method.function = [this](int, const rcMethod& called, rcParam::Array& parameters, rcParam&) {
        const EventRequest request = readRequest(called.name.c_str(), parameters[0].takeStringValue(),
                                                 context_.getCurrentClient()->descriptor());
        // "Fmt" and "Meta" are for servers whose events say more than these.
        const bool gone = store_.isGone(request.subject);
        const std::int64_t node = parseNodeId(request.subject);
        events_.registerEvents(request.client, request.connection, node);
        // A client that was away when the node was destroyed, and registers again, is notified now.
        if (gone) events_.nodesDestroyed({node});
        return true;
    };
    context_.registerMethod(method);
    method.name = VantrelCommands::UNREGISTER_EVENTS.name;
    method.function = [this](int, const rcMethod& called, rcParam::Array& parameters, rcParam&) {
        const EventRequest request = readRequest(called.name.c_str(), parameters[0].takeStringValue(),
                                                 context_.getCurrentClient()->descriptor());
        // The node may have gone before.
        events_.unregisterEvents(request.client, request.connection, parseNodeId(request.subject));
        return true;
    };
    context_.registerMethod(method);
}

}  // namespace vantreld
