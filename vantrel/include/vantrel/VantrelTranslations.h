#pragma once

#include <vantrel/VantrelServerHandle.h>
#include <vantrel/VantrelTypes.h>

/// Entries of a server's path translation tables, as VantrelServerHandle gives them. Plain values: copies are
/// independent, and nothing refers to the handle. The texts that getters give are never null and stay valid
/// until the object is assigned to or destroyed.
///
/// Thread safety: different objects may be used from different threads; one object by several threads only
/// while none of them changes it.

/// Hosts that the translations treat alike. A host translation may name a group in place of a host.
class VANTREL_API VantrelServerHandle::TranslationGroup {
  public:
    /// Without a name and hosts, of an Unknown system.
    TranslationGroup();
    TranslationGroup(const char* name, VantrelOS::OsType osType, const VantrelStrList& hosts);

    const char* getName() const { return name_.c_str(); }
    /// The system that the hosts run.
    VantrelOS::OsType getOsType() const { return osType_; }
    const VantrelStrList& getHosts() const { return hosts_; }

  private:
    VantrelStr name_;
    VantrelOS::OsType osType_;
    VantrelStrList hosts_;
};

/// Paths at or below `getSrcPath` on the source host are found at or below `getDstPath` on the destination.
class VANTREL_API VantrelServerHandle::HostTranslation {
  public:
    /// All texts empty.
    HostTranslation();
    HostTranslation(const char* srcHost, const char* srcPath, const char* dstHost, const char* dstPath);

    const char* getSrcHost() const { return srcHost_.c_str(); }
    const char* getSrcPath() const { return srcPath_.c_str(); }
    const char* getDstHost() const { return dstHost_.c_str(); }
    const char* getDstPath() const { return dstPath_.c_str(); }

  private:
    VantrelStr srcHost_;
    VantrelStr srcPath_;
    VantrelStr dstHost_;
    VantrelStr dstPath_;
};

/// The same between the systems that hosts run.
class VANTREL_API VantrelServerHandle::OsTypeTranslation {
  public:
    /// All texts empty, both systems Unknown.
    OsTypeTranslation();
    OsTypeTranslation(VantrelOS::OsType srcType, const char* srcPath, VantrelOS::OsType dstType,
                      const char* dstPath);

    VantrelOS::OsType getSrcType() const { return srcType_; }
    const char* getSrcPath() const { return srcPath_.c_str(); }
    VantrelOS::OsType getDstType() const { return dstType_; }
    const char* getDstPath() const { return dstPath_.c_str(); }

  private:
    VantrelOS::OsType srcType_;
    VantrelStr srcPath_;
    VantrelOS::OsType dstType_;
    VantrelStr dstPath_;
};
