#include "VantrelBaseClientAPI.h"

#include <algorithm>
#include <exception>
#include <utility>

#include "CoException.h"
#include "CoMsg.h"
#include "VantrelNodeCodec.h"
#include "VantrelSettings.h"

using Vantrel::CoException;
using Vantrel::coFormat;

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

template <typename Operation>
bool VantrelBaseClientAPI::attempt(Operation operation) {
    try {
        operation();
        return true;
    } catch (const std::exception& error) {
        lastError_ = error.what();
        return false;
    }
}

std::string VantrelBaseClientAPI::request(const char* method, const std::string& argument,
                                          unsigned callTimeoutMs, unsigned retryTimeoutMs) {
    std::string reply;
    connection_.callMethod(method, argument.c_str(), true, reply, callTimeoutMs,
                           VantrelClientConnection::getDefaultConnectionTimeoutMs(), retryTimeoutMs);
    return reply;
}

std::string VantrelBaseClientAPI::request(const char* method, const std::string& argument,
                                          unsigned retryTimeoutMs) {
    return request(method, argument, VantrelClientConnection::getDefaultCallTimeoutMs(), retryTimeoutMs);
}

std::string VantrelBaseClientAPI::request(const char* method, const std::string& argument) {
    return request(method, argument, VantrelClientConnection::getDefaultConnectionRetryTimeoutMs());
}

bool VantrelBaseClientAPI::ping(unsigned retryTimeoutMs) {
    return attempt([&] { request("Ping", "", retryTimeoutMs); });
}

bool VantrelBaseClientAPI::queryVersion(int& major, int& minor) {
    return attempt([&] {
        const std::string reply = request("QueryVersion", "");
        if (!VantrelNodeCodec::parseNumberPair(reply, major, minor))
            throw CoException(coFormat("Invalid version '%.64s'", reply.c_str()));
    });
}

bool VantrelBaseClientAPI::shutdown() {
    return attempt([&] { request("Shutdown", ""); });
}

bool VantrelBaseClientAPI::getDaemonInfo(std::shared_ptr<const VantrelDaemonInfo>& info, bool refresh) {
    return attempt([&] { info = connection_.getDaemonInfo(refresh); });
}

bool VantrelBaseClientAPI::translatePaths(const VantrelStrList& paths, VantrelStrList& result,
                                          const char* srcHost, const char* dstHost, VantrelOS::OsType srcType,
                                          VantrelOS::OsType dstType) {
    return attempt([&] {
        if (!srcHost || !VantrelTranslationCodec::isValidHost(srcHost))
            throw CoException("Invalid source host name given");
        if (!dstHost || !VantrelTranslationCodec::isValidHost(dstHost))
            throw CoException("Invalid destination host name given");
        VantrelTranslationRequest asked{srcHost, srcType, dstHost, dstType, {}};
        asked.paths.reserve(paths.size());
        for (unsigned i = 0; i < paths.size(); ++i) asked.paths.emplace_back(paths.getStr(i));
        std::vector<std::string> translated;
        // Paths that do not match those asked for one by one would be taken for others.
        if (!VantrelTranslationCodec::parsePaths(
                request("TranslatePaths", VantrelTranslationCodec::formatRequest(asked)), asked.paths.size(),
                translated) ||
            translated.size() != asked.paths.size())
            throw CoException("Invalid path list");
        VantrelStrList list;
        list.reserve(static_cast<int>(translated.size()));
        for (const std::string& path : translated) list.push_back(path.c_str());
        result = std::move(list);
    });
}

bool VantrelBaseClientAPI::getTranslationGroups(std::vector<VantrelPathTranslationGroup>& groups) {
    return attempt([&] {
        if (!VantrelTranslationCodec::parseGroups(request("GetTranslationGroups", ""), groups))
            throw CoException("Invalid translation group list");
    });
}

bool VantrelBaseClientAPI::getHostTranslations(std::vector<VantrelHostTranslation>& translations) {
    return attempt([&] {
        if (!VantrelTranslationCodec::parseHostTranslations(request("GetHostTranslations", ""), translations))
            throw CoException("Invalid host translation list");
    });
}

bool VantrelBaseClientAPI::getOsTypeTranslations(std::vector<VantrelOsTypeTranslation>& translations) {
    return attempt([&] {
        if (!VantrelTranslationCodec::parseOsTypeTranslations(request("GetOsTypeTranslations", ""),
                                                              translations))
            throw CoException("Invalid OS type translation list");
    });
}

void VantrelBaseClientAPI::requestEvents(const char* method, const std::string& argument,
                                         std::optional<unsigned> limitMs) {
    if (limitMs) {
        std::string reply;
        connection_.callConnected(method, argument.c_str(), reply, std::min(*limitMs, eventsCallTimeoutMs()));
    } else {
        request(method, argument, eventsCallTimeoutMs(),
                VantrelClientConnection::getDefaultConnectionRetryTimeoutMs());
    }
}

bool VantrelBaseClientAPI::registerEventsOn(unsigned port, int connectionId,
                                            const VantrelEventSubject& subject,
                                            std::optional<unsigned> limitMs) {
    return attempt([&] {
        Vantrel::rcAttrStream argument = eventRoute(port, connectionId, subject.nodeId.c_str());
        if (!subject.format.empty()) argument.addStringValue("Fmt", subject.format);
        if (!subject.metaTag.empty()) argument.addStringValue("Meta", subject.metaTag);
        requestEvents("RegisterEvents", argument.text(), limitMs);
    });
}

bool VantrelBaseClientAPI::unregisterEventsOn(unsigned port, int connectionId, const VantrelNodeId& nodeId,
                                              std::optional<unsigned> limitMs) {
    return attempt([&] {
        requestEvents("UnregisterEvents", eventRoute(port, connectionId, nodeId.id()).text(), limitMs);
    });
}
