#pragma once

#include <vantrel/VantrelFormats.h>

#include <string>

#include "CoMsg.h"

namespace Vantrel {

/// Every field, in a notation of the tests' own, so that a difference is easy to read.
inline std::string show(const VantrelClipFormat& f) {
    return coFormat("%dx%d %d/%d %lu ratio %g rate %g [%s] scan %d [%s] [%s] [%s]", f.width(), f.height(),
                    f.bitsPerPixel(), f.numChannels(), f.frameBufferSize(),
                    static_cast<double>(f.pixelRatio()), static_cast<double>(f.frameRate()), f.formatTag(),
                    static_cast<int>(f.scanFormat()), f.metaDataTag(), f.metaData(), f.colourSpace());
}

}  // namespace Vantrel
