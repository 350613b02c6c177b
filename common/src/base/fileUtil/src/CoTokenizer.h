#pragma once

#include <boost/tokenizer.hpp>
#include <string_view>

namespace Vantrel {

/// Part of a text, in place, as CoTokenizer gives it.
struct CoToken : std::string_view {
    CoToken() = default;
    void assign(const char* begin, const char* end) {
        static_cast<std::string_view&>(*this) = std::string_view(begin, static_cast<size_type>(end - begin));
    }
};

/// Cuts a text at separator characters. Two in a row, or one at either end, make no empty token.
using CoTokenizer = boost::tokenizer<boost::char_separator<char>, const char*, CoToken>;

/// The tokens of `text`, which must outlive them.
inline CoTokenizer coTokens(std::string_view text, const char* separators) {
    return CoTokenizer(text.data(), text.data() + text.size(), boost::char_separator<char>(separators));
}

}  // namespace Vantrel
