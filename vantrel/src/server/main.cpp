// vantreld: serves one directory as a media server until SIGTERM or SIGINT.

#include <sys/signalfd.h>

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <optional>
#include <utility>

#include "Announcer.h"
#include "CoException.h"
#include "CoIoDescriptor.h"
#include "CoIoHandler.h"
#include "CoMsg.h"
#include "DemoContent.h"
#include "FrameServer.h"
#include "NodeServer.h"
#include "NodeStore.h"
#include "ServerOptions.h"

namespace {

using Vantrel::coErrorText;
using Vantrel::CoException;
using Vantrel::coFormat;

constexpr const char* TRANSLATIONS_FILE = "translations.json";

/// Turns the signals that end the server into something its loop can wait for.
class EndSignals : public Vantrel::CoIoHandler {
  public:
    /// To be made before any other thread, so that none of them takes the signals.
    EndSignals() {
        sigset_t signals;
        ::sigemptyset(&signals);
        ::sigaddset(&signals, SIGTERM);
        ::sigaddset(&signals, SIGINT);
        ::pthread_sigmask(SIG_BLOCK, &signals, nullptr);
        ::signal(SIGPIPE, SIG_IGN);
        descriptor_.setId(::signalfd(-1, &signals, SFD_CLOEXEC | SFD_NONBLOCK));
        if (!descriptor_.isValid())
            throw CoException(coFormat("Cannot wait for signals: %s", coErrorText(errno).c_str()));
    }

    bool came() const { return came_; }

    int descriptorId() const override { return descriptor_.getId(); }
    bool handleRead() override {
        came_ = true;
        return false;
    }

  private:
    Vantrel::CoIoDescriptor descriptor_;
    bool came_ = false;
};

void serve(const vantreld::ServerOptions& options) {
    EndSignals end;
    vantreld::NodeStore store(options.root);
    auto translations = vantreld::PathTranslations::load(options.root + "/" + TRANSLATIONS_FILE);
    if (options.demo) vantreld::addDemoContent(store);

    vantreld::FrameServer::Settings frameSettings;
    frameSettings.port = options.framePort;
    frameSettings.bindAddress = options.bindAddress;
    frameSettings.version = options.version;
    if (options.redirection) {
        frameSettings.redirection = vantreld::daemonInfoOf(*options.redirection).toAttrStream().text();
    }
    const vantreld::FrameServer frames(store, frameSettings);
    vantreld::NodeServer nodes(store, options, std::move(translations));
    if (!nodes.isValid()) throw CoException(coFormat("Cannot listen on node port %d.", options.nodePort));
    nodes.setFramePort(frames.port());
    nodes.loop().registerIOHandler(&end);
    std::optional<vantreld::Announcer> announcer;
    const VantrelDiscoveryGroup group = vantreld::discoveryGroupOf(options);
    if (group.ttl != 0) {
        announcer.emplace(nodes.loop(), group, [&nodes] { return nodes.announcedInfo(); });
        nodes.setOtherServers([&announcer] { return announcer->others(); });
    }

    std::printf("vantreld ready: node port %d, frame port %d\n", nodes.getPort(), frames.port());
    std::fflush(stdout);
    while (!end.came() && !nodes.shutdownRequested()) {
        Vantrel::rcAppContext& loop = nodes.loop();
        const int ready = announcer ? loop.callIOHandlers(announcer->work()) : loop.callIOHandlers(nullptr);
        if (ready < 0) throw CoException("The node port's loop failed.");
    }
}

}  // namespace

int main(int argc, char** argv) {
    vantreld::ServerOptions options;
    if (const auto status = vantreld::parseCommandLine(argc, argv, options)) return *status;
    try {
        serve(options);
    } catch (const std::exception& error) {
        std::fprintf(stderr, "vantreld: %s\n", error.what());
        return 1;
    }
    return 0;
}
