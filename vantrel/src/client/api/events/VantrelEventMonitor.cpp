#include "VantrelEventMonitor.h"

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <limits>
#include <string_view>
#include <system_error>
#include <utility>

#include "CoException.h"
#include "CoMsg.h"
#include "CoProcess.h"
#include "VantrelEventConnection.h"
#include "VantrelInitCounter.h"
#include "rcAttrStream.h"
#include "rcSysCalls.h"

using Vantrel::coFormat;
using Vantrel::CoProcess;
using Vantrel::CoTime;
using Vantrel::rcParam;

namespace {

constexpr const char* THREAD_NAME = "VT Event Mtr";
constexpr const char* NODE_EVENT = "NodeEvent";
constexpr const char* INVALID_OBJECT = "Invalid Object: %d";

/// Servers, each with one connection: beyond this somebody plays with the port.
constexpr std::size_t MAX_CLIENTS = 256;

// How often connections to servers are looked at: as a rule, and at most.
constexpr CoTime::Microseconds LOOK_INTERVAL = CoTime::PER_SECOND;
constexpr CoTime::Microseconds SHORTEST_LOOK_INTERVAL = 100 * CoTime::PER_MILLISECOND;
constexpr CoTime::Microseconds NEVER = std::numeric_limits<CoTime::Microseconds>::max();

// Pauses between attempts to connect a server that is lost.
constexpr unsigned FIRST_PAUSE_MS = 1000;
constexpr unsigned LONGEST_PAUSE_MS = 30000;

constexpr std::chrono::milliseconds STOP_INTERVAL(10);

/// Objects are known by their id: a pointer could lead to a connection that another thread just closed.
void* toObject(int id) {
    return reinterpret_cast<void*>(static_cast<std::intptr_t>(id));
}
int toId(const void* object) {
    return static_cast<int>(reinterpret_cast<std::intptr_t>(object));
}

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

/// What of the monitor outlives each instance.
struct VantrelEventMonitor::Holder {
    explicit Holder(unsigned generation) : forkGeneration(generation) {}

