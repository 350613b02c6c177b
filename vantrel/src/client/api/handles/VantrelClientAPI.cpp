#include <vantrel/VantrelClientAPI.h>

#include "CoAssert.h"

// A failed assertion is logged with its source file: that of an empty handle is documented as this one.

VantrelServerImp* VantrelServerHandle::imp() const {
    CO_ASSERT_NAMED(imp_ != nullptr, "imp_ != 0");
    return imp_;
}

VantrelNodeImp* VantrelNodeHandle::imp() const {
    CO_ASSERT_NAMED(imp_ != nullptr, "imp_ != 0");
    return imp_;
}
