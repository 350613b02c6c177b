#include "VantrelTranslationCodec.h"

#include <charconv>
#include <utility>

#include "rcAttrList.h"
#include "rcAttrStream.h"
#include "rcParam.h"

using Vantrel::rcAttrStream;

namespace {

constexpr char QUOTE = '"';
constexpr char ESCAPE = '\\';
constexpr char PATH_SEPARATOR = ',';

constexpr const char* NUM_GROUPS = "numGroups";
constexpr const char* NUM_HOST_TRANSLATIONS = "numHostTranslations";
constexpr const char* NUM_OS_TYPE_TRANSLATIONS = "numOsTypeTranslations";

VantrelOS::OsType knownOsType(long number) {
    const bool known = number > VantrelOS::Unknown && number <= VantrelOS::MacOSX;
    return known ? static_cast<VantrelOS::OsType>(number) : VantrelOS::Unknown;
}

/// Applications take texts as zero-terminated ones: a NUL would make another path or host of this one.
bool hasNul(std::string_view text) {
    return text.find('\0') != std::string_view::npos;
}

/// Takes a request or a list of paths apart from the left. After a false nothing more can be read.
class Reader {
  public:
    explicit Reader(std::string_view text) : rest_(text) {}

    bool atEnd() const { return rest_.empty(); }

    bool take(char wanted) {
        if (rest_.empty() || rest_.front() != wanted) return false;
        rest_.remove_prefix(1);
        return true;
    }

    bool takeQuoted(std::string& text) {
        text.clear();
        if (!take(QUOTE)) return false;
        for (;;) {
            const std::size_t mark = rest_.find_first_of("\"\\");
            if (mark == std::string_view::npos) return false;
            text.append(rest_.substr(0, mark));
            const bool escaped = rest_[mark] == ESCAPE;
            rest_.remove_prefix(mark + 1);
            if (!escaped) return true;
            if (rest_.empty()) return false;
            text += rest_.front();
            rest_.remove_prefix(1);
        }
    }

    bool takeOsType(VantrelOS::OsType& type) {
        int number = 0;
        const char* const end = rest_.data() + rest_.size();
        const auto parsed = std::from_chars(rest_.data(), end, number);
        if (parsed.ec != std::errc()) return false;
        rest_.remove_prefix(static_cast<std::size_t>(parsed.ptr - rest_.data()));
        type = knownOsType(number);
        return true;
    }

    /// Takes all that is left.
    bool takePaths(std::size_t maxPaths, std::vector<std::string>& paths) {
        if (atEnd()) return true;
        std::string path;
        do {
            if (paths.size() == maxPaths || !takeQuoted(path)) return false;
            if (hasNul(path)) return false;
            paths.push_back(path);
        } while (take(PATH_SEPARATOR));
        return atEnd();
    }

  private:
    std::string_view rest_;
};

/// Decimal digits as they are written, without a sign or zeros in front.
bool readNumber(std::string_view text, std::size_t& number) {
    const char* const end = text.data() + text.size();
    const auto parsed = std::from_chars(text.data(), end, number);
    return parsed.ec == std::errc() && parsed.ptr == end && (text.front() != '0' || text.size() == 1);
}

/// Finds the entries of a table in one pass, whatever their order. False when the table is malformed.
bool findEntries(std::string_view text, const char* countName, std::vector<std::string_view>& entries) {
    rcAttrStream::ConstIterator all(text);
    std::string_view countText;
    if (!all.find(countName, countText)) return false;
    std::size_t count = 0;
    // Every entry takes more than one byte: more cannot be there, whatever the count says.
    if (!readNumber(countText, count) || count > text.size()) return false;
    if (count > VantrelTranslationCodec::MAX_TABLE_ENTRIES) return false;
    entries.assign(count, {});
    std::size_t missing = entries.size();
    std::string_view name;
    std::string_view value;
    for (all.reset(text); missing > 0 && all.next(name, value);) {
        std::size_t index = 0;
        if (!readNumber(name, index) || index >= entries.size()) continue;
        if (entries[index].data()) continue;
        entries[index] = value;
        --missing;
    }
    return missing == 0;
}

/// The fields of one entry, usually asked for in the order in which they stand.
class Fields {
  public:
    explicit Fields(std::string_view entry) : fields_(entry) {}

