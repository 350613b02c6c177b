#include <strings.h>

#include "CoException.h"
#include "NodeCommands.h"
#include "ServerLimits.h"

namespace vantreld {

using Vantrel::CoException;

namespace {

/// The system of a host where the request does not name it.
VantrelOS::OsType knownOsType(const PathTranslations& translations, const VantrelDaemonInfo& self,
                              const std::string& host) {
    const VantrelOS::OsType type = translations.osTypeOf(host);
    if (type != VantrelOS::Unknown) return type;
    const bool isSelf = ::strcasecmp(host.c_str(), self.getDisplayName()) == 0 ||
                        ::strcasecmp(host.c_str(), self.getHostName()) == 0;
    return isSelf ? self.getOsType() : VantrelOS::Unknown;
}

}  // namespace

std::string NodeCommands::translatePaths(const std::string& argument) {
    VantrelTranslationRequest request;
    std::string error;
    if (!VantrelTranslationCodec::parseRequest(argument, MAX_TRANSLATED_PATHS, request, error))
        throw CoException(error);
    const VantrelDaemonInfo self = daemonInfo_();
    if (request.srcType == VantrelOS::Unknown)
        request.srcType = knownOsType(translations_, self, request.srcHost);
    if (request.dstType == VantrelOS::Unknown)
        request.dstType = knownOsType(translations_, self, request.dstHost);
    return VantrelTranslationCodec::formatPaths(translations_.translate(request));
}

std::string NodeCommands::getTranslationGroups(const std::string&) {
    return VantrelTranslationCodec::formatGroups(translations_.tables().groups);
}

std::string NodeCommands::getHostTranslations(const std::string&) {
    return VantrelTranslationCodec::formatHostTranslations(translations_.tables().hosts);
}

std::string NodeCommands::getOsTypeTranslations(const std::string&) {
    return VantrelTranslationCodec::formatOsTypeTranslations(translations_.tables().osTypes);
}

}  // namespace vantreld
