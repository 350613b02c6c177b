#include "CoDeferral.h"

#include <utility>

namespace Vantrel {

namespace {

// A bare pointer: objects of the application that end with its thread, or after it, may still use the
// library.
thread_local CoDeferral* outermost = nullptr;

void run(const std::function<void()>& call) {
    try {
        call();
    } catch (...) {  // see callOut
    }
}

}  // namespace

CoDeferral::CoDeferral() {
    if (!outermost) outermost = this;
}

CoDeferral::~CoDeferral() {
    if (outermost != this) return;
    outermost = nullptr;
    // A call may use the library, which may keep further calls and run them itself.
    for (const auto& call : kept_) run(call);
}

void CoDeferral::callOut(std::function<void()> call) {
    if (outermost) {
        outermost->kept_.push_back(std::move(call));
    } else {
        run(call);
    }
}

}  // namespace Vantrel
