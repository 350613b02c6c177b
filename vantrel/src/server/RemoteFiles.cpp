#include "RemoteFiles.h"

#include <algorithm>
#include <cerrno>
#include <string_view>
#include <utility>

#include "CoException.h"
#include "CoMsg.h"
#include "CoTokenizer.h"

namespace vantreld {

using Vantrel::coErrorText;
using Vantrel::CoException;
using Vantrel::coFormat;

namespace {

/// Whether the name stays below the folder that it is relative to.
bool staysInside(const std::string& name) {
    if (name.empty() || name.front() == '/' || name.find('\0') != std::string::npos) return false;
    const auto components = Vantrel::coTokens(name, "/");
    return std::none_of(components.begin(), components.end(),
                        [](std::string_view component) { return component == ".."; });
}

}  // namespace

RemoteFiles::RemoteFiles(std::string folder, std::string scratch)
    : folder_(std::move(folder)), scratch_(std::move(scratch)) {
    makeDirectories(folder_);
    makeDirectories(scratch_);
    sweepDirectory(scratch_, NewFile::isName);
}

std::string RemoteFiles::checkedPath(const std::string& name) const {
    if (!staysInside(name))
        throw CoException(
            coFormat("Remote file name '%s' is refused: names are relative to the server's file folder and "
                     "may not leave it.",
                     name.c_str()));
    return folder_ + "/" + name;
}

ReadableFile RemoteFiles::open(const std::string& name) const {
    return openForReading(checkedPath(name));
}

std::unique_ptr<NewFile> RemoteFiles::begin(const std::string& name) const {
    const std::string path = checkedPath(name);
    if (path.back() == '/')
        throw CoException(coFormat("Cannot create '%s': %s", name.c_str(), coErrorText(EISDIR).c_str()));
    return std::make_unique<NewFile>(scratch_);
}

void RemoteFiles::publish(NewFile& upload, const std::string& name) const {
    const std::string path = checkedPath(name);
    const std::string parent = path.substr(0, path.find_last_of('/'));
    makeDirectories(parent);
    upload.sync();
    upload.moveTo(path);
    syncDirectory(parent);
}

ReadableFile RemoteFiles::openLinked(const std::string& path) const {
    const std::string prefix = folder_ + "/";
    return open(path.compare(0, prefix.size(), prefix) == 0 ? path.substr(prefix.size()) : path);
}

}  // namespace vantreld
