#pragma once

#include <cerrno>
#include <cstddef>
#include <functional>
#include <string>
#include <string_view>

#include "CoAtomicFile.h"
#include "CoFd.h"

namespace vantreld {

/// A regular file open for reading.
struct ReadableFile {
    Vantrel::CoFd fd;
    std::size_t size = 0;
};

/// A file being made, under a name that nothing else has. Until keep() it goes away with this object, and
/// no other process can have seen it. Failures throw CoException with the path and the system's reason.
class NewFile {
  public:
    explicit NewFile(const std::string& directory);
    /// Whether files made here have names of that form: others in a directory were not made here.
    static bool isName(std::string_view name);

    const std::string& name() const { return name_; }
    const std::string& path() const { return file_.name(); }
    std::size_t size() const { return size_; }

    void write(const char* data, std::size_t length);
    /// Its bytes are on disk when this returns; its name only after syncDirectory.
    void sync();
    /// Gives it the path of its final place on the same file system, replacing what is there.
    void moveTo(const std::string& path);
    /// It stays where it is; after discard() it goes away again.
    void keep() { file_.keep(); }
    void discard() { file_.discard(); }

  private:
    void check(const char* attempted, int error) const;

    std::string name_;
    Vantrel::CoAtomicFile file_;
    std::size_t size_ = 0;
};

/// Opens a regular file; throws CoException when it is missing, unreadable or something else.
ReadableFile openForReading(const std::string& path);

/// Names made, moved or removed in the directory are on disk when this returns.
void syncDirectory(const std::string& path);

/// Makes the directory, and those above it that are missing, durably.
void makeDirectories(const std::string& path);

/// Removes the directory's entries, folders excepted, for which `unwanted` is true.
void sweepDirectory(const std::string& path, const std::function<bool(const std::string& name)>& unwanted);

[[noreturn]] void failWithErrno(const char* attempted, const std::string& path, int error = errno);

}  // namespace vantreld
