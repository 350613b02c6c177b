#include <vantrel/VantrelServerInfo.h>

#include <utility>

#include "CoNeverDestroyed.h"
#include "VantrelDaemonHost.h"

VantrelServerInfo::VantrelServerInfo() : info_(nullptr) {}
VantrelServerInfo::VantrelServerInfo(const VantrelServerInfo& other)
    : info_(other.info_ ? new VantrelDaemonInfo(*other.info_) : nullptr) {}
VantrelServerInfo::VantrelServerInfo(VantrelServerInfo&& other) noexcept
    : info_(std::exchange(other.info_, nullptr)) {}
VantrelServerInfo::VantrelServerInfo(const VantrelDaemonInfo& info) : info_(new VantrelDaemonInfo(info)) {}
VantrelServerInfo::~VantrelServerInfo() {
    delete info_;
}

VantrelServerInfo& VantrelServerInfo::operator=(const VantrelServerInfo& other) {
    if (this != &other) *this = VantrelServerInfo(other);
    return *this;
}

VantrelServerInfo& VantrelServerInfo::operator=(VantrelServerInfo&& other) noexcept {
    if (this != &other) delete std::exchange(info_, std::exchange(other.info_, nullptr));
    return *this;
}

VantrelServerInfo& VantrelServerInfo::operator=(const VantrelDaemonInfo& info) {
    changeable() = info;
    return *this;
}

VantrelDaemonInfo& VantrelServerInfo::changeable() {
    if (!info_) info_ = new VantrelDaemonInfo;
    return *info_;
}

const VantrelDaemonInfo& VantrelServerInfo::getDaemonInfo() const noexcept {
    static Vantrel::CoNeverDestroyed<VantrelDaemonInfo> nothing;
    return info_ ? *info_ : *nothing;
}

const char* VantrelServerInfo::getHostname() const noexcept {
    return getDaemonInfo().getHostName();
}
const char* VantrelServerInfo::getHostUUID() const noexcept {
    return getDaemonInfo().getHostUUID();
}
const char* VantrelServerInfo::getDisplayName() const noexcept {
    return getDaemonInfo().getDisplayName();
}
const char* VantrelServerInfo::getProduct() const noexcept {
    return getDaemonInfo().getProduct();
}
const char* VantrelServerInfo::getVendor() const noexcept {
    return getDaemonInfo().getVendor();
}
const char* VantrelServerInfo::getProductVersionStr() const noexcept {
    return getDaemonInfo().getProductVersionString();
}
const char* VantrelServerInfo::getStorageId() const noexcept {
    return getDaemonInfo().getStorageId();
}
const char* VantrelServerInfo::getDatabase() const noexcept {
    return getDaemonInfo().getDatabase();
}

VantrelServerId VantrelServerInfo::getId() const {
    return getDaemonInfo().getServerId();
}

int VantrelServerInfo::getVersionMajor() const noexcept {
    return getDaemonInfo().getVersionMajor();
}
int VantrelServerInfo::getVersionMinor() const noexcept {
    return getDaemonInfo().getVersionMinor();
}
int VantrelServerInfo::getVersionMaint() const noexcept {
    return getDaemonInfo().getVersionMaint();
}
int VantrelServerInfo::getVersionBuild() const noexcept {
    return getDaemonInfo().getVersionBuild();
}
int VantrelServerInfo::getProductVersionMajor() const noexcept {
    return getDaemonInfo().getProductVersionMajorNumber();
}
int VantrelServerInfo::getProductVersionMinor() const noexcept {
    return getDaemonInfo().getProductVersionMinorNumber();
}
int VantrelServerInfo::getProductVersionMaint() const noexcept {
    return getDaemonInfo().getProductVersionMaintNumber();
}
int VantrelServerInfo::getProductBuild() const noexcept {
    return getDaemonInfo().getProductBuildNumber();
}
int VantrelServerInfo::getNodePort() const noexcept {
    return getDaemonInfo().getNodePort();
}
int VantrelServerInfo::getFramePort() const noexcept {
    return getDaemonInfo().getFramePort();
}

void VantrelServerInfo::setProduct(const char* text) {
    changeable().setProduct(text);
}
void VantrelServerInfo::setVendor(const char* text) {
    changeable().setVendor(text);
}
void VantrelServerInfo::setProductVersionMajor(int number) {
    changeable().setProductVersionMajorNumber(number);
}
void VantrelServerInfo::setProductVersionMinor(int number) {
    changeable().setProductVersionMinorNumber(number);
}
void VantrelServerInfo::setProductVersionMaint(int number) {
    changeable().setProductVersionMaintNumber(number);
}
void VantrelServerInfo::setProductBuild(int number) {
    changeable().setProductBuildNumber(number);
}
void VantrelServerInfo::setProductVersionStr(const char* text) {
    changeable().setProductVersionString(text);
}
void VantrelServerInfo::setStorageId(const char* text) {
    changeable().setStorageId(text);
}
void VantrelServerInfo::setDatabase(const char* text) {
    changeable().setDatabase(text);
}
void VantrelServerInfo::setFlags(unsigned int bits) {
    changeable().setFlags(bits);
}

bool VantrelServerInfo::isLocal() const {
    return VantrelDaemonHost::isLocal(getDaemonInfo());
}
bool VantrelServerInfo::hasSessions() const noexcept {
    return getDaemonInfo().hasSessions();
}
bool VantrelServerInfo::isSameServer(const VantrelServerId& serverId) const {
    return VantrelDaemonHost::isSameServer(getDaemonInfo(), serverId);
}
bool VantrelServerInfo::isSameServer(const VantrelServerInfo& other) const {
    return VantrelDaemonHost::isSameServer(getDaemonInfo(), other.getDaemonInfo());
}
bool VantrelServerInfo::operator==(const VantrelServerInfo& other) const noexcept {
    return getDaemonInfo() == other.getDaemonInfo();
}
