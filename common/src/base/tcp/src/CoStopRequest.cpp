#include "CoStopRequest.h"

#include <poll.h>
#include <sys/socket.h>

#include "CoProcess.h"
#include "CoSharedCancelPipe.h"

namespace Vantrel {

namespace {

constexpr int REQUESTER_PAUSE_MS = 1;

}  // namespace

void CoStopRequest::begin() {
    if (depth_++ > 0) return;
    generation_.store(CoProcess::forkGeneration(), std::memory_order_relaxed);
    state_.store(WAITING);
}

void CoStopRequest::end() {
    if (--depth_ == 0) replaceState(IDLE);
}

bool CoStopRequest::request(const std::function<int()>& socket) {
    if (generation_.load(std::memory_order_relaxed) != CoProcess::forkGeneration()) return true;
    int expected = WAITING;
    while (!state_.compare_exchange_strong(expected, expected == READING ? SHUTTING : REQUESTED)) {
        if (expected != WAITING && expected != READING) return true;
    }
    if (expected == READING) {
        ::shutdown(socket(), SHUT_RD);
        state_.store(NOTICED);
        return true;
    }

    const CoSharedCancelPipe& pipe = CoSharedCancelPipe::get();
    if (!pipe.put()) return false;
    expected = REQUESTED;
    if (!state_.compare_exchange_strong(expected, HANDED_OVER)) pipe.take();
    return true;
}

bool CoStopRequest::requested() {
    const int state = state_.load();
    if (state == REQUESTED || state == HANDED_OVER) replaceState(NOTICED);
    return state == REQUESTED || state == HANDED_OVER || state == NOTICED;
}

bool CoStopRequest::beginRead() {
    int expected = WAITING;
    return state_.compare_exchange_strong(expected, READING);
}

bool CoStopRequest::endRead() {
    int expected = READING;
    if (state_.compare_exchange_strong(expected, WAITING)) return true;
    // The requester is between two statements; a pause lets it run, whatever the threads' priorities are.
    while (state_.load() == SHUTTING) ::poll(nullptr, 0, REQUESTER_PAUSE_MS);
    return false;
}

void CoStopRequest::replaceState(State state) {
    if (state_.exchange(state) == HANDED_OVER) CoSharedCancelPipe::get().take();
}

}  // namespace Vantrel
