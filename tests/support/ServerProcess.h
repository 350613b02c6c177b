#pragma once

#include <chrono>
#include <cstdio>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "ChildProcess.h"

/// A vantreld over a folder, on ports that the system chose. Serves when built; ends with this object.
class ServerProcess {
  public:
    ServerProcess(const std::string& program, const std::string& root, std::vector<std::string> more = {})
        : process_(command(program, root, std::move(more))) {
        const std::string line = process_.firstLine(std::chrono::seconds(60));
        if (std::sscanf(line.c_str(), "vantreld ready: node port %d, frame port %d", &nodePort_,
                        &framePort_) != 2)
            throw std::runtime_error("no ready line but: " + line);
    }

    int nodePort() const { return nodePort_; }
    int framePort() const { return framePort_; }
    /// Text of its server id.
    std::string id() const { return "127.0.0.1:" + std::to_string(nodePort_); }
    ChildProcess& process() { return process_; }

  private:
    static std::vector<std::string> command(const std::string& program, const std::string& root,
                                            std::vector<std::string> more) {
        std::vector<std::string> all{program,        "--root", root,     "--port",    "0",
                                     "--frame-port", "0",      "--bind", "127.0.0.1", "--no-discovery"};
        all.insert(all.end(), more.begin(), more.end());
        return all;
    }

    ChildProcess process_;
    int nodePort_ = 0;
    int framePort_ = 0;
};
