#include "VantrelKeptText.h"

#include <array>
#include <utility>

const char* VantrelKeptText::keep(std::string text) {
    thread_local std::array<std::string, KEPT> texts;
    thread_local unsigned next = 0;
    std::string& slot = texts[next++ % KEPT];
    slot = std::move(text);
    return slot.c_str();
}
