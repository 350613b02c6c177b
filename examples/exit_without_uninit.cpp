// Calls a server and leaves without closing anything, handles included: an application may end at any moment.
//   exit_without_uninit render01:7549
#include <vantrel/VantrelClientAPI.h>

#include <cstdlib>

int main(int argc, char** argv) {
    if (argc != 2 || !VantrelClientInit()) return 2;
    // Never destroyed on purpose.
    static const VantrelServerHandle* server = new VantrelServerHandle(VantrelServerId(argv[1]));
    std::exit(server->ping(1000) ? 0 : 1);
}
