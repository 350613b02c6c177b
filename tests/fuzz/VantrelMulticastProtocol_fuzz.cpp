#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <vector>

#include "VantrelMulticastProtocol.h"

namespace {

using Protocol = VantrelMulticastProtocol;
using Vantrel::rcAttrStream;

/// A datagram that is a request is the same one when it is written again.
void readDatagram(const std::string& text) {
    Protocol::RequestType type = Protocol::INVALID;
    rcAttrStream payload;
    if (!Protocol::parse(text.c_str(), type, payload)) return;
    Protocol::RequestType againType = Protocol::INVALID;
    rcAttrStream again;
    if (!Protocol::parse(Protocol::create(type, payload).c_str(), againType, again)) std::abort();
    if (againType != type || again.text() != payload.text()) std::abort();
    static_cast<void>(VantrelDaemonInfo(payload));
}

/// A list that was read can be written, and reads back the same.
void readList(const std::string& text) {
    std::vector<VantrelDaemonInfo> infos;
    Protocol::decode(text, infos, nullptr);
    std::string written;
    Protocol::encode(infos, written);
    std::vector<VantrelDaemonInfo> again;
    Protocol::decode(written, again, nullptr);
    std::string rewritten;
    Protocol::encode(again, rewritten);
    if (again.size() != infos.size() || rewritten != written) std::abort();
    std::vector<VantrelDaemonInfo> chosen;
    Protocol::decode(text, chosen, "SXAFS");
    if (chosen.size() > infos.size()) std::abort();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string text(reinterpret_cast<const char*>(data), size);
    readDatagram(text);
    readList(text);
    return 0;
}
