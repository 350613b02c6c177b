#include "CoWakeUp.h"

#include <sys/eventfd.h>

#include <cerrno>

namespace Vantrel {

void CoWakeUp::open(Kind kind) {
    fd_.reset(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK | (kind == Kind::Count ? EFD_SEMAPHORE : 0)));
}

bool CoWakeUp::signal() const {
    // EAGAIN: as many signals are pending as the system counts, so that the waiter wakes anyway.
    return ::eventfd_write(fd_.get(), 1) == 0 || errno == EAGAIN;
}

bool CoWakeUp::drain() const {
    eventfd_t count = 0;
    return ::eventfd_read(fd_.get(), &count) == 0;
}

}  // namespace Vantrel
