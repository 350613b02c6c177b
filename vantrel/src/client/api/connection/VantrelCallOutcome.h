#pragma once

#include <vantrel/VantrelErrorCode.h>

#include "rcOutcome.h"

/// What became of a call that may have had to connect first.
class [[nodiscard]] VantrelCallOutcome {
  public:
    /// Of the call itself. `sent`: the server may have the command.
    VantrelCallOutcome(Vantrel::rcOutcome outcome, bool sent) : outcome_(outcome), sent_(sent) {}
    /// Of connecting for it. `triedAddress`: there was an address to connect to. `sent`: the command went out
    /// on an earlier connection.
    static VantrelCallOutcome ofConnecting(Vantrel::rcOutcome outcome, bool triedAddress, bool sent) {
        VantrelCallOutcome result(outcome, sent);
        result.connecting_ = true;
        result.triedAddress_ = triedAddress;
        return result;
    }

    operator Vantrel::rcOutcome() const { return outcome_; }
    bool sent() const { return sent_; }
    VantrelErrorCode code() const;

  private:
    Vantrel::rcOutcome outcome_;
    bool sent_;
    bool connecting_ = false;
    bool triedAddress_ = false;
};

inline VantrelErrorCode VantrelCallOutcome::code() const {
    const bool stopped = outcome_ == Vantrel::rcOutcome::Stopped;
    const bool answered = outcome_ == Vantrel::rcOutcome::Answered;
    // Why the lost connection could not be made again matters less than what may have been done on it.
    if (connecting_ && sent_ && !stopped && !answered) return VANTREL_ERROR_MAYBE_EXECUTED;
    switch (outcome_) {
        case Vantrel::rcOutcome::Answered:
            return VANTREL_ERROR_NONE;
        case Vantrel::rcOutcome::TimedOut:
            return VANTREL_ERROR_TIMED_OUT;
        case Vantrel::rcOutcome::Stopped:
            return VANTREL_ERROR_STOPPED;
        case Vantrel::rcOutcome::TooLong:
            return VANTREL_ERROR_INVALID_REPLY;
        case Vantrel::rcOutcome::Refused:
            // A server that refuses the connection, and not the command, is another than the one asked for.
            return connecting_ ? VANTREL_ERROR_NOT_FOUND : VANTREL_ERROR_REFUSED;
        case Vantrel::rcOutcome::Failed:
            return VANTREL_ERROR_LOCAL;
        case Vantrel::rcOutcome::Lost:
            break;
    }
    if (sent_) return VANTREL_ERROR_MAYBE_EXECUTED;
    if (!connecting_) return VANTREL_ERROR_NOT_SENT;
    return triedAddress_ ? VANTREL_ERROR_UNREACHABLE : VANTREL_ERROR_NOT_FOUND;
}
