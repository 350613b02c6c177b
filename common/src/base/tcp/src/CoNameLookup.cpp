#include "CoNameLookup.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <pthread.h>
#include <signal.h>

#include <algorithm>
#include <chrono>
#include <cstring>

#include "CoMutex.h"
#include "CoPerProcess.h"
#include "CoTime.h"
#include "QdDsoMgr.h"
#include "TcpSettings.h"

namespace Vantrel {

namespace {

constexpr unsigned STOP_CHECK_MS = 10;

/// The look-ups of this process: a forked child has none of its parent's threads.
struct Running {
    std::atomic<int> count{0};
};

std::atomic<int>& running() {
    return CoPerProcess<Running>::get().count;
}

// One look-up, shared by the caller and the thread that does it; the last of the two frees it.
class Lookup {
  public:
    Lookup() = default;
    Lookup(const Lookup&) = delete;
    Lookup& operator=(const Lookup&) = delete;
    virtual ~Lookup() = default;

    virtual int run() = 0;

    void finish(int error) {
        const CoLock lock(mutex_);
        error_ = error;
        done_ = true;
        ended_.notifyAll();
    }

    // The look-up's result, or EAI_AGAIN when it is given up.
    int wait(unsigned timeoutMs, const std::function<bool()>& stopped) {
        const CoDeadline deadline(timeoutMs);
        CoLock lock(mutex_);
        while (!done_) {
            const unsigned leftMs = deadline.leftMs();
            if (leftMs == 0) return EAI_AGAIN;
            lock.unlock();
            const bool giveUp = stopped && stopped();
            lock.lock();
            if (giveUp) return EAI_AGAIN;
            const unsigned sliceMs = stopped ? std::min(leftMs, STOP_CHECK_MS) : leftMs;
            if (!done_) ended_.waitFor(mutex_, std::chrono::milliseconds(sliceMs));
        }
        return error_;
    }

  private:
    CoMutex mutex_;
    CoCondition ended_;
    bool done_ CO_GUARDED_BY(mutex_) = false;
    int error_ CO_GUARDED_BY(mutex_) = 0;
};

class AddressLookup : public Lookup {
  public:
    AddressLookup(const char* host, int family) : host_(host), family_(family) {}

    int run() override {
        addrinfo hints{};
        hints.ai_socktype = SOCK_STREAM;
        hints.ai_family = family_;
        addrinfo* found = nullptr;
        const int error = CoNameLookup::resolver().load()(host_.c_str(), nullptr, &hints, &found);
        if (error == 0) addresses.reset(found);
        return error;
    }

    CoNameLookup::Addresses addresses{nullptr, &::freeaddrinfo};  // the caller's once the look-up has ended

  private:
    std::string host_;
    int family_;
};

class HostLookup : public Lookup {
  public:
    HostLookup(const sockaddr* address, socklen_t size, int flags)
        : size_(std::min<socklen_t>(size, sizeof address_)), flags_(flags) {
        std::memcpy(&address_, address, size_);
    }

    int run() override {
        char text[NI_MAXHOST] = {};
        const int error = ::getnameinfo(reinterpret_cast<const sockaddr*>(&address_), size_, text,
                                        sizeof text, nullptr, 0, flags_);
        if (error == 0) name = text;
        return error;
    }

    std::string name;  // the caller's once the look-up has ended

  private:
    sockaddr_storage address_{};
    socklen_t size_;
    int flags_;
};

void* runLookup(void* argument) {
    {
        const std::unique_ptr<std::shared_ptr<Lookup>> lookup(
            static_cast<std::shared_ptr<Lookup>*>(argument));
        (*lookup)->finish((*lookup)->run());
    }
    --running();
    return nullptr;
}

// Starts a look-up on a detached thread that takes no signals.
bool start(const std::shared_ptr<Lookup>& lookup) {
    if (++running() > CoNameLookup::MAX_RUNNING) {
        --running();
        return false;
    }
    QdDsoMgr::keepLoaded();  // a look-up may outlive its caller and even the host's last use of the library
    sigset_t all;
    ::sigfillset(&all);
    pthread_attr_t attributes;
    ::pthread_attr_init(&attributes);
    ::pthread_attr_setdetachstate(&attributes, PTHREAD_CREATE_DETACHED);
    ::pthread_attr_setsigmask_np(&attributes, &all);
    auto shared = std::make_unique<std::shared_ptr<Lookup>>(lookup);
    pthread_t thread{};
    const int error = ::pthread_create(&thread, &attributes, &runLookup, shared.get());
    ::pthread_attr_destroy(&attributes);
    if (error != 0) {
        --running();
        return false;
    }
    static_cast<void>(shared.release());  // the thread's now
    return true;
}

}  // namespace

int CoNameLookup::family() {
    return TcpSettings::ipv6.get() ? AF_INET6 : AF_UNSPEC;
}

int CoNameLookup::choiceFamily() {
    return TcpSettings::disableIPv6.get() ? AF_INET : family();
}

int CoNameLookup::find(const char* host, unsigned timeoutMs, const std::function<bool()>& stopped,
                       Addresses& addresses, int family) {
    addrinfo hints{};
    hints.ai_flags = AI_NUMERICHOST;
    hints.ai_socktype = SOCK_STREAM;
    hints.ai_family = family;
    addrinfo* found = nullptr;
    const int numericError = ::getaddrinfo(host, nullptr, &hints, &found);
    if (numericError == 0) addresses = Addresses(found, &::freeaddrinfo);
    if (numericError != EAI_NONAME) return numericError;

    const auto lookup = std::make_shared<AddressLookup>(host, family);
    if (!start(lookup)) return EAI_AGAIN;
    const int error = lookup->wait(timeoutMs, stopped);
    if (error == 0) addresses = std::move(lookup->addresses);
    return error;
}

int CoNameLookup::findName(const sockaddr* address, socklen_t size, int flags, unsigned timeoutMs,
                           std::string& name) {
    const auto lookup = std::make_shared<HostLookup>(address, size, flags);
    if (!start(lookup)) return EAI_AGAIN;
    const int error = lookup->wait(timeoutMs, nullptr);
    if (error == 0) name = lookup->name;
    return error;
}

std::string CoNameLookup::toNumericText(const sockaddr* address, socklen_t size) {
    char text[NI_MAXHOST] = {};
    if (address->sa_family == AF_INET && size >= sizeof(sockaddr_in)) {
        // By far the most frequent, and without a scope, which only getnameinfo knows.
        const auto& ip = reinterpret_cast<const sockaddr_in*>(address)->sin_addr;
        return ::inet_ntop(AF_INET, &ip, text, sizeof text) ? text : "";
    }
    const int error = ::getnameinfo(address, size, text, sizeof text, nullptr, 0, NI_NUMERICHOST);
    return error == 0 ? text : "";
}

std::atomic<CoNameLookup::Resolver>& CoNameLookup::resolver() {
    static std::atomic<Resolver> current{&::getaddrinfo};
    return current;
}

}  // namespace Vantrel
