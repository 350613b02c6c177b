// The one discovery agent of the process, and its observers.

#include <utility>

#include "CoDeferral.h"
#include "CoMutex.h"
#include "CoObserverList.h"
#include "CoPerProcess.h"
#include "VantrelMulticastClient.h"

using Vantrel::CoLock;

namespace {

constexpr const char* OBSERVER = "Vantrel Multicast: an observer";

struct Instance {
    Vantrel::CoMutex mutex;
    std::shared_ptr<VantrelMulticastClient> client CO_GUARDED_BY(mutex);
    Vantrel::CoObserverList<VantrelMulticastClient::Observer> observers;
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
    instance().observers.notify(OBSERVER, [&](Observer& observer) { observer.serverEvent(event, info); });
}

void VantrelMulticastClient::notifyHeard(const VantrelDaemonInfo& info) {
    instance().observers.notify(OBSERVER, [&](Observer& observer) { observer.serverHeard(info); });
}
