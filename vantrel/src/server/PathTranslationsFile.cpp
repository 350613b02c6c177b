#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <initializer_list>
#include <nlohmann/json.hpp>

#include "CoException.h"
#include "CoMsg.h"
#include "PathTranslations.h"
#include "ServerLimits.h"
#include "StorageFile.h"

namespace vantreld {

using nlohmann::json;
using Vantrel::CoException;
using Vantrel::coFormat;

namespace {

/// One object of the file, and the words that say where it stands.
class Item {
  public:
    Item(const std::string& file, std::string place, const json& value)
        : file_(file), place_(std::move(place)), value_(value) {
        if (!value_.is_object()) fail("is not an object");
    }

    [[noreturn]] void fail(const std::string& what) const {
        throw CoException("Invalid path translations '" + file_ + "': " + place_ + " " + what);
    }
    [[noreturn]] void failAt(const char* key, const char* what) const {
        fail(coFormat("has a '%s' that %s.", key, what));
    }

    /// A key that is not read is a mistyped one.
    void allowOnly(std::initializer_list<const char*> keys) const {
        for (const auto& member : value_.items()) {
            const bool known =
                std::any_of(keys.begin(), keys.end(), [&](const char* key) { return member.key() == key; });
            if (!known) fail("has an unknown key '" + member.key().substr(0, MAX_QUOTED) + "'.");
        }
    }

    std::string text(const char* key) const { return checkedText(key, member(key)); }

    std::string host(const char* key) const {
        std::string name = text(key);
        if (!VantrelTranslationCodec::isValidHost(name)) failAt(key, "cannot be the name of a host");
        return name;
    }

    VantrelOS::OsType osType(const char* key) const {
        const VantrelOS::OsType type = VantrelOS::strToOsType(text(key).c_str());
        if (type == VantrelOS::Unknown) failAt(key, "is not Linux, MacOSX, WindowsNT or Irix");
        return type;
    }

    std::vector<std::string> hosts(const char* key) const {
        const json& list = member(key);
        if (!list.is_array()) failAt(key, "is not a list");
        std::vector<std::string> names;
        for (const json& entry : list) {
            names.push_back(checkedText(key, entry));
            if (!VantrelTranslationCodec::isValidHost(names.back()))
                failAt(key, "holds a text that cannot be the name of a host");
        }
        return names;
    }

    /// Reads every object of a list that may be absent.
    template <typename Entry, typename Read>
    void entries(const char* key, std::vector<Entry>& table, Read read) const {
        const auto found = value_.find(key);
        if (found == value_.end()) return;
        if (!found->is_array()) failAt(key, "is not a list");
        if (found->size() > MAX_TRANSLATIONS)
            fail(
                coFormat("has %zu '%s', but no more than %zu can be.", found->size(), key, MAX_TRANSLATIONS));
        for (std::size_t i = 0; i < found->size(); ++i)
            table.push_back(read(Item(file_, coFormat("%s[%zu]", key, i), (*found)[i])));
    }

  private:
    static constexpr std::size_t MAX_QUOTED = 64;

    const json& member(const char* key) const {
        const auto found = value_.find(key);
        if (found == value_.end()) fail(coFormat("has no '%s'.", key));
        return *found;
    }

    std::string checkedText(const char* key, const json& value) const {
        const auto* text = value.get_ptr<const std::string*>();
        if (!text) failAt(key, "is not a text");
        if (text->empty()) failAt(key, "is empty");
        if (text->size() > MAX_TRANSLATION_TEXT_BYTES) failAt(key, "is too long");
        if (text->find('\0') != std::string::npos) failAt(key, "holds a NUL");
        return *text;
    }

    const std::string& file_;
    const std::string place_;
    const json& value_;
};

VantrelPathTranslationGroup readGroup(const Item& item) {
    item.allowOnly({"name", "osType", "hosts"});
    return {item.host("name"), item.osType("osType"), item.hosts("hosts")};
}

VantrelHostTranslation readHostTranslation(const Item& item) {
    item.allowOnly({"srcHost", "srcPath", "dstHost", "dstPath"});
    return {item.host("srcHost"), item.text("srcPath"), item.host("dstHost"), item.text("dstPath")};
}

VantrelOsTypeTranslation readOsTypeTranslation(const Item& item) {
    item.allowOnly({"srcType", "srcPath", "dstType", "dstPath"});
    return {item.osType("srcType"), item.text("srcPath"), item.osType("dstType"), item.text("dstPath")};
}

/// Line and column of a place in the file, as an editor shows them.
std::string placeOf(const std::string& content, std::size_t byte) {
    const std::string_view before = std::string_view(content).substr(0, byte > 0 ? byte - 1 : 0);
    const auto lines = std::count(before.begin(), before.end(), '\n');
    const std::size_t lineStart = before.rfind('\n') + 1;  // 0 when there is none
    return coFormat("line %ld, column %zu", static_cast<long>(lines) + 1, before.size() - lineStart + 1);
}

}  // namespace

PathTranslations PathTranslations::parse(const std::string& content, const std::string& path) {
    json document;
    try {
        document = json::parse(content);
    } catch (const json::parse_error& error) {
        throw CoException("Invalid path translations '" + path + "': no JSON from " +
                          placeOf(content, error.byte) + " on.");
    }
    const Item all(path, "the document", document);
    all.allowOnly({"groups", "hostTranslations", "osTypeTranslations"});
    Tables tables;
    all.entries("groups", tables.groups, readGroup);
    all.entries("hostTranslations", tables.hosts, readHostTranslation);
    all.entries("osTypeTranslations", tables.osTypes, readOsTypeTranslation);
    return PathTranslations(std::move(tables));
}

PathTranslations PathTranslations::load(const std::string& path) {
    if (::access(path.c_str(), F_OK) != 0 && errno == ENOENT) return {};
    const ReadableFile file = openForReading(path);
    if (file.size > MAX_TRANSLATION_FILE_BYTES)
        throw CoException(coFormat("Invalid path translations '%s': %zu bytes, but no more than %zu can be.",
                                   path.c_str(), file.size, MAX_TRANSLATION_FILE_BYTES));
    std::string content(file.size, '\0');
    std::size_t got = 0;
    while (got < content.size()) {
        const ssize_t count = ::read(file.fd.get(), content.data() + got, content.size() - got);
        if (count < 0 && errno == EINTR) continue;
        if (count < 0) failWithErrno("read", path);
        if (count == 0) break;
        got += static_cast<std::size_t>(count);
    }
    content.resize(got);
    return parse(content, path);
}

}  // namespace vantreld
