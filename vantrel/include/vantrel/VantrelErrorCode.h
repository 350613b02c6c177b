#pragma once

/// Why a call failed, for programs: the numbers stay, where the texts of lastError are for people. Those of
/// later versions of the library may have more.
enum VantrelErrorCode : int {
    VANTREL_ERROR_NONE = 0,             ///< no call has failed yet
    VANTREL_ERROR_NOT_INITIALIZED = 1,  ///< VantrelClientInit has not been called, or is undone
    VANTREL_ERROR_INVALID_ARGUMENT = 2,
    VANTREL_ERROR_NOT_SUPPORTED = 3,  ///< the server is too old for it
    VANTREL_ERROR_NOT_FOUND = 4,    ///< no server by this id is known, or another one answers at its address;
                                    ///< no child by this name; no such handler
    VANTREL_ERROR_UNREACHABLE = 5,  ///< none of the server's addresses leads to it, or its name to an address
    VANTREL_ERROR_REFUSED = 6,      ///< the server answered with an error
    VANTREL_ERROR_TIMED_OUT = 7,    ///< the server did not answer in time
    VANTREL_ERROR_STOPPED = 8,      ///< ended by `stop`, `disconnect` or VantrelClientUninit
    VANTREL_ERROR_NOT_SENT = 9,     ///< the connection broke before the server had the command
    VANTREL_ERROR_MAYBE_EXECUTED = 10,  ///< the connection broke between the command and its answer
    VANTREL_ERROR_INVALID_REPLY = 11,   ///< the server's answer is malformed, or longer than is taken
    VANTREL_ERROR_LOCAL = 12            ///< a file, memory or a port of this host
};
