#include "VantrelSearches.h"

#include <algorithm>
#include <chrono>

#include "CoMsg.h"
#include "VantrelMulticastTime.h"

using Vantrel::CoLock;
using Vantrel::CoTime;

namespace {

constexpr const char* ALL_SERVERS = "";

constexpr CoTime::Microseconds fromMs(unsigned milliseconds) {
    return milliseconds * CoTime::PER_MILLISECOND;
}

}  // namespace

VantrelSearches::VantrelSearches() : lastForAllAt_(CoTime::getTime() - fromMs(SEARCH_VALID_MS)) {}

VantrelSearches::Microseconds VantrelSearches::endOf(const Search& search) const {
    const Microseconds quiet =
        std::max(search.startedAt + fromMs(MIN_WAIT_MS), lastReplyAt_ + fromMs(QUIET_MS));
    return std::min(quiet, search.startedAt + fromMs(MAX_WAIT_MS));
}

bool VantrelSearches::isRunning(const Search& search, Microseconds now) const {
    return !search.over && now < endOf(search);
}

/// The search that is running, or a new one.
VantrelSearches::SearchPtr VantrelSearches::join(const std::string& storageId, Microseconds now) {
    SearchPtr& search = searches_[storageId];
    if (!search || !isRunning(*search, now)) search = std::make_shared<Search>(Search{now});
    return search;
}

void VantrelSearches::leave(const std::string& storageId, const SearchPtr& search) {
    --search->callers;
    const auto latest = searches_.find(storageId);
    const bool isLatest = latest != searches_.end() && latest->second == search;
    if (isLatest && search->callers == 0 && storageId != ALL_SERVERS) searches_.erase(latest);
}

VantrelSearches::Microseconds VantrelSearches::wait(const std::string& storageId, Microseconds latest,
                                                    const std::function<void()>& send,
                                                    const std::function<bool()>& done) {
    SearchPtr search;
    bool sends = false;
    {
        const CoLock lock(mutex_);
        const Microseconds now = CoTime::getTime();
        search = join(storageId, now);
        sends = ++search->callers == 1 || now - search->startedAt > fromMs(QUIET_MS);
        if (sends && storageId == ALL_SERVERS) lastForAllAt_ = now;
    }
    if (sends) send();
    CO_MSG_DEBUG("Vantrel Multicast: waiting on sockets until %s.", vantrelTimeText(latest).c_str());
    waitFor(*search, latest, done);
    const CoLock lock(mutex_);
    leave(storageId, search);
    return search->startedAt;
}

void VantrelSearches::waitFor(Search& search, Microseconds latest, const std::function<bool()>& done) {
    CoLock lock(mutex_);
    while (!stopped_) {
        const Microseconds now = CoTime::getTime();
        // A search that is over stays so, however many replies to later ones come.
        search.over = search.over || endOf(search) <= now;
        const bool isLastLook = search.over || latest <= now;
        const Microseconds end = std::min(endOf(search), latest);
        const std::uint64_t seen = changes_;
        lock.unlock();
        const bool isDone = done();
        lock.lock();
        if (isDone || isLastLook) return;
        if (changes_ == seen && !stopped_) changed_.waitFor(mutex_, std::chrono::microseconds(end - now));
    }
}

void VantrelSearches::beginForAll() {
    const CoLock lock(mutex_);
    const Microseconds now = CoTime::getTime();
    join(ALL_SERVERS, now);
    lastForAllAt_ = now;
}

bool VantrelSearches::renewForAll() {
    const CoLock lock(mutex_);
    const Microseconds now = CoTime::getTime();
    const bool fresh = now - lastForAllAt_ < fromMs(SEARCH_VALID_MS);
    const auto search = searches_.find(ALL_SERVERS);
    if (!fresh || (search != searches_.end() && isRunning(*search->second, now))) return false;
    lastForAllAt_ = now;
    return true;
}

void VantrelSearches::noteReply() {
    const CoLock lock(mutex_);
    lastReplyAt_ = CoTime::getTime();
}

void VantrelSearches::recheck() {
    const CoLock lock(mutex_);
    ++changes_;
    changed_.notifyAll();
}

void VantrelSearches::stop() {
    const CoLock lock(mutex_);
    stopped_ = true;
    changed_.notifyAll();
}
