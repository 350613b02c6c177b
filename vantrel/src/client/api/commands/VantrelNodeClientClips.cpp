// The operations of VantrelNodeClientAPI on clips: formats, frames and the paths of frames.

#include "CoException.h"
#include "CoMsg.h"
#include "VantrelNodeArguments.h"
#include "VantrelNodeClientAPI.h"
#include "rcAttrList.h"

using namespace VantrelNodeArguments;
using Vantrel::CoException;
using Vantrel::coFormat;
using Vantrel::rcAttrStream;
using Vantrel::VantrelClipFormatCodec;
namespace Commands = VantrelCommands;

namespace {

/// Most bytes of a "GetFramePaths" argument.
constexpr std::size_t MAX_FRAME_PATHS_ARGUMENT = 511;

/// By these facts the server knows which paths this host can open.
void addLocalHost(rcAttrStream& stream) {
    stream.addStringValue("HostName", VantrelOS::getHostName().c_str());
    stream.addIntValue("OSType", VantrelOS::getOSType());
    stream.addStringValue("OSVersion", VantrelOS::getOSVersion().c_str());
}

/// The same as words of a plain form; only one of these quotes the version.
std::string localHostWords(const char* quote) {
    return coFormat(" %s %d %s%s%s", VantrelOS::getHostName().c_str(),
                    static_cast<int>(VantrelOS::getOSType()), quote, VantrelOS::getOSVersion().c_str(),
                    quote);
}

std::string nodeArgument(const VantrelNodeId& node) {
    rcAttrStream argument;
    argument.addStringValue("Node", node.id());
    return argument.text();
}

/// For replies that are a list, in either form.
template <typename Element>
auto takeList(bool plain, std::vector<Element>& list, const char* invalid) {
    return [plain, &list, invalid](const std::string& reply) {
        if (plain) {
            VantrelNodeCodec::parseCommaList(reply, list);
        } else if (!VantrelNodeCodec::parseList(reply, list)) {
            throw CoException(invalid);
        }
    };
}

auto takeFrames(bool plain, std::vector<VantrelFrameId>& frames) {
    return takeList(plain, frames, "Invalid frame list");
}

}  // namespace

bool VantrelNodeClientAPI::getClipFormat(const VantrelNodeId& node, VantrelClipFormat& format) {
    const VantrelCommand* form = formOf(Commands::GET_CLIP_FORMAT);
    if (!form) return false;
    if (form == &Commands::GET_CLIP_FORMAT) {
        return ask(*form, plainWord(node),
                   [&](const std::string& reply) { VantrelClipFormatCodec::fromReplyText(reply, format); });
    }
    return ask(*form, node.id(), [&](std::string reply) {
        std::string error;
        if (!VantrelClipFormatCodec::fromStream(rcAttrStream(std::move(reply)), form->name, format, error)) {
            throw CoException(error);
        }
    });
}

// The format as the server gave it. Servers of some versions take a colour space but do not give it: an empty
// one is then unknown, and sent it would erase the clip's.
bool VantrelNodeClientAPI::addFormatOfClip(rcAttrStream& argument, const VantrelClipFormat& format) {
    const VantrelCommand* form = formOf(Commands::GET_CLIP_FORMAT);
    if (!form) return false;
    const bool known = form != &Commands::GET_CLIP_FORMAT || *format.colourSpace();
    addFormat(argument, format, known ? ColourSpace::Included : ColourSpace::LeftOut);
    return true;
}

bool VantrelNodeClientAPI::getFrames(const VantrelNodeId& node, std::vector<VantrelFrameId>& frames) {
    const VantrelCommand* form = formOf(Commands::GET_FRAMES);
    if (!form) return false;
    const bool plain = form == &Commands::GET_FRAMES;
    return ask(*form, plain ? plainWord(node) : nodeArgument(node), takeFrames(plain, frames));
}

bool VantrelNodeClientAPI::allocateFrames(const VantrelNodeId& node, int count,
                                          const VantrelClipFormat& format,
                                          std::vector<VantrelFrameId>& frames) {
    const VantrelCommand* form = formOf(Commands::ALLOCATE_FRAMES);
    if (!form) return false;
    if (form == &Commands::ALLOCATE_FRAMES) {
        return checkNoComma(node) && ask(*form,
                                         coFormat("%s %d ", plainWord(node).c_str(), count) +
                                             VantrelClipFormatCodec::toRequestText(format),
                                         takeFrames(true, frames));
    }
    rcAttrStream argument;
    argument.addStringValue("Node", node.id());
    argument.addIntValue("NumFrames", count);
    if (!addFormatOfClip(argument, format)) return false;
    return ask(*form, argument.text(), takeFrames(false, frames));
}

bool VantrelNodeClientAPI::getFramePaths(const VantrelNodeId& node, std::vector<std::string>& paths) {
    const VantrelCommand* form = formOf(Commands::GET_FRAME_PATHS);
    if (!form) return false;
    const bool plain = form == &Commands::GET_FRAME_PATHS;
    const auto take = takeList(plain, paths, "Invalid file list");
    if (plain) {
        if (!checkNoComma(node)) return false;
        std::string argument = plainWord(node) + localHostWords("\"");
        if (argument.size() > MAX_FRAME_PATHS_ARGUMENT) argument.resize(MAX_FRAME_PATHS_ARGUMENT);
        return ask(*form, argument, take);
    }
    rcAttrStream argument;
    argument.addStringValue("Parent", node.id());
    addLocalHost(argument);
    return ask(*form, argument.text(), take);
}

bool VantrelNodeClientAPI::requireFrameLinks() {
    return require(Commands::SET_FRAME_PATHS, "Server does not support linking to existing media files.");
}

bool VantrelNodeClientAPI::setFramePaths(const VantrelNodeId& node, const std::vector<std::string>& paths,
                                         const VantrelClipFormat& format) {
    const VantrelCommand* form = formOf(Commands::SET_FRAME_PATHS);
    if (!form) return false;
    if (form == &Commands::SET_FRAME_PATHS) {
        return checkNoComma(node) &&
               ask(*form, plainWord(node) + ' ' + VantrelNodeCodec::joinWithCommas(paths) +
                              localHostWords("") + ' ' + VantrelClipFormatCodec::toRequestText(format));
    }
    rcAttrStream argument;
    if (!addFormatOfClip(argument, format)) return false;
    argument.addStringValue("Parent", node.id());
    argument.addStringValue("Paths", std::string_view(Vantrel::rcAttrList<std::string>(paths).toString()));
    addLocalHost(argument);
    return ask(*form, argument.text());
}
