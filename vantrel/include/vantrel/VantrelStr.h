#pragma once

#include <functional>

#include "VantrelExport.h"

/// An owned text of bytes, always zero-terminated. The library hands texts to applications in this class, so
/// that neither side depends on the other's standard library.
///
/// No operation throws: when memory runs out, or a text would pass 4294967294 bytes, the string becomes
/// empty. Different objects may be used from different threads; one object by several threads only while none
/// of them changes it.
class VANTREL_API VantrelStr {
  public:
    /// The empty string. It owns no memory.
    VantrelStr();

    /// A copy of a zero-terminated text; null gives the empty string.
    VantrelStr(const char* text);

    /// A copy of the first `n` bytes at `text`, all of which must be readable. Null, a text that starts with
    /// a zero, or `n` = 0 give the empty string.
    VantrelStr(const char* text, unsigned int n);

    VantrelStr(const VantrelStr& other);
    /// Takes the text of `other`, which becomes empty.
    VantrelStr(VantrelStr&& other) noexcept;
    virtual ~VantrelStr();

    VantrelStr& operator=(const VantrelStr& other);
    /// Takes the text of `other`, which becomes empty; moving a string to itself changes nothing.
    VantrelStr& operator=(VantrelStr&& other) noexcept;
    /// Null empties the string. `text` may be a part of this string.
    VantrelStr& operator=(const char* text);

    /// Appending a null text, or the character 0, changes nothing. What is appended may be a part of this
    /// string.
    VantrelStr& operator+=(const VantrelStr& other);
    VantrelStr& operator+=(const char* text);
    VantrelStr& operator+=(char c);

    /// Length in bytes, without the terminating zero.
    unsigned int length() const noexcept { return length_; }
    bool isEmpty() const noexcept { return length_ == 0; }
    /// In a condition true when not empty; `bool b = str;` takes the conversion to text and is always true.
    explicit operator bool() const noexcept { return length_ != 0; }

    /// The text; never null. Valid until the string is changed or destroyed.
    const char* c_str() const noexcept { return buff_; }
    operator const char*() const noexcept { return buff_; }

    /// The byte at `index`, which is not checked: it must not be above length(), where the zero stands. (One
    /// overload for each type of an index: with fewer, some would compete with the conversion above.)
    char operator[](int index) const noexcept { return buff_[index]; }
    char operator[](unsigned int index) const noexcept { return buff_[index]; }
    char operator[](long index) const noexcept { return buff_[index]; }
    char operator[](unsigned long index) const noexcept { return buff_[index]; }
    char operator[](long long index) const noexcept { return buff_[index]; }
    char operator[](unsigned long long index) const noexcept { return buff_[index]; }

    /// Same length and same bytes.
    bool operator==(const VantrelStr& other) const noexcept;
    bool operator!=(const VantrelStr& other) const noexcept { return !(*this == other); }
    /// Same zero-terminated text; null equals no string.
    bool operator==(const char* text) const noexcept;
    bool operator!=(const char* text) const noexcept { return !(*this == text); }

    /// Order of the bytes, taken as unsigned, up to the first zero. Null comes first.
    bool operator<(const VantrelStr& other) const noexcept;
    bool operator<(const char* text) const noexcept;

    /// A number that is the same for equal strings, as std::hash gives it.
    unsigned long hash() const noexcept;

    /// At most `n` bytes from position `pos`; empty when `pos` is not below the length.
    VantrelStr substr(unsigned int pos, unsigned int n) const;

    /// Both make the string empty and give its memory back.
    void clear();
    void reset();

  private:
    bool assign(const char* text, unsigned long size);
    bool append(const char* text, unsigned long size);
    void checkInvariants() const;

    char* buff_;
    unsigned int length_;
};

// Without these, a comparison that names the text first would compare addresses.
inline bool operator==(const char* text, const VantrelStr& str) noexcept {
    return str == text;
}
inline bool operator!=(const char* text, const VantrelStr& str) noexcept {
    return !(str == text);
}
inline bool operator<(const char* text, const VantrelStr& str) noexcept {
    return !text || (str != text && !(str < text));
}

// The other comparisons follow from those above, for two strings and for a string and a text on either side.
inline bool operator>(const VantrelStr& left, const VantrelStr& right) noexcept {
    return right < left;
}
inline bool operator>(const VantrelStr& left, const char* right) noexcept {
    return right < left;
}
inline bool operator>(const char* left, const VantrelStr& right) noexcept {
    return right < left;
}
inline bool operator<=(const VantrelStr& left, const VantrelStr& right) noexcept {
    return !(right < left);
}
inline bool operator<=(const VantrelStr& left, const char* right) noexcept {
    return !(right < left);
}
inline bool operator<=(const char* left, const VantrelStr& right) noexcept {
    return !(right < left);
}
inline bool operator>=(const VantrelStr& left, const VantrelStr& right) noexcept {
    return !(left < right);
}
inline bool operator>=(const VantrelStr& left, const char* right) noexcept {
    return !(left < right);
}
inline bool operator>=(const char* left, const VantrelStr& right) noexcept {
    return !(left < right);
}

namespace std {
template <>
struct hash<VantrelStr> {
    size_t operator()(const VantrelStr& str) const noexcept { return str.hash(); }
};
}  // namespace std

/// An ordered list of owned texts. When memory runs out, an operation throws std::bad_alloc and leaves the
/// list as it was.
///
/// Different objects may be used from different threads; one object by several threads only while none of
/// them changes it.
class VANTREL_API VantrelStrList {
  public:
    VantrelStrList();
    VantrelStrList(const VantrelStrList& other);
    /// Takes the texts of `other`, which becomes empty.
    VantrelStrList(VantrelStrList&& other) noexcept;
    virtual ~VantrelStrList();

    VantrelStrList& operator=(const VantrelStrList& other);
    VantrelStrList& operator=(VantrelStrList&& other) noexcept;

    /// Appends a copy of a text; null appends an empty one.
    void push_back(const char* text);

    unsigned int size() const noexcept;

    /// Makes room for `count` texts in all. A count that is not positive changes nothing.
    void reserve(int count);

    /// Drops texts from the end or appends empty ones until there are `count`; a negative count counts as 0.
    void resize(int count);

    /// The text at `index`; valid until the list is changed or destroyed. An index that is not below size()
    /// is a programming error: it is logged, and the result is an empty text.
    const char* getStr(unsigned int index) const;
    const char* operator[](unsigned int index) const { return getStr(index); }

    /// Same size and equal texts in the same order.
    bool operator==(const VantrelStrList& other) const;
    bool operator!=(const VantrelStrList& other) const { return !(*this == other); }

  private:
    class Imp;
    Imp* imp_;  // null while nothing was ever stored
};
