#include "VantrelEventMonitor.h"

#include <chrono>
#include <string_view>
#include <system_error>
#include <utility>

#include "CoException.h"
#include "CoMsg.h"
#include "CoPerProcess.h"
#include "VantrelInitCounter.h"
#include "rcAttrStream.h"
#include "rcSysCalls.h"

using Vantrel::coFormat;
using Vantrel::CoLock;
using Vantrel::CoTime;
using Vantrel::rcParam;

namespace {

constexpr const char* THREAD_NAME = "VT Event Mtr";
constexpr const char* NODE_EVENT = "NodeEvent";
constexpr const char* NOT_USABLE = "Vantrel client not correctly configured to receive events.";

/// Servers, each with one connection: beyond this the port is being abused.
constexpr std::size_t MAX_CLIENTS = 256;

constexpr std::chrono::milliseconds RECOVERY_PAUSE(100);

/// Aligned as one number, so that every compiler reads and writes it in one step.
struct alignas(2 * sizeof(int)) PortRange {
    int low = -1;
    int high = -1;
};
/// Of the next monitor. A forked child takes it over.
std::atomic<PortRange> portRange{PortRange{}};

VantrelStr toStr(std::string_view text) {
    return VantrelStr(text.data(), static_cast<unsigned>(text.size()));
}

VantrelNodeEvent readEvent(const Vantrel::rcAttrStream& argument) {
    std::string_view nodeId;
    std::string_view type;
    std::string_view details;
    const struct {
        const char* name;
        std::string_view& value;
    } fields[] = {{"NodeId", nodeId}, {"Type", type}, {"Details", details}};
    for (const auto& field : fields) {
        if (argument.getStringValue(field.name, field.value)) continue;
        throw Vantrel::CoException(coFormat("Missing '%s' parameter", field.name));
    }
    return VantrelNodeEvent(VantrelNodeId(toStr(nodeId)), toStr(type),
                            VantrelDictionary(std::string(details).c_str()));
}

}  // namespace

// --- The one instance ---

struct VantrelEventMonitor::Holder {
    Vantrel::CoMutex mutex;
    std::shared_ptr<VantrelEventMonitor> instance CO_GUARDED_BY(mutex);

    static Holder& get() { return Vantrel::CoPerProcess<Holder>::get(); }
};

void VantrelEventMonitor::setPortRange(int low, int high) {
    portRange = PortRange{low, high};
}

std::shared_ptr<VantrelEventMonitor> VantrelEventMonitor::getInstance(bool destroy) {
    Holder& holder = Holder::get();
    if (destroy) {
        std::shared_ptr<VantrelEventMonitor> ending;
        {
            const CoLock lock(holder.mutex);
            ending = std::exchange(holder.instance, nullptr);
        }
        if (!ending) return nullptr;
        ending->end();
        ending->stop();
        if (ending->thread_) ending->thread_->join();
        return nullptr;
    }
    const CoLock lock(holder.mutex);
    if (!holder.instance) {
        // The library was shut down in the meantime: nothing would end a new one.
        if (!VantrelInitCounter::handlesMayWork())
            throw Vantrel::CoException(VantrelInitCounter::NOT_INITIALIZED);
        const PortRange range = portRange;
        holder.instance = std::make_shared<VantrelEventMonitor>(range.low, range.high);
        holder.instance->start(holder.instance);
    }
    return holder.instance;
}

void VantrelEventMonitor::unregisterAll() {
    std::shared_ptr<VantrelEventMonitor> instance;
    {
        Holder& holder = Holder::get();
        const CoLock lock(holder.mutex);
        instance = holder.instance;
    }
    if (instance) instance->end();
}

VantrelEventMonitor::VantrelEventMonitor(int lowPort, int highPort) : context_(lowPort, highPort) {
    if (!context_.isValid()) return;
    context_.requireLogin(true);
    context_.limitClients(MAX_CLIENTS);
    context_.useLoginEnvironment(false);  // it is the application's
    context_.setClientGone([this](unsigned clientId) { healthCheck_.clientGone(clientId); });
    Vantrel::rcSysCalls::registerSysCallHandler(context_);
    registerNodeEvent();
}

void VantrelEventMonitor::registerNodeEvent() {
    Vantrel::rcMethod method;
    method.name = NODE_EVENT;
    method.parameters = {{&Vantrel::rcParamString::TYPE}};
    method.function = [this](int connectionId, const Vantrel::rcMethod&, rcParam::Array& parameters,
                             rcParam&) { return receive(connectionId, parameters); };
    context_.registerMethod(method);
}

