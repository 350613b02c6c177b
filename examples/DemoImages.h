#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "FrameLayout.h"

/// The pictures of the demo: what goes in, and the sheet to look at. 16-bit rgb in memory.

/// Size and pixels of the demo's frames: 1920x1080, 16-bit rgb.
FrameLayout demoLayout();

/// One frame of a moving picture: a colour field, a grid and a ball that goes round, with a bar that grows
/// from frame to frame.
std::vector<std::uint16_t> paintFrame(const FrameLayout& layout, int index, int count);

/// A picture that holds all frames small, in reading order.
class ContactSheet {
  public:
    ContactSheet(const FrameLayout& frame, int frames);

    /// Scales a frame's pixels down into its place.
    void add(int index, const std::uint16_t* frame);
    /// Saves it as PNG. Throws ToolError.
    void save(const std::string& path) const;

  private:
    const FrameLayout frame_;
    FrameLayout sheet_;
    std::vector<std::uint16_t> pixels_;
};
