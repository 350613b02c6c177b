// Any text may arrive as a login record: it is parsed, described, handed on and written again.

#include <cstddef>
#include <cstdint>
#include <string>

#include "rcConnectionInfo.h"

using namespace Vantrel;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string text(reinterpret_cast<const char*>(data), size);
    const rcConnectionInfo received(text.c_str(), nullptr);
    received.getConnectionStr();

    rcConnectionInfo client;
    client.setClientInfo(received, nullptr);
    const rcConnectionInfo again(client.toAttrStream().c_str(), nullptr);
    if (!again.isValid() || again.getUserName() != received.getUserName() ||
        again.getVersion() != received.getVersion() || again.hasGroup() != received.hasGroup()) {
        __builtin_trap();
    }
    return 0;
}
