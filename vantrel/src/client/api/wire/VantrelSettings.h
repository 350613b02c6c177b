#pragma once

#include "CoEnv.h"

/// The environment variables of the client, each with its default. Read once, on first use.
namespace VantrelSettings {

constexpr long MAX_MILLISECONDS = 0x7fffffff;

// --- Metadata connections: milliseconds ---

inline const Vantrel::CoEnvInt callTimeoutMs("VANTREL_DEFAULT_CALL_TIMEOUT_MS", 60000, 0, MAX_MILLISECONDS);
/// Each TCP connect and login attempt.
inline const Vantrel::CoEnvInt connectionTimeoutMs("VANTREL_CONNECTION_TIMEOUT_MS", 5000, 0,
                                                   MAX_MILLISECONDS);
/// How long a connection is tried again in all.
inline const Vantrel::CoEnvInt connectionRetryTimeoutMs("VANTREL_CONNECTION_RETRY_TIMEOUT_MS", 1000, 0,
                                                        MAX_MILLISECONDS);
inline const Vantrel::CoEnvInt daemonInfoTimeoutMs("VANTREL_GET_DAEMON_INFO_CALL_TIMEOUT_MS", 5000, 0,
                                                   MAX_MILLISECONDS);
/// Delays for testing: after each call, and before each connection attempt.
inline const Vantrel::CoEnvInt callExtraLatencyMs("QD_VANTREL_CALL_EXTRA_LATENCY_MSEC", 0, 0,
                                                  MAX_MILLISECONDS);
inline const Vantrel::CoEnvInt connectExtraLatencyMs("QD_VANTREL_CONNECT_EXTRA_LATENCY_MSEC", 0, 0,
                                                     MAX_MILLISECONDS);

inline const Vantrel::CoEnvFlag trace("QD_VANTREL_TRACE", Vantrel::CoEnvFlag::Rule::TextDecides);
/// Logs the local interfaces before connecting.
inline const Vantrel::CoEnvFlag networkDebug("VANTREL_NETWORK_DEBUG", Vantrel::CoEnvFlag::Rule::SetMeansOn);
/// The login record carries this host's configured metadata address instead of the socket's.
inline const Vantrel::CoEnvFlag useClientIp("VANTREL_USE_CLIENT_IP", Vantrel::CoEnvFlag::Rule::SetMeansOn);

// --- Shared connections ---

/// One variable, two meanings: the number of cached connections, and the seconds that an unused one is kept.
inline const Vantrel::CoEnvInt sharedConnections("VANTREL_SHARED_CONNECTIONS", 16, 0, 0x7fffffff);
inline const Vantrel::CoEnvInt sharedConnectionsIdleSec("VANTREL_SHARED_CONNECTIONS", 30, 0, 0x7fffffff);

// --- Events ---

/// Calls that register and unregister events, in milliseconds.
inline const Vantrel::CoEnvInt eventsCallTimeoutMs("VANTREL_EVENTS_CALL_TIMEOUT_MS", 15000, 0,
                                                   MAX_MILLISECONDS);
/// Logs every event received and delivered, at user level.
inline const Vantrel::CoEnvFlag debugEvents("QD_DEBUG_VANTREL_EVENTS", Vantrel::CoEnvFlag::Rule::SetMeansOn);

// --- Discovery ---

/// From 1 on every request received and every server added or changed is logged, from 2 on every datagram,
/// wait and expiry too; at debug level.
inline const Vantrel::CoEnvInt multicastDebug("VANTREL_MULTICAST_DEBUG", 0, 0, 0x7fffffff);
/// Silent servers are looked for once in so many seconds, and forgotten after twice as many.
inline const Vantrel::CoEnvInt multicastResyncSec("VANTREL_MULTICAST_RESYNC_TIME_SEC", 300, 1, 31536000);
/// Milliseconds; of asking a server for the servers that it knows.
inline const Vantrel::CoEnvInt daemonListTimeoutMs("VANTREL_GETDAEMONINFO_TIMEOUT", 2000, 0,
                                                   MAX_MILLISECONDS);
/// Loopback addresses are taken out of the records of local daemons too.
inline const Vantrel::CoEnvFlag noLoopback("VANTREL_NO_LOOPBACK", Vantrel::CoEnvFlag::Rule::SetMeansOn);
/// Servers known at most.
inline const Vantrel::CoEnvInt maxServers("VANTREL_MAX_SERVERS", 16384, 0, 0x7fffffff);
/// Addresses and servers remembered as dead; when it is full, the least recently used eighth goes.
inline const Vantrel::CoEnvInt unresolvableCacheSize("VANTREL_UNRESOLVABLE_CACHE_SIZE", 256, 0, 65536);
inline const Vantrel::CoEnvInt unresolvableCacheSec("VANTREL_UNRESOLVABLE_CACHE_TIMEOUT_SEC", 600, 0,
                                                    0x7fffffff);

// --- Frames ---

/// Socket buffers of frame connections, in bytes; 0 leaves the system's size.
inline const Vantrel::CoEnvInt frameSocketBufferBytes("KS_VANTREL_TCP_BUF_SIZE", 0, 0, 0x7fffffff);
/// Most bytes handed to one read or write of a descriptor.
inline const Vantrel::CoEnvInt frameIoBytes("QD_VANTREL_NETIO_BUF_SIZE", 1L << 30, 1, 1L << 40);
/// A transfer that moves no byte for so long has failed; 0: never.
inline const Vantrel::CoEnvInt frameStallTimeoutMs("VANTREL_FRAME_STALL_TIMEOUT_MS", 60000, 0,
                                                   MAX_MILLISECONDS);
/// Frames whose redirection to another server a handle remembers; 0 asks for none.
inline const Vantrel::CoEnvInt redirectionCacheSize("QD_VANTREL_REDIRECTION_CACHE_SIZE", 32, 0, 65536);
/// Folder of the local sockets on which the servers of this host serve frames.
inline const Vantrel::CoEnvText frameSocketDir("VANTREL_FRAME_SOCKET_DIR", "/run/vantrel");

}  // namespace VantrelSettings
