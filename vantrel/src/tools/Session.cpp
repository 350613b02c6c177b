#include "Session.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>

#include "ToolError.h"

namespace {

constexpr char ID_PREFIX[] = "id:";
constexpr std::size_t ID_PREFIX_LENGTH = sizeof ID_PREFIX - 1;

// A server that refuses is tried again for this long; a longer call time-out is no reason to wait longer for
// it.
constexpr unsigned RETRY_TIMEOUT_MS = 1000;

// The connect time-out counts in whole seconds, and less than one would be none.
unsigned inWholeSeconds(unsigned ms) {
    return (ms / 1000 + (ms % 1000 != 0 ? 1 : 0)) * 1000;
}

}  // namespace

void applyTimeout(unsigned timeoutMs) {
    const auto set = [](const char* name, unsigned ms) { setenv(name, std::to_string(ms).c_str(), 1); };
    set("VANTREL_DEFAULT_CALL_TIMEOUT_MS", timeoutMs);
    set("VANTREL_GET_DAEMON_INFO_CALL_TIMEOUT_MS", timeoutMs);
    set("VANTREL_GETDAEMONINFO_TIMEOUT", timeoutMs);
    set("VANTREL_EVENTS_CALL_TIMEOUT_MS", timeoutMs);
    set("VANTREL_FRAME_STALL_TIMEOUT_MS", timeoutMs);
    set("VANTREL_CONNECTION_TIMEOUT_MS", inWholeSeconds(timeoutMs));
    set("VANTREL_CONNECTION_RETRY_TIMEOUT_MS", std::min(timeoutMs, RETRY_TIMEOUT_MS));
}

void startLibrary(VantrelClient& client, const Program& program) {
    if (!client.init()) throw ToolError("the network layer cannot be brought up");
    if (program.logLevel >= 0) VantrelSetLogLevel(static_cast<VantrelLogLevel>(program.logLevel));
}

Session::Session(const Program& program, const std::string& server)
    : output_(program.json),
      timeoutMs_(program.timeoutMs),
      serverText_(server),
      client_(true),
      server_(VantrelServerId(server.c_str())),
      interrupt_(block_, [this] { server_.stop("Interrupted."); }) {
    startLibrary(client_, program);
}

unsigned Session::retryTimeoutMs() const {
    return timeoutMs_ == 0 ? RETRY_TIMEOUT_MS : std::min(timeoutMs_, RETRY_TIMEOUT_MS);
}

VantrelNodeHandle Session::node(const std::string& path) const {
    if (path.compare(0, ID_PREFIX_LENGTH, ID_PREFIX) == 0)
        return VantrelNodeHandle(server_, path.c_str() + ID_PREFIX_LENGTH);
    VantrelNodeHandle node;
    require(VantrelResolveDisplayPath(server_, path.c_str(), node),
            "'" + path + "' not found on server '" + serverText_ + "'");
    return node;
}

void Session::require(bool result, const std::string& otherwise) const {
    if (result) return;
    checkInterrupt();
    const char* reason = server_.lastError();
    throw ToolError(*reason != '\0' ? reason : otherwise);
}

std::string Session::failed(const std::string& attempt, const std::string& path) {
    return "cannot " + attempt + " '" + path + "'";
}
