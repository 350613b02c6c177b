#include "ImageFileType.h"

const char* imageFileTypeName(ImageFileType type) {
    switch (type) {
        case ImageFileType::Png:
            return "png";
        case ImageFileType::Exr:
            return "exr";
        case ImageFileType::Dpx:
            return "dpx";
        case ImageFileType::Tif:
            break;
    }
    return "tif";
}

bool imageFileTypeHolds(ImageFileType type, SampleType samples) {
    return type != ImageFileType::Png || samples == SampleType::UInt8 || samples == SampleType::UInt16;
}
