#pragma once

#include <sys/types.h>

#include <string>

#include "CoFd.h"

namespace vantreld {

/// A listening socket file for the clients on this host, any user's. It is an extra: where it cannot be had
/// the reason is logged, and clients use the port. Not thread-safe.
class LocalSocket {
  public:
    /// Listens on `path` when its directory exists and may be written to. The file that a killed server left
    /// there is replaced; one that another process listens on, or that is no socket, is left alone.
    explicit LocalSocket(const std::string& path);
    LocalSocket(const LocalSocket&) = delete;
    LocalSocket& operator=(const LocalSocket&) = delete;
    /// Removes the file.
    ~LocalSocket();

    /// The descriptor to wait on; -1 when it does not listen.
    int fd() const { return socket_.get(); }
    /// One waiting connection (non-blocking, close-on-exec); not open, with errno set, when there is none.
    Vantrel::CoFd accept();

  private:
    bool isFree() const;
    bool listen();
    bool publish(const std::string& name);

    const std::string path_;
    Vantrel::CoFd socket_;
    // Of the file, once it stands at its path: another process's there is not ours to remove.
    dev_t device_ = 0;
    ino_t inode_ = 0;
};

}  // namespace vantreld
