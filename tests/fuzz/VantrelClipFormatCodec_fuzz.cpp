// Any text may be read as a clip format in each of its forms. What was read is written as a text that reads
// back as the same format.

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>
#include <string_view>

#include "VantrelClipFormatCodec.h"
#include "rcAttrStream.h"

using namespace Vantrel;

namespace {

void require(bool holds) {
    if (!holds) __builtin_trap();
}

void readReply(std::string_view text) {
    VantrelClipFormat format;
    VantrelClipFormatCodec::fromReplyText(text, format);
    require(std::strlen(format.formatTag()) <= 255 && std::strlen(format.metaDataTag()) <= 255);
    require(std::strlen(format.metaData()) <= 4095);

    const std::string written = VantrelClipFormatCodec::toReplyText(format);
    VantrelClipFormat again;
    VantrelClipFormatCodec::fromReplyText(written, again);
    require(VantrelClipFormatCodec::toReplyText(again) == written);
}

void readRequest(std::string_view text) {
    VantrelClipFormat format;
    std::string error;
    if (!VantrelClipFormatCodec::fromRequestText(text, format, error)) {
        require(!error.empty());
        return;
    }
    const std::string written = VantrelClipFormatCodec::toRequestText(format);
    VantrelClipFormat again;
    require(VantrelClipFormatCodec::fromRequestText(written, again, error));
    require(std::strcmp(again.metaData(), format.metaData()) == 0);
    require(VantrelClipFormatCodec::toRequestText(again) == written);
}

void readStream(std::string_view text) {
    VantrelClipFormat format;
    std::string error;
    if (!VantrelClipFormatCodec::fromStream(rcAttrStream(std::string(text)), "Fuzz", format, error)) {
        require(!error.empty());
        return;
    }
    rcAttrStream written;
    VantrelClipFormatCodec::toStream(format, written);
    VantrelClipFormat again;
    require(VantrelClipFormatCodec::fromStream(written, "Fuzz", again, error));
    rcAttrStream rewritten;
    VantrelClipFormatCodec::toStream(again, rewritten);
    require(rewritten.text() == written.text());
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string_view text(reinterpret_cast<const char*>(data), size);
    readReply(text);
    readRequest(text);
    readStream(text);
    return 0;
}
