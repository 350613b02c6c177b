#include "CoConfigFileReader.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <istream>
#include <string_view>

#include "CoAtomicFile.h"
#include "CoFd.h"
#include "CoMsg.h"

namespace Vantrel {

namespace {

constexpr std::string_view WHITE_SPACE = " \t\n\v\f\r";
constexpr std::string_view LINE_ENDS = "\n\r";
constexpr std::string_view COMMENT_MARKS = "#;";
constexpr std::string_view TRUE_TEXTS[] = {"true", "yes", "on", "1"};
constexpr std::string_view FALSE_TEXTS[] = {"false", "no", "off", "0"};
constexpr std::size_t MAX_WARNINGS = 100;  // a binary file has more to say than a log should hold

std::string_view trimLeft(std::string_view text) {
    const std::size_t begin = text.find_first_not_of(WHITE_SPACE);
    return begin == std::string_view::npos ? std::string_view() : text.substr(begin);
}

std::string_view trimRight(std::string_view text) {
    return text.substr(0, text.find_last_not_of(WHITE_SPACE) + 1);  // npos + 1 is 0
}

bool isComment(std::string_view trimmedLine) {
    return trimmedLine.empty() || COMMENT_MARKS.find(trimmedLine.front()) != std::string_view::npos;
}

template <typename Number>
bool parseNumber(std::string_view text, Number& out) {
    if (text.size() > 1 && text[0] == '+' && text[1] != '-') text.remove_prefix(1);
    Number number{};
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    if (error != std::errc() || end != text.data() + text.size()) return false;
    out = number;
    return true;
}

bool parseTruth(std::string_view text, bool& out) {
    for (const std::string_view candidate : TRUE_TEXTS) {
        if (text == candidate) return out = true;
    }
    for (const std::string_view candidate : FALSE_TEXTS) {
        if (text == candidate) return !(out = false);
    }
    return false;
}

/// Reads to the end, but never more than one byte past the largest size. 0 or the system's error number.
template <typename ReadSome>
int readAll(ReadSome readSome, std::string& text) {
    char buffer[8192];
    for (;;) {
        const ssize_t size = readSome(buffer, sizeof buffer);
        if (size < 0 && errno == EINTR) continue;
        if (size < 0) return errno;
        if (size == 0) return 0;
        text.append(buffer, static_cast<std::size_t>(size));
        if (text.size() > CoConfigFileReader::MAX_FILE_SIZE) return EFBIG;
    }
}

int readFile(const std::string& name, std::string& text) {
    // Non-blocking, so that a pipe of that name cannot hang the process.
    const CoFd file(::open(name.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY));
    if (!file.isOpen()) return errno;
    struct stat status {};
    if (::fstat(file.get(), &status) != 0) return errno;
    if (S_ISDIR(status.st_mode)) return EISDIR;
    if (!S_ISREG(status.st_mode)) return EINVAL;
    return readAll([&file](char* buffer, std::size_t size) { return ::read(file.get(), buffer, size); },
                   text);
}

/// `comment` with every line marked as one and ended.
std::string asComment(std::string_view comment) {
    std::string marked;
    while (!comment.empty()) {
        const std::size_t end = std::min(comment.find_first_of(LINE_ENDS), comment.size());
        const std::string_view line = comment.substr(0, end);
        comment.remove_prefix(std::min(end + 1, comment.size()));
        if (!isComment(trimLeft(line))) marked += "# ";
        marked.append(line) += '\n';
    }
    return marked;
}

bool readsBackAlike(std::string_view text) {
    return text.find_first_of(LINE_ENDS) == std::string_view::npos && trimLeft(trimRight(text)) == text;
}

}  // namespace

/// Goes through a text line by line.
class CoConfigFileReader::Parser {
  public:
    Parser(CoConfigFileReader& reader, const std::string& file, unsigned flags,
           std::vector<std::string>& warnings)
        : reader_(reader), file_(file), keepFirst_((flags & READ_KEEP_FIRST) != 0), warnings_(warnings) {}

