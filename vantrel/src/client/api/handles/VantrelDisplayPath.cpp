#include <vantrel/VantrelClientAPI.h>

#include <string>
#include <string_view>

#include "CoFilePath.h"
#include "CoTokenizer.h"
#include "VantrelNodeImp.h"
#include "VantrelServerImp.h"

namespace {

enum class Search { Found, NotThere, Failed };

Search findChild(const VantrelNodeHandle& parent, std::string_view wanted, VantrelNodeHandle& child) {
    // A handle of its own, since `child` may be the parent's.
    const VantrelNodeHandle node(parent.getServer(), parent.getNodeId());
    VantrelNodeImp* from = node.imp();
    VantrelNodeImp* to = child.imp();
    const auto* children = from && to ? from->children() : nullptr;
    if (!children) return Search::Failed;
    if (children->isEmpty()) return Search::NotThere;
    std::size_t index = 0;
    while (index + 1 < children->size() && (*children)[index].displayName() != wanted) ++index;
    from->pointAtChild(index, *to);
    return (*children)[index].displayName() == wanted ? Search::Found : Search::NotThere;
}

}  // namespace

bool VantrelFindChild(const VantrelNodeHandle& parent, const char* displayName, VantrelNodeHandle& child) {
    return displayName && findChild(parent, displayName, child) == Search::Found;
}

bool VantrelResolveDisplayPath(const VantrelServerHandle& server, const char* path, VantrelNodeHandle& node) {
    const std::string clean = Vantrel::CoFilePath::clean(path ? path : "");
    if (!server.getRootNode(node)) return false;
    VantrelServerImp* imp = server.imp();
    if (!imp) return false;
    for (const std::string_view name : Vantrel::coTokens(clean, "/")) {
        const Search search = findChild(node, name, node);
        // A name that is not found leaves no text: an earlier failure's must not pass for it. A failed
        // request's reason is where it belongs already, the node's last error being the server's.
        if (search == Search::NotThere) imp->setLastError(VANTREL_ERROR_NOT_FOUND, "");
        if (search != Search::Found) return false;
    }
    return true;
}
