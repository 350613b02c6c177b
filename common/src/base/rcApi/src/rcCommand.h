#pragma once

#include <array>
#include <cstddef>
#include <string>
#include <string_view>

namespace Vantrel {

/// A text value of a command or result line, in unescaped form. Like the lines below it knows no socket:
/// bytes in, values out. Not thread-safe.
class rcValue {
  public:
    const std::string& text() const { return text_; }
    void clear();
    /// Exchanges the text with `other`, so that both buffers can be used again. Ends a pending escape.
    void swapText(std::string& other);

    /// Takes one received byte, unescaping.
    void appendChar(char byte);
    /// Takes `size` received bytes, unescaping; the same as appendChar for each.
    void append(const char* data, std::size_t size);

    /// Appends the escaped form of `text` to `line`.
    static void appendEscaped(std::string_view text, std::string& line);

  private:
    std::string text_;
    bool escapePending_ = false;  ///< a backslash was seen and awaits its partner
};

/// A line that is being received: words, each ended by a blank, then a value up to the newline. A line that
/// ends early leaves the rest empty.
template <std::size_t WORDS>
class rcLine {
  public:
    /// Takes received bytes up to and including the newline that ends the line. `used` is how many it took:
    /// all of them while the line goes on. True when the line is complete.
    bool append(const char* data, std::size_t size, std::size_t& used);
    /// Takes one received byte; true when it completed the line.
    bool appendChar(char byte) {
        std::size_t used = 0;
        return append(&byte, 1, used);
    }

    rcValue& value() { return value_; }
    const rcValue& value() const { return value_; }
    /// Bytes taken so far, without the newline.
    std::size_t receivedBytes() const { return receivedBytes_; }

    /// Makes it ready for the next line.
    void reset();

  protected:
    const std::string& word(std::size_t index) const { return words_[index]; }

  private:
    std::array<std::string, WORDS> words_;
    std::size_t complete_ = 0;  ///< words; with all of them, the value is being received
    rcValue value_;
    std::size_t receivedBytes_ = 0;
};

extern template class rcLine<1>;
extern template class rcLine<3>;

/// A command line: type, object id, method and argument.
class rcCommand : public rcLine<3> {
  public:
    enum class Type : int { Sync = 0, Async = 1 };

    /// "sync" or "async"; "unknown" for any other value.
    static const char* typeName(Type type);

    /// Replaces `line` by the command's line, newline included. `method` holds neither blank nor newline.
    static void format(Type type, int objectId, std::string_view method, std::string_view argument,
                       std::string& line);

    // What was received.
    const std::string& type() const { return word(0); }
    bool isSync() const { return type() == "sync"; }
    const std::string& objectId() const { return word(1); }
    const std::string& method() const { return word(2); }
};

/// A result line: a code and a value.
class rcResult : public rcLine<1> {
  public:
    enum class Code : int { Ok = 0, Error = 1 };

    /// "ok" or "error"; "unknown" for any other value.
    static const char* codeName(Code code);

    /// Appends the result's line to `line`, newline included.
    static void appendLine(Code code, std::string_view value, std::string& line);

    // What was received.
    const std::string& codeText() const { return word(0); }
    /// Only the exact text "ok" is success.
    bool isOk() const { return codeText() == "ok"; }
};

}  // namespace Vantrel
