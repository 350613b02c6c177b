#include "DemoImages.h"

#include <algorithm>
#include <cmath>

#include "ImageFiles.h"

namespace {

constexpr int COLUMNS = 4;
constexpr int SHRINK = 4;
constexpr int GAP = 8;
constexpr int BAR_HEIGHT = 40;
constexpr double TWO_PI = 6.283185307179586;

std::uint16_t level(double value) {
    return static_cast<std::uint16_t>(std::lround(std::clamp(value, 0.0, 1.0) * 65535.0));
}

struct Ball {
    double x;
    double y;
    double radius;
};

Ball ballOf(const FrameLayout& layout, double turn) {
    return {layout.width * (0.5 + 0.32 * std::cos(turn)), layout.height * (0.5 + 0.32 * std::sin(turn)),
            layout.height * 0.13};
}

void paintPixel(const FrameLayout& layout, const Ball& ball, double progress, int x, int y,
                std::uint16_t* pixel) {
    const double u = static_cast<double>(x) / layout.width;
    const double v = static_cast<double>(y) / layout.height;
    double red = 0.15 + 0.6 * u;
    double green = 0.15 + 0.5 * v;
    double blue = 0.55 - 0.35 * u + 0.2 * progress;
    if (x % 120 < 2 || y % 120 < 2) red = green = blue = 0.75;
    const double distance = std::hypot(x - ball.x, y - ball.y) / ball.radius;
    if (distance < 1.0) {
        const double shade = 1.0 - 0.7 * distance * distance;
        red = 1.0 * shade;
        green = 0.85 * shade;
        blue = 0.2 * shade;
    }
    if (y >= layout.height - BAR_HEIGHT && u <= progress) red = green = blue = 1.0;
    pixel[0] = level(red);
    pixel[1] = level(green);
    pixel[2] = level(blue);
}

}  // namespace

FrameLayout demoLayout() {
    FrameLayout layout;
    layout.width = 1920;
    layout.height = 1080;
    layout.channels = 3;
    layout.type = SampleType::UInt16;
    return layout;
}

std::vector<std::uint16_t> paintFrame(const FrameLayout& layout, int index, int count) {
    std::vector<std::uint16_t> pixels(layout.frameBytes() / sizeof(std::uint16_t));
    const Ball ball = ballOf(layout, TWO_PI * index / count);
    const double progress = static_cast<double>(index + 1) / count;
    std::uint16_t* pixel = pixels.data();
    for (int y = 0; y < layout.height; ++y)
        for (int x = 0; x < layout.width; ++x, pixel += layout.channels)
            paintPixel(layout, ball, progress, x, y, pixel);
    return pixels;
}

ContactSheet::ContactSheet(const FrameLayout& frame, int frames) : frame_(frame), sheet_(frame) {
    const int rows = (frames + COLUMNS - 1) / COLUMNS;
    sheet_.width = GAP + COLUMNS * (frame.width / SHRINK + GAP);
    sheet_.height = GAP + rows * (frame.height / SHRINK + GAP);
    pixels_.assign(sheet_.frameBytes() / sizeof(std::uint16_t), 0);
}

void ContactSheet::add(int index, const std::uint16_t* frame) {
    const int width = frame_.width / SHRINK;
    const int height = frame_.height / SHRINK;
    const int left = GAP + index % COLUMNS * (width + GAP);
    const int top = GAP + index / COLUMNS * (height + GAP);
    const auto at = [](const FrameLayout& layout, int x, int y) {
        return (static_cast<std::size_t>(y) * static_cast<std::size_t>(layout.width) +
                static_cast<std::size_t>(x)) *
               static_cast<std::size_t>(layout.channels);
    };
    for (int y = 0; y < height; ++y) {
        for (int x = 0; x < width; ++x) {
            for (std::size_t c = 0; c < static_cast<std::size_t>(frame_.channels); ++c) {
                unsigned long sum = 0;
                for (int dy = 0; dy < SHRINK; ++dy)
                    for (int dx = 0; dx < SHRINK; ++dx)
                        sum += frame[at(frame_, x * SHRINK + dx, y * SHRINK + dy) + c];
                pixels_[at(sheet_, left + x, top + y) + c] =
                    static_cast<std::uint16_t>(sum / (SHRINK * SHRINK));
            }
        }
    }
}

void ContactSheet::save(const std::string& path) const {
    writeImage(path, ImageFileType::Png, sheet_, "sRGB", pixels_.data());
}
