#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <deque>
#include <mutex>
#include <optional>

#include "CommandOptions.h"
#include "Session.h"

namespace {

// How long the command is deaf to Ctrl-C, and to the loss of its server, while nothing happens.
constexpr std::chrono::milliseconds LOOK_AROUND{100};

// Events that wait to be printed. When they cannot be, the library keeps the next ones, and drops some.
constexpr std::size_t MAX_QUEUED = 1000;

struct WatchOptions {
    std::string server;
    std::string path = "/";
    std::size_t count = 0;  // 0: for ever
};

// Takes events from the library's thread to the command's.
class Events : public VantrelNodeEvent::Handler {
  public:
    void notify(const VantrelNodeEvent& event) override {
        std::unique_lock<std::mutex> lock(mutex_);
        changed_.wait(lock, [this] { return events_.size() < MAX_QUEUED || closed_; });
        events_.push_back(event);
        changed_.notify_all();
    }
    // The next one, when it comes soon.
    std::optional<VantrelNodeEvent> next() {
        std::unique_lock<std::mutex> lock(mutex_);
        if (!changed_.wait_for(lock, LOOK_AROUND, [this] { return !events_.empty(); })) return std::nullopt;
        std::optional<VantrelNodeEvent> event(std::move(events_.front()));
        events_.pop_front();
        changed_.notify_all();
        return event;
    }
    // Nobody takes any more: `notify` waits for nothing.
    void close() {
        const std::lock_guard<std::mutex> lock(mutex_);
        closed_ = true;
        changed_.notify_all();
    }

  private:
    std::mutex mutex_;  // guards the rest
    std::condition_variable changed_;
    std::deque<VantrelNodeEvent> events_;
    bool closed_ = false;
};

// Events of one node, for as long as it lives.
class Watch {
  public:
    Watch(const Session& session, const WatchOptions& options)
        : server_(session.server()), node_(session.node(options.path).getNodeId()) {
        session.require(server_.registerEventHandler(node_, &events_, nullptr, nullptr),
                        Session::failed("watch", options.path));
    }
    // When a signal came, the call to the server is cut short: a server that hangs keeps nobody here.
    ~Watch() {
        events_.close();
        server_.unregisterEventHandler(node_, &events_);
    }
    Watch(const Watch&) = delete;
    Watch& operator=(const Watch&) = delete;

    std::optional<VantrelNodeEvent> next() { return events_.next(); }

  private:
    const VantrelServerHandle& server_;
    const VantrelNodeId node_;
    Events events_;
};

// Says on standard error when the server is lost and when it is back. To be made once it is connected: what
// comes before counts as lost, too.
class ServerWatch {
  public:
    ServerWatch(const Session& session, const std::string& name) : server_(session.server()), name_(name) {
        VantrelRegisterDisconnectCallBack([](const VantrelServerId&) { ++losses(); });
    }
    ~ServerWatch() { VantrelRegisterDisconnectCallBack(nullptr); }
    ServerWatch(const ServerWatch&) = delete;
    ServerWatch& operator=(const ServerWatch&) = delete;

    void look() {
        if (losses().exchange(0) != 0 && !lost_) {
            std::fprintf(stderr, "vantrel: server '%s' is lost; waiting for it\n", name_.c_str());
            lost_ = true;
        }
        if (!lost_ || !server_.isConnected()) return;
        std::fprintf(stderr, "vantrel: server '%s' is back; what changed meanwhile was not seen\n",
                     name_.c_str());
        lost_ = false;
    }

  private:
    static std::atomic<unsigned>& losses() {
        static std::atomic<unsigned> count{0};
        return count;
    }

    const VantrelServerHandle& server_;
    const std::string name_;
    bool lost_ = false;
};

Json eventJson(const Output& out, const VantrelNodeEvent& event) {
    VantrelStrList keys;
    event.getDetails().getFields(keys);
    Json details = Json::object();
    for (unsigned i = 0; i < keys.size(); ++i) {
        VantrelStr value;
        if (event.getDetails().getString(keys.getStr(i), value))
            details[out.text(keys.getStr(i))] = out.text(value);
    }
    return {{"nodeId", out.text(event.getNodeId().id())},
            {"type", out.text(event.getType())},
            {"details", std::move(details)}};
}

void show(const Output& out, const Json& event) {
    if (out.json()) return out.documentLine(event);
    std::string text = event["type"].get<std::string>() + " " + event["nodeId"].get<std::string>();
    for (const auto& detail : event["details"].items())
        text += " " + detail.key() + "=" + detail.value().get<std::string>();
    out.line(text);
}

void watch(const Program& program, const WatchOptions& options) {
    const Session session(program, options.server);
    Watch watch(session, options);
    ServerWatch server(session, options.server);
    std::size_t shown = 0;
    while (options.count == 0 || shown < options.count) {
        session.checkInterrupt();
        server.look();
        const auto event = watch.next();
        if (!event) continue;
        show(session.output(), eventJson(session.output(), *event));
        ++shown;
    }
}

}  // namespace

void addWatchCommand(CLI::App& app, Program& program) {
    addCommand<WatchOptions>(
        app, program, "watch", "Show what happens to a node, as it happens, until Ctrl-C",
        [](CLI::App& command, WatchOptions& options) {
            addServer(command, options.server);
            addPath(command, "PATH", options.path, "the node; the root when left out");
            command.add_option("--count", options.count, "end after so many events")
                ->check(CLI::PositiveNumber)
                ->type_name("N");
        },
        watch);
}
