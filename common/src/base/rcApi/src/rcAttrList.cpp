#include "rcAttrList.h"

#include <algorithm>
#include <charconv>
#include <cstdlib>
#include <limits>
#include <locale>
#include <sstream>
#include <system_error>

namespace Vantrel {

namespace rcAttrList_private {

namespace {

constexpr std::size_t MAX_NUMBER_BYTES = 63;
constexpr int FLOAT_DIGITS = 6;
constexpr int HEXADECIMAL = 16;
constexpr char BLANK = ' ';
// The least that an element takes: "0 ".
constexpr std::size_t MIN_ELEMENT_BYTES = 2;
constexpr std::string_view TRUE_TEXTS[] = {"1", "yes", "on", "true", "y"};

// The terminated copy of a number's text that the C conversions need.
class NumberText {
  public:
    explicit NumberText(std::string_view text) {
        const std::size_t length = std::min(text.size(), MAX_NUMBER_BYTES);
        std::copy_n(text.data(), length, bytes_);
        bytes_[length] = '\0';
    }
    const char* get() const { return bytes_; }

  private:
    char bytes_[MAX_NUMBER_BYTES + 1];
};

char lowerCase(char byte) {
    return byte >= 'A' && byte <= 'Z' ? static_cast<char>(byte - 'A' + 'a') : byte;
}

bool equalIgnoringCase(std::string_view text, std::string_view lower) {
    return std::equal(text.begin(), text.end(), lower.begin(), lower.end(),
                      [](char byte, char other) { return lowerCase(byte) == other; });
}

std::string toHexadecimal(unsigned long value) {
    char text[2 + 2 * sizeof value] = {'0', 'x'};
    const std::to_chars_result end = std::to_chars(text + 2, text + sizeof text, value, HEXADECIMAL);
    return std::string(text, end.ptr);
}

// Plain digits with nothing around them: every number that addFloatValue writes but the infinite ones.
bool readPlainFloat(std::string_view text, float& value) {
    const std::size_t firstDigit = !text.empty() && text.front() == '-' ? 1 : 0;
    if (firstDigit == text.size() || text[firstDigit] < '0' || text[firstDigit] > '9') return false;
    float read = 0;
    const char* end = text.data() + text.size();
    const std::from_chars_result result = std::from_chars(text.data(), end, read);
    if (result.ec != std::errc() || result.ptr != end) return false;
    value = read;
    return true;
}

}  // namespace

template <>
std::string toString(const std::string& value) {
    return value;
}

template <>
std::string toString(const int& value) {
    return std::to_string(value);
}

template <>
std::string toString(const unsigned& value) {
    return toHexadecimal(value);
}

template <>
std::string toString(const unsigned long& value) {
    return toHexadecimal(value);
}

template <>
std::string toString(const bool& value) {
    return value ? "1" : "0";
}

template <>
std::string toString(const float& value) {
    char text[32];
    const std::to_chars_result end =
        std::to_chars(text, text + sizeof text, value, std::chars_format::general, FLOAT_DIGITS);
    return std::string(text, end.ptr);
}

template <>
void fromString(std::string_view text, std::string& value) {
    value = text;
}

template <>
void fromString(std::string_view text, int& value) {
    value = static_cast<int>(decimalFromString(text));
}

template <>
void fromString(std::string_view text, unsigned& value) {
    value = static_cast<unsigned>(std::strtoul(NumberText(text).get(), nullptr, HEXADECIMAL));
}

template <>
void fromString(std::string_view text, unsigned long& value) {
    value = std::strtoul(NumberText(text).get(), nullptr, HEXADECIMAL);
}

template <>
void fromString(std::string_view text, bool& value) {
    const NumberText bounded(text);
    const std::string_view word(bounded.get());
    value = std::any_of(std::begin(TRUE_TEXTS), std::end(TRUE_TEXTS),
                        [word](std::string_view lower) { return equalIgnoringCase(word, lower); });
}

template <>
void fromString(std::string_view text, float& value) {
    if (readPlainFloat(text, value)) return;
    std::istringstream stream{std::string(text)};
    stream.imbue(std::locale::classic());
    value = 0;        // what the stream leaves when it is empty
    stream >> value;  // 0 for no number, the largest float for one that is too large
}

long decimalFromString(std::string_view text) {
    long number = 0;
    const char* end = text.data() + text.size();
    const std::from_chars_result plain = std::from_chars(text.data(), end, number);
    if (plain.ec == std::errc() && plain.ptr == end && text.size() <= MAX_NUMBER_BYTES) return number;
    // Blanks around the number, a plus sign, a number too large: as strtol takes them.
    return std::strtol(NumberText(text).get(), nullptr, 10);
}

void appendCount(std::string& text, std::size_t count) {
    char digits[std::numeric_limits<std::size_t>::digits10 + 1];
    const std::to_chars_result end = std::to_chars(digits, digits + sizeof digits, count);
    text.append(digits, end.ptr).append(1, BLANK);
}

bool ListReader::readNumber(std::size_t& number) {
    const char* end = rest_.data() + rest_.size();
    const std::from_chars_result result = std::from_chars(rest_.data(), end, number);
    if (result.ec != std::errc() || result.ptr == end || *result.ptr != BLANK) return false;
    rest_.remove_prefix(static_cast<std::size_t>(result.ptr - rest_.data()) + 1);
    return true;
}

bool ListReader::readCount(std::size_t& count) {
    return readNumber(count) && count <= rest_.size() / MIN_ELEMENT_BYTES;
}

bool ListReader::readElement(std::string_view& element) {
    std::size_t length = 0;
    if (!readNumber(length) || length > rest_.size()) return false;
    element = rest_.substr(0, length);
    rest_.remove_prefix(length);
    return true;
}

}  // namespace rcAttrList_private

}  // namespace Vantrel
