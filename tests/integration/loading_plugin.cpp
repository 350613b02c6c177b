// A host's plug-in that brings the library in with it, and uses it one way or another.
#include <vantrel/VantrelClientAPI.h>

extern "C" {

/// Brings the library up and down.
VANTREL_API bool comeAndGo() {
    const VantrelClient client;
    return VantrelClientIsInitialized();
}

/// Uses what the library has threads for: a name look-up, discovery, event handlers.
VANTREL_API bool useThreads() {
    const VantrelClient client;
    VantrelServerList list;
    int count = 0;
    list.getNumNodes(count);
    const VantrelServerHandle server(VantrelServerId("localhost:1"));  // nobody listens there
    return !server.ping(0);
}

/// The same, and leaves without bringing the library down.
VANTREL_API bool leaveThreads() {
    return VantrelClientInit() && useThreads() && VantrelClientIsInitialized();
}
}
