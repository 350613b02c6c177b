#include "ImageFiles.h"

#include <OpenImageIO/imageio.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <memory>
#include <vector>

#include "ToolError.h"

using OIIO::ImageInput;
using OIIO::ImageOutput;
using OIIO::ImageSpec;
using OIIO::TypeDesc;

namespace {

constexpr const char* COLOUR_SPACE = "oiio:ColorSpace";
constexpr const char* KEEP_ALPHA_APART = "oiio:UnassociatedAlpha";

[[noreturn]] void fail(const char* attempt, const std::string& path, std::string reason) {
    while (!reason.empty() && (reason.back() == '\n' || reason.back() == ' ')) reason.pop_back();
    if (reason.empty()) reason = "the image library gives no reason";
    throw ToolError(std::string("cannot ") + attempt + " image '" + path + "': " + reason);
}

std::unique_ptr<ImageInput> openInput(const std::string& path) {
    ImageSpec wishes;
    // Without this the reader multiplies colour by alpha, and the samples are no longer those of the file.
    wishes.attribute(KEEP_ALPHA_APART, 1);
    std::unique_ptr<ImageInput> input = ImageInput::open(path, &wishes);
    if (!input) fail("open", path, OIIO::geterror());
    return input;
}

TypeDesc typeDescOf(SampleType type) {
    switch (type) {
        case SampleType::UInt8:
            return TypeDesc::UINT8;
        case SampleType::UInt16:
            return TypeDesc::UINT16;
        case SampleType::Half:
            return TypeDesc::HALF;
        case SampleType::Float:
            break;
    }
    return TypeDesc::FLOAT;
}

SampleType sampleTypeOf(const std::string& path, const ImageSpec& spec) {
    for (SampleType type : {SampleType::UInt8, SampleType::UInt16, SampleType::Half, SampleType::Float})
        if (spec.format == typeDescOf(type)) return type;
    fail("use", path,
         std::string("its samples are ") + spec.format.c_str() +
             "; 8-bit, 16-bit, half and float samples can be used");
}

FrameLayout layoutOf(const std::string& path, const ImageSpec& spec) {
    if (spec.deep) fail("use", path, "it is a deep image");
    FrameLayout layout;
    layout.width = spec.full_width;
    layout.height = spec.full_height;
    layout.channels = spec.nchannels;
    layout.type = sampleTypeOf(path, spec);
    if (layout.channels != 1 && layout.channels != 3 && layout.channels != 4)
        fail("use", path, "it has " + std::to_string(layout.channels) + " channels; 1, 3 or 4 can be used");
    if (spec.depth > 1) fail("use", path, "it is a volume");
    return layout;
}

bool sameLayout(const FrameLayout& a, const FrameLayout& b) {
    return a.width == b.width && a.height == b.height && a.channels == b.channels && a.type == b.type;
}

bool read(ImageInput& input, const FrameLayout& layout, void* pixels) {
    return input.read_image(0, 0, 0, layout.channels, typeDescOf(layout.type), pixels);
}

// Puts the rows of an image that covers another area than its display window in their place in it; the rest
// of the window is 0.
void placeInWindow(const ImageSpec& spec, const FrameLayout& layout, const std::vector<unsigned char>& data,
                   unsigned char* pixels) {
    std::memset(pixels, 0, layout.frameBytes());
    const std::size_t pixelBytes = static_cast<std::size_t>(layout.channels) * layout.bytesPerSample();
    const std::size_t dataRow = static_cast<std::size_t>(spec.width) * pixelBytes;
    const long left = std::max<long>(spec.x, spec.full_x);
    const long right = std::min(long{spec.x} + spec.width, long{spec.full_x} + spec.full_width);
    const long top = std::max<long>(spec.y, spec.full_y);
    const long bottom = std::min(long{spec.y} + spec.height, long{spec.full_y} + spec.full_height);
    if (right <= left) return;
    for (long y = top; y < bottom; ++y) {
        const unsigned char* from = data.data() + static_cast<std::size_t>(y - spec.y) * dataRow +
                                    static_cast<std::size_t>(left - spec.x) * pixelBytes;
        unsigned char* to = pixels + static_cast<std::size_t>(y - spec.full_y) * layout.bytesPerRow() +
                            static_cast<std::size_t>(left - spec.full_x) * pixelBytes;
        std::memcpy(to, from, static_cast<std::size_t>(right - left) * pixelBytes);
    }
}

TypeDesc storedType(ImageFileType type, SampleType samples) {
    if (type == ImageFileType::Exr && samples == SampleType::UInt8) return TypeDesc::HALF;
    if (type == ImageFileType::Exr && samples == SampleType::UInt16) return TypeDesc::FLOAT;
    if (type == ImageFileType::Dpx && samples == SampleType::Half) return TypeDesc::FLOAT;
    return typeDescOf(samples);
}

ImageSpec specOf(ImageFileType type, const FrameLayout& layout, const std::string& colourSpace) {
    ImageSpec spec(layout.width, layout.height, layout.channels, storedType(type, layout.type));
    spec.attribute(KEEP_ALPHA_APART, 1);
    if (type == ImageFileType::Exr) spec.attribute("compression", "zip");
    // TIFF would otherwise widen half samples to float.
    if (type == ImageFileType::Tif) spec.attribute("tiff:half", 1);
    if (!colourSpace.empty()) spec.attribute(COLOUR_SPACE, colourSpace);
    return spec;
}

}  // namespace

ImageDescription describeImage(const std::string& path) {
    const std::unique_ptr<ImageInput> input = openInput(path);
    const ImageSpec& spec = input->spec();
    return {layoutOf(path, spec), spec.get_string_attribute(COLOUR_SPACE).c_str()};
}

void readImage(const std::string& path, const FrameLayout& layout, void* pixels) {
    const std::unique_ptr<ImageInput> input = openInput(path);
    const ImageSpec& spec = input->spec();
    if (!sameLayout(layoutOf(path, spec), layout)) fail("read", path, "it has changed meanwhile");

    const bool coversWindow = spec.x == spec.full_x && spec.y == spec.full_y &&
                              spec.width == spec.full_width && spec.height == spec.full_height;
    if (coversWindow) {
        if (!read(*input, layout, pixels)) fail("read", path, input->geterror());
        return;
    }
    FrameLayout dataWindow = layout;
    dataWindow.width = spec.width;
    dataWindow.height = spec.height;
    if (dataWindow.width <= 0 || dataWindow.height <= 0 || dataWindow.frameBytes() > MAX_FRAME_BYTES)
        fail("read", path, "its data window is too large");
    std::vector<unsigned char> data(dataWindow.frameBytes());
    if (!read(*input, dataWindow, data.data())) fail("read", path, input->geterror());
    placeInWindow(spec, layout, data, static_cast<unsigned char*>(pixels));
}

void writeImage(const std::string& path, ImageFileType type, const FrameLayout& layout,
                const std::string& colourSpace, const void* pixels) {
    const std::unique_ptr<ImageOutput> output = ImageOutput::create(imageFileTypeName(type));
    if (!output) fail("write", path, OIIO::geterror());
    if (!output->open(path, specOf(type, layout, colourSpace))) fail("create", path, output->geterror());
    const bool written = output->write_image(typeDescOf(layout.type), pixels);
    std::string reason = output->geterror();
    const bool closed = output->close();
    if (written && closed) return;
    if (reason.empty()) reason = output->geterror();
    std::remove(path.c_str());
    fail("write", path, reason);
}
