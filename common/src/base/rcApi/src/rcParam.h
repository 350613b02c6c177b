#pragma once

#include <cstddef>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace Vantrel {

/// One typed value of a method: a parameter or its result. It converts itself to and from the text that
/// travels. Not thread-safe; each command has its own.
class rcParam {
  public:
    /// A kind of parameter: names it and makes parameters of it. Constants, which live as long as the
    /// process:
    /// `&rcParamString::TYPE` is what a method description holds.
    class Type {
      public:
        using Maker = std::unique_ptr<rcParam> (*)();

        constexpr Type(const char* name, Maker maker) : name_(name), maker_(maker) {}
        const char* name() const { return name_; }
        std::unique_ptr<rcParam> alloc() const { return maker_(); }

      private:
        const char* name_;
        Maker maker_;
    };

    /// Describes one parameter of a method.
    struct Info {
        const Type* type;
    };
    using InfoList = std::vector<Info>;

    class Array;

    rcParam() = default;
    rcParam(const rcParam&) = delete;
    rcParam& operator=(const rcParam&) = delete;
    virtual ~rcParam() = default;

    virtual const Type& type() const = 0;

    // The value by type. Integer kinds answer both integer pairs; any other mismatch is a programming error:
    // it logs an assertion, gives 0 or false, and changes nothing.
    virtual int intValue() const;
    virtual long longValue() const;
    virtual float floatValue() const;
    virtual bool boolValue() const;
    virtual void setIntValue(int value);
    virtual void setLongValue(long value);
    virtual void setFloatValue(float value);
    virtual void setBoolValue(bool value);

    /// The value as text, of every kind; void has an empty one. Valid until the parameter changes or goes
    /// away.
    virtual const std::string& stringValue() const = 0;
    /// Reads the value from text, of every kind. Text that is no number gives 0.
    virtual void setStringValue(std::string text) = 0;
    /// The same; null counts as an empty text.
    void setStringValue(const char* text) { setStringValue(std::string(text ? text : "")); }

    /// Moves the text out; a string parameter is empty afterwards.
    virtual std::string takeStringValue() { return stringValue(); }
};

/// The parameters that a method is called with, in the order of its description.
class rcParam::Array {
  public:
    Array() = default;
    /// Reads the parameters from a command's argument. One parameter takes the whole argument as it is.
    /// Several take one piece each, split at every single blank outside double quotes, so two blanks in a row
    /// make an empty piece; a quote after a backslash does not count, and backslashes pair up from the left.
    /// A piece keeps its quotes and backslashes: rcParamEscapedStringToString takes them off. Surplus pieces
    /// are ignored; parameters without a piece keep their empty value.
    Array(const InfoList& infos, std::string argument);

    std::size_t size() const { return parameters_.size(); }
    /// A bad index logs an assertion and gives a void parameter.
    rcParam& operator[](std::size_t index) const;

  private:
    std::vector<std::unique_ptr<rcParam>> parameters_;
};

/// An integer of any width and sign.
template <typename T>
class rcParamInteger : public rcParam {
  public:
    static const Type TYPE;

    const Type& type() const override { return TYPE; }
    T value() const { return value_; }
    void setValue(T value) { value_ = value; }
    int intValue() const override { return static_cast<int>(value_); }
    long longValue() const override { return static_cast<long>(value_); }
    void setIntValue(int value) override { value_ = static_cast<T>(value); }
    void setLongValue(long value) override { value_ = static_cast<T>(value); }
    const std::string& stringValue() const override;
    /// Decimal; a number beyond the type's range keeps its low bits.
    void setStringValue(std::string text) override;
    using rcParam::setStringValue;

  private:
    T value_ = 0;
    mutable std::string text_;
};

using rcParamChar = rcParamInteger<signed char>;
using rcParamUChar = rcParamInteger<unsigned char>;
using rcParamInt = rcParamInteger<int>;
using rcParamUInt = rcParamInteger<unsigned int>;
using rcParamLong = rcParamInteger<long>;
using rcParamULong = rcParamInteger<unsigned long>;
using rcParamLongLong = rcParamInteger<long long>;
using rcParamULongLong = rcParamInteger<unsigned long long>;

template <>
const rcParam::Type rcParamChar::TYPE;
template <>
const rcParam::Type rcParamUChar::TYPE;
template <>
const rcParam::Type rcParamInt::TYPE;
template <>
const rcParam::Type rcParamUInt::TYPE;
template <>
const rcParam::Type rcParamLong::TYPE;
template <>
const rcParam::Type rcParamULong::TYPE;
template <>
const rcParam::Type rcParamLongLong::TYPE;
template <>
const rcParam::Type rcParamULongLong::TYPE;

extern template class rcParamInteger<signed char>;
extern template class rcParamInteger<unsigned char>;
extern template class rcParamInteger<int>;
extern template class rcParamInteger<unsigned int>;
extern template class rcParamInteger<long>;
extern template class rcParamInteger<unsigned long>;
extern template class rcParamInteger<long long>;
extern template class rcParamInteger<unsigned long long>;

/// A number with six decimals; its text has a point in every locale.
class rcParamFloat : public rcParam {
  public:
    static const Type TYPE;

    const Type& type() const override { return TYPE; }
    float floatValue() const override { return value_; }
    void setFloatValue(float value) override { value_ = value; }
    const std::string& stringValue() const override;
    void setStringValue(std::string text) override;
    using rcParam::setStringValue;

  private:
    float value_ = 0.0F;
    mutable std::string text_;
};

/// "true" or "false"; reads "1", "yes", "on", "true" and "y" in any case as true, everything else as false.
class rcParamBool : public rcParam {
  public:
    static const Type TYPE;

    const Type& type() const override { return TYPE; }
    bool boolValue() const override { return value_; }
    void setBoolValue(bool value) override { value_ = value; }
    const std::string& stringValue() const override;
    void setStringValue(std::string text) override;
    using rcParam::setStringValue;

  private:
    bool value_ = false;
};

/// Text as it is.
class rcParamString : public rcParam {
  public:
    static const Type TYPE;

    const Type& type() const override { return TYPE; }
    const std::string& stringValue() const override { return value_; }
    void setStringValue(std::string text) override { value_ = std::move(text); }
    using rcParam::setStringValue;
    std::string takeStringValue() override { return std::move(value_); }

  private:
    std::string value_;
};

/// Nothing: the result of a method that only succeeds or fails.
class rcParamVoid : public rcParam {
  public:
    static const Type TYPE;

    const Type& type() const override { return TYPE; }
    const std::string& stringValue() const override;
    void setStringValue(std::string) override {}
    using rcParam::setStringValue;
};

/// `text` as one quoted piece of an argument: in double quotes, with a backslash before every double quote
/// and every backslash. Null gives an empty text.
std::string rcParamStringToEscapedString(const char* text);
std::string rcParamStringToEscapedString(std::string_view text);

/// Takes the quotes and backslashes off: a double quote at the very start and an unescaped one at the very
/// end are dropped, a backslash followed by a byte gives that byte, a backslash at the end stays.
std::string rcParamEscapedStringToString(std::string_view text);

}  // namespace Vantrel
