#include "FrameLayout.h"

#include <cstring>
#include <utility>

#include "ToolError.h"

namespace {

struct TagRow {
    const char* tag;
    int channels;
    bool floating;
    bool bigEndian;
};

// Tags without "_le" hold the most significant byte first.
const TagRow* findTag(const char* tag) {
    static const TagRow rows[] = {
        {VantrelClipFormat::FORMAT_MONO(), 1, false, true},
        {VantrelClipFormat::FORMAT_RGB(), 3, false, true},
        {VantrelClipFormat::FORMAT_RGBA(), 4, false, true},
        {VantrelClipFormat::FORMAT_MONO_LE(), 1, false, false},
        {VantrelClipFormat::FORMAT_RGB_LE(), 3, false, false},
        {VantrelClipFormat::FORMAT_RGBA_LE(), 4, false, false},
        {VantrelClipFormat::FORMAT_MONO_FLOAT(), 1, true, true},
        {VantrelClipFormat::FORMAT_RGB_FLOAT(), 3, true, true},
        {VantrelClipFormat::FORMAT_RGBA_FLOAT(), 4, true, true},
        {VantrelClipFormat::FORMAT_MONO_FLOAT_LE(), 1, true, false},
        {VantrelClipFormat::FORMAT_RGB_FLOAT_LE(), 3, true, false},
        {VantrelClipFormat::FORMAT_RGBA_FLOAT_LE(), 4, true, false},
    };
    for (const TagRow& row : rows)
        if (std::strcmp(row.tag, tag) == 0) return &row;
    return nullptr;
}

bool sampleTypeOf(bool floating, int bits, SampleType& type) {
    if (!floating && bits == 8) return type = SampleType::UInt8, true;
    if (!floating && bits == 16) return type = SampleType::UInt16, true;
    if (floating && bits == 16) return type = SampleType::Half, true;
    if (floating && bits == 32) return type = SampleType::Float, true;
    return false;
}

const char* tagOf(const FrameLayout& layout) {
    const bool mono = layout.channels == 1;
    const bool rgb = layout.channels == 3;
    switch (layout.type) {
        case SampleType::UInt8:
            return mono  ? VantrelClipFormat::FORMAT_MONO()
                   : rgb ? VantrelClipFormat::FORMAT_RGB()
                         : VantrelClipFormat::FORMAT_RGBA();
        case SampleType::UInt16:
            return mono  ? VantrelClipFormat::FORMAT_MONO_LE()
                   : rgb ? VantrelClipFormat::FORMAT_RGB_LE()
                         : VantrelClipFormat::FORMAT_RGBA_LE();
        case SampleType::Half:
        case SampleType::Float:
            break;
    }
    return mono  ? VantrelClipFormat::FORMAT_MONO_FLOAT_LE()
           : rgb ? VantrelClipFormat::FORMAT_RGB_FLOAT_LE()
                 : VantrelClipFormat::FORMAT_RGBA_FLOAT_LE();
}

// Sizes come from servers and files: a product that does not fit counts as too large.
bool withinLimit(const FrameLayout& layout) {
    std::size_t bytes = layout.bytesPerSample();
    const int factors[] = {layout.channels, layout.width, layout.height};
    for (int factor : factors) {
        if (factor <= 0) return false;
        if (__builtin_mul_overflow(bytes, static_cast<std::size_t>(factor), &bytes)) return false;
    }
    return bytes <= MAX_FRAME_BYTES;
}

std::string sizeText(int width, int height) {
    return std::to_string(width) + "x" + std::to_string(height);
}

}  // namespace

std::size_t FrameLayout::bytesPerSample() const {
    if (type == SampleType::UInt8) return 1;
    return type == SampleType::Float ? 4 : 2;
}

std::size_t FrameLayout::bytesPerRow() const {
    return static_cast<std::size_t>(width) * static_cast<std::size_t>(channels) * bytesPerSample();
}

std::size_t FrameLayout::frameBytes() const {
    return bytesPerRow() * static_cast<std::size_t>(height);
}

const char* sampleTypeName(SampleType type) {
    switch (type) {
        case SampleType::UInt8:
            return "8-bit";
        case SampleType::UInt16:
            return "16-bit";
        case SampleType::Half:
            return "half";
        case SampleType::Float:
            break;
    }
    return "float";
}

FrameLayout frameLayoutOf(const VantrelClipFormat& format) {
    const std::string what = "frames of format '" + std::string(format.formatTag()) + "'";
    const TagRow* row = findTag(format.formatTag());
    if (row == nullptr) throw ToolError(what + " are no mono, rgb or rgba pixels");

    FrameLayout layout;
    layout.width = format.width();
    layout.height = format.height();
    layout.channels = row->channels;
    layout.bigEndian = row->bigEndian;
    if (format.numChannels() != row->channels || format.bitsPerPixel() % row->channels != 0 ||
        !sampleTypeOf(row->floating, format.bitsPerPixel() / row->channels, layout.type))
        throw ToolError(what + " with " + std::to_string(format.bitsPerPixel()) + " bits per pixel and " +
                        std::to_string(format.numChannels()) + " channels have no known layout");
    if (!withinLimit(layout))
        throw ToolError(what + " have an impossible size, " + sizeText(layout.width, layout.height));
    if (layout.type == SampleType::UInt8) layout.bigEndian = false;
    if (layout.frameBytes() != format.frameBufferSize())
        throw ToolError(what + " hold " + std::to_string(format.frameBufferSize()) + " bytes, but " +
                        sizeText(layout.width, layout.height) + " pixels need " +
                        std::to_string(layout.frameBytes()));
    return layout;
}

VantrelClipFormat clipFormatOf(const FrameLayout& layout, float frameRate, float pixelRatio,
                               VantrelClipFormat::ScanFormat scanFormat, const std::string& colourSpace) {
    if (!withinLimit(layout))
        throw ToolError("images of " + sizeText(layout.width, layout.height) + " pixels are too large");
    const int bitsPerPixel = static_cast<int>(layout.bytesPerSample()) * 8 * layout.channels;
    VantrelClipFormat format(layout.width, layout.height, bitsPerPixel, layout.channels, frameRate,
                             pixelRatio, scanFormat, tagOf(layout), nullptr, nullptr);
    format.setFrameBufferSize(layout.frameBytes());
    format.setColourSpace(colourSpace.c_str());
    return format;
}

void swapSamples(const FrameLayout& layout, void* pixels) {
    auto* bytes = static_cast<unsigned char*>(pixels);
    const std::size_t total = layout.frameBytes();
    const std::size_t sample = layout.bytesPerSample();
    for (std::size_t at = 0; at + sample <= total; at += sample)
        for (std::size_t i = 0; i < sample / 2; ++i) std::swap(bytes[at + i], bytes[at + sample - 1 - i]);
}
