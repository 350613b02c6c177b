#include "CoProcess.h"

#include <errno.h>
#include <fcntl.h>
#include <pthread.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <cstring>

#include "CoFd.h"

namespace Vantrel {

namespace {

std::atomic<unsigned> generation{0};

void countFork() {
    generation.fetch_add(1, std::memory_order_relaxed);
}

// When the library is loaded: a fork while another thread registered it on first use would leave the child
// waiting for that thread.
[[maybe_unused]] const int registered = ::pthread_atfork(nullptr, nullptr, &countFork);

}  // namespace

int CoProcess::getId() {
    return static_cast<int>(::getpid());
}

std::string CoProcess::getName() {
    return program_invocation_short_name ? program_invocation_short_name : "";
}

unsigned CoProcess::getUmask() {
    // The kernel shows the mask here; umask() would have to change it for a moment to read it.
    // It stands on the second line, so one short read has it.
    constexpr unsigned USUAL_MASK = 022;
    constexpr const char* LABEL = "\nUmask:";
    char text[256];
    const CoFd status(::open("/proc/self/status", O_RDONLY | O_CLOEXEC));
    if (!status.isOpen()) return USUAL_MASK;
    const ssize_t length = ::read(status.get(), text, sizeof text - 1);
    text[std::max<ssize_t>(length, 0)] = '\0';
    const char* found = std::strstr(text, LABEL);
    return found ? static_cast<unsigned>(std::strtoul(found + std::strlen(LABEL), nullptr, 8)) : USUAL_MASK;
}

unsigned CoProcess::forkGeneration() {
    return generation.load(std::memory_order_relaxed);
}

}  // namespace Vantrel
