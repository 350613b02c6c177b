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

/// Runs it until it succeeds; false when it does not within some ten seconds.
inline bool awaitCommand(const std::string& command) {
    for (int tries = 0; tries < 1000; ++tries) {
        if (runCommand(command)) return true;
        ::poll(nullptr, 0, 10);
    }
    return false;
}

/// Adds a cable between two new interfaces, of which `name` is for use: "10.0.SUBNET.1/24" and
/// "fd00:SUBNET::1/64". False when that fails, as it does without iproute2. The addresses are given to a link
/// that is up: the system notices that up to a second late, and then takes their routes out for a moment.
inline bool addCable(const std::string& name, int subnet) {
    const std::string number = std::to_string(subnet);
    const std::string end = "e" + name;
    return runCommand("ip link add " + name + " type veth peer name " + end + " && ip link set " + name +
                      " addrgenmode none && ip link set " + end + " addrgenmode none && ip link set " + end +
                      " up && ip link set " + name + " up") &&
           awaitCommand("ip -o link show dev " + name + " | grep -q 'state UP'") &&
           runCommand("ip addr add 10.0." + number + ".1/24 dev " + name + " && ip addr add fd00:" + number +
                      "::1/64 dev " + name + " nodad") &&
           awaitCommand("test -z \"$(ip -6 addr show dev " + name + " tentative)\"");
}

}  // namespace Vantrel
