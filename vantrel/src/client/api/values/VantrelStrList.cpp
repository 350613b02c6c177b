#include <memory>
#include <utility>
#include <vector>

#include <vantrel/VantrelStr.h>

#include "CoAssert.h"

class VantrelStrList::Imp {
  public:
    std::vector<VantrelStr> strs;
};

VantrelStrList::VantrelStrList() : imp_(nullptr) {}

VantrelStrList::VantrelStrList(const VantrelStrList& other)
    : imp_(other.imp_ ? std::make_unique<Imp>(*other.imp_).release() : nullptr) {}

VantrelStrList::VantrelStrList(VantrelStrList&& other) noexcept : imp_(std::exchange(other.imp_, nullptr)) {}

VantrelStrList::~VantrelStrList() {
    delete imp_;
}

VantrelStrList& VantrelStrList::operator=(const VantrelStrList& other) {
    if (this != &other) *this = VantrelStrList(other);
    return *this;
}

VantrelStrList& VantrelStrList::operator=(VantrelStrList&& other) noexcept {
    if (this != &other) {
        delete imp_;
        imp_ = std::exchange(other.imp_, nullptr);
    }
    return *this;
}

void VantrelStrList::push_back(const char* text) {
    if (!imp_) imp_ = std::make_unique<Imp>().release();
    imp_->strs.emplace_back(text);
}

unsigned int VantrelStrList::size() const noexcept {
    return imp_ ? static_cast<unsigned int>(imp_->strs.size()) : 0;
}

void VantrelStrList::reserve(int count) {
    if (count <= 0) return;
    if (!imp_) imp_ = std::make_unique<Imp>().release();
    imp_->strs.reserve(static_cast<unsigned int>(count));
}

void VantrelStrList::resize(int count) {
    if (!imp_) imp_ = std::make_unique<Imp>().release();
    imp_->strs.resize(static_cast<unsigned int>(count < 0 ? 0 : count));
}

const char* VantrelStrList::getStr(unsigned int index) const {
    if (!CO_ASSERT(index < size())) return "";
    return imp_->strs[index].c_str();
}

bool VantrelStrList::operator==(const VantrelStrList& other) const {
    if (size() != other.size()) return false;
    return size() == 0 || imp_->strs == other.imp_->strs;
}
