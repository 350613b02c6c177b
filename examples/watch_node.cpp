// Shows what happens to a node until Enter is pressed:   watch_node render01:7549 "/stor1/demo"
#include <vantrel/VantrelClientAPI.h>

#include <cstdio>

namespace {

// Called on a thread of the library, for one event at a time.
class Printer : public VantrelNodeEvent::Handler {
  public:
    void notify(const VantrelNodeEvent& event) override {
        VantrelStr child;
        event.getDetails().getString("Child", child);  // where the event is about a child of the node
        std::printf("%s %s %s\n", event.getType(), event.getNodeId().id(), child.c_str());
        std::fflush(stdout);
    }
};

}  // namespace

int main(int argc, char** argv) {
    if (argc != 3) return 2;
    Printer printer;  // outlives its registration
    const VantrelClient client;
    const VantrelServerHandle server{VantrelServerId(argv[1])};

    VantrelNodeHandle node;
    if (!VantrelResolveDisplayPath(server, argv[2], node) ||
        !server.registerEventHandler(node.getNodeId(), &printer, nullptr, nullptr)) {
        std::fprintf(stderr, "%s: %s\n", argv[1], server.lastError());
        return 1;
    }
    std::getchar();
    server.unregisterEventHandler(node.getNodeId(), &printer);
    return 0;
}
