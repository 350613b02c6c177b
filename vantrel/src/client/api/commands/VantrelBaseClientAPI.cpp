#include "VantrelBaseClientAPI.h"

#include <algorithm>
#include <utility>

#include "CoException.h"
#include "CoMsg.h"
#include "VantrelNodeCodec.h"
#include "VantrelSettings.h"

using Vantrel::CoException;
using Vantrel::coFormat;

namespace Commands = VantrelCommands;

namespace {

unsigned eventsCallTimeoutMs() {
    return static_cast<unsigned>(VantrelSettings::eventsCallTimeoutMs.get());
}

/// Where events of a node are to be sent.
Vantrel::rcAttrStream eventRoute(unsigned port, int connectionId, const char* nodeId) {
    Vantrel::rcAttrStream route;
    route.addIntValue("Port", static_cast<int>(port));
    route.addIntValue("Connection", connectionId);
    route.addStringValue("Subject", nodeId);
    return route;
}

}  // namespace

bool VantrelBaseClientAPI::ping(unsigned retryTimeoutMs) {
    auto terms = limits();
    terms.retryMs = retryTimeoutMs;
    return ask(
        Commands::PING, "", [](const std::string&) {}, terms);
}

bool VantrelBaseClientAPI::queryVersion(int& major, int& minor) {
    return ask(Commands::QUERY_VERSION, "", [&](const std::string& reply) {
        if (!VantrelNodeCodec::parseNumberPair(reply, major, minor))
            throw CoException(coFormat("Invalid version '%.64s'", reply.c_str()));
    });
}

bool VantrelBaseClientAPI::shutdown() {
    return ask(Commands::SHUTDOWN, "");
}

bool VantrelBaseClientAPI::getDaemonInfo(std::shared_ptr<const VantrelDaemonInfo>& info, bool refresh) {
    std::string error;
    return succeeded(connection().getDaemonInfo(refresh, info, error, limits()), error);
}

bool VantrelBaseClientAPI::translatePaths(const VantrelStrList& paths, VantrelStrList& result,
                                          const char* srcHost, const char* dstHost, VantrelOS::OsType srcType,
                                          VantrelOS::OsType dstType) {
    if (!srcHost || !VantrelTranslationCodec::isValidHost(srcHost))
        return fail(VANTREL_ERROR_INVALID_ARGUMENT, "Invalid source host name given");
    if (!dstHost || !VantrelTranslationCodec::isValidHost(dstHost))
        return fail(VANTREL_ERROR_INVALID_ARGUMENT, "Invalid destination host name given");
    VantrelTranslationRequest asked{srcHost, srcType, dstHost, dstType, {}};
    asked.paths.reserve(paths.size());
    for (unsigned i = 0; i < paths.size(); ++i) asked.paths.emplace_back(paths.getStr(i));
    const std::string argument = VantrelTranslationCodec::formatRequest(asked);
    return ask(Commands::TRANSLATE_PATHS, argument, [&](const std::string& reply) {
        std::vector<std::string> translated;
        // Paths that do not match those asked for one by one would be taken for others.
        if (!VantrelTranslationCodec::parsePaths(reply, asked.paths.size(), translated) ||
            translated.size() != asked.paths.size())
            throw CoException("Invalid path list");
        VantrelStrList list;
        list.reserve(static_cast<int>(translated.size()));
        for (const std::string& path : translated) list.push_back(path.c_str());
        result = std::move(list);
    });
}

bool VantrelBaseClientAPI::getTranslationGroups(std::vector<VantrelPathTranslationGroup>& groups) {
    return ask(Commands::GET_TRANSLATION_GROUPS, "", [&](const std::string& reply) {
        if (!VantrelTranslationCodec::parseGroups(reply, groups))
            throw CoException("Invalid translation group list");
    });
}

bool VantrelBaseClientAPI::getHostTranslations(std::vector<VantrelHostTranslation>& translations) {
    return ask(Commands::GET_HOST_TRANSLATIONS, "", [&](const std::string& reply) {
        if (!VantrelTranslationCodec::parseHostTranslations(reply, translations))
            throw CoException("Invalid host translation list");
    });
}

bool VantrelBaseClientAPI::getOsTypeTranslations(std::vector<VantrelOsTypeTranslation>& translations) {
    return ask(Commands::GET_OS_TYPE_TRANSLATIONS, "", [&](const std::string& reply) {
        if (!VantrelTranslationCodec::parseOsTypeTranslations(reply, translations))
            throw CoException("Invalid OS type translation list");
    });
}

bool VantrelBaseClientAPI::askEvents(const VantrelCommand& command, const std::string& argument,
                                     std::optional<unsigned> limitMs) {
    const unsigned callMs = eventsCallTimeoutMs();
    if (limitMs) {
        std::string reply;
        return succeeded(
            connection().callConnected(command.name, argument.c_str(), reply, std::min(*limitMs, callMs)),
            reply);
    }
    auto limits = VantrelClientConnection::Limits::byDefault();
    limits.callMs = callMs;
    return ask(
        command, argument, [](const std::string&) {}, limits);
}

bool VantrelBaseClientAPI::registerEventsOn(unsigned port, int connectionId,
                                            const VantrelEventSubject& subject,
                                            std::optional<unsigned> limitMs) {
    Vantrel::rcAttrStream argument = eventRoute(port, connectionId, subject.nodeId.c_str());
    if (!subject.format.empty()) argument.addStringValue("Fmt", subject.format);
    if (!subject.metaTag.empty()) argument.addStringValue("Meta", subject.metaTag);
    return askEvents(Commands::REGISTER_EVENTS, argument.text(), limitMs);
}

bool VantrelBaseClientAPI::unregisterEventsOn(unsigned port, int connectionId, const VantrelNodeId& nodeId,
                                              std::optional<unsigned> limitMs) {
    return askEvents(Commands::UNREGISTER_EVENTS, eventRoute(port, connectionId, nodeId.id()).text(),
                     limitMs);
}
