#pragma once

#include <string>
#include <string_view>

namespace vantreld {

/// Takes the argument of a plain-form command apart: pieces with single blanks between them, where blanks
/// inside double quotes do not separate and two blanks in a row make an empty piece. For commands whose last
/// part is no piece but the rest of the text.
class ArgumentReader {
  public:
    /// `command` is what errors name, `text` must outlive the reader.
    ArgumentReader(const char* command, std::string_view text) : command_(command), rest_(text) {}

    /// The next piece, decoded when it is quoted. CoException that names `what` when the text has ended.
    std::string next(const char* what);
    /// The next piece as a decimal number; CoException when it is none.
    int nextInt(const char* what);
    /// What follows the pieces taken.
    std::string_view rest() const { return rest_; }

  private:
    const char* command_;
    std::string_view rest_;
    bool ended_ = false;
};

/// The node id that is a command's whole argument: quoted by clients only when it holds a blank.
std::string nodeIdArgument(const std::string& argument);

/// A decimal number and nothing else; CoException that names the command and the parameter otherwise.
int parseIntParameter(const char* command, const char* what, std::string_view text);

}  // namespace vantreld
