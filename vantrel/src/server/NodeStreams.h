#pragma once

#include <vantrel/VantrelFormats.h>

#include <string>
#include <string_view>
#include <vector>

#include "NodeStore.h"
#include "rcAttrStream.h"

namespace vantreld {

/// The attribute stream that is a command's argument. Errors name the command and the parameter. Not
/// thread-safe.
class StreamArgument {
  public:
    StreamArgument(const char* command, std::string text) : command_(command), stream_(std::move(text)) {}

    /// A parameter; CoException when it is missing, or is no number.
    std::string text(const char* key) const;
    int number(const char* key) const;
    std::string textOrEmpty(const char* key) const;
    /// The nested clip format; CoException when it is missing or incomplete.
    VantrelClipFormat clipFormat() const;

  private:
    const char* command_;
    Vantrel::rcAttrStream stream_;
};

/// A children reply: one stream per child with its id and display name, in order.
std::string streamChildren(const std::vector<NodeStore::Child>& children);
/// The older form: id, display name, id, display name, separated by commas.
std::string commaChildren(const std::vector<NodeStore::Child>& children);

/// A clip's paths separated by commas. The id of a frame stands in for a path that it does not have.
std::string commaPaths(std::vector<std::string> paths, const std::vector<std::string>& frameIds);
/// The paths that such a text names, empty ones too; none for an empty text.
std::vector<std::string> splitPaths(std::string_view text);

}  // namespace vantreld
