#include <vantrel/VantrelFormats.h>

namespace {

constexpr int HEIGHT = 1;
constexpr float PIXEL_RATIO = 1.0F;

}  // namespace

VantrelAudioFormat::VantrelAudioFormat() = default;

VantrelAudioFormat::VantrelAudioFormat(int numSamples, int bitsPerSample, int numChannels, float sampleRate,
                                       const char* formatTag, const char* metaDataTag, const char* metaData)
    : VantrelClipFormat(numSamples, HEIGHT, bitsPerSample, numChannels, sampleRate, PIXEL_RATIO, FIELD1_ODD,
                        formatTag, metaDataTag, metaData) {}

VantrelAudioFormat::VantrelAudioFormat(const VantrelAudioFormat& other) = default;

VantrelAudioFormat::VantrelAudioFormat(VantrelAudioFormat&& other) noexcept = default;

VantrelAudioFormat& VantrelAudioFormat::operator=(const VantrelAudioFormat& other) = default;

VantrelAudioFormat& VantrelAudioFormat::operator=(VantrelAudioFormat&& other) noexcept = default;

VantrelAudioFormat::~VantrelAudioFormat() = default;
