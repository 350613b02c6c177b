#pragma once

#include <cstddef>
#include <deque>
#include <iosfwd>
#include <string>
#include <unordered_map>
#include <vector>

namespace Vantrel {

/// Reads and writes files of sections and variables:
///     # comment
///     [Section]
///     name = value
/// Lines that cannot be understood are skipped with a warning. Empty lines and those that start with "#" or
/// ";" are comments: they belong to the section or variable that follows, so that `write` gives them back.
/// Not thread-safe.
class CoConfigFileReader {
  public:
    /// Longest line, in bytes; the rest of a longer one is read as the next line.
    static constexpr std::size_t MAX_LINE_LENGTH = 2047;
    /// Largest file that is read.
    static constexpr std::size_t MAX_FILE_SIZE = 1U << 20;

    enum ReadFlag : unsigned {
        READ_DEFAULT = 0,
        READ_KEEP_FIRST = 2,  ///< a variable that is already defined keeps its value
    };

    struct Variable {
        std::string name;
        std::string value;
        std::string comment;  ///< the lines before it, each with its line feed
    };
    struct Section {
        std::string name;
        std::string comment;
        std::deque<Variable> variables;                      ///< in order of appearance
        std::unordered_map<std::string, std::size_t> index;  ///< name to place in `variables`
    };

    /// Adds what a file or a stream holds to what is here. Warnings about lines go into `warnings` when
    /// given, otherwise to the log. False with the last error set when it cannot be read: no regular file, an
    /// error of the system, or larger than MAX_FILE_SIZE; nothing is then added.
    bool read(const std::string& file, unsigned flags = READ_DEFAULT,
              std::vector<std::string>* warnings = nullptr);
    bool read(std::istream& stream, unsigned flags = READ_DEFAULT,
              std::vector<std::string>* warnings = nullptr);

    /// Writes everything to a file, which is replaced as a whole or not at all. False with the last error
    /// set.
    bool write(const std::string& file);
    /// What `write` writes.
    std::string toText() const;

    /// System error number of the last failure, EFBIG for too large a file.
    int lastErrorNumber() const { return lastErrorNumber_; }

    bool isDefined(const std::string& section, const std::string& key) const;
    /// True with the value in `out`; otherwise, when it is not defined or does not read as the type asked
    /// for, false with `defaultValue` in `out`. Truth values are true, yes, on and 1, and false, no, off and
    /// 0.
    bool get(const std::string& section, const std::string& key, std::string& out,
             const std::string& defaultValue) const;
    bool get(const std::string& section, const std::string& key, int& out, int defaultValue) const;
    bool get(const std::string& section, const std::string& key, unsigned& out, unsigned defaultValue) const;
    bool get(const std::string& section, const std::string& key, bool& out, bool defaultValue) const;
    bool get(const std::string& section, const std::string& key, double& out, double defaultValue) const;

    /// Sets a variable, adding it and its section when missing. A comment, when not empty, replaces the one
    /// there; its lines are marked as comments where they are not. False, and nothing is set, for texts that
    /// would read back as something else (a line end within, a key that looks like a comment or holds "=").
    bool put(const std::string& section, const std::string& key, const std::string& value,
             const std::string& comment = {});
    /// Texts, not truth values.
    bool put(const std::string& section, const std::string& key, const char* value,
             const std::string& comment = {}) {
        return put(section, key, std::string(value), comment);
    }
    bool put(const std::string& section, const std::string& key, int value, const std::string& comment = {});
    bool put(const std::string& section, const std::string& key, unsigned value,
             const std::string& comment = {});
    bool put(const std::string& section, const std::string& key, bool value, const std::string& comment = {});
    bool put(const std::string& section, const std::string& key, double value,
             const std::string& comment = {});

    /// Null when there is none; valid until the next read or put.
    const Section* getSection(const std::string& name) const;
    const Variable* getVariable(const std::string& section, const std::string& key) const;

  private:
    class Parser;

    void readText(const std::string& text, const std::string& file, unsigned flags,
                  std::vector<std::string>* warnings);
    Section& section(const std::string& name);

    std::deque<Section> sections_;
    std::unordered_map<std::string, std::size_t> index_;
    std::string trailer_;  // comments after the last variable
    int lastErrorNumber_ = 0;
};

}  // namespace Vantrel
