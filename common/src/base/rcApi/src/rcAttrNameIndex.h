#pragma once

#include <cstddef>
#include <functional>
#include <string_view>
#include <vector>

namespace Vantrel {

/// Where the live entries of one attribute stream start, by name: spares an adder the search for an earlier
/// entry of the same name. It keeps positions only, 8 bytes a slot; the names stay in the stream's text,
/// which every operation is given. Inactive (and without memory) until `start`. Not thread-safe; copies are
/// independent.
class rcAttrNameIndex {
  public:
    bool isActive() const { return !slots_.empty(); }

    /// Makes the index active, without entries.
    void start() { grow(); }
    void clear() {
        slots_.clear();
        used_ = live_ = 0;
    }

    /// Notes the entry that starts at `position` of `text`. The name must not be in the index.
    void insert(std::string_view name, std::size_t position) {
        if ((used_ + 1) * 2 > slots_.size()) grow();
        place({static_cast<unsigned>(position), hashOf(name)});
        ++used_;
        ++live_;
    }

    /// True when the name is in the index; `position` is then where its entry starts.
    bool find(std::string_view text, std::string_view name, std::size_t& position) const {
        const std::size_t slot = locate(text, name);
        if (slot == slots_.size()) return false;
        position = slots_[slot].position;
        return true;
    }

    /// The same, and takes the name out.
    bool take(std::string_view text, std::string_view name, std::size_t& position) {
        const std::size_t slot = locate(text, name);
        if (slot == slots_.size()) return false;
        position = slots_[slot].position;
        slots_[slot].position = TAKEN;
        --live_;
        return true;
    }

  private:
    struct Slot {
        unsigned position;
        unsigned hash;
    };

    static constexpr unsigned FREE = ~0U;
    static constexpr unsigned TAKEN = FREE - 1;  ///< a search goes on past it
    static constexpr std::size_t FIRST_SLOTS = 64;

    static unsigned hashOf(std::string_view name) {
        return static_cast<unsigned>(std::hash<std::string_view>()(name));
    }

    static bool startsWithName(std::string_view text, std::size_t position, std::string_view name) {
        return position < text.size() && text.size() - position > name.size() &&
               text.compare(position, name.size(), name) == 0 && text[position + name.size()] == ' ';
    }

    /// Slot of the name, or the number of slots.
    std::size_t locate(std::string_view text, std::string_view name) const {
        if (slots_.empty()) return 0;
        const unsigned hash = hashOf(name);
        const std::size_t mask = slots_.size() - 1;
        for (std::size_t slot = hash & mask; slots_[slot].position != FREE; slot = (slot + 1) & mask) {
            const Slot& candidate = slots_[slot];
            if (candidate.hash == hash && candidate.position != TAKEN &&
                startsWithName(text, candidate.position, name)) {
                return slot;
            }
        }
        return slots_.size();
    }

    void place(Slot entry) {
        const std::size_t mask = slots_.size() - 1;
        std::size_t slot = entry.hash & mask;
        while (slots_[slot].position != FREE) slot = (slot + 1) & mask;
        slots_[slot] = entry;
    }

    // Also drops the slots of names taken out, so that a name rewritten for ever needs no more memory.
    void grow() {
        std::size_t size = FIRST_SLOTS;
        while (size < (live_ + 1) * 4) size *= 2;
        std::vector<Slot> earlier(size, Slot{FREE, 0});
        earlier.swap(slots_);
        for (const Slot& entry : earlier) {
            if (entry.position < TAKEN) place(entry);
        }
        used_ = live_;
    }

    std::vector<Slot> slots_;  ///< a power of two of them, at most half in use
    std::size_t used_ = 0;     ///< slots that are not free
    std::size_t live_ = 0;     ///< slots that hold an entry
};

}  // namespace Vantrel
