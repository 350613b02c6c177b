#pragma once

#include "VantrelStr.h"

/// Keys with text or integer values, in the order in which they were set. Its text form is the attribute
/// stream in which the protocol carries it. When memory runs out, an operation throws std::bad_alloc.
///
/// One object must not be used by several threads at once, not even for reading. Copies are independent.
class VANTREL_API VantrelDictionary {
  public:
    VantrelDictionary();
    /// The dictionary with this text form; null or empty gives an empty one. Entries after a malformed one
    /// are out of reach.
    explicit VantrelDictionary(const char* stream);
    VantrelDictionary(const VantrelDictionary& other);
    /// Takes the entries of `other`, which becomes empty.
    VantrelDictionary(VantrelDictionary&& other) noexcept;
    virtual ~VantrelDictionary();

    VantrelDictionary& operator=(const VantrelDictionary& other);
    VantrelDictionary& operator=(VantrelDictionary&& other) noexcept;

    /// Sets the value of a key, which then stands last. A null key or value, or a key with a blank, is a
    /// programming error: it is logged and nothing is set.
    void setString(const char* key, const char* value);
    void setInteger(const char* key, int value);

    /// False, with `value` as it was, when the key is missing. A value that is no decimal number reads as 0.
    bool getString(const char* key, VantrelStr& value) const;
    bool getInteger(const char* key, int& value) const;

    /// Replaces the content of `keys` by the keys, in order.
    void getFields(VantrelStrList& keys) const;

    /// The text form; never null. Valid until the dictionary is changed or destroyed.
    const char* getStream() const;

    /// Whether there is no key.
    bool isEmpty() const;

    /// Same keys with the same values, in any order.
    bool operator==(const VantrelDictionary& other) const;
    bool operator!=(const VantrelDictionary& other) const { return !(*this == other); }

  private:
    class Imp;
    Imp* imp_;  // null while nothing was ever set
};

/// The metadata streams that a node may offer, and the record that one of them carries.
class VANTREL_API VantrelMetaData {
  public:
    class Blob;

    virtual ~VantrelMetaData();

    /// Name of the stream of blobs, "BLOB", and of the stream of XML documents, "XML".
    static const char* STREAM_BLOB();
    static const char* STREAM_XML();
};

/// A piece of application data with the name and version of its format.
///
/// One object must not be used by several threads at once, not even for reading. Copies are independent.
class VANTREL_API VantrelMetaData::Blob {
  public:
    /// Null texts count as empty.
    Blob(const char* data, const char* format, int majorVersion, int minorVersion);
    /// The blob that `rawData` holds, as getRawData() gave it. Null counts as empty.
    explicit Blob(const char* rawData);
    Blob(const Blob& other) = default;
    Blob(Blob&& other) noexcept = default;
    virtual ~Blob();

    Blob& operator=(const Blob& other) = default;
    Blob& operator=(Blob&& other) noexcept = default;

    /// The data, or the format's name; empty when the raw data held none.
    VantrelStr getData() const;
    VantrelStr getFormat() const;
    /// False, with both numbers as they were, when the raw data did not hold both.
    bool getVersion(int& majorVersion, int& minorVersion) const;

    /// The whole blob as one text; never null. Valid until the blob is assigned to or destroyed.
    const char* getRawData() const;

  private:
    VantrelDictionary fields_;
};
