#pragma once

#include <functional>
#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

#include "NodeStore.h"
#include "PathTranslations.h"
#include "VantrelCommands.h"
#include "VantrelDaemonInfo.h"

namespace vantreld {

/// The commands of the node port: takes an argument's text apart, works on the store, builds the reply's
/// text. Knows no sockets. Not thread-safe; the store is, and must outlive it.
class NodeCommands {
  public:
    /// `daemonInfo` describes this server, as the client that is being answered should see it.
    NodeCommands(NodeStore& store, VantrelVersion version, std::function<VantrelDaemonInfo()> daemonInfo,
                 PathTranslations translations = {});

    /// `others` gives the other servers that this one knows; they are listed behind it.
    void setOtherServers(std::function<std::vector<VantrelDaemonInfo>()> others) {
        otherServers_ = std::move(others);
    }

    /// Performs a command and returns its reply; CoException with the text for the client when it fails.
    using Function = std::function<std::string(const std::string& argument)>;
    /// What performs each of the commands that a server of this version has, by the command's name. Valid as
    /// long as this object.
    std::unordered_map<std::string, Function> functions();

  private:
    using Handler = std::string (NodeCommands::*)(const std::string& argument);
    struct Command {
        const VantrelCommand& command;
        Handler handler;
    };
    static const Command COMMANDS[];

    // The server
    std::string getDaemonInfo(const std::string& argument);
    std::string getDaemonList(const std::string& argument);
    std::string ping(const std::string& argument);
    std::string queryVersion(const std::string& argument);
    std::string queryVendor(const std::string& argument);
    std::string queryProduct(const std::string& argument);
    std::string queryProductVersion(const std::string& argument);
    std::string getStorageId(const std::string& argument);

    // The tree
    std::string getRootNode(const std::string& argument);
    std::string getParentNode(const std::string& argument);
    std::string getChildren(const std::string& argument);
    std::string getChildrenEx(const std::string& argument);
    std::string getDisplayName(const std::string& argument);
    std::string getDisplayNameEx(const std::string& argument);
    std::string getNodeType(const std::string& argument);
    std::string getNodeTypeStr(const std::string& argument);
    std::string canCreateNode(const std::string& argument);
    std::string createNode(const std::string& argument);
    std::string createNodeEx(const std::string& argument);
    std::string renameNode(const std::string& argument);
    std::string duplicateNode(const std::string& argument);
    std::string destroyNode(const std::string& argument);

    // Metadata and formats
    std::string queryMetaDataSupport(const std::string& argument);
    std::string getMetaData(const std::string& argument);
    std::string setMetaData(const std::string& argument);
    std::string getClipFormat(const std::string& argument);
    std::string getClipFormatEx(const std::string& argument);

    // Frames
    std::string getFrames(const std::string& argument);
    std::string getFramesEx(const std::string& argument);
    std::string allocateFrames(const std::string& argument);
    std::string allocateFramesEx(const std::string& argument);
    std::string getFramePaths(const std::string& argument);
    std::string getFramePathsEx(const std::string& argument);
    std::string setFramePaths(const std::string& argument);
    std::string setFramePathsEx(const std::string& argument);
    std::string getStreamId(const std::string& argument);
    std::string getNbReadAheads(const std::string& argument);

    // Path translation
    std::string translatePaths(const std::string& argument);
    std::string getTranslationGroups(const std::string& argument);
    std::string getHostTranslations(const std::string& argument);
    std::string getOsTypeTranslations(const std::string& argument);

    NodeStore& store_;
    const VantrelVersion version_;
    const std::function<VantrelDaemonInfo()> daemonInfo_;
    std::function<std::vector<VantrelDaemonInfo>()> otherServers_;
    const PathTranslations translations_;
};

}  // namespace vantreld
