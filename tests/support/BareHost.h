#pragma once

#include <poll.h>
#include <sched.h>

#include <cstdlib>
#include <functional>
#include <string>
#include <thread>

namespace Vantrel {

/// Runs `action` on a thread that has a network of its own, whose only interface "lo" is down and has no
/// address. It is gone when the action, and whatever it opened there, has ended. False when this user may not
/// make one.
inline bool onBareHost(const std::function<void()>& action) {
    bool made = false;
    std::thread([&] {
        made = ::unshare(CLONE_NEWNET) == 0;
        if (made) action();
    }).join();
    return made;
}

/// Runs a command of the shell on the host of the calling thread; whether it succeeded.
inline bool runCommand(const std::string& command) {
    return std::system(command.c_str()) == 0;
}

/// Adds a cable between two new interfaces, of which `name` is for use: "10.0.SUBNET.1/24" and
/// "fd00:SUBNET::1/64". False when that fails, as it does without iproute2, or when the system does not take
/// the addresses into use, which it does some time after the link is up.
inline bool addCable(const std::string& name, int subnet) {
    const std::string number = std::to_string(subnet);
    const std::string end = "e" + name;
    const bool added =
        runCommand("ip link add " + name + " type veth peer name " + end + " && ip link set " + name +
                   " addrgenmode none && ip link set " + end + " addrgenmode none && ip link set " + end +
                   " up && ip link set " + name + " up && ip addr add 10.0." + number + ".1/24 dev " + name +
                   " && ip addr add fd00:" + number + "::1/64 dev " + name + " nodad");
    if (!added) return false;
    for (int tries = 0; tries < 1000; ++tries) {
        if (runCommand("test -z \"$(ip -6 addr show dev " + name + " tentative)\"")) return true;
        ::poll(nullptr, 0, 10);
    }
    return false;
}

}  // namespace Vantrel
