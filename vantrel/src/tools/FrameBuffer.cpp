#include "FrameBuffer.h"

#include <new>
#include <string>

#include "FrameLayout.h"
#include "ToolError.h"

FrameBuffer::FrameBuffer(std::size_t size) : size_(size) {
    if (size <= MAX_FRAME_BYTES) data_.reset(new (std::nothrow) char[size]);
    if (!data_) throw ToolError("no memory for a frame of " + std::to_string(size) + " bytes");
}
