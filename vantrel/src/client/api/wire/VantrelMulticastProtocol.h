#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "VantrelDaemonInfo.h"
#include "rcAttrStream.h"

/// The texts of discovery (docs/wire.md): the datagram, which carries one request, and the daemon list, which
/// answers "GetDaemonList". Text in, values out: it knows no socket and no state. What is wrong with a
/// received text is logged, never thrown. Thread-safe.
class VantrelMulticastProtocol {
  public:
    enum RequestType : std::int32_t {
        INVALID = 0,
        START_OF_SERVICES = 70,       ///< lower bound; received as valid, asks for nothing
        DISCOVER_SERVERS = 71,        ///< a server announces itself
        DISCOVER_SERVERS_REPLY = 72,  ///< a server answers a search
        REMOVE_SERVER = 73,           ///< a server withdraws
        FIND_SERVERS = 74,            ///< a client searches; its record holds the search criteria only
        END_OF_SERVICES = 75          ///< upper bound; received as valid, asks for nothing
    };

    /// Receivers read no more of a datagram: a longer one must not be sent.
    static constexpr std::size_t MAX_DATAGRAM_BYTES = 1023;
    /// Records of a received daemon list that count; the rest is ignored, with a warning.
    static constexpr unsigned MAX_LIST_NODES = 16384;

    /// The datagram's text, without a NUL. A large payload makes it longer than MAX_DATAGRAM_BYTES: the
    /// sender compares.
    static std::string create(RequestType type, const Vantrel::rcAttrStream& payload);

    /// Reads a received datagram, NUL-terminated. False when it is no request (logged as an error); the
    /// outputs are then as they were, but for `type`, which is set once it is known to be valid.
    static bool parse(const char* text, RequestType& type, Vantrel::rcAttrStream& payload);

    /// Whether a parsed payload is as long as its datagram says: one that was cut on its way reads like a
    /// record, but of another server.
    static bool isWhole(const std::string& text, const Vantrel::rcAttrStream& payload);

    /// Makes `text` the daemon list of `nodes`, in their order.
    static void encode(const std::vector<VantrelDaemonInfo>& nodes, std::string& text);

    /// Appends the records of a received daemon list to `nodes`. With a `database` that is neither null nor
    /// empty, only those of exactly that database. Missing records are logged and left out. Memory and time
    /// are bounded by the text, whatever it says of itself.
    static void decode(const std::string& text, std::vector<VantrelDaemonInfo>& nodes, const char* database);

    /// The name for logs; "UNKNOWN" for any other number.
    static const char* getRequestTypeStr(RequestType type);
};