    bool get(const char* name, std::string& text) {
        std::string_view value;
        if (!fields_.find(name, value) || hasNul(value)) return false;
        text = value;
        return true;
    }
    bool get(const char* name, VantrelOS::OsType& type) {
        std::string_view value;
        if (!fields_.find(name, value)) return false;
        type = knownOsType(Vantrel::rcAttrList_private::decimalFromString(value));
        return true;
    }
    /// At most `left` texts, by which it reduces `left`.
    bool get(const char* name, std::vector<std::string>& texts, std::size_t& left) {
        std::string_view value;
        if (!fields_.find(name, value)) return false;
        if (value.empty()) return true;
        Vantrel::rcAttrList_private::ListReader list(value);
        std::size_t count = 0;
        if (!list.readCount(count) || count > left) return false;
        left -= count;
        for (std::string_view text; count > 0; --count) {
            if (!list.readElement(text) || hasNul(text)) return false;
            texts.emplace_back(text);
        }
        return true;
    }

  private:
    rcAttrStream::ConstIterator fields_;
};

template <typename Entry, typename Read>
bool parseTable(std::string_view text, const char* countName, std::vector<Entry>& table, Read read) {
    std::vector<std::string_view> texts;
    if (!findEntries(text, countName, texts)) return false;
    std::vector<Entry> entries(texts.size());
    for (std::size_t i = 0; i < texts.size(); ++i) {
        Fields fields(texts[i]);
        if (!read(fields, entries[i])) return false;
    }
    table = std::move(entries);
    return true;
}

void addField(rcAttrStream& fields, const char* name, const std::string& text) {
    fields.addStringValue(name, std::string_view(text));
}

template <typename Entry, typename Write>
std::string formatTable(const char* countName, const std::vector<Entry>& table, Write write) {
    rcAttrStream stream;
    stream.addIntValue(countName, static_cast<int>(table.size()));
    for (std::size_t i = 0; i < table.size(); ++i) {
        rcAttrStream fields;
        write(fields, table[i]);
        stream.addStringValue(std::to_string(i).c_str(), std::string_view(fields.text()));
    }
    return stream.text();
}

}  // namespace

bool VantrelTranslationCodec::isValidHost(std::string_view name) {
    for (const char c : name) {
        const auto byte = static_cast<unsigned char>(c);
        if (byte < ' ' || byte == 0x7F) return false;
    }
    return !name.empty();
}

std::string VantrelTranslationCodec::formatRequest(const VantrelTranslationRequest& request) {
    const auto head = [](const std::string& host, VantrelOS::OsType type) {
        return Vantrel::rcParamStringToEscapedString(std::string_view(host)) + " " +
               std::to_string(static_cast<int>(type)) + " ";
    };
    return head(request.srcHost, request.srcType) + head(request.dstHost, request.dstType) +
           formatPaths(request.paths);
}

bool VantrelTranslationCodec::parseRequest(std::string_view text, std::size_t maxPaths,
                                           VantrelTranslationRequest& request, std::string& error) {
    Reader reader(text);
    VantrelTranslationRequest parsed;
    const auto takeHost = [&reader](std::string& host) {
        return reader.takeQuoted(host) && isValidHost(host) && reader.take(' ');
    };
    const auto takeType = [&reader](VantrelOS::OsType& type) {
        return reader.takeOsType(type) && reader.take(' ');
    };
    const char* const wrong = !takeHost(parsed.srcHost)                   ? "source host"
                              : !takeType(parsed.srcType)                 ? "source OS type"
                              : !takeHost(parsed.dstHost)                 ? "destination host"
                              : !takeType(parsed.dstType)                 ? "destination OS type"
                              : !reader.takePaths(maxPaths, parsed.paths) ? "paths"
                                                                          : nullptr;
    if (wrong) {
        error = std::string("Invalid TranslatePaths parameter: ") + wrong;
        return false;
    }
    request = std::move(parsed);
    return true;
}

