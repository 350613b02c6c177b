#include <vantrel/VantrelClientAPI.h>

#include <cstdio>
#include <cstring>

// Calls across the library's boundary, so that the installed headers and the installed library must agree.
int main() {
    int major = 0, minor = -1, patch = -1;
    VantrelClientGetVersion(major, minor, patch);
    VantrelServerId id("render01:7550");
    VantrelServerHandle server(id);
    VantrelNodeHandle root;
    const bool refused =
        !server.getRootNode(root) && std::strcmp(server.lastError(), "API not initialized") == 0;
    const bool good = major == 2024 && minor == 0 && patch == 0 && id.getPort() == 7550 && refused;
    std::printf("%s\n", good ? "consumer works" : "consumer does not work");
    return good ? 0 : 1;
}
