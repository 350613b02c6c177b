#pragma once

#include <unistd.h>

#include <atomic>

namespace Vantrel {

/// The owner of one descriptor, which it closes. The code that opens one makes it close-on-exec.
/// Thread-safe in that a descriptor is closed, or given up, only once. That none is closed while another
/// thread uses it is up to the owner of this object.
class CoFd {
  public:
    static constexpr int NONE = -1;

    CoFd() = default;
    /// Takes over `id`; a negative one stands for none.
    explicit CoFd(int id) : id_(id) {}
    CoFd(CoFd&& other) noexcept : id_(other.release()) {}
    CoFd& operator=(CoFd&& other) noexcept {
        reset(other.release());
        return *this;
    }
    ~CoFd() { reset(); }

    int get() const { return id_.load(std::memory_order_relaxed); }
    bool isOpen() const { return get() >= 0; }

    /// Gives the descriptor up without closing it.
    [[nodiscard]] int release() { return id_.exchange(NONE, std::memory_order_relaxed); }
    /// Takes over `id` and closes what it held before.
    void reset(int id = NONE) {
        const int earlier = id_.exchange(id, std::memory_order_relaxed);
        if (earlier >= 0 && earlier != id) ::close(earlier);
    }

  private:
    std::atomic<int> id_{NONE};
};

}  // namespace Vantrel
