#include "FrameStream.h"

#include <algorithm>
#include <utility>

#include "CoException.h"
#include "CoMsg.h"
#include "NodeIds.h"

namespace vantreld {

using Vantrel::CoException;
using Vantrel::coFormat;

namespace {

/// Open files that one read may take.
constexpr std::size_t MAX_SEGMENTS = 64;

}  // namespace

FrameStream::FrameStream(NodeStore& store, std::string_view clip, std::uint64_t position,
                         std::uint64_t elementSize, std::uint64_t count)
    : elementSize_(elementSize) {
    std::uint64_t skip = 0;
    std::uint64_t wanted = 0;
    if (elementSize == 0 || __builtin_mul_overflow(position, elementSize, &skip) ||
        __builtin_mul_overflow(count, elementSize, &wanted))
        throw CoException(
            coFormat("Cannot read stream '%.128s': %lu elements of %lu bytes from %lu on are no range.",
                     std::string(clip).c_str(), count, elementSize, position));
    const std::int64_t numFrames = store.numFrames(clip);
    for (std::int64_t index = 0; index < numFrames; ++index) {
        if (wanted == length_ || segments_.size() == MAX_SEGMENTS) break;
        ReadableFile frame = store.openFrame(frameIdText(parseNodeId(clip), index));
        const std::uint64_t start = std::min<std::uint64_t>(skip, frame.size);
        skip -= start;
        const std::uint64_t taken = std::min(frame.size - start, wanted - length_);
        if (taken == 0) continue;
        length_ += taken;
        segments_.push_back({std::move(frame), start, taken});
    }
    // Whole elements only.
    std::uint64_t surplus = length_ % elementSize;
    length_ -= surplus;
    while (surplus > 0) {
        const std::uint64_t cut = std::min(surplus, segments_.back().length);
        segments_.back().length -= cut;
        surplus -= cut;
        if (segments_.back().length == 0) segments_.pop_back();
    }
}

void FrameStream::send(FrameSocket& socket) const {
    for (const Segment& segment : segments_) socket.sendFile(segment.file, segment.start, segment.length);
}

}  // namespace vantreld
