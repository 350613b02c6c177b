#pragma once

#include <sys/resource.h>

#include <csignal>

namespace Vantrel {

/// While it lives, files of this process cannot grow beyond a size: writing fails with EFBIG, as it does with
/// ENOSPC on a full disk.
class FileSizeLimit {
  public:
    explicit FileSizeLimit(rlim_t bytes) : earlierHandler_(::signal(SIGXFSZ, SIG_IGN)) {
        ::getrlimit(RLIMIT_FSIZE, &earlier_);
        const rlimit limit{bytes, earlier_.rlim_max};
        ::setrlimit(RLIMIT_FSIZE, &limit);
    }
    FileSizeLimit(const FileSizeLimit&) = delete;
    FileSizeLimit& operator=(const FileSizeLimit&) = delete;
    ~FileSizeLimit() {
        ::setrlimit(RLIMIT_FSIZE, &earlier_);
        ::signal(SIGXFSZ, earlierHandler_);
    }

  private:
    void (*earlierHandler_)(int);
    rlimit earlier_{};
};

}  // namespace Vantrel