/// The thread keeps the monitor alive: it may be asked to end from within a handler.
void VantrelEventMonitor::start(const std::shared_ptr<VantrelEventMonitor>& self) {
    try {
        if (context_.isValid()) {
            thread_ = std::make_unique<Vantrel::CoThread>(
                THREAD_NAME, [self] { self->run(); }, [this] { stop(); });
            return;
        }
    } catch (const std::system_error& error) {
        CO_MSG_ERROR("Could not start thread '%s': %s", THREAD_NAME, error.what());
    }
    CO_MSG_ERROR("%s", NOT_USABLE);
}

void VantrelEventMonitor::stop() {
    stopping_ = true;
    context_.cancel();
}

/// No handler is called any more, and servers are asked to send no more events.
void VantrelEventMonitor::end() {
    serverCalls_.forbidRestoring();
    Connections ending;
    {
        const CoLock lock(mutex_);
        ending_ = true;
        ending.swap(connections_);
    }
    VantrelEventServerCalls::Deregistrations deregistrations;
    for (const auto& [id, connection] : ending) {
        context_.unregisterObject(id);
        auto subjects = connection->retire();
        if (!subjects.empty()) deregistrations.push_back({connection, std::move(subjects)});
    }
    // From within a handler there is no second thread to break a call that lasts.
    if (isOwnThread()) return;
    serverCalls_.submit(std::move(deregistrations));
    context_.cancel();
    serverCalls_.await();
}

// --- Connections ---

std::shared_ptr<VantrelEventConnection> VantrelEventMonitor::open(
    const VantrelClientConnection::Shared& client) {
    const auto monitor = getInstance(false);
    if (!monitor->isUsable()) throw Vantrel::CoException(NOT_USABLE);
    auto connection = Connection::make(monitor, client);
    if (!monitor->addConnection(connection)) throw Vantrel::CoException(VantrelInitCounter::NOT_INITIALIZED);
    return connection;
}

bool VantrelEventMonitor::addConnection(const std::shared_ptr<Connection>& connection) {
    {
        const CoLock lock(mutex_);
        if (ending_) return false;
        connections_.emplace(connection->getId(), connection);
    }
    return context_.registerObject(connection->getId());
}

void VantrelEventMonitor::removeConnection(int id) {
    context_.unregisterObject(id);
    std::shared_ptr<Connection> removed;  // may be the last reference: destroyed without the mutex
    const CoLock lock(mutex_);
    const auto found = connections_.find(id);
    if (found == connections_.end()) return;
    removed = std::move(found->second);
    connections_.erase(found);
}

std::shared_ptr<VantrelEventConnection> VantrelEventMonitor::find(int id) const {
    const CoLock lock(mutex_);
    const auto found = connections_.find(id);
    return found != connections_.end() ? found->second : nullptr;
}

std::vector<std::shared_ptr<VantrelEventConnection>> VantrelEventMonitor::connections() const {
    std::vector<std::shared_ptr<Connection>> all;
    const CoLock lock(mutex_);
    all.reserve(connections_.size());
    for (const auto& entry : connections_) all.push_back(entry.second);
    return all;
}

void VantrelEventMonitor::watchSoon() {
    healthCheck_.request();
    context_.cancel();
}

// --- The thread ---

void VantrelEventMonitor::run() {
    threadId_ = std::this_thread::get_id();
    while (!stopping_) {
        try {
            serve();
        } catch (const std::exception& error) {
            recover(error);
        }
    }
    serverCalls_.deregister();
}

void VantrelEventMonitor::serve() {
    serverCalls_.deregister();
    const CoTime::Microseconds now = CoTime::getTime();
    if (now >= healthCheck_.due(now)) {
        healthCheck_.run(now, connections(),
                         [this](const auto& connection) { return serverCalls_.restore(connection); });
    }
    context_.callIOHandlersUntil(healthCheck_.due(now));
}

/// Memory that is short now may be there again in a moment.
void VantrelEventMonitor::recover(const std::exception& error) noexcept {
    try {
        CO_MSG_ERROR("Thread '%s' goes on in a moment: %s", THREAD_NAME, error.what());
    } catch (...) {
        // There is none for the log either.
    }
    std::this_thread::sleep_for(RECOVERY_PAUSE);
}

bool VantrelEventMonitor::receive(int connectionId, rcParam::Array& parameters) {
    VantrelNodeEvent event = readEvent(Vantrel::rcAttrStream(parameters[0].takeStringValue()));
    // Kept for the whole delivery, whatever handlers do.
    const std::shared_ptr<Connection> connection = find(connectionId);
    if (!connection)
        throw Vantrel::CoException(coFormat(Vantrel::rcServerContext::INVALID_OBJECT, connectionId));
    healthCheck_.delivered(context_.getCurrentClientId(), connectionId);
    connection->notify(std::move(event));
    return true;
}
