#pragma once

#include "VantrelStr.h"

/// The machine and the user that the process runs on and as. Thread-safe.
class VANTREL_API VantrelOS {
  public:
    /// The numbers travel in the protocol.
    enum OsType : int { Unknown = 0, Irix = 1, Linux = 2, WindowsNT = 3, MacOSX = 4 };

    virtual ~VantrelOS();

    /// "Irix", "Linux", "WindowsNT", "MacOSX"; "Unknown" for any other value.
    static const char* OsTypeStr(OsType type);
    /// The type of that name in upper or lower case; Unknown for any other text and for null.
    static OsType strToOsType(const char* name);

    /// Whether the text is "localhost", "127.0.0.1", "::ffff:127.0.0.1", "::127.0.0.1" or "::1".
    static bool isLoopBackIP(const char* address);
    /// Whether the text is a loopback address, this host's name, or an address of one of its network
    /// interfaces. Nothing is looked up on the network.
    static bool isLocalIP(const char* address);

    /// Name of this host; empty when the system does not know it.
    static VantrelStr getHostName();
    /// Linux.
    static OsType getOSType();
    /// The system's release; empty when the system does not know it.
    static VantrelStr getOSVersion();

    /// Effective user and group id of the process.
    static unsigned int getUserId();
    static unsigned int getGroupId();
    /// Makes `userId` the effective user id of the whole process. The capability CAP_SETUID, where the
    /// process may use it but has it switched off, is on for the time of the switch. False, with the reason
    /// logged, when the system refuses, or when other threads run that lack the capability which the switch
    /// needs.
    static bool setUserId(unsigned int userId);

    /// Replaces the content of `addresses` by the numeric addresses of this host that serve metadata
    /// connections, in order of preference. False when there is none.
    static bool getLocalMetadataIPs(VantrelStrList& addresses);
    /// Replaces the content of `interfaces` by the names of this host's network interfaces on which servers
    /// are searched for, in order of preference. False when there is none.
    static bool getLocalMulticastInterfaces(VantrelStrList& interfaces);
};
