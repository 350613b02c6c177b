#include "VantrelNodeCodec.h"

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdlib>
#include <utility>

#include "VantrelBaseInterface.h"
#include "rcAttrList.h"
#include "rcAttrStream.h"
#include "rcParam.h"

using NodeInfoList = VantrelNodeInterface::NodeInfoList;

namespace {

const char* const INVALID_CHILDREN = "Invalid children list";
const char* const CHILDREN_TOO_LONG = "Children list too long";

bool take(std::string reply, NodeInfoList& children, std::string& error) {
    if (reply.size() > NodeInfoList::MAX_REPLY_BYTES) {
        children.clear();
        error = CHILDREN_TOO_LONG;
        return false;
    }
    children.reset(std::move(reply));
    return true;
}

std::string makeElement(std::string_view text, const std::string*) {
    return std::string(text);
}

VantrelFrameId makeElement(std::string_view text, const VantrelFrameId*) {
    return VantrelFrameId(VantrelStr(text.data(), static_cast<unsigned>(text.size())));
}

template <typename Element>
void cutAtCommas(std::string_view reply, std::vector<Element>& elements) {
    elements.clear();
    for (const std::string_view token : Vantrel::coTokens(reply, ",")) {
        elements.push_back(makeElement(token, static_cast<const Element*>(nullptr)));
    }
}

template <typename Element>
bool readList(std::string_view reply, std::vector<Element>& elements) {
    elements.clear();
    if (reply.empty()) return true;
    Vantrel::rcAttrList_private::ListReader reader(reply);
    std::size_t count = 0;
    if (!reader.readCount(count)) return false;
    elements.reserve(count);  // the reader has found the bytes for so many
    for (std::string_view text; count > 0; --count) {
        if (!reader.readElement(text)) return false;
        elements.push_back(makeElement(text, static_cast<const Element*>(nullptr)));
    }
    return true;
}

enum class Scan { Number, Nothing, OutOfRange };

Scan scanInt(const char*& at, int& number) {
    char* end = nullptr;
    errno = 0;
    const long value = std::strtol(at, &end, 10);
    if (end == at) return Scan::Nothing;
    at = end;
    const bool fits = errno != ERANGE && value >= INT_MIN && value <= INT_MAX;
    number = fits ? static_cast<int>(value) : value < 0 ? INT_MIN : INT_MAX;
    return fits ? Scan::Number : Scan::OutOfRange;
}

}  // namespace

std::string VantrelNodeCodec::plainWord(std::string_view text) {
    return text.find(' ') == std::string_view::npos ? std::string(text)
                                                    : Vantrel::rcParamStringToEscapedString(text);
}

bool VantrelNodeCodec::parseChildrenEx(std::string reply, NodeInfoList& children, std::string& error) {
    if (!take(std::move(reply), children, error)) return false;
    VantrelBaseInterface::Converter toLocale(VantrelBaseInterface::UTF8, nullptr);
    std::string buffer;
    Vantrel::rcAttrStream::ConstIterator entries{std::string_view(children.reply())};
    Vantrel::rcAttrStream::ConstIterator fields;
    for (std::string_view key, child; entries.next(key, child);) {
        fields.reset(child);
        std::string_view id;
        std::string_view name;
        if (!fields.find("Id", id) || !fields.find("Displ", name)) {
            error = INVALID_CHILDREN;
            return false;
        }
        children.add(id, toLocale.convert(name, buffer));
    }
    return true;
}

bool VantrelNodeCodec::parseChildren(std::string reply, NodeInfoList& children, std::string& error) {
    if (!take(std::move(reply), children, error)) return false;
    const std::string_view text = children.reply();
    std::size_t start = 0;
    for (;;) {
        const std::size_t comma = text.find(',', start);
        if (comma == std::string_view::npos) return true;
        const std::size_t end = std::min(text.find(',', comma + 1), text.size());
        children.add(text.substr(start, comma - start), text.substr(comma + 1, end - comma - 1));
        if (end == text.size()) return true;
        start = end + 1;
    }
}

void VantrelNodeCodec::parseCommaList(std::string_view reply, std::vector<std::string>& texts) {
    cutAtCommas(reply, texts);
}

void VantrelNodeCodec::parseCommaList(std::string_view reply, std::vector<VantrelFrameId>& frames) {
    cutAtCommas(reply, frames);
}

std::string VantrelNodeCodec::joinWithCommas(const std::vector<std::string>& texts) {
    std::string joined;
    for (const std::string& text : texts) {
        if (&text != &texts.front()) joined += ',';
        joined += text;
    }
    return joined;
}

bool VantrelNodeCodec::parseList(std::string_view reply, std::vector<std::string>& texts) {
    return readList(reply, texts);
}

bool VantrelNodeCodec::parseList(std::string_view reply, std::vector<VantrelFrameId>& frames) {
    return readList(reply, frames);
}

bool VantrelNodeCodec::parseNumberPair(const std::string& reply, int& first, int& second) {
    const char* at = reply.c_str();
    int a = 0;
    int b = 0;
    if (scanInt(at, a) != Scan::Number || scanInt(at, b) == Scan::OutOfRange) return false;
    first = a;
    second = b;
    return true;
}

int VantrelNodeCodec::parseNumber(const std::string& reply) {
    const char* at = reply.c_str();
    int number = 0;
    scanInt(at, number);
    return number;
}
