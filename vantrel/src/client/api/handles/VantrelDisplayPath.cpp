#include <vantrel/VantrelClientAPI.h>

#include <string>
#include <string_view>

#include "CoFilePath.h"
#include "CoTokenizer.h"
#include "VantrelNodeImp.h"
#include "VantrelServerImp.h"

bool VantrelFindChild(const VantrelNodeHandle& parent, const char* displayName, VantrelNodeHandle& child) {
    if (!displayName) return false;
    // A handle of its own, since `child` may be the parent's.
    const VantrelNodeHandle node(parent.getServer(), parent.getNodeId());
    VantrelNodeImp* from = node.imp();
    VantrelNodeImp* to = child.imp();
    const auto* children = from && to ? from->children() : nullptr;
    if (!children || children->isEmpty()) return false;
    const std::string_view wanted(displayName);
    std::size_t index = 0;
    while (index + 1 < children->size() && (*children)[index].displayName() != wanted) ++index;
    from->pointAtChild(index, *to);
    return (*children)[index].displayName() == wanted;
}

bool VantrelResolveDisplayPath(const VantrelServerHandle& server, const char* path, VantrelNodeHandle& node) {
    const std::string clean = Vantrel::CoFilePath::clean(path ? path : "");
    if (!server.getRootNode(node)) return false;
    VantrelServerImp* imp = server.imp();
    if (!imp) return false;
    // A name that is not found leaves no text: an earlier failure's must not pass for it.
    imp->setLastError(VANTREL_ERROR_NOT_FOUND, "");
    for (const std::string_view name : Vantrel::coTokens(clean, "/")) {
        // The node's last error is the server's, so a failed request's reason is where it belongs already.
        if (!VantrelFindChild(node, std::string(name).c_str(), node)) return false;
    }
    return true;
}
