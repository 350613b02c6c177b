#pragma once

#include <cstddef>
#include <string>

#include "CoMsg.h"

/// The error text for an index that is not one of `count` elements.
inline std::string vantrelIndexError(int index, std::size_t count) {
    return Vantrel::coFormat("Index %d is out of the bounds 0,%d.", index, static_cast<int>(count));
}
