#pragma once

#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "CoConfigFileReader.h"
#include "CoFileMonitor.h"
#include "CoIPRangeFilter.h"
#include "CoMutex.h"
#include "CoPort.h"

namespace Vantrel {

/// The workstation's network settings, read from network.cfg on first use and again, while the file monitor
/// runs, when the file has changed. A file that is missing or cannot be read leaves the settings read before,
/// or the defaults, in force. A missing file is normal: nothing above debug level is logged, and nothing is
/// created unless `createIfMissing` is called. A file without a host UUID gets one.
///
/// Thread-safe. No exception leaves the class. Messages are logged after its lock is released.
class CoNetworkConfig {
  public:
    using IPRangeFilter = CoIPRangeFilter;
    using IPRangeFilters = std::vector<CoIPRangeFilter>;

    static constexpr unsigned MIN_DYNAMIC_PORT = 49152;
    static constexpr unsigned MAX_DYNAMIC_PORT = HIGHEST_PORT;

    /// The configuration of the process, of the file named by QD_NETWORK_CFG_FILE or the default one. Never
    /// destroyed; a forked child reads it for itself.
    static CoNetworkConfig& getInstance();
    /// A configuration of its own for another file.
    explicit CoNetworkConfig(std::string fileName);
    CoNetworkConfig(const CoNetworkConfig&) = delete;
    CoNetworkConfig& operator=(const CoNetworkConfig&) = delete;

    const std::string& getConfigFileName() const { return fileName_; }

    /// Reads the file when that was not yet done, when it has changed, or always with `force`. `changed`
    /// says whether what was read is in force now. False, with the last error set, when the file could not
    /// be read, or has no host UUID and could not be given one.
    bool parse(bool& changed, bool force);
    /// Sees to it that the file exists, from the template when it is missing, and names a host UUID. False
    /// with the last error set; a file that stood there before is then as it was.
    bool createIfMissing();
    /// Forgets what was read; `parseNow` reads the file at once rather than at the next use.
    void reset(bool parseNow = false);

    /// The text of the last failure of `parse`, `createIfMissing` or `getUUID` on any thread.
    std::string lastError() const;

    /// The host's UUID. False with the last error set, and `uuid` empty, when there is none or it is
    /// malformed.
    bool getUUID(std::string& uuid);
    /// Empty when none is configured.
    void getDisplayName(std::string& name);

    /// Interface names in order of preference, "*" for any; empty means all that are active.
    void getMetadataInterfaces(std::vector<std::string>& names);
    void getDataInterfaces(std::vector<std::string>& names);
    void getMulticastInterfaces(std::vector<std::string>& names);

    /// Each leaves its argument as it is unless a usable value is configured: a port from 1 to 65535, a TTL
    /// up to 255. An unusable one is logged as a warning.
    void getSelfDiscoveryPort(unsigned& port);
    void getSelfDiscoveryScope(std::string& scope);
    void getSelfDiscoveryTTL(unsigned& ttl);

    /// The well-formed ranges of each list; those that are not were logged when the file was read.
    void getIPRangeFilters(IPRangeFilters& accept, IPRangeFilters& reject);
    /// Whether there is an address to which connections are not allowed.
    bool hasIPRangeFilters();
    /// Whether connections to a numeric address are allowed: it lies in a range to accept, unless no list of
    /// these is configured, and in none to reject. A list to accept without a well-formed range, which is
    /// logged as a warning when the file is read, allows no address. The ranges are IPv4 (an IPv4 address in
    /// IPv6 form counts as such): any other text lies in none. False for null.
    bool isIPInValidRange(const char* ip);
    /// The filters for display: a line "Accept from ..." and a line "Reject from ...".
    std::string getIPRangeFiltersInfo();

    /// A range within 49152 to 65535; the whole of it, with a warning, when what is configured is not.
    void getDynamicPortRange(unsigned& lower, unsigned& upper);

    /// One value: `defaultValue` when it is missing, empty or, for a number, none. True when it is
    /// configured. A list is split at commas, without blanks around its members and without empty ones.
    bool getToken(const char* section, const char* key, std::string& out, const char* defaultValue);
    bool getToken(const char* section, const char* key, unsigned& out, unsigned defaultValue);
    bool getToken(const char* section, const char* key, std::vector<std::string>& out,
                  const std::vector<std::string>& defaultValue);

    /// The commented text that a new network.cfg starts from.
    static std::string_view getTemplate();
    /// Writes the template to `path`, replacing a file there as a whole or not at all. False with `error`
    /// set.
    static bool writeTemplate(const char* path, std::string& error);

  private:
    enum class Creation { Refused, Allowed };

    bool load(Creation creation, bool force, bool& changed) CO_REQUIRES(mutex_);
    bool readFile(Creation creation, CoConfigFileReader& reader, bool& isNew) CO_REQUIRES(mutex_);
    bool ensureUUID(Creation creation, bool isNew, const CoFileSignature& read, CoConfigFileReader& reader)
        CO_REQUIRES(mutex_);
    bool create(CoConfigFileReader& reader) CO_REQUIRES(mutex_);
    void adopt(std::unique_ptr<CoConfigFileReader> reader) CO_REQUIRES(mutex_);
    bool fail(int level, std::string text) CO_REQUIRES(mutex_);
    /// The value, or empty; reads the file when that is due.
    std::string value(const char* section, const char* key) CO_REQUIRES(mutex_);
    void selfDiscoveryNumber(const char* key, unsigned lowest, unsigned highest, unsigned& out);
    int dynamicPort(const char* key, unsigned defaultPort) CO_REQUIRES(mutex_);

    const std::string fileName_;

    mutable CoMutex mutex_;
    CoFileMonitor::Watch watch_ CO_GUARDED_BY(mutex_);
    std::unique_ptr<CoConfigFileReader> reader_ CO_GUARDED_BY(mutex_);  ///< null until first use
    bool fileMissing_ CO_GUARDED_BY(mutex_) = false;
    bool acceptsAny_ CO_GUARDED_BY(mutex_) = true;  ///< no list to accept is configured
    IPRangeFilters accept_ CO_GUARDED_BY(mutex_);
    IPRangeFilters reject_ CO_GUARDED_BY(mutex_);
    std::string lastError_ CO_GUARDED_BY(mutex_);
};

}  // namespace Vantrel
