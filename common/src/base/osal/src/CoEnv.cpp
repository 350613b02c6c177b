#include "CoEnv.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>

namespace Vantrel {

void CoEnvInt::read() const {
    std::call_once(once_, [this] {
        value_ = default_;
        const char* text = std::getenv(name_);
        if (!text || !*text) return;
        char* end = nullptr;
        const long parsed = std::strtol(text, &end, 10);  // out of range: LONG_MIN or LONG_MAX, clamped below
        if (end == text) return;
        value_ = parsed < lowest_ ? lowest_ : parsed > highest_ ? highest_ : parsed;
    });
    known_.store(true, std::memory_order_release);
}

void CoEnvFlag::read() const {
    std::call_once(once_, [this] {
        const char* text = std::getenv(name_);
        if (!text) return;
        value_ =
            rule_ == Rule::SetMeansOn || (std::strcmp(text, "false") != 0 &&
                                          std::strcmp(text, "FALSE") != 0 && std::strcmp(text, "0") != 0);
    });
    known_.store(true, std::memory_order_release);
}

const char* CoEnvText::get() const {
    std::call_once(once_, [this] {
        const char* text = std::getenv(name_);
        // A later setenv may move the environment's own bytes: keep a copy, for good.
        const char* copy = text && *text ? ::strdup(text) : nullptr;
        value_ = copy ? copy : default_;
    });
    return value_;
}

}  // namespace Vantrel
