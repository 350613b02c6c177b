#include "VantrelCommandClient.h"

bool VantrelCommandClient::fail(VantrelErrorCode code, std::string reason, bool sent) {
    lastFailure_ = {std::move(reason), code, sent};
    return false;
}

bool VantrelCommandClient::succeeded(const VantrelCallOutcome& outcome, std::string& reason) {
    return outcome == Vantrel::rcOutcome::Answered || fail(outcome.code(), std::move(reason), outcome.sent());
}

bool VantrelCommandClient::serverVersion(VantrelVersion& version) {
    std::string error;
    return succeeded(connection_.getProtocolVersion(version, error, limits()), error);
}

const VantrelCommand* VantrelCommandClient::formOf(const VantrelCommand& plain) {
    VantrelVersion version{};
    if (!serverVersion(version)) return nullptr;
    return version >= plain.extended->since ? plain.extended : &plain;
}

bool VantrelCommandClient::require(const VantrelCommand& command, const char* refusal) {
    VantrelVersion version{};
    if (!serverVersion(version)) return false;
    return version >= command.since || fail(VANTREL_ERROR_NOT_SUPPORTED, refusal);
}