    void parse(std::string_view text) {
        while (!text.empty()) {
            const std::string_view window = text.substr(0, MAX_LINE_LENGTH + 1);
            const std::size_t end = window.find_first_of(LINE_ENDS);
            const std::size_t length = std::min({end, window.size(), MAX_LINE_LENGTH});
            ++lineNumber_;
            parseLine(trimLeft(trimRight(text.substr(0, length))));
            text.remove_prefix(end == std::string_view::npos ? length : length + 1);
        }
        reader_.trailer_ += comment_;
    }

  private:
    void parseLine(std::string_view line) {
        if (isComment(line)) {
            comment_.append(line) += '\n';
        } else if (line.front() == '[') {
            openSection(line.substr(1));
        } else if (!section_) {
            warn("Not in section");
        } else {
            parseVariable(line);
        }
    }

    void openSection(std::string_view rest) {
        // The last character is the closing bracket; what else it may be goes with it.
        if (!rest.empty()) rest.remove_suffix(1);
        section_ = &reader_.section(std::string(rest));
        section_->comment += takeComment();
    }

    void parseVariable(std::string_view line) {
        const std::size_t equals = line.find('=');
        if (equals == std::string_view::npos) return warn("No variable value");
        const std::string name(trimRight(line.substr(0, equals)));
        if (name.empty()) return warn("No variable name");
        const std::string_view value = trimLeft(line.substr(equals + 1));

        const auto [place, isNew] = section_->index.try_emplace(name, section_->variables.size());
        if (isNew) {
            section_->variables.push_back({name, std::string(value), takeComment()});
            return;
        }
        Variable& variable = section_->variables[place->second];
        const std::string comment = takeComment();
        if (keepFirst_) return;
        variable.value = value;
        variable.comment += comment;
    }

    std::string takeComment() {
        std::string comment;
        comment.swap(comment_);
        return comment;
    }

    void warn(const char* what) {
        const bool named = !file_.empty();
        if (warnings_.size() == MAX_WARNINGS) {
            warnings_.push_back(coFormat("Invalid syntax: Ignoring more lines after line %d%s%s%s",
                                         lineNumber_, named ? " of '" : "", file_.c_str(), named ? "'" : ""));
        }
        if (warnings_.size() > MAX_WARNINGS) return;
        warnings_.push_back(coFormat("Invalid syntax: %s. Ignoring line %d%s%s%s", what, lineNumber_,
                                     named ? " of '" : "", file_.c_str(), named ? "'" : ""));
    }

