#pragma once

#include <poll.h>
#include <sys/types.h>

#include <atomic>
#include <fstream>
#include <string>

/// Whether a thread of this process sleeps, and how often it has; empty until it has an id.
inline std::string sleepState(pid_t thread) {
    std::ifstream status("/proc/self/task/" + std::to_string(thread) + "/status");
    std::string state;
    for (std::string line; std::getline(status, line);)
        if (line.rfind("State:", 0) == 0 || line.find("ctxt_switches") != std::string::npos) state += line;
    return state;
}

/// Returns once a thread of this process has slept for longer than threads wait for each other in passing.
inline void awaitSleep(const std::atomic<pid_t>& thread) {
    constexpr int LOOKS = 10;
    constexpr int BETWEEN_MS = 2;
    std::string last;
    for (int same = 0; same < LOOKS; ::poll(nullptr, 0, BETWEEN_MS)) {
        const std::string now = sleepState(thread);
        same = now == last && now.find("(sleeping)") != std::string::npos ? same + 1 : 0;
        last = now;
    }
}
