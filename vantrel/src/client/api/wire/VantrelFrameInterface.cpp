#include "VantrelFrameInterface.h"

#include <charconv>
#include <iterator>

namespace {

struct MethodRow {
    const char* text;
    VantrelVersion since = {0, 0, 0, 0};
};

// In the order of the enumeration.
constexpr MethodRow METHODS[] = {
    {"ReadFrame"},
    {"WriteFrame"},
    {"ReadAhead"},
    {"NoOp"},
    {"PullFile", {2007, 1, 0, 0}},
    {"PushFile", {2007, 1, 0, 0}},
    {"ReadStream", {2007, 1, 0, 0}},
    {"ReadFrameNoAck", {2010, 0, 0, 0}},
    {"ReadFrameParams"},
    {"ReadAheadParams"},
    {"ReadFrameParamsNoAck", {2010, 0, 0, 0}},
    {"ReadAheadRedirect", {2011, 0, 0, 0}},
    {"InvalidateCache", {2012, 0, 0, 5120}},
};

}  // namespace

const char* VantrelFrameInterface::methodToStr(Method method) {
    const int index = method;
    return index >= 0 && index < static_cast<int>(std::size(METHODS)) ? METHODS[index].text : "";
}

VantrelVersion VantrelFrameInterface::since(Method method) {
    return METHODS[method].since;
}

std::optional<VantrelFrameInterface::Method> VantrelFrameInterface::strToMethod(std::string_view text) {
    for (std::size_t i = 0; i < std::size(METHODS); ++i) {
        if (text == METHODS[i].text) return static_cast<Method>(i);
    }
    return std::nullopt;
}

const char* VantrelFrameInterface::FAST_ACK_ERROR_PREFIX() {
    // Clients compare the text: the spelling is theirs.
    return "Fetcher la vache! An error occurred while reading a frame from the Vantrel server:";
}

std::string VantrelFrameInterface::header(Method method, std::string_view text, long size) {
    std::string bytes = bareMethod(method);
    bytes.append(text);
    bytes.push_back('\0');
    bytes += std::to_string(size);
    bytes.push_back('\0');
    return bytes;
}

std::string VantrelFrameInterface::bareMethod(Method method) {
    std::string bytes = methodToStr(method);
    bytes.push_back('\0');
    return bytes;
}

std::string VantrelFrameInterface::sizeText(std::uint64_t size) {
    std::string bytes = std::to_string(size);
    bytes.push_back('\0');
    return bytes;
}

std::optional<std::uint64_t> VantrelFrameInterface::parseSize(std::string_view text) {
    std::int64_t size = 0;
    const char* end = text.data() + text.size();
    const auto parsed = std::from_chars(text.data(), end, size);
    if (parsed.ec != std::errc() || parsed.ptr != end || size < 0 || text.front() == '-') return std::nullopt;
    return static_cast<std::uint64_t>(size);
}
