// The servers on the network, a line each: their display name, where they are reached, their storage id.
//   list_servers [GATEWAY]     GATEWAY: a server to ask for what it knows, where multicast does not reach
#include <vantrel/VantrelClientAPI.h>

#include <cstdio>

int main(int argc, char** argv) {
    if (argc > 2) {
        std::fprintf(stderr, "usage: list_servers [GATEWAY]\n");
        return 2;
    }
    const VantrelClient client;
    VantrelServerList list(nullptr, argc == 2 ? argv[1] : nullptr);
    int count = 0;
    bool ok = list.getNumNodes(count);
    for (int i = 0; ok && i < count; ++i) {
        VantrelServerInfo info;
        ok = list.getNode(i, info);
        const VantrelServerId id = info.getId();
        if (ok)
            std::printf("%s\t%s:%d\t%s\n", info.getDisplayName(), id.getIPAddr(), id.getPort(),
                        info.getStorageId());
    }
    if (!ok) std::fprintf(stderr, "%s\n", list.lastError());
    return ok ? 0 : 1;
}
