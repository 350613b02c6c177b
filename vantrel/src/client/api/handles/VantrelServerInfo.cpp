#include <vantrel/VantrelServerInfo.h>

#include "VantrelDaemonHost.h"

VantrelServerInfo::VantrelServerInfo() : info_(new VantrelDaemonInfo) {}
VantrelServerInfo::VantrelServerInfo(const VantrelServerInfo& other)
    : info_(new VantrelDaemonInfo(*other.info_)) {}
VantrelServerInfo::VantrelServerInfo(const VantrelDaemonInfo& info) : info_(new VantrelDaemonInfo(info)) {}
VantrelServerInfo::~VantrelServerInfo() {
    delete info_;
}

VantrelServerInfo& VantrelServerInfo::operator=(const VantrelServerInfo& other) {
    if (this != &other) *info_ = *other.info_;
    return *this;
}

VantrelServerInfo& VantrelServerInfo::operator=(const VantrelDaemonInfo& info) {
    *info_ = info;
    return *this;
}

const char* VantrelServerInfo::getHostname() const {
    return info_->getHostName();
}
const char* VantrelServerInfo::getHostUUID() const {
    return info_->getHostUUID();
}
const char* VantrelServerInfo::getDisplayName() const {
    return info_->getDisplayName();
}
const char* VantrelServerInfo::getProduct() const {
    return info_->getProduct();
}
const char* VantrelServerInfo::getVendor() const {
    return info_->getVendor();
}
const char* VantrelServerInfo::getProductVersionStr() const {
    return info_->getProductVersionString();
}
const char* VantrelServerInfo::getStorageId() const {
    return info_->getStorageId();
}
const char* VantrelServerInfo::getDatabase() const {
    return info_->getDatabase();
}

VantrelServerId VantrelServerInfo::getId() const {
    return info_->getServerId();
}

int VantrelServerInfo::getVersionMajor() const {
    return info_->getVersionMajor();
}
int VantrelServerInfo::getVersionMinor() const {
    return info_->getVersionMinor();
}
int VantrelServerInfo::getVersionMaint() const {
    return info_->getVersionMaint();
}
int VantrelServerInfo::getVersionBuild() const {
    return info_->getVersionBuild();
}
int VantrelServerInfo::getProductVersionMajor() const {
    return info_->getProductVersionMajorNumber();
}
int VantrelServerInfo::getProductVersionMinor() const {
    return info_->getProductVersionMinorNumber();
}
int VantrelServerInfo::getProductVersionMaint() const {
    return info_->getProductVersionMaintNumber();
}
int VantrelServerInfo::getProductBuild() const {
    return info_->getProductBuildNumber();
}
int VantrelServerInfo::getNodePort() const {
    return info_->getNodePort();
}
int VantrelServerInfo::getFramePort() const {
    return info_->getFramePort();
}

void VantrelServerInfo::setProduct(const char* text) {
    info_->setProduct(text);
}
void VantrelServerInfo::setVendor(const char* text) {
    info_->setVendor(text);
}
void VantrelServerInfo::setProductVersionMajor(int number) {
    info_->setProductVersionMajorNumber(number);
}
void VantrelServerInfo::setProductVersionMinor(int number) {
    info_->setProductVersionMinorNumber(number);
}
void VantrelServerInfo::setProductVersionMaint(int number) {
    info_->setProductVersionMaintNumber(number);
}
void VantrelServerInfo::setProductBuild(int number) {
    info_->setProductBuildNumber(number);
}
void VantrelServerInfo::setProductVersionStr(const char* text) {
    info_->setProductVersionString(text);
}
void VantrelServerInfo::setStorageId(const char* text) {
    info_->setStorageId(text);
}
void VantrelServerInfo::setDatabase(const char* text) {
    info_->setDatabase(text);
}
void VantrelServerInfo::setFlags(unsigned int bits) {
    info_->setFlags(bits);
}

bool VantrelServerInfo::isLocal() const {
    return VantrelDaemonHost::isLocal(*info_);
}
bool VantrelServerInfo::hasSessions() const {
    return info_->hasSessions();
}
bool VantrelServerInfo::isSameServer(const VantrelServerId& serverId) const {
    return VantrelDaemonHost::isSameServer(*info_, serverId);
}
bool VantrelServerInfo::isSameServer(const VantrelServerInfo& other) const {
    return VantrelDaemonHost::isSameServer(*info_, *other.info_);
}
bool VantrelServerInfo::operator==(const VantrelServerInfo& other) const {
    return *info_ == *other.info_;
}

const VantrelDaemonInfo& VantrelServerInfo::getDaemonInfo() const {
    return *info_;
}
