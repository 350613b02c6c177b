#include "VantrelCommandClient.h"

bool VantrelCommandClient::fail(std::string reason) {
    lastError_ = std::move(reason);
    return false;
}

bool VantrelCommandClient::succeeded(Vantrel::rcOutcome outcome, std::string& reason) {
    return outcome == Vantrel::rcOutcome::Answered || fail(std::move(reason));
}

bool VantrelCommandClient::serverVersion(VantrelVersion& version) {
    std::string error;
    return succeeded(connection_.getProtocolVersion(version, error), error);
}

const VantrelCommand* VantrelCommandClient::formOf(const VantrelCommand& plain) {
    VantrelVersion version{};
    if (!serverVersion(version)) return nullptr;
    return version >= plain.extended->since ? plain.extended : &plain;
}

bool VantrelCommandClient::require(const VantrelCommand& command, const char* refusal) {
    VantrelVersion version{};
    if (!serverVersion(version)) return false;
    return version >= command.since || fail(refusal);
}
