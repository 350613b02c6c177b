#pragma once

#include <new>
#include <utility>

namespace Vantrel {

/// Room for a static object whose destructor never runs, since threads and handles may use it while the
/// process exits:
///     static CoNeverDestroyed<Registry> registry;
///     return *registry;
template <typename T>
class CoNeverDestroyed {
  public:
    template <typename... Arguments>
    explicit CoNeverDestroyed(Arguments&&... arguments) {
        ::new (static_cast<void*>(room_)) T(std::forward<Arguments>(arguments)...);
    }
    CoNeverDestroyed(const CoNeverDestroyed&) = delete;
    CoNeverDestroyed& operator=(const CoNeverDestroyed&) = delete;

    T& operator*() { return *std::launder(reinterpret_cast<T*>(room_)); }
    T* operator->() { return &**this; }

  private:
    alignas(T) unsigned char room_[sizeof(T)];
};

}  // namespace Vantrel
