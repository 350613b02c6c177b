#include "rcCommand.h"

#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <charconv>
#include <cstdint>
#include <cstring>

#include "CoAssert.h"

namespace Vantrel {

namespace {

constexpr char LINE_END = '\n';
constexpr char SEPARATOR = ' ';
constexpr char ESCAPE = '\\';

/// A buffer that a long text has grown is not kept for the short ones that follow.
constexpr std::size_t KEPT_CAPACITY = 64 * 1024;

/// From this size on a text that grows is moved in steps of as much, each given back before the next: growing
/// then takes hardly more memory than the text itself.
constexpr std::size_t MOVE_STEP = 1024 * 1024;

/// Bytes that are escaped, with what follows the backslash for each.
struct Escape {
    char plain;
    char escaped;
};
constexpr Escape ESCAPES[] = {{'\n', 'n'}, {'\t', 't'}, {'\\', '\\'}};
constexpr std::size_t ESCAPE_COUNT = sizeof ESCAPES / sizeof ESCAPES[0];

/// Escaping looks for each of them separately, in blocks that stay in the processor's first cache.
constexpr std::size_t ESCAPE_BLOCK = 8192;

char unescaped(char byte) {
    for (const Escape& escape : ESCAPES) {
        if (byte == escape.escaped) return escape.plain;
    }
    return byte;
}

const char* findByte(const char* from, const char* end, char byte) {
    const void* found = std::memchr(from, byte, static_cast<std::size_t>(end - from));
    return found ? static_cast<const char*>(found) : end;
}

void appendEscapedBlock(const char* from, const char* end, std::string& line) {
    const char* next[ESCAPE_COUNT];
    bool plain = true;
    for (std::size_t i = 0; i < ESCAPE_COUNT; ++i) {
        next[i] = findByte(from, end, ESCAPES[i].plain);
        plain &= next[i] == end;
    }
    if (plain) {
        line.append(from, end);
        return;
    }
    for (;;) {
        const std::size_t first =
            static_cast<std::size_t>(std::min_element(next, next + ESCAPE_COUNT) - next);
        line.append(from, next[first]);
        if (next[first] == end) return;
        line += ESCAPE;
        line += ESCAPES[first].escaped;
        from = next[first] + 1;
        next[first] = findByte(from, end, ESCAPES[first].plain);
    }
}

/// Lets the system have the whole pages of a buffer back, whose bytes are not needed any more.
void giveBackPages(char* from, char* end) {
    static const auto pageSize = static_cast<std::uintptr_t>(::sysconf(_SC_PAGESIZE));
    const std::uintptr_t skipped = (pageSize - reinterpret_cast<std::uintptr_t>(from) % pageSize) % pageSize;
    const std::size_t size = static_cast<std::size_t>(end - from);
    if (size < skipped + pageSize) return;
    ::madvise(from + skipped, (size - skipped) / pageSize * pageSize, MADV_DONTNEED);  // only saves memory
}

/// Room for `more` bytes behind a long text. The new buffer's pages take no memory until they are written.
void growLongText(std::string& text, std::size_t more) {
    std::string larger;
    larger.reserve(std::max(text.size() + more, 2 * text.capacity()));
    for (std::size_t moved = 0; moved < text.size(); moved += MOVE_STEP) {
        const std::size_t size = std::min(MOVE_STEP, text.size() - moved);
        larger.append(text, moved, size);
        giveBackPages(text.data(), text.data() + moved + size);
    }
    text.swap(larger);
}

void appendTo(std::string& text, const char* from, const char* end) {
    const auto size = static_cast<std::size_t>(end - from);
    if (text.size() >= MOVE_STEP && text.capacity() - text.size() < size) growLongText(text, size);
    text.append(from, size);
}

void appendTo(std::string& text, char byte) {
    if (text.size() >= MOVE_STEP && text.capacity() == text.size()) growLongText(text, 1);
    text += byte;
}

void clearText(std::string& text) {
    text.clear();
    if (text.capacity() > KEPT_CAPACITY) text.shrink_to_fit();
}

}  // namespace

void rcValue::clear() {
    clearText(text_);
    escapePending_ = false;
}

void rcValue::swapText(std::string& other) {
    text_.swap(other);
    escapePending_ = false;
}

void rcValue::appendChar(char byte) {
    if (escapePending_) {
        appendTo(text_, unescaped(byte));
        escapePending_ = false;
    } else if (byte == ESCAPE) {
        escapePending_ = true;
    } else {
        appendTo(text_, byte);
    }
}

void rcValue::append(const char* data, std::size_t size) {
    const char* const end = data + size;
    while (data != end) {
        if (escapePending_) {
            appendChar(*data++);
            continue;
        }
        const char* const escape = findByte(data, end, ESCAPE);
        appendTo(text_, data, escape);
        data = escape;
        if (data != end) {
            escapePending_ = true;
            ++data;
        }
    }
}

void rcValue::appendEscaped(std::string_view text, std::string& line) {
    // A tenth more than the text: few bytes of a message need escaping.
    line.reserve(line.size() + std::max<std::size_t>(1, text.size() + text.size() / 10));
    while (!text.empty()) {
        const std::size_t size = std::min(text.size(), ESCAPE_BLOCK);
        appendEscapedBlock(text.data(), text.data() + size, line);
        text.remove_prefix(size);
    }
}

template <std::size_t WORDS>
bool rcLine<WORDS>::append(const char* data, std::size_t size, std::size_t& used) {
    const char* const lineEnd = findByte(data, data + size, LINE_END);
    const bool lineComplete = lineEnd != data + size;
    const char* from = data;
    while (from != lineEnd && complete_ != WORDS) {
        const char* const separator = findByte(from, lineEnd, SEPARATOR);
        words_[complete_].append(from, separator);
        from = separator;
        if (from != lineEnd) {
            ++complete_;
            ++from;
        }
    }
    value_.append(from, static_cast<std::size_t>(lineEnd - from));
    const std::size_t taken = static_cast<std::size_t>(lineEnd - data);
    receivedBytes_ += taken;
    used = lineComplete ? taken + 1 : taken;
    return lineComplete;
}

template <std::size_t WORDS>
void rcLine<WORDS>::reset() {
    for (std::string& word : words_) clearText(word);
    complete_ = 0;
    value_.clear();
    receivedBytes_ = 0;
}

template class rcLine<1>;
template class rcLine<3>;

const char* rcCommand::typeName(Type type) {
    switch (type) {
        case Type::Sync:
            return "sync";
        case Type::Async:
            return "async";
    }
    return "unknown";
}

void rcCommand::format(Type type, int objectId, std::string_view method, std::string_view argument,
                       std::string& line) {
    char head[32];  // the type, the number and their separators
    const std::string_view typeText = typeName(type);
    char* headEnd = std::copy(typeText.begin(), typeText.end(), head);
    *headEnd++ = SEPARATOR;
    headEnd = std::to_chars(headEnd, head + sizeof head - 1, objectId).ptr;
    *headEnd++ = SEPARATOR;
    clearText(line);
    line.append(head, headEnd);
    line += method;
    line += SEPARATOR;
    rcValue::appendEscaped(argument, line);
    line += LINE_END;
}

const char* rcResult::codeName(Code code) {
    switch (code) {
        case Code::Ok:
            return "ok";
        case Code::Error:
            return "error";
    }
    return "unknown";
}

void rcResult::appendLine(Code code, std::string_view value, std::string& line) {
    line += codeName(code);
    line += SEPARATOR;
    rcValue::appendEscaped(value, line);
    line += LINE_END;
}

}  // namespace Vantrel
