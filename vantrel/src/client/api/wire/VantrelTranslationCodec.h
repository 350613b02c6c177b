#pragma once

#include <vantrel/VantrelTypes.h>

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

/// Hosts that a server's path translations treat alike, with the system that they run.
struct VantrelPathTranslationGroup {
    std::string name;
    VantrelOS::OsType osType = VantrelOS::Unknown;
    std::vector<std::string> hosts;
};

/// Where paths of one host are found on another.
struct VantrelHostTranslation {
    std::string srcHost;
    std::string srcPath;
    std::string dstHost;
    std::string dstPath;
};

/// Where paths of one system are found on another.
struct VantrelOsTypeTranslation {
    VantrelOS::OsType srcType = VantrelOS::Unknown;
    std::string srcPath;
    VantrelOS::OsType dstType = VantrelOS::Unknown;
    std::string dstPath;
};

/// What "TranslatePaths" asks: the paths of one host as another would write them.
struct VantrelTranslationRequest {
    std::string srcHost;
    VantrelOS::OsType srcType = VantrelOS::Unknown;
    std::string dstHost;
    VantrelOS::OsType dstType = VantrelOS::Unknown;
    std::vector<std::string> paths;
};

/// The texts of the path translation commands, for the client and for the server. Pure text in, values out.
/// Parsers replace their output, and only when they succeed. Thread-safe.
///
///     request = host " " type " " host " " type " " paths         source first
///     reply   = paths
///     host    = quoted                                            see isValidHost
///     type    = the number of a VantrelOS::OsType, decimal
///     paths   = "" | quoted *( "," quoted )
///     quoted  = DQUOTE, bytes with a backslash before every double quote and backslash, DQUOTE
///
/// So `/a "b"` of host `one` (Linux) for host `two` (WindowsNT) is asked as
///
///     "one" 2 "two" 3 "/a \"b\""
///
/// Each table is an attribute stream: the count, then one nested stream for each entry under "0", "1", ...
///
///     numGroups              name  osType  hosts (a list of texts)
///     numHostTranslations    srcHost  srcPath  dstHost  dstPath
///     numOsTypeTranslations  srcType  srcPath  dstType  dstPath
///
/// A table is malformed as a whole when its count is absent, negative or more than the entries that are
/// there, and when an entry lacks one of its fields or has one with a NUL; further entries and fields are
/// ignored. An OS type with an unknown number reads as Unknown.
class VantrelTranslationCodec {
  public:
    /// Most entries of one table, and most hosts of all groups together.
    static constexpr std::size_t MAX_TABLE_ENTRIES = 100'000;

    /// Whether a text can name a host here: not empty, without control characters. Display names, which are
    /// for people, may have blanks and quotes.
    static bool isValidHost(std::string_view name);

    static std::string formatRequest(const VantrelTranslationRequest& request);
    /// False, with `error` set, for a malformed text and for more than `maxPaths` paths.
    [[nodiscard]] static bool parseRequest(std::string_view text, std::size_t maxPaths,
                                           VantrelTranslationRequest& request, std::string& error);

    static std::string formatPaths(const std::vector<std::string>& paths);
    /// False for a malformed text, for a path with a NUL, and for more than `maxPaths` paths.
    [[nodiscard]] static bool parsePaths(std::string_view text, std::size_t maxPaths,
                                         std::vector<std::string>& paths);

    static std::string formatGroups(const std::vector<VantrelPathTranslationGroup>& groups);
    [[nodiscard]] static bool parseGroups(std::string_view text,
                                          std::vector<VantrelPathTranslationGroup>& groups);

    static std::string formatHostTranslations(const std::vector<VantrelHostTranslation>& translations);
    [[nodiscard]] static bool parseHostTranslations(std::string_view text,
                                                    std::vector<VantrelHostTranslation>& translations);

    static std::string formatOsTypeTranslations(const std::vector<VantrelOsTypeTranslation>& translations);
    [[nodiscard]] static bool parseOsTypeTranslations(std::string_view text,
                                                      std::vector<VantrelOsTypeTranslation>& translations);
};
