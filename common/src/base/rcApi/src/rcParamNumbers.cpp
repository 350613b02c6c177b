#include "rcParamNumbers.h"

#include <locale.h>
#include <strings.h>

#include <charconv>
#include <cstdlib>

#include "CoAssert.h"

namespace Vantrel {

namespace {

constexpr const char* TRUE_TEXT = "true";
constexpr const char* FALSE_TEXT = "false";
constexpr const char* TRUE_WORDS[] = {"1", "yes", "on", "true", "y"};
constexpr int FLOAT_DECIMALS = 6;

template <typename Param>
std::unique_ptr<rcParam> make() {
    return std::make_unique<Param>();
}

/// strtod reads the decimal point of the current locale, which belongs to the host program.
double parseFloat(const char* text) {
    static const locale_t plain = ::newlocale(LC_ALL_MASK, "C", nullptr);
    return plain ? ::strtod_l(text, nullptr, plain) : std::strtod(text, nullptr);
}

/// The answer of a kind that does not hold what it is asked for.
template <typename T>
T mismatch(const char* wanted) {
    CO_ASSERT_NAMED(false, wanted);
    return T();
}

}  // namespace

int rcParam::intValue() const {
    return mismatch<int>("parameter is an integer");
}
long rcParam::longValue() const {
    return mismatch<long>("parameter is an integer");
}
float rcParam::floatValue() const {
    return mismatch<float>("parameter is a float");
}
bool rcParam::boolValue() const {
    return mismatch<bool>("parameter is a bool");
}
void rcParam::setIntValue(int) {
    mismatch<int>("parameter is an integer");
}
void rcParam::setLongValue(long) {
    mismatch<long>("parameter is an integer");
}
void rcParam::setFloatValue(float) {
    mismatch<float>("parameter is a float");
}
void rcParam::setBoolValue(bool) {
    mismatch<bool>("parameter is a bool");
}

template <typename T>
const std::string& rcParamInteger<T>::stringValue() const {
    return text_ = std::to_string(value_);
}

template <typename T>
void rcParamInteger<T>::setStringValue(std::string text) {
    value_ = static_cast<T>(std::strtol(text.c_str(), nullptr, 10));
}

const std::string& rcParamFloat::stringValue() const {
    char buffer[64];  // the largest float has 39 digits before its point
    const auto end =
        std::to_chars(buffer, buffer + sizeof buffer, value_, std::chars_format::fixed, FLOAT_DECIMALS).ptr;
    return text_.assign(buffer, end);
}

void rcParamFloat::setStringValue(std::string text) {
    value_ = static_cast<float>(parseFloat(text.c_str()));
}

const std::string& rcParamBool::stringValue() const {
    return text_ = value_ ? TRUE_TEXT : FALSE_TEXT;
}

void rcParamBool::setStringValue(std::string text) {
    value_ = false;
    for (const char* word : TRUE_WORDS) {
        if (::strcasecmp(text.c_str(), word) == 0) value_ = true;
    }
}

template <>
const rcParam::Type rcParamInt::TYPE{"int", &make<rcParamInt>};
template <>
const rcParam::Type rcParamLong::TYPE{"long", &make<rcParamLong>};

template class rcParamInteger<int>;
template class rcParamInteger<long>;

const rcParam::Type rcParamFloat::TYPE{"float", &make<rcParamFloat>};
const rcParam::Type rcParamBool::TYPE{"bool", &make<rcParamBool>};

}  // namespace Vantrel
