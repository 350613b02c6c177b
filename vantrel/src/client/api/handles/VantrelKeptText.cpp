#include "VantrelKeptText.h"

#include <array>
#include <utility>

namespace {

// No destructor of its own, so that it can still be read when the thread's other objects are gone: an
// application's static handle may ask for a text that late.
thread_local bool gone = false;

struct Ring {
    Ring() = default;
    Ring(const Ring&) = delete;
    Ring& operator=(const Ring&) = delete;
    ~Ring() { gone = true; }

    std::array<std::string, VantrelKeptText::KEPT> texts;
    unsigned next = 0;
};

}  // namespace

const char* VantrelKeptText::keep(std::string text) {
    if (gone) return "";
    thread_local Ring ring;
    std::string& slot = ring.texts[ring.next++ % KEPT];
    slot = std::move(text);
    return slot.c_str();
}
