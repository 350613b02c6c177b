#include "CoStopRequest.h"

#include "CoProcess.h"
#include "CoSharedCancelPipe.h"

namespace Vantrel {

void CoStopRequest::begin() {
    if (depth_++ > 0) return;
    generation_.store(CoProcess::forkGeneration(), std::memory_order_relaxed);
    state_.store(WAITING);
}

void CoStopRequest::end() {
    if (--depth_ == 0) replaceState(IDLE);
}

bool CoStopRequest::request() {
    int expected = WAITING;
    if (generation_.load(std::memory_order_relaxed) != CoProcess::forkGeneration()) return true;
    if (!state_.compare_exchange_strong(expected, REQUESTED)) return true;

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

void CoStopRequest::replaceState(State state) {
    if (state_.exchange(state) == HANDED_OVER) CoSharedCancelPipe::get().take();
}

}  // namespace Vantrel
