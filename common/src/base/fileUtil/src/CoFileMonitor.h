#pragma once

#include <sys/types.h>

#include <cstdint>
#include <mutex>
#include <string>

#include "CoFd.h"

namespace Vantrel {

/// Tells whether files have changed, through inotify descriptors that are read, without blocking, when
/// someone asks: there is no thread. Thread-safe.
class CoFileMonitor {
  public:
    class Watch;

    /// Not counted: one `stop` undoes any number of `start`. While the monitor does not run, no file counts
    /// as changed and no descriptor is open.
    static void start();
    static void stop();
    static bool isRunning();
};

/// What tells a file's contents from others without reading them.
struct CoFileSignature {
    bool exists = false;
    dev_t device = 0;
    ino_t inode = 0;
    off_t size = 0;
    std::int64_t modifiedNs = 0;
    std::int64_t statusChangedNs = 0;

    static CoFileSignature of(const std::string& path);
    bool operator==(const CoFileSignature& other) const;
    bool operator!=(const CoFileSignature& other) const { return !(*this == other); }
};

/// One watched file, whether it, or its directory, exists or not. Thread-safe.
class CoFileMonitor::Watch {
  public:
    explicit Watch(std::string path);
    Watch(const Watch&) = delete;
    Watch& operator=(const Watch&) = delete;
    ~Watch();

    /// Takes the file as it is now for known: called before it is read, so that no change is missed.
    void accept();
    /// Whether the file was written and closed, replaced, created or removed since `accept` or the last true
    /// answer. Costs one system call when nothing happened (a few while its directory does not exist).
    bool changed();

  private:
    friend class CoFileMonitor;

    void close();

    // Called with the mutex held.
    bool openNow();
    void closeNow();
    void watchFile();
    bool readEvents();
    bool concernsFile(int watch, unsigned mask, const char* name);

    const std::string path_;
    const std::string directory_;
    const std::string name_;

    std::mutex mutex_;
    // Guarded by mutex_.
    CoFileSignature known_;
    CoFd inotify_;
    int directoryWatch_ = -1;
    int fileWatch_ = -1;  // follows a symbolic link, which the directory's does not
    bool directoryGone_ = false;
    pid_t owner_ = 0;  // a forked child must not take its parent's events
};

}  // namespace Vantrel
