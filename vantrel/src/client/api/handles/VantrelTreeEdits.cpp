#include "VantrelTreeEdits.h"

using Vantrel::CoLock;

void VantrelTreeEdits::noteRenamed(const std::string& id, const std::string& idNow) {
    const CoLock lock(mutex_);
    const Count count = ++count_;
    if (renamed_.size() >= MAX_RENAMED) {
        renamed_.clear();
        allRenamed_ = count;
    }
    // Lists from before its first rename know the node by an older id.
    for (auto& earlier : renamed_) {
        if (earlier.second.idNow == id) earlier.second.idNow = idNow;
    }
    renamed_[id] = {count, idNow};
    lastRenamed_ = count;
}

void VantrelTreeEdits::noteDestroyed() {
    lastDestroyed_ = ++count_;
}

bool VantrelTreeEdits::wasRenamed(Count since, const std::string& id, std::string& idNow) const {
    if (lastRenamed_ <= since) return false;  // so that walking a list takes no lock
    const CoLock lock(mutex_);
    const auto found = renamed_.find(id);
    const bool known = found != renamed_.end() && found->second.count > since;
    idNow = known ? found->second.idNow : id;
    return known || allRenamed_ > since;
}
