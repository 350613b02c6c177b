#pragma once

#include <fcntl.h>
#include <sched.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <stdexcept>
#include <string>
#include <thread>

#include "BareHost.h"
#include "PlainSocket.h"

/// A host of its own, with loopback and what `connect` gives it: a network namespace that only this process
/// holds, so that it goes with it, however it ends. Made on first use, which throws when the system does not
/// allow it. Needs root and iproute2.
class NetworkHost {
  public:
    /// While it lives, this thread and the threads and processes that it starts are on the host.
    class Stay {
      public:
        explicit Stay(const NetworkHost& host) : home_(::open(OWN_NAMESPACE, O_RDONLY | O_CLOEXEC)) {
            enter(host.descriptor());
        }
        ~Stay() { enter(home_); }
        Stay(const Stay&) = delete;
        Stay& operator=(const Stay&) = delete;

      private:
        static void enter(int descriptor) {
            if (::setns(descriptor, CLONE_NEWNET) != 0) std::abort();
        }
        const Vantrel::PlainFd home_;
    };

    /// Runs "ip" with these words on the host; throws when it fails.
    void ip(const std::string& words) const {
        const Stay stay(*this);
        if (!Vantrel::runCommand(std::string(IP_PROGRAM) + ' ' + words))
            throw std::runtime_error("ip " + words + " failed");
    }

    /// One end of a cable: an interface and its address with prefix length.
    struct End {
        const NetworkHost& host;
        std::string interface;
        std::string address;
    };
    static void connect(const End& one, const End& other) {
        one.host.ip("link add " + one.interface + " type veth peer name " + other.interface +
                    " netns /proc/" + std::to_string(::getpid()) + "/fd/" +
                    std::to_string(other.host.descriptor()));
        for (const End* end : {&one, &other}) {
            end->host.ip("addr add " + end->address + " dev " + end->interface);
            end->host.ip("link set " + end->interface + " up");
        }
        one.host.waitUntilRunning(one.interface);
        other.host.waitUntilRunning(other.interface);
    }
    /// The system may take a second to notice that a cable is connected.
    void waitUntilRunning(const std::string& interface) const {
        const Stay stay(*this);
        if (!Vantrel::awaitCommand("ip -o link show dev " + interface + " | grep -q 'state UP'"))
            throw std::runtime_error(interface + " does not run");
    }

    /// Why a test cannot have such hosts; empty when it can.
    static std::string unavailable() {
        if (::geteuid() != 0) return "needs root";
        if (::access(IP_PROGRAM, X_OK) != 0) return std::string("needs ") + IP_PROGRAM + " (iproute2)";
        try {
            NetworkHost().descriptor();
            return {};
        } catch (const std::exception& error) {
            return error.what();
        }
    }

  private:
    static constexpr const char* OWN_NAMESPACE = "/proc/thread-self/ns/net";
    static constexpr const char* IP_PROGRAM = "/sbin/ip";

    int descriptor() const {
        if (descriptor_.isOpen()) return descriptor_;
        std::string reason;
        std::thread([this, &reason] {
            if (::unshare(CLONE_NEWNET) != 0) {
                reason = std::strerror(errno);
                return;
            }
            descriptor_ = Vantrel::PlainFd(::open(OWN_NAMESPACE, O_RDONLY | O_CLOEXEC));
            // Addresses of IPv6 are usable at once.
            for (const char* which : {"all", "default"})
                std::ofstream(std::string("/proc/sys/net/ipv6/conf/") + which + "/accept_dad") << 0;
        }).join();
        if (!descriptor_.isOpen()) throw std::runtime_error("no network namespace: " + reason);
        ip("link set lo up");
        return descriptor_;
    }

    mutable Vantrel::PlainFd descriptor_;
};
