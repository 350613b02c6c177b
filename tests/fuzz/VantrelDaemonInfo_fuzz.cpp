#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>

#include "VantrelDaemonInfo.h"

/// A record read from any bytes can be used, compared and written, and what was written reads back the same.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string text(reinterpret_cast<const char*>(data), size);
    VantrelDaemonInfo info{Vantrel::rcAttrStream(text)};
    const std::string written = info.toAttrStream().text();
    if (VantrelDaemonInfo(Vantrel::rcAttrStream(written)).toAttrStream().text() != written) std::abort();
    info.prependMetadataIP(info.getMetadataIP(VantrelDaemonInfo::MAX_IPS - 1));
    info.prependMetadataIP("192.0.2.1");
    if (info < info || info.getServerId() != info.getServerId()) std::abort();
    return 0;
}
