#pragma once

#include <cstddef>
#include <cstdint>

namespace vantreld {

/// What a client can make the server keep or answer is bounded here.

/// Frames of one clip: a day and a half at 30 per second, and the list of their ids stays below what clients
/// accept as one reply.
constexpr std::int64_t MAX_CLIP_FRAMES = 4'000'000;

/// Nodes that one command copies: copying a folder into itself, again and again, doubles it each time, and
/// every other command waits for the copy.
constexpr std::size_t MAX_DUPLICATED_NODES = 100'000;

constexpr std::size_t MAX_DISPLAY_NAME_BYTES = 65'536;

/// One uploaded frame or file.
constexpr std::uint64_t MAX_FRAME_BYTES = std::uint64_t(4) << 30;
constexpr std::uint64_t MAX_FILE_BYTES = std::uint64_t(1) << 40;

/// The texts and parameters of a frame port request.
constexpr std::size_t MAX_METHOD_BYTES = 63;
constexpr std::size_t MAX_REQUEST_TEXT_BYTES = 4096;
constexpr std::uint64_t MAX_PARAMETER_BYTES = 1 << 20;

constexpr std::size_t MAX_FRAME_CONNECTIONS = 256;

/// Clients that events are sent to, all their registrations together, and what waits to be sent to each:
/// beyond it the oldest give way.
constexpr std::size_t MAX_EVENT_CLIENTS = 256;
constexpr std::size_t MAX_EVENT_REGISTRATIONS = 100'000;
constexpr std::size_t MAX_QUEUED_EVENTS = 100'000;
constexpr std::size_t MAX_QUEUED_EVENT_BYTES = 16 << 20;

/// Paths of one "TranslatePaths". With the longest text that a table may hold before each of them, the answer
/// stays below what clients accept as one reply.
constexpr std::size_t MAX_TRANSLATED_PATHS = 10'000;

/// The file of path translations: its size, the entries of each of its tables, each of their texts.
constexpr std::size_t MAX_TRANSLATION_FILE_BYTES = 1 << 20;
constexpr std::size_t MAX_TRANSLATIONS = 1000;
constexpr std::size_t MAX_TRANSLATION_TEXT_BYTES = 4096;

}  // namespace vantreld
