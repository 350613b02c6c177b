#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "VantrelVersion.h"

/// The texts of the frame protocol: method names, request headers, sizes. Pure text, no I/O: the frame client
/// and the embedded server both speak through it. Thread-safe.
class VantrelFrameInterface {
  public:
    enum Method : int {
        READ_FRAME = 0,
        WRITE_FRAME = 1,
        READ_AHEAD = 2,
        NO_OP = 3,
        PULL_FILE = 4,
        PUSH_FILE = 5,
        READ_STREAM = 6,
        READ_FRAME_NO_ACK = 7,
        READ_FRAME_PARAMS = 8,
        READ_AHEAD_PARAMS = 9,
        READ_FRAME_PARAMS_NO_ACK = 10,
        READ_AHEAD_REDIRECT = 11,
        INVALIDATE_CACHE = 12,
    };

    /// Most bytes of a size or of a return code, their NUL not counted.
    static constexpr std::size_t MAX_SIZE_TEXT = 63;
    static constexpr std::size_t MAX_RETURN_CODE = 1023;

    /// The method's text; empty for a number that is no method.
    static const char* methodToStr(Method method);
    /// The method of that exact text; none for any other text.
    static std::optional<Method> strToMethod(std::string_view text);
    /// The protocol version from which on servers have a method of the enumeration.
    static VantrelVersion since(Method method);

    /// What stands in place of a frame, followed by the error's text, when a read without acknowledgement
    /// fails.
    static const char* FAST_ACK_ERROR_PREFIX();

    /// Request header: method, `text` and the decimal size, each followed by a NUL. `text` holds none.
    static std::string header(Method method, std::string_view text, long size);
    /// A method that stands alone, with its NUL.
    static std::string bareMethod(Method method);
    /// A size and its NUL.
    static std::string sizeText(std::uint64_t size);
    /// A received size without its NUL: decimal digits and nothing else; none when it is not that, or when it
    /// is above what a signed 64-bit number holds.
    static std::optional<std::uint64_t> parseSize(std::string_view text);
};
