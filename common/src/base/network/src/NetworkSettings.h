#pragma once

#include "CoEnv.h"

namespace Vantrel::NetworkSettings {

/// The file with the workstation's network settings.
inline const CoEnvText configFile("QD_NETWORK_CFG_FILE", "/opt/Quorvane/cfg/network.cfg");

}  // namespace Vantrel::NetworkSettings
