#pragma once

/// What an application may register with the library as a whole: VantrelRegisterLogCallBack and
/// VantrelRegisterDisconnectCallBack in VantrelClientAPI.h.

class VantrelServerId;

/// Severity of a log message. A message is emitted when its level is at or below the level set.
enum VantrelLogLevel : int {
    VANTREL_LOG_USER = 0,
    VANTREL_LOG_ERROR = 1,
    VANTREL_LOG_WARNING = 2,
    VANTREL_LOG_NOTICE = 3,
    VANTREL_LOG_DEBUG = 4
};

/// Receives log messages, on any thread of the library or the application; it must be thread-safe. `message`
/// is valid during the call. It may call any function of the library.
typedef void (*VantrelLogCallBack)(VantrelLogLevel level, const char* message);

/// Called when a call finds its server's metadata connection down, once for each time that it does: when the
/// connection was lost, before the call connects again; when the call has lost it or got no answer in time;
/// and also when there was none yet, so that the first call to a server calls it once, whichever call that
/// is. A call that loses its connection again and again calls it up to three times. Not called for
/// disconnect(), VantrelClientUninit and what closes connections that nobody uses, nor for frame connections.
///
/// Runs on the thread whose call it was, after the call has left the library's locks, or on one of the
/// library's threads where that found an event connection lost. `server` is what the server said of itself
/// (database, first metadata address, node port, storage id), or, before it was first reached, the id that
/// the handle was built from. It is valid during the call. The callback may call any function of the library.
typedef void (*VantrelDisconnectCallBack)(const VantrelServerId& server);
