#include "CoThreadMgr.h"

#include <algorithm>

#include "CoThread.h"

namespace Vantrel {

CoThreadMgr& CoThreadMgr::getInstance() {
    // Never destroyed: threads may end after the static objects of the process are gone.
    static auto* const manager = new CoThreadMgr;
    return *manager;
}

void CoThreadMgr::stopAll() {
    const std::lock_guard<std::mutex> lock(mutex_);
    for (const CoThread* thread : threads_) thread->requestStop();
}

void CoThreadMgr::add(CoThread* thread) {
    const std::lock_guard<std::mutex> lock(mutex_);
    threads_.push_back(thread);
}

void CoThreadMgr::remove(CoThread* thread) {
    const std::lock_guard<std::mutex> lock(mutex_);
    threads_.erase(std::remove(threads_.begin(), threads_.end(), thread), threads_.end());
}

}  // namespace Vantrel
