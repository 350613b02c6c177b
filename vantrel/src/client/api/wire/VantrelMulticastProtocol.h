#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
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

    struct Request {
        RequestType type = INVALID;
        Vantrel::rcAttrStream payload;
    };

    /// The datagram's text, without a NUL. A large payload makes it longer than MAX_DATAGRAM_BYTES: the
    /// sender compares.
    static std::string create(RequestType type, const Vantrel::rcAttrStream& payload);

    /// The request of a received datagram; none when it is no request (logged as an error), or when its
    /// payload is shorter than it says: cut on its way, it would read like the record of another server.
    static std::optional<Request> parse(const std::string& text);

    /// Makes `text` the daemon list of `nodes`, in their order.
    static void encode(const std::vector<VantrelDaemonInfo>& nodes, std::string& text);

    /// Appends the records of a received daemon list to `nodes`. With a `database` that is neither null nor
    /// empty, only those of exactly that database. Missing records are logged and left out. Memory and time
    /// are bounded by the text, whatever it says of itself.
    static void decode(const std::string& text, std::vector<VantrelDaemonInfo>& nodes, const char* database);

    /// The name for logs; "UNKNOWN" for any other number.
    static const char* getRequestTypeStr(RequestType type);
};
