#include "VantrelClipFormatCodec.h"
#include "VantrelNodeClientAPI.h"
#include "VantrelNodeClientCall.h"
#include "VantrelNodeCodec.h"
#include "rcAttrList.h"
#include "rcAttrStream.h"

/// The operations of VantrelNodeClientAPI on clips: formats, frames and the paths of frames.

using namespace VantrelNodeClientCall;
using Vantrel::CoException;
using Vantrel::rcAttrStream;
using Vantrel::VantrelClipFormatCodec;

namespace {

const char* const INVALID_FRAME_LIST = "Invalid frame list";
const char* const INVALID_FILE_LIST = "Invalid file list";

/// Most bytes of a "GetFramePaths" argument.
constexpr std::size_t MAX_FRAME_PATHS_ARGUMENT = 511;

/// By these facts the server tells which paths this host can open.
void addLocalHost(rcAttrStream& stream) {
    stream.addStringValue("HostName", VantrelOS::getHostName().c_str());
    stream.addIntValue("OSType", VantrelOS::getOSType());
    stream.addStringValue("OSVersion", VantrelOS::getOSVersion().c_str());
}

void readFrameList(const std::string& reply, std::vector<VantrelFrameId>& frames) {
    if (!VantrelNodeCodec::parseList(reply, frames)) throw CoException(INVALID_FRAME_LIST);
}

}  // namespace

bool VantrelNodeClientAPI::getClipFormat(const VantrelNodeId& node, VantrelClipFormat& format) {
    return attempt(
        [&] { VantrelClipFormatCodec::fromReplyText(call("GetClipFormat", plainWord(node)), format); });
}

bool VantrelNodeClientAPI::getClipFormatEx(const VantrelNodeId& node, VantrelClipFormat& format) {
    return attempt([&] {
        const char* const command = "GetClipFormatEx";
        const rcAttrStream reply(call(command, node.id()));
        std::string error;
        if (!VantrelClipFormatCodec::fromStream(reply, command, format, error)) throw CoException(error);
    });
}

bool VantrelNodeClientAPI::getFrames(const VantrelNodeId& node, std::vector<VantrelFrameId>& frames) {
    return attempt([&] { VantrelNodeCodec::parseCommaList(call("GetFrames", plainWord(node)), frames); });
}

bool VantrelNodeClientAPI::getFramesEx(const VantrelNodeId& node, std::vector<VantrelFrameId>& frames) {
    return attempt([&] {
        rcAttrStream argument;
        argument.addStringValue("Node", node.id());
        readFrameList(call("GetFramesEx", argument.text()), frames);
    });
}

bool VantrelNodeClientAPI::allocateFrames(const VantrelNodeId& node, int count,
                                          const VantrelClipFormat& format,
                                          std::vector<VantrelFrameId>& frames) {
    return attempt([&] {
        refuseComma(node);
        const std::string argument = Vantrel::coFormat("%s %d ", plainWord(node).c_str(), count) +
                                     VantrelClipFormatCodec::toRequestText(format);
        VantrelNodeCodec::parseCommaList(call("AllocateFrames", argument), frames);
    });
}

bool VantrelNodeClientAPI::allocateFramesEx(const VantrelNodeId& node, int count,
                                            const VantrelClipFormat& format,
                                            std::vector<VantrelFrameId>& frames) {
    return attempt([&] {
        rcAttrStream argument;
        argument.addStringValue("Node", node.id());
        argument.addIntValue("NumFrames", count);
        addFormat(argument, format);
        readFrameList(call("AllocateFramesEx", argument.text()), frames);
    });
}

bool VantrelNodeClientAPI::getFramePaths(const VantrelNodeId& node, std::vector<std::string>& paths) {
    return attempt([&] {
        refuseComma(node);
        std::string argument =
            Vantrel::coFormat("%s %s %d \"%s\"", plainWord(node).c_str(), VantrelOS::getHostName().c_str(),
                              static_cast<int>(VantrelOS::getOSType()), VantrelOS::getOSVersion().c_str());
        if (argument.size() > MAX_FRAME_PATHS_ARGUMENT) argument.resize(MAX_FRAME_PATHS_ARGUMENT);
        VantrelNodeCodec::parseCommaList(call("GetFramePaths", argument), paths);
    });
}

bool VantrelNodeClientAPI::getFramePathsEx(const VantrelNodeId& node, std::vector<std::string>& paths) {
    return attempt([&] {
        rcAttrStream argument;
        argument.addStringValue("Parent", node.id());
        addLocalHost(argument);
        if (!VantrelNodeCodec::parseList(call("GetFramePathsEx", argument.text()), paths)) {
            throw CoException(INVALID_FILE_LIST);
        }
    });
}

bool VantrelNodeClientAPI::setFramePaths(const VantrelNodeId& node, const std::vector<std::string>& paths,
                                         const VantrelClipFormat& format) {
    return attempt([&] {
        refuseComma(node);
        const std::string host =
            Vantrel::coFormat(" %s %d %s ", VantrelOS::getHostName().c_str(),
                              static_cast<int>(VantrelOS::getOSType()), VantrelOS::getOSVersion().c_str());
        call("SetFramePaths", plainWord(node) + ' ' + VantrelNodeCodec::joinWithCommas(paths) + host +
                                  VantrelClipFormatCodec::toRequestText(format));
    });
}

bool VantrelNodeClientAPI::setFramePathsEx(const VantrelNodeId& node, const std::vector<std::string>& paths,
                                           const VantrelClipFormat& format) {
    return attempt([&] {
        rcAttrStream argument;
        addFormat(argument, format);
        argument.addStringValue("Parent", node.id());
        argument.addStringValue("Paths",
                                std::string_view(Vantrel::rcAttrList<std::string>(paths).toString()));
        addLocalHost(argument);
        call("SetFramePathsEx", argument.text());
    });
}
