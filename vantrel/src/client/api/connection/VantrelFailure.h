#pragma once

#include <vantrel/VantrelErrorCode.h>

#include <string>

#include "CoException.h"

/// Why a call failed: for people, and for programs.
struct VantrelFailure {
    std::string text;
    VantrelErrorCode code = VANTREL_ERROR_NONE;
    bool sent = false;  ///< whether the server may have the command, and may have done something of it

    /// What an exception says; of one that says no more than a text, that something of this host failed.
    static VantrelFailure of(const std::exception& error);
};

/// A failure that is thrown.
class VantrelFailureException : public Vantrel::CoException {
  public:
    explicit VantrelFailureException(const VantrelFailure& failure)
        : CoException(failure.text), failure_(failure) {}
    VantrelFailureException(VantrelErrorCode code, const std::string& text, bool sent)
        : VantrelFailureException(VantrelFailure{text, code, sent}) {}
    const VantrelFailure& failure() const { return failure_; }

  private:
    const VantrelFailure failure_;
};

inline VantrelFailure VantrelFailure::of(const std::exception& error) {
    if (const auto* known = dynamic_cast<const VantrelFailureException*>(&error)) return known->failure();
    return {error.what(), VANTREL_ERROR_LOCAL, false};
}
