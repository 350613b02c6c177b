#pragma once

#include <algorithm>
#include <atomic>
#include <cstddef>
#include <functional>
#include <memory>
#include <utility>
#include <vector>

#include "CoMutex.h"
#include "CoProcess.h"
#include "CoTime.h"

namespace Vantrel {

/// When an entry of a CoCache grows too old. `Idle`: its time runs from its last use, and only while it is
/// not referenced. `Lifetime`: its time runs from its creation, used or not.
enum class CoCacheExpiry { Idle, Lifetime };

/// A time-limited cache of entries that several users share. A Ref pins its entry: it is not dropped, even
/// above the capacity. Unpinned entries go when their time is over and, above the capacity, least recently
/// used first. The cache has no thread: what is due goes when the cache is next used.
///
/// Thread-safe. Entries are created and destroyed without the cache's lock, so their constructors,
/// destructors and factories may use the cache (a factory not for its own key). References may outlive the
/// cache, and a forked child may copy and drop those it inherits, but not use the cache itself. Keys are
/// compared one by one: meant for at most a few hundred entries.
template <typename Key, typename Entry, typename Equal = std::equal_to<Key>>
class CoCache {
    struct Slot;
    struct Table;

  public:
    /// A shared reference to an entry, or to none. One Ref is used by one thread at a time; the entry that
    /// several share is theirs to protect, with `lock` or their own means.
    class Ref {
      public:
        Ref() = default;
        Ref(const Ref& other) : table_(other.table_), slot_(other.slot_) {
            if (slot_) table_->pin(*slot_);
        }
        Ref(Ref&& other) noexcept : table_(std::move(other.table_)), slot_(std::move(other.slot_)) {}
        Ref& operator=(Ref other) noexcept {
            std::swap(table_, other.table_);
            std::swap(slot_, other.slot_);
            return *this;
        }
        ~Ref() { reset(); }

        explicit operator bool() const { return slot_ != nullptr; }
        /// Null for an empty reference; valid while the reference is held.
        Entry* get() const { return slot_ ? slot_->entry.get() : nullptr; }
        /// Not for an empty reference.
        Entry* operator->() const { return slot_->entry.get(); }
        Entry& operator*() const { return *slot_->entry; }

        /// Releases the entry. It may be destroyed here, when the cache has no room or no more use for it.
        void reset() noexcept {
            if (slot_) table_->unpin(std::move(slot_));
            slot_.reset();
            table_.reset();
        }

      private:
        friend class CoCache;
        /// Takes over a pin.
        Ref(std::shared_ptr<Table> table, std::shared_ptr<Slot> slot) noexcept
            : table_(std::move(table)), slot_(std::move(slot)) {}

        std::shared_ptr<Table> table_;
        std::shared_ptr<Slot> slot_;
    };

    /// Makes the entry for a key. Null, or an exception, which passes to the caller, makes none.
    using Factory = std::function<std::unique_ptr<Entry>(const Key&)>;

    /// `timeLimit` in microseconds. With capacity 0 an entry lives as long as it is referenced.
    CoCache(std::size_t capacity, CoTime::Microseconds timeLimit, CoCacheExpiry expiry = CoCacheExpiry::Idle)
        : table_(std::make_shared<Table>(capacity, timeLimit, expiry)) {}
    CoCache(const CoCache&) = delete;
    CoCache& operator=(const CoCache&) = delete;
    ~CoCache() { reset(); }

    /// The entry of `key`, made by `factory` when there is none. While one thread makes it, others that ask
    /// for the same key wait; when that fails, the next of them tries. Empty when the factory gave null.
    Ref get(const Key& key, const Factory& factory);

    /// The entry of `key`, or an empty reference; creates nothing. Finding an entry counts as a use.
    Ref find(const Key& key);

    /// Forgets the entry of `key`; references to it stay valid. True when there was one.
    bool remove(const Key& key) {
        return removeIf([&key](const Key& candidate) { return Equal()(candidate, key); }) > 0;
    }
    /// Forgets every entry whose key satisfies `predicate(const Key&)`, which must not use this cache;
    /// returns how many.
    template <typename Predicate>
    std::size_t removeIf(Predicate predicate);

