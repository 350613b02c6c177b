#pragma once

#include "FrameLayout.h"

/// Types of image files that frames are written to. Pure functions.

enum class ImageFileType { Png, Exr, Dpx, Tif };

/// Ending of the type's files and name in options: "png", "exr", "dpx", "tif".
const char* imageFileTypeName(ImageFileType type);

/// Whether a file of the type gives back exactly the samples written to it. EXR holds 8-bit samples as half
/// and 16-bit samples as float, DPX half samples as float; PNG has no floating-point samples.
bool imageFileTypeHolds(ImageFileType type, SampleType samples);
