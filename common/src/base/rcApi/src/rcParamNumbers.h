#pragma once

#include "rcParam.h"

/// The kinds of parameters that hold a number or a truth value.
namespace Vantrel {

/// An int or a long, decimal; a number beyond the type's range keeps its low bits.
template <typename T>
class rcParamInteger : public rcParam {
  public:
    static const Type TYPE;

    const Type& type() const override { return TYPE; }
    int intValue() const override { return static_cast<int>(value_); }
    long longValue() const override { return static_cast<long>(value_); }
    void setIntValue(int value) override { value_ = static_cast<T>(value); }
    void setLongValue(long value) override { value_ = static_cast<T>(value); }
    const std::string& stringValue() const override;
    void setStringValue(std::string text) override;
    using rcParam::setStringValue;

  private:
    T value_ = 0;
    mutable std::string text_;
};

using rcParamInt = rcParamInteger<int>;
using rcParamLong = rcParamInteger<long>;

template <>
const rcParam::Type rcParamInt::TYPE;
template <>
const rcParam::Type rcParamLong::TYPE;

extern template class rcParamInteger<int>;
extern template class rcParamInteger<long>;

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
    mutable std::string text_;
};

}  // namespace Vantrel
