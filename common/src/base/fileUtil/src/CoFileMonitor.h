#pragma once

#include <sys/types.h>

#include <cstdint>
#include <string>

#include "CoFd.h"
#include "CoMutex.h"

namespace Vantrel {

/// Finds out whether files have changed, through inotify descriptors that are read, without blocking, when
/// the question is asked: there is no thread. Thread-safe.
class CoFileMonitor {
  public:
    class Watch;

    /// Not counted: one `stop` undoes any number of `start`. While the monitor does not run, no file counts
    /// as changed and no descriptor is open.
    static void start();
    static void stop();
    static bool isRunning();
};

/// What distinguishes a file's contents from others without reading them.
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

    bool openNow() CO_REQUIRES(mutex_);
    void closeNow() CO_REQUIRES(mutex_);
    void watchFile() CO_REQUIRES(mutex_);
    bool readEvents() CO_REQUIRES(mutex_);
    bool concernsFile(int watch, unsigned mask, const char* name) CO_REQUIRES(mutex_);

    const std::string path_;
    const std::string directory_;
    const std::string name_;

    CoMutex mutex_;
    CoFileSignature known_ CO_GUARDED_BY(mutex_);
    CoFd inotify_ CO_GUARDED_BY(mutex_);
    int directoryWatch_ CO_GUARDED_BY(mutex_) = -1;
    /// Follows a symbolic link, which the directory's does not.
    int fileWatch_ CO_GUARDED_BY(mutex_) = -1;
    bool directoryGone_ CO_GUARDED_BY(mutex_) = false;
    /// A forked child must not take its parent's events.
    pid_t owner_ CO_GUARDED_BY(mutex_) = 0;
};

}  // namespace Vantrel
