#pragma once

#include <sys/types.h>

#include <atomic>
#include <fstream>
#include <string>
#include <thread>

/// Returns once a thread of this process sleeps; until it has an id, it does not.
inline void awaitSleep(const std::atomic<pid_t>& thread) {
    for (std::string stat; stat.find(") S") == std::string::npos; std::this_thread::yield())
        std::getline(std::ifstream("/proc/self/task/" + std::to_string(thread) + "/stat"), stat);
}
