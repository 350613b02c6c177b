// The one symbol that the module "vantrel-images" exports.
#include "ImageLoader.h"

extern "C" __attribute__((visibility("default"))) const ImageFunctions* vantrelImageFunctions() {
    static const ImageFunctions functions{describeImage, readImage, writeImage};
    return &functions;
}
