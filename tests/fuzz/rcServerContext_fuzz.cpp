// Any bytes may arrive at a server context, before a login or after: it answers in whole lines, or drops the
// client, and comes to an end with it.

#include <sys/socket.h>
#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <string>

#include "rcServerContext.h"
#include "rcSysCalls.h"

using namespace Vantrel;

namespace {

/// More passes than the commands that an input has room for.
constexpr int MOST_PASSES = 100000;
constexpr unsigned PASS_TIMEOUT_MS = 5000;

class FuzzedContext : public rcServerContext {
  public:
    FuzzedContext() : rcServerContext(0, "127.0.0.1") {
        rcSysCalls::registerSysCallHandler(*this);
        add("Echo", {{&rcParamString::TYPE}}, false);
        add("Pair", {{&rcParamString::TYPE}, {&rcParamString::TYPE}}, false);
        add("Later", {{&rcParamString::TYPE}}, true);
        registerObject(7);
        setClientGone([this](unsigned) { gone_ = true; });
    }

    /// Serves a client that sends `bytes`; its answers.
    std::string serve(const char* bytes, std::size_t size) {
        int ends[2];
        if (::socketpair(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0, ends) != 0) __builtin_trap();
        handleConnection(CoFd(ends[0]));
        gone_ = false;
        std::string answers;
        int passes = 0;
        for (std::size_t sent = 0; !gone_; ++passes) {
            if (passes == MOST_PASSES) __builtin_trap();
            sent += sendSome(ends[1], bytes + sent, size - sent);
            if (callIOHandlers(PASS_TIMEOUT_MS) <= 0) __builtin_trap();
            const unsigned waiting = waiting_;
            waiting_ = 0;
            if (waiting != 0 && isIdValid(waiting)) returnFromDelayedCommand(waiting, true, "later\n");
            drain(ends[1], answers);
        }
        drain(ends[1], answers);
        ::close(ends[1]);
        return answers;
    }

  private:
    void add(const char* name, const rcParam::InfoList& parameters, bool delayed) {
        rcMethod method;
        method.name = name;
        method.function = [this, delayed](int, const rcMethod&, rcParam::Array& arguments, rcParam& result) {
            if (delayed) waiting_ = getCurrentClientId();
            result.setStringValue(arguments[arguments.size() - 1].stringValue());
            return true;
        };
        method.resultType = &rcParamString::TYPE;
        method.parameters = parameters;
        method.delayed = delayed;
        registerMethod(method);
    }

    static std::size_t sendSome(int socket, const char* bytes, std::size_t size) {
        if (size == 0) {
            ::shutdown(socket, SHUT_WR);
            return 0;
        }
        const ssize_t sent = ::send(socket, bytes, size, MSG_NOSIGNAL | MSG_DONTWAIT);
        return sent > 0 ? static_cast<std::size_t>(sent) : 0;
    }

    static void drain(int socket, std::string& answers) {
        char buffer[65536];
        ssize_t count;
        while ((count = ::recv(socket, buffer, sizeof buffer, MSG_DONTWAIT)) > 0) {
            answers.append(buffer, static_cast<std::size_t>(count));
        }
    }

    bool gone_ = false;
    unsigned waiting_ = 0;
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static FuzzedContext context;
    if (size == 0) return 0;
    context.requireLogin(data[0] % 2 != 0);
    std::string answers = context.serve(reinterpret_cast<const char*>(data) + 1, size - 1);
    while (!answers.empty()) {
        const std::size_t end = answers.find('\n');
        if (end == std::string::npos) __builtin_trap();
        if (answers.compare(0, 3, "ok ") != 0 && answers.compare(0, 6, "error ") != 0) __builtin_trap();
        answers.erase(0, end + 1);
    }
    return 0;
}
