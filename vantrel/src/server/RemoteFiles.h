#pragma once

#include <memory>
#include <string>

#include "StorageFile.h"

namespace vantreld {

/// The files that clients push and pull: everything below one folder of the server's root. Clients name them
/// relative to it; absolute names and names that lead out of it are refused. Thread-safe. Failures throw
/// CoException.
class RemoteFiles {
  public:
    /// Both folders are on one file system; what earlier runs left unfinished in `scratch` is removed.
    RemoteFiles(std::string folder, std::string scratch);

    ReadableFile open(const std::string& name) const;

    /// Begins a file that a client uploads. It is not visible before publish().
    std::unique_ptr<NewFile> begin(const std::string& name) const;
    /// Gives a complete upload its name, replacing an earlier file. On disk when it returns.
    void publish(NewFile& upload, const std::string& name) const;

    /// The file that a frame links to: a name as above, or an absolute path that lies in the folder.
    ReadableFile openLinked(const std::string& path) const;

  private:
    std::string checkedPath(const std::string& name) const;

    const std::string folder_;
    const std::string scratch_;
};

}  // namespace vantreld
