#pragma once

#include <unistd.h>

#include <utility>

namespace Vantrel {

/// Owns the descriptor of a file that is used within one function or object.
class CoFileDescriptor {
  public:
    explicit CoFileDescriptor(int id = -1) : id_(id) {}
    CoFileDescriptor(const CoFileDescriptor&) = delete;
    CoFileDescriptor& operator=(const CoFileDescriptor&) = delete;
    CoFileDescriptor& operator=(CoFileDescriptor&& other) noexcept {
        std::swap(id_, other.id_);
        return *this;
    }
    ~CoFileDescriptor() {
        if (isValid()) ::close(id_);
    }

    bool isValid() const { return id_ >= 0; }
    int get() const { return id_; }

  private:
    int id_;
};

}  // namespace Vantrel
