#include "Output.h"

#include <langinfo.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cstdio>
#include <cstring>
#include <cwchar>

#include "ToolError.h"

namespace {

constexpr int JSON_INDENT = 2;
constexpr std::size_t COLUMN_GAP = 2;
constexpr char REPLACEMENT[] = "\xEF\xBF\xBD";  // U+FFFD

// Text of an ASCII locale is treated as UTF-8 too: the library hands on what it cannot convert.
bool localeIsUtf8() {
    const std::string codeset = nl_langinfo(CODESET);
    return codeset == "UTF-8" || codeset == "ANSI_X3.4-1968";
}

void appendUtf8(std::string& out, unsigned long code) {
    const auto put = [&out](unsigned long byte) { out += static_cast<char>(byte); };
    if (code < 0x80) return put(code);
    if (code < 0x800) {
        put(0xC0 | (code >> 6));
    } else if (code < 0x10000) {
        put(0xE0 | (code >> 12));
        put(0x80 | ((code >> 6) & 0x3F));
    } else {
        put(0xF0 | (code >> 18));
        put(0x80 | ((code >> 12) & 0x3F));
        put(0x80 | ((code >> 6) & 0x3F));
    }
    put(0x80 | (code & 0x3F));
}

std::string localeToUtf8(const char* text) {
    std::string out;
    std::mbstate_t state{};
    std::size_t left = std::strlen(text);
    while (left > 0) {
        wchar_t wide = 0;
        const std::size_t used = std::mbrtowc(&wide, text, left, &state);
        if (used == 0 || used > left) {
            out += REPLACEMENT;
            state = std::mbstate_t{};
            ++text;
            --left;
            continue;
        }
        appendUtf8(out, static_cast<unsigned long>(wide));
        text += used;
        left -= used;
    }
    return out;
}

std::string printable(const std::string& text) {
    std::string out;
    out.reserve(text.size());
    for (const char c : text) {
        const auto byte = static_cast<unsigned char>(c);
        if (byte >= 0x20 && byte != 0x7F) {
            out += c;
        } else if (c == '\n') {
            out += "\\n";
        } else if (c == '\t') {
            out += "\\t";
        } else {
            char hex[5];
            std::snprintf(hex, sizeof hex, "\\x%02X", static_cast<unsigned>(byte));
            out += hex;
        }
    }
    return out;
}

// Columns that a text takes on a terminal: one for each character of UTF-8.
std::size_t columns(const std::string& text) {
    const std::string shown = printable(text);
    return static_cast<std::size_t>(std::count_if(shown.begin(), shown.end(), [](char byte) {
        return (static_cast<unsigned char>(byte) & 0xC0) != 0x80;
    }));
}

std::string plain(const Json& value) {
    if (value.is_string()) return value.get<std::string>();
    return value.is_null() ? "-" : value.dump();
}

}  // namespace

std::string Output::text(const char* text) const {
    return json_ && !localeIsUtf8() ? localeToUtf8(text) : std::string(text);
}

void Output::bytes(const char* data, std::size_t size) const {
    if (std::fwrite(data, 1, size, stdout) == size && std::fflush(stdout) == 0) return;
    throw ToolError(std::string("cannot write to standard output: ") + std::strerror(errno));
}

void Output::line(const std::string& text) const {
    const std::string shown = printable(text) + "\n";
    bytes(shown.data(), shown.size());
}

void Output::document(const Json& json) const {
    const std::string text = json.dump(JSON_INDENT, ' ', false, Json::error_handler_t::replace) + "\n";
    bytes(text.data(), text.size());
}

void Output::documentLine(const Json& json) const {
    const std::string text = json.dump(-1, ' ', false, Json::error_handler_t::replace) + "\n";
    bytes(text.data(), text.size());
}

void Output::record(const Json& object) const {
    if (json_) return document(object);
    recordLines(object, "");
}

void Output::recordLines(const Json& object, const std::string& indent) const {
    for (const auto& item : object.items()) {
        if (item.value().is_object()) {
            line(indent + item.key() + ":");
            recordLines(item.value(), indent + "  ");
        } else {
            line(indent + item.key() + ": " + plain(item.value()));
        }
    }
}

void Output::list(const Json& array) const {
    if (json_) return document(array);
    for (const Json& value : array) line(plain(value));
}

void Output::table(const std::vector<std::vector<std::string>>& rows) const {
    std::vector<std::size_t> widths;
    for (const auto& row : rows) {
        widths.resize(row.size());
        for (std::size_t i = 0; i < row.size(); ++i) widths[i] = std::max(widths[i], columns(row[i]));
    }
    for (const auto& row : rows) {
        std::string text;
        for (std::size_t i = 0; i < row.size(); ++i) {
            text += row[i];
            if (i + 1 < row.size()) text.append(widths[i] - columns(row[i]) + COLUMN_GAP, ' ');
        }
        line(text);
    }
}

void Output::done() const {
    if (json_) document({{"ok", true}});
}

double shortest(float value) {
    char digits[32];
    const std::to_chars_result end = std::to_chars(digits, digits + sizeof digits, value);
    double result = value;
    std::from_chars(digits, end.ptr, result);
    return result;
}