    /// Calls `visit(Entry&)` for every entry, without the cache's lock.
    template <typename Visit>
    void forEach(Visit visit);

    /// Drops the entries without references.
    void dropUnused();
    /// Forgets all entries; references still held go on working with theirs.
    void reset() {
        removeIf([](const Key&) { return true; });
    }

    /// Entries held, those still to be made and those past their time included.
    std::size_t size() const {
        const CoLock lock(table_->mutex);
        return table_->slots.size();
    }

  private:
    using Slots = std::vector<std::shared_ptr<Slot>>;

    struct Slot {
        Slot(const Key& slotKey, CoTime::Microseconds time) : key(slotKey), since(time) {}

        const Key key;
        CoMutex mutex;
        std::unique_ptr<Entry> entry;  // written once, under `mutex`, before `made` is set
        std::atomic<bool> made{false};

        // Guarded by the table's mutex.
        CoTime::Microseconds since;  // creation, or last use when the idle time counts
        std::size_t pins = 0;
        bool listed = true;  // false once the table has forgotten it
    };

    /// Outlives the cache while references are held.
    struct Table {
        Table(std::size_t theCapacity, CoTime::Microseconds theLimit, CoCacheExpiry theExpiry)
            : capacity(theCapacity), timeLimit(theLimit), expiry(theExpiry) {}

        const std::size_t capacity;
        const CoTime::Microseconds timeLimit;
        const CoCacheExpiry expiry;
        const unsigned generation = CoProcess::forkGeneration();
        mutable CoMutex mutex;
        Slots slots CO_GUARDED_BY(mutex);  ///< least recently used first

        /// In a forked child the lock may be held by a thread that only the parent has: what a reference
        /// names then stays, and its pins are not counted.
        bool isOurs() const { return generation == CoProcess::forkGeneration(); }

        void pin(Slot& slot) {
            if (!isOurs()) return;
            const CoLock lock(mutex);
            ++slot.pins;
        }
        void unpin(std::shared_ptr<Slot> slot) noexcept;

        // What is taken out lands in `dropped`, which the caller destroys after unlocking.
        std::shared_ptr<Slot> use(const Key& key) CO_REQUIRES(mutex);
        void touch(const std::shared_ptr<Slot>& slot) CO_REQUIRES(mutex);
        bool isOver(const Slot& slot, CoTime::Microseconds now) const {
            return now - slot.since >= timeLimit && (slot.pins == 0 || expiry == CoCacheExpiry::Lifetime);
        }
        void dropDue(Slots& dropped) CO_REQUIRES(mutex);
        template <typename Predicate>
        void take(Predicate predicate, Slots& dropped) CO_REQUIRES(mutex);
    };

