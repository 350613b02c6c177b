#pragma once

#include <cstdint>
#include <string_view>
#include <vector>

#include "FrameSocket.h"
#include "NodeStore.h"

namespace vantreld {

/// A range of elements from a clip read as one run of bytes: its frames one after the other. Not thread-safe.
class FrameStream {
  public:
    /// Finds up to `count` elements of `elementSize` bytes from element `position` on. CoException when the
    /// range makes no sense, or on the way to it a frame is unwritten or unreadable.
    FrameStream(NodeStore& store, std::string_view clip, std::uint64_t position, std::uint64_t elementSize,
                std::uint64_t count);

    /// Elements that are there, and the bytes that they take.
    std::uint64_t elements() const { return length_ / elementSize_; }
    std::uint64_t length() const { return length_; }

    void send(FrameSocket& socket) const;

  private:
    struct Segment {
        ReadableFile file;
        std::uint64_t start;
        std::uint64_t length;
    };

    std::uint64_t elementSize_;
    std::uint64_t length_ = 0;
    std::vector<Segment> segments_;
};

}  // namespace vantreld
