#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <sstream>

#include "CoConfigFileReader.h"

/// What was read and written reads back as the same, whatever it was: first byte the flags, then the file.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    using Vantrel::CoConfigFileReader;
    if (size == 0) return 0;
    std::istringstream stream(std::string(reinterpret_cast<const char*>(data + 1), size - 1));
    std::vector<std::string> warnings;
    CoConfigFileReader reader;
    if (!reader.read(stream, data[0], &warnings)) return 0;

    const std::string text = reader.toText();
    CoConfigFileReader again;
    std::istringstream written(text);
    if (!again.read(written, CoConfigFileReader::READ_DEFAULT, &warnings)) return 0;  // grown too large
    if (again.toText() != text) std::abort();
    return 0;
}
