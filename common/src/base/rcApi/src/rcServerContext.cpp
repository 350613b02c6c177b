#include "rcServerContext.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdlib>
#include <stdexcept>
#include <utility>

#include "CoAssert.h"
#include "CoMsg.h"
#include "CoNeverDestroyed.h"
#include "CoPort.h"
#include "rcServerClient.h"
#include "rcSysCalls.h"

namespace Vantrel {

namespace {

constexpr const char* UNKNOWN_ERROR = "Unknown error";
constexpr const char* NOT_LOGGED_IN = "Not logged in.";
/// Clients compare the text to find out whether a server has a login.
constexpr const char* UNKNOWN_METHOD = "Unknown method: ";

constexpr int ANY_PORT = 0;
constexpr int LOWEST_PORT = 1;

/// A number beyond the range of ids becomes one that no object has, rather than another one's.
int parseObjectId(const std::string& text) {
    const long number = std::strtol(text.c_str(), nullptr, 10);
    return static_cast<int>(number > INT_MAX ? INT_MAX : number < INT_MIN ? INT_MIN : number);
}

}  // namespace

const rcParam::InfoList& rcMethod::getDudParamList() {
    static CoNeverDestroyed<rcParam::InfoList> none;
    return *none;
}

rcServerContext::rcServerContext(int port, const char* bindAddress)
    : listener_([this](CoFd connection) { handleConnection(std::move(connection)); },
                [this](unsigned pauseMs) { reviewInterestsIn(pauseMs); }) {
    if (listener_.server().listen(port, bindAddress)) {
        registerIOHandler(&listener_);
    } else {
        CO_MSG_ERROR("Unable to set-up port %d to accept connections: %s", port,
                     listener_.server().lastErrorText().c_str());
    }
}

rcServerContext::rcServerContext(int lowPort, int highPort, const char* bindAddress)
    : listener_([this](CoFd connection) { handleConnection(std::move(connection)); },
                [this](unsigned pauseMs) { reviewInterestsIn(pauseMs); }) {
    const bool any = lowPort <= 0 && highPort <= 0;
    const int first = any ? ANY_PORT : std::max(lowPort, LOWEST_PORT);
    const int last = any ? ANY_PORT : std::min(highPort, HIGHEST_PORT);
    for (int port = first; port <= last; ++port) {
        if (!listener_.server().listen(port, bindAddress)) continue;
        registerIOHandler(&listener_);
        return;
    }
    const std::string reason = first > last ? coErrorText(EINVAL) : listener_.server().lastErrorText();
    CO_MSG_ERROR("Unable to find port in range %d to %d accept connections: %s", lowPort, highPort,
                 reason.c_str());
}

rcServerContext::~rcServerContext() = default;

bool rcServerContext::isValid() const {
    return listener_.server().isValid();
}

int rcServerContext::getPort() const {
    return listener_.server().getPort();
}

void rcServerContext::requireLogin(bool on) {
    requireLogin_ = on;
}

void rcServerContext::limitClients(std::size_t most) {
    maxClients_ = most;
}

void rcServerContext::useLoginEnvironment(bool on) {
    useLoginEnvironment_ = on;
}

bool rcServerContext::registerMethod(const rcMethod& method) {
    if (!CO_ASSERT(method.function)) return false;
    const auto added = methods_.emplace(method.name, method);
    if (!added.second) {
        CO_MSG_ERROR("Method '%s' already registered", method.name.c_str());
        return false;
    }
    added.first->second.context = this;
    return true;
}

bool rcServerContext::registerObject(int id) {
    if (id == 0) {
        CO_MSG_ERROR("Reserved object Id");
        return false;
    }
    bool added = false;
    {
        const CoLock lock(tablesMutex_);
        added = objects_.insert(id).second;
    }
    if (!added) CO_MSG_ERROR("Object '%d' already registered", id);
    return added;
}

bool rcServerContext::unregisterObject(int id) {
    const CoLock lock(tablesMutex_);
    return objects_.erase(id) != 0;
}

bool rcServerContext::returnFromDelayedCommand(unsigned clientId, bool success, const char* text) {
    std::shared_ptr<Client> client;
    {
        const CoLock lock(tablesMutex_);
        const auto found = clients_.find(clientId);
        if (found != clients_.end()) client = found->second;
    }
    const auto code = success ? rcResult::Code::Ok : rcResult::Code::Error;
    if (client && client->returnDelayed(code, text)) return true;
    CO_MSG_ERROR("Trying to do a delayed return for a client that isn't waiting for it.");
    return false;
}

rcServerContext::Client* rcServerContext::getCurrentClient() const {
    return current_;
}

unsigned rcServerContext::getCurrentClientId() const {
    return current_ ? current_->getId() : 0;
}

const rcConnectionInfo& rcServerContext::getCurrentConnectionInfo() const {
    if (CO_ASSERT(current_)) return current_->getConnectionInfo();
    static CoNeverDestroyed<rcConnectionInfo> invalid("", nullptr);
    return *invalid;
}

void rcServerContext::setCurrentConnectionInfo(const rcConnectionInfo& info) {
    if (CO_ASSERT(current_)) current_->setConnectionInfo(info);
}

rcServerContext::Client* rcServerContext::findClient(unsigned id) const {
    const CoLock lock(tablesMutex_);
    const auto found = clients_.find(id);
    return found != clients_.end() ? found->second.get() : nullptr;
}

bool rcServerContext::login(const rcConnectionInfo&) {
    return true;
}

void rcServerContext::handleConnection(CoFd connection) {
    if (isFull()) return;
    try {
        addClient(std::move(connection));
    } catch (const std::exception& error) {
        if (Client* const client = findClient(lastClientId_)) unregisterIOHandler(client);
        removeClient(lastClientId_);
        CO_MSG_ERROR("Could not serve a connection on port %d: %s", getPort(), error.what());
    }
}

void rcServerContext::addClient(CoFd connection) {
    do {
        ++lastClientId_;
    } while (lastClientId_ == 0 || isIdValid(lastClientId_));
    const auto client = std::make_shared<Client>(*this, lastClientId_, std::move(connection));
    {
        const CoLock lock(tablesMutex_);
        clients_.emplace(lastClientId_, client);
    }
    registerIOHandler(client.get());
    if (requireLogin_) {
        unauthenticated_.insert(lastClientId_);
        limitUnauthenticated();
    }
}

/// Logs it, too.
bool rcServerContext::isFull() {
    std::size_t count = 0;
    {
        const CoLock lock(tablesMutex_);
        count = clients_.size();
    }
    if (count >= maxClients_ && !full_) {
        CO_MSG_WARNING("No more than %zu connections are served on port %d; further ones are closed", count,
                       getPort());
    }
    return full_ = count >= maxClients_;
}

/// Beyond MAX_UNAUTHENTICATED the oldest is dropped: clients of this protocol log in as soon as they are
/// connected, so the longer one waits the less likely it ever does.
void rcServerContext::limitUnauthenticated() {
    if (unauthenticated_.size() <= MAX_UNAUTHENTICATED) return;
    if (!flooded_) {
        CO_MSG_WARNING("More than %zu connections on port %d without a login; the oldest ones are closed",
                       MAX_UNAUTHENTICATED, getPort());
    }
    flooded_ = true;
    Client* const oldest = findClient(*unauthenticated_.begin());
    unregisterIOHandler(oldest);
    drop(*oldest);
}

void rcServerContext::loggedInOrOut(Client& client, bool loggedIn) {
    client.setLoggedIn(loggedIn);
    if (loggedIn) {
        unauthenticated_.erase(client.getId());
    } else if (requireLogin_) {
        unauthenticated_.insert(client.getId());
    }
    if (unauthenticated_.size() < MAX_UNAUTHENTICATED / 2) flooded_ = false;
}

/// The loop does not know the client any more.
void rcServerContext::drop(Client& client) {
    const unsigned id = client.getId();
    client.close();
    removeClient(id);
    if (clientGone_) clientGone_(id);
}

void rcServerContext::removeClient(unsigned id) {
    unauthenticated_.erase(id);
    // A delayed return on another thread may still hold the client; it then finds it closed.
    const CoLock lock(tablesMutex_);
    clients_.erase(id);
}

rcServerContext::Outcome rcServerContext::processCommand(Client& client, rcCommand& command) {
    const bool sync = command.isSync();
    int objectId = 0;
    const rcMethod* const method = findMethod(command, client);
    if (!method || !findObject(command, objectId)) return sync ? Outcome::Answer : Outcome::NoAnswer;

    // Before the call: another thread may return from the command before the method does.
    if (method->delayed && sync) client.awaitReturn();
    std::string argument;
    command.value().swapText(argument);
    current_ = &client;
    const bool success = callMethod(*method, objectId, std::move(argument));
    current_ = nullptr;
    if (rcSysCalls::isLoginCommand(command)) loggedInOrOut(client, success);

    if (!sync) return Outcome::NoAnswer;
    if (!method->delayed) return Outcome::Answer;
    // A delayed method that failed does not answer later.
    return !success && client.cancelReturn() ? Outcome::Answer : Outcome::NoAnswer;
}

/// The method that a command may call; otherwise null, and the result says why.
const rcMethod* rcServerContext::findMethod(const rcCommand& command, const Client& client) {
    if (requireLogin_ && !client.isLoggedIn() && !rcSysCalls::isSystemCommand(command)) {
        setResult(rcResult::Code::Error, NOT_LOGGED_IN);
        return nullptr;
    }
    const auto found = methods_.find(command.method());
    if (found != methods_.end()) return &found->second;
    setResult(rcResult::Code::Error, UNKNOWN_METHOD + command.method());
    return nullptr;
}

/// The id that a command addresses; false when no object has it, and the result says so.
bool rcServerContext::findObject(const rcCommand& command, int& objectId) {
    objectId = parseObjectId(command.objectId());
    if (objectId == 0) return true;
    {
        const CoLock lock(tablesMutex_);
        if (objects_.count(objectId) != 0) return true;
    }
    setResult(rcResult::Code::Error, coFormat(INVALID_OBJECT, objectId));
    return false;
}

bool rcServerContext::callMethod(const rcMethod& method, int objectId, std::string argument) {
    std::string failure;
    try {
        rcParam::Array parameters(method.parameters, std::move(argument));
        const auto result = (method.resultType ? *method.resultType : rcParamVoid::TYPE).alloc();
        const bool success = method.function(objectId, method, parameters, *result);
        setResult(success ? rcResult::Code::Ok : rcResult::Code::Error, result->takeStringValue());
        return success;
    } catch (const std::exception& exception) {
        failure = exception.what();
    } catch (...) {
        // Nothing is known about it.
    }
    setResult(rcResult::Code::Error, failure.empty() ? UNKNOWN_ERROR : failure);
    return false;
}

void rcServerContext::setResult(rcResult::Code code, std::string text) {
    resultCode_ = code;
    resultText_ = std::move(text);
}

}  // namespace Vantrel
