#include "CoDeferral.h"

#include <utility>
#include <vector>

namespace Vantrel {

namespace {

struct ThreadState {
    unsigned depth = 0;
    std::vector<std::function<void()>> kept;
};

ThreadState& state() {
    thread_local ThreadState current;
    return current;
}

void run(const std::function<void()>& call) {
    try {
        call();
    } catch (...) {  // see callOut
    }
}

}  // namespace

CoDeferral::CoDeferral() {
    ++state().depth;
}

CoDeferral::~CoDeferral() {
    ThreadState& current = state();
    if (--current.depth > 0 || current.kept.empty()) return;
    // A call may use the library, which may keep further calls and run them itself.
    const auto calls = std::exchange(current.kept, {});
    for (const auto& call : calls) run(call);
}

void CoDeferral::callOut(std::function<void()> call) {
    ThreadState& current = state();
    if (current.depth > 0) {
        current.kept.push_back(std::move(call));
    } else {
        run(call);
    }
}

}  // namespace Vantrel