    std::shared_ptr<Table> table_;
};

template <typename Key, typename Entry, typename Equal>
typename CoCache<Key, Entry, Equal>::Ref CoCache<Key, Entry, Equal>::get(const Key& key,
                                                                         const Factory& factory) {
    Slots dropped;  // destroyed last: after the locks
    CoLock tableLock(table_->mutex);
    table_->dropDue(dropped);
    std::shared_ptr<Slot> slot = table_->use(key);
    if (!slot) {
        slot = std::make_shared<Slot>(key, CoTime::getTime());
        table_->slots.push_back(slot);
        ++slot->pins;
        table_->dropDue(dropped);
    }
    tableLock.unlock();
    Ref ref(table_, slot);
    if (slot->made.load(std::memory_order_acquire)) return ref;

    CoLock entryLock(slot->mutex);
    if (!slot->entry) slot->entry = factory(slot->key);
    const bool made = slot->entry != nullptr;
    slot->made.store(made, std::memory_order_release);
    entryLock.unlock();
    return made ? std::move(ref) : Ref();
}

template <typename Key, typename Entry, typename Equal>
typename CoCache<Key, Entry, Equal>::Ref CoCache<Key, Entry, Equal>::find(const Key& key) {
    Slots dropped;
    const CoLock lock(table_->mutex);
    table_->dropDue(dropped);
    std::shared_ptr<Slot> slot = table_->use(key);
    if (!slot) return Ref();
    if (slot->made.load(std::memory_order_acquire)) return Ref(table_, std::move(slot));
    --slot->pins;  // another thread is still making it, and pins it
    return Ref();
}

template <typename Key, typename Entry, typename Equal>
template <typename Predicate>
std::size_t CoCache<Key, Entry, Equal>::removeIf(Predicate predicate) {
    Slots dropped;
    const CoLock lock(table_->mutex);
    table_->take([&predicate](const Slot& slot) { return predicate(slot.key); }, dropped);
    return dropped.size();
}

template <typename Key, typename Entry, typename Equal>
template <typename Visit>
void CoCache<Key, Entry, Equal>::forEach(Visit visit) {
    std::vector<Ref> held;
    {
        const CoLock lock(table_->mutex);
        for (const std::shared_ptr<Slot>& slot : table_->slots) {
            if (!slot->made.load(std::memory_order_acquire)) continue;
            ++slot->pins;
            held.push_back(Ref(table_, slot));
        }
    }
    for (const Ref& ref : held) visit(*ref);
}

template <typename Key, typename Entry, typename Equal>
void CoCache<Key, Entry, Equal>::dropUnused() {
    Slots dropped;
    const CoLock lock(table_->mutex);
    table_->take([](const Slot& slot) { return slot.pins == 0; }, dropped);
}

template <typename Key, typename Entry, typename Equal>
void CoCache<Key, Entry, Equal>::Table::unpin(std::shared_ptr<Slot> slot) noexcept {
    if (!isOurs()) return;
    Slots dropped;
    const CoLock lock(mutex);
    --slot->pins;
    if (slot->listed) touch(slot);
    // An entry that could not be made leaves nothing behind.
    if (slot->listed && slot->pins == 0 && !slot->made.load(std::memory_order_acquire)) {
        take([&slot](const Slot& candidate) { return &candidate == slot.get(); }, dropped);
    }
    dropDue(dropped);
}

/// The pinned slot of a key, or null.
template <typename Key, typename Entry, typename Equal>
std::shared_ptr<typename CoCache<Key, Entry, Equal>::Slot> CoCache<Key, Entry, Equal>::Table::use(
    const Key& key) {
    const auto found = std::find_if(slots.begin(), slots.end(),
                                    [&key](const auto& slot) { return Equal()(slot->key, key); });
    if (found == slots.end()) return nullptr;
    const std::shared_ptr<Slot> slot = *found;
    ++slot->pins;
    touch(slot);
    return slot;
}

template <typename Key, typename Entry, typename Equal>
void CoCache<Key, Entry, Equal>::Table::touch(const std::shared_ptr<Slot>& slot) {
    if (expiry == CoCacheExpiry::Idle) slot->since = CoTime::getTime();
    const auto found = std::find(slots.begin(), slots.end(), slot);
    std::rotate(found, found + 1, slots.end());
}

template <typename Key, typename Entry, typename Equal>
void CoCache<Key, Entry, Equal>::Table::dropDue(Slots& dropped) {
    const CoTime::Microseconds now = CoTime::getTime();
    take([this, now](const Slot& slot) { return isOver(slot, now); }, dropped);
    if (slots.size() <= capacity) return;
    std::size_t excess = slots.size() - capacity;
    take([&excess](const Slot& slot) { return slot.pins == 0 && excess > 0 && excess-- > 0; }, dropped);
}

template <typename Key, typename Entry, typename Equal>
template <typename Predicate>
void CoCache<Key, Entry, Equal>::Table::take(Predicate predicate, Slots& dropped) {
    std::size_t kept = 0;
    for (std::shared_ptr<Slot>& slot : slots) {
        if (predicate(*slot)) {
            slot->listed = false;
            dropped.push_back(std::move(slot));
        } else {
            std::swap(slots[kept++], slot);
        }
    }
    slots.resize(kept);
}

}  // namespace Vantrel
