#pragma once

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <stdexcept>
#include <string>
#include <vector>

#include "ChildProcess.h"

/// A vantreld over a folder, on ports that the system chose. Serves when built; ends with this object.
class ServerProcess {
  public:
    /// On loopback, and by address only.
    ServerProcess(const std::string& program, const std::string& root,
                  const std::vector<std::string>& more = {})
        : ServerProcess(command(program, root, {"--bind", "127.0.0.1", "--no-discovery"}, more), {}) {}
    /// On every address, and announced as the options and the network.cfg among the variables say.
    static ServerProcess onNetwork(const std::string& program, const std::string& root,
                                   const std::vector<std::string>& more,
                                   const std::vector<std::string>& variables) {
        return ServerProcess(command(program, root, {}, more), variables);
    }

    int nodePort() const { return nodePort_; }
    int framePort() const { return framePort_; }
    /// Text of its server id.
    std::string id() const { return "127.0.0.1:" + std::to_string(nodePort_); }
    ChildProcess& process() { return process_; }

  private:
    ServerProcess(const std::vector<std::string>& command, const std::vector<std::string>& variables)
        : process_(command, variables) {
        const std::string line = process_.firstLine(std::chrono::seconds(60));
        if (std::sscanf(line.c_str(), "vantreld ready: node port %d, frame port %d", &nodePort_,
                        &framePort_) != 2)
            throw std::runtime_error("no ready line but: " + line);
    }

    static std::vector<std::string> command(const std::string& program, const std::string& root,
                                            const std::vector<std::string>& place,
                                            const std::vector<std::string>& more) {
        std::vector<std::string> all{program, "--root", root, "--frame-port", "0"};
        // A case that starts a server again wants the port that it had.
        if (std::find(more.begin(), more.end(), "--port") == more.end())
            all.insert(all.end(), {"--port", "0"});
        all.insert(all.end(), place.begin(), place.end());
        all.insert(all.end(), more.begin(), more.end());
        return all;
    }

    ChildProcess process_;
    int nodePort_ = 0;
    int framePort_ = 0;
};
