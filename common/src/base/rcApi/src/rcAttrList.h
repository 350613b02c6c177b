#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace Vantrel {

/// The texts of single values, as attribute streams and lists carry them, and the frame of a list's text.
/// All are free of the process locale. Thread-safe.
namespace rcAttrList_private {

/// The text of a value. Exists for std::string (unchanged), int ("%d"), unsigned int ("0x%x"), unsigned long
/// ("0x%lx"), bool ("1" or "0") and float (six significant digits, as a stream inserts it in the "C" locale).
template <typename T>
std::string toString(const T& value);

/// The value of a text, for the same types: decimal for int, hexadecimal with or without "0x" for the
/// unsigned ones, for bool whether it is "1", "yes", "on", "true" or "y" in any case, for float as a stream
/// extracts it in the "C" locale. A number's text counts up to its 63rd byte, or its first NUL. Text that is
/// no number gives what the conversion yields: 0, or the number that it begins with.
template <typename T>
void fromString(std::string_view text, T& value);

template <>
std::string toString(const std::string& value);
template <>
std::string toString(const int& value);
template <>
std::string toString(const unsigned& value);
template <>
std::string toString(const unsigned long& value);
template <>
std::string toString(const bool& value);
template <>
std::string toString(const float& value);

template <>
void fromString(std::string_view text, std::string& value);
template <>
void fromString(std::string_view text, int& value);
template <>
void fromString(std::string_view text, unsigned& value);
template <>
void fromString(std::string_view text, unsigned long& value);
template <>
void fromString(std::string_view text, bool& value);
template <>
void fromString(std::string_view text, float& value);

/// A decimal value of either sign, read as fromString reads an int but without narrowing.
long decimalFromString(std::string_view text);

/// Appends a number and a blank: a list's count, or an element's length.
void appendCount(std::string& text, std::size_t count);

/// Walks the elements of a list's text without copying any of them.
class ListReader {
  public:
    /// `text` must outlive the reader.
    explicit ListReader(std::string_view text) : rest_(text) {}

    /// Reads the count, first. False when it is absent or no number, or says more elements than the bytes
    /// behind it can hold.
    bool readCount(std::size_t& count);
    /// Reads one element, as a view into the text. False when its length is absent, no number or past the
    /// end.
    bool readElement(std::string_view& element);

  private:
    bool readNumber(std::size_t& number);

    std::string_view rest_;
};

}  // namespace rcAttrList_private

/// A list of values in one text: the count and a blank, then for each element the length of its text, a blank
/// and the text (docs/wire.md). T is one of the types that rcAttrList_private converts. An ordinary value
/// type: not thread-safe, copies are independent.
template <typename T>
class rcAttrList {
  public:
    using const_iterator = typename std::vector<T>::const_iterator;

    rcAttrList() = default;
    explicit rcAttrList(std::vector<T> values) : values_(std::move(values)) {}

    void add(T value) { values_.push_back(std::move(value)); }
    void clear() { values_.clear(); }

    const std::vector<T>& values() const { return values_; }
    std::size_t size() const { return values_.size(); }
    bool isEmpty() const { return values_.empty(); }
    const_iterator begin() const { return values_.begin(); }
    const_iterator end() const { return values_.end(); }

    /// The list's text, to put on the wire.
    std::string toString() const {
        std::string text;
        rcAttrList_private::appendCount(text, values_.size());
        for (const T& value : values_) {
            const std::string element = rcAttrList_private::toString(value);
            rcAttrList_private::appendCount(text, element.size());
            text += element;
        }
        return text;
    }

    /// Replaces the values by those of a received text; an empty text is an empty list, and bytes behind the
    /// last element are ignored. False for a malformed text, which leaves the list unchanged. Memory follows
    /// the elements that are there, never the count that the text claims.
    bool fromString(std::string_view text) {
        std::vector<T> values;
        if (!text.empty()) {
            rcAttrList_private::ListReader reader(text);
            std::size_t count = 0;
            if (!reader.readCount(count)) return false;
            for (std::string_view element; count > 0; --count) {
                if (!reader.readElement(element)) return false;
                T value{};
                rcAttrList_private::fromString(element, value);
                values.push_back(std::move(value));
            }
        }
        values_ = std::move(values);
        return true;
    }

  private:
    std::vector<T> values_;
};

}  // namespace Vantrel
