#include <vantrel/VantrelFormats.h>

namespace {

constexpr const char* NO_META_DATA_TAG = "none";

}  // namespace

VantrelClipFormat::VantrelClipFormat() = default;

VantrelClipFormat::VantrelClipFormat(int width, int height, int bitsPerPixel, int numChannels,
                                     float frameRate, float pixelRatio, ScanFormat scanFormat,
                                     const char* formatTag, const char* metaDataTag, const char* metaData)
    : formatTag_(formatTag),
      metaData_(metaData),
      metaDataTag_(metaDataTag ? metaDataTag : NO_META_DATA_TAG),
      width_(width),
      height_(height),
      frameBufferSize_(0),
      pixelRatio_(pixelRatio),
      scanFormat_(scanFormat),
      frameRate_(frameRate),
      bitsPerPixel_(bitsPerPixel),
      numChannels_(numChannels) {}

VantrelClipFormat::VantrelClipFormat(int width, int height, int bitsPerPixel, int numChannels,
                                     const char* colourSpace, float frameRate, float pixelRatio,
                                     ScanFormat scanFormat, const char* formatTag, const char* metaDataTag,
                                     const char* metaData)
    : VantrelClipFormat(width, height, bitsPerPixel, numChannels, frameRate, pixelRatio, scanFormat,
                        formatTag, metaDataTag, metaData) {
    colourSpace_ = colourSpace;
}

VantrelClipFormat::VantrelClipFormat(int width, int height, int bitsPerPixel, int numChannels,
                                     unsigned long frameBufferSize, float frameRate, float pixelRatio,
                                     ScanFormat scanFormat, const char* formatTag, const char* metaDataTag,
                                     const char* metaData)
    : VantrelClipFormat(width, height, bitsPerPixel, numChannels, frameRate, pixelRatio, scanFormat,
                        formatTag, metaDataTag, metaData) {
    frameBufferSize_ = frameBufferSize;
}

VantrelClipFormat::VantrelClipFormat(const VantrelClipFormat& other) = default;

VantrelClipFormat::VantrelClipFormat(VantrelClipFormat&& other) noexcept = default;

VantrelClipFormat& VantrelClipFormat::operator=(const VantrelClipFormat& other) = default;

VantrelClipFormat& VantrelClipFormat::operator=(VantrelClipFormat&& other) noexcept = default;

VantrelClipFormat::~VantrelClipFormat() = default;

int VantrelClipFormat::bitsPerChannel() const noexcept {
    if (numChannels_ == 0) return 0;
    return static_cast<int>(static_cast<long>(bitsPerPixel_) / numChannels_);
}

const char* VantrelClipFormat::scanFormatStr(ScanFormat scanFormat) noexcept {
    switch (scanFormat) {
        case FIELD1_ODD:
            return "field1_odd";
        case FIELD1_EVEN:
            return "field1_even";
        case FIELD2_ODD:
            return "field2_odd";
        case FIELD2_EVEN:
            return "field2_even";
        case PROGRESSIVE:
            return "progressive";
    }
    return "unknown";
}
