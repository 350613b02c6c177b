#include "CoSharedCancelPipe.h"

#include "CoAssert.h"
#include "CoPerProcess.h"
#include "QdDsoMgr.h"

namespace Vantrel {

CoSharedCancelPipe& CoSharedCancelPipe::get() {
    return CoPerProcess<CoSharedCancelPipe>::get();
}

CoSharedCancelPipe::CoSharedCancelPipe(CoSharedCancelPipe* parents) {
    QdDsoMgr::keepLoaded();
    if (parents) parents->wakeUp_.close();
    const bool made = isValid();
    static_cast<void>(CO_ASSERT(made));
}

bool CoSharedCancelPipe::open() {
    if (!isValid()) wakeUp_.open(CoWakeUp::Kind::Count);
    return isValid();
}

void CoSharedCancelPipe::flush() const {
    while (wakeUp_.drain()) {
    }
}

}  // namespace Vantrel
