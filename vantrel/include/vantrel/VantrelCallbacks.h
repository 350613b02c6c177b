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

/// Called for a lost connection, on the thread whose call found it lost. `server` is valid during the call.
/// It may call any function of the library.
typedef void (*VantrelDisconnectCallBack)(const VantrelServerId& server);
