#include "rcSysCalls.h"

#include <cstdlib>
#include <ctime>

#include "CoException.h"
#include "CoMutex.h"
#include "CoPerProcess.h"
#include "rcServerClient.h"
#include "rcServerContext.h"

namespace Vantrel {

namespace {

/// Serialises this layer's uses of the environment: contexts of several threads may accept and log in at
/// once.
struct Environment {
    CoMutex mutex;
};

/// Leaves the record to the processes started from here on; the first one stays.
bool propagate(const rcConnectionInfo& info) {
    const CoLock lock(CoPerProcess<Environment>::get().mutex);
    return ::setenv(rcSysCalls::CONNECTION_INFO_VARIABLE, info.toAttrStream().c_str(), 0) == 0;
}

bool ping(int, const rcMethod&, rcParam::Array&, rcParam&) {
    return true;
}

bool login(int, const rcMethod& method, rcParam::Array& parameters, rcParam&) {
    rcServerContext& context = *method.context;
    const CoIoTcpDescriptor& descriptor = context.getCurrentClient()->descriptor();
    const rcConnectionInfo record(parameters[0].stringValue().c_str(), &descriptor);
    if (!record.isValid()) {
        // Makes the context drop the client once it has got its answer.
        context.setCurrentConnectionInfo(record);
        throw CoException("Authentication failed for client's login information");
    }
    rcConnectionInfo info = context.getCurrentConnectionInfo();
    info.setTimestamp(static_cast<unsigned>(std::time(nullptr)));
    info.setClientInfo(record, &descriptor);
    context.setCurrentConnectionInfo(info);
    info.logConnection();
    if (!context.login(info)) throw CoException("Authentication failed");
    if (context.usesLoginEnvironment() && !propagate(info))
        throw CoException("Failed to propagate login info to session");
    return true;
}

}  // namespace

bool rcSysCalls::registerSysCallHandler(rcServerContext& context) {
    rcMethod pingMethod;
    pingMethod.name = PING;
    pingMethod.function = ping;
    pingMethod.resultType = &rcParamVoid::TYPE;
    pingMethod.parameters = rcMethod::getDudParamList();
    rcMethod loginMethod;
    loginMethod.name = LOGIN;
    loginMethod.function = login;
    loginMethod.resultType = &rcParamString::TYPE;
    loginMethod.parameters = {{&rcParamString::TYPE}};
    const bool pingAdded = context.registerMethod(pingMethod);
    return context.registerMethod(loginMethod) && pingAdded;
}

bool rcSysCalls::isLoginCommand(const rcCommand& command) {
    return command.method() == LOGIN;
}

bool rcSysCalls::isSystemCommand(const rcCommand& command) {
    return command.method() == PING || isLoginCommand(command);
}

bool rcSysCalls::getInheritedConnectionInfo(std::string& record) {
    const CoLock lock(CoPerProcess<Environment>::get().mutex);
    const char* const text = std::getenv(CONNECTION_INFO_VARIABLE);
    if (text) record = text;
    return text != nullptr;
}

}  // namespace Vantrel
