#include "rcParam.h"

#include "CoAssert.h"
#include "CoNeverDestroyed.h"

namespace Vantrel {

namespace {

template <typename Param>
std::unique_ptr<rcParam> make() {
    return std::make_unique<Param>();
}

}  // namespace

rcParam::Array::Array(const InfoList& infos, std::string argument) {
    parameters_.reserve(infos.size());
    for (const Info& info : infos) parameters_.push_back(info.type->alloc());
    if (parameters_.size() == 1) {
        parameters_.front()->setStringValue(std::move(argument));
        return;
    }
    std::string_view rest = argument;
    for (const auto& parameter : parameters_) {
        const std::size_t end = rcParamPieceEnd(rest);
        parameter->setStringValue(std::string(rest.substr(0, end)));
        if (end == rest.size()) break;
        rest.remove_prefix(end + 1);
    }
}

rcParam& rcParam::Array::operator[](std::size_t index) const {
    static CoNeverDestroyed<rcParamVoid> none;
    return CO_ASSERT(index < size()) ? *parameters_[index] : *none;
}

const std::string& rcParamVoid::stringValue() const {
    static CoNeverDestroyed<std::string> none;
    return *none;
}

const rcParam::Type rcParamString::TYPE{"const char *", &make<rcParamString>};
const rcParam::Type rcParamVoid::TYPE{"void", &make<rcParamVoid>};

std::size_t rcParamPieceEnd(std::string_view argument) {
    bool quoted = false;
    for (std::size_t i = 0; i < argument.size(); ++i) {
        switch (argument[i]) {
            case '\\':
                // The next byte is meant as it is, unless it is a blank: that separates all the same.
                if (i + 1 < argument.size() && argument[i + 1] != ' ') ++i;
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
    return argument.size();
}

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
