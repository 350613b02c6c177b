#include "CoThreadMgr.h"

#include <algorithm>

#include "CoPerProcess.h"
#include "CoThread.h"

namespace Vantrel {

CoThreadMgr& CoThreadMgr::getInstance() {
    return CoPerProcess<CoThreadMgr>::get();
}

void CoThreadMgr::stopAll() {
    const CoLock lock(mutex_);
    for (const CoThread* thread : threads_) thread->requestStop();
}

void CoThreadMgr::add(CoThread* thread) {
    const CoLock lock(mutex_);
    threads_.push_back(thread);
}

void CoThreadMgr::remove(CoThread* thread) {
    const CoLock lock(mutex_);
    threads_.erase(std::remove(threads_.begin(), threads_.end(), thread), threads_.end());
}

}  // namespace Vantrel
