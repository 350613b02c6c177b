#pragma once

#include <sys/wait.h>
#include <unistd.h>

constexpr unsigned FORKED_CHILD_LIMIT_SEC = 30;

/// Runs `body` in a forked child. What it returns, or -1 when the child was ended: one that hangs is, too.
template <typename Body>
int inForkedChild(Body body) {
    const pid_t child = ::fork();
    if (child == 0) {
        ::alarm(FORKED_CHILD_LIMIT_SEC);
        ::_exit(body());
    }
    int status = -1;
    if (::waitpid(child, &status, 0) != child) return -1;
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}
