#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>

#include "CoIPRangeFilter.h"

/// A range that parses prints as one that parses to the same, and holds its own base.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    using Vantrel::CoIPRangeFilter;
    const std::string text(reinterpret_cast<const char*>(data), size);
    CoIPRangeFilter range;
    std::string error;
    range.inRange(text.c_str());
    if (!range.parse(text, error)) {
        if (error.empty()) std::abort();
        return 0;
    }
    const std::string printed = range.toText();
    CoIPRangeFilter again;
    if (!again.parse(printed, error) || again.toText() != printed) std::abort();
    if (!range.inRange(printed.substr(0, printed.find('/')).c_str())) std::abort();
    return 0;
}
