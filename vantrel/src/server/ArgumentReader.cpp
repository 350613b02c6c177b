#include "ArgumentReader.h"

#include <charconv>

#include "CoException.h"
#include "CoMsg.h"
#include "rcParam.h"

namespace vantreld {

using Vantrel::CoException;
using Vantrel::coFormat;

namespace {

constexpr char QUOTE = '"';

std::string decoded(std::string_view piece) {
    if (!piece.empty() && piece.front() == QUOTE) return Vantrel::rcParamEscapedStringToString(piece);
    return std::string(piece);
}

}  // namespace

std::string ArgumentReader::next(const char* what) {
    if (ended_) throw CoException(coFormat("Missing %s parameter: %s", command_, what));
    const std::size_t length = Vantrel::rcParamPieceEnd(rest_);
    const std::string_view piece = rest_.substr(0, length);
    ended_ = length == rest_.size();
    rest_.remove_prefix(ended_ ? length : length + 1);
    return decoded(piece);
}

int ArgumentReader::nextInt(const char* what) {
    return parseIntParameter(command_, what, next(what));
}

std::string nodeIdArgument(const std::string& argument) {
    return decoded(argument);
}

int parseIntParameter(const char* command, const char* what, std::string_view text) {
    int number = 0;
    const char* end = text.data() + text.size();
    const auto parsed = std::from_chars(text.data(), end, number);
    if (parsed.ec != std::errc() || parsed.ptr != end)
        throw CoException(coFormat("Invalid %s parameter: %s is '%.64s', not a number.", command, what,
                                   std::string(text).c_str()));
    return number;
}

}  // namespace vantreld
