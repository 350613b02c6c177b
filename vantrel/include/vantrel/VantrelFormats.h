#pragma once

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

    VantrelClipFormat(const VantrelClipFormat& other);
    VantrelClipFormat& operator=(const VantrelClipFormat& other);
    virtual ~VantrelClipFormat();

    /// Image size in pixels.
    int width() const { return width_; }
    void setWidth(int width) { width_ = width; }
    int height() const { return height_; }
    void setHeight(int height) { height_ = height; }

    int bitsPerPixel() const { return bitsPerPixel_; }
    void setBitsPerPixel(int bits) { bitsPerPixel_ = bits; }
    int numChannels() const { return numChannels_; }
    void setNumChannels(int channels) { numChannels_ = channels; }
    /// Bits per pixel divided by the channels, rounded toward 0; 0 when there are no channels.
    int bitsPerChannel() const;

    /// Bytes of one frame as the server stores it. Nothing here computes it from the image size.
    unsigned long frameBufferSize() const { return frameBufferSize_; }
    void setFrameBufferSize(unsigned long bytes) { frameBufferSize_ = bytes; }

    /// Width of a pixel divided by its height.
    float pixelRatio() const { return pixelRatio_; }
    void setPixelRatio(float ratio) { pixelRatio_ = ratio; }
    /// Frames per second.
    float frameRate() const { return frameRate_; }
    void setFrameRate(float rate) { frameRate_ = rate; }

    ScanFormat scanFormat() const { return scanFormat_; }
    void setScanFormat(ScanFormat scanFormat) { scanFormat_ = scanFormat; }
    /// "field1_odd", "field1_even", "field2_odd", "field2_even", "progressive"; "unknown" for any other
    /// value.
    static const char* scanFormatStr(ScanFormat scanFormat);

    /// Encoding of the frames: one of the tags below, or another that the server knows. A word of at most 255
    /// bytes.
    const char* formatTag() const { return formatTag_.c_str(); }
    void setFormatTag(const char* tag) { formatTag_ = tag; }

    /// The metadata, and the word of at most 255 bytes that names what it is.
    const char* metaDataTag() const { return metaDataTag_.c_str(); }
    void setMetaDataTag(const char* tag) { metaDataTag_ = tag; }
    const char* metaData() const { return metaData_.c_str(); }
    void setMetaData(const char* metaData) { metaData_ = metaData; }

    const char* colourSpace() const { return colourSpace_.c_str(); }
    void setColourSpace(const char* colourSpace) { colourSpace_ = colourSpace; }

    /// Pixel layouts, big-endian where a channel has several bytes.
    static const char* FORMAT_MONO();
    static const char* FORMAT_RGB();
    static const char* FORMAT_HLS();
    static const char* FORMAT_YUV();
    static const char* FORMAT_RGBA();
    static const char* FORMAT_HLSA();
    static const char* FORMAT_YUVA();
    static const char* FORMAT_UYVY();

    /// The same, little-endian.
    static const char* FORMAT_MONO_LE();
    static const char* FORMAT_RGB_LE();
    static const char* FORMAT_HLS_LE();
    static const char* FORMAT_YUV_LE();
    static const char* FORMAT_RGBA_LE();
    static const char* FORMAT_HLSA_LE();
    static const char* FORMAT_YUVA_LE();
    static const char* FORMAT_UYVY_LE();

    /// Channels that are floating-point numbers.
    static const char* FORMAT_RGB_FLOAT();
    static const char* FORMAT_RGB_FLOAT_LE();
    static const char* FORMAT_RGBA_FLOAT();
    static const char* FORMAT_RGBA_FLOAT_LE();
    static const char* FORMAT_MONO_FLOAT();
    static const char* FORMAT_MONO_FLOAT_LE();

    /// Image files, a file per frame.
    static const char* FORMAT_ALIAS();
    static const char* FORMAT_DPX();
    static const char* FORMAT_JPEG();
    static const char* FORMAT_PICT();
    static const char* FORMAT_PIXAR();
    static const char* FORMAT_SGI();
    static const char* FORMAT_SOFTIMAGE();
    static const char* FORMAT_TARGA();
    static const char* FORMAT_MAYA();
    static const char* FORMAT_TDI();
    static const char* FORMAT_TIFF();
    static const char* FORMAT_WAVEFRONT();
    static const char* FORMAT_PHOTOSHOP();
    static const char* FORMAT_CINEON();
    static const char* FORMAT_OPENEXR();
    static const char* FORMAT_MIXED();

    /// Sound files.
    static const char* FORMAT_WAV();
    static const char* FORMAT_AIFF();
    static const char* FORMAT_AIFC();

    /// Raw sound samples.
    static const char* FORMAT_QD_AUDIO();
    static const char* FORMAT_QD_AUDIO_MIXED();
    static const char* FORMAT_QD_AUDIO_FLOAT();
    static const char* FORMAT_QD_AUDIO_FLOAT_LE();
    static const char* FORMAT_QD_AUDIO_INT8();
    static const char* FORMAT_QD_AUDIO_INT8_UNSIGNED();
    static const char* FORMAT_QD_AUDIO_INT16();
    static const char* FORMAT_QD_AUDIO_INT16_LE();
    static const char* FORMAT_QD_AUDIO_INT24();
    static const char* FORMAT_QD_AUDIO_INT24_LE();
    static const char* FORMAT_QD_AUDIO_INT24_MSB32_LE();

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
    VantrelAudioFormat& operator=(const VantrelAudioFormat& other);
    ~VantrelAudioFormat() override;

    /// Samples of one frame, per channel.
    int numSamples() const { return width(); }
    void setNumSamples(int samples) { setWidth(samples); }
    int bitsPerSample() const { return bitsPerPixel(); }
    void setBitsPerSample(int bits) { setBitsPerPixel(bits); }
    /// Samples per second.
    float sampleRate() const { return frameRate(); }
    void setSampleRate(float rate) { setFrameRate(rate); }

    void setHeight(int height) = delete;
};