    const unsigned forkGeneration;
    std::mutex mutex;  // guards what follows
    int lowPort = -1;
    int highPort = -1;
    std::shared_ptr<VantrelEventMonitor> instance;
};

VantrelEventMonitor::Holder& VantrelEventMonitor::holder() {
    static std::atomic<Holder*> current{nullptr};
    const unsigned generation = CoProcess::forkGeneration();
    Holder* seen = current;
    if (seen && seen->forkGeneration == generation) return *seen;
    // Never destroyed: handles may live until after the static objects of the process are gone. And what a
    // child inherits stays as it is: its lock may be held by a thread that only the parent has.
    auto* const fresh = new Holder(generation);
    if (seen) {
        fresh->lowPort = seen->lowPort;
        fresh->highPort = seen->highPort;
    }
    if (current.compare_exchange_strong(seen, fresh)) return *fresh;
    delete fresh;
    return *seen;
}

// --- The one instance ---

void VantrelEventMonitor::setPortRange(int low, int high) {
    Holder& shared = holder();
    const std::lock_guard<std::mutex> lock(shared.mutex);
    shared.lowPort = low;
    shared.highPort = high;
}

std::shared_ptr<VantrelEventMonitor> VantrelEventMonitor::getInstance(bool destroy) {
    Holder& shared = holder();
    std::unique_lock<std::mutex> lock(shared.mutex);
    if (destroy) {
        const auto ending = std::move(shared.instance);
        lock.unlock();
        if (!ending) return nullptr;
        ending->leave();
        ending->stop();
        if (ending->thread_) ending->thread_->join();
        return nullptr;
    }
    if (!shared.instance) {
        // Shut down meanwhile: nobody would end a new one.
        if (!VantrelInitCounter::handlesMayWork())
            throw Vantrel::CoException(VantrelInitCounter::NOT_INITIALIZED);
        shared.instance = std::make_shared<VantrelEventMonitor>(shared.lowPort, shared.highPort);
        shared.instance->start(shared.instance);
    }
    return shared.instance;
}

void VantrelEventMonitor::unregisterAll() {
    std::shared_ptr<VantrelEventMonitor> instance;
    {
        Holder& shared = holder();
        const std::lock_guard<std::mutex> lock(shared.mutex);
        instance = shared.instance;
    }
    if (instance) instance->leave();
}

VantrelEventMonitor::VantrelEventMonitor(int lowPort, int highPort)
    : rcServerContext(lowPort, highPort), nextLook_(NEVER) {
    if (!isValid()) return;
    requireLogin(true);
    limitClients(MAX_CLIENTS);
    useLoginEnvironment(false);  // it is the application's
    Vantrel::rcSysCalls::registerSysCallHandler(*this);
    Vantrel::rcMethod method;
    method.name = NODE_EVENT;
    method.parameters = {{&Vantrel::rcParamString::TYPE}};
    method.function = [this](void* object, const Vantrel::rcMethod&, rcParam::Array& parameters, rcParam&) {
        return receive(object, parameters);
    };
    registerMethod(method);
}

VantrelEventMonitor::~VantrelEventMonitor() = default;

/// The thread keeps the monitor alive: it may be asked to end from within a handler.
void VantrelEventMonitor::start(const std::shared_ptr<VantrelEventMonitor>& self) {
    std::string reason;
    try {
        if (isValid()) {
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
    cancel();
}

// --- Connections ---

bool VantrelEventMonitor::addConnection(const std::shared_ptr<Connection>& connection) {
    const int id = connection->getId();
    {
        const std::lock_guard<std::mutex> lock(mutex_);
        if (leaving_) return false;
        connections_.emplace(id, connection);
    }
    return registerObject(id, toObject(id));
}

void VantrelEventMonitor::removeConnection(int id) {
    unregisterObject(id);
    std::shared_ptr<Connection> removed;  // may be the last reference: destroyed without the mutex
    const std::lock_guard<std::mutex> lock(mutex_);
    const auto found = connections_.find(id);
    if (found == connections_.end()) return;
    removed = std::move(found->second);
    connections_.erase(found);
}

std::shared_ptr<VantrelEventMonitor::Connection> VantrelEventMonitor::find(int id) const {
    const std::lock_guard<std::mutex> lock(mutex_);
    const auto found = connections_.find(id);
    return found != connections_.end() ? found->second : nullptr;
}

std::vector<std::shared_ptr<VantrelEventMonitor::Connection>> VantrelEventMonitor::connections() const {
    std::vector<std::shared_ptr<Connection>> all;
    const std::lock_guard<std::mutex> lock(mutex_);
    all.reserve(connections_.size());
    for (const auto& entry : connections_) all.push_back(entry.second);
    return all;
}

bool VantrelEventMonitor::receive(const void* object, rcParam::Array& parameters) {
    const Vantrel::rcAttrStream argument(parameters[0].takeStringValue());
    VantrelNodeEvent event = readEvent(argument);
    // Kept for the whole delivery, whatever handlers do.
    const std::shared_ptr<Connection> connection = find(toId(object));
    if (!connection) throw Vantrel::CoException(coFormat(INVALID_OBJECT, toId(object)));
    connection->notify(std::move(event));
    return true;
}

// --- The thread ---

void VantrelEventMonitor::wakeUp() {
    lookSoon_ = true;
    cancel();
}

/// A server whose event connection ends has often ended itself; or it has given up sending, and dropped what
/// was registered with it.
void VantrelEventMonitor::clientGone(unsigned) {
    clientLost_ = true;
    lookSoon_ = true;
}

void VantrelEventMonitor::run() {
    threadId_ = std::this_thread::get_id();
    while (!stopping_) {
        sayGoodbye();
        const Microseconds now = CoTime::getTime();
        if (lookSoon_.exchange(false)) {
            nextLook_ = std::min(nextLook_, std::max(now, lastLook_ + SHORTEST_LOOK_INTERVAL));
        }
        if (now >= nextLook_) lookAfterConnections(now);
        waitForEvents();
    }
    sayGoodbye();
}

void VantrelEventMonitor::waitForEvents() {
    if (nextLook_ == NEVER) {
        callIOHandlers(nullptr);
        return;
    }
    const Microseconds left = std::max<Microseconds>(nextLook_ - CoTime::getTime(), 0);
    callIOHandlers(static_cast<unsigned>((left + CoTime::PER_MILLISECOND - 1) / CoTime::PER_MILLISECOND));
}

void VantrelEventMonitor::lookAfterConnections(Microseconds now) {
    lastLook_ = now;
    nextLook_ = NEVER;
    renewAfterLoss(now);
    const auto all = connections();
    for (const auto& connection : all) {
        if (!connection->hasHandlers()) continue;
        nextLook_ = now + LOOK_INTERVAL;
        if (now < connection->pause.end) continue;
        if (restoreOne(connection)) {
            connection->pause = {};
            continue;
        }
        Connection::Pause& pause = connection->pause;
        pause.lengthMs = std::clamp(2 * pause.lengthMs, FIRST_PAUSE_MS, LONGEST_PAUSE_MS);
        pause.end = CoTime::getTime() + pause.lengthMs * CoTime::PER_MILLISECOND;
        for (const auto& other : all) {
            if (&other->client() == &connection->client()) other->pause = pause;
        }
        // The attempt took time: first the events that came meanwhile, then the other connections.
        nextLook_ = now;
        return;
    }
}

/// Which server has gone is not known: all are asked again. At intervals, whatever clients come and go.
void VantrelEventMonitor::renewAfterLoss(Microseconds now) {
    if (now < nextRenewal_ || !clientLost_.exchange(false)) return;
    nextRenewal_ = now + LOOK_INTERVAL;
    for (const auto& connection : connections()) connection->renewLater();
}

/// Marks, while it lives, that the thread calls a connection's server, so that whoever ends the monitor can
/// break the call. Nothing is to be restored any more once the end has begun.
class VantrelEventMonitor::Calling {
  public:
    Calling(VantrelEventMonitor& monitor, const std::shared_ptr<Connection>& connection, bool restoring)
        : monitor_(monitor) {
        const std::lock_guard<std::mutex> lock(monitor_.mutex_);
        allowed_ = !(restoring && monitor_.leaving_);
        if (!allowed_) return;
        monitor_.calling_ = connection;
        monitor_.restoring_ = restoring;
    }
    Calling(const Calling&) = delete;
    Calling& operator=(const Calling&) = delete;
    ~Calling() {
        std::shared_ptr<Connection> called;  // destroyed without the mutex
        const std::lock_guard<std::mutex> lock(monitor_.mutex_);
        called = std::move(monitor_.calling_);
        monitor_.calling_.reset();
        monitor_.callEnded_.notify_all();
    }
    bool allowed() const { return allowed_; }

  private:
    VantrelEventMonitor& monitor_;
    bool allowed_ = false;
};

bool VantrelEventMonitor::restoreOne(const std::shared_ptr<Connection>& connection) {
    const Calling calling(*this, connection, true);
    return !calling.allowed() || connection->restore();
}

void VantrelEventMonitor::sayGoodbye() {
    for (;;) {
        Farewell farewell;
        unsigned shareMs = 0;
        {
            const std::lock_guard<std::mutex> lock(mutex_);
            if (farewells_.empty()) return;
            farewell = std::move(farewells_.back());
            // One dead server must not use up the time of the others.
            if (farewellLimit_) shareMs = farewellLimit_->leftMs() / static_cast<unsigned>(farewells_.size());
        }
        {
            const Calling calling(*this, farewell.connection, false);
            farewell.connection->unregister(farewell.subjects, Vantrel::CoDeadline(shareMs));
        }
        const std::lock_guard<std::mutex> lock(mutex_);
        if (!farewells_.empty()) farewells_.pop_back();
        if (farewells_.empty()) callEnded_.notify_all();
    }
}

// --- The end ---

void VantrelEventMonitor::leave() {
    std::unordered_map<int, std::shared_ptr<Connection>> leaving;
    {
        const std::lock_guard<std::mutex> lock(mutex_);
        leaving_ = true;
        leaving.swap(connections_);
    }
    std::vector<Farewell> farewells;
    for (const auto& [id, connection] : leaving) {
        unregisterObject(id);
        Farewell farewell{connection, connection->retire()};
        if (!farewell.subjects.empty()) farewells.push_back(std::move(farewell));
    }
    // From within a handler there is no second thread to break a call that lasts.
    if (!isOwnThread()) awaitGoodbye(std::move(farewells));
}

void VantrelEventMonitor::awaitGoodbye(std::vector<Farewell> farewells) {
    const Vantrel::CoDeadline limit(FAREWELL_TIME_MS);
    std::unique_lock<std::mutex> lock(mutex_);
    farewells_ = std::move(farewells);
    farewellLimit_ = limit;
    cancel();
    while (calling_ || (!farewells_.empty() && !limit.passed())) {
        if (calling_ && (restoring_ || limit.passed())) {
            const auto called = calling_;
            lock.unlock();
            called->client().stop(nullptr);
            lock.lock();
        }
        callEnded_.wait_for(lock, STOP_INTERVAL);
    }
    farewells_.clear();
}
