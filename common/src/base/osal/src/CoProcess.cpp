#include "CoProcess.h"

#include <errno.h>
#include <pthread.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cstdio>
#include <cstring>
#include <memory>

namespace Vantrel {

namespace {

std::atomic<unsigned> generation{0};

void countFork() {
    generation.fetch_add(1, std::memory_order_relaxed);
}

}  // namespace

int CoProcess::getId() {
    return static_cast<int>(::getpid());
}

std::string CoProcess::getName() {
    return program_invocation_short_name ? program_invocation_short_name : "";
}

unsigned CoProcess::getUmask() {
    // The kernel tells the mask here; umask() would have to change it for a moment to read it.
    const std::unique_ptr<FILE, int (*)(FILE*)> status(std::fopen("/proc/self/status", "re"), &std::fclose);
    char line[256];
    unsigned mask = 022;
    while (status && std::fgets(line, sizeof line, status.get())) {
        if (std::sscanf(line, "Umask: %o", &mask) == 1) break;
    }
    return mask;
}

unsigned CoProcess::forkGeneration() {
    static const int registered = ::pthread_atfork(nullptr, nullptr, &countFork);
    (void)registered;
    return generation.load(std::memory_order_relaxed);
}

}  // namespace Vantrel
