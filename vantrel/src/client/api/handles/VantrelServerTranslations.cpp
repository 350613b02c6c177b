#include <vantrel/VantrelTranslations.h>

#include <utility>

#include "VantrelIndexError.h"
#include "VantrelServerImp.h"

// --- The values ---

VantrelServerHandle::TranslationGroup::TranslationGroup() : osType_(VantrelOS::Unknown) {}

VantrelServerHandle::TranslationGroup::TranslationGroup(const char* name, VantrelOS::OsType osType,
                                                        const VantrelStrList& hosts)
    : name_(name), osType_(osType), hosts_(hosts) {}

VantrelServerHandle::HostTranslation::HostTranslation() = default;

VantrelServerHandle::HostTranslation::HostTranslation(const char* srcHost, const char* srcPath,
                                                      const char* dstHost, const char* dstPath)
    : srcHost_(srcHost), srcPath_(srcPath), dstHost_(dstHost), dstPath_(dstPath) {}

VantrelServerHandle::OsTypeTranslation::OsTypeTranslation()
    : srcType_(VantrelOS::Unknown), dstType_(VantrelOS::Unknown) {}

VantrelServerHandle::OsTypeTranslation::OsTypeTranslation(VantrelOS::OsType srcType, const char* srcPath,
                                                          VantrelOS::OsType dstType, const char* dstPath)
    : srcType_(srcType), srcPath_(srcPath), dstType_(dstType), dstPath_(dstPath) {}

// --- Paths ---

bool VantrelServerHandle::translatePath(const char* path, VantrelStr& result, const char* srcHost,
                                        const char* dstHost, VantrelOS::OsType srcType,
                                        VantrelOS::OsType dstType) const {
    VantrelStrList paths;
    paths.push_back(path);
    VantrelStrList translated;
    if (!translatePaths(paths, translated, srcHost, dstHost, srcType, dstType)) return false;
    result = translated.getStr(0);
    return true;
}

bool VantrelServerHandle::translatePaths(const VantrelStrList& paths, VantrelStrList& result,
                                         const char* srcHost, const char* dstHost, VantrelOS::OsType srcType,
                                         VantrelOS::OsType dstType) const {
    VantrelServerImp* server = imp();
    const VantrelServerImp::Session session(server);
    if (!session) return false;
    const auto info = srcHost && dstHost ? nullptr : server->daemonInfo();
    if (!info && !(srcHost && dstHost)) return false;
    const char* const source = srcHost ? srcHost : info->getDisplayName();
    const char* const destination = dstHost ? dstHost : info->getHostName();
    return session.base().translatePaths(paths, result, source, destination, srcType, dstType);
}

// --- Tables ---

namespace {

/// How one of the tables is asked for, and where it is kept.
template <typename Entry>
struct Table {
    bool (VantrelBaseClientAPI::*ask)(std::vector<Entry>& entries);
    std::optional<std::vector<Entry>> VantrelServerImp::TranslationTables::*kept;
};

constexpr Table<VantrelPathTranslationGroup> GROUPS{&VantrelBaseClientAPI::getTranslationGroups,
                                                    &VantrelServerImp::TranslationTables::groups};
constexpr Table<VantrelHostTranslation> HOSTS{&VantrelBaseClientAPI::getHostTranslations,
                                              &VantrelServerImp::TranslationTables::hosts};
constexpr Table<VantrelOsTypeTranslation> OS_TYPES{&VantrelBaseClientAPI::getOsTypeTranslations,
                                                   &VantrelServerImp::TranslationTables::osTypes};

template <typename Entry>
bool ask(VantrelServerImp& server, const Table<Entry>& table) CO_REQUIRES(server.mutex()) {
    const VantrelServerImp::Session session(&server);
    std::vector<Entry> entries;
    if (!session || !(session.base().*table.ask)(entries)) return false;
    server.translationTables().*table.kept = std::move(entries);
    return true;
}

template <typename Entry>
bool countEntries(VantrelServerImp* server, const Table<Entry>& table, int& count) {
    if (!server) return false;
    const VantrelServerImp::CallLock lock(*server);
    if (!ask(*server, table)) return false;
    count = static_cast<int>((server->translationTables().*table.kept)->size());
    return true;
}

/// Gives `use` the entry at an index.
template <typename Entry, typename Use>
bool useEntry(VantrelServerImp* server, const Table<Entry>& table, int index, Use use) {
    if (!server) return false;
    const VantrelServerImp::CallLock lock(*server);
    const std::optional<std::vector<Entry>>& entries = server->translationTables().*table.kept;
    if (!entries && !ask(*server, table)) return false;
    if (index < 0 || static_cast<std::size_t>(index) >= entries->size()) {
        server->setLastError(VANTREL_ERROR_INVALID_ARGUMENT, vantrelIndexError(index, entries->size()));
        return false;
    }
    use((*entries)[static_cast<std::size_t>(index)]);
    return true;
}

}  // namespace

bool VantrelServerHandle::getNumTranslationGroups(int& count) const {
    return countEntries(imp(), GROUPS, count);
}

bool VantrelServerHandle::getTranslationGroup(int index, TranslationGroup& group) const {
    return useEntry(imp(), GROUPS, index, [&](const VantrelPathTranslationGroup& entry) {
        VantrelStrList hosts;
        for (const std::string& host : entry.hosts) hosts.push_back(host.c_str());
        group = TranslationGroup(entry.name.c_str(), entry.osType, hosts);
    });
}

bool VantrelServerHandle::getNumHostTranslations(int& count) const {
    return countEntries(imp(), HOSTS, count);
}

bool VantrelServerHandle::getHostTranslation(int index, HostTranslation& translation) const {
    return useEntry(imp(), HOSTS, index, [&](const VantrelHostTranslation& entry) {
        translation = HostTranslation(entry.srcHost.c_str(), entry.srcPath.c_str(), entry.dstHost.c_str(),
                                      entry.dstPath.c_str());
    });
}

bool VantrelServerHandle::getNumOsTypeTranslations(int& count) const {
    return countEntries(imp(), OS_TYPES, count);
}

bool VantrelServerHandle::getOsTypeTranslation(int index, OsTypeTranslation& translation) const {
    return useEntry(imp(), OS_TYPES, index, [&](const VantrelOsTypeTranslation& entry) {
        translation =
            OsTypeTranslation(entry.srcType, entry.srcPath.c_str(), entry.dstType, entry.dstPath.c_str());
    });
}
