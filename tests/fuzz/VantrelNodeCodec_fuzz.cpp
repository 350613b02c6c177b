#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <vector>

#include "VantrelNodeCodec.h"

namespace {

/// The sum of all bytes that the list shows: every view must lie within memory that the list owns.
unsigned touchAll(const VantrelNodeInterface::NodeInfoList& children) {
    unsigned sum = 0;
    for (std::size_t i = 0; i < children.size(); ++i) {
        for (const char c : children[i].id()) sum += static_cast<unsigned char>(c);
        for (const char c : children[i].displayName()) sum += static_cast<unsigned char>(c);
    }
    return sum;
}

}  // namespace

/// The first byte selects the reply's parser, the rest is the reply.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size == 0) return 0;
    const std::string reply(reinterpret_cast<const char*>(data) + 1, size - 1);
    VantrelNodeInterface::NodeInfoList children;
    std::string error;
    std::vector<std::string> texts;
    std::vector<VantrelFrameId> frames;
    int first = 0;
    int second = 0;
    switch (data[0] % 5) {
        case 0: {
            const bool ok = VantrelNodeCodec::parseChildrenEx(reply, children, error);
            if (ok != error.empty()) std::abort();
            break;
        }
        case 1:
            static_cast<void>(VantrelNodeCodec::parseChildren(reply, children, error));
            break;
        case 2:
            VantrelNodeCodec::parseCommaList(reply, texts);
            VantrelNodeCodec::parseCommaList(reply, frames);
            for (const std::string& text : texts) {
                if (text.empty() || text.find(',') != std::string::npos) std::abort();
            }
            break;
        case 3:
            if (VantrelNodeCodec::parseList(reply, texts) != VantrelNodeCodec::parseList(reply, frames))
                std::abort();
            break;
        default:
            static_cast<void>(VantrelNodeCodec::parseNumberPair(reply, first, second));
            VantrelNodeCodec::parseNumber(reply);
            break;
    }
    const VantrelNodeInterface::NodeInfoList copy(children);
    if (touchAll(children) != touchAll(copy)) std::abort();
    if (texts.size() > size || frames.size() > size || children.size() > size) std::abort();
    return 0;
}
