#pragma once

#include <cstddef>
#include <memory>

/// Memory for one frame, not cleared: a frame is written over it anyway. Throws ToolError when `size` is
/// above MAX_FRAME_BYTES or the system has no such memory.
class FrameBuffer {
  public:
    explicit FrameBuffer(std::size_t size);

    char* data() const { return data_.get(); }
    std::size_t size() const { return size_; }

  private:
    std::size_t size_;
    std::unique_ptr<char[]> data_;
};
