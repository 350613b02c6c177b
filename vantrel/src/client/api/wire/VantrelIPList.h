#pragma once

#include <vantrel/VantrelTypes.h>

#include <string>
#include <vector>

#include "rcAttrStream.h"

/// The addresses of one service of a daemon, in order of preference. They lie in slots, of which the first
/// empty one ends the list; what stands behind it counts again once the slot is filled. A plain value.
class VantrelIPList {
  public:
    using Iterator = std::vector<VantrelStr>::const_iterator;

    static constexpr unsigned MAX_SLOTS = 64;

    /// False, and nothing is stored, for an index of MAX_SLOTS or more.
    [[nodiscard]] bool set(unsigned index, const char* ip);
    /// Text of a slot; empty also for an index of MAX_SLOTS or more.
    const char* get(unsigned index) const { return index < slots_.size() ? slots_[index].c_str() : ""; }
    void clear() { slots_.clear(); }
    /// Puts `ip` first; it then stands there only once. Returns the last address of a full list, which is
    /// lost, otherwise an empty text.
    [[nodiscard]] VantrelStr prepend(const char* ip);

    /// Both look at every slot, behind the end of the list too.
    bool hasLoopback() const;
    void removeLoopback();

    /// The list up to its end.
    Iterator begin() const { return slots_.begin(); }
    Iterator end() const;
    unsigned size() const { return static_cast<unsigned>(end() - begin()); }

    /// As entries "<key>0", "<key>1" and so on.
    void writeTo(Vantrel::rcAttrStream& stream, const char* key) const;
    /// Replaces the content by such entries, up to the first that is missing. False when there is none.
    bool readFrom(const Vantrel::rcAttrStream& stream, const char* key);

    /// Every slot is equal.
    bool operator==(const VantrelIPList& other) const { return slots_ == other.slots_; }

  private:
    void dropEmptyEnd();

    std::vector<VantrelStr> slots_;  ///< the last one is never empty
};
