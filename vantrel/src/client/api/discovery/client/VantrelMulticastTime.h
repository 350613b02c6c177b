#pragma once

#include <chrono>
#include <ctime>
#include <string>

#include "CoMsg.h"
#include "CoTime.h"

/// A point on the library's clock as date and time of day, for messages.
inline std::string vantrelTimeText(Vantrel::CoTime::Microseconds time) {
    const auto wallClock = std::chrono::system_clock::now().time_since_epoch();
    const Vantrel::CoTime::Microseconds at =
        std::chrono::duration_cast<std::chrono::microseconds>(wallClock).count() + time -
        Vantrel::CoTime::getTime();
    const std::time_t seconds = static_cast<std::time_t>(at / Vantrel::CoTime::PER_SECOND);
    std::tm local{};
    ::localtime_r(&seconds, &local);
    char text[32];
    std::strftime(text, sizeof text, "%Y/%m/%d:%H:%M:%S", &local);
    return Vantrel::coFormat("%s.%.3d", text, static_cast<int>(at / 1000 % 1000));
}
