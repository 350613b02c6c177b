#include "CoFileMonitor.h"

#include <sys/inotify.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <climits>
#include <cstring>
#include <utility>
#include <vector>

#include "CoFilePath.h"
#include "CoPerProcess.h"

namespace Vantrel {

namespace {

// A write counts once its writer closes the file: no reader should see half of it.
constexpr unsigned FILE_EVENTS = IN_CLOSE_WRITE | IN_ATTRIB | IN_DELETE_SELF | IN_MOVE_SELF;
constexpr unsigned DIRECTORY_GONE = IN_DELETE_SELF | IN_MOVE_SELF | IN_UNMOUNT | IN_IGNORED;
constexpr unsigned DIRECTORY_EVENTS = IN_CLOSE_WRITE | IN_ATTRIB | IN_CREATE | IN_DELETE | IN_MOVED_FROM |
                                      IN_MOVED_TO | IN_DELETE_SELF | IN_MOVE_SELF | IN_ONLYDIR;
constexpr std::size_t EVENT_BUFFER_SIZE = 16 * (sizeof(inotify_event) + NAME_MAX + 1);

std::atomic<bool> running{false};

/// Every watch of this process, so that `stop` leaves no descriptor open.
struct Registry {
    void add(CoFileMonitor::Watch* watch) CO_EXCLUDES(mutex) {
        const CoLock lock(mutex);
        watches.push_back(watch);
    }
    void remove(const CoFileMonitor::Watch* watch) CO_EXCLUDES(mutex) {
        const CoLock lock(mutex);
        const auto found = std::find(watches.begin(), watches.end(), watch);
        if (found != watches.end()) watches.erase(found);  // a forked child's registry lacks its parent's
    }

    CoMutex mutex;  ///< taken before a watch's own
    std::vector<CoFileMonitor::Watch*> watches CO_GUARDED_BY(mutex);
};

Registry& registry() {
    return CoPerProcess<Registry>::get();
}

std::int64_t nanoseconds(const timespec& time) {
    constexpr std::int64_t NS_PER_SECOND = 1000000000;
    return static_cast<std::int64_t>(time.tv_sec) * NS_PER_SECOND + time.tv_nsec;
}

std::string nameOf(const std::string& path) {
    return path.substr(path.rfind('/') + 1);  // npos + 1 is 0
}

}  // namespace

CoFileSignature CoFileSignature::of(const std::string& path) {
    CoFileSignature signature;
    struct stat status {};
    if (::stat(path.c_str(), &status) != 0) return signature;
    signature.exists = true;
    signature.device = status.st_dev;
    signature.inode = status.st_ino;
    signature.size = status.st_size;
    signature.modifiedNs = nanoseconds(status.st_mtim);
    signature.statusChangedNs = nanoseconds(status.st_ctim);
    return signature;
}

bool CoFileSignature::operator==(const CoFileSignature& other) const {
    return exists == other.exists && device == other.device && inode == other.inode && size == other.size &&
           modifiedNs == other.modifiedNs && statusChangedNs == other.statusChangedNs;
}

void CoFileMonitor::start() {
    running = true;
}

void CoFileMonitor::stop() {
    running = false;
    Registry& all = registry();
    const CoLock lock(all.mutex);
    for (Watch* watch : all.watches) watch->close();
}

bool CoFileMonitor::isRunning() {
    return running;
}

CoFileMonitor::Watch::Watch(std::string path)
    : path_(std::move(path)), directory_(CoFilePath::directoryOf(path_)), name_(nameOf(path_)) {
    registry().add(this);
}

CoFileMonitor::Watch::~Watch() {
    registry().remove(this);
}

void CoFileMonitor::Watch::accept() {
    const CoLock lock(mutex_);
    if (isRunning() && openNow()) readEvents();
    if (inotify_.isOpen()) watchFile();
    known_ = CoFileSignature::of(path_);
}

bool CoFileMonitor::Watch::changed() {
    const CoLock lock(mutex_);
    if (!isRunning()) return false;
    const bool wasOpen = inotify_.isOpen() && owner_ == ::getpid();
    if (openNow() && wasOpen) {
        // Events decide and not the signature: time stamps are too coarse for two writes in a row.
        if (!readEvents()) return false;
        if (inotify_.isOpen()) watchFile();
        known_ = CoFileSignature::of(path_);
        return true;
    }
    const CoFileSignature now = CoFileSignature::of(path_);
    if (now == known_) return false;
    known_ = now;
    return true;
}

void CoFileMonitor::Watch::close() {
    const CoLock lock(mutex_);
    closeNow();
}

bool CoFileMonitor::Watch::openNow() {
    if (inotify_.isOpen() && owner_ == ::getpid()) return true;
    closeNow();
    struct stat status {};
    if (::stat(directory_.c_str(), &status) != 0) return false;
    inotify_ = CoFd(::inotify_init1(IN_NONBLOCK | IN_CLOEXEC));
    if (!inotify_.isOpen()) return false;
    directoryWatch_ = ::inotify_add_watch(inotify_.get(), directory_.c_str(), DIRECTORY_EVENTS);
    if (directoryWatch_ < 0) {
        closeNow();
        return false;
    }
    owner_ = ::getpid();
    watchFile();
    return true;
}

void CoFileMonitor::Watch::closeNow() {
    inotify_ = CoFd();
    directoryWatch_ = fileWatch_ = -1;
    directoryGone_ = false;
}

/// Lets the file's own watch follow to the file that has the name now.
void CoFileMonitor::Watch::watchFile() {
    const int watch = ::inotify_add_watch(inotify_.get(), path_.c_str(), FILE_EVENTS);
    if (fileWatch_ >= 0 && watch != fileWatch_) ::inotify_rm_watch(inotify_.get(), fileWatch_);
    fileWatch_ = watch;
}

/// Takes what events there are; whether one of them concerns the file.
bool CoFileMonitor::Watch::readEvents() {
    alignas(inotify_event) char buffer[EVENT_BUFFER_SIZE];
    bool concerned = false;
    for (;;) {
        const ssize_t size = ::read(inotify_.get(), buffer, sizeof buffer);
        if (size <= 0) break;
        for (ssize_t offset = 0; offset < size;) {
            inotify_event event{};
            std::memcpy(&event, buffer + offset, sizeof event);
            const char* const name = event.len > 0 ? buffer + offset + sizeof event : "";
            if (concernsFile(event.wd, event.mask, name)) concerned = true;
            offset += static_cast<ssize_t>(sizeof event + event.len);
        }
    }
    if (directoryGone_) closeNow();
    return concerned;
}

bool CoFileMonitor::Watch::concernsFile(int watch, unsigned mask, const char* name) {
    if ((mask & IN_Q_OVERFLOW) != 0) return true;
    if (watch == fileWatch_) return (mask & IN_IGNORED) == 0;
    if (watch != directoryWatch_) return false;
    if ((mask & DIRECTORY_GONE) != 0) directoryGone_ = true;
    return directoryGone_ || name_ == name;
}

}  // namespace Vantrel
