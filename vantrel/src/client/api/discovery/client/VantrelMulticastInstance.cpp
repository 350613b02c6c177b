// The one discovery agent of the process, and who is told of what it finds.

#include <algorithm>
#include <thread>
#include <utility>

#include "CoDeferral.h"
#include "CoMsg.h"
#include "CoPerProcess.h"
#include "VantrelMulticastClient.h"

namespace {

using Observer = VantrelMulticastClient::Observer;

/// Calls observers without holding its lock. Thread-safe.
class Observers {
  public:
    void add(Observer* observer) {
        const std::lock_guard<std::mutex> lock(mutex_);
        observers_.push_back(observer);
    }

    void remove(Observer* observer) {
        std::unique_lock<std::mutex> lock(mutex_);
        observers_.erase(std::remove(observers_.begin(), observers_.end(), observer), observers_.end());
        callEnded_.wait(lock, [&] {
            return std::none_of(calls_.begin(), calls_.end(), [&](const Call& call) {
                return call.observer == observer && call.thread != std::this_thread::get_id();
            });
        });
    }

    template <typename Tell>
    void callEach(Tell tell) {
        std::unique_lock<std::mutex> lock(mutex_);
        for (Observer* observer : std::vector<Observer*>(observers_)) {
            // One of those before it, or another thread, may have removed it.
            if (std::find(observers_.begin(), observers_.end(), observer) == observers_.end()) continue;
            calls_.push_back({observer, std::this_thread::get_id()});
            lock.unlock();
            try {
                tell(*observer);
            } catch (const std::exception& error) {
                CO_MSG_ERROR("Vantrel Multicast: an observer failed: %s", error.what());
            }
            lock.lock();
            calls_.erase(std::find(calls_.begin(), calls_.end(), Call{observer, std::this_thread::get_id()}));
            callEnded_.notify_all();
        }
    }

  private:
    struct Call {
        Observer* observer;
        std::thread::id thread;
        bool operator==(const Call& other) const {
            return observer == other.observer && thread == other.thread;
        }
    };

    std::mutex mutex_;  // guards what follows
    std::condition_variable callEnded_;
    std::vector<Observer*> observers_;
    std::vector<Call> calls_;  // in progress
};

struct Instance {
    std::mutex mutex;  // guards client
    std::shared_ptr<VantrelMulticastClient> client;
    Observers observers;
};

Instance& instance() {
    return Vantrel::CoPerProcess<Instance>::get();
}

}  // namespace

std::shared_ptr<VantrelMulticastClient> VantrelMulticastClient::_getInstance(bool create) {
    const Vantrel::CoDeferral deferral;
    Instance& ours = instance();
    std::shared_ptr<VantrelMulticastClient> ended;  // goes when the lock is gone
    const std::lock_guard<std::mutex> lock(ours.mutex);
    // A shut-down that ran beside may have stopped the thread of one that was made too late for it.
    if (create && ours.client && ours.client->stopping_) ended = std::move(ours.client);
    if (!ours.client && create) {
        auto client = std::make_shared<VantrelMulticastClient>(VantrelDiscoveryGroup::configured());
        client->start();
        ours.client = std::move(client);
    }
    return ours.client;
}

void VantrelMulticastClient::stop() {
    std::shared_ptr<VantrelMulticastClient> client;
    {
        Instance& ours = instance();
        const std::lock_guard<std::mutex> lock(ours.mutex);
        client = std::move(ours.client);
    }
    if (client) client->stopThread();
}

void VantrelMulticastClient::recheckWaits() {
    const auto client = _getInstance(false);
    if (!client) return;
    const std::lock_guard<std::mutex> lock(client->mutex_);
    client->changed_.notify_all();
}

void VantrelMulticastClient::addObserver(Observer* observer) {
    instance().observers.add(observer);
}

void VantrelMulticastClient::removeObserver(Observer* observer) {
    instance().observers.remove(observer);
}

void VantrelMulticastClient::notifyObservers(Event event, const VantrelDaemonInfo& info) {
    instance().observers.callEach([&](Observer& observer) { observer.serverEvent(event, info); });
}

void VantrelMulticastClient::notifyHeard(const VantrelDaemonInfo& info) {
    instance().observers.callEach([&](Observer& observer) { observer.serverHeard(info); });
}
