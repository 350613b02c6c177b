#include <vantrel/VantrelClientAPI.h>

#include "CoAssert.h"

// Both accessors stand here, where their assertions have always been reported from.

VantrelServerImp* VantrelServerHandle::imp() const {
    CO_ASSERT_NAMED(imp_ != nullptr, "imp_ != 0");
    return imp_;
}

VantrelNodeImp* VantrelNodeHandle::imp() const {
    CO_ASSERT_NAMED(imp_ != nullptr, "imp_ != 0");
    return imp_;
}
