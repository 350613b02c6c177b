#include "CoUser.h"

#include <grp.h>
#include <limits.h>
#include <pwd.h>
#include <unistd.h>

#include <cerrno>
#include <vector>

namespace Vantrel {

namespace {

constexpr std::size_t MAX_ENTRY_BYTES = 1U << 20;

// Calls a getpwuid_r-like look-up with a growing buffer.
template <typename Entry, typename Id, typename LookUp>
bool findEntry(Id id, LookUp lookUp, char* Entry::*name, std::string& out) {
    for (std::size_t size = 1024; size <= MAX_ENTRY_BYTES; size *= 2) {
        std::vector<char> buffer(size);
        Entry entry{};
        Entry* found = nullptr;
        const int error = lookUp(id, &entry, buffer.data(), buffer.size(), &found);
        if (error == ERANGE) continue;
        if (!found) return false;
        out = found->*name;
        return true;
    }
    return false;
}

}  // namespace

bool CoUser::getUserName(std::string& name) {
    return findEntry<passwd>(::geteuid(), ::getpwuid_r, &passwd::pw_name, name);
}

bool CoUser::getGroupName(std::string& name) {
    return findEntry<group>(::getegid(), ::getgrgid_r, &group::gr_name, name);
}

bool CoUser::getHostName(std::string& name) {
    char text[HOST_NAME_MAX + 1] = {};
    if (::gethostname(text, sizeof text - 1) != 0) return false;
    name = text;
    return true;
}

}  // namespace Vantrel
