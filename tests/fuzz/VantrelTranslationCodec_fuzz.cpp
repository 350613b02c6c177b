#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>
#include <vector>

#include "VantrelTranslationCodec.h"

namespace {

using Codec = VantrelTranslationCodec;

constexpr std::size_t MAX_PATHS = 100;

void request(std::string_view text) {
    VantrelTranslationRequest first;
    VantrelTranslationRequest second;
    std::string error;
    if (!Codec::parseRequest(text, MAX_PATHS, first, error)) {
        if (error.empty() || !first.srcHost.empty() || !first.paths.empty()) std::abort();
        return;
    }
    if (!Codec::isValidHost(first.srcHost) || !Codec::isValidHost(first.dstHost)) std::abort();
    if (!Codec::parseRequest(Codec::formatRequest(first), MAX_PATHS, second, error)) std::abort();
    if (first.srcHost != second.srcHost || first.dstType != second.dstType || first.paths != second.paths)
        std::abort();
}

void paths(std::string_view text) {
    std::vector<std::string> first;
    std::vector<std::string> second;
    if (!Codec::parsePaths(text, MAX_PATHS, first)) {
        if (!first.empty()) std::abort();
        return;
    }
    if (first.size() > MAX_PATHS || first.size() > text.size()) std::abort();
    if (!Codec::parsePaths(Codec::formatPaths(first), MAX_PATHS, second) || first != second) std::abort();
}

/// A table that could be read comes out the same when it is written and read again.
template <typename Entry>
void table(std::string_view text, bool (*parse)(std::string_view, std::vector<Entry>&),
           std::string (*format)(const std::vector<Entry>&)) {
    std::vector<Entry> first;
    std::vector<Entry> second;
    if (!parse(text, first)) {
        if (!first.empty()) std::abort();
        return;
    }
    if (first.size() > text.size()) std::abort();
    const std::string written = format(first);
    if (!parse(written, second) || second.size() != first.size() || format(second) != written) std::abort();
}

}  // namespace

/// The first byte selects the parser, the rest is the text.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size == 0) return 0;
    const std::string text(reinterpret_cast<const char*>(data) + 1, size - 1);
    switch (data[0] % 5) {
        case 0:
            request(text);
            break;
        case 1:
            paths(text);
            break;
        case 2:
            table(text, Codec::parseGroups, Codec::formatGroups);
            break;
        case 3:
            table(text, Codec::parseHostTranslations, Codec::formatHostTranslations);
            break;
        default:
            table(text, Codec::parseOsTypeTranslations, Codec::formatOsTypeTranslations);
            break;
    }
    return 0;
}