std::string VantrelTranslationCodec::formatPaths(const std::vector<std::string>& paths) {
    std::string text;
    for (const std::string& path : paths) {
        if (&path != &paths.front()) text += PATH_SEPARATOR;
        text += Vantrel::rcParamStringToEscapedString(std::string_view(path));
    }
    return text;
}

bool VantrelTranslationCodec::parsePaths(std::string_view text, std::size_t maxPaths,
                                         std::vector<std::string>& paths) {
    std::vector<std::string> parsed;
    if (!Reader(text).takePaths(maxPaths, parsed)) return false;
    paths = std::move(parsed);
    return true;
}

std::string VantrelTranslationCodec::formatGroups(const std::vector<VantrelPathTranslationGroup>& groups) {
    return formatTable(
        NUM_GROUPS, groups, [](rcAttrStream& fields, const VantrelPathTranslationGroup& group) {
            addField(fields, "name", group.name);
            fields.addIntValue("osType", group.osType);
            addField(fields, "hosts", Vantrel::rcAttrList<std::string>(group.hosts).toString());
        });
}

bool VantrelTranslationCodec::parseGroups(std::string_view text,
                                          std::vector<VantrelPathTranslationGroup>& groups) {
    std::size_t hostsLeft = MAX_TABLE_ENTRIES;
    return parseTable(text, NUM_GROUPS, groups,
                      [&hostsLeft](Fields& fields, VantrelPathTranslationGroup& group) {
                          return fields.get("name", group.name) && fields.get("osType", group.osType) &&
                                 fields.get("hosts", group.hosts, hostsLeft);
                      });
}

std::string VantrelTranslationCodec::formatHostTranslations(
    const std::vector<VantrelHostTranslation>& translations) {
    return formatTable(NUM_HOST_TRANSLATIONS, translations,
                       [](rcAttrStream& fields, const VantrelHostTranslation& translation) {
                           addField(fields, "srcHost", translation.srcHost);
                           addField(fields, "srcPath", translation.srcPath);
                           addField(fields, "dstHost", translation.dstHost);
                           addField(fields, "dstPath", translation.dstPath);
                       });
}

bool VantrelTranslationCodec::parseHostTranslations(std::string_view text,
                                                    std::vector<VantrelHostTranslation>& translations) {
    return parseTable(
        text, NUM_HOST_TRANSLATIONS, translations, [](Fields& fields, VantrelHostTranslation& translation) {
            return fields.get("srcHost", translation.srcHost) && fields.get("srcPath", translation.srcPath) &&
                   fields.get("dstHost", translation.dstHost) && fields.get("dstPath", translation.dstPath);
        });
}

std::string VantrelTranslationCodec::formatOsTypeTranslations(
    const std::vector<VantrelOsTypeTranslation>& translations) {
    return formatTable(NUM_OS_TYPE_TRANSLATIONS, translations,
                       [](rcAttrStream& fields, const VantrelOsTypeTranslation& translation) {
                           fields.addIntValue("srcType", translation.srcType);
                           addField(fields, "srcPath", translation.srcPath);
                           fields.addIntValue("dstType", translation.dstType);
                           addField(fields, "dstPath", translation.dstPath);
                       });
}

bool VantrelTranslationCodec::parseOsTypeTranslations(std::string_view text,
                                                      std::vector<VantrelOsTypeTranslation>& translations) {
    return parseTable(text, NUM_OS_TYPE_TRANSLATIONS, translations,
                      [](Fields& fields, VantrelOsTypeTranslation& translation) {
                          return fields.get("srcType", translation.srcType) &&
                                 fields.get("srcPath", translation.srcPath) &&
                                 fields.get("dstType", translation.dstType) &&
                                 fields.get("dstPath", translation.dstPath);
                      });
}
