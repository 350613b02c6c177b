#pragma once

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <cstdio>
#include <mutex>
#include <string>
#include <thread>

/// Where and after what time progress shows. The default is what commands use.
struct ProgressStyle {
    std::FILE* stream = stderr;
    bool terminal = false;  ///< set by standardProgress(): nothing shows anywhere else
    std::chrono::milliseconds delay{1000};
    std::chrono::milliseconds interval{200};
};

/// Standard error; shows only when that is a terminal.
ProgressStyle standardProgress();

/// A line on the terminal that shows how far a transfer has come, once it takes longer than a second. It is
/// wiped when the transfer ends. Thread safety: `advance` from any thread.
class Progress {
  public:
    /// `total` steps of `unit`; 0 when the number is not known, then the time passed shows.
    Progress(std::string label, std::size_t total, std::string unit,
             ProgressStyle style = standardProgress());
    ~Progress();
    Progress(const Progress&) = delete;
    Progress& operator=(const Progress&) = delete;

    void advance(std::size_t steps = 1) { done_ += steps; }

  private:
    void run();
    void show(std::chrono::steady_clock::time_point start) const;

    const std::string label_;
    const std::size_t total_;
    const std::string unit_;
    const ProgressStyle style_;
    std::atomic<std::size_t> done_{0};

    std::mutex mutex_;
    std::condition_variable wake_;
    bool ended_ = false;  // guarded by mutex_

    std::thread thread_;
};
