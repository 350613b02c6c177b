#pragma once

namespace Vantrel {

/// What became of a call, or of an attempt to connect. The text beside it is the reply, or the reason.
enum class [[nodiscard]] rcOutcome{
    Answered,  ///< the server did what it was asked
    Refused,   ///< the server answered with an error, or the call is not one that can be sent
    TimedOut,  ///< the command was sent, and no answer came in time
    TooLong,   ///< the answer is longer than this side takes
    Lost,      ///< there was no connection, or it broke before an answer came: may be tried again
    Stopped,   ///< ended by stop()
    Failed,    ///< this side could not go on, as without memory for the answer
};

}  // namespace Vantrel
