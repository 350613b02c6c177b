#pragma once

#include <string>
#include <string_view>

namespace Vantrel {

/// Log messages. Every message of the library goes through one router. A message is emitted when its level is
/// at or below the filter level, which is USER until it is set. The environment wins over the program:
/// once QD_MSG_LEVEL (a number or a level's name) is set, `setFilterLevel` changes nothing. QD_MSG_VERBOSE,
/// when set, selects the verbose form of the default route, which writes to standard error.
/// Thread-safe. No lock is held while a router runs.
class CoMsg {
  public:
    enum Level : int { USER = 0, ERROR = 1, WARNING = 2, NOTICE = 3, DEBUG = 4 };

    struct Message {
        int level;
        const char* source;  ///< source file relative to the repository root, without extension
        int line;
        const char* text;  ///< without trailing white space
    };

    /// Where messages go. A host program that exports the C functions `CoMsg_getFilterLevel` and
    /// `CoMsg_getRouter` offers a router of its own, so the order of the operations below is binary
    /// interface.
    class Router {
      public:
        Router() = default;
        Router(const Router&) = delete;
        Router& operator=(const Router&) = delete;
        virtual ~Router() = default;

        /// File that the router writes to; null or empty when there is none.
        virtual const char* logPath() const { return nullptr; }
        /// Called on the thread that posts, for messages that passed the filter.
        virtual void post(const Message& message) = 0;
    };

    static int getFilterLevel();
    static void setFilterLevel(int level);
    static bool isEnabled(int level) { return level <= getFilterLevel(); }

    /// Replaces the router (null: the default route) and returns the earlier one. The router is not owned
    /// and must outlive its use.
    static Router* setRouter(Router* router);

    /// The default route: one line on standard error.
    static void writeToStandardError(const Message& message);

    /// "user", "error", "warn", "notice", "debug"; "unknown" for any other.
    static const char* levelName(int level);

    /// The line that a message makes: in the verbose form level, process, source and time precede the text.
    static std::string formatLine(const Message& message, bool verbose);

    /// Formats and routes a message; use the macros below, which evaluate the arguments only when the message
    /// is emitted.
    static void post(int level, const char* file, int line, const char* format, ...)
        __attribute__((format(printf, 4, 5)));
};

/// `file` as messages name it: without its extension.
std::string coSourceName(const char* file);

/// printf-like formatting into a text of the size that it takes.
std::string coFormat(const char* format, ...) __attribute__((format(printf, 1, 2)));

/// `text` on one line, for messages that quote untrusted text: control characters and backslashes become
/// "\xNN" and "\\".
std::string coPrintable(std::string_view text);

/// The system's text for an error number.
std::string coErrorText(int errorNumber);

}  // namespace Vantrel

#define CO_MSG_AT(level, ...)                                               \
    do {                                                                    \
        if (::Vantrel::CoMsg::isEnabled(level))                             \
            ::Vantrel::CoMsg::post(level, __FILE__, __LINE__, __VA_ARGS__); \
    } while (false)

#define CO_MSG_USER(...) CO_MSG_AT(::Vantrel::CoMsg::USER, __VA_ARGS__)
#define CO_MSG_ERROR(...) CO_MSG_AT(::Vantrel::CoMsg::ERROR, __VA_ARGS__)
#define CO_MSG_WARNING(...) CO_MSG_AT(::Vantrel::CoMsg::WARNING, __VA_ARGS__)
#define CO_MSG_NOTICE(...) CO_MSG_AT(::Vantrel::CoMsg::NOTICE, __VA_ARGS__)
#define CO_MSG_DEBUG(...) CO_MSG_AT(::Vantrel::CoMsg::DEBUG, __VA_ARGS__)
