// The node port's commands about a clip's frames. The clip format that comes with some of them is what the
// client knows of the clip, at times through a form that carries less than the clip's own: the clip's stays.

#include "ArgumentReader.h"
#include "CoException.h"
#include "CoMsg.h"
#include "NodeCommands.h"
#include "NodeStreams.h"
#include "VantrelNodeCodec.h"
#include "rcAttrList.h"

namespace vantreld {

using Vantrel::CoException;

namespace {

/// How many frames ahead of the one it reads a client may ask to be prepared.
constexpr const char* NUM_READ_AHEADS = "2";

std::string listText(std::vector<std::string> elements) {
    return Vantrel::rcAttrList<std::string>(std::move(elements)).toString();
}

}  // namespace

std::string NodeCommands::getFrames(const std::string& argument) {
    return VantrelNodeCodec::joinWithCommas(store_.frameIds(nodeIdArgument(argument)));
}

std::string NodeCommands::getFramesEx(const std::string& argument) {
    return listText(store_.frameIds(StreamArgument("GetFramesEx", argument).text("Node")));
}

std::string NodeCommands::allocateFrames(const std::string& argument) {
    ArgumentReader pieces("AllocateFrames", argument);
    const std::string clip = pieces.next("node");
    store_.setNumFrames(clip, pieces.nextInt("number of frames"));
    return VantrelNodeCodec::joinWithCommas(store_.frameIds(clip));
}

std::string NodeCommands::allocateFramesEx(const std::string& argument) {
    const StreamArgument stream("AllocateFramesEx", argument);
    const std::string clip = stream.text("Node");
    store_.setNumFrames(clip, stream.number("NumFrames"));
    return listText(store_.frameIds(clip));
}

std::string NodeCommands::getFramePaths(const std::string& argument) {
    ArgumentReader pieces("GetFramePaths", argument);
    const std::string clip = pieces.next("node");
    std::vector<std::string> paths = store_.framePaths(clip);
    return commaPaths(std::move(paths), store_.frameIds(clip));
}

std::string NodeCommands::getFramePathsEx(const std::string& argument) {
    return listText(store_.framePaths(StreamArgument("GetFramePathsEx", argument).text("Parent")));
}

std::string NodeCommands::setFramePaths(const std::string& argument) {
    ArgumentReader pieces("SetFramePaths", argument);
    const std::string clip = pieces.next("node");
    const std::string paths = pieces.next("paths");
    pieces.next("host name");
    // A path with a blank in it moves every later piece: better refused than linked to half a path.
    pieces.nextInt("OS type");
    store_.setFramePaths(clip, splitPaths(paths));
    return {};
}

std::string NodeCommands::setFramePathsEx(const std::string& argument) {
    const StreamArgument stream("SetFramePathsEx", argument);
    Vantrel::rcAttrList<std::string> paths;
    if (!paths.fromString(stream.text("Paths")))
        throw CoException("Invalid SetFramePathsEx parameter: Paths is a malformed list.");
    store_.setFramePaths(stream.text("Parent"), paths.values());
    return {};
}

std::string NodeCommands::getStreamId(const std::string& argument) {
    const std::string id = nodeIdArgument(argument);
    store_.numFrames(id);  // refuses what is no clip
    return id;
}

std::string NodeCommands::getNbReadAheads(const std::string& argument) {
    store_.numFrames(nodeIdArgument(argument));
    return NUM_READ_AHEADS;
}

}  // namespace vantreld
