#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <utility>

#include "rcAttrNameIndex.h"

namespace Vantrel {

/// The key/value encoding of every structured message: entries of name, a blank, the value's length in
/// decimal, a blank and the raw value, run together (docs/wire.md). The text is itself the wire form. A
/// removed entry stays in it, with its name overwritten by blanks. Not safe for use from several threads at
/// once, not even for reading: getters move a shared cursor, so that reading names in the order in which they
/// were written costs one step each. Copies are independent.
class rcAttrStream {
  public:
    class ConstIterator;
    class Iterator;

    rcAttrStream() = default;
    /// Takes received text as it is. Malformed text is found while reading: entries before the fault can be
    /// read, and the fault is logged and ends the reading.
    explicit rcAttrStream(std::string text) : text_(std::move(text)), namesMark_(text_.empty() ? 0 : ~0UL) {}

    /// The encoded text, to put on the wire. Valid until the stream changes or goes away.
    const std::string& text() const { return text_; }

    // Adders: each removes any earlier entry of the name, then appends. A null name or value, an empty name
    // or one with a blank, and a text that would pass 2 GiB log an assertion and add nothing. Building n
    // distinct names is linear in n.

    /// Both forms take the value's bytes up to the first NUL, which the encoding cannot carry. Names and
    /// values may lie in this stream's own text.
    void addStringValue(const char* name, const char* value);
    void addStringValue(const char* name, std::string_view value);
    void addIntValue(const char* name, int value);
    void addUInt32Value(const char* name, unsigned value);
    void addUInt64Value(const char* name, unsigned long value);
    void addBoolValue(const char* name, bool value);
    /// Six significant digits, whatever the process locale.
    void addFloatValue(const char* name, float value);

    // Getters: true when the name was found; otherwise the output is left untouched. Text that does not fit
    // the type is no failure: it gives what the conversion yields, such as 0. Numbers and switches are read
    // from the value's first 63 bytes.

    bool getStringValue(const char* name, std::string& value) const;
    /// Cut to `size` - 1 bytes and terminated. A size of 0 writes nothing.
    bool getStringValue(const char* name, char* buffer, unsigned size) const;
    /// The value in place, without a copy; valid until the stream changes or goes away.
    bool getStringValue(const char* name, std::string_view& value) const;
    bool getIntValue(const char* name, int& value) const;
    /// Decimal, kept to 32 bits; so it also reads what addIntValue wrote from a number with the top bit set.
    bool getUIntValue(const char* name, unsigned& value) const;
    /// Hexadecimal, the counterpart of addUInt32Value.
    bool getUInt32Value(const char* name, unsigned& value) const;
    /// Hexadecimal, the counterpart of addUInt64Value.
    bool getUInt64Value(const char* name, unsigned long& value) const;
    /// Decimal, kept to 8 bits.
    bool getUCharValue(const char* name, unsigned char& value) const;
    bool getBoolValue(const char* name, bool& value) const;
    bool getFloatValue(const char* name, float& value) const;

    /// No entry but removed ones.
    bool isEmpty() const;
    /// The same names with the same values, in any order; removed entries do not count.
    bool operator==(const rcAttrStream& other) const;
    bool operator!=(const rcAttrStream& other) const { return !(*this == other); }

    /// Logs every entry at user level.
    void dump() const;
    /// All entries in one line, for logs: longer values are cut to about `maxValueLength` bytes (at least 3)
    /// and marked with an ellipsis; line breaks and tabs become blanks.
    std::string toPrettyString(int maxValueLength) const;
    /// Logs that line at user level.
    void prettyDump(int maxValueLength) const;

  private:
    bool find(const char* name, std::string_view& value) const;
    template <typename T>
    bool getConverted(const char* name, T& value) const;
    void add(std::string_view name, std::string_view value);
    bool removeEntry(std::string_view name);
    void indexNames();

    std::string text_;
    /// One bit for each name in `text_`, several names sharing one: a name whose bit is missing is surely
    /// new.
    unsigned long namesMark_ = 0;
    rcAttrNameIndex index_;  ///< of `text_`; active only while adding to a longer stream
    // A position rather than a ConstIterator, which a copy or a move would leave bound to the other's text.
    mutable std::size_t cursor_ = 0;
};

/// Reads entries in order, skipping removed ones. Bound to text that it does not own (a stream's, or a nested
/// stream's in place), which must outlive it and stay unchanged as long. Allocates nothing. Positions count
/// from the start of the text. A malformed length (negative, above 2 GiB, or digits that no blank ends) is
/// logged as an error and ends the reading; a value said to go past the end of the text is cut to what is
/// there. Not thread-safe; several iterators may read one text at once.
class rcAttrStream::ConstIterator {
  public:
    ConstIterator() = default;
    explicit ConstIterator(const rcAttrStream& stream) { reset(stream); }
    explicit ConstIterator(std::string_view text) { reset(text); }

    /// Starts at the first entry of the stream's present text.
    void reset(const rcAttrStream& stream);
    void reset(std::string_view text);

    /// The next entry; false at the end.
    bool next(unsigned& nameStart, unsigned& nameLength, unsigned& valueStart, unsigned& valueLength);
    /// The same as views into the text.
    bool next(std::string_view& name, std::string_view& value);

    /// Looks a name up from the present position on, then from the start, and stops behind its entry. False
    /// for an unknown or null name; the position and the outputs are then left as they were.
    bool find(const char* name, unsigned& valueStart, unsigned& valueLength);
    bool find(const char* name, std::string_view& value);

    /// Number of entries, wherever the iterator stands.
    unsigned getSize() const;

  private:
    friend class rcAttrStream;
    struct Entry;

    bool step(Entry& entry);
    bool findName(std::string_view wanted, std::string_view& value);
    unsigned offsetOf(std::string_view part) const;

    std::string_view text_;
    std::size_t position_ = 0;
};

/// A ConstIterator that can also remove entries from the stream that it is bound to, which must outlive it.
/// Only its own removals may change the stream as long as it is used.
class rcAttrStream::Iterator : public rcAttrStream::ConstIterator {
  public:
    explicit Iterator(rcAttrStream& stream) : ConstIterator(stream), stream_(stream) {}

    /// Overwrites the entry's name with blanks and starts again at the first entry. An unknown name changes
    /// nothing; a null one logs an assertion.
    void remove(const char* name);

  private:
    rcAttrStream& stream_;
};

}  // namespace Vantrel
