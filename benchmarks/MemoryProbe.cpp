// Measures itself: a program that does nothing but hold one connection open and listen to a node's events.
// Prints its anonymous memory in KiB, before the library is up and with the event monitor running. Usage:
// vantrel_memory_probe HOST:PORT

#include <vantrel/VantrelClientAPI.h>

#include <cstdio>
#include <cstring>

namespace {

// By plain reads: the measuring must not allocate.
long anonymousKiB() {
    std::FILE* facts = std::fopen("/proc/self/smaps_rollup", "re");
    if (!facts) return -1;
    static char buffer[4096];
    std::setvbuf(facts, buffer, _IOFBF, sizeof buffer);
    char line[256];
    long size = -1;
    while (std::fgets(line, sizeof line, facts)) {
        if (std::sscanf(line, "Anonymous: %ld", &size) == 1) break;
    }
    std::fclose(facts);
    return size;
}

class Listener : public VantrelNodeEvent::Handler {
  public:
    void notify(const VantrelNodeEvent&) override {}
};

}  // namespace

int main(int argumentCount, char** arguments) {
    if (argumentCount != 2) return 2;
    const long before = anonymousKiB();
    Listener listener;
    const VantrelClient client;
    const VantrelServerHandle server{VantrelServerId(arguments[1])};
    const char* host = server.getHostName();
    if (!host || !*host || !server.registerEventHandler("n1", &listener)) return 1;
    std::printf("%ld %ld\n", before, anonymousKiB());
    return 0;
}