    CoConfigFileReader& reader_;
    const std::string& file_;
    const bool keepFirst_;
    std::vector<std::string>& warnings_;
    Section* section_ = nullptr;
    std::string comment_;  // lines gathered for what comes next
    int lineNumber_ = 0;
};

bool CoConfigFileReader::read(const std::string& file, unsigned flags, std::vector<std::string>* warnings) {
    std::string text;
    lastErrorNumber_ = readFile(file, text);
    if (lastErrorNumber_ != 0) return false;
    readText(text, file, flags, warnings);
    return true;
}

bool CoConfigFileReader::read(std::istream& stream, unsigned flags, std::vector<std::string>* warnings) {
    std::string text;
    lastErrorNumber_ = readAll(
        [&stream](char* buffer, std::size_t size) -> ssize_t {
            stream.read(buffer, static_cast<std::streamsize>(size));
            if (!stream.bad()) return static_cast<ssize_t>(stream.gcount());
            errno = EIO;
            return -1;
        },
        text);
    if (lastErrorNumber_ != 0) return false;
    readText(text, {}, flags, warnings);
    return true;
}

void CoConfigFileReader::readText(const std::string& text, const std::string& file, unsigned flags,
                                  std::vector<std::string>* warnings) {
    std::vector<std::string> gathered;
    Parser(*this, file, flags, gathered).parse(text);
    for (const std::string& warning : gathered) {
        if (warnings) {
            warnings->push_back(warning);
        } else {
            CO_MSG_WARNING("%s", warning.c_str());
        }
    }
}

bool CoConfigFileReader::write(const std::string& file) {
    lastErrorNumber_ = CoAtomicFile::write(file, toText());
    return lastErrorNumber_ == 0;
}

std::string CoConfigFileReader::toText() const {
    std::string text;
    for (const Section& section : sections_) {
        text += section.comment;
        text += '[' + section.name + "]\n";
        for (const Variable& variable : section.variables) {
            text += variable.comment;
            text += variable.name + '=' + variable.value + '\n';
        }
    }
    return text + trailer_;
}

bool CoConfigFileReader::isDefined(const std::string& section, const std::string& key) const {
    return getVariable(section, key) != nullptr;
}

bool CoConfigFileReader::get(const std::string& section, const std::string& key, std::string& out,
                             const std::string& defaultValue) const {
    const Variable* const variable = getVariable(section, key);
    out = variable ? variable->value : defaultValue;
    return variable != nullptr;
}

bool CoConfigFileReader::get(const std::string& section, const std::string& key, int& out,
                             int defaultValue) const {
    const Variable* const variable = getVariable(section, key);
    out = defaultValue;
    return variable && parseNumber(variable->value, out);
}

bool CoConfigFileReader::get(const std::string& section, const std::string& key, unsigned& out,
                             unsigned defaultValue) const {
    const Variable* const variable = getVariable(section, key);
    out = defaultValue;
    return variable && parseNumber(variable->value, out);
}

bool CoConfigFileReader::get(const std::string& section, const std::string& key, bool& out,
                             bool defaultValue) const {
    const Variable* const variable = getVariable(section, key);
    out = defaultValue;
    return variable && parseTruth(variable->value, out);
}

bool CoConfigFileReader::get(const std::string& section, const std::string& key, double& out,
                             double defaultValue) const {
    const Variable* const variable = getVariable(section, key);
    out = defaultValue;
    return variable && parseNumber(variable->value, out);
}

bool CoConfigFileReader::put(const std::string& section, const std::string& key, const std::string& value,
                             const std::string& comment) {
    if (section.find_first_of(LINE_ENDS) != std::string::npos || section.size() + 2 > MAX_LINE_LENGTH ||
        key.size() + 1 + value.size() > MAX_LINE_LENGTH || !readsBackAlike(key) || !readsBackAlike(value) ||
        isComment(key) || key.front() == '[' || key.find('=') != std::string::npos) {
        return false;
    }
    Section& target = this->section(section);
    const auto [place, isNew] = target.index.try_emplace(key, target.variables.size());
    if (isNew) target.variables.push_back({key, {}, {}});
    Variable& variable = target.variables[place->second];
    variable.value = value;
    if (!comment.empty()) variable.comment = asComment(comment);
    return true;
}

bool CoConfigFileReader::put(const std::string& section, const std::string& key, int value,
                             const std::string& comment) {
    return put(section, key, std::to_string(value), comment);
}

bool CoConfigFileReader::put(const std::string& section, const std::string& key, unsigned value,
                             const std::string& comment) {
    return put(section, key, std::to_string(value), comment);
}

bool CoConfigFileReader::put(const std::string& section, const std::string& key, bool value,
                             const std::string& comment) {
    return put(section, key, std::string(value ? TRUE_TEXTS[0] : FALSE_TEXTS[0]), comment);
}

bool CoConfigFileReader::put(const std::string& section, const std::string& key, double value,
                             const std::string& comment) {
    char text[64];  // printf would write the decimal point of the program's locale
    const auto [end, error] = std::to_chars(text, text + sizeof text, value);
    return error == std::errc() && put(section, key, std::string(text, end), comment);
}

const CoConfigFileReader::Section* CoConfigFileReader::getSection(const std::string& name) const {
    const auto found = index_.find(name);
    return found == index_.end() ? nullptr : &sections_[found->second];
}

const CoConfigFileReader::Variable* CoConfigFileReader::getVariable(const std::string& section,
                                                                    const std::string& key) const {
    const Section* const where = getSection(section);
    if (!where) return nullptr;
    const auto found = where->index.find(key);
    return found == where->index.end() ? nullptr : &where->variables[found->second];
}

CoConfigFileReader::Section& CoConfigFileReader::section(const std::string& name) {
    const auto [place, isNew] = index_.try_emplace(name, sections_.size());
    if (isNew) sections_.push_back({name, {}, {}, {}});
    return sections_[place->second];
}

}  // namespace Vantrel
