#pragma once

#include <cstdint>
#include <string>

#include "NodeStore.h"

namespace vantreld {

/// Fills a store that has nothing but its root with a small tree and a clip of moving colour bars, so that an
/// application has something to show. A store with content is left as it is. Throws CoException.
void addDemoContent(NodeStore& store);

/// Pixels of frame `index` of the bars: rows from the top, three bytes a pixel.
std::string demoFrame(int index);

}  // namespace vantreld
