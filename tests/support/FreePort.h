#pragma once

#include "PlainSocket.h"

namespace Vantrel {

/// A UDP port that nobody uses now, for parties that must agree on one beforehand.
inline unsigned freeUdpPort() {
    return static_cast<unsigned>(portOf(boundSocket(SOCK_DGRAM)));
}

}  // namespace Vantrel
