#include "rcParam.h"

#include <locale.h>
#include <strings.h>

#include <charconv>
#include <cstdlib>
#include <type_traits>

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

/// Where the first piece of `text` ends: at the first blank outside quotes, or at the end.
std::size_t pieceEnd(std::string_view text) {
    bool quoted = false;
    for (std::size_t i = 0; i < text.size(); ++i) {
        switch (text[i]) {
            case '\\':
                // The next byte is meant as it is, unless it is a blank, which separates whatever precedes
                // it.
                if (i + 1 < text.size() && text[i + 1] != ' ') ++i;
                break;
            case '"':
                quoted = !quoted;
                break;
            case ' ':
                if (!quoted) return i;
                break;
            default:
                break;
        }
    }
    return text.size();
}

/// strtod reads the decimal point of the current locale, which belongs to the host program.
double parseFloat(const char* text) {
    static const locale_t plain = ::newlocale(LC_ALL_MASK, "C", nullptr);
    return plain ? ::strtod_l(text, nullptr, plain) : std::strtod(text, nullptr);
}

}  // namespace

int rcParam::intValue() const {
    CO_ASSERT_NAMED(false, "parameter is an integer");
    return 0;
}

long rcParam::longValue() const {
    CO_ASSERT_NAMED(false, "parameter is an integer");
    return 0;
}

float rcParam::floatValue() const {
    CO_ASSERT_NAMED(false, "parameter is a float");
    return 0.0F;
}

bool rcParam::boolValue() const {
    CO_ASSERT_NAMED(false, "parameter is a bool");
    return false;
}

void rcParam::setIntValue(int) {
    CO_ASSERT_NAMED(false, "parameter is an integer");
}

void rcParam::setLongValue(long) {
    CO_ASSERT_NAMED(false, "parameter is an integer");
}

void rcParam::setFloatValue(float) {
    CO_ASSERT_NAMED(false, "parameter is a float");
}

void rcParam::setBoolValue(bool) {
    CO_ASSERT_NAMED(false, "parameter is a bool");
}

rcParam::Array::Array(const InfoList& infos, std::string argument) {
    parameters_.reserve(infos.size());
    for (const Info& info : infos) parameters_.push_back(info.type->alloc());
    if (parameters_.size() == 1) {
        parameters_.front()->setStringValue(std::move(argument));
        return;
    }
    std::string_view rest = argument;
    for (const auto& parameter : parameters_) {
        const std::size_t end = pieceEnd(rest);
        parameter->setStringValue(std::string(rest.substr(0, end)));
        if (end == rest.size()) break;
        rest.remove_prefix(end + 1);
    }
}

rcParam& rcParam::Array::operator[](std::size_t index) const {
    static auto* const none = new rcParamVoid;  // these outlive static destruction
    return CO_ASSERT(index < size()) ? *parameters_[index] : *none;
}

template <typename T>
const std::string& rcParamInteger<T>::stringValue() const {
    return text_ = std::to_string(value_);
}

template <typename T>
void rcParamInteger<T>::setStringValue(std::string text) {
    if constexpr (std::is_same_v<T, unsigned long> || std::is_same_v<T, unsigned long long>) {
        value_ = static_cast<T>(std::strtoull(text.c_str(), nullptr, 10));
    } else {
        value_ = static_cast<T>(std::strtol(text.c_str(), nullptr, 10));
    }
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
    static const auto* const texts = new std::string[]{FALSE_TEXT, TRUE_TEXT};
    return texts[value_ ? 1 : 0];
}

void rcParamBool::setStringValue(std::string text) {
    value_ = false;
    for (const char* word : TRUE_WORDS) {
        if (::strcasecmp(text.c_str(), word) == 0) value_ = true;
    }
}

const std::string& rcParamVoid::stringValue() const {
    static const auto* const none = new std::string;
    return *none;
}

template <>
const rcParam::Type rcParamChar::TYPE{"signed char", &make<rcParamChar>};
template <>
const rcParam::Type rcParamUChar::TYPE{"unsigned char", &make<rcParamUChar>};
template <>
const rcParam::Type rcParamInt::TYPE{"int", &make<rcParamInt>};
template <>
const rcParam::Type rcParamUInt::TYPE{"unsigned int", &make<rcParamUInt>};
template <>
const rcParam::Type rcParamLong::TYPE{"long", &make<rcParamLong>};
template <>
const rcParam::Type rcParamULong::TYPE{"unsigned long", &make<rcParamULong>};
template <>
const rcParam::Type rcParamLongLong::TYPE{"long long", &make<rcParamLongLong>};
template <>
const rcParam::Type rcParamULongLong::TYPE{"unsigned long long", &make<rcParamULongLong>};

template class rcParamInteger<signed char>;
template class rcParamInteger<unsigned char>;
template class rcParamInteger<int>;
template class rcParamInteger<unsigned int>;
template class rcParamInteger<long>;
template class rcParamInteger<unsigned long>;
template class rcParamInteger<long long>;
template class rcParamInteger<unsigned long long>;

const rcParam::Type rcParamFloat::TYPE{"float", &make<rcParamFloat>};
const rcParam::Type rcParamBool::TYPE{"bool", &make<rcParamBool>};
const rcParam::Type rcParamString::TYPE{"const char *", &make<rcParamString>};
const rcParam::Type rcParamVoid::TYPE{"void", &make<rcParamVoid>};

std::string rcParamStringToEscapedString(const char* text) {
    return text ? rcParamStringToEscapedString(std::string_view(text)) : std::string();
}

std::string rcParamStringToEscapedString(std::string_view text) {
    std::string escaped;
    escaped.reserve(text.size() + text.size() / 8 + 2);
    escaped += '"';
    for (const char byte : text) {
        if (byte == '"' || byte == '\\') escaped += '\\';
        escaped += byte;
    }
    escaped += '"';
    return escaped;
}

std::string rcParamEscapedStringToString(std::string_view text) {
    if (!text.empty() && text.front() == '"') text.remove_prefix(1);
    std::string plain;
    plain.reserve(text.size());
    for (std::size_t i = 0; i < text.size(); ++i) {
        const bool last = i + 1 == text.size();
        if (text[i] == '\\' && !last) {
            plain += text[++i];
        } else if (text[i] != '"' || !last) {
            plain += text[i];
        }
    }
    return plain;
}

}  // namespace Vantrel
