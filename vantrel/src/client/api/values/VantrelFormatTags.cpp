#include <vantrel/VantrelFormats.h>

const char* VantrelClipFormat::FORMAT_MONO() {
    return "mono";
}

const char* VantrelClipFormat::FORMAT_RGB() {
    return "rgb";
}

const char* VantrelClipFormat::FORMAT_HLS() {
    return "hls";
}

const char* VantrelClipFormat::FORMAT_YUV() {
    return "yuv";
}

const char* VantrelClipFormat::FORMAT_RGBA() {
    return "rgba";
}

const char* VantrelClipFormat::FORMAT_HLSA() {
    return "hlsa";
}

const char* VantrelClipFormat::FORMAT_YUVA() {
    return "yuva";
}

const char* VantrelClipFormat::FORMAT_UYVY() {
    return "uyvy";
}

const char* VantrelClipFormat::FORMAT_MONO_LE() {
    return "mono_le";
}

const char* VantrelClipFormat::FORMAT_RGB_LE() {
    return "rgb_le";
}

const char* VantrelClipFormat::FORMAT_HLS_LE() {
    return "hls_le";
}

const char* VantrelClipFormat::FORMAT_YUV_LE() {
    return "yuv_le";
}

const char* VantrelClipFormat::FORMAT_RGBA_LE() {
    return "rgba_le";
}

const char* VantrelClipFormat::FORMAT_HLSA_LE() {
    return "hlsa_le";
}

const char* VantrelClipFormat::FORMAT_YUVA_LE() {
    return "yuva_le";
}

// Servers compare the text: the spelling is theirs.
const char* VantrelClipFormat::FORMAT_UYVY_LE() {
    return "uyvu_le";
}

const char* VantrelClipFormat::FORMAT_RGB_FLOAT() {
    return "rgb_float";
}

const char* VantrelClipFormat::FORMAT_RGB_FLOAT_LE() {
    return "rgb_float_le";
}

const char* VantrelClipFormat::FORMAT_RGBA_FLOAT() {
    return "rgba_float";
}

const char* VantrelClipFormat::FORMAT_RGBA_FLOAT_LE() {
    return "rgba_float_le";
}

const char* VantrelClipFormat::FORMAT_MONO_FLOAT() {
    return "mono_float";
}

const char* VantrelClipFormat::FORMAT_MONO_FLOAT_LE() {
    return "mono_float_le";
}

const char* VantrelClipFormat::FORMAT_ALIAS() {
    return "als";
}

const char* VantrelClipFormat::FORMAT_DPX() {
    return "dpx";
}

const char* VantrelClipFormat::FORMAT_JPEG() {
    return "jpg";
}

const char* VantrelClipFormat::FORMAT_PICT() {
    return "pict";
}

const char* VantrelClipFormat::FORMAT_PIXAR() {
    return "picio";
}

const char* VantrelClipFormat::FORMAT_SGI() {
    return "sgi";
}

const char* VantrelClipFormat::FORMAT_SOFTIMAGE() {
    return "pic";
}

const char* VantrelClipFormat::FORMAT_TARGA() {
    return "tga";
}

const char* VantrelClipFormat::FORMAT_MAYA() {
    return "iff";
}

// The same files as Maya's.
const char* VantrelClipFormat::FORMAT_TDI() {
    return "iff";
}

const char* VantrelClipFormat::FORMAT_TIFF() {
    return "tif";
}

const char* VantrelClipFormat::FORMAT_WAVEFRONT() {
    return "rla";
}

const char* VantrelClipFormat::FORMAT_PHOTOSHOP() {
    return "psd";
}

const char* VantrelClipFormat::FORMAT_CINEON() {
    return "cin";
}

const char* VantrelClipFormat::FORMAT_OPENEXR() {
    return "exr";
}

const char* VantrelClipFormat::FORMAT_MIXED() {
    return "mixed";
}

const char* VantrelClipFormat::FORMAT_WAV() {
    return "wav";
}

const char* VantrelClipFormat::FORMAT_AIFF() {
    return "aiff";
}

const char* VantrelClipFormat::FORMAT_AIFC() {
    return "aifc";
}

const char* VantrelClipFormat::FORMAT_QD_AUDIO() {
    return "qdaudio";
}

const char* VantrelClipFormat::FORMAT_QD_AUDIO_MIXED() {
    return "qdaudio_mixed";
}

const char* VantrelClipFormat::FORMAT_QD_AUDIO_FLOAT() {
    return "qdaudio_float";
}

const char* VantrelClipFormat::FORMAT_QD_AUDIO_FLOAT_LE() {
    return "qdaudio_float_le";
}

const char* VantrelClipFormat::FORMAT_QD_AUDIO_INT8() {
    return "qdaudio_int8";
}

const char* VantrelClipFormat::FORMAT_QD_AUDIO_INT8_UNSIGNED() {
    return "qdaudio_int8_unsigned";
}

const char* VantrelClipFormat::FORMAT_QD_AUDIO_INT16() {
    return "qdaudio_int16";
}

const char* VantrelClipFormat::FORMAT_QD_AUDIO_INT16_LE() {
    return "qdaudio_int16_le";
}

const char* VantrelClipFormat::FORMAT_QD_AUDIO_INT24() {
    return "qdaudio_int24";
}

const char* VantrelClipFormat::FORMAT_QD_AUDIO_INT24_LE() {
    return "qdaudio_int24_le";
}

const char* VantrelClipFormat::FORMAT_QD_AUDIO_INT24_MSB32_LE() {
    return "qdaudio_int24_msb32_le";
}
