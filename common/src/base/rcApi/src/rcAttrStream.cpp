#include "rcAttrStream.h"

#include <algorithm>
#include <charconv>
#include <climits>
#include <cstring>
#include <functional>

#include "CoAssert.h"
#include "CoMsg.h"
#include "rcAttrList.h"

namespace Vantrel {

namespace {

using rcAttrList_private::decimalFromString;
using rcAttrList_private::fromString;
using rcAttrList_private::toString;

constexpr char BLANK = ' ';
// Lengths are written and read as signed 32-bit numbers.
constexpr std::size_t MAX_TEXT_BYTES = INT_MAX;
// Up to this many entries, searching the text is cheaper than an index.
constexpr unsigned MAX_ENTRIES_WITHOUT_INDEX = 12;
constexpr std::size_t SHORT_NAME_BYTES = 16;
// Room that the first entry makes for those that follow: most streams that are built need no more.
constexpr std::size_t FIRST_CAPACITY = 128;
constexpr int MIN_PRETTY_VALUE_LENGTH = 3;
constexpr const char* PARSE_ERROR = "Error parsing attribute stream.";
constexpr std::string_view ELLIPSIS = "...'";

int printLength(std::string_view text) {
    return static_cast<int>(std::min(text.size(), MAX_TEXT_BYTES));
}

std::string_view upToNul(std::string_view text) {
    return text.substr(0, text.find('\0'));
}

// Reads the decimal length at `position`, which then stands behind the blank that ends it.
bool readLength(std::string_view text, std::size_t& position, std::size_t& length) {
    std::size_t at = position;
    length = 0;
    for (; at < text.size() && text[at] >= '0' && text[at] <= '9'; ++at) {
        length = length * 10 + static_cast<std::size_t>(text[at] - '0');
        if (length > MAX_TEXT_BYTES) return false;
    }
    if (at == position || at == text.size() || text[at] != BLANK) return false;
    position = at + 1;
    return true;
}

// Names are a few bytes long: a call of memchr would cost more than it saves.
std::size_t findNameEnd(std::string_view text, std::size_t at) {
    const std::size_t shortEnd = std::min(text.size(), at + SHORT_NAME_BYTES);
    for (; at < shortEnd; ++at) {
        if (text[at] == BLANK) return at;
    }
    return text.find(BLANK, at);
}

unsigned long markOf(std::string_view name) {
    unsigned long hash = 0;
    for (const char byte : name) hash = hash * 31 + static_cast<unsigned char>(byte);
    return 1UL << ((hash ^ hash >> 6) & 63);
}

bool liesWithin(const std::string& text, std::string_view part) {
    const std::less<const char*> before;  // ordered for unrelated pointers too
    return !before(part.data(), text.data()) && before(part.data(), text.data() + text.size());
}

}  // namespace

// One entry of the text, removed ones included.
struct rcAttrStream::ConstIterator::Entry {
    std::size_t start = 0;
    std::string_view name;  ///< empty for a removed entry
    std::string_view value;
    bool valueWasCut = false;
};

void rcAttrStream::ConstIterator::reset(const rcAttrStream& stream) {
    reset(std::string_view(stream.text_));
}

void rcAttrStream::ConstIterator::reset(std::string_view text) {
    text_ = text.substr(0, UINT_MAX);  // positions are unsigned
    position_ = 0;
}

bool rcAttrStream::ConstIterator::step(Entry& entry) {
    const std::size_t nameEnd = findNameEnd(text_, position_);
    if (nameEnd == std::string_view::npos) return false;
    // A removed entry's name is as many blanks as it had bytes: they follow the empty name.
    std::size_t at = nameEnd + 1;
    while (at < text_.size() && text_[at] == BLANK) ++at;
    std::size_t length = 0;
    if (!readLength(text_, at, length)) {
        CO_MSG_ERROR("%s", PARSE_ERROR);
        return false;
    }
    entry.start = position_;
    entry.name = text_.substr(position_, nameEnd - position_);
    entry.value = text_.substr(at, length);
    entry.valueWasCut = entry.value.size() != length;
    position_ = at + entry.value.size();
    return true;
}

bool rcAttrStream::ConstIterator::next(std::string_view& name, std::string_view& value) {
    Entry entry;
    do {
        if (!step(entry)) return false;
    } while (entry.name.empty());
    name = entry.name;
    value = entry.value;
    return true;
}

unsigned rcAttrStream::ConstIterator::offsetOf(std::string_view part) const {
    return static_cast<unsigned>(part.data() - text_.data());
}

bool rcAttrStream::ConstIterator::next(unsigned& nameStart, unsigned& nameLength, unsigned& valueStart,
                                       unsigned& valueLength) {
    std::string_view name;
    std::string_view value;
    if (!next(name, value)) return false;
    nameStart = offsetOf(name);
    nameLength = static_cast<unsigned>(name.size());
    valueStart = offsetOf(value);
    valueLength = static_cast<unsigned>(value.size());
    return true;
}

bool rcAttrStream::ConstIterator::find(const char* name, std::string_view& value) {
    return name && findName(name, value);
}

bool rcAttrStream::ConstIterator::findName(std::string_view wanted, std::string_view& value) {
    const std::size_t start = position_;
    std::string_view candidate;
    std::string_view found;
    bool matches = false;
    while (!matches && next(candidate, found)) matches = candidate == wanted;
    if (!matches) {
        position_ = 0;
        while (!matches && position_ < start && next(candidate, found)) matches = candidate == wanted;
    }
    if (matches) {
        value = found;
    } else {
        position_ = start;
    }
    return matches;
}

bool rcAttrStream::ConstIterator::find(const char* name, unsigned& valueStart, unsigned& valueLength) {
    std::string_view value;
    if (!find(name, value)) return false;
    valueStart = offsetOf(value);
    valueLength = static_cast<unsigned>(value.size());
    return true;
}

unsigned rcAttrStream::ConstIterator::getSize() const {
    ConstIterator fromStart(text_);
    std::string_view name;
    std::string_view value;
    unsigned size = 0;
    while (fromStart.next(name, value)) ++size;
    return size;
}

void rcAttrStream::Iterator::remove(const char* name) {
    if (!CO_ASSERT(name)) return;
    if (stream_.removeEntry(name)) reset(stream_);
}

void rcAttrStream::addStringValue(const char* name, const char* value) {
    if (!CO_ASSERT(value)) return;
    addStringValue(name, std::string_view(value));
}

void rcAttrStream::addStringValue(const char* name, std::string_view value) {
    if (!CO_ASSERT(name && *name)) return;
    if (std::strchr(name, BLANK)) {
        CO_MSG_ERROR("Illegal character: '%c' in attribute '%s'.", BLANK, name);
        CO_ASSERT_NAMED(false, "name without blank");
        return;
    }
    const std::string_view bytes = upToNul(value);
    if (liesWithin(text_, name) || liesWithin(text_, bytes)) {
        add(std::string(name), std::string(bytes));  // appending may move the text away under them
    } else {
        add(name, bytes);
    }
}

void rcAttrStream::add(std::string_view name, std::string_view value) {
    char length[24] = {BLANK};
    char* lengthEnd = std::to_chars(length + 1, length + sizeof length, value.size()).ptr;
    *lengthEnd++ = BLANK;
    const std::size_t needed = name.size() + static_cast<std::size_t>(lengthEnd - length) + value.size();
    if (!CO_ASSERT(needed <= MAX_TEXT_BYTES && text_.size() <= MAX_TEXT_BYTES - needed)) return;

    const unsigned long mark = markOf(name);
    if (namesMark_ & mark) removeEntry(name);
    namesMark_ |= mark;
    const std::size_t start = text_.size();
    if (text_.capacity() - start < needed)
        text_.reserve(std::max({start + needed, 2 * text_.capacity(), FIRST_CAPACITY}));
    text_.append(name).append(length, lengthEnd).append(value);
    if (index_.isActive()) index_.insert(name, start);
    cursor_ = 0;
}

void rcAttrStream::addIntValue(const char* name, int value) {
    addStringValue(name, toString(value));
}

void rcAttrStream::addUInt32Value(const char* name, unsigned value) {
    addStringValue(name, toString(value));
}

void rcAttrStream::addUInt64Value(const char* name, unsigned long value) {
    addStringValue(name, toString(value));
}

void rcAttrStream::addBoolValue(const char* name, bool value) {
    addStringValue(name, toString(value));
}

void rcAttrStream::addFloatValue(const char* name, float value) {
    addStringValue(name, toString(value));
}

// Blanks the name of the first entry that has it; true when there was one.
bool rcAttrStream::removeEntry(std::string_view name) {
    if (name.empty()) return false;  // that of the entries removed already
    std::size_t start = 0;
    bool found = false;
    if (index_.isActive()) {
        found = index_.take(text_, name, start);
    } else {
        ConstIterator iterator(*this);
        ConstIterator::Entry entry;
        unsigned passed = 0;
        for (; !found && iterator.step(entry); ++passed) found = entry.name == name;
        start = entry.start;
        if (passed > MAX_ENTRIES_WITHOUT_INDEX) indexNames();
        if (found && index_.isActive()) index_.take(text_, name, start);
    }
    if (!found) return false;
    text_.replace(start, name.size(), name.size(), BLANK);
    cursor_ = 0;
    return true;
}

// Text that an append would not simply continue stays without an index, so that each search reads all of it:
// text that ends within an entry, is malformed, or holds a name twice.
void rcAttrStream::indexNames() {
    index_.start();
    ConstIterator iterator(*this);
    ConstIterator::Entry entry;
    bool indexable = true;
    std::size_t earlier = 0;
    while (indexable && iterator.step(entry)) {
        indexable = !entry.valueWasCut;
        if (entry.name.empty()) continue;
        indexable = indexable && !index_.find(text_, entry.name, earlier);
        index_.insert(entry.name, entry.start);
    }
    if (!indexable || iterator.position_ != text_.size()) index_.clear();
}

bool rcAttrStream::find(const char* name, std::string_view& value) const {
    ConstIterator iterator(*this);
    iterator.position_ = cursor_;
    const bool found = iterator.find(name, value);
    cursor_ = iterator.position_;
    return found;
}

template <typename T>
bool rcAttrStream::getConverted(const char* name, T& value) const {
    std::string_view text;
    if (!find(name, text)) return false;
    fromString(text, value);
    return true;
}

bool rcAttrStream::getStringValue(const char* name, std::string_view& value) const {
    return find(name, value);
}

bool rcAttrStream::getStringValue(const char* name, std::string& value) const {
    return getConverted(name, value);
}

bool rcAttrStream::getStringValue(const char* name, char* buffer, unsigned size) const {
    std::string_view text;
    if (!find(name, text)) return false;
    if (size == 0) return true;
    if (!CO_ASSERT(buffer)) return false;
    const std::size_t length = std::min<std::size_t>(size - 1, text.size());
    std::copy_n(text.data(), length, buffer);
    buffer[length] = '\0';
    return true;
}

bool rcAttrStream::getIntValue(const char* name, int& value) const {
    return getConverted(name, value);
}

bool rcAttrStream::getUIntValue(const char* name, unsigned& value) const {
    std::string_view text;
    if (!find(name, text)) return false;
    value = static_cast<unsigned>(decimalFromString(text));
    return true;
}

bool rcAttrStream::getUInt32Value(const char* name, unsigned& value) const {
    return getConverted(name, value);
}

bool rcAttrStream::getUInt64Value(const char* name, unsigned long& value) const {
    return getConverted(name, value);
}

bool rcAttrStream::getUCharValue(const char* name, unsigned char& value) const {
    std::string_view text;
    if (!find(name, text)) return false;
    value = static_cast<unsigned char>(decimalFromString(text));
    return true;
}

bool rcAttrStream::getBoolValue(const char* name, bool& value) const {
    return getConverted(name, value);
}

bool rcAttrStream::getFloatValue(const char* name, float& value) const {
    return getConverted(name, value);
}

bool rcAttrStream::isEmpty() const {
    std::string_view name;
    std::string_view value;
    return !ConstIterator(*this).next(name, value);
}

bool rcAttrStream::operator==(const rcAttrStream& other) const {
    if (text_ == other.text_) return true;
    ConstIterator left(*this);
    ConstIterator right(other);
    if (left.getSize() != right.getSize()) return false;
    std::string_view name;
    std::string_view value;
    std::string_view otherValue;
    while (left.next(name, value)) {
        if (!right.findName(name, otherValue) || otherValue != value) return false;
    }
    return true;
}

void rcAttrStream::dump() const {
    CO_MSG_USER("Attribute Stream Dump");
    ConstIterator iterator(*this);
    std::string_view name;
    std::string_view value;
    while (iterator.next(name, value)) {
        CO_MSG_USER("'%.*s': '%.*s'", printLength(name), name.data(), printLength(value), value.data());
    }
    CO_MSG_USER("Attribute Stream Dump Done");
}

std::string rcAttrStream::toPrettyString(int maxValueLength) const {
    const auto valueLimit = static_cast<std::size_t>(std::max(maxValueLength, MIN_PRETTY_VALUE_LENGTH));
    std::string line;
    ConstIterator iterator(*this);
    std::string_view name;
    std::string_view value;
    while (iterator.next(name, value)) {
        const std::size_t pieceLimit = name.size() + valueLimit + 3;
        name = upToNul(name);
        value = upToNul(value);
        const std::size_t fullLength = name.size() + value.size() + 3;
        std::string piece(name);
        piece.append("='").append(value.substr(0, pieceLimit)).append("'");
        // A value one byte too long loses its closing quote only; the ellipsis starts with the next byte.
        if (fullLength > pieceLimit) piece.resize(pieceLimit);
        if (fullLength > pieceLimit + 1)
            piece.replace(pieceLimit - ELLIPSIS.size(), ELLIPSIS.size(), ELLIPSIS);
        for (char& byte : piece) {
            if (byte == '\n' || byte == '\r' || byte == '\t') byte = BLANK;
        }
        if (!line.empty()) line += BLANK;
        line += piece;
    }
    return line;
}

void rcAttrStream::prettyDump(int maxValueLength) const {
    CO_MSG_USER("Attribute Stream Pretty Dump");
    CO_MSG_USER("%s", toPrettyString(maxValueLength).c_str());
    CO_MSG_USER("Attribute Stream Pretty Dump Done");
}

}  // namespace Vantrel
