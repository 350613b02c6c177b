#include "VantrelVersion.h"

#include "VantrelDaemonInfo.h"

// The numbers come from the project's CMakeLists.txt.
constexpr VantrelVersion VANTREL_RELEASE{VANTREL_RELEASE_NUMBERS, 0};

VantrelVersion VantrelVersion::ofProtocol(const VantrelDaemonInfo& info) {
    return {info.getVersionMajor(), info.getVersionMinor(), info.getVersionMaint(), info.getVersionBuild()};
}

VantrelVersion VantrelVersion::ofProduct(const VantrelDaemonInfo& info) {
    return {info.getProductVersionMajorNumber(), info.getProductVersionMinorNumber(),
            info.getProductVersionMaintNumber(), info.getProductBuildNumber()};
}
