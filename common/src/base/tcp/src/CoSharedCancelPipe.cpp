#include "CoSharedCancelPipe.h"

#include <fcntl.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>

#include "CoAssert.h"
#include "CoMsg.h"
#include "CoProcess.h"
#include "QdDsoMgr.h"

namespace Vantrel {

namespace {

constexpr char WAKE_BYTE = '*';

std::atomic<CoSharedCancelPipe*> current{nullptr};

}  // namespace

CoSharedCancelPipe& CoSharedCancelPipe::get() {
    const unsigned generation = CoProcess::forkGeneration();
    CoSharedCancelPipe* seen = current.load(std::memory_order_acquire);
    if (seen && seen->generation_ == generation) return *seen;

    QdDsoMgr::keepLoaded();
    // No lock: one that another thread held at the moment of a fork would stay locked in the child.
    auto* const fresh = new CoSharedCancelPipe(generation);
    fresh->earlier_ = seen;
    if (current.compare_exchange_strong(seen, fresh, std::memory_order_acq_rel)) {
        if (fresh->earlier_) {
            ::close(fresh->earlier_->in_);
            ::close(fresh->earlier_->out_);
        }
        return *fresh;
    }
    delete fresh;
    return *seen;
}

CoSharedCancelPipe::CoSharedCancelPipe(unsigned generation) : generation_(generation) {
    int ends[2] = {-1, -1};
    const bool made = ::pipe2(ends, O_CLOEXEC) == 0;
    if (!CO_ASSERT(made)) return;
    out_ = ends[0];
    in_ = ends[1];
    const bool prepared = prepareEnd(out_) && prepareEnd(in_);
    static_cast<void>(CO_ASSERT(prepared));
}

CoSharedCancelPipe::~CoSharedCancelPipe() {
    if (in_ >= 0) ::close(in_);
    if (out_ >= 0) ::close(out_);
}

bool CoSharedCancelPipe::prepareEnd(int fd) {
    const int fdFlags = ::fcntl(fd, F_GETFD);
    if (fdFlags < 0) {
        CO_MSG_ERROR("Could not get fd flag on pipe file descriptor %d: %s", fd, coErrorText(errno).c_str());
        return false;
    }
    if (::fcntl(fd, F_SETFD, fdFlags | FD_CLOEXEC) < 0) {
        CO_MSG_ERROR("Could not set 'close on exec' flag on pipe file descriptor %d: %s", fd,
                     coErrorText(errno).c_str());
        return false;
    }
    const int statusFlags = ::fcntl(fd, F_GETFL);
    if (statusFlags < 0) {
        CO_MSG_ERROR("Could not get fl flag on pipe file descriptor %d: %s", fd, coErrorText(errno).c_str());
        return false;
    }
    if (::fcntl(fd, F_SETFL, statusFlags | O_NONBLOCK) < 0) {
        CO_MSG_ERROR("Could not set non-blocking flag on pipe file descriptor %d: %s", fd,
                     coErrorText(errno).c_str());
        return false;
    }
    return true;
}

bool CoSharedCancelPipe::put() const {
    ssize_t written;
    do {
        written = ::write(in_, &WAKE_BYTE, 1);
    } while (written < 0 && errno == EINTR);
    return written == 1;
}

void CoSharedCancelPipe::take() const {
    char byte;
    while (::read(out_, &byte, 1) < 0 && errno == EINTR) {
    }
}

void CoSharedCancelPipe::flush() const {
    char bytes[64];
    for (;;) {
        const ssize_t taken = ::read(out_, bytes, sizeof bytes);
        if (taken == 0 || (taken < 0 && errno != EINTR)) return;
    }
}

}  // namespace Vantrel
