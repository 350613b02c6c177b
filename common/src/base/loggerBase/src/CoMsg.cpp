#include "CoMsg.h"

#include <strings.h>

#include <atomic>
#include <cctype>
#include <chrono>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>

#include "CoEnv.h"
#include "CoProcess.h"

namespace Vantrel {

namespace {

constexpr int NO_LEVEL = -1;
constexpr int UNREAD_LEVEL = -2;
constexpr const char* LEVEL_NAMES[] = {"user", "error", "warn", "notice", "debug"};

const CoEnvText levelVariable("QD_MSG_LEVEL", "");
const CoEnvFlag verboseVariable("QD_MSG_VERBOSE", CoEnvFlag::Rule::TextDecides);

std::atomic<int> filterLevel{CoMsg::USER};
std::atomic<CoMsg::Router*> currentRouter{nullptr};

int parseLevel(const char* text) {
    for (int level = CoMsg::USER; level <= CoMsg::DEBUG; ++level) {
        if (::strcasecmp(text, LEVEL_NAMES[level]) == 0) return level;
    }
    char* end = nullptr;
    const long number = std::strtol(text, &end, 10);
    if (end == text || number < 0) return NO_LEVEL;
    return number > CoMsg::DEBUG ? int{CoMsg::DEBUG} : static_cast<int>(number);
}

int environmentLevel() {
    // No static variable with a guard: a forked child could wait for it for ever.
    static std::atomic<int> known{UNREAD_LEVEL};
    int level = known.load(std::memory_order_relaxed);
    if (level == UNREAD_LEVEL) {
        level = parseLevel(levelVariable.get());
        known.store(level, std::memory_order_relaxed);
    }
    return level;
}

__attribute__((format(printf, 1, 0))) std::string formatArguments(const char* format, va_list arguments) {
    va_list again;
    va_copy(again, arguments);
    char buffer[512];
    const int length = std::vsnprintf(buffer, sizeof buffer, format, arguments);
    std::string text;
    if (length >= 0 && static_cast<std::size_t>(length) < sizeof buffer) {
        text.assign(buffer, static_cast<std::size_t>(length));
    } else if (length >= 0) {
        text.resize(static_cast<std::size_t>(length));
        std::vsnprintf(text.data(), text.size() + 1, format, again);
    }
    va_end(again);
    return text;
}

}  // namespace

int CoMsg::getFilterLevel() {
    const int forced = environmentLevel();
    return forced != NO_LEVEL ? forced : filterLevel.load(std::memory_order_relaxed);
}

void CoMsg::setFilterLevel(int level) {
    filterLevel.store(level, std::memory_order_relaxed);
}

CoMsg::Router* CoMsg::setRouter(Router* router) {
    return currentRouter.exchange(router);
}

const char* CoMsg::levelName(int level) {
    return level >= USER && level <= DEBUG ? LEVEL_NAMES[level] : "unknown";
}

std::string CoMsg::formatLine(const Message& message, bool verbose) {
    if (!verbose) return std::string(message.text) + '\n';
    const auto now = std::chrono::system_clock::now().time_since_epoch();
    const auto milliseconds = std::chrono::duration_cast<std::chrono::milliseconds>(now).count();
    const std::time_t seconds = static_cast<std::time_t>(milliseconds / 1000);
    std::tm local{};
    ::localtime_r(&seconds, &local);
    char date[16];
    char time[16];
    std::strftime(date, sizeof date, "%Y/%m/%d", &local);
    std::strftime(time, sizeof time, "%H:%M:%S", &local);
    return coFormat("[%s] %u %s:%d %s:%s.%.3d %.*s\n", levelName(message.level),
                    static_cast<unsigned>(CoProcess::getId()), message.source, message.line, date, time,
                    static_cast<int>(milliseconds % 1000), static_cast<int>(std::strlen(message.text)),
                    message.text);
}

void CoMsg::writeToStandardError(const Message& message) {
    const std::string line = formatLine(message, verboseVariable.get());
    std::fwrite(line.data(), 1, line.size(), stderr);
}

void CoMsg::post(int level, const char* file, int line, const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    std::string text = formatArguments(format, arguments);
    va_end(arguments);
    while (!text.empty() && std::isspace(static_cast<unsigned char>(text.back()))) text.pop_back();

    const std::string source = coSourceName(file);
    const Message message{level, source.c_str(), line, text.c_str()};
    Router* router = currentRouter.load();
    if (router) {
        router->post(message);
    } else {
        writeToStandardError(message);
    }
}

std::string coSourceName(const char* file) {
    const char* slash = std::strrchr(file, '/');
    const char* dot = std::strrchr(file, '.');
    return dot && (!slash || dot > slash) ? std::string(file, dot) : std::string(file);
}

std::string coFormat(const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    std::string text = formatArguments(format, arguments);
    va_end(arguments);
    return text;
}

std::string coPrintable(std::string_view text) {
    std::string printable;
    for (const char each : text) {
        const auto byte = static_cast<unsigned char>(each);
        if (each == '\\') {
            printable += "\\\\";
        } else if (byte < ' ' || byte == 0x7f) {
            printable += coFormat("\\x%02x", static_cast<unsigned>(byte));
        } else {
            printable += each;
        }
    }
    return printable;
}

std::string coErrorText(int errorNumber) {
    char buffer[256];
    return ::strerror_r(errorNumber, buffer, sizeof buffer);  // the GNU form: returns the text
}

}  // namespace Vantrel
