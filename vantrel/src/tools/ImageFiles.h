#pragma once

#include <string>

#include "FrameLayout.h"
#include "ImageFileType.h"

/// Image files as frames: PNG, EXR, DPX, TIFF and whatever else the image library reads. Samples pass through
/// as they stand in the file: no colour conversion, no multiplication by alpha.
///
/// Programs that always need images link vt_images. The client loads it when a command needs it
/// (ImageLoader.h).
///
/// Thread safety: any thread may call. Every function throws ToolError, naming the file and the reason.

struct ImageDescription {
    FrameLayout layout;
    std::string colourSpace;  ///< as the file says; often empty
};

/// What the frame of this file looks like, without reading its pixels. An image whose pixels cover only a
/// part of its display window counts with the whole window.
ImageDescription describeImage(const std::string& path);

/// Reads the pixels into `pixels`, which holds layout.frameBytes(). The file must still have that layout.
void readImage(const std::string& path, const FrameLayout& layout, void* pixels);

/// Writes the pixels to a new file, replacing an existing one. On failure no file stays behind.
void writeImage(const std::string& path, ImageFileType type, const FrameLayout& layout,
                const std::string& colourSpace, const void* pixels);
