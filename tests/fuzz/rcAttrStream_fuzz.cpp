// Any text may be read as an attribute stream, changed, and read as a list: reading stays within the text and
// ends, and what was read survives being written again.

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>
#include <string_view>

#include "rcAttrList.h"
#include "rcAttrStream.h"

using namespace Vantrel;

namespace {

void require(bool holds) {
    if (!holds) __builtin_trap();
}

void readEverything(const rcAttrStream& stream) {
    const char* const begin = stream.text().data();
    const char* const end = begin + stream.text().size();
    const char* behindLast = begin;
    unsigned entries = 0;
    rcAttrStream::ConstIterator iterator(stream);
    std::string_view name;
    std::string_view value;
    while (iterator.next(name, value)) {
        require(!name.empty() && name.data() >= behindLast && name.data() + name.size() < value.data());
        behindLast = value.data() + value.size();
        require(behindLast <= end);
        ++entries;
    }
    require(iterator.getSize() == entries && stream.isEmpty() == (entries == 0));
    require(stream == rcAttrStream(stream));
}

void useGetters(const rcAttrStream& stream, const char* name) {
    std::string text;
    char buffer[8];
    int i = 0;
    unsigned u = 0;
    unsigned long ul = 0;
    unsigned char uc = 0;
    bool b = false;
    float f = 0;
    const bool found = stream.getStringValue(name, text);
    require(stream.getStringValue(name, buffer, sizeof buffer) == found);
    require(!found || std::memchr(buffer, 0, sizeof buffer));
    require(stream.getIntValue(name, i) == found && stream.getUIntValue(name, u) == found);
    require(stream.getUInt32Value(name, u) == found && stream.getUInt64Value(name, ul) == found);
    require(stream.getUCharValue(name, uc) == found && stream.getBoolValue(name, b) == found);
    require(stream.getFloatValue(name, f) == found);
}

// A stream of the same entries, which cannot be malformed, must give back the value last added for each name.
void writeAnew(const rcAttrStream& stream) {
    rcAttrStream written;
    rcAttrStream::ConstIterator iterator(stream);
    std::string_view name;
    std::string_view value;
    while (iterator.next(name, value)) {
        if (name.find('\0') != std::string_view::npos) continue;
        const std::string key(name);
        written.addStringValue(key.c_str(), value);
        std::string_view read;
        require(written.getStringValue(key.c_str(), read) && read == value.substr(0, value.find('\0')));
    }
    readEverything(written);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    rcAttrStream stream(std::string(reinterpret_cast<const char*>(data), size));
    readEverything(stream);
    writeAnew(stream);
    useGetters(stream, "A");
    stream.toPrettyString(static_cast<int>(size % 32));
    stream.addIntValue("A", 1);
    stream.addIntValue("A", 22);
    readEverything(stream);
    rcAttrStream::Iterator(stream).remove("A");
    readEverything(stream);

    rcAttrList<std::string> list;
    if (list.fromString(std::string_view(reinterpret_cast<const char*>(data), size))) {
        rcAttrList<std::string> again;
        require(again.fromString(list.toString()) && again.values() == list.values());
    }
    return 0;
}
