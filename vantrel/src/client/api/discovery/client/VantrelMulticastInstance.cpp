// The one discovery agent of the process, and its observers.

#include <algorithm>
#include <thread>
#include <utility>

#include "CoDeferral.h"
#include "CoMsg.h"
#include "CoMutex.h"
#include "CoPerProcess.h"
#include "VantrelMulticastClient.h"

using Vantrel::CoLock;

namespace {

using Observer = VantrelMulticastClient::Observer;

/// Calls observers without holding its lock. Thread-safe.
class Observers {
  public:
    void add(Observer* observer) {
        const CoLock lock(mutex_);
        observers_.push_back(observer);
    }

    void remove(Observer* observer) {
        const CoLock lock(mutex_);
        observers_.erase(std::remove(observers_.begin(), observers_.end(), observer), observers_.end());
        while (isCalledElsewhere(observer)) callEnded_.wait(mutex_);
    }

    template <typename Notify>
    void callEach(Notify notify) {
        CoLock lock(mutex_);
        for (Observer* observer : std::vector<Observer*>(observers_)) {
            // One of those before it, or another thread, may have removed it.
            if (std::find(observers_.begin(), observers_.end(), observer) == observers_.end()) continue;
            calls_.push_back({observer, std::this_thread::get_id()});
            lock.unlock();
            try {
                notify(*observer);
            } catch (const std::exception& error) {
                CO_MSG_ERROR("Vantrel Multicast: an observer failed: %s", error.what());
            }
            lock.lock();
            calls_.erase(std::find(calls_.begin(), calls_.end(), Call{observer, std::this_thread::get_id()}));
            callEnded_.notifyAll();
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

    bool isCalledElsewhere(const Observer* observer) const CO_REQUIRES(mutex_) {
        return std::any_of(calls_.begin(), calls_.end(), [observer](const Call& call) {
            return call.observer == observer && call.thread != std::this_thread::get_id();
        });
    }

    Vantrel::CoMutex mutex_;
    Vantrel::CoCondition callEnded_;
    std::vector<Observer*> observers_ CO_GUARDED_BY(mutex_);
    std::vector<Call> calls_ CO_GUARDED_BY(mutex_);  // in progress
};

struct Instance {
    Vantrel::CoMutex mutex;
    std::shared_ptr<VantrelMulticastClient> client CO_GUARDED_BY(mutex);
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
    const CoLock lock(ours.mutex);
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
        const CoLock lock(ours.mutex);
        client = std::move(ours.client);
    }
    if (client) client->stopThread();
}

void VantrelMulticastClient::recheckWaits() {
    const auto client = _getInstance(false);
    if (client) client->searches_.recheck();
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
