#pragma once

#include <vantrel/VantrelClientAPI.h>

#include <cstddef>
#include <string>

/// How the bytes of an uncompressed frame become pixels, and back to the format tag that says so.
/// docs/frames.md describes the layout for users. Thread safety: pure functions and plain values.

enum class SampleType { UInt8, UInt16, Half, Float };

/// Largest frame that the tools handle, in bytes: sizes come from servers and files, and a buffer is made of
/// it.
constexpr std::size_t MAX_FRAME_BYTES = std::size_t{4} << 30;

/// Rows top first, pixels left to right, samples interleaved, no padding anywhere.
struct FrameLayout {
    int width = 0;
    int height = 0;
    int channels = 0;  ///< 1 mono, 3 rgb, 4 rgba
    SampleType type = SampleType::UInt8;
    bool bigEndian = false;  ///< order of the bytes within a sample; no meaning for one-byte samples

    std::size_t bytesPerSample() const;
    std::size_t bytesPerRow() const;
    std::size_t frameBytes() const;
};

/// Name for messages: "8-bit", "16-bit", "half", "float".
const char* sampleTypeName(SampleType type);

/// The layout that a clip's format gives. Throws ToolError, naming the tag and the reason, when its frames
/// are no uncompressed mono, rgb or rgba pixels of that size.
FrameLayout frameLayoutOf(const VantrelClipFormat& format);

/// Tag, sizes and counts of a clip whose frames have this little-endian layout. Throws ToolError when a frame
/// would exceed MAX_FRAME_BYTES.
VantrelClipFormat clipFormatOf(const FrameLayout& layout, float frameRate, float pixelRatio,
                               VantrelClipFormat::ScanFormat scanFormat, const std::string& colourSpace);

/// Swaps the bytes of every sample, so that big-endian frames become this host's.
void swapSamples(const FrameLayout& layout, void* pixels);
