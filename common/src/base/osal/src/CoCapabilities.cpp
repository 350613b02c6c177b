#include "CoCapabilities.h"

#include <dirent.h>
#include <sys/capability.h>

#include <cerrno>
#include <cstdio>
#include <memory>
#include <system_error>

namespace Vantrel {

namespace {

using State = std::unique_ptr<void, int (*)(void*)>;

std::string nameOf(int capability) {
    const std::unique_ptr<char, int (*)(void*)> name(::cap_to_name(capability), &::cap_free);
    return name ? name.get() : std::to_string(capability);
}

std::string systemReason(const std::string& attempted) {
    return attempted + ": " + std::system_category().message(errno);
}

bool isOn(cap_t state, int capability, cap_flag_t flag) {
    cap_flag_value_t value = CAP_CLEAR;
    return ::cap_get_flag(state, capability, flag, &value) == 0 && value == CAP_SET;
}

bool setEffective(cap_t state, int capability, cap_flag_value_t value) {
    return ::cap_set_flag(state, CAP_EFFECTIVE, 1, &capability, value) == 0 && ::cap_set_proc(state) == 0;
}

// Whether a thread of this process has the capability on. One that has ended in between does not matter.
bool threadHas(const char* thread, int capability) {
    const std::string path = std::string("/proc/self/task/") + thread + "/status";
    const std::unique_ptr<FILE, int (*)(FILE*)> status(std::fopen(path.c_str(), "re"), &std::fclose);
    if (!status) return errno == ENOENT || errno == ESRCH;
    char line[256];
    unsigned long long mask = 0;
    while (std::fgets(line, sizeof line, status.get())) {
        if (std::sscanf(line, "CapEff: %16llx", &mask) == 1) return (mask >> capability & 1U) != 0;
    }
    return std::ferror(status.get()) != 0 && errno == ESRCH;
}

}  // namespace

bool CoCapabilities::allThreadsHave(int capability, std::string& error) {
    const std::unique_ptr<DIR, int (*)(DIR*)> threads(::opendir("/proc/self/task"), &::closedir);
    if (!threads) {
        error = systemReason("Cannot list the threads of the process");
        return false;
    }
    while (const dirent* entry = ::readdir(threads.get())) {
        if (entry->d_name[0] == '.' || threadHas(entry->d_name, capability)) continue;
        error = std::string("Thread ") + entry->d_name + " lacks " + nameOf(capability);
        return false;
    }
    return true;
}

CoCapabilities::Raised::Raised(int capability) : capability_(capability) {
    const State state(::cap_get_proc(), &::cap_free);
    const cap_t caps = static_cast<cap_t>(state.get());
    if (!caps) {
        error_ = systemReason("Cannot read the capabilities of the process");
    } else if (isOn(caps, capability_, CAP_EFFECTIVE)) {
        return;
    } else if (!isOn(caps, capability_, CAP_PERMITTED)) {
        error_ = nameOf(capability_) + " is not permitted";
    } else if (!setEffective(caps, capability_, CAP_SET)) {
        error_ = systemReason("Cannot raise " + nameOf(capability_));
    } else {
        lower_ = true;
    }
}

CoCapabilities::Raised::~Raised() {
    if (!lower_) return;
    // Read again: what was done since may have changed other capabilities.
    const State state(::cap_get_proc(), &::cap_free);
    if (state) setEffective(static_cast<cap_t>(state.get()), capability_, CAP_CLEAR);
}

}  // namespace Vantrel
