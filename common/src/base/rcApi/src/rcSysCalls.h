#pragma once

#include <string>

namespace Vantrel {

class rcCommand;
class rcServerContext;

/// The methods that every server context answers, both on object 0: "_ping" succeeds at once, "_login" takes
/// the client's login record. Thread-safe, apart from the context.
class rcSysCalls {
  public:
    static constexpr const char* PING = "_ping";
    static constexpr const char* LOGIN = "_login";
    /// Environment variable under which the first login's record is left to the processes that this one
    /// starts.
    static constexpr const char* CONNECTION_INFO_VARIABLE = "QD_RC_CONNINFO";

    /// False when one of them is registered already.
    static bool registerSysCallHandler(rcServerContext& context);

    static bool isLoginCommand(const rcCommand& command);
    /// Whether the command's method is one of them.
    static bool isSystemCommand(const rcCommand& command);

    /// The record text in CONNECTION_INFO_VARIABLE; false when there is none.
    static bool getInheritedConnectionInfo(std::string& record);
};

}  // namespace Vantrel
