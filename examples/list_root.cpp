// Lists the children of a server's root:   list_root render01:7549
#include <vantrel/VantrelClientAPI.h>

#include <cstdio>

int main(int argc, char** argv) {
    if (argc != 2) return 2;
    const VantrelClient client;
    const VantrelServerHandle server{VantrelServerId(argv[1])};

    VantrelNodeHandle root;
    int count = 0;
    bool good = server.getRootNode(root) && root.getNumChildren(count);
    for (int i = 0; good && i < count; ++i) {
        VantrelNodeHandle child;
        VantrelStr name;
        good = root.getChild(i, child) && child.getDisplayName(name);
        if (good) std::printf("%s\n", name.c_str());
    }
    if (!good) std::fprintf(stderr, "%s: %s\n", argv[1], server.lastError());
    return good ? 0 : 1;
}
