#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <unordered_map>
#include <unordered_set>
#include <utility>

#include "CoIoTcpServerHandler.h"
#include "CoMutex.h"
#include "rcAppContext.h"
#include "rcCommand.h"
#include "rcConnectionInfo.h"
#include "rcParam.h"

namespace Vantrel {

class rcServerContext;

/// One method that a server context answers.
struct rcMethod {
    /// Returns success. Throwing fails the command with the exception's message, which otherwise is the
    /// result's text. `objectId` is that of the addressed object, which was registered when the command came,
    /// or 0. References are valid during the call only.
    using Function = std::function<bool(int objectId, const rcMethod& method, rcParam::Array& parameters,
                                        rcParam& result)>;

    rcServerContext* context = nullptr;  ///< set by registerMethod
    std::string name;
    Function function;
    const rcParam::Type* resultType = nullptr;  ///< null: void
    rcParam::InfoList parameters;
    bool delayed = false;  ///< answers later, through returnFromDelayedCommand

    /// The description of a method without parameters.
    static const rcParam::InfoList& getDudParamList();
};

/// The receiving side of the remote-command protocol: listens, and answers the command lines of its clients
/// through registered methods. "_ping" and "_login" come with rcSysCalls::registerSysCallHandler.
///
/// It works while callIOHandlers is called in a loop; methods and hooks run on that thread, one at a time.
/// Everything belongs to that thread, except cancel, registerObject, unregisterObject, isIdValid and
/// returnFromDelayedCommand, which any thread may call. No lock is held while a method or hook runs.
class rcServerContext : public rcAppContext {
  public:
    class Client;

    /// Listens on `port` (0: any free one) of `bindAddress` (null: every address). A failure is logged, and
    /// the context is then not valid.
    explicit rcServerContext(int port, const char* bindAddress = nullptr);
    /// Listens on the first port of the range that works; two bounds of which none is positive mean any free
    /// port. Numbers that are no ports are left out.
    rcServerContext(int lowPort, int highPort, const char* bindAddress = nullptr);
    /// Closes every connection, without calling clientGone.
    ~rcServerContext() override;

    bool isValid() const;
    /// The port it listens on; 0 when it is not valid.
    int getPort() const;

    /// From now on every method but "_login" and "_ping" answers "Not logged in." before a login, and a
    /// client that sends a long command before one is dropped. So is one that has not logged in within
    /// LOGIN_TIME_MS, and, when more than MAX_UNAUTHENTICATED have not, the one that has waited longest.
    void requireLogin(bool on);
    static constexpr unsigned LOGIN_TIME_MS = 10000;
    static constexpr std::size_t MAX_UNAUTHENTICATED = 64;
    /// Connections kept at a time; further ones are closed at once. At first there is no limit but the
    /// system's.
    void limitClients(std::size_t most);
    /// Whether a login's record is left in the environment (QD_RC_CONNINFO) to processes started later, and
    /// one found there is taken over. At first it is; for a program that owns its environment.
    void useLoginEnvironment(bool on);
    bool usesLoginEnvironment() const { return useLoginEnvironment_; }

    /// Copies the description. False, with the reason logged, when the name is taken.
    bool registerMethod(const rcMethod& method);
    /// Takes commands for the object that the methods know as `id`; those for unknown objects fail with
    /// INVALID_OBJECT. False, with the reason logged, when `id` is 0 or taken.
    bool registerObject(int id) CO_EXCLUDES(tablesMutex_);
    bool unregisterObject(int id) CO_EXCLUDES(tablesMutex_);
    static constexpr const char* INVALID_OBJECT = "Invalid Object: %d";  ///< %d: the id

    /// Answers the delayed command that a client waits for. False, and logged, when that client is gone or
    /// does not wait. Until then no further command of that client is processed.
    bool returnFromDelayedCommand(unsigned clientId, bool success, const char* text)
        CO_EXCLUDES(tablesMutex_);

    /// The client whose command is being processed; null outside a method. Valid during the method only.
    Client* getCurrentClient() const;
    /// Its id, which is never 0; 0 outside a method. A delayed method keeps it for its return.
    unsigned getCurrentClientId() const;
    /// Its login record; an invalid record outside a method, where setting does nothing.
    const rcConnectionInfo& getCurrentConnectionInfo() const;
    void setCurrentConnectionInfo(const rcConnectionInfo& info);
    /// Null when there is none. Valid until the loop's next pass.
    Client* findClient(unsigned id) const CO_EXCLUDES(tablesMutex_);
    bool isIdValid(unsigned id) const { return findClient(id) != nullptr; }

    /// Authentication hook: false refuses the login. The default accepts.
    virtual bool login(const rcConnectionInfo& info);

    /// Called when a client has left, or was dropped; its id is not valid any more.
    using ClientGone = std::function<void(unsigned clientId)>;
    void setClientGone(ClientGone clientGone) { clientGone_ = std::move(clientGone); }

  protected:
    /// Serves a connection that was accepted, and owns its descriptor from then on; closes it when there is
    /// no memory to serve it.
    void handleConnection(CoFd connection) CO_EXCLUDES(tablesMutex_);

  private:
    friend class Client;

    /// The outcome of one command: whether to answer now, and what.
    enum class Outcome { Answer, NoAnswer };

    Outcome processCommand(Client& client, rcCommand& command);
    const rcMethod* findMethod(const rcCommand& command, const Client& client);
    bool findObject(const rcCommand& command, int& objectId) CO_EXCLUDES(tablesMutex_);
    bool callMethod(const rcMethod& method, int objectId, std::string argument) CO_EXCLUDES(tablesMutex_);
    void drop(Client& client) CO_EXCLUDES(tablesMutex_);
    void addClient(CoFd connection) CO_EXCLUDES(tablesMutex_);
    void removeClient(unsigned id) CO_EXCLUDES(tablesMutex_);
    bool isFull() CO_EXCLUDES(tablesMutex_);
    void limitUnauthenticated();
    void loggedInOrOut(Client& client, bool loggedIn);
    void setResult(rcResult::Code code, std::string text);

    CoIoTcpServerHandler listener_;
    std::unordered_map<std::string, rcMethod> methods_;
    bool requireLogin_ = false;
    bool useLoginEnvironment_ = true;
    std::size_t maxClients_ = SIZE_MAX;
    bool full_ = false;                   ///< logged already
    bool flooded_ = false;                ///< by unauthenticated clients; logged already
    std::set<unsigned> unauthenticated_;  ///< clients that still have to log in, oldest first
    ClientGone clientGone_;
    unsigned lastClientId_ = 0;
    Client* current_ = nullptr;
    rcResult::Code resultCode_ = rcResult::Code::Ok;  ///< of the current command, with its text
    std::string resultText_;

    mutable CoMutex tablesMutex_;
    std::map<unsigned, std::shared_ptr<Client>> clients_ CO_GUARDED_BY(tablesMutex_);
    std::unordered_set<int> objects_ CO_GUARDED_BY(tablesMutex_);
};

}  // namespace Vantrel
