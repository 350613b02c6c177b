#pragma once

#include "ImageFiles.h"

/// The functions of ImageFiles.h as the module "vantrel-images" offers them. Both sides are built together.
struct ImageFunctions {
    ImageDescription (*describe)(const std::string& path);
    void (*read)(const std::string& path, const FrameLayout& layout, void* pixels);
    void (*write)(const std::string& path, ImageFileType type, const FrameLayout& layout,
                  const std::string& colourSpace, const void* pixels);
};

/// The module's only entry; its name below.
using ImageModuleEntry = const ImageFunctions*();
constexpr const char* IMAGE_MODULE_ENTRY = "vantrelImageFunctions";

/// Loads the module on first use, and never unloads it. Throws ToolError, with the reason, when it cannot be
/// loaded. Thread-safe.
const ImageFunctions& imageFunctions();
