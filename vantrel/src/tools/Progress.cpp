#include "Progress.h"

#include <unistd.h>

#include <utility>

namespace {

// Back to the start of the line, and erase it.
constexpr const char* WIPE = "\r\x1B[K";

}  // namespace

ProgressStyle standardProgress() {
    ProgressStyle style;
    style.terminal = isatty(STDERR_FILENO) == 1;
    return style;
}

Progress::Progress(std::string label, std::size_t total, std::string unit, ProgressStyle style)
    : label_(std::move(label)), total_(total), unit_(std::move(unit)), style_(style) {
    if (style_.terminal) thread_ = std::thread([this] { run(); });
}

Progress::~Progress() {
    if (!thread_.joinable()) return;
    {
        const std::lock_guard<std::mutex> lock(mutex_);
        ended_ = true;
    }
    wake_.notify_all();
    thread_.join();
}

void Progress::run() {
    const auto start = std::chrono::steady_clock::now();
    std::unique_lock<std::mutex> lock(mutex_);
    const auto ended = [this] { return ended_; };
    if (wake_.wait_for(lock, style_.delay, ended)) return;
    do {
        show(start);
    } while (!wake_.wait_for(lock, style_.interval, ended));
    std::fputs(WIPE, style_.stream);
    std::fflush(style_.stream);
}

void Progress::show(std::chrono::steady_clock::time_point start) const {
    const auto seconds =
        std::chrono::duration_cast<std::chrono::seconds>(std::chrono::steady_clock::now() - start).count();
    const std::size_t done = done_;
    if (total_ > 0)
        std::fprintf(style_.stream, "%s%s: %zu of %zu %s (%zu %%), %llds", WIPE, label_.c_str(), done, total_,
                     unit_.c_str(), done * 100 / total_, static_cast<long long>(seconds));
    else
        std::fprintf(style_.stream, "%s%s: %llds", WIPE, label_.c_str(), static_cast<long long>(seconds));
    std::fflush(style_.stream);
}
