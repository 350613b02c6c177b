#include "VantrelVersion.h"

#include "VantrelDaemonInfo.h"

VantrelVersion VantrelVersion::ofProtocol(const VantrelDaemonInfo& info) {
    return {info.getVersionMajor(), info.getVersionMinor(), info.getVersionMaint(), info.getVersionBuild()};
}

VantrelVersion VantrelVersion::ofProduct(const VantrelDaemonInfo& info) {
    return {info.getProductVersionMajorNumber(), info.getProductVersionMinorNumber(),
            info.getProductVersionMaintNumber(), info.getProductBuildNumber()};
}
