#pragma once

#include <type_traits>

#include "VantrelStr.h"

/// Describes the frames of a clip: image size, pixel layout, rate, and the tag that names their encoding.
///
/// Texts given to it are copied, null counts as empty unless said otherwise; texts that it gives are never
/// null and valid until the format is changed or destroyed. Different objects may be used from different
/// threads; one object by several threads only while none of them changes it.
class VANTREL_API VantrelClipFormat {
  public:
    /// Which field of a frame comes first and which lines it holds. The numbers travel in the protocol, and a
    /// server may send one that stands for none of these.
    enum ScanFormat : int {
        FIELD1_ODD = 0,
        FIELD1_EVEN = 1,
        FIELD2_ODD = 2,
        FIELD2_EVEN = 3,
        PROGRESSIVE = 4
    };

    /// One pixel: 1 x 1, 24 bits, 3 channels, 30 frames a second, pixel ratio 1, FIELD1_ODD, 1 byte a frame,
    /// empty texts.
    VantrelClipFormat();

    /// Frame buffer size 0 and no colour space. A null metadata tag becomes "none".
    VantrelClipFormat(int width, int height, int bitsPerPixel, int numChannels, float frameRate,
                      float pixelRatio, ScanFormat scanFormat, const char* formatTag, const char* metaDataTag,
                      const char* metaData);
    /// The same with a colour space.
    VantrelClipFormat(int width, int height, int bitsPerPixel, int numChannels, const char* colourSpace,
                      float frameRate, float pixelRatio, ScanFormat scanFormat, const char* formatTag,
                      const char* metaDataTag, const char* metaData);
    /// The same with the bytes of one frame.
    VantrelClipFormat(int width, int height, int bitsPerPixel, int numChannels, unsigned long frameBufferSize,
                      float frameRate, float pixelRatio, ScanFormat scanFormat, const char* formatTag,
                      const char* metaDataTag, const char* metaData);

    /// For a size of any other integer type, such as a literal 0.
    template <typename Integer, typename = typename std::enable_if<std::is_integral<Integer>::value>::type>
    VantrelClipFormat(int width, int height, int bitsPerPixel, int numChannels, Integer frameBufferSize,
                      float frameRate, float pixelRatio, ScanFormat scanFormat, const char* formatTag,
                      const char* metaDataTag, const char* metaData)
        : VantrelClipFormat(width, height, bitsPerPixel, numChannels,
                            static_cast<unsigned long>(frameBufferSize), frameRate, pixelRatio, scanFormat,
                            formatTag, metaDataTag, metaData) {}

    VantrelClipFormat(const VantrelClipFormat& other);
    /// Takes the texts of `other`, which become empty; its numbers stay.
    VantrelClipFormat(VantrelClipFormat&& other) noexcept;
    VantrelClipFormat& operator=(const VantrelClipFormat& other);
    VantrelClipFormat& operator=(VantrelClipFormat&& other) noexcept;
    virtual ~VantrelClipFormat();

    /// Image size in pixels.
    int width() const noexcept { return width_; }
    void setWidth(int width) { width_ = width; }
    int height() const noexcept { return height_; }
    void setHeight(int height) { height_ = height; }

    int bitsPerPixel() const noexcept { return bitsPerPixel_; }
    void setBitsPerPixel(int bits) { bitsPerPixel_ = bits; }
    int numChannels() const noexcept { return numChannels_; }
    void setNumChannels(int channels) { numChannels_ = channels; }
    /// Bits per pixel divided by the channels, rounded toward 0; 0 when there are no channels.
    int bitsPerChannel() const noexcept;

    /// Bytes of one frame as the server stores it. Nothing here computes it from the image size.
    unsigned long frameBufferSize() const noexcept { return frameBufferSize_; }
    void setFrameBufferSize(unsigned long bytes) { frameBufferSize_ = bytes; }

    /// Width of a pixel divided by its height.
    float pixelRatio() const noexcept { return pixelRatio_; }
    void setPixelRatio(float ratio) { pixelRatio_ = ratio; }
    /// Frames per second.
    float frameRate() const noexcept { return frameRate_; }
    void setFrameRate(float rate) { frameRate_ = rate; }

    ScanFormat scanFormat() const noexcept { return scanFormat_; }
    void setScanFormat(ScanFormat scanFormat) { scanFormat_ = scanFormat; }
    /// "field1_odd", "field1_even", "field2_odd", "field2_even", "progressive"; "unknown" for any other
    /// value.
    static const char* scanFormatStr(ScanFormat scanFormat) noexcept;

    /// Encoding of the frames: one of the tags below, or another that the server knows. A word of at most 255
    /// bytes.
    const char* formatTag() const noexcept { return formatTag_.c_str(); }
    void setFormatTag(const char* tag) { formatTag_ = tag; }

    /// The metadata, and the word of at most 255 bytes that names what it is.
    const char* metaDataTag() const noexcept { return metaDataTag_.c_str(); }
    void setMetaDataTag(const char* tag) { metaDataTag_ = tag; }
    const char* metaData() const noexcept { return metaData_.c_str(); }
    void setMetaData(const char* metaData) { metaData_ = metaData; }

    const char* colourSpace() const noexcept { return colourSpace_.c_str(); }
    void setColourSpace(const char* colourSpace) { colourSpace_ = colourSpace; }

