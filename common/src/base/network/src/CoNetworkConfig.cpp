#include "CoNetworkConfig.h"

#include <uuid/uuid.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <exception>
#include <sstream>
#include <utility>

#include "CoAtomicFile.h"
#include "CoDeferral.h"
#include "CoFilePath.h"
#include "CoMsg.h"
#include "CoPerProcess.h"
#include "CoTokenizer.h"
#include "NetworkSettings.h"

namespace Vantrel {

namespace {

constexpr const char* LOCAL = "Local";
constexpr const char* INTERFACES = "Interfaces";
constexpr const char* SELF_DISCOVERY = "SelfDiscovery";
constexpr const char* FILTERING = "Filtering";
constexpr const char* DYNAMIC_PORTS = "DynamicPorts";
constexpr const char* UUID_KEY = "UUID";

constexpr unsigned MAX_TTL = 255;

constexpr const char* CANNOT_READ = "Could not read '%s': %s";
constexpr const char* CANNOT_WRITE = "Could not write to '%s': %s";
constexpr const char* CANNOT_PARSE = "Could not parse network.cfg: %s";

/// Logs once the lock is released: where messages go may well ask for the configuration.
void logLater(int level, std::string text) {
    CoDeferral::callOut([level, text = std::move(text)] { CO_MSG_AT(level, "%s", text.c_str()); });
}

bool generateUUID(std::string& text) {
    uuid_t uuid{};
    ::uuid_generate(uuid);
    if (::uuid_is_null(uuid)) return false;
    char buffer[UUID_STR_LEN] = {};
    ::uuid_unparse_lower(uuid, buffer);
    text = buffer;
    return true;
}

std::vector<std::string> splitList(const std::string& text) {
    constexpr const char* BLANKS = " \t";
    std::vector<std::string> members;
    for (const std::string_view member : coTokens(text, ",")) {
        const std::size_t begin = member.find_first_not_of(BLANKS);
        if (begin == std::string_view::npos) continue;
        members.emplace_back(member.substr(begin, member.find_last_not_of(BLANKS) - begin + 1));
    }
    return members;
}

bool parseUnsigned(const std::string& text, unsigned& out) {
    unsigned number = 0;
    const char* const end = text.data() + text.size();
    const auto result = std::from_chars(text.data(), end, number);
    if (result.ec != std::errc() || result.ptr != end) return false;
    out = number;
    return true;
}

CoNetworkConfig::IPRangeFilters parseRanges(const std::string& list) {
    CoNetworkConfig::IPRangeFilters ranges;
    for (const std::string& text : splitList(list)) {
        CoIPRangeFilter range;
        std::string error;
        if (range.parse(text, error)) {
            ranges.push_back(range);
        } else {
            logLater(CoMsg::ERROR, error);
        }
    }
    return ranges;
}

bool isInAny(const CoNetworkConfig::IPRangeFilters& ranges, const char* ip) {
    return std::any_of(ranges.begin(), ranges.end(),
                       [ip](const CoIPRangeFilter& range) { return range.inRange(ip); });
}

std::string listText(const CoNetworkConfig::IPRangeFilters& ranges, const char* whenEmpty) {
    std::string text;
    for (const CoIPRangeFilter& range : ranges) text += (text.empty() ? "" : ", ") + range.toText();
    return text.empty() ? whenEmpty : text;
}

}  // namespace

CoNetworkConfig& CoNetworkConfig::getInstance() {
    struct OfTheProcess : CoNetworkConfig {
        OfTheProcess() : CoNetworkConfig(NetworkSettings::configFile.get()) {}
    };
    return CoPerProcess<OfTheProcess>::get();
}

CoNetworkConfig::CoNetworkConfig(std::string fileName) : fileName_(std::move(fileName)), watch_(fileName_) {}

bool CoNetworkConfig::parse(bool& changed, bool force) {
    const CoDeferral deferral;
    const CoLock lock(mutex_);
    return load(Creation::Refused, force, changed);
}

bool CoNetworkConfig::createIfMissing() {
    const CoDeferral deferral;
    const CoLock lock(mutex_);
    bool changed = false;
    return load(Creation::Allowed, true, changed);
}

void CoNetworkConfig::reset(bool parseNow) {
    const CoDeferral deferral;
    const CoLock lock(mutex_);
    reader_.reset();
    acceptsAny_ = true;
    accept_.clear();
    reject_.clear();
    fileMissing_ = false;
    bool changed = false;
    if (parseNow) load(Creation::Refused, true, changed);
}

std::string CoNetworkConfig::lastError() const {
    const CoLock lock(mutex_);
    return lastError_;
}

bool CoNetworkConfig::load(Creation creation, bool force, bool& changed) try {
    changed = false;
    if (reader_ && !force && !watch_.changed()) return true;
    // Whatever comes of it, nothing is tried again before the file changes.
    if (!reader_) reader_ = std::make_unique<CoConfigFileReader>();
    watch_.accept();
    const CoFileSignature signature = CoFileSignature::of(fileName_);

    auto reader = std::make_unique<CoConfigFileReader>();
    bool isNew = false;
    if (!readFile(creation, *reader, isNew)) return false;
    const bool identified = ensureUUID(creation, isNew, signature, *reader);
    if (isNew && !identified) return false;
    adopt(std::move(reader));
    changed = true;
    return identified;
} catch (const std::exception& exception) {
    return fail(CoMsg::ERROR, coFormat(CANNOT_PARSE, exception.what()));
}

bool CoNetworkConfig::readFile(Creation creation, CoConfigFileReader& reader, bool& isNew) {
    std::vector<std::string> warnings;
    const bool read = reader.read(fileName_, CoConfigFileReader::READ_DEFAULT, &warnings);
    for (std::string& warning : warnings) logLater(CoMsg::WARNING, std::move(warning));
    if (read) return true;

    const int error = reader.lastErrorNumber();
    if (error == EFBIG) return fail(CoMsg::ERROR, coFormat(CANNOT_PARSE, coErrorText(error).c_str()));
    fileMissing_ = error == ENOENT || error == ENOTDIR;
    if (fileMissing_ && creation == Creation::Allowed) {
        std::istringstream text{std::string(getTemplate())};
        isNew = true;
        return reader.read(text);
    }
    return fail(fileMissing_ ? CoMsg::DEBUG : CoMsg::ERROR,
                coFormat(CANNOT_READ, fileName_.c_str(), coErrorText(error).c_str()));
}

/// Gives the host a UUID when the file has none. `reader` keeps one only if the file does: it identifies the
/// host only as long as every program finds the same.
bool CoNetworkConfig::ensureUUID(Creation creation, bool isNew, const CoFileSignature& read,
                                 CoConfigFileReader& reader) {
    std::string uuid;
    reader.get(LOCAL, UUID_KEY, uuid, {});
    if (!uuid.empty()) return true;
    // Another program may be about to write it: unless we were asked to, leave an empty or changing file
    // alone.
    const bool isBeingWritten = read.size == 0 || CoFileSignature::of(fileName_) != read;
    if (creation == Creation::Refused && isBeingWritten) return true;

    if (!generateUUID(uuid)) {
        return fail(CoMsg::ERROR, coFormat("Could not generate UUID: %s", coErrorText(EIO).c_str()));
    }
    CoConfigFileReader withUUID(reader);
    withUUID.put(LOCAL, UUID_KEY, uuid);
    if (isNew) {
        if (!create(withUUID)) return false;
    } else if (!withUUID.write(fileName_)) {
        const std::string reason = coErrorText(withUUID.lastErrorNumber());
        return fail(CoMsg::ERROR, coFormat(CANNOT_WRITE, fileName_.c_str(), reason.c_str()));
    }
    reader = std::move(withUUID);
    return true;
}

/// Writes the new file, or reads the one that another process was faster to write.
bool CoNetworkConfig::create(CoConfigFileReader& reader) {
    const std::string directory = CoFilePath::directoryOf(fileName_);
    if (const int error = CoFilePath::makeDirectories(directory)) {
        return fail(CoMsg::ERROR,
                    coFormat("Could not create '%s': %s", directory.c_str(), coErrorText(error).c_str()));
    }
    const int error = CoAtomicFile::write(fileName_, reader.toText(), CoAtomicFile::Existing::Refuse);
    if (error == 0) return true;
    CoConfigFileReader others;
    if (error == EEXIST && others.read(fileName_)) {
        std::string uuid;
        others.get(LOCAL, UUID_KEY, uuid, {});
        reader = std::move(others);
        if (!uuid.empty()) return true;
    }
    return fail(CoMsg::ERROR, coFormat(CANNOT_WRITE, fileName_.c_str(), coErrorText(error).c_str()));
}

void CoNetworkConfig::adopt(std::unique_ptr<CoConfigFileReader> reader) {
    reader_ = std::move(reader);
    fileMissing_ = false;
    std::string list;
    reader_->get(FILTERING, "Accept", list, {});
    accept_ = parseRanges(list);
    acceptsAny_ = list.empty();
    if (!acceptsAny_ && accept_.empty()) {
        logLater(CoMsg::WARNING, coFormat("No valid range in Accept '%s' of [%s]: no address is accepted.",
                                          list.c_str(), FILTERING));
    }
    reader_->get(FILTERING, "Reject", list, {});
    reject_ = parseRanges(list);
}

bool CoNetworkConfig::fail(int level, std::string text) {
    lastError_ = text;
    logLater(level, std::move(text));
    return false;
}

std::string CoNetworkConfig::value(const char* section, const char* key) {
    bool changed = false;
    load(Creation::Refused, false, changed);
    std::string text;
    if (reader_) reader_->get(section, key, text, {});
    return text;
}

bool CoNetworkConfig::getUUID(std::string& uuid) {
    const CoDeferral deferral;
    const CoLock lock(mutex_);
    uuid.clear();
    const std::string text = value(LOCAL, UUID_KEY);
    if (text.empty()) {
        return fail(fileMissing_ ? CoMsg::DEBUG : CoMsg::ERROR,
                    coFormat("No host UUID configured. Please check %s.", fileName_.c_str()));
    }
    uuid_t parsed{};
    if (::uuid_parse(text.c_str(), parsed) != 0) {
        return fail(CoMsg::ERROR, coFormat("Invalid UUID '%s'", text.c_str()));
    }
    uuid = text;
    return true;
}

void CoNetworkConfig::getDisplayName(std::string& name) {
    getToken(LOCAL, "DisplayName", name, "");
}

void CoNetworkConfig::getMetadataInterfaces(std::vector<std::string>& names) {
    getToken(INTERFACES, "Metadata", names, {});
}

void CoNetworkConfig::getDataInterfaces(std::vector<std::string>& names) {
    getToken(INTERFACES, "Data", names, {});
}

void CoNetworkConfig::getMulticastInterfaces(std::vector<std::string>& names) {
    getToken(INTERFACES, "Multicast", names, {});
}

void CoNetworkConfig::getSelfDiscoveryPort(unsigned& port) {
    selfDiscoveryNumber("Port", 1, HIGHEST_PORT, port);
}

void CoNetworkConfig::getSelfDiscoveryScope(std::string& scope) {
    getToken(SELF_DISCOVERY, "Scope", scope, std::string(scope).c_str());
}

void CoNetworkConfig::getSelfDiscoveryTTL(unsigned& ttl) {
    selfDiscoveryNumber("TTL", 0, MAX_TTL, ttl);
}

void CoNetworkConfig::selfDiscoveryNumber(const char* key, unsigned lowest, unsigned highest, unsigned& out) {
    const CoDeferral deferral;
    const CoLock lock(mutex_);
    const std::string text = value(SELF_DISCOVERY, key);
    if (text.empty()) return;
    unsigned number = 0;
    if (parseUnsigned(text, number) && number >= lowest && number <= highest) {
        out = number;
    } else {
        logLater(CoMsg::WARNING,
                 coFormat("Invalid %s '%s' in [%s]; using %u.", key, text.c_str(), SELF_DISCOVERY, out));
    }
}

void CoNetworkConfig::getIPRangeFilters(IPRangeFilters& accept, IPRangeFilters& reject) {
    const CoDeferral deferral;
    const CoLock lock(mutex_);
    bool changed = false;
    load(Creation::Refused, false, changed);
    accept = accept_;
    reject = reject_;
}

bool CoNetworkConfig::hasIPRangeFilters() {
    const CoDeferral deferral;
    const CoLock lock(mutex_);
    bool changed = false;
    load(Creation::Refused, false, changed);
    return !acceptsAny_ || !reject_.empty();
}

bool CoNetworkConfig::isIPInValidRange(const char* ip) {
    if (!ip) return false;
    const CoDeferral deferral;
    const CoLock lock(mutex_);
    bool changed = false;
    load(Creation::Refused, false, changed);
    return (acceptsAny_ || isInAny(accept_, ip)) && !isInAny(reject_, ip);
}

std::string CoNetworkConfig::getIPRangeFiltersInfo() {
    const CoDeferral deferral;
    const CoLock lock(mutex_);
    bool changed = false;
    load(Creation::Refused, false, changed);
    return coFormat("Accept from %s\nReject from %s\n",
                    listText(accept_, acceptsAny_ ? "any" : "none").c_str(),
                    listText(reject_, "none").c_str());
}

void CoNetworkConfig::getDynamicPortRange(unsigned& lower, unsigned& upper) {
    const CoDeferral deferral;
    const CoLock lock(mutex_);
    const int low = dynamicPort("LowerBound", MIN_DYNAMIC_PORT);
    const int high = dynamicPort("UpperBound", MAX_DYNAMIC_PORT);
    lower = MIN_DYNAMIC_PORT;
    upper = MAX_DYNAMIC_PORT;
    // A bound below the minimum is refused although it is a port: the range may only be narrowed.
    if (static_cast<int>(MIN_DYNAMIC_PORT) <= low && low <= high &&
        high <= static_cast<int>(MAX_DYNAMIC_PORT)) {
        lower = static_cast<unsigned>(low);
        upper = static_cast<unsigned>(high);
        return;
    }
    logLater(CoMsg::WARNING, coFormat("Invalid Dynamic port range [%d:%d]; using default [%d:%d].", low, high,
                                      static_cast<int>(lower), static_cast<int>(upper)));
}

/// The port as configured; 0, which no range holds, for what is no number.
int CoNetworkConfig::dynamicPort(const char* key, unsigned defaultPort) {
    if (value(DYNAMIC_PORTS, key).empty()) return static_cast<int>(defaultPort);
    int port = 0;
    reader_->get(DYNAMIC_PORTS, key, port, 0);
    return port;
}

bool CoNetworkConfig::getToken(const char* section, const char* key, std::string& out,
                               const char* defaultValue) {
    const CoDeferral deferral;
    const CoLock lock(mutex_);
    const std::string text = value(section, key);
    out = text.empty() ? defaultValue : text;
    return !text.empty();
}

bool CoNetworkConfig::getToken(const char* section, const char* key, unsigned& out, unsigned defaultValue) {
    std::string text;
    getToken(section, key, text, "");
    out = defaultValue;
    return parseUnsigned(text, out);
}

bool CoNetworkConfig::getToken(const char* section, const char* key, std::vector<std::string>& out,
                               const std::vector<std::string>& defaultValue) {
    std::string text;
    getToken(section, key, text, "");
    out = splitList(text);
    if (!out.empty()) return true;
    out = defaultValue;
    return false;
}

bool CoNetworkConfig::writeTemplate(const char* path, std::string& error) {
    const std::string target = path ? path : "";
    const int failure = target.empty() ? ENOENT : CoAtomicFile::write(target, getTemplate());
    if (failure == 0) return true;
    error = coFormat(CANNOT_WRITE, target.c_str(), coErrorText(failure).c_str());
    CO_MSG_ERROR("%s", error.c_str());
    return false;
}

}  // namespace Vantrel
