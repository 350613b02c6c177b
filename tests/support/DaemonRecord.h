#pragma once

#include <sstream>
#include <string>

#include "VantrelDaemonInfo.h"

namespace Vantrel {

/// A server as tests describe it; addresses stand between blanks.
struct DaemonRecord {
    const char* storageId = "";
    const char* hostUUID = "";
    const char* database = "";
    std::string metadataIPs = {};
    std::string dataIPs = {};
    const char* displayName = "";
    int nodePort = 7549;

    VantrelDaemonInfo info() const {
        VantrelDaemonInfo info;
        info.setStorageId(storageId);
        info.setHostUUID(hostUUID);
        info.setDatabase(database);
        info.setDisplayName(displayName);
        info.setNodePort(nodePort);
        std::istringstream metadata(metadataIPs);
        std::istringstream data(dataIPs);
        unsigned index = 0;
        for (std::string ip; metadata >> ip; ++index) info.setMetadataIP(index, ip.c_str());
        index = 0;
        for (std::string ip; data >> ip; ++index) info.setDataIP(index, ip.c_str());
        return info;
    }
};

/// The addresses up to the end of the list, each followed by a blank.
inline std::string show(const VantrelIPList& ips) {
    std::string all;
    for (const VantrelStr& ip : ips) all += std::string(ip) + ' ';
    return all;
}

}  // namespace Vantrel
