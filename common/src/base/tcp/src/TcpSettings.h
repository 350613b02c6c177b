#pragma once

#include "CoEnv.h"

namespace Vantrel::TcpSettings {

/// Set to any text, the empty one included: TCP and multicast use IPv6 only.
inline const CoEnvFlag ipv6("QD_TCP_IPV6", CoEnvFlag::Rule::SetMeansOn);

/// Set to any text: wherever an address is chosen rather than connected to (addresses of names, of this host,
/// to listen on), only IPv4 ones are.
inline const CoEnvFlag disableIPv6("QD_TCP_DISABLE_IPV6", CoEnvFlag::Rule::SetMeansOn);

}  // namespace Vantrel::TcpSettings
