#include <vantrel/VantrelFormats.h>

const char* VantrelClipFormat::FORMAT_MONO() noexcept {
    return "mono";
}

const char* VantrelClipFormat::FORMAT_RGB() noexcept {
    return "rgb";
}

const char* VantrelClipFormat::FORMAT_HLS() noexcept {
    return "hls";
}

const char* VantrelClipFormat::FORMAT_YUV() noexcept {
    return "yuv";
}

const char* VantrelClipFormat::FORMAT_RGBA() noexcept {
    return "rgba";
}

const char* VantrelClipFormat::FORMAT_HLSA() noexcept {
    return "hlsa";
}

const char* VantrelClipFormat::FORMAT_YUVA() noexcept {
    return "yuva";
}

const char* VantrelClipFormat::FORMAT_UYVY() noexcept {
    return "uyvy";
}

const char* VantrelClipFormat::FORMAT_MONO_LE() noexcept {
    return "mono_le";
}

const char* VantrelClipFormat::FORMAT_RGB_LE() noexcept {
    return "rgb_le";
}

const char* VantrelClipFormat::FORMAT_HLS_LE() noexcept {
    return "hls_le";
}

const char* VantrelClipFormat::FORMAT_YUV_LE() noexcept {
    return "yuv_le";
}

const char* VantrelClipFormat::FORMAT_RGBA_LE() noexcept {
    return "rgba_le";
}

const char* VantrelClipFormat::FORMAT_HLSA_LE() noexcept {
    return "hlsa_le";
}

const char* VantrelClipFormat::FORMAT_YUVA_LE() noexcept {
    return "yuva_le";
}

// Servers compare the text: the spelling is theirs.
const char* VantrelClipFormat::FORMAT_UYVY_LE() noexcept {
    return "uyvu_le";
}

const char* VantrelClipFormat::FORMAT_RGB_FLOAT() noexcept {
    return "rgb_float";
}

const char* VantrelClipFormat::FORMAT_RGB_FLOAT_LE() noexcept {
    return "rgb_float_le";
}

const char* VantrelClipFormat::FORMAT_RGBA_FLOAT() noexcept {
    return "rgba_float";
}

const char* VantrelClipFormat::FORMAT_RGBA_FLOAT_LE() noexcept {
    return "rgba_float_le";
}

const char* VantrelClipFormat::FORMAT_MONO_FLOAT() noexcept {
    return "mono_float";
}

const char* VantrelClipFormat::FORMAT_MONO_FLOAT_LE() noexcept {
    return "mono_float_le";
}

const char* VantrelClipFormat::FORMAT_ALIAS() noexcept {
    return "als";
}

const char* VantrelClipFormat::FORMAT_DPX() noexcept {
    return "dpx";
}

const char* VantrelClipFormat::FORMAT_JPEG() noexcept {
    return "jpg";
}

const char* VantrelClipFormat::FORMAT_PICT() noexcept {
    return "pict";
}

const char* VantrelClipFormat::FORMAT_PIXAR() noexcept {
    return "picio";
}

const char* VantrelClipFormat::FORMAT_SGI() noexcept {
    return "sgi";
}

const char* VantrelClipFormat::FORMAT_SOFTIMAGE() noexcept {
    return "pic";
}

const char* VantrelClipFormat::FORMAT_TARGA() noexcept {
    return "tga";
}

const char* VantrelClipFormat::FORMAT_MAYA() noexcept {
    return "iff";
}

// The same files as Maya's.
const char* VantrelClipFormat::FORMAT_TDI() noexcept {
    return "iff";
}

const char* VantrelClipFormat::FORMAT_TIFF() noexcept {
    return "tif";
}

const char* VantrelClipFormat::FORMAT_WAVEFRONT() noexcept {
    return "rla";
}

const char* VantrelClipFormat::FORMAT_PHOTOSHOP() noexcept {
    return "psd";
}

const char* VantrelClipFormat::FORMAT_CINEON() noexcept {
    return "cin";
}

const char* VantrelClipFormat::FORMAT_OPENEXR() noexcept {
    return "exr";
}

const char* VantrelClipFormat::FORMAT_MIXED() noexcept {
    return "mixed";
}

const char* VantrelClipFormat::FORMAT_WAV() noexcept {
    return "wav";
}

const char* VantrelClipFormat::FORMAT_AIFF() noexcept {
    return "aiff";
}

const char* VantrelClipFormat::FORMAT_AIFC() noexcept {
    return "aifc";
}

const char* VantrelClipFormat::FORMAT_QD_AUDIO() noexcept {
    return "qdaudio";
}

const char* VantrelClipFormat::FORMAT_QD_AUDIO_MIXED() noexcept {
    return "qdaudio_mixed";
}

const char* VantrelClipFormat::FORMAT_QD_AUDIO_FLOAT() noexcept {
    return "qdaudio_float";
}

const char* VantrelClipFormat::FORMAT_QD_AUDIO_FLOAT_LE() noexcept {
    return "qdaudio_float_le";
}

const char* VantrelClipFormat::FORMAT_QD_AUDIO_INT8() noexcept {
    return "qdaudio_int8";
}

const char* VantrelClipFormat::FORMAT_QD_AUDIO_INT8_UNSIGNED() noexcept {
    return "qdaudio_int8_unsigned";
}

const char* VantrelClipFormat::FORMAT_QD_AUDIO_INT16() noexcept {
    return "qdaudio_int16";
}

const char* VantrelClipFormat::FORMAT_QD_AUDIO_INT16_LE() noexcept {
    return "qdaudio_int16_le";
}

const char* VantrelClipFormat::FORMAT_QD_AUDIO_INT24() noexcept {
    return "qdaudio_int24";
}

const char* VantrelClipFormat::FORMAT_QD_AUDIO_INT24_LE() noexcept {
    return "qdaudio_int24_le";
}

const char* VantrelClipFormat::FORMAT_QD_AUDIO_INT24_MSB32_LE() noexcept {
    return "qdaudio_int24_msb32_le";
}