    /// Pixel layouts, big-endian where a channel has several bytes.
    static const char* FORMAT_MONO() noexcept;
    static const char* FORMAT_RGB() noexcept;
    static const char* FORMAT_HLS() noexcept;
    static const char* FORMAT_YUV() noexcept;
    static const char* FORMAT_RGBA() noexcept;
    static const char* FORMAT_HLSA() noexcept;
    static const char* FORMAT_YUVA() noexcept;
    static const char* FORMAT_UYVY() noexcept;

    /// The same, little-endian.
    static const char* FORMAT_MONO_LE() noexcept;
    static const char* FORMAT_RGB_LE() noexcept;
    static const char* FORMAT_HLS_LE() noexcept;
    static const char* FORMAT_YUV_LE() noexcept;
    static const char* FORMAT_RGBA_LE() noexcept;
    static const char* FORMAT_HLSA_LE() noexcept;
    static const char* FORMAT_YUVA_LE() noexcept;
    static const char* FORMAT_UYVY_LE() noexcept;

    /// Channels that are floating-point numbers.
    static const char* FORMAT_RGB_FLOAT() noexcept;
    static const char* FORMAT_RGB_FLOAT_LE() noexcept;
    static const char* FORMAT_RGBA_FLOAT() noexcept;
    static const char* FORMAT_RGBA_FLOAT_LE() noexcept;
    static const char* FORMAT_MONO_FLOAT() noexcept;
    static const char* FORMAT_MONO_FLOAT_LE() noexcept;

    /// Image files, a file per frame.
    static const char* FORMAT_ALIAS() noexcept;
    static const char* FORMAT_DPX() noexcept;
    static const char* FORMAT_JPEG() noexcept;
    static const char* FORMAT_PICT() noexcept;
    static const char* FORMAT_PIXAR() noexcept;
    static const char* FORMAT_SGI() noexcept;
    static const char* FORMAT_SOFTIMAGE() noexcept;
    static const char* FORMAT_TARGA() noexcept;
    static const char* FORMAT_MAYA() noexcept;
    static const char* FORMAT_TDI() noexcept;
    static const char* FORMAT_TIFF() noexcept;
    static const char* FORMAT_WAVEFRONT() noexcept;
    static const char* FORMAT_PHOTOSHOP() noexcept;
    static const char* FORMAT_CINEON() noexcept;
    static const char* FORMAT_OPENEXR() noexcept;
    static const char* FORMAT_MIXED() noexcept;

    /// Sound files.
    static const char* FORMAT_WAV() noexcept;
    static const char* FORMAT_AIFF() noexcept;
    static const char* FORMAT_AIFC() noexcept;

    /// Raw sound samples.
    static const char* FORMAT_QD_AUDIO() noexcept;
    static const char* FORMAT_QD_AUDIO_MIXED() noexcept;
    static const char* FORMAT_QD_AUDIO_FLOAT() noexcept;
    static const char* FORMAT_QD_AUDIO_FLOAT_LE() noexcept;
    static const char* FORMAT_QD_AUDIO_INT8() noexcept;
    static const char* FORMAT_QD_AUDIO_INT8_UNSIGNED() noexcept;
    static const char* FORMAT_QD_AUDIO_INT16() noexcept;
    static const char* FORMAT_QD_AUDIO_INT16_LE() noexcept;
    static const char* FORMAT_QD_AUDIO_INT24() noexcept;
    static const char* FORMAT_QD_AUDIO_INT24_LE() noexcept;
    static const char* FORMAT_QD_AUDIO_INT24_MSB32_LE() noexcept;

  private:
    VantrelStr formatTag_;
    VantrelStr metaData_;
    VantrelStr metaDataTag_;
    int width_ = 1;
    int height_ = 1;
    unsigned long frameBufferSize_ = 1;
    VantrelStr colourSpace_;
    float pixelRatio_ = 1.0F;
    ScanFormat scanFormat_ = FIELD1_ODD;
    float frameRate_ = 30.0F;
    int bitsPerPixel_ = 24;
    int numChannels_ = 3;
};

/// A clip format under the names of sound: samples are the width, bits per sample the bits per pixel, the
/// sample rate is the frame rate. The height is always 1.
///
/// Different objects may be used from different threads; one object by several threads only while none of
/// them changes it.
class VANTREL_API VantrelAudioFormat : public VantrelClipFormat {
  public:
    VantrelAudioFormat();
    /// Texts as in a clip format; frame buffer size 0.
    VantrelAudioFormat(int numSamples, int bitsPerSample, int numChannels, float sampleRate,
                       const char* formatTag, const char* metaDataTag, const char* metaData);
    VantrelAudioFormat(const VantrelAudioFormat& other);
    VantrelAudioFormat(VantrelAudioFormat&& other) noexcept;
    VantrelAudioFormat& operator=(const VantrelAudioFormat& other);
    VantrelAudioFormat& operator=(VantrelAudioFormat&& other) noexcept;
    ~VantrelAudioFormat() override;

    /// Samples of one frame, per channel.
    int numSamples() const noexcept { return width(); }
    void setNumSamples(int samples) { setWidth(samples); }
    int bitsPerSample() const noexcept { return bitsPerPixel(); }
    void setBitsPerSample(int bits) { setBitsPerPixel(bits); }
    /// Samples per second.
    float sampleRate() const noexcept { return frameRate(); }
    void setSampleRate(float rate) { setFrameRate(rate); }

    void setHeight(int height) = delete;
};
