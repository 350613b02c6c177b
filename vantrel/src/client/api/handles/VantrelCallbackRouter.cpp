#include "VantrelCallbackRouter.h"

#include <string>

#include "CoDeferral.h"

using Vantrel::CoMsg;

VantrelCallbackRouter& VantrelCallbackRouter::instance() {
    static Vantrel::CoNeverDestroyed<VantrelCallbackRouter> router;
    return *router;
}

void VantrelCallbackRouter::post(const CoMsg::Message& message) {
    const VantrelLogCallBack callback = callback_;
    if (!callback) {
        CoMsg::writeToStandardError(message);
        return;
    }
    if (message.level < CoMsg::USER || message.level > CoMsg::DEBUG) return;
    Vantrel::CoDeferral::callOut([callback, level = static_cast<VantrelLogLevel>(message.level),
                                  text = std::string(message.text)] { callback(level, text.c_str()); });
}
