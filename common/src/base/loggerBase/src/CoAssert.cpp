#include "CoAssert.h"

#include "CoMsg.h"

namespace Vantrel {

bool coAssertFailed(const char* condition, const char* file, int line) {
    if (CoMsg::isEnabled(CoMsg::ERROR)) {
        CoMsg::post(CoMsg::ERROR, file, line, "Assertion \"%s\" failed in %s:%d", condition,
                    coSourceName(file).c_str(), line);
    }
    return false;
}

}  // namespace Vantrel
